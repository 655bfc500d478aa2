#pragma once
// A child process with its stdin and stdout on pipes, for the fault scenarios: start it, read its lines with
// a deadline, write lines to it, kill it hard (SIGKILL on POSIX, TerminateProcess on Windows), wait for it.
// One source per platform (ChildProcessPosix.cpp, ChildProcessWindows.cpp) beside the shared line reading.
#include <chrono>
#include <memory>
#include <string>
#include <vector>

class ChildProcess {
public:
    using Clock = std::chrono::steady_clock;

    // `command`: the program (a path) and its arguments.
    explicit ChildProcess(const std::vector<std::string>& command);
    ~ChildProcess();  // kills the child if it still runs
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line the child prints; empty at its end or when `deadline` passed first.
    std::string line(Clock::time_point deadline);
    // Lines until one that starts with `prefix` (returned); empty at the child's end or after `seconds`.
    std::string lineStarting(const std::string& prefix, int seconds = 30);
    void tell(const std::string& text);
    // Ends the child at once, as a crash would, and reaps it.
    void kill();
    void wait();

private:
    // Appends what the child printed to `buffer`, waiting at most until `deadline`; false at its end.
    bool readSome(std::string& buffer, Clock::time_point deadline);

    struct Impl;
    std::unique_ptr<Impl> m_impl;
    std::string m_buffer;
};

#pragma once
// A program the benchmark runs beside itself (the vantrel tool, or this binary as a peer): its output
// (stdout and stderr) as lines with the time each was read, SIGINT or the end of its stdin to stop it,
// and on exit the CPU time it used (user + system, all its threads, from wait4).
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vantrel::bench {

class Child {
public:
    struct Line {
        std::chrono::steady_clock::time_point time;
        std::string text;
    };
    struct End {
        int exitCode = -1;  // -1: ended by a signal
        double cpuSeconds = 0;
    };

    // argv[0] is the program's path. Throws when it cannot be started.
    explicit Child(const std::vector<std::string>& argv);
    // A child still running is killed: a failed part leaves no process behind.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The next line (after the one the previous call returned) that starts with `prefix`; throws after
    // `seconds` or when the output ends first.
    std::string waitFor(const std::string& prefix, double seconds);
    std::vector<Line> lines() const;
    // Every line so far, for an error message.
    std::string output() const;

    void interrupt();   // SIGINT
    void closeInput();  // the peer ends when its stdin closes
    // Waits for the exit; after `seconds` kills the child and throws.
    End finish(double seconds);

private:
    void readOutput();

    std::string m_name;
    pid_t m_pid = -1;
    int m_in = -1, m_out = -1;
    bool m_ended = false;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Line> m_lines;
    std::size_t m_next = 0;  // where waitFor looks next
    bool m_eof = false;
    std::thread m_reader;
};

}  // namespace vantrel::bench

#pragma once
// A program the benchmark runs beside itself (the vantrel tool, a script, or this binary as a peer): its
// output as lines with the time each was read, SIGINT or the end of its stdin to stop it, and on exit the
// CPU time it used (user + system, all its threads, from wait4).
// A peer ("vantrel-bench peer <role> ...") talks to its parent over stdin/stdout (say, waitForStdinEof
// below) and ends when its stdin closes.
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

    // argv[0] is the program's path; its stdout and stderr are read as lines. Throws when it cannot be
    // started.
    explicit Child(const std::vector<std::string>& argv);
    // This binary again as a peer ("vantrel-bench peer <args...>"). Its stdout is read as lines, its stderr
    // is this process's (its errors show as they happen); when destroyed still running, its stdin is closed
    // and it has 10 s to end before it is killed, so that it leaves its DDS domain in good order.
    static Child peer(const std::vector<std::string>& args);
    // A child still running is killed (a peer first has its time to end): a failed part leaves no process
    // behind.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The next line (after the one the previous call returned) that starts with `prefix`; throws after
    // `seconds` or when the output ends first.
    std::string waitFor(const std::string& prefix, double seconds);
    // The same, but "" after `seconds` without one (it still throws when the output ends).
    std::string nextOrEmpty(const std::string& prefix, double seconds);
    std::vector<Line> lines() const;
    // Every line so far, for an error message.
    std::string output() const;

    void interrupt();   // SIGINT
    void closeInput();  // a peer ends when its stdin closes
    // Waits for the exit; after `seconds` kills the child and throws.
    End finish(double seconds);

private:
    Child(const std::vector<std::string>& argv, bool isPeer);
    void readOutput();
    // The next line starting with `prefix`; false after `seconds` or at the end of the output.
    bool next(const std::string& prefix, double seconds, std::string& line);

    std::string m_name;
    bool m_isPeer = false;
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

// ---- A peer's side ----

// One line to the parent (whole lines, from any thread).
void say(const std::string& line);
// Returns once the parent closed this process's stdin.
void waitForStdinEof();

}  // namespace vantrel::bench

#pragma once
// A status line for long work (record, replay) on a terminal: messages, bytes and the rate since the
// last line, rewritten in place at most once a second. Silent when stderr is no terminal (a log, a
// pipe) or when asked to be quiet, so that scripts see only the final report.
#include <chrono>
#include <cstdint>

namespace vantrel::tool {

class Progress {
public:
    explicit Progress(bool quiet);
    ~Progress();  // ends the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Cheap when nothing is shown or a second has not passed yet: call it as often as convenient.
    void update(uint64_t messages, uint64_t bytes) {
        if (m_on) show(messages, bytes, false);
    }
    // Clears the line before the final report.
    void finish();

private:
    void show(uint64_t messages, uint64_t bytes, bool force);

    bool m_on;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_last;
    uint64_t m_lastMessages = 0;
};

}  // namespace vantrel::tool

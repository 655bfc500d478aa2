#include "Progress.h"

#include <unistd.h>

#include <cstdio>

namespace vantrel::tool {

namespace {

void printBytes(char* out, std::size_t size, uint64_t bytes) {
    const char* units[] = {"B", "kB", "MB", "GB", "TB"};
    double v = static_cast<double>(bytes);
    std::size_t u = 0;
    while (v >= 1000 && u + 1 < sizeof units / sizeof *units) {
        v /= 1000;
        ++u;
    }
    std::snprintf(out, size, u == 0 ? "%.0f %s" : "%.1f %s", v, units[u]);
}

}  // namespace

Progress::Progress(bool quiet) : m_on(!quiet && ::isatty(STDERR_FILENO) == 1), m_last(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    finish();
}

void Progress::show(uint64_t messages, uint64_t bytes, bool force) {
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - m_last).count();
    if (!force && seconds < 1.0) return;
    char size[32];
    printBytes(size, sizeof size, bytes);
    // \r and "erase to the end of the line": the line is rewritten in place.
    std::fprintf(stderr, "\r%llu messages, %s, %.0f msg/s\033[K", static_cast<unsigned long long>(messages), size,
                 static_cast<double>(messages - m_lastMessages) / seconds);
    std::fflush(stderr);
    m_shown = true;
    m_last = now;
    m_lastMessages = messages;
}

void Progress::finish() {
    if (m_shown) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        m_shown = false;
    }
}

}  // namespace vantrel::tool

#pragma once
// Arrivals of one topic over a sliding window, and the rate and bandwidth figures they give: what
// "vantrel hz", "vantrel bw" and the bridge's monitor report. Fed from a DDS listener, read from
// another thread.
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace vantrel::tool {

struct RateFigures {
    std::size_t samples = 0;  // in the window
    double hz = 0, minGap = 0, maxGap = 0, stdGap = 0;
    double bytesPerSecond = 0, meanBytes = 0, minBytes = 0, maxBytes = 0;
};

class RateWindow {
public:
    using Clock = std::chrono::steady_clock;

    void add(Clock::time_point time, uint32_t bytes) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_window.push_back({time, bytes});
        ++m_total;
    }
    // Forgets arrivals older than `window` seconds, then measures the rest.
    RateFigures measure(Clock::time_point now, double window);
    uint64_t total() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_total;
    }

private:
    struct Arrival {
        Clock::time_point time;
        uint32_t bytes;
    };
    mutable std::mutex m_mutex;
    std::deque<Arrival> m_window;
    uint64_t m_total = 0;
};

// "1.25 MB", "12.00 kB", "80.00 B"
std::string sizeText(double bytes);

}  // namespace vantrel::tool

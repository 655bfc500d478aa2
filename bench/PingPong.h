#pragma once
// Ping-pong driven from the receiving thread, for the round-trip and latency parts: each reply with the
// expected sequence number records its latency and sends the next command.
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "Common.h"

namespace vantrel::bench {

class PingPong {
public:
    std::function<void(uint32_t)> send;

    // Latencies in microseconds of `count` round trips; fewer if the time runs out.
    std::vector<double> run(int count, int timeoutMs);
    void onReply(uint32_t seq);

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::vector<double> m_latencies;
    int m_remaining = 0;
    uint32_t m_seq = 0;
    Clock::time_point m_t0;
};

}  // namespace vantrel::bench

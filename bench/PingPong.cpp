#include "PingPong.h"

namespace vantrel::bench {

std::vector<double> PingPong::run(int count, int timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_latencies.clear();
    m_latencies.reserve(static_cast<std::size_t>(count));
    m_remaining = count;
    ++m_seq;
    m_t0 = Clock::now();
    send(m_seq);
    m_done.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return m_remaining == 0; });
    m_remaining = 0;
    return m_latencies;
}

void PingPong::onReply(uint32_t seq) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (seq != m_seq || m_remaining == 0) return;
    m_latencies.push_back(std::chrono::duration<double, std::micro>(Clock::now() - m_t0).count());
    if (--m_remaining == 0) return m_done.notify_all();
    ++m_seq;
    m_t0 = Clock::now();
    send(m_seq);
}

}  // namespace vantrel::bench

#include "ClientQueue.h"

namespace vantrel::tool::bridge {

bool ClientQueue::push(Outgoing message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool wasEmpty = m_queue.empty();
    m_bytes += message.payload->size();
    m_queue.push_back(std::move(message));
    while (m_queue.size() > 1 && (m_queue.size() > m_maxMessages || m_bytes > m_maxBytes)) {
        m_bytes -= m_queue.front().payload->size();
        m_queue.pop_front();
        ++m_dropped;
    }
    return wasEmpty;
}

bool ClientQueue::pop(Outgoing& message) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_queue.empty()) return false;
    message = std::move(m_queue.front());
    m_queue.pop_front();
    m_bytes -= message.payload->size();
    return true;
}

bool ClientQueue::empty() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.empty();
}

uint64_t ClientQueue::takeNewDrops() {
    std::lock_guard<std::mutex> lock(m_mutex);
    const uint64_t fresh = m_dropped - m_reported;
    m_reported = m_dropped;
    return fresh;
}

uint64_t ClientQueue::dropped() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

}  // namespace vantrel::tool::bridge

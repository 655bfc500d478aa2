#pragma once
// The messages waiting for one WebSocket client. Bounded in count and bytes: when a client does not keep
// up, its oldest messages are dropped (counted, and reported to that client), so the bus side never waits
// for a slow or stuck client.
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace vantrel::tool::bridge {

// One sample's serialized bytes, shared by every client subscribed to its channel.
using Payload = std::shared_ptr<const std::vector<uint8_t>>;

struct Outgoing {
    Payload payload;
    uint32_t subscription;  // the client's subscription id
    uint64_t logTime;       // nanoseconds since the Unix epoch
};

class ClientQueue {
public:
    ClientQueue(std::size_t maxMessages, std::size_t maxBytes) : m_maxMessages(maxMessages), m_maxBytes(maxBytes) {}

    // Returns true when the queue was empty (the sender needs waking).
    bool push(Outgoing message);
    bool pop(Outgoing& message);
    bool empty() const;
    // Messages dropped since the last call.
    uint64_t takeNewDrops();
    uint64_t dropped() const;

private:
    const std::size_t m_maxMessages, m_maxBytes;
    mutable std::mutex m_mutex;
    std::deque<Outgoing> m_queue;
    std::size_t m_bytes = 0;
    uint64_t m_dropped = 0, m_reported = 0;
};

}  // namespace vantrel::tool::bridge

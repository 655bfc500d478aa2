// vantrel bridge: the bus live for the viewers' WebSocket protocol and for a browser, on one port.
#include <malloc.h>

#include <atomic>
#include <iostream>
#include <thread>

#include "ChannelTable.h"
#include "ClientPublisher.h"
#include "Monitor.h"
#include "ProtocolServer.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

int serveBridge(const BridgeOptions& o) {
    // A message of a MB passes through a few buffers on its way to a client's socket (its serialized bytes,
    // the WebSocket frame). Left to the allocator's defaults, each would be a fresh mapping, zeroed page by
    // page and unmapped again, costing more than the copies themselves: large buffers stay in the heap.
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    const auto ops = selectOperations(o.patterns);
    Bus bus(o.domain);
    bridge::ClientPublisher publisher(bus, o.name);
    std::atomic<bridge::ProtocolServer*> server{nullptr};  // the table's events reach the server once it exists
    bridge::ChannelTable channels(bus, ops, bridge::ChannelEvents{
            [&server](const std::vector<bridge::Channel>& c) { if (auto* s = server.load()) s->advertised(c); },
        [&server](const std::vector<uint32_t>& c) { if (auto* s = server.load()) s->unadvertised(c); },
        [&server](uint32_t channel, const bridge::Payload& p, uint64_t t) { if (auto* s = server.load()) s->message(channel, p, t); }});
    bridge::ServerLimits limits;
    if (o.queue > 0) limits.queueMessages = static_cast<std::size_t>(o.queue);
    bridge::ProtocolServer protocol(bus, channels, publisher, limits);
    bridge::Monitor monitor(bus, channels, [&protocol] { return protocol.state(); });
    protocol.setMonitor(&monitor);
    const uint16_t port = protocol.listen(o.address, static_cast<uint16_t>(o.port));
    server = &protocol;
    std::cout << "bridge: domain " << o.domain << ", " << ops.size() << " operations; ws://" << o.address << ":" << port
              << " (foxglove.websocket.v1) and the monitor at http://" << o.address << ":" << port << "/" << std::endl;
    std::thread loop([&protocol] { protocol.run(); });
    while (!interrupted()) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    protocol.stop();
    loop.join();
    channels.quiesce();  // no listener runs on into the server from here on
    server = nullptr;
    std::cout << "bridge: stopped; " << protocol.state().dump() << std::endl;
    return 0;
}

}  // namespace vantrel::tool

#pragma once
// What WebSocket clients publish: the arguments of a command or report in the JSON form of "vantrel call"
// (the same checks and error texts), sent through a write-only facade of the operation's module, so the
// bridge shows on the bus as an actor of its own ("vantrel-bridge" in ps). Sending happens on a thread
// of its own: a facade's first write waits for a reader, and the protocol server must not wait with it.
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vantrel/catalog/Catalog.h"
#include "vantrel/catalog/Facade.h"
#include "vantrel/tool/Bus.h"

namespace vantrel::tool::bridge {

class ClientPublisher {
public:
    // Facades are made on the bus's session (Bus::session), which is made with the first of them: a bridge
    // that nobody publishes through has no session on the bus.
    ClientPublisher(Bus& bus, std::string actorName);
    ~ClientPublisher();
    ClientPublisher(const ClientPublisher&) = delete;
    ClientPublisher& operator=(const ClientPublisher&) = delete;

    // The operation a client's advertised topic names: the DDS topic name or "M_X.IService.Op"; throws
    // InputError for an unknown one.
    static const catalog::OperationInfo& operationOf(const std::string& topic, const Bus& bus);

    // Makes the facade that sends the operation (a client advertised its topic), so the bridge's actor is
    // on the bus, and discovered by readers, before the first publish.
    void prepare(const catalog::OperationInfo& op);
    // Checks the arguments (InputError, as "vantrel call" words it; nothing is sent) and queues the send.
    void publish(const catalog::OperationInfo& op, const std::string& arguments);
    uint64_t sent() const;

private:
    struct Pending;
    void run();
    catalog::Facade& facadeFor(const catalog::OperationInfo& op);

    Bus& m_bus;
    const std::string m_name;
    std::map<std::pair<const catalog::ModuleInfo*, catalog::Role>, std::unique_ptr<catalog::Facade>> m_facades;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<std::unique_ptr<Pending>> m_queue;
    bool m_done = false;
    uint64_t m_sent = 0;
    std::thread m_thread;  // last: starts when everything above exists
};

}  // namespace vantrel::tool::bridge

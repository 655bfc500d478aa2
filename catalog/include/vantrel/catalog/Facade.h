#pragma once
// A module's Client or Service chosen at run time: the generated glue of each module creates the
// module's real facade and moves operations between it and wire messages, so the tool and the Python
// binding send and receive any operation without compiling against its types.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kelva/actors/ActorInfo.h"
#include "vantrel/catalog/Catalog.h"

namespace kelva::actors {
class Session;
class MonitorSession;
}  // namespace kelva::actors

namespace vantrel::catalog {

// Receives an operation as its wire message (valid for the call only; kelva_sending_actor is the sender),
// and the operation's dispose flag. Runs on the session's dispatcher thread.
using Sink = std::function<void(const OperationInfo& operation, const void* message, bool dispose)>;

enum class Creation : uint8_t {
    WriteOnly,  // session, name: sends only
    Custom,     // session, name, sink: sends and receives
    ReadOnly,   // monitor, name, sink: receives only
    Monitor,    // monitor, sink: receives from every actor of the module (multiplex)
};

struct FacadeRequest {
    Role role = Role::Client;
    Creation creation = Creation::WriteOnly;
    std::shared_ptr<kelva::actors::Session> session;         // WriteOnly, Custom
    std::shared_ptr<kelva::actors::MonitorSession> monitor;  // ReadOnly, Monitor
    std::string name;
    Sink sink;
    // The operations to receive; empty: all of the receiving interface. An unknown name throws
    // std::invalid_argument.
    std::vector<std::string> methods;
};

class Facade {
public:
    virtual ~Facade() = default;
    // Sends one operation of the facade's sending interface from its wire message (kelva_sending_actor
    // is ignored: the facade's actor sends), as the typed operation sends it (trace, first-write wait,
    // write or dispose, plug-in hooks). An operation of another module or interface throws
    // std::invalid_argument. The message is sent as it is: bounds are checked where it is filled (the
    // catalogue's WireFiller), not again here. An invalidated facade throws as its typed operations do.
    virtual void send(const OperationInfo& operation, const void* message, bool dispose) = 0;
    virtual bool isValid() const = 0;
    virtual void invalidate() = 0;
    virtual kelva::actors::ActorInfo actorInfo() const = 0;
    // The operation being dispatched to this facade right now (empty outside a call).
    virtual kelva::actors::CallbackInfo callbackInfo() const = 0;
    // Client only (std::logic_error for a service).
    virtual void waitUntilConnected() = 0;
    virtual void setName(const std::string& name) = 0;
    virtual Role role() const = 0;
    virtual const ModuleInfo& module() const = 0;
};

// Creates a facade of `module` (std::invalid_argument for a module of types only).
std::unique_ptr<Facade> createFacade(const ModuleInfo& module, const FacadeRequest& request);

}  // namespace vantrel::catalog

#pragma once
// A facade as Python holds it: the run-time Facade of a module's Client or Service, the Python callables
// that receive its operations, and the conversions both ways.
//
// Sending converts under the GIL and releases it while the toolkit and the DDS layer work. A received
// operation runs on the session's dispatcher thread, which takes the GIL for the call only; an exception
// a callable raises is logged with its traceback and the dispatcher goes on. Every call into the toolkit
// that may wait (creation, sending, invalidation, waiting for a connection) releases the GIL, since the
// dispatcher may be waiting for it to finish a callback.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "Lifetime.h"
#include "PyRef.h"
#include "kelva/actors/ActorInfo.h"
#include "vantrel/catalog/Facade.h"

namespace kelva::actors {
class SessionImpl;
}

namespace vantrel::python {

class PyFacade {
public:
    struct Request {
        const catalog::ModuleInfo* module = nullptr;
        catalog::Role role = catalog::Role::Client;
        catalog::Creation creation = catalog::Creation::WriteOnly;
        std::shared_ptr<kelva::actors::Session> session;         // WriteOnly, Custom
        std::shared_ptr<kelva::actors::MonitorSession> monitor;  // ReadOnly, Monitor
        std::string name;
        // Per operation of the receiving interface, in catalogue order: a tuple of callables called with
        // the operation's arguments, or None (no entry: logged as "No callback found for <op>").
        std::vector<Ref> handlers;
        std::vector<std::string> methods;  // empty: every operation of the receiving interface
    };

    // The caller holds the GIL.
    static std::unique_ptr<PyFacade> create(Request request);
    // Invalidates the facade (waiting for running callbacks, unless called from one of the same session:
    // then the toolkit destroys it once that callback returned).
    ~PyFacade();
    PyFacade(const PyFacade&) = delete;
    PyFacade& operator=(const PyFacade&) = delete;

    // `operation`: the index in the module's operation table. `args`: a tuple in API order.
    void send(std::size_t operation, PyObject* args, bool dispose);
    void invalidate();
    bool isValid() const;
    kelva::actors::ActorInfo actorInfo() const;
    kelva::actors::CallbackInfo callbackInfo() const;
    void waitUntilConnected();
    void setName(const std::string& name);

    // Garbage collection: a callable may refer back to the Python object that holds this facade.
    int traverse(visitproc visit, void* arg) const;
    void clear();

private:
    PyFacade(const catalog::ModuleInfo& module, catalog::Role role, std::vector<Ref> handlers);
    // On the dispatcher thread, without the GIL.
    void deliver(const catalog::OperationInfo& operation, const void* message, bool dispose);

    const catalog::ModuleInfo& m_module;
    catalog::Role m_role;
    const catalog::OperationInfo* m_received = nullptr;  // the receiving interface's operations
    std::size_t m_receivedCount = 0;
    std::vector<Ref> m_handlers;
    bool m_cleared = false;
    std::weak_ptr<kelva::actors::SessionImpl> m_session;  // whose dispatcher runs the callbacks
    std::shared_ptr<LiveFacade> m_live;
};

}  // namespace vantrel::python

#include "PyFacade.h"

#include <stdexcept>

#include "ErrorLog.h"
#include "FromWire.h"
#include "Gil.h"
#include "Registry.h"
#include "ToWire.h"
#include "kelva/access/Dispatcher.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/utils/Log.h"

namespace vantrel::python {

using catalog::OperationInfo;
using catalog::Role;

namespace {

std::string qualifiedName(const OperationInfo& operation) {
    return std::string(operation.module) + "::" + operation.interface + "::" + operation.name;
}

}  // namespace

PyFacade::PyFacade(const catalog::ModuleInfo& module, Role role, std::vector<Ref> handlers)
    : m_module(module), m_role(role), m_handlers(std::move(handlers)) {
    // The table lists the IService operations (received by a service), then the IClient ones.
    std::size_t serviceOperations = 0;
    while (serviceOperations < module.operationCount && module.operations[serviceOperations].sender() == Role::Client)
        ++serviceOperations;
    m_received = module.operations + (role == Role::Client ? serviceOperations : 0);
    m_receivedCount = role == Role::Client ? module.operationCount - serviceOperations : serviceOperations;
}

std::unique_ptr<PyFacade> PyFacade::create(Request request) {
    if (shuttingDown()) raise(PyExc_RuntimeError, "the interpreter is shutting down: no new facades");
    // Every class a received operation needs is bound before the first one can arrive.
    requireModule(request.module->name);
    std::unique_ptr<PyFacade> self(new PyFacade(*request.module, request.role, std::move(request.handlers)));
    const bool receives = request.creation != catalog::Creation::WriteOnly;
    if (receives && self->m_handlers.size() != self->m_receivedCount) {
        PyErr_Format(PyExc_ValueError, "%s: %zu receiving callables for %zu operations", request.module->name,
                     self->m_handlers.size(), self->m_receivedCount);
        throw PythonError{};
    }

    catalog::FacadeRequest facadeRequest;
    facadeRequest.role = request.role;
    facadeRequest.creation = request.creation;
    facadeRequest.session = request.session;
    facadeRequest.monitor = request.monitor;
    facadeRequest.name = request.name;
    facadeRequest.methods = request.methods;
    if (receives) {
        facadeRequest.sink = [owner = self.get()](const OperationInfo& operation, const void* message, bool dispose) {
            owner->deliver(operation, message, dispose);
        };
    }
    if (request.session) self->m_session = kelva::actors::SessionImpl::getSessionImpl(*request.session);
    else if (request.monitor) self->m_session = kelva::actors::SessionImpl::getSessionImpl(*request.monitor);

    // Operations may arrive (and need the GIL) before the creation returns.
    std::unique_ptr<catalog::Facade> facade;
    withoutGil([&] { facade = catalog::createFacade(*request.module, facadeRequest); });
    self->m_live = track(std::move(facade));
    return self;
}

PyFacade::~PyFacade() {
    if (!m_live) return;
    std::shared_ptr<LiveFacade> live = std::move(m_live);
    std::shared_ptr<kelva::actors::SessionImpl> session = m_session.lock();
    withoutGil([&] {
        try {
            live->facade->invalidate();
        } catch (...) {
            // Destruction goes on: the actor is gone or going either way.
        }
        // Dropped by a callback of its own session: the callback may be one of this facade's, whose
        // callback map must outlive it.
        if (session && session->dispatcher().onDispatcherThread())
            session->dispatcher().keepUntilHandlerReturns(std::move(live));
        live.reset();
        session.reset();
    });
}

void PyFacade::send(std::size_t index, PyObject* args, bool dispose) {
    if (index >= m_module.operationCount) raise(PyExc_IndexError, "no such operation");
    const OperationInfo& operation = m_module.operations[index];
    if (operation.sender() != m_role) {
        PyErr_Format(PyExc_ValueError, "a %s of %s cannot send %s", m_role == Role::Client ? "Client" : "Service",
                     m_module.name, operation.qualifiedName().c_str());
        throw PythonError{};
    }
    WireWriter writer(operation.module, operation.name);
    const void* message = writer.message(operation, args);
    std::shared_ptr<LiveFacade> live = m_live;
    withoutGil([&] { live->facade->send(operation, message, dispose); });
}

void PyFacade::deliver(const OperationInfo& operation, const void* message, bool dispose) {
    if (shuttingDown()) return;
    DispatcherGil gil;
    if (shuttingDown()) return;  // the exit hook ran while this thread waited for the GIL
    const auto index = static_cast<std::size_t>(&operation - m_received);
    if (index >= m_receivedCount) return;
    Ref handler = m_handlers[index];  // owned: a callable may drop the facade, and this table with it
    if (handler.get() == Py_None) {
        if (!m_cleared) kelva::utils::log::error() << "No callback found for " << operation.name;
        return;
    }
    Ref args;
    try {
        args = argumentsFromWire(operation, message, dispose);
    } catch (const PythonError&) {
        logPythonError(qualifiedName(operation) + ": the received message has no Python form");
        return;
    }
    // From here on `this` may be gone.
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(handler.get()); ++i) {
        Ref result = Ref::steal(PyObject_Call(PyTuple_GET_ITEM(handler.get(), i), args.get(), nullptr));
        if (!result) logPythonError(qualifiedName(operation) + ": the Python callback raised an exception");
    }
}

void PyFacade::invalidate() {
    std::shared_ptr<LiveFacade> live = m_live;
    withoutGil([&] { live->facade->invalidate(); });
}

bool PyFacade::isValid() const {
    bool valid = false;
    withoutGil([&] { valid = m_live->facade->isValid(); });
    return valid;
}

kelva::actors::ActorInfo PyFacade::actorInfo() const {
    kelva::actors::ActorInfo info;
    withoutGil([&] { info = m_live->facade->actorInfo(); });
    return info;
}

kelva::actors::CallbackInfo PyFacade::callbackInfo() const {
    kelva::actors::CallbackInfo info;
    withoutGil([&] { info = m_live->facade->callbackInfo(); });
    return info;
}

void PyFacade::waitUntilConnected() {
    std::shared_ptr<LiveFacade> live = m_live;
    withoutGil([&] { live->facade->waitUntilConnected(); });
}

void PyFacade::setName(const std::string& name) {
    withoutGil([&] { m_live->facade->setName(name); });
}

int PyFacade::traverse(visitproc visit, void* arg) const {
    for (const Ref& handler : m_handlers) Py_VISIT(handler.get());
    return 0;
}

void PyFacade::clear() {
    m_cleared = true;
    for (Ref& handler : m_handlers) handler = Ref::borrow(Py_None);
}

}  // namespace vantrel::python

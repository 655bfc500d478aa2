#include <pybind11/stl.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Bindings.h"
#include "Lifetime.h"
#include "PyFacade.h"
#include "kelva/actors/Session.h"
#include "vantrel/frame/FacadeCore.h"

namespace py = pybind11;

namespace vantrel::python {
namespace {

using catalog::Creation;
using catalog::Role;

Role roleOf(const std::string& name) {
    if (name == "Client") return Role::Client;
    if (name == "Service") return Role::Service;
    throw std::invalid_argument("role is Client or Service, not " + name);
}

Creation creationOf(const std::string& name) {
    if (name == "WriteOnly") return Creation::WriteOnly;
    if (name == "Custom") return Creation::Custom;
    if (name == "ReadOnly") return Creation::ReadOnly;
    if (name == "Monitor") return Creation::Monitor;
    throw std::invalid_argument("creation is WriteOnly, Custom, ReadOnly or Monitor, not " + name);
}

std::unique_ptr<PyFacade> createFacade(const std::string& module, const std::string& role, const std::string& creation,
                                       py::handle session, const std::string& name, py::list handlers,
                                       std::vector<std::string> methods) {
    PyFacade::Request request;
    request.module = catalog::findModule(module);
    if (!request.module) throw py::value_error("no module " + module + " in vantrel._vantrel");
    request.role = roleOf(role);
    request.creation = creationOf(creation);
    const bool monitor = request.creation == Creation::ReadOnly || request.creation == Creation::Monitor;
    try {
        if (monitor) request.monitor = session.cast<std::shared_ptr<kelva::actors::MonitorSession>>();
        else request.session = session.cast<std::shared_ptr<kelva::actors::Session>>();
    } catch (const py::cast_error&) {
        throw py::type_error(std::string(monitor ? "expected a vantrel.MonitorSession" : "expected a vantrel.Session") +
                             ", got " + Py_TYPE(session.ptr())->tp_name);
    }
    request.name = name;
    for (py::handle handler : handlers) {
        if (!handler.is_none()) {
            if (!PyTuple_Check(handler.ptr())) throw py::type_error("a receiver is a tuple of callables or None");
            for (py::handle callable : handler)
                if (!PyCallable_Check(callable.ptr())) throw py::type_error("a receiver is a tuple of callables or None");
        }
        request.handlers.push_back(Ref::borrow(handler.ptr()));
    }
    request.methods = std::move(methods);
    return PyFacade::create(std::move(request));
}

// The facade inside a Python object of the Facade class, or null before its holder exists.
PyFacade* facadeOf(PyObject* self) {
    auto* instance = reinterpret_cast<py::detail::instance*>(self);
    auto held = instance->get_value_and_holder();
    return held.holder_constructed() ? held.value_ptr<PyFacade>() : nullptr;
}

// The callables a facade holds often refer back to it (an implementation holding its own facade): the
// Facade class is known to the garbage collector, which then breaks such a cycle.
void collectable(PyHeapTypeObject* heapType) {
    auto* type = &heapType->ht_type;
    type->tp_flags |= Py_TPFLAGS_HAVE_GC;
    type->tp_traverse = [](PyObject* self, visitproc visit, void* arg) -> int {
        Py_VISIT(Py_TYPE(self));
        const PyFacade* facade = facadeOf(self);
        return facade ? facade->traverse(visit, arg) : 0;
    };
    type->tp_clear = [](PyObject* self) -> int {
        if (PyFacade* facade = facadeOf(self)) facade->clear();
        return 0;
    };
}

std::string text(const kelva::actors::CallbackInfo& info) {
    if (info.operation.empty()) return "<vantrel.CallbackInfo outside a call>";
    return "<vantrel.CallbackInfo " + info.moduleName + "." + info.operation + " from " + info.senderId + " to " +
           info.actorId + ">";
}

}  // namespace

void bindFacades(py::module_& m) {
    using kelva::actors::ActorInfo;
    using kelva::actors::CallbackInfo;
    py::class_<ActorInfo>(m, "ActorInfo", "The description of a facade's actor, as the session publishes it.")
        .def_readonly("actorId", &ActorInfo::actorId)
        .def_readonly("sessionId", &ActorInfo::sessionId)
        .def_readonly("name", &ActorInfo::name)
        .def_readonly("moduleName", &ActorInfo::moduleName)
        .def_readonly("domainId", &ActorInfo::domainId)
        .def_readonly("methodsRead", &ActorInfo::methodsRead)
        .def_readonly("methodsWrite", &ActorInfo::methodsWrite)
        .def_readonly("interfaceVersion", &ActorInfo::interfaceVersion)
        .def("__repr__", [](const ActorInfo& a) {
            return "<vantrel.ActorInfo " + a.moduleName + " '" + a.name + "' " + a.actorId + ">";
        });
    py::class_<CallbackInfo>(m, "CallbackInfo",
                             "The operation being received right now: its sender, the receiving actor, the operation "
                             "and the reception time (Unix seconds). Empty (false) outside a call.")
        .def_readonly("actorId", &CallbackInfo::actorId)
        .def_readonly("moduleName", &CallbackInfo::moduleName)
        .def_readonly("senderId", &CallbackInfo::senderId)
        .def_readonly("operation", &CallbackInfo::operation)
        .def_readonly("receptionTime", &CallbackInfo::receptionTime)
        .def("__bool__", [](const CallbackInfo& c) { return !c.operation.empty(); })
        .def("__repr__", &text);

    py::class_<PyFacade>(m, "Facade", py::custom_type_setup(&collectable),
                         "The C++ side of a Client or Service (what vantrel.M_X.Client holds).")
        .def("send", [](PyFacade& f, std::size_t operation, py::tuple args, bool dispose) { f.send(operation, args.ptr(), dispose); },
             py::arg("operation"), py::arg("args"), py::arg("dispose"))
        .def("invalidate", &PyFacade::invalidate)
        .def("isValid", &PyFacade::isValid)
        .def("actorInfo", &PyFacade::actorInfo)
        .def("callbackInfo", &PyFacade::callbackInfo)
        .def("waitUntilConnected", &PyFacade::waitUntilConnected)
        .def("setName", &PyFacade::setName, py::arg("name"));

    m.def("create_facade", &createFacade, py::arg("module"), py::arg("role"), py::arg("creation"), py::arg("session"),
          py::arg("name"), py::arg("handlers"), py::arg("methods"));
    m.def("shutdown", &shutdown, "Invalidates every facade still alive; the exit hook of the package.");
    m.def("default_body", [](const char* operation) { frame::defaultBody(operation); }, py::arg("operation"),
          "Logs the warning of an operation received but not overridden.");
}

}  // namespace vantrel::python

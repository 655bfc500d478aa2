#include <memory>

#include "Bindings.h"
#include "Gil.h"
#include "kelva/actors/Session.h"

namespace py = pybind11;

namespace vantrel::python {
namespace {

// A session ends by joining its dispatcher thread, which may be about to take the GIL: the last reference
// lets go of it without the GIL.
template <class S>
std::shared_ptr<S> makeSession(int domain) {
    std::shared_ptr<S> session;
    withoutGil([&] {
        session = std::shared_ptr<S>(new S(domain), [](S* s) { withoutGil([s] { delete s; }); });
    });
    return session;
}

template <class S>
void bindSession(py::module_& m, const char* name, const char* doc) {
    py::class_<S, std::shared_ptr<S>>(m, name, doc)
        .def(py::init(&makeSession<S>), py::arg("domain"))
        .def_property_readonly("domainId", &S::domainId)
        .def("__repr__", [name](const S& s) { return std::string("<vantrel.") + name + " domain " + std::to_string(s.domainId()) + ">"; });
}

}  // namespace

void bindSessions(py::module_& m) {
    bindSession<kelva::actors::Session>(
        m, "Session", "A session on a DDS domain (one participant and its dispatcher thread): what Client and Service "
                      "facades that send are made on.");
    bindSession<kelva::actors::MonitorSession>(
        m, "MonitorSession", "A session for read-only monitoring: what createReadOnly and createMonitor take.");
    m.def("getSession", [](int domain) {
        std::shared_ptr<kelva::actors::Session> session;
        withoutGil([&] { session = kelva::actors::SessionFactory::instance().getSession(domain); });
        return session;
    }, py::arg("domain"), "The process-wide session of a domain, made on first request (what a domain number stands for).");
    m.def("getMonitorSession", [](int domain) {
        std::shared_ptr<kelva::actors::MonitorSession> session;
        withoutGil([&] { session = kelva::actors::SessionFactory::instance().getMonitorSession(domain); });
        return session;
    }, py::arg("domain"), "The process-wide monitor session of a domain, made on first request.");
}

}  // namespace vantrel::python

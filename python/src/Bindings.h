#pragma once
// The pieces of the extension module vantrel._vantrel, each defined in a source of its own.
#include <pybind11/pybind11.h>

namespace vantrel::python {

void bindSessions(pybind11::module_& m);  // Session, MonitorSession, the session factory
void bindFacades(pybind11::module_& m);   // Facade, ActorInfo, CallbackInfo, creation, the exit hook
void bindCatalog(pybind11::module_& m);   // classes of the generated modules, text form, operations, types
void bindLog(pybind11::module_& m);       // the toolkit's logger

}  // namespace vantrel::python

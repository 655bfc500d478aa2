// vantrel._vantrel: the one extension of the Python binding, for every module of the contract. What is
// per module (names, member order, defaults) is in the generated Python modules; this reads the wire
// layout from the run-time catalogue (vantrel-catalog).
#include <exception>

#include "Bindings.h"
#include "Gil.h"
#include "PyRef.h"

PYBIND11_MODULE(_vantrel, m) {
    m.doc() = "The C++ side of the vantrel package: sessions, facades, conversion and text form.";
    // A PythonError means the Python error indicator is set already: it surfaces as it is.
    pybind11::register_exception_translator([](std::exception_ptr error) {
        try {
            if (error) std::rethrow_exception(error);
        } catch (const vantrel::python::PythonError&) {
        }
    });
    vantrel::python::mainThread() =
        pybind11::module_::import("threading").attr("main_thread")().attr("ident").cast<unsigned long>();
    vantrel::python::bindSessions(m);
    vantrel::python::bindFacades(m);
    vantrel::python::bindCatalog(m);
    vantrel::python::bindLog(m);
}

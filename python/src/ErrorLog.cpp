#include "ErrorLog.h"

#include "PyRef.h"
#include "kelva/utils/Log.h"

namespace vantrel::python {
namespace {

// traceback.format_exception(type, value, traceback), joined; empty if that fails too.
std::string formatted(PyObject* type, PyObject* value, PyObject* traceback) {
    Ref module = Ref::steal(PyImport_ImportModule("traceback"));
    Ref lines = module ? Ref::steal(PyObject_CallMethod(module.get(), "format_exception", "OOO", type,
                                                        value ? value : Py_None, traceback ? traceback : Py_None))
                       : Ref();
    Ref empty = Ref::steal(PyUnicode_FromString(""));
    Ref joined = lines && empty ? Ref::steal(PyUnicode_Join(empty.get(), lines.get())) : Ref();
    const char* text = joined ? PyUnicode_AsUTF8(joined.get()) : nullptr;
    if (!text) {
        PyErr_Clear();
        return {};
    }
    std::string result(text);
    while (!result.empty() && result.back() == '\n') result.pop_back();
    return result;
}

std::string strOf(PyObject* value) {
    Ref text = Ref::steal(value ? PyObject_Str(value) : nullptr);
    const char* utf8 = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    if (!utf8) {
        PyErr_Clear();
        return "(unprintable exception)";
    }
    return utf8;
}

}  // namespace

void logPythonError(const std::string& what) {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    if (!type) return;
    PyErr_NormalizeException(&type, &value, &traceback);
    Ref ownedType = Ref::steal(type), ownedValue = Ref::steal(value), ownedTraceback = Ref::steal(traceback);
    std::string text = formatted(type, value, traceback);
    if (text.empty()) text = std::string(reinterpret_cast<PyTypeObject*>(type)->tp_name) + ": " + strOf(value);
    kelva::utils::log::error() << what << ":\n" << text;
}

}  // namespace vantrel::python

#pragma once
// Owned references to Python objects for the code that works on the C API directly (conversion, text
// form, delivery): those sources stay free of pybind11, which only the binding sources include.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <utility>

namespace vantrel::python {

// Thrown when a Python error is set (by the C API or by the thrower); the binding lets it surface.
struct PythonError {};

// A Python error that is set now becomes a PythonError.
inline PyObject* check(PyObject* object) {
    if (!object) throw PythonError{};
    return object;
}

// Sets `type` with `message` and throws.
[[noreturn]] inline void raise(PyObject* type, const char* message) {
    PyErr_SetString(type, message);
    throw PythonError{};
}

// An owned reference; copying and dropping one needs the GIL.
class Ref {
public:
    Ref() noexcept = default;
    static Ref steal(PyObject* object) noexcept { return Ref(object); }
    static Ref borrow(PyObject* object) noexcept {
        Py_XINCREF(object);
        return Ref(object);
    }
    // A new reference from the C API, or PythonError.
    static Ref checked(PyObject* object) { return Ref(check(object)); }

    Ref(const Ref& other) noexcept : m_object(other.m_object) { Py_XINCREF(m_object); }
    Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~Ref() { Py_XDECREF(m_object); }

    PyObject* get() const noexcept { return m_object; }
    PyObject* release() noexcept { return std::exchange(m_object, nullptr); }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    explicit Ref(PyObject* object) noexcept : m_object(object) {}
    PyObject* m_object = nullptr;
};

}  // namespace vantrel::python

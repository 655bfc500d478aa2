#include "ToWire.h"

#include <dds/dds.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "Registry.h"

namespace vantrel::python {

using catalog::Kind;
using catalog::OperationInfo;
using catalog::StructInfo;
using catalog::TypeInfo;

namespace {

// How an error message names a value's type: "M_Alert.AlarmLogType" for the contract's classes, the
// plain name for everything else.
std::string describeType(PyObject* value) {
    PyTypeObject* type = Py_TYPE(value);
    Ref module = Ref::steal(PyObject_GetAttrString(reinterpret_cast<PyObject*>(type), "__module__"));
    if (!module) PyErr_Clear();
    const char* name = module && PyUnicode_Check(module.get()) ? PyUnicode_AsUTF8(module.get()) : nullptr;
    if (!name) PyErr_Clear();
    if (name && std::strncmp(name, "vantrel.", 8) == 0) return std::string(name + 8) + "." + type->tp_name;
    return type->tp_name;
}

std::string textOf(PyObject* value) {
    Ref text = Ref::steal(PyObject_Str(value));
    const char* utf8 = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    if (!utf8) {
        PyErr_Clear();
        return "the value";
    }
    return utf8;
}

// enum.Enum, to tell a member of another enumeration from a plain number.
bool isEnumMember(PyObject* value) {
    static PyObject* base = [] {
        Ref module = Ref::checked(PyImport_ImportModule("enum"));
        return check(PyObject_GetAttrString(module.get(), "Enum"));  // kept for the process's life
    }();
    const int is = PyObject_IsInstance(value, base);
    if (is < 0) throw PythonError{};
    return is == 1;
}

}  // namespace

void* WireWriter::message(const OperationInfo& operation, PyObject* args, const char* sender) {
    const StructInfo& info = *operation.message;
    const Py_ssize_t expectedCount = static_cast<Py_ssize_t>(info.count) - 1;  // after kelva_sending_actor
    if (!PyTuple_Check(args) || PyTuple_GET_SIZE(args) != expectedCount) {
        PyErr_Format(PyExc_TypeError, "%s.%s: takes %zd arguments, got %zd", m_module, m_name, expectedCount,
                     PyTuple_Check(args) ? PyTuple_GET_SIZE(args) : Py_ssize_t{-1});
        throw PythonError{};
    }
    char* wire = static_cast<char*>(allocate(info.size));
    *reinterpret_cast<char**>(wire + info.members[0].offset) =
        copyText(sender, static_cast<Py_ssize_t>(std::strlen(sender)));
    for (uint32_t i = 1; i < info.count; ++i) {
        const Path path{nullptr, info.members[i].name, 0};
        value(info.members[i].type, wire + info.members[i].offset, PyTuple_GET_ITEM(args, i - 1), &path);
    }
    return wire;
}

void WireWriter::structure(const StructInfo& info, void* wire, PyObject* object, const Path* path) {
    const StructClass& cls = structClass(info);
    const int is = PyObject_IsInstance(object, cls.cls);
    if (is < 0) throw PythonError{};
    if (!is) expected(pythonName(info).c_str(), object, path);
    for (uint32_t i = 0; i < info.count; ++i) {
        const Path member{path, info.members[i].name, 0};
        Ref field = Ref::steal(PyObject_GetAttr(object, cls.attributes[i]));
        if (!field) {
            if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw PythonError{};
            PyErr_Clear();
            fail(PyExc_TypeError, &member, "not set");
        }
        value(info.members[i].type, static_cast<char*>(wire) + info.members[i].offset, field.get(), &member);
    }
}

void WireWriter::value(const TypeInfo& type, void* wire, PyObject* object, const Path* path) {
    switch (type.kind) {
        case Kind::Bool:
            if (!PyBool_Check(object)) expected("bool", object, path);
            *static_cast<bool*>(wire) = object == Py_True;
            return;
        case Kind::Octet: return integer<uint8_t>(wire, object, path, "octet");
        case Kind::Int16: return integer<int16_t>(wire, object, path, "int16");
        case Kind::UInt16: return integer<uint16_t>(wire, object, path, "uint16");
        case Kind::Int32: return integer<int32_t>(wire, object, path, "int32");
        case Kind::UInt32: return integer<uint32_t>(wire, object, path, "uint32");
        case Kind::Int64: return integer<int64_t>(wire, object, path, "int64");
        case Kind::UInt64: return integer<uint64_t>(wire, object, path, "uint64");
        case Kind::Float:
        case Kind::Double: return floating(type, wire, object, path);
        case Kind::String:
        case Kind::BoundedString: return string(type, wire, object, path);
        case Kind::Sequence: return sequence(type, wire, object, path);
        case Kind::Enum: return enumeration(type, wire, object, path);
        case Kind::Struct: return structure(*type.structure, wire, object, path);
    }
}

template <class T>
void WireWriter::integer(void* wire, PyObject* object, const Path* path, const char* typeName) {
    if (PyBool_Check(object) || !PyIndex_Check(object)) expected("int", object, path);
    Ref index = Ref::checked(PyNumber_Index(object));
    auto outOfRange = [&] {
        fail(PyExc_ValueError, path, textOf(index.get()) + " is out of range for " + typeName + " (" +
                                         std::to_string(std::numeric_limits<T>::min()) + " to " +
                                         std::to_string(std::numeric_limits<T>::max()) + ")");
    };
    T result{};
    if constexpr (std::is_same_v<T, uint64_t>) {
        const unsigned long long x = PyLong_AsUnsignedLongLong(index.get());
        if (x == static_cast<unsigned long long>(-1) && PyErr_Occurred()) {
            PyErr_Clear();
            outOfRange();
        }
        result = static_cast<T>(x);
    } else {
        int overflow = 0;
        const long long x = PyLong_AsLongLongAndOverflow(index.get(), &overflow);
        if (x == -1 && PyErr_Occurred()) throw PythonError{};
        if (overflow || x < static_cast<long long>(std::numeric_limits<T>::min()) ||
            x > static_cast<long long>(std::numeric_limits<T>::max()))
            outOfRange();
        result = static_cast<T>(x);
    }
    std::memcpy(wire, &result, sizeof result);
}

void WireWriter::floating(const TypeInfo& type, void* wire, PyObject* object, const Path* path) {
    const PyNumberMethods* number = Py_TYPE(object)->tp_as_number;
    const bool numeric = PyFloat_Check(object) || PyLong_Check(object) || PyIndex_Check(object) ||
                         (number && number->nb_float);
    if (PyBool_Check(object) || !numeric) expected("float", object, path);
    const double x = PyFloat_AsDouble(object);
    if (x == -1.0 && PyErr_Occurred()) {
        if (!PyErr_ExceptionMatches(PyExc_OverflowError)) throw PythonError{};
        PyErr_Clear();
        fail(PyExc_ValueError, path, textOf(object) + " is out of range for double");
    }
    if (type.kind == Kind::Double) {
        std::memcpy(wire, &x, sizeof x);
        return;
    }
    if (std::isfinite(x) && std::fabs(x) > static_cast<double>(FLT_MAX))
        fail(PyExc_ValueError, path, textOf(object) + " is out of range for float");
    const auto f = static_cast<float>(x);
    std::memcpy(wire, &f, sizeof f);
}

void WireWriter::string(const TypeInfo& type, void* wire, PyObject* object, const Path* path) {
    if (!PyUnicode_Check(object)) expected("str", object, path);
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(object, &size);
    Ref encoded;
    if (!text) {
        // A string decoded from bytes that were not UTF-8 goes back as those bytes.
        PyErr_Clear();
        encoded = Ref::steal(PyUnicode_AsEncodedString(object, "utf-8", "surrogateescape"));
        if (!encoded) {
            PyErr_Clear();
            fail(PyExc_ValueError, path, "cannot be encoded as UTF-8");
        }
        text = PyBytes_AS_STRING(encoded.get());
        size = PyBytes_GET_SIZE(encoded.get());
    }
    if (std::memchr(text, 0, static_cast<std::size_t>(size)))
        fail(PyExc_ValueError, path, "contains a NUL character, which the wire cannot carry");
    if (type.kind == Kind::BoundedString) {
        if (size > static_cast<Py_ssize_t>(type.bound))
            fail(PyExc_ValueError, path, "string of " + std::to_string(size) + " bytes exceeds its bound of " +
                                             std::to_string(type.bound));
        std::memcpy(wire, text, static_cast<std::size_t>(size));
        static_cast<char*>(wire)[size] = '\0';
        return;
    }
    *static_cast<char**>(wire) = copyText(text, size);
}

void WireWriter::enumeration(const TypeInfo& type, void* wire, PyObject* object, const Path* path) {
    const EnumClass& cls = enumClass(*type.enumeration);
    const int is = PyObject_IsInstance(object, cls.cls);
    if (is < 0) throw PythonError{};
    // A plain number is taken as the C++ API takes a cast one; a literal of another enumeration is not.
    if (!is && (PyBool_Check(object) || !PyLong_Check(object) || isEnumMember(object)))
        expected(pythonName(*type.enumeration).c_str(), object, path);
    int overflow = 0;
    const long long x = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (x == -1 && PyErr_Occurred()) throw PythonError{};
    if (overflow || x < std::numeric_limits<int32_t>::min() || x > std::numeric_limits<int32_t>::max())
        fail(PyExc_ValueError, path, textOf(object) + " is out of range for a 32-bit enumeration");
    const auto raw = static_cast<int32_t>(x);
    std::memcpy(wire, &raw, sizeof raw);
}

void WireWriter::sequence(const TypeInfo& type, void* wire, PyObject* object, const Path* path) {
    const TypeInfo& element = *type.element;
    auto* seq = static_cast<dds_sequence_t*>(wire);
    auto checkBound = [&](Py_ssize_t n) {
        if (type.bound != 0 && n > static_cast<Py_ssize_t>(type.bound))
            fail(PyExc_ValueError, path, std::string(type.bound == 1 ? "optional holds " : "list holds ") +
                                             std::to_string(n) + " elements, at most " + std::to_string(type.bound));
    };
    auto place = [&](void* buffer, Py_ssize_t n) {
        seq->_maximum = seq->_length = static_cast<uint32_t>(n);
        seq->_buffer = static_cast<uint8_t*>(buffer);
        seq->_release = false;
    };
    if (element.kind == Kind::Octet && (PyBytes_Check(object) || PyByteArray_Check(object))) {
        const bool bytes = PyBytes_Check(object);
        const Py_ssize_t n = bytes ? PyBytes_GET_SIZE(object) : PyByteArray_GET_SIZE(object);
        checkBound(n);
        void* buffer = n ? allocate(static_cast<std::size_t>(n)) : nullptr;
        if (n) std::memcpy(buffer, bytes ? PyBytes_AS_STRING(object) : PyByteArray_AS_STRING(object), static_cast<std::size_t>(n));
        return place(buffer, n);
    }
    if (!PyList_Check(object) && !PyTuple_Check(object))
        expected(element.kind == Kind::Octet ? "bytes or list" : "list", object, path);
    // A snapshot: Python code the conversion runs (__index__, __float__) cannot change what is converted.
    Ref items = Ref::checked(PySequence_Tuple(object));
    const Py_ssize_t n = PyTuple_GET_SIZE(items.get());
    checkBound(n);
    char* buffer = n ? static_cast<char*>(allocate(static_cast<std::size_t>(n) * element.size)) : nullptr;
    for (Py_ssize_t i = 0; i < n; ++i) {
        const Path at{path, nullptr, i};
        value(element, buffer + static_cast<std::size_t>(i) * element.size, PyTuple_GET_ITEM(items.get(), i), &at);
    }
    place(buffer, n);
}

void* WireWriter::allocate(std::size_t bytes) {
    const std::size_t units = (bytes + sizeof(std::max_align_t) - 1) / sizeof(std::max_align_t);
    return m_scratch.array<std::max_align_t>(units);
}

char* WireWriter::copyText(const char* text, Py_ssize_t size) {
    char* copy = m_scratch.array<char>(static_cast<std::size_t>(size) + 1);  // zeroed: terminated
    std::memcpy(copy, text, static_cast<std::size_t>(size));
    return copy;
}

void WireWriter::fail(PyObject* exceptionType, const Path* path, const std::string& problem) const {
    std::vector<const Path*> chain;
    for (const Path* p = path; p; p = p->parent) chain.push_back(p);
    std::string where;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if ((*it)->member) where += (where.empty() ? "" : ".") + std::string((*it)->member);
        else where += "[" + std::to_string((*it)->index) + "]";
    }
    PyErr_SetString(exceptionType, (std::string(m_module) + "." + m_name + ": " + where + ": " + problem).c_str());
    throw PythonError{};
}

void WireWriter::expected(const char* what, PyObject* object, const Path* path) const {
    fail(PyExc_TypeError, path, std::string("expected ") + what + ", got " + describeType(object));
}

}  // namespace vantrel::python

#include "ToWire.h"

#include <dds/dds.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "Registry.h"

namespace vantrel::python {

using catalog::Kind;
using catalog::OperationInfo;
using catalog::StructInfo;
using catalog::storeWire;
using catalog::TypeInfo;
using catalog::WireFault;
using catalog::WirePath;

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
    storeWire<char*>(wire + info.members[0].offset, copyText(sender));
    catalog::WireFiller<WireWriter> filler(*this);
    for (uint32_t i = 1; i < info.count; ++i) filler.member(info, i, wire, PyTuple_GET_ITEM(args, i - 1), nullptr);
    return wire;
}

void* WireWriter::value(const StructInfo& info, PyObject* object) {
    void* wire = allocate(info.size);
    catalog::WireFiller<WireWriter> filler(*this);
    filler.structure(info, wire, object, catalog::kWireRoot);
    return wire;
}

template <class Fill>
void WireWriter::structure(const StructInfo& info, PyObject* object, const WirePath& path, Fill fill) {
    const StructClass& cls = structClass(info);
    const int is = PyObject_IsInstance(object, cls.cls);
    if (is < 0) throw PythonError{};
    if (!is) expected(pythonName(info).c_str(), object, path);
    for (uint32_t i = 0; i < info.count; ++i) {
        Ref field = Ref::steal(PyObject_GetAttr(object, cls.attributes[i]));
        if (!field) {
            if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw PythonError{};
            PyErr_Clear();
            fail(WireFault::Type, WirePath{&path, info.members[i].name, 0}, "not set");
        }
        fill(i, field.get());
    }
}

bool WireWriter::boolean(PyObject* object, const WirePath& path) {
    if (!PyBool_Check(object)) expected("bool", object, path);
    return object == Py_True;
}

template <class T>
T WireWriter::number(PyObject* object, const WirePath& path, Kind kind) {
    if constexpr (std::is_floating_point_v<T>) {
        (void)kind;
        return static_cast<T>(floating(object, path, std::is_same_v<T, float>));
    } else {
        return integer<T>(object, path, catalog::kindName(kind));
    }
}

template <class T>
T WireWriter::integer(PyObject* object, const WirePath& path, const char* typeName) {
    if (PyBool_Check(object) || !PyIndex_Check(object)) expected("int", object, path);
    Ref index = Ref::checked(PyNumber_Index(object));
    auto outOfRange = [&] {
        fail(WireFault::Value, path, textOf(index.get()) + " is out of range for " + typeName + " (" +
                                         std::to_string(std::numeric_limits<T>::min()) + " to " +
                                         std::to_string(std::numeric_limits<T>::max()) + ")");
    };
    if constexpr (std::is_same_v<T, uint64_t>) {
        const unsigned long long x = PyLong_AsUnsignedLongLong(index.get());
        if (x == static_cast<unsigned long long>(-1) && PyErr_Occurred()) {
            PyErr_Clear();
            outOfRange();
        }
        return static_cast<T>(x);
    } else {
        int overflow = 0;
        const long long x = PyLong_AsLongLongAndOverflow(index.get(), &overflow);
        if (x == -1 && PyErr_Occurred()) throw PythonError{};
        if (overflow || x < static_cast<long long>(std::numeric_limits<T>::min()) ||
            x > static_cast<long long>(std::numeric_limits<T>::max()))
            outOfRange();
        return static_cast<T>(x);
    }
}

double WireWriter::floating(PyObject* object, const WirePath& path, bool single) {
    const PyNumberMethods* number = Py_TYPE(object)->tp_as_number;
    const bool numeric = PyFloat_Check(object) || PyLong_Check(object) || PyIndex_Check(object) ||
                         (number && number->nb_float);
    if (PyBool_Check(object) || !numeric) expected("float", object, path);
    const double x = PyFloat_AsDouble(object);
    if (x == -1.0 && PyErr_Occurred()) {
        if (!PyErr_ExceptionMatches(PyExc_OverflowError)) throw PythonError{};
        PyErr_Clear();
        fail(WireFault::Value, path, textOf(object) + " is out of range for double");
    }
    if (single && std::isfinite(x) && std::fabs(x) > static_cast<double>(FLT_MAX))
        fail(WireFault::Value, path, textOf(object) + " is out of range for float");
    return x;
}

std::string_view WireWriter::text(PyObject* object, const WirePath& path) {
    if (!PyUnicode_Check(object)) expected("str", object, path);
    Py_ssize_t size = 0;
    if (const char* utf8 = PyUnicode_AsUTF8AndSize(object, &size)) return {utf8, static_cast<std::size_t>(size)};
    // A string decoded from bytes that were not UTF-8 goes back as those bytes.
    PyErr_Clear();
    m_encoded = Ref::steal(PyUnicode_AsEncodedString(object, "utf-8", "surrogateescape"));
    if (!m_encoded) {
        PyErr_Clear();
        fail(WireFault::Value, path, "cannot be encoded as UTF-8");
    }
    return {PyBytes_AS_STRING(m_encoded.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(m_encoded.get()))};
}

int32_t WireWriter::enumeration(const catalog::EnumInfo& info, PyObject* object, const WirePath& path) {
    const EnumClass& cls = enumClass(info);
    const int is = PyObject_IsInstance(object, cls.cls);
    if (is < 0) throw PythonError{};
    // A plain number is taken as the C++ API takes a cast one; a literal of another enumeration is not.
    if (!is && (PyBool_Check(object) || !PyLong_Check(object) || isEnumMember(object)))
        expected(pythonName(info).c_str(), object, path);
    int overflow = 0;
    const long long x = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (x == -1 && PyErr_Occurred()) throw PythonError{};
    if (overflow || x < std::numeric_limits<int32_t>::min() || x > std::numeric_limits<int32_t>::max())
        fail(WireFault::Value, path, textOf(object) + " is out of range for a 32-bit enumeration");
    return static_cast<int32_t>(x);
}

bool WireWriter::octets(const TypeInfo&, PyObject* object, std::string_view& bytes) {
    if (PyBytes_Check(object)) {
        bytes = {PyBytes_AS_STRING(object), static_cast<std::size_t>(PyBytes_GET_SIZE(object))};
        return true;
    }
    if (PyByteArray_Check(object)) {
        bytes = {PyByteArray_AS_STRING(object), static_cast<std::size_t>(PyByteArray_GET_SIZE(object))};
        return true;
    }
    return false;
}

WireWriter::Items WireWriter::items(const TypeInfo& type, PyObject* object, const WirePath& path) {
    if (!PyList_Check(object) && !PyTuple_Check(object))
        expected(type.element->kind == Kind::Octet ? "bytes or list" : "list", object, path);
    return Items(Ref::checked(PySequence_Tuple(object)));
}

void* WireWriter::allocate(std::size_t bytes) {
    const std::size_t units = (bytes + sizeof(std::max_align_t) - 1) / sizeof(std::max_align_t);
    return m_scratch.array<std::max_align_t>(units);
}

char* WireWriter::copyText(std::string_view text) {
    char* copy = m_scratch.array<char>(text.size() + 1);  // zeroed: terminated
    std::memcpy(copy, text.data(), text.size());
    return copy;
}

void WireWriter::fail(WireFault fault, const WirePath& path, const std::string& problem) const {
    PyErr_SetString(fault == WireFault::Type ? PyExc_TypeError : PyExc_ValueError,
                    (std::string(m_module) + "." + m_name + ": " + path.text() + ": " + problem).c_str());
    throw PythonError{};
}

void WireWriter::expected(const char* what, PyObject* object, const WirePath& path) const {
    fail(WireFault::Type, path, std::string("expected ") + what + ", got " + describeType(object));
}

}  // namespace vantrel::python

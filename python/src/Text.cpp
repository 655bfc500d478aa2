#include "Text.h"

#include <cstdint>
#include <limits>
#include <sstream>
#include <type_traits>

#include "Registry.h"

namespace vantrel::python {

using catalog::Kind;
using catalog::OperationInfo;
using catalog::StructInfo;
using catalog::TypeInfo;

namespace {

void printString(std::ostream& out, PyObject* text) {
    Py_ssize_t size = 0;
    if (const char* utf8 = PyUnicode_AsUTF8AndSize(text, &size)) {
        out.write(utf8, size);
        return;
    }
    PyErr_Clear();
    Ref bytes = Ref::steal(PyUnicode_AsEncodedString(text, "utf-8", "surrogateescape"));
    if (!bytes) {
        PyErr_Clear();
        return;
    }
    out.write(PyBytes_AS_STRING(bytes.get()), PyBytes_GET_SIZE(bytes.get()));
}

// Whatever a member holds that its type does not expect.
void printOther(std::ostream& out, PyObject* value) {
    Ref text = Ref::steal(PyObject_Str(value));
    if (!text) {
        PyErr_Clear();
        out << '?';
        return;
    }
    printString(out, text.get());
}

bool isInteger(PyObject* value) { return PyLong_Check(value) && !PyBool_Check(value); }

template <class T>
void printInteger(std::ostream& out, PyObject* value) {
    if (!isInteger(value)) return printOther(out, value);
    if constexpr (std::is_same_v<T, uint64_t>) {
        const unsigned long long x = PyLong_AsUnsignedLongLong(value);
        if (!(x == static_cast<unsigned long long>(-1) && PyErr_Occurred())) return void(out << x);
    } else {
        int overflow = 0;
        const long long x = PyLong_AsLongLongAndOverflow(value, &overflow);
        const bool failed = x == -1 && PyErr_Occurred();
        if (!failed && !overflow && x >= static_cast<long long>(std::numeric_limits<T>::min()) &&
            x <= static_cast<long long>(std::numeric_limits<T>::max()))
            return void(out << static_cast<T>(x));
    }
    PyErr_Clear();  // out of range: shown as Python shows it
    printOther(out, value);
}

void printSequence(std::ostream& out, const TypeInfo& type, PyObject* value) {
    const TypeInfo& element = *type.element;
    if (element.kind == Kind::Octet && (PyBytes_Check(value) || PyByteArray_Check(value))) {
        const bool bytes = PyBytes_Check(value);
        const char* data = bytes ? PyBytes_AS_STRING(value) : PyByteArray_AS_STRING(value);
        const Py_ssize_t n = bytes ? PyBytes_GET_SIZE(value) : PyByteArray_GET_SIZE(value);
        out << '[';
        for (Py_ssize_t i = 0; i < n; ++i) {
            if (i) out << ", ";
            out << data[i];  // as C++ writes a uint8_t: the raw character
        }
        out << ']';
        return;
    }
    if (!PyList_Check(value) && !PyTuple_Check(value)) return printOther(out, value);
    Ref items = Ref::steal(PySequence_Tuple(value));
    if (!items) {
        PyErr_Clear();
        return printOther(out, value);
    }
    out << '[';
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(items.get()); ++i) {
        if (i) out << ", ";
        printValue(out, element, PyTuple_GET_ITEM(items.get(), i));
    }
    out << ']';
}

void printEnum(std::ostream& out, const TypeInfo& type, PyObject* value) {
    if (!isInteger(value)) return printOther(out, value);
    int overflow = 0;
    const long long x = PyLong_AsLongLongAndOverflow(value, &overflow);
    if (x == -1 && PyErr_Occurred()) PyErr_Clear();
    if (overflow || x < INT32_MIN || x > INT32_MAX) return printOther(out, value);
    const auto& literals = *type.enumeration;
    if (x >= 0 && x < static_cast<long long>(literals.count)) out << "Type::" << literals.literals[x];
    else out << "Type::" << x;
}

void printFloating(std::ostream& out, const TypeInfo& type, PyObject* value) {
    if (PyBool_Check(value) || !(PyFloat_Check(value) || PyLong_Check(value))) return printOther(out, value);
    const double x = PyFloat_AsDouble(value);
    if (x == -1.0 && PyErr_Occurred()) {
        PyErr_Clear();
        return printOther(out, value);
    }
    if (type.kind == Kind::Float) out << static_cast<float>(x);
    else out << x;
}

}  // namespace

void printValue(std::ostream& out, const TypeInfo& type, PyObject* value) {
    switch (type.kind) {
        case Kind::Bool:
            if (!PyBool_Check(value)) return printOther(out, value);
            out << (value == Py_True);
            return;
        case Kind::Octet:
            // C++ writes a uint8_t as its character.
            if (!isInteger(value)) return printOther(out, value);
            {
                const long x = PyLong_AsLong(value);
                if (x == -1 && PyErr_Occurred()) PyErr_Clear();
                if (x < 0 || x > 255) return printOther(out, value);
                out << static_cast<char>(x);
            }
            return;
        case Kind::Int16: return printInteger<int16_t>(out, value);
        case Kind::UInt16: return printInteger<uint16_t>(out, value);
        case Kind::Int32: return printInteger<int32_t>(out, value);
        case Kind::UInt32: return printInteger<uint32_t>(out, value);
        case Kind::Int64: return printInteger<int64_t>(out, value);
        case Kind::UInt64: return printInteger<uint64_t>(out, value);
        case Kind::Float:
        case Kind::Double: return printFloating(out, type, value);
        case Kind::String:
        case Kind::BoundedString:
            if (!PyUnicode_Check(value)) return printOther(out, value);
            return printString(out, value);
        case Kind::Enum: return printEnum(out, type, value);
        case Kind::Sequence: return printSequence(out, type, value);
        case Kind::Struct: return printStruct(out, *type.structure, value);
    }
}

void printStruct(std::ostream& out, const StructInfo& info, PyObject* value) {
    const StructClass& cls = structClass(info);
    const int is = PyObject_IsInstance(value, cls.cls);
    if (is < 0) PyErr_Clear();
    if (is != 1) return printOther(out, value);
    out << '[';
    for (uint32_t i = 0; i < info.count; ++i) {
        if (i) out << ", ";
        out << info.members[i].name << ": ";
        Ref member = Ref::steal(PyObject_GetAttr(value, cls.attributes[i]));
        if (!member) {
            PyErr_Clear();
            out << "<not set>";
            continue;
        }
        printValue(out, info.members[i].type, member.get());
    }
    out << ']';
}

Ref decodeText(const std::string& text) {
    return Ref::checked(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
}

Ref textOfValue(PyObject* value) {
    const StructInfo* info = structOfClass(reinterpret_cast<PyObject*>(Py_TYPE(value)));
    if (!info) {
        PyErr_Format(PyExc_TypeError, "text: expected an instance of a value class, got %s", Py_TYPE(value)->tp_name);
        throw PythonError{};
    }
    std::ostringstream out;
    printStruct(out, *info, value);
    return decodeText(out.str());
}

Ref textOfMessage(const OperationInfo& operation, PyObject* args, const char* sender) {
    const StructInfo& info = *operation.message;
    if (!PyTuple_Check(args) || PyTuple_GET_SIZE(args) != static_cast<Py_ssize_t>(info.count) - 1) {
        PyErr_Format(PyExc_TypeError, "%s.%s: takes %u arguments", operation.module, operation.name, info.count - 1);
        throw PythonError{};
    }
    std::ostringstream out;
    out << '[' << info.members[0].name << ": " << sender;
    for (uint32_t i = 1; i < info.count; ++i) {
        out << ", " << info.members[i].name << ": ";
        printValue(out, info.members[i].type, PyTuple_GET_ITEM(args, i - 1));
    }
    out << ']';
    return decodeText(out.str());
}

}  // namespace vantrel::python

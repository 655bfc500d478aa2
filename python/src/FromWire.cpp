#include "FromWire.h"

#include <dds/dds.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "Registry.h"

namespace vantrel::python {

using catalog::Kind;
using catalog::OperationInfo;
using catalog::StructInfo;
using catalog::TypeInfo;

namespace {

template <class T>
T load(const void* wire) {
    T value;
    std::memcpy(&value, wire, sizeof value);
    return value;
}

Ref text(const char* data, std::size_t size) {
    return Ref::checked(PyUnicode_DecodeUTF8(data, static_cast<Py_ssize_t>(size), "surrogateescape"));
}

}  // namespace

Ref fromWire(const TypeInfo& type, const void* wire) {
    switch (type.kind) {
        case Kind::Bool: return Ref::borrow(load<bool>(wire) ? Py_True : Py_False);
        case Kind::Octet: return Ref::checked(PyLong_FromLong(load<uint8_t>(wire)));
        case Kind::Int16: return Ref::checked(PyLong_FromLong(load<int16_t>(wire)));
        case Kind::UInt16: return Ref::checked(PyLong_FromLong(load<uint16_t>(wire)));
        case Kind::Int32: return Ref::checked(PyLong_FromLong(load<int32_t>(wire)));
        case Kind::UInt32: return Ref::checked(PyLong_FromUnsignedLong(load<uint32_t>(wire)));
        case Kind::Int64: return Ref::checked(PyLong_FromLongLong(load<int64_t>(wire)));
        case Kind::UInt64: return Ref::checked(PyLong_FromUnsignedLongLong(load<uint64_t>(wire)));
        case Kind::Float: return Ref::checked(PyFloat_FromDouble(load<float>(wire)));
        case Kind::Double: return Ref::checked(PyFloat_FromDouble(load<double>(wire)));
        case Kind::String: {
            const char* s = load<const char*>(wire);
            return s ? text(s, std::strlen(s)) : text("", 0);
        }
        case Kind::BoundedString: {
            const char* s = static_cast<const char*>(wire);
            return text(s, strnlen(s, type.bound + 1));
        }
        case Kind::Enum: {
            const int32_t raw = load<int32_t>(wire);
            const EnumClass& cls = enumClass(*type.enumeration);
            if (raw >= 0 && static_cast<std::size_t>(raw) < cls.members.size()) return Ref::borrow(cls.members[raw]);
            return Ref::checked(PyLong_FromLong(raw));
        }
        case Kind::Struct: return structFromWire(*type.structure, wire);
        case Kind::Sequence: {
            const auto& seq = *static_cast<const dds_sequence_t*>(wire);
            const TypeInfo& element = *type.element;
            if (element.kind == Kind::Octet && type.bound != 1)
                return Ref::checked(PyBytes_FromStringAndSize(reinterpret_cast<const char*>(seq._buffer), seq._length));
            Ref list = Ref::checked(PyList_New(seq._length));
            for (uint32_t i = 0; i < seq._length; ++i)
                PyList_SET_ITEM(list.get(), i, fromWire(element, seq._buffer + std::size_t{i} * element.size).release());
            return list;
        }
    }
    raise(PyExc_SystemError, "unknown kind in the catalogue");
}

Ref structFromWire(const StructInfo& info, const void* wire) {
    const StructClass& cls = structClass(info);
    std::vector<Ref> members;
    members.reserve(info.count);
    std::vector<PyObject*> args;
    args.reserve(info.count);
    for (uint32_t i = 0; i < info.count; ++i) {
        members.push_back(fromWire(info.members[i].type, static_cast<const char*>(wire) + info.members[i].offset));
        args.push_back(members.back().get());
    }
    return Ref::checked(PyObject_Vectorcall(cls.cls, args.data(), args.size(), nullptr));
}

Ref argumentsFromWire(const OperationInfo& operation, const void* message, bool dispose) {
    const StructInfo& info = *operation.message;
    const Py_ssize_t count = static_cast<Py_ssize_t>(info.count) - 1 + (operation.dispose ? 1 : 0);
    Ref args = Ref::checked(PyTuple_New(count));
    for (uint32_t i = 1; i < info.count; ++i)
        PyTuple_SET_ITEM(args.get(), i - 1,
                         fromWire(info.members[i].type, static_cast<const char*>(message) + info.members[i].offset).release());
    if (operation.dispose) PyTuple_SET_ITEM(args.get(), count - 1, Ref::borrow(dispose ? Py_True : Py_False).release());
    return args;
}

}  // namespace vantrel::python

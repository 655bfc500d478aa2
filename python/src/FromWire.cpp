#include "FromWire.h"

#include <dds/dds.h>

#include <cstdint>
#include <type_traits>
#include <vector>

#include "Registry.h"
#include "vantrel/catalog/WireVisitor.h"

namespace vantrel::python {

using catalog::Kind;
using catalog::OperationInfo;
using catalog::StructInfo;
using catalog::TypeInfo;

namespace {

// Wire values as Python objects, for the catalogue's wire walk.
struct PyReader {
    using Value = Ref;

    Value boolean(bool b) { return Ref::borrow(b ? Py_True : Py_False); }
    template <class T>
    Value number(T x) {
        if constexpr (std::is_floating_point_v<T>) return Ref::checked(PyFloat_FromDouble(x));
        else if constexpr (std::is_same_v<T, uint64_t>) return Ref::checked(PyLong_FromUnsignedLongLong(x));
        else if constexpr (std::is_same_v<T, int64_t>) return Ref::checked(PyLong_FromLongLong(x));
        else if constexpr (std::is_same_v<T, uint32_t>) return Ref::checked(PyLong_FromUnsignedLong(x));
        else return Ref::checked(PyLong_FromLong(x));
    }
    Value text(const char* data, std::size_t size) {
        return Ref::checked(PyUnicode_DecodeUTF8(data, static_cast<Py_ssize_t>(size), "surrogateescape"));
    }
    Value enumeration(const catalog::EnumInfo& info, int32_t raw) {
        const EnumClass& cls = enumClass(info);
        if (raw >= 0 && static_cast<std::size_t>(raw) < cls.members.size()) return Ref::borrow(cls.members[raw]);
        return Ref::checked(PyLong_FromLong(raw));
    }
    template <class Items>
    Value sequence(const TypeInfo& type, const dds_sequence_t& seq, Items items) {
        // A list of octets is bytes; an optional octet stays a list of zero or one number.
        if (type.element->kind == Kind::Octet && type.bound != 1)
            return Ref::checked(PyBytes_FromStringAndSize(reinterpret_cast<const char*>(seq._buffer), seq._length));
        Ref list = Ref::checked(PyList_New(seq._length));
        for (uint32_t i = 0; i < seq._length; ++i) PyList_SET_ITEM(list.get(), i, items(i).release());
        return list;
    }
    template <class Members>
    Value structure(const StructInfo& info, Members members) {
        const StructClass& cls = structClass(info);
        std::vector<Ref> values;
        values.reserve(info.count);
        std::vector<PyObject*> args;
        args.reserve(info.count);
        for (uint32_t i = 0; i < info.count; ++i) {
            values.push_back(members(i));
            args.push_back(values.back().get());
        }
        return Ref::checked(PyObject_Vectorcall(cls.cls, args.data(), args.size(), nullptr));
    }
};

}  // namespace

Ref structFromWire(const StructInfo& info, const void* wire) {
    PyReader reader;
    return catalog::readWireStruct(reader, info, wire);
}

Ref argumentsFromWire(const OperationInfo& operation, const void* message, bool dispose) {
    const StructInfo& info = *operation.message;
    const Py_ssize_t count = static_cast<Py_ssize_t>(info.count) - 1 + (operation.dispose ? 1 : 0);
    Ref args = Ref::checked(PyTuple_New(count));
    PyReader reader;
    for (uint32_t i = 1; i < info.count; ++i)
        PyTuple_SET_ITEM(args.get(), i - 1, catalog::readWireMember(reader, info, i, message).release());
    if (operation.dispose) PyTuple_SET_ITEM(args.get(), count - 1, Ref::borrow(dispose ? Py_True : Py_False).release());
    return args;
}

}  // namespace vantrel::python

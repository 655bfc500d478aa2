#pragma once
// The Python classes of the contract's value types and enumerations, bound to their catalogue entries when
// a generated module (vantrel.M_X) is imported. Conversion and text form find a type's class and member
// attribute names here. Used under the GIL only; the references are kept for the life of the process.
#include <string>
#include <vector>

#include "PyRef.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::python {

struct StructClass {
    PyObject* cls = nullptr;
    std::vector<PyObject*> attributes;  // the interned attribute name of each member, in member order
};

struct EnumClass {
    PyObject* cls = nullptr;
    std::vector<PyObject*> members;  // the IntEnum member of each literal, by value
};

// Binds the classes named in `names` (the generated module's globals) to the module's catalogue entries.
// Raises ImportError (as PythonError) when they do not match: a generated module of another contract. A
// module is bound once; binding it again changes nothing.
void bindModule(const char* module, PyObject* names);

// Imports vantrel.<module> (which binds it) unless it is bound already.
void requireModule(const char* module);

// The class of a value type or enumeration; imports its module on first use.
const StructClass& structClass(const catalog::StructInfo& info);
const EnumClass& enumClass(const catalog::EnumInfo& info);

// The value type a Python class is (or derives from); null for any other class.
const catalog::StructInfo* structOfClass(PyObject* cls);
// The Python class of a type use: the value type's or enumeration's class, or null.
PyObject* classOf(const catalog::TypeInfo& type);

// "M_Alert.AlarmConditionInfoType", as error messages name a type.
std::string pythonName(const catalog::StructInfo& info);
std::string pythonName(const catalog::EnumInfo& info);

}  // namespace vantrel::python

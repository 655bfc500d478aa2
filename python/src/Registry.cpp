#include "Registry.h"

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace vantrel::python {
namespace {

using catalog::EnumInfo;
using catalog::ModuleInfo;
using catalog::StructInfo;

struct Registry {
    std::unordered_map<const StructInfo*, StructClass> structs;
    std::unordered_map<const EnumInfo*, EnumClass> enums;
    std::unordered_map<PyObject*, const StructInfo*> byClass;
    std::unordered_set<std::string> modules;
};

// Never destroyed: it holds Python references, which must not be dropped after the interpreter finalized.
Registry& registry() {
    static Registry* instance = new Registry;
    return *instance;
}

[[noreturn]] void mismatch(const char* module, const std::string& what) {
    PyErr_Format(PyExc_ImportError, "vantrel.%s does not match the contract vantrel._vantrel was built from: %s",
                 module, what.c_str());
    throw PythonError{};
}

PyObject* lookupClass(PyObject* names, const char* module, const char* name) {
    PyObject* cls = PyDict_GetItemString(names, name);  // borrowed
    if (!cls || !PyType_Check(cls)) mismatch(module, std::string("no class ") + name);
    return cls;
}

// A Python attribute spells a member as the catalogue does, or with the underscore a keyword gets.
bool sameName(PyObject* attribute, const char* member) {
    if (!PyUnicode_Check(attribute)) return false;
    if (PyUnicode_CompareWithASCIIString(attribute, member) == 0) return true;
    return PyUnicode_CompareWithASCIIString(attribute, (std::string(member) + "_").c_str()) == 0;
}

StructClass bindStruct(const char* module, PyObject* names, const StructInfo& info) {
    PyObject* cls = lookupClass(names, module, info.name);
    Ref slots = Ref::steal(PyObject_GetAttrString(cls, "__slots__"));
    if (!slots || !PyTuple_Check(slots.get()) || PyTuple_GET_SIZE(slots.get()) != static_cast<Py_ssize_t>(info.count)) {
        PyErr_Clear();
        mismatch(module, std::string(info.name) + " does not have the " + std::to_string(info.count) + " members of the catalogue");
    }
    StructClass bound;
    for (uint32_t i = 0; i < info.count; ++i) {
        PyObject* attribute = PyTuple_GET_ITEM(slots.get(), i);
        if (!sameName(attribute, info.members[i].name))
            mismatch(module, std::string(info.name) + " member " + std::to_string(i) + " is not " + info.members[i].name);
        Py_INCREF(attribute);
        PyUnicode_InternInPlace(&attribute);
        bound.attributes.push_back(attribute);
    }
    Py_INCREF(cls);
    bound.cls = cls;
    return bound;
}

EnumClass bindEnum(const char* module, PyObject* names, const EnumInfo& info) {
    PyObject* cls = lookupClass(names, module, info.name);
    if (PyObject_Length(cls) != static_cast<Py_ssize_t>(info.count)) {
        PyErr_Clear();
        mismatch(module, std::string(info.name) + " does not have the " + std::to_string(info.count) + " literals of the catalogue");
    }
    EnumClass bound;
    for (uint32_t value = 0; value < info.count; ++value) {
        PyObject* member = PyObject_CallFunction(cls, "I", value);
        if (!member) {
            PyErr_Clear();
            mismatch(module, std::string(info.name) + " has no literal of value " + std::to_string(value));
        }
        bound.members.push_back(member);
    }
    Py_INCREF(cls);
    bound.cls = cls;
    return bound;
}

}  // namespace

void bindModule(const char* module, PyObject* names) {
    if (!PyDict_Check(names)) raise(PyExc_TypeError, "bind: expected the module's globals");
    // Bound once: conversions hold references into the registry (a reloaded module keeps its first classes).
    if (registry().modules.count(module)) return;
    const ModuleInfo* info = catalog::findModule(module);
    if (!info) {
        PyErr_Format(PyExc_ImportError, "vantrel._vantrel was built without the module %s", module);
        throw PythonError{};
    }
    // Everything is checked before anything is stored: a module that does not match binds nothing.
    std::vector<std::pair<const StructInfo*, StructClass>> structs;
    std::vector<std::pair<const EnumInfo*, EnumClass>> enums;
    for (uint32_t i = 0; i < info->structCount; ++i)
        structs.emplace_back(info->structs[i], bindStruct(module, names, *info->structs[i]));
    for (uint32_t i = 0; i < info->enumCount; ++i) enums.emplace_back(info->enums[i], bindEnum(module, names, *info->enums[i]));
    Registry& r = registry();
    for (auto& [struct_, bound] : structs) {
        r.byClass[bound.cls] = struct_;
        r.structs[struct_] = std::move(bound);
    }
    for (auto& [enum_, bound] : enums) r.enums[enum_] = std::move(bound);
    r.modules.insert(module);
}

void requireModule(const char* module) {
    if (registry().modules.count(module)) return;
    Ref imported = Ref::checked(PyImport_ImportModule((std::string("vantrel.") + module).c_str()));
    if (!registry().modules.count(module)) {
        PyErr_Format(PyExc_ImportError, "vantrel.%s did not bind its classes", module);
        throw PythonError{};
    }
}

const StructClass& structClass(const StructInfo& info) {
    auto& structs = registry().structs;
    auto it = structs.find(&info);
    if (it == structs.end()) {
        requireModule(info.module);
        it = structs.find(&info);
        if (it == structs.end()) {
            PyErr_Format(PyExc_ImportError, "no Python class for %s", pythonName(info).c_str());
            throw PythonError{};
        }
    }
    return it->second;
}

const EnumClass& enumClass(const EnumInfo& info) {
    auto& enums = registry().enums;
    auto it = enums.find(&info);
    if (it == enums.end()) {
        requireModule(info.module);
        it = enums.find(&info);
        if (it == enums.end()) {
            PyErr_Format(PyExc_ImportError, "no Python class for %s", pythonName(info).c_str());
            throw PythonError{};
        }
    }
    return it->second;
}

const StructInfo* structOfClass(PyObject* cls) {
    if (!PyType_Check(cls)) return nullptr;
    PyObject* mro = reinterpret_cast<PyTypeObject*>(cls)->tp_mro;
    if (!mro) return nullptr;
    const auto& byClass = registry().byClass;
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(mro); ++i) {
        auto it = byClass.find(PyTuple_GET_ITEM(mro, i));
        if (it != byClass.end()) return it->second;
    }
    return nullptr;
}

PyObject* classOf(const catalog::TypeInfo& type) {
    if (type.kind == catalog::Kind::Struct) return structClass(*type.structure).cls;
    if (type.kind == catalog::Kind::Enum) return enumClass(*type.enumeration).cls;
    return nullptr;
}

std::string pythonName(const StructInfo& info) { return std::string(info.module) + "." + info.name; }

std::string pythonName(const EnumInfo& info) { return std::string(info.module) + "." + info.name; }

}  // namespace vantrel::python

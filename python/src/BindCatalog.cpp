#include <pybind11/stl.h>

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Bindings.h"
#include "Registry.h"
#include "TextForm.h"
#include "ToWire.h"

namespace py = pybind11;

namespace vantrel::python {
namespace {

using catalog::OperationInfo;
using catalog::TypeInfo;

py::object adopt(Ref ref) { return py::reinterpret_steal<py::object>(ref.release()); }

// A type use as Python sees it.
struct TypeView {
    const TypeInfo* type;
};

struct FieldView {
    std::string name;
    bool key;
    TypeView type;
};

struct OperationView {
    const OperationInfo* operation;
    std::size_t index;  // in the module's operation table
};

std::vector<FieldView> fieldsOf(const catalog::MemberInfo* members, uint32_t first, uint32_t count) {
    std::vector<FieldView> fields;
    for (uint32_t i = first; i < count; ++i) fields.push_back({members[i].name, members[i].key, {&members[i].type}});
    return fields;
}

std::vector<OperationView> operationsOf(const catalog::ModuleInfo& module) {
    std::vector<OperationView> views;
    for (uint32_t i = 0; i < module.operationCount; ++i) views.push_back({&module.operations[i], i});
    return views;
}

const catalog::ModuleInfo& moduleNamed(const std::string& name) {
    const catalog::ModuleInfo* module = catalog::findModule(name);
    if (!module) throw py::value_error("no module " + name + " in vantrel._vantrel");
    return *module;
}

}  // namespace

void bindCatalog(py::module_& m) {
    m.def("bind", [](const char* module, py::dict names) { bindModule(module, names.ptr()); }, py::arg("module"),
          py::arg("names"), "Binds a generated module's classes to the catalogue (its last statement).");
    m.def("text", [](py::handle value) { return adopt(textOfValue(value.ptr())); }, py::arg("value"),
          "The text form of a value, as M_X::toText gives it in C++.");
    m.def("modules", [] {
        std::vector<std::string> names;
        for (const catalog::ModuleInfo* module : catalog::modules()) names.emplace_back(module->name);
        return names;
    }, "The modules this extension was built with, in name order.");

    py::class_<TypeView>(m, "Type", "A type use: kind (boolean, octet, ..., string, sequence, enum, struct), bound, "
                                    "element type, the Python class of an enumeration or value type, IDL alias.")
        .def_property_readonly("kind", [](const TypeView& t) { return catalog::kindName(t.type->kind); })
        .def_property_readonly("bound", [](const TypeView& t) { return t.type->bound; })
        .def_property_readonly("element", [](const TypeView& t) {
            return t.type->element ? std::optional<TypeView>(TypeView{t.type->element}) : std::nullopt;
        })
        .def_property_readonly("cls", [](const TypeView& t) -> py::object {
            PyObject* cls = classOf(*t.type);
            return cls ? py::reinterpret_borrow<py::object>(cls) : py::none();
        })
        .def_property_readonly("alias", [](const TypeView& t) {
            return t.type->alias ? std::optional<std::string>(t.type->alias) : std::nullopt;
        })
        .def("__repr__", [](const TypeView& t) { return "<vantrel.Type " + catalog::typeText(*t.type) + ">"; })
        .def("__str__", [](const TypeView& t) { return catalog::typeText(*t.type); });

    py::class_<FieldView>(m, "Field", "A member of a value type or an argument of an operation.")
        .def_readonly("name", &FieldView::name)
        .def_readonly("key", &FieldView::key)
        .def_readonly("type", &FieldView::type)
        .def("__repr__", [](const FieldView& f) { return "<vantrel.Field " + f.name + ": " + catalog::typeText(*f.type.type) + ">"; });

    m.def("fields", [](py::handle cls) {
        const catalog::StructInfo* info = structOfClass(cls.ptr());
        if (!info) throw py::type_error("fields: expected a value class");
        return fieldsOf(info->members, 0, info->count);
    }, py::arg("cls"), "The members of a value class, in order.");

    py::class_<OperationView>(m, "Operation", "An operation of the contract.")
        .def_property_readonly("module", [](const OperationView& o) { return o.operation->module; })
        .def_property_readonly("interface", [](const OperationView& o) { return o.operation->interface; })
        .def_property_readonly("name", [](const OperationView& o) { return o.operation->name; })
        .def_property_readonly("index", [](const OperationView& o) { return o.index; })
        .def_property_readonly("dispose", [](const OperationView& o) { return o.operation->dispose; })
        .def_property_readonly("signature", [](const OperationView& o) { return o.operation->signature; })
        .def_property_readonly("typeName", [](const OperationView& o) { return o.operation->typeName; })
        .def_property_readonly("schema", [](const OperationView& o) { return o.operation->schema; })
        .def_property_readonly("params", [](const OperationView& o) {
            return fieldsOf(o.operation->message->members, 1, o.operation->message->count);
        })
        .def("text", [](const OperationView& o, py::tuple args, const std::string& sender) {
            return adopt(textOfMessage(*o.operation, args.ptr(), sender.c_str()));
        }, py::arg("args"), py::arg("sender") = "",
           "The text form of the operation's wire message with these arguments, from the Python values.")
        .def("wireText", [](const OperationView& o, py::tuple args, const std::string& sender) {
            WireWriter writer(o.operation->module, o.operation->name);
            const void* message = writer.message(*o.operation, args.ptr(), sender.c_str());
            std::ostringstream out;
            o.operation->print(out, message);
            return py::bytes(out.str());
        }, py::arg("args"), py::arg("sender") = "",
           "The C++ text form of the wire message these arguments convert to (bytes, as C++ writes it).")
        .def("__repr__", [](const OperationView& o) { return "<vantrel.Operation " + o.operation->qualifiedName() + ">"; });

    m.def("operations", [](const std::string& module) { return operationsOf(moduleNamed(module)); }, py::arg("module"),
          "The operations of a module: IService ones, then IClient ones, each in declaration order.");
}

}  // namespace vantrel::python

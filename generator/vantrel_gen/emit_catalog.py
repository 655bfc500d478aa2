"""The run-time catalogue of a module (constant tables describing its wire types, topics and operations)
and the glue that lets the tool and the Python binding send and receive its operations as wire messages
through the module's real facades."""

from __future__ import annotations

from .cpp_names import all_messages, class_name, param_type, wire_message, wire_struct
from .emit_api import HEADER_NOTE, operation_params
from .emit_wire import to_wire_member
from .model import Message, Module, TypeRef
from .schema_idl import flattened_key_schema, flattened_schema
from .versions import interface_version

_KIND = {"boolean": ("Bool", "bool"), "octet": ("Octet", "uint8_t"), "int16": ("Int16", "int16_t"),
         "uint16": ("UInt16", "uint16_t"), "int32": ("Int32", "int32_t"), "uint32": ("UInt32", "uint32_t"),
         "int64": ("Int64", "int64_t"), "uint64": ("UInt64", "uint64_t"), "float": ("Float", "float"),
         "double": ("Double", "double")}


def struct_table(module: str, name: str) -> str:
    return f"s_{module}_{name}"


def enum_table(module: str, name: str) -> str:
    return f"e_{module}_{name}"


def module_table(module: str) -> str:
    return f"module_{module}"


def _cstr(text: str) -> str:
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'


class _Types:
    """Collects the element TypeInfo objects that sequences point at."""

    def __init__(self, module: str):
        self.module = module
        self.elements: list[str] = []

    def info(self, t: TypeRef) -> str:
        alias = f"\"{t.module}::{t.name}\"" if t.kind == "alias" else "nullptr"
        r = t.resolved()
        if r.kind == "prim":
            kind, ctype = _KIND[r.prim]
            return f"{{Kind::{kind}, 0, sizeof({ctype}), nullptr, nullptr, nullptr, {alias}}}"
        if r.kind == "string":
            if r.bound is None:
                return f"{{Kind::String, 0, sizeof(char*), nullptr, nullptr, nullptr, {alias}}}"
            return f"{{Kind::BoundedString, {r.bound}, {r.bound + 1}, nullptr, nullptr, nullptr, {alias}}}"
        if r.kind == "sequence":
            element = self.info(r.element)
            name = f"t_{self.module}_{len(self.elements)}"
            self.elements.append(f"const TypeInfo {name} = {element};")
            return f"{{Kind::Sequence, {r.bound or 0}, sizeof(dds_sequence_t), &{name}, nullptr, nullptr, {alias}}}"
        if r.kind == "enum":
            return f"{{Kind::Enum, 0, sizeof(int32_t), nullptr, &{enum_table(r.module, r.name)}, nullptr, {alias}}}"
        return (f"{{Kind::Struct, 0, sizeof({wire_struct(r.module, r.name)}), nullptr, nullptr, "
                f"&{struct_table(r.module, r.name)}, {alias}}}")


def emit_catalog_header(mod: Module) -> str:
    M = mod.name
    out = [HEADER_NOTE.format(file=mod.file.split("/")[-1]), "#pragma once", "",
           "#include \"vantrel/catalog/Catalog.h\"", "", "namespace vantrel::catalog::tables {", ""]
    out += [f"extern const EnumInfo {enum_table(M, e.name)};" for e in mod.enums]
    out += [f"extern const StructInfo {struct_table(M, s.name)};" for s in mod.structs]
    out += [f"extern const ModuleInfo {module_table(M)};", "", "}  // namespace vantrel::catalog::tables", ""]
    return "\n".join(out)


def _members(types: _Types, ctype: str, members) -> list[str]:
    return [f"    {{\"{m.name}\", {types.info(m.type)}, offsetof({ctype}, {m.name}), {'true' if m.key else 'false'}}},"
            for m in members]


def _receiver(mod: Module, msg: Message, index: int) -> list[str]:
    M, iface = mod.name, msg.interface
    wrapper_args = ", ".join([f"::{M}::{iface}"] + [param_type(p.type) for p in msg.params] +
                             (["bool"] if msg.dispose else []))
    params = [f"{param_type(p.type)} a{i}" for i, p in enumerate(msg.params)] + (["bool dispose"] if msg.dispose else [])
    out = [f"    r.add<kelva::utils::callback::Wrapper<{wrapper_args}>>(\"{msg.name}\", [&r]({', '.join(params)}) {{",
           "        vantrel::frame::Scratch s;", f"        {wire_message(msg)} w{{}};",
           "        w.kelva_sending_actor = r.senderId();"]
    for i, p in enumerate(msg.params):
        out.append("    " + to_wire_member(f"w.{p.name}", f"a{i}", p.type, f"{M}::{iface}::{msg.name}::{p.name}"))
    if not msg.params:
        out.append("        (void)s;")
    out += [f"        r.deliver({index}, &w, {'dispose' if msg.dispose else 'false'});", "    });"]
    return out


def emit_catalog_source(mod: Module) -> str:
    M = mod.name
    out = [HEADER_NOTE.format(file=mod.file.split("/")[-1]),
           f"#include \"intern/vantrel/catalog/{M}.h\"", f"#include \"intern/vantrel/wire/{M}Wire.h\""]
    out += [f"#include \"intern/vantrel/catalog/{inc}.h\"" for inc in mod.includes]
    out += ["", "#include <cstddef>", "#include <ostream>", ""]
    if mod.has_interfaces:
        out += ["#include \"FacadeGlue.h\"", ""]
    out += ["using vantrel::frame::fromWire;", "using vantrel::frame::toWire;", "",
            "namespace vantrel::catalog::tables {", ""]
    types = _Types(M)
    body = []
    for e in mod.enums:
        lits = ", ".join(f"\"{lit}\"" for lit in e.literals)
        body += [f"const char* const literals_{M}_{e.name}[] = {{{lits}}};",
                 f"const EnumInfo {enum_table(M, e.name)} = {{\"{M}\", \"{e.name}\", literals_{M}_{e.name}, {len(e.literals)}}};", ""]
    for s in mod.structs:
        ctype = wire_struct(M, s.name)
        if s.members:
            body += [f"const MemberInfo members_{M}_{s.name}[] = {{"] + _members(types, ctype, s.members) + ["};"]
        members = f"members_{M}_{s.name}" if s.members else "nullptr"
        body += [f"void print_{M}_{s.name}(std::ostream& os, const void* w) {{ ::print(os, *static_cast<const {ctype}*>(w)); }}",
                 f"const StructInfo {struct_table(M, s.name)} = {{\"{M}\", \"{s.name}\", {members}, {len(s.members)}, "
                 f"sizeof({ctype}), print_{M}_{s.name}}};", ""]
    messages = list(all_messages(mod))
    for msg in messages:
        ctype, n = wire_message(msg), f"{M}_{msg.interface}_{msg.name}"
        body += [f"const MemberInfo members_{n}[] = {{"] + _members(types, ctype, msg.members) + ["};",
                 f"void print_{n}(std::ostream& os, const void* m) {{ ::print(os, *static_cast<const {ctype}*>(m)); }}",
                 f"const StructInfo message_{n} = {{\"{M}\", \"{msg.interface}::{msg.name}\", members_{n}, "
                 f"{len(msg.members)}, sizeof({ctype}), print_{n}}};", ""]
    if messages:
        body.append(f"const OperationInfo operations_{M}[] = {{")
        for msg in messages:
            n = f"{M}_{msg.interface}_{msg.name}"
            signature = f"void {msg.name}({', '.join(operation_params(msg))})".replace("::M_", "M_")
            body.append(f"    {{\"{M}\", \"{msg.interface}\", \"{msg.name}\", \"{class_name(msg)}\", &{wire_message(msg)}_desc, "
                        f"&message_{n}, {'true' if msg.dispose else 'false'}, {_cstr(signature)},")
            body.append(f"     {_cstr(flattened_schema(msg))},")
            body.append(f"     {_cstr(flattened_key_schema(msg))}, print_{n}}},")
        body += ["};", ""]
    out += types.elements + [""] + body
    if mod.structs:
        out.append(f"const StructInfo* const structs_{M}[] = {{{', '.join('&' + struct_table(M, s.name) for s in mod.structs)}}};")
    if mod.enums:
        out.append(f"const EnumInfo* const enums_{M}[] = {{{', '.join('&' + enum_table(M, e.name) for e in mod.enums)}}};")
    create = "nullptr"
    if mod.has_interfaces:
        out += ["", f"namespace glue_{M} {{", ""]
        n_service, n_client = len(mod.interfaces["IService"]), len(mod.interfaces["IClient"])
        for facade, sends, receives, first_received in (("Client", "IService", "IClient", n_service),
                                                        ("Service", "IClient", "IService", 0)):
            out += [f"using {facade}Glue = glue::FacadeOf<::{M}::{facade}>;",
                    f"void fill{facade}(glue::Receivers& r) {{", "    (void)r;"]
            for i, msg in enumerate(mod.interfaces[receives]):
                out += _receiver(mod, msg, i)
            out += ["}", ""]
        out += ["std::unique_ptr<Facade> create(const FacadeRequest& r) {",
                "    if (r.role == Role::Client)",
                f"        return std::make_unique<ClientGlue>({module_table(M)}, Role::Client, operations_{M}, {n_service},",
                f"                                            operations_{M} + {n_service}, {n_client}, fillClient, r);",
                f"    return std::make_unique<ServiceGlue>({module_table(M)}, Role::Service, operations_{M} + {n_service}, {n_client},",
                f"                                         operations_{M}, {n_service}, fillService, r);",
                "}", "", f"}}  // namespace glue_{M}", ""]
        create = f"glue_{M}::create"
    version = interface_version(mod)
    out += [f"const ModuleInfo {module_table(M)} = {{\"{M}\", \"{version}\", "
            f"{'structs_' + M if mod.structs else 'nullptr'}, {len(mod.structs)}, "
            f"{'enums_' + M if mod.enums else 'nullptr'}, {len(mod.enums)}, "
            f"{'operations_' + M if messages else 'nullptr'}, {len(messages)}, {create}}};", "",
            "}  // namespace vantrel::catalog::tables", ""]
    return "\n".join(out)


def emit_catalog_registry(mods: list[Module]) -> str:
    out = [HEADER_NOTE.format(file="*.idl"), "#include <vector>", ""]
    out += [f"#include \"intern/vantrel/catalog/{m.name}.h\"" for m in mods]
    out += ["", "namespace vantrel::catalog {", "",
            "const std::vector<const ModuleInfo*>& modules() {",
            "    static const std::vector<const ModuleInfo*> all = {"]
    out += [f"        &tables::{module_table(m.name)}," for m in sorted(mods, key=lambda m: m.name)]
    out += ["    };", "    return all;", "}", "", "}  // namespace vantrel::catalog", ""]
    return "\n".join(out)

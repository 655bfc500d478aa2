"""The public interface header of a module: value types, enumerations, aliases, parameter packs,
IService / IClient, the Client / Service facades and the operation name lists."""

from __future__ import annotations

from .cpp_names import api_type, param_type
from .model import Message, Module, Struct

HEADER_NOTE = "// Generated from idl/{file} by the vantrel generator. Do not edit."


def _decls_in_file_order(mod: Module):
    decls = [("enum", e) for e in mod.enums] + [("alias", a) for a in mod.aliases] + \
            [("struct", s) for s in mod.structs]
    return sorted(decls, key=lambda d: d[1].line)


def _value_type(name: str, members, doc: str = "") -> list[str]:
    """A plain structure with default and member-wise constructors and member-wise equality."""
    out = []
    if doc:
        out.append(f"// {doc}")
    out.append(f"struct {name} {{")
    for m in members:
        out.append(f"    {api_type(m.type)} {m.name}{{}};")
    out.append("")
    out.append(f"    {name}() = default;")
    if members:
        params = ", ".join(f"{param_type(m.type)} {m.name}_" for m in members)
        inits = ", ".join(f"{m.name}({m.name}_)" for m in members)
        explicit = "explicit " if len(members) == 1 else ""
        out.append(f"    {explicit}{name}({params}) : {inits} {{}}")
        cmp = "\n               && ".join(f"{m.name} == other.{m.name}" for m in members)
        out.append(f"    bool operator==(const {name}& other) const {{\n        return {cmp};\n    }}")
    else:
        out.append(f"    bool operator==(const {name}&) const {{ return true; }}")
    out.append(f"    bool operator!=(const {name}& other) const {{ return !(*this == other); }}")
    out.append("};")
    return out


def operation_params(msg: Message) -> list[str]:
    """The C++ parameter list of an operation: its arguments, then the dispose flag where it has one."""
    params = [f"{param_type(m.type)} {m.name}" for m in msg.params]
    if msg.dispose:
        params.append("bool dispose")
    return params


def _interface(mod: Module, iface: str) -> list[str]:
    out = [f"// {'Client to service' if iface == 'IService' else 'Service to clients'}: every operation has a "
           "default body that logs a warning; override what you handle.",
           f"class VANTREL_EXPORT {iface} {{", "public:", f"    virtual ~{iface}();"]
    for msg in mod.interfaces[iface]:
        out.append(f"    virtual void {msg.name}({', '.join(operation_params(msg))});")
    out.append("};")
    return out


def _overridden(mod: Module, iface: str) -> list[str]:
    out = [f"// The operations of {iface} that Impl overrides (compile-time comparison of member pointers).",
           "template <class Impl>", f"std::vector<std::string> overridden{iface}() {{",
           "    std::vector<std::string> methods;"]
    for msg in mod.interfaces[iface]:
        out.append(f"    if (!std::is_same_v<decltype(&Impl::{msg.name}), decltype(&{iface}::{msg.name})>) "
                   f"methods.emplace_back(\"{msg.name}\");")
    out += ["    return methods;", "}"]
    return out


def _facade(facade: str, sends: str, receives: str) -> list[str]:
    S = "std::shared_ptr<kelva::actors::Session>"
    M = "std::shared_ptr<kelva::actors::MonitorSession>"
    R = receives
    # The generic creation takes implementations of the receiving interface only: a callback map (const
    # or not) then always picks the map overloads, and a temporary map (which would dangle) is refused.
    impl_tpl = f"    template <class Impl, std::enable_if_t<std::is_base_of_v<{R}, Impl>, int> = 0>"
    methods_all = f"const std::vector<std::string>& methods = getMethodsAll{R}()"
    out = [
        f"class VANTREL_EXPORT {facade} : public vantrel::frame::FacadeCore {{",
        "public:",
        f"    {facade}() noexcept;",
        f"    {facade}({facade}&& other) noexcept;",
        f"    {facade}& operator=({facade}&& other) noexcept;",
        f"    ~{facade}();",
        "",
        f"    // Sends {sends} operations only.",
        f"    static {facade} createWriteOnly(int32_t domain, const std::string& name);",
        f"    static {facade} createWriteOnly({S} session, const std::string& name);",
        "",
        f"    // Sends {sends} operations and receives the {R} operations that `impl` overrides.",
        impl_tpl,
        f"    static {facade} create({S} session, const std::string& name, Impl& impl) {{",
        f"        return createCustom(std::move(session), name, static_cast<{R}&>(impl), overridden{R}<Impl>());",
        "    }",
        impl_tpl,
        f"    static {facade} create(int32_t domain, const std::string& name, Impl& impl) {{",
        "        return create(vantrel::frame::sessionFor(domain), name, impl);",
        "    }",
        "    // Receives through a callback map (it must outlive the facade); `methods` selects the operations.",
        f"    static {facade} create({S} session, const std::string& name, const vantrel::CallbackMap& callbacks,",
        f"                          {methods_all}) {{",
        "        return createCustom(std::move(session), name, callbacks, methods);",
        "    }",
        f"    static {facade} create(int32_t domain, const std::string& name, const vantrel::CallbackMap& callbacks,",
        f"                          {methods_all}) {{",
        "        return createCustom(vantrel::frame::sessionFor(domain), name, callbacks, methods);",
        "    }",
        f"    static {facade} create({S}, const std::string&, vantrel::CallbackMap&&, const std::vector<std::string>& = {{}}) = delete;",
        f"    static {facade} create(int32_t, const std::string&, vantrel::CallbackMap&&, const std::vector<std::string>& = {{}}) = delete;",
        "    // Receives only, as a named actor of a monitor session.",
        impl_tpl,
        f"    static {facade} createReadOnly({M} monitor, const std::string& name, Impl& impl) {{",
        f"        return createCustomReadOnly(std::move(monitor), name, static_cast<{R}&>(impl), overridden{R}<Impl>());",
        "    }",
        f"    static {facade} createReadOnly({M} monitor, const std::string& name, const vantrel::CallbackMap& callbacks,",
        f"                                  {methods_all}) {{",
        "        return createCustomReadOnly(std::move(monitor), name, callbacks, methods);",
        "    }",
        f"    static {facade} createReadOnly({M}, const std::string&, vantrel::CallbackMap&&, const std::vector<std::string>& = {{}}) = delete;",
        "    // Receives only, through a multiplex actor of a monitor session.",
        impl_tpl,
        f"    static {facade} createMonitor({M} monitor, Impl& impl) {{",
        f"        return createCustomReadOnlyMultiplex(std::move(monitor), static_cast<{R}&>(impl), overridden{R}<Impl>());",
        "    }",
        f"    static {facade} createMonitor({M} monitor, const vantrel::CallbackMap& callbacks, {methods_all}) {{",
        "        return createCustomReadOnlyMultiplex(std::move(monitor), callbacks, methods);",
        "    }",
        f"    static {facade} createMonitor({M}, vantrel::CallbackMap&&, const std::vector<std::string>& = {{}}) = delete;",
        "",
        "    // Entry points of scripting bindings: a new heap-allocated facade owned by the caller.",
        f"    static {facade}* _internalSwigCreate(int domain, const std::string& name, {R}& impl);",
        f"    static {facade}* _internalSwigCreate({S} session, const std::string& name, {R}& impl);",
        f"    static {facade}* _internalSwigCreateMonitor(int domain, {R}& impl);",
        f"    static {facade}* _internalSwigCreateMonitor(int domain, const std::string& name, {R}& impl);",
        f"    static {facade}* _internalSwigCreateMonitor({M} monitor, {R}& impl);",
        f"    static {facade}* _internalSwigCreateMonitor({M} monitor, const std::string& name, {R}& impl);",
        f"    static {facade}* _internalSwigCreateWriteOnly(int domain, const std::string& name);",
        f"    static {facade}* _internalSwigCreateWriteOnly({S} session, const std::string& name);",
        "",
        "    // The sender: calling an operation through it publishes it. Throws std::logic_error on misuse.",
        f"    std::shared_ptr<{sends}> operator->();",
        "    // The actor's description; throws std::logic_error \"Actor not initialised!\" without an actor.",
        "    kelva::actors::ActorInfo actorInfo() const;",
        f"    {S} getSession() const;",
        f"    {M} getMonitorSession() const;",
        "    bool isValid() const;",
        "    // Shuts the actor down and blocks until the toolkit released it (not from a callback of the same",
        "    // session: then the actor goes when that callback returns). Idempotent.",
        "    void invalidate();",
        "    // During a received operation's dispatch (on the dispatcher thread): who sent it, which operation,",
        "    // when it was received. Empty outside a call. Throws std::logic_error without an actor.",
        "    kelva::actors::CallbackInfo callbackInfo() const;",
    ]
    if facade == "Client":
        out += ["    void setName(const std::string& name);",
                "    // Blocks until a service's reader matched one of this client's writers.",
                "    void waitUntilConnected();"]
    out += [
        "",
        "private:",
        "    friend struct vantrel::frame::FacadeAccess;",
        f"    {facade}(std::weak_ptr<kelva::actors::IActor> actor, bool writeEnabled, bool readEnabled, {S} session,",
        f"            {M} monitorSession);",
        "    kelva::actors::IActor& actor();",
        f"    static {facade} createCustom({S} session, const std::string& name, {R}& impl,",
        "                               const std::vector<std::string>& methods);",
        f"    static {facade} createCustom({S} session, const std::string& name, const vantrel::CallbackMap& callbacks,",
        "                               const std::vector<std::string>& methods);",
        f"    static {facade} createCustomReadOnly({M} monitor, const std::string& name, {R}& impl,",
        "                                       const std::vector<std::string>& methods);",
        f"    static {facade} createCustomReadOnly({M} monitor, const std::string& name,",
        "                                       const vantrel::CallbackMap& callbacks, const std::vector<std::string>& methods);",
        f"    static {facade} createCustomReadOnlyMultiplex({M} monitor, {R}& impl, const std::vector<std::string>& methods);",
        f"    static {facade} createCustomReadOnlyMultiplex({M} monitor, const vantrel::CallbackMap& callbacks,",
        "                                                const std::vector<std::string>& methods);",
        "    static bool isCheckMostDerivedClassType(kelva::actors::Session& session);",
        "    static bool isCheckMostDerivedClassType(kelva::actors::MonitorSession& session);",
        "};",
    ]
    return out


def emit_public_header(mod: Module) -> str:
    out = [HEADER_NOTE.format(file=mod.file.split("/")[-1]), "#pragma once", "",
           "#include <cstdint>", "#include <memory>", "#include <string>", "#include <type_traits>",
           "#include <vector>", "", "#include \"vantrel/Export.h\""]
    for inc in mod.includes:
        out.append(f"#include \"vantrel/{inc}.h\"")
    if mod.has_interfaces:
        out += ["#include \"vantrel/frame/CallbackMap.h\"", "#include \"vantrel/frame/FacadeCore.h\""]
    out += ["", f"namespace {mod.name} {{", ""]
    out.append(f"inline const std::string ModuleName = \"{mod.name}\";")
    for name, value in mod.consts.items():
        if name == "InterfaceVersion":
            out.append("// The version of this module's interface (major.minor.patch), published with every actor of it.")
        out.append(f"inline const std::string {name} = \"{value}\";")
    out.append("")
    for kind, d in _decls_in_file_order(mod):
        if kind == "enum":
            lits = ", ".join(f"{lit} = {i}" for i, lit in enumerate(d.literals))
            out += [f"struct {d.name} {{", f"    enum Type : int32_t {{ {lits} }};", "};", ""]
        elif kind == "alias":
            out += [f"using {d.name} = {api_type(d.type)};", ""]
        else:
            out += _value_type(d.name, d.members) + [""]
    if mod.structs or mod.enums:
        out.append("// The text form of a value, as log lines show it on the wire: \"[Azimuth: 12.5, Elevation: 3, Range: [100]]\".")
        for e in mod.enums:
            out.append(f"VANTREL_EXPORT std::string toText({e.name}::Type value);")
        for st in mod.structs:
            out.append(f"VANTREL_EXPORT std::string toText(const {st.name}& value);")
        out.append("")
    if mod.has_interfaces:
        out.append("// Parameter packs: the arguments of each operation, in order.")
        for iface in ("IService", "IClient"):
            for msg in mod.interfaces[iface]:
                out += _value_type(msg.name, msg.params) + [""]
        out += ["VANTREL_EXPORT std::vector<std::string> getMethodsAllIService();",
                "VANTREL_EXPORT std::vector<std::string> getMethodsAllIClient();", ""]
        out += _interface(mod, "IService") + [""] + _interface(mod, "IClient") + [""]
        out += _overridden(mod, "IService") + [""] + _overridden(mod, "IClient") + [""]
        out += _facade("Client", "IService", "IClient") + [""]
        out += _facade("Service", "IClient", "IService") + [""]
    out += [f"}}  // namespace {mod.name}", ""]
    return "\n".join(out)

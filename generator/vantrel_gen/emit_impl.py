"""Senders, observers, default bodies and facades of a module: thin glue over the frame's templates."""

from __future__ import annotations

from .cpp_names import api_type, param_type, wire_message
from .emit_api import HEADER_NOTE, operation_params
from .emit_wire import from_wire_member, to_wire_member
from .model import Message, Module
from .versions import interface_version

_RECEIVER = {"IService": "Service", "IClient": "Client"}


def _note(mod: Module) -> str:
    return HEADER_NOTE.format(file=mod.file.split("/")[-1])


def _arg_types(msg: Message) -> list[str]:
    types = [api_type(m.type) for m in msg.params]
    if msg.dispose:
        types.append("bool")
    return types


def _arg_names(msg: Message) -> list[str]:
    names = [m.name for m in msg.params]
    if msg.dispose:
        names.append("dispose")
    return names


def emit_impl_header(mod: Module) -> str:
    M = mod.name
    out = [_note(mod), "#pragma once", "",
           f"#include \"vantrel/{M}.h\"", "#include \"vantrel/frame/Observer.h\"", "#include \"vantrel/frame/Sender.h\"",
           "", f"namespace {M} {{", ""]
    for iface in ("IService", "IClient"):
        out += [f"// Publishes each {iface} operation on its own topic.",
                f"class Sender{iface} final : public {iface}, public kelva::actors::ISender, public vantrel::frame::WireSender {{",
                "public:",
                f"    Sender{iface}(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolWrite& pool,",
                "                 kelva::base::PluginLoader& loader);"]
        for msg in mod.interfaces[iface]:
            out.append(f"    void {msg.name}({', '.join(operation_params(msg))}) override;")
        out += ["    void sendWire(std::size_t operation, const void* message, bool dispose) override;",
                "", "private:", "    vantrel::frame::SenderCore m_core;", "};", ""]
        out += [f"// Receives {iface} operations and dispatches them to the application.",
                f"class Observer{iface} final : public kelva::actors::IObserver {{", "public:",
                f"    Observer{iface}(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolRead& pool,",
                f"                   const std::vector<std::string>& methods, {iface}* impl, kelva::base::PluginLoader& loader);",
                f"    Observer{iface}(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolRead& pool,",
                "                   const std::vector<std::string>& methods, const vantrel::CallbackMap* callbacks,",
                "                   kelva::base::PluginLoader& loader);",
                "", "private:", "    vantrel::frame::ObserverCore m_core;", "};", ""]
    out += [f"}}  // namespace {M}", ""]
    return "\n".join(out)


def _op_traits(mod: Module, msg: Message) -> list[str]:
    M, iface = mod.name, msg.interface
    types = _arg_types(msg)
    wrapper_args = ", ".join([f"::{M}::{iface}"] + [param_type(p.type) for p in msg.params] +
                             (["bool"] if msg.dispose else []))
    injector = ", ".join(["const std::string&"] + [f"const {t}&" for t in types])
    hook = ", ".join(["const std::string&"] + [param_type(m.type) for m in msg.params] + (["bool"] if msg.dispose else []))
    out = [f"struct {iface}_{msg.name} {{",
           f"    using Wire = {wire_message(msg)};",
           f"    using Interface = ::{M}::{iface};",
           f"    using Args = std::tuple<{', '.join(types)}>;",
           f"    using Wrapper = kelva::utils::callback::Wrapper<{wrapper_args}>;",
           f"    using Injector = std::function<void({injector})>;",
           f"    using Hook = void (*)({hook});",
           f"    static constexpr const char* name = \"{msg.name}\";",
           f"    static constexpr const char* hook = \"{M}_{iface}_{msg.name}_FromPlugin\";",
           f"    static constexpr bool hasDispose = {'true' if msg.dispose else 'false'};"]
    unused = "" if msg.params else " (void)a; (void)w;"
    unused_d = "" if msg.dispose else " (void)disposed;"
    out.append(f"    static void decode(Args& a, const Wire& w, bool disposed) {{{unused}{unused_d}")
    for i, m in enumerate(msg.params):
        out.append("    " + from_wire_member(f"std::get<{i}>(a)", f"w.{m.name}", m.type))
    if msg.dispose:
        out.append(f"        std::get<{len(msg.params)}>(a) = disposed;")
    out.append("    }")
    call_args = ", ".join(f"std::get<{i}>(a)" for i in range(len(types)))
    unused = "" if types else " (void)a;"
    out.append(f"    static void call(Interface& impl, const Args& a) {{{unused} impl.{msg.name}({call_args}); }}")
    out.append("};")
    return out


def emit_impl_source(mod: Module) -> str:
    M = mod.name
    out = [_note(mod), f"#include \"intern/vantrel/impl/{M}.h\"", f"#include \"intern/vantrel/wire/{M}Wire.h\"", "",
           "#include <functional>", "#include <stdexcept>", "#include <string>", "#include <tuple>", "",
           "using vantrel::frame::fromWire;", "using vantrel::frame::toWire;", "",
           f"namespace {M} {{", "namespace {", ""]
    for iface in ("IService", "IClient"):
        for msg in mod.interfaces[iface]:
            out += _op_traits(mod, msg) + [""]
    out += ["}  // namespace", ""]
    for iface in ("IService", "IClient"):
        msgs = mod.interfaces[iface]
        wires = ", ".join(wire_message(m) for m in msgs)
        out += [f"Sender{iface}::Sender{iface}(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolWrite& pool,",
                f"                             kelva::base::PluginLoader& loader)",
                f"    : m_core(actor, pool, loader, \"{M}_{iface}_\", getMethodsAll{iface}()) {{",
                "    KELVA_TRACE_ENTRY();"]
        if msgs:
            out.append(f"    m_core.createWriters<{wires}>();")
        out += ["}", ""]
        for index, msg in enumerate(msgs):
            out.append(f"void Sender{iface}::{msg.name}({', '.join(operation_params(msg))}) {{")
            out += ["    KELVA_TRACE_ENTRY();", "    vantrel::frame::Scratch s;",
                    f"    {wire_message(msg)} message{{}};",
                    "    message.kelva_sending_actor = const_cast<char*>(m_core.actorId());"]
            for m in msg.params:
                out.append(to_wire_member(f"message.{m.name}", m.name, m.type,
                                          f"{M}::{iface}::{msg.name}::{m.name}"))
            out.append(f"    m_core.publish({index}, message, {'dispose' if msg.dispose else 'false'});")
            hook = ", ".join(["const std::string&"] + [param_type(m.type) for m in msg.params] +
                             (["bool"] if msg.dispose else []))
            args = ", ".join([str(index)] + _arg_names(msg))
            out += [f"    m_core.callHooks<void (*)({hook})>({args});", "}", ""]
        out.append(f"void Sender{iface}::sendWire(std::size_t operation, const void* message, bool dispose) {{")
        out.append("    KELVA_TRACE_ENTRY();")
        if msgs:
            sends = ", ".join(f"&vantrel::frame::SenderCore::sendWire<{iface}_{m.name}>" for m in msgs)
            out += ["    using Send = void (vantrel::frame::SenderCore::*)(std::size_t, const void*, bool);",
                    f"    static constexpr Send sends[] = {{{sends}}};",
                    f"    if (operation < {len(msgs)}) return (m_core.*sends[operation])(operation, message, dispose);"]
        else:
            out.append("    (void)message; (void)dispose;")
        out += [f"    throw std::out_of_range(\"{M}::Sender{iface}::sendWire: no operation \" + std::to_string(operation));",
                "}", ""]
        ops = ", ".join(f"{iface}_{m.name}" for m in msgs)
        for target in (f"{iface}* impl", "const vantrel::CallbackMap* callbacks"):
            var = target.split()[-1]
            out += [f"Observer{iface}::Observer{iface}(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolRead& pool,",
                    f"                                 const std::vector<std::string>& methods, {target},",
                    "                                 kelva::base::PluginLoader& loader)",
                    "    : m_core(actor, pool, loader) {",
                    "    KELVA_TRACE_ENTRY();",
                    f"    m_core.start<{ops}>(methods, {var});" if msgs else f"    m_core.start<>(methods, {var});",
                    "}", ""]
    out += [f"}}  // namespace {M}", ""]
    return "\n".join(out)


def emit_msg_source(mod: Module) -> str:
    M = mod.name
    out = [_note(mod), f"#include \"vantrel/{M}.h\"", "", "#include \"kelva/utils/Log.h\"", "", f"namespace {M} {{", ""]
    for iface in ("IService", "IClient"):
        out += [f"{iface}::~{iface}() = default;", ""]
        for msg in mod.interfaces[iface]:
            params = ", ".join(p.rsplit(" ", 1)[0] for p in operation_params(msg))
            out += [f"void {iface}::{msg.name}({params}) {{", "    KELVA_TRACE_ENTRY();",
                    f"    vantrel::frame::defaultBody(\"{M}::{iface}::{msg.name}\");", "}", ""]
    out += [f"}}  // namespace {M}", ""]
    return "\n".join(out)


def _traced(signature: str, body: str) -> list[str]:
    """A facade function that traces its own signature on entry and then does `body`."""
    return [f"{signature} {{", "    KELVA_TRACE_ENTRY();", *[f"    {line}" for line in body.split("\n") if line], "}"]


def _facade_source(mod: Module, facade: str, sends: str, receives: str) -> list[str]:
    F, R = facade, receives
    S = "std::shared_ptr<kelva::actors::Session>"
    Mo = "std::shared_ptr<kelva::actors::MonitorSession>"
    side = f"{F}Side"
    A = "vantrel::frame::FacadeAccess"
    out = [f"{F}::{F}() noexcept : FacadeCore(\"{F}\") {{ KELVA_TRACE_ENTRY(); }}",
           f"{F}::{F}(std::weak_ptr<kelva::actors::IActor> actor, bool writeEnabled, bool readEnabled, {S} session,",
           f"         {Mo} monitorSession)",
           f"    : FacadeCore(\"{F}\", std::move(actor), writeEnabled, readEnabled, std::move(session), std::move(monitorSession)) {{",
           "    KELVA_TRACE_ENTRY();", "}",
           f"{F}::{F}({F}&& other) noexcept : FacadeCore(std::move(other)) {{ KELVA_TRACE_ENTRY(); }}"]
    out += _traced(f"{F}& {F}::operator=({F}&& other) noexcept", "FacadeCore::operator=(std::move(other));\nreturn *this;")
    out += [f"{F}::~{F}() {{ KELVA_TRACE_ENTRY(); }}", ""]
    bodies = [
        (f"{F} {F}::createWriteOnly(int32_t domain, const std::string& name)",
         "return createWriteOnly(vantrel::frame::sessionFor(domain), name);"),
        (f"{F} {F}::createWriteOnly({S} session, const std::string& name)",
         f"return {A}::createWriteOnly<{F}, {side}>(std::move(session), name);"),
        (f"{F} {F}::createCustom({S} session, const std::string& name, {R}& impl, const std::vector<std::string>& methods)",
         f"return {A}::createCustom<{F}, {side}>(std::move(session), name, &impl, methods);"),
        (f"{F} {F}::createCustom({S} session, const std::string& name, const vantrel::CallbackMap& callbacks,\n"
         "                      const std::vector<std::string>& methods)",
         f"return {A}::createCustom<{F}, {side}>(std::move(session), name, &callbacks, methods);"),
        (f"{F} {F}::createCustomReadOnly({Mo} monitor, const std::string& name, {R}& impl,\n"
         "                              const std::vector<std::string>& methods)",
         f"return {A}::createCustomReadOnly<{F}, {side}>(std::move(monitor), name, &impl, methods);"),
        (f"{F} {F}::createCustomReadOnly({Mo} monitor, const std::string& name, const vantrel::CallbackMap& callbacks,\n"
         "                              const std::vector<std::string>& methods)",
         f"return {A}::createCustomReadOnly<{F}, {side}>(std::move(monitor), name, &callbacks, methods);"),
        (f"{F} {F}::createCustomReadOnlyMultiplex({Mo} monitor, {R}& impl, const std::vector<std::string>& methods)",
         f"return {A}::createCustomReadOnlyMultiplex<{F}, {side}>(std::move(monitor), &impl, methods);"),
        (f"{F} {F}::createCustomReadOnlyMultiplex({Mo} monitor, const vantrel::CallbackMap& callbacks,\n"
         "                                       const std::vector<std::string>& methods)",
         f"return {A}::createCustomReadOnlyMultiplex<{F}, {side}>(std::move(monitor), &callbacks, methods);"),
        (f"{F}* {F}::_internalSwigCreate(int domain, const std::string& name, {R}& impl)",
         f"return new {F}(createCustom(vantrel::frame::sessionFor(domain), name, impl, getMethodsAll{R}()));"),
        (f"{F}* {F}::_internalSwigCreate({S} session, const std::string& name, {R}& impl)",
         f"return new {F}(createCustom(std::move(session), name, impl, getMethodsAll{R}()));"),
        (f"{F}* {F}::_internalSwigCreateMonitor(int domain, {R}& impl)",
         f"return new {F}(createCustomReadOnlyMultiplex(vantrel::frame::monitorSessionFor(domain), impl, getMethodsAll{R}()));"),
        (f"{F}* {F}::_internalSwigCreateMonitor(int domain, const std::string& name, {R}& impl)",
         f"return new {F}(createCustomReadOnly(vantrel::frame::monitorSessionFor(domain), name, impl, getMethodsAll{R}()));"),
        (f"{F}* {F}::_internalSwigCreateMonitor({Mo} monitor, {R}& impl)",
         f"return new {F}(createCustomReadOnlyMultiplex(std::move(monitor), impl, getMethodsAll{R}()));"),
        (f"{F}* {F}::_internalSwigCreateMonitor({Mo} monitor, const std::string& name, {R}& impl)",
         f"return new {F}(createCustomReadOnly(std::move(monitor), name, impl, getMethodsAll{R}()));"),
        (f"{F}* {F}::_internalSwigCreateWriteOnly(int domain, const std::string& name)",
         f"return new {F}(createWriteOnly(domain, name));"),
        (f"{F}* {F}::_internalSwigCreateWriteOnly({S} session, const std::string& name)",
         f"return new {F}(createWriteOnly(std::move(session), name));"),
        (f"std::shared_ptr<{sends}> {F}::operator->()", f"return {A}::sender<Sender{sends}>(*this);"),
        (f"kelva::actors::ActorInfo {F}::actorInfo() const", "return actorInfoImpl();"),
        (f"{S} {F}::getSession() const", "return session();"),
        (f"{Mo} {F}::getMonitorSession() const", "return monitorSession();"),
        (f"bool {F}::isValid() const", "return isValidImpl();"),
        (f"void {F}::invalidate()", "invalidateImpl();"),
        (f"kelva::actors::CallbackInfo {F}::callbackInfo() const", "return callbackInfoImpl();"),
        (f"kelva::actors::IActor& {F}::actor()", "return actorImpl();"),
        (f"bool {F}::isCheckMostDerivedClassType(kelva::actors::Session& session)",
         f"return {A}::isCheckMostDerivedClassType(session);"),
        (f"bool {F}::isCheckMostDerivedClassType(kelva::actors::MonitorSession& session)",
         f"return {A}::isCheckMostDerivedClassType(session);"),
    ]
    if F == "Client":
        bodies += [(f"void {F}::setName(const std::string& name)", "setNameImpl(name);"),
                   (f"void {F}::waitUntilConnected()", "waitUntilConnectedImpl();")]
    for signature, body in bodies:
        out += _traced(signature, body)
    return out + [""]


def emit_api_source(mod: Module) -> str:
    M = mod.name
    out = [_note(mod), f"#include \"intern/vantrel/impl/{M}.h\"", "#include \"kelva/utils/Log.h\"",
           "#include \"vantrel/frame/Creation.h\"", "",
           f"namespace {M} {{", "namespace {", ""]
    for F, sends, receives in (("Client", "IService", "IClient"), ("Service", "IClient", "IService")):
        out += [f"struct {F}Side {{", f"    static constexpr const char* moduleName = \"{M}\";",
                f"    using Sender = Sender{sends};", f"    using Observer = Observer{receives};",
                f"    static constexpr const char* interfaceVersion = \"{interface_version(mod)}\";",
                f"    static std::vector<std::string> sendMethods() {{ return getMethodsAll{sends}(); }}", "};", ""]
    out += ["}  // namespace", ""]
    for iface in ("IService", "IClient"):
        names = ", ".join(f"\"{m.name}\"" for m in mod.interfaces[iface])
        out += [f"std::vector<std::string> getMethodsAll{iface}() {{ return {{{names}}}; }}", ""]
    out += _facade_source(mod, "Client", "IService", "IClient")
    out += _facade_source(mod, "Service", "IClient", "IService")
    out += [f"}}  // namespace {M}", ""]
    return "\n".join(out)

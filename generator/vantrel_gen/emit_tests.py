"""The round-trip test of a module: every operation of both interfaces is sent through a facade twice, once
with every argument set to a non-default value and once with every value at its limits (integer limits,
first literals, full bounds, absent optionals, empty lists and texts), and the receiving side must get
exactly those arguments. A list or text one over its bound is refused with the converter's text before
anything is sent. Keyed operations with a dispose flag are then disposed and must arrive with the flag set
and the same key.

One GoogleTest source per module with interfaces; the fill functions it needs (also those of types of
included modules) live in the file's anonymous namespace, so the sources link into one binary."""

from __future__ import annotations

from .cpp_names import api_type, short_name
from .model import Message, Module, Struct, TypeRef

NOTE = "// Generated from idl/{file} by the vantrel generator. Do not edit."


def _reachable_structs(mod: Module) -> list[Struct]:
    """Every value type an operation of the module carries, directly or nested, in first-use order."""
    seen: dict[tuple, Struct] = {}

    def visit(t: TypeRef) -> None:
        r = t.resolved()
        if r.kind == "sequence":
            visit(r.element)
        elif r.kind == "struct":
            key = (r.module, r.name)
            if key not in seen:
                seen[key] = r.target
                for m in r.target.members:
                    visit(m.type)

    for iface in ("IService", "IClient"):
        for msg in mod.interfaces[iface]:
            for m in msg.params:
                visit(m.type)
    return list(seen.values())


def _fill_lines(t: TypeRef, lvalue: str, seed: str, depth: int) -> list[str]:
    """Statements that set `lvalue` (of type t) from `seed`: a non-default value, or with `edge` one at the
    limits of its type."""
    r = t.resolved()
    if r.kind == "prim":
        return [f"{lvalue} = edge ? rt::limit<{api_type(r)}>({seed}) : rt::num<{api_type(r)}>({seed});"]
    if r.kind == "string":
        return [f"{lvalue} = rt::text({seed}, {r.bound or 0}, edge);"]
    if r.kind == "enum":
        first, last = r.target.literals[0], r.target.literals[-1]
        return [f"{lvalue} = edge ? ::{r.module}::{r.name}::{first} : ::{r.module}::{r.name}::{last};"]
    if r.kind == "struct":
        return [f"fill({lvalue}, {seed}, edge);"]
    if r.kind == "sequence":
        count = 2 if r.bound is None else min(r.bound, 2)
        # At the limits a bounded list is full; an optional or unbounded one is empty for half the seeds.
        limit = str(r.bound) if r.bound and r.bound > 1 else f"({seed} % 2 ? 0 : {count})"
        i = f"i{depth}"
        inner = _fill_lines(r.element, f"{lvalue}.back()", f"rt::mix({seed}, {i})", depth + 1)
        return [f"{lvalue}.clear();",
                f"for (int {i} = 0; {i} < (edge ? {limit} : {count}); ++{i}) {{",
                f"    {lvalue}.emplace_back();"] + [f"    {line}" for line in inner] + ["}"]
    raise ValueError(f"no fill for type kind {r.kind}")


def _fill_function(cpp_type: str, members) -> list[str]:
    out = [f"void fill({cpp_type}& x, int seed, bool edge) {{"]
    if not members:
        out.append("    (void)x;")
        out.append("    (void)edge;")
    if all(m.type.resolved().kind == "enum" for m in members):
        out.append("    (void)seed;  // enumerations take their first or last literal whatever the seed")
    for i, m in enumerate(members):
        out += [f"    {line}" for line in _fill_lines(m.type, f"x.{m.name}", f"rt::mix(seed, {i})", 0)]
    out.append("}")
    return out


def _refusals(mod: Module, iface: str, msg: Message, sender: str) -> list[str]:
    """For every bounded list or text argument: one over the bound is refused with the converter's text."""
    out = []
    for p in msg.params:
        r = p.type.resolved()
        if r.kind not in ("sequence", "string") or not r.bound:
            continue
        over = r.bound + 1
        grow = f"over.{p.name}.resize({over});" if r.kind == "sequence" else f"over.{p.name}.assign({over}, 'z');"
        if r.kind == "string":
            what = f"string of {over} characters exceeds its bound of {r.bound}"
        else:
            what = f"{'optional' if r.bound == 1 else 'list'} holds {over} elements, at most {r.bound}"
        out += [f"        EXPECT_EQ(rt::refusal([&] {{",
                f"            auto over = edge_{msg.name};",
                f"            {grow}",
                f"            {_send(sender, msg, 'over', 'false')}",
                f"        }}), \"{mod.name}::{iface}::{msg.name}::{p.name}: {what}; nothing was sent\");"]
    return out


def _signature(msg: Message) -> str:
    from .emit_api import operation_params
    return f"void {msg.name}({', '.join(operation_params(msg))}) override"


def _pack_expr(mod: Module, msg: Message) -> str:
    args = ", ".join(m.name for m in msg.params)
    return f"::{mod.name}::{msg.name}({args})" if msg.params else f"::{mod.name}::{msg.name}{{}}"


def _recorder(mod: Module, iface: str) -> list[str]:
    cls = f"{iface}Recorder"
    msgs = mod.interfaces[iface]
    out = [f"// Records every {iface} operation: the last arguments, the dispose flag and the number of calls.",
           f"class {cls} : public ::{mod.name}::{iface} {{", "public:"]
    for msg in msgs:
        out.append(f"    {_signature(msg)} {{")
        out.append("        std::lock_guard<std::mutex> guard_(m_mutex);")
        out.append(f"        m_{msg.name} = {_pack_expr(mod, msg)};")
        out.append(f"        if (m_calls[\"{msg.name}\"] == 0) m_first_{msg.name} = m_{msg.name};")
        out.append(f"        m_dispose[\"{msg.name}\"] = {'dispose' if msg.dispose else 'false'};")
        out.append(f"        ++m_calls[\"{msg.name}\"];")
        out.append("    }")
    for msg in msgs:
        for which, member in (("first", f"m_first_{msg.name}"), ("last", f"m_{msg.name}")):
            out.append(f"    ::{mod.name}::{msg.name} {which}_{msg.name}() const {{")
            out.append("        std::lock_guard<std::mutex> lock(m_mutex);")
            out.append(f"        return {member};")
            out.append("    }")
    out += [
        "    int calls(const std::string& operation) const {",
        "        std::lock_guard<std::mutex> lock(m_mutex);",
        "        auto it = m_calls.find(operation);",
        "        return it == m_calls.end() ? 0 : it->second;",
        "    }",
        "    bool lastDispose(const std::string& operation) const {",
        "        std::lock_guard<std::mutex> lock(m_mutex);",
        "        auto it = m_dispose.find(operation);",
        "        return it != m_dispose.end() && it->second;",
        "    }",
        "    // Whether each of `operations` was called at least `count` times.",
        "    bool reached(const std::vector<std::string>& operations, int count) const {",
        "        for (const auto& operation : operations) {",
        "            if (calls(operation) < count) return false;",
        "        }",
        "        return true;",
        "    }",
        "",
        "private:",
        "    mutable std::mutex m_mutex;",
        "    std::map<std::string, int> m_calls;",
        "    std::map<std::string, bool> m_dispose;",
    ]
    for msg in msgs:
        out.append(f"    ::{mod.name}::{msg.name} m_{msg.name}{{}};")
        out.append(f"    ::{mod.name}::{msg.name} m_first_{msg.name}{{}};")
    out.append("};")
    return out


def _send(sender: str, msg: Message, pack: str, dispose: str | None) -> str:
    args = [f"{pack}.{m.name}" for m in msg.params]
    if msg.dispose:
        args.append(dispose)
    return f"{sender}->{msg.name}({', '.join(args)});"


def _received(receiver: str, msgs, count: int, which: str, sent: str) -> list[str]:
    """The receiving side's checks after pass `count`: each operation arrived that often, the `which` call
    with exactly the `sent` arguments and without the dispose flag."""
    out = ["    if (exchange.receives()) {",
           f"        ASSERT_TRUE(vantrel::test::waitUntil([&] {{ return {receiver}.reached(operations, {count}); }}, exchange.bound()))",
           f"            << \"not every operation arrived ({sent})\";"]
    for msg in msgs:
        out += [f"        EXPECT_EQ({receiver}.calls(\"{msg.name}\"), {count}) << \"{msg.name}\";",
                f"        equal += {receiver}.{which}_{msg.name}() == {sent}_{msg.name};",
                f"        EXPECT_TRUE({receiver}.{which}_{msg.name}() == {sent}_{msg.name})",
                f"            << \"{msg.name}: the received arguments differ from the {sent} ones\";"]
        if msg.dispose:
            out.append(f"        EXPECT_FALSE({receiver}.lastDispose(\"{msg.name}\")) << \"{msg.name}\";")
    return out + ["    }"]


def _test(mod: Module, iface: str, suite: str, seed_base: int) -> list[str]:
    """One direction: the facade that receives `iface` records, the other one sends. In one process both
    facades run; split over two processes (vantrel::test::Exchange) each plays one side."""
    S = short_name(mod.name)
    msgs = mod.interfaces[iface]
    to_service = iface == "IService"
    test_name = "ClientToService" if to_service else "ServiceToClient"
    sender, receiver = ("client", "serviceRecorder") if to_service else ("service", "clientRecorder")
    send_facade, send_recorder, receive_facade, receive_recorder = (
        ("Client", "clientRecorder", "Service", "serviceRecorder") if to_service
        else ("Service", "serviceRecorder", "Client", "clientRecorder"))
    names = ", ".join(f"\"{m.name}\"" for m in msgs)
    out = [f"TEST({suite}, {test_name}) {{",
           f"    vantrel::test::Exchange exchange(\"{suite}.{test_name}\");",
           "    const int domain = vantrel::test::domainId();",
           "    IServiceRecorder serviceRecorder;",
           "    IClientRecorder clientRecorder;",
           f"    ::{mod.name}::{receive_facade} {receive_facade.lower()};",
           f"    ::{mod.name}::{send_facade} {send_facade.lower()};",
           "    if (exchange.receives())",
           f"        {receive_facade.lower()} = ::{mod.name}::{receive_facade}::create(std::make_shared<kelva::actors::Session>(domain), "
           f"\"roundtrip_{S}_{receive_facade.lower()}\", {receive_recorder});",
           "    if (exchange.sends())",
           f"        {send_facade.lower()} = ::{mod.name}::{send_facade}::create(std::make_shared<kelva::actors::Session>(domain), "
           f"\"roundtrip_{S}_{send_facade.lower()}\", {send_recorder});",
           f"    const std::vector<std::string> operations{{{names}}};",
           "    ASSERT_TRUE(exchange.step(\"ready\")) << \"the receiving side did not start\";",
           ""]
    for n, msg in enumerate(msgs):
        P = f"::{mod.name}::{msg.name}"
        out.append(f"    {P} sent_{msg.name};")
        out.append(f"    fill(sent_{msg.name}, {seed_base + n + 1}, false);")
        out.append(f"    {P} edge_{msg.name};")
        out.append(f"    fill(edge_{msg.name}, {seed_base + n + 1}, true);")
        if msg.params:
            out.append(f"    ASSERT_TRUE(sent_{msg.name} != {P}{{}}) << \"{msg.name}: the filled arguments are "
                       "the defaults\";")
    out.append("    if (exchange.sends()) {")
    for msg in msgs:
        out.append(f"        {_send(sender, msg, f'sent_{msg.name}', 'false')}")
    out += ["    }", "    int equal = 0;"] + _received(receiver, msgs, 1, "first", "sent")
    out += ["    ASSERT_TRUE(exchange.step(\"received\")) << \"the receiving side did not get every operation\";",
            "",
            "    // At the limits; what is refused is never sent, so each operation arrives once more only.",
            "    if (exchange.sends()) {"]
    for msg in msgs:
        out += _refusals(mod, iface, msg, sender)
        out.append(f"        {_send(sender, msg, f'edge_{msg.name}', 'false')}")
    out += ["    }"] + _received(receiver, msgs, 2, "last", "edge")
    out += ["    ASSERT_TRUE(exchange.step(\"limits\")) << \"the receiving side did not get every operation at its limits\";"]
    disposing = [m for m in msgs if m.dispose]
    if disposing:
        dnames = ", ".join(f"\"{m.name}\"" for m in disposing)
        out += ["", "    // Dispose the instances just written: the flag arrives set, the key unchanged.",
                f"    const std::vector<std::string> disposed{{{dnames}}};",
                "    if (exchange.sends()) {"]
        for msg in disposing:
            out.append(f"        {_send(sender, msg, f'sent_{msg.name}', 'true')}")
        out += ["    }",
                "    if (exchange.receives()) {",
                f"        ASSERT_TRUE(vantrel::test::waitUntil([&] {{ return {receiver}.reached(disposed, 3); }}, exchange.bound()))",
                "            << \"not every dispose arrived\";"]
        for msg in disposing:
            out += [f"        EXPECT_EQ({receiver}.calls(\"{msg.name}\"), 3) << \"{msg.name}\";",
                    f"        EXPECT_TRUE({receiver}.lastDispose(\"{msg.name}\")) << \"{msg.name}: dispose flag\";"]
            keys = [m for m in msg.params if m.key]
            if keys:
                out.append("        {")
                out.append(f"            const auto received = {receiver}.last_{msg.name}();")
                for k in keys:
                    out.append(f"            EXPECT_TRUE(received.{k.name} == sent_{msg.name}.{k.name})")
                    out.append(f"                << \"{msg.name}: key {k.name} of the dispose\";")
                out.append("        }")
        out.append("    }")
    out += [f"    exchange.report(static_cast<int>(2 * operations.size()), equal, {len(disposing)});",
            "    ASSERT_TRUE(exchange.step(\"done\")) << \"the receiving side did not finish\";",
            "}"]
    return out


def emit_roundtrip_test(mod: Module) -> str:
    S = short_name(mod.name)
    suite = f"{S}RoundTrip"
    out = [NOTE.format(file=mod.file.split("/")[-1]),
           "#include <cstddef>", "#include <cstdint>", "#include <limits>", "#include <map>", "#include <memory>", "#include <mutex>",
           "#include <stdexcept>", "#include <string>", "#include <type_traits>", "#include <vector>", "",
           "#include <gtest/gtest.h>", "",
           "#include \"kelva/actors/Session.h\"",
           f"#include \"vantrel/{mod.name}.h\"",
           "#include \"vantrel/test/Exchange.h\"",
           "#include \"vantrel/test/Support.h\"", "",
           "namespace {", "",
           "namespace rt {",
           "// The seed of member (or element) `index` of a value filled from `seed`; stays small and positive.",
           "inline int mix(int seed, int index) { return (seed * 7 + index + 1) % 1000003; }",
           "// A number that is never the default: true for a flag, 1..100 (or x.5) otherwise.",
           "template <class T>",
           "T num(int seed) {",
           "    if constexpr (std::is_same_v<T, bool>) {",
           "        (void)seed;",
           "        return true;",
           "    } else if constexpr (std::is_floating_point_v<T>) {",
           "        return static_cast<T>(0.5 + seed % 1000);",
           "    } else {",
           "        return static_cast<T>(1 + seed % 100);",
           "    }",
           "}",
           "// A value at one end of its type's range: the lowest (0, false) for an even seed, the highest for an odd one.",
           "template <class T>",
           "T limit(int seed) {",
           "    return seed % 2 ? std::numeric_limits<T>::max() : std::numeric_limits<T>::lowest();",
           "}",
           "// A non-empty text, cut to `bound` characters when bounded; at the limits a full one, or empty when unbounded.",
           "[[maybe_unused]] inline std::string text(int seed, std::size_t bound, bool edge) {",
           "    if (edge) return std::string(bound, 'z');",
           "    std::string s = std::to_string(seed) + \"_v\";",
           "    if (bound != 0 && s.size() > bound) s.resize(bound);",
           "    return s;",
           "}",
           "// The text of the invalid_argument that `send` throws.",
           "template <class Send>",
           "std::string refusal(Send send) {",
           "    try {",
           "        send();",
           "    } catch (const std::invalid_argument& e) {",
           "        return e.what();",
           "    }",
           "    return \"sent\";",
           "}",
           "}  // namespace rt", ""]
    structs = _reachable_structs(mod)
    packs = [msg for iface in ("IService", "IClient") for msg in mod.interfaces[iface]]
    for s in structs:
        out.append(f"void fill(::{s.module}::{s.name}& x, int seed, bool edge);")
    for msg in packs:
        out.append(f"void fill(::{mod.name}::{msg.name}& x, int seed, bool edge);")
    out.append("")
    for s in structs:
        out += _fill_function(f"::{s.module}::{s.name}", s.members) + [""]
    for msg in packs:
        out += _fill_function(f"::{mod.name}::{msg.name}", msg.params) + [""]
    out += _recorder(mod, "IService") + [""] + _recorder(mod, "IClient") + [""]
    out += ["}  // namespace", ""]
    if mod.interfaces["IService"]:
        out += _test(mod, "IService", suite, 0) + [""]
    if mod.interfaces["IClient"]:
        out += _test(mod, "IClient", suite, 1000) + [""]
    return "\n".join(out)

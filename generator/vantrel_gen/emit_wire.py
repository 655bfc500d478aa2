"""Conversions between API values and idlc's C wire structs, the text form of wire values, and the
toolkit's type traits of every message. The overloads live in the global namespace, beside the C
structs, so that the frame's sequence templates find them by argument-dependent lookup."""

from __future__ import annotations

from .cpp_names import (all_messages, api_type, class_name, is_seq, seq_bound, wire_enum,
                        wire_message, wire_struct)
from .emit_api import HEADER_NOTE
from .model import Module


def _to_wire_member(dst: str, src: str, t, where: str) -> str:
    if is_seq(t):
        return f"    vantrel::frame::toWireSeq({dst}, {src}, s, \"{where}\", {seq_bound(t)});"
    return f"    toWire({dst}, {src}, s, \"{where}\");"


def _from_wire_member(dst: str, src: str, t) -> str:
    if is_seq(t):
        return f"    vantrel::frame::fromWireSeq({dst}, {src});"
    return f"    fromWire({dst}, {src});"


def _print_members(members, var: str) -> list[str]:
    out = []
    for i, m in enumerate(members):
        sep = "" if i == 0 else ", "
        out.append(f"    os << \"{sep}{m.name}: \";")
        fn = "vantrel::frame::printSeq" if is_seq(m.type) else "print"
        out.append(f"    {fn}(os, {var}.{m.name});")
    return out


def emit_wire_header(mod: Module) -> str:
    out = [HEADER_NOTE.format(file=mod.file.split("/")[-1]), "#pragma once", "",
           "#include <ostream>", "", f"#include \"{mod.name}.h\"", f"#include \"vantrel/{mod.name}.h\""]
    for inc in mod.includes:
        out.append(f"#include \"intern/vantrel/wire/{inc}Wire.h\"")
    out += ["#include \"kelva/access/TypeTraits.h\"", "#include \"vantrel/frame/Convert.h\"", ""]
    for e in mod.enums:
        w, a, n = wire_enum(mod.name, e.name), f"::{mod.name}::{e.name}::Type", len(e.literals)
        names = ", ".join(f"\"Type::{lit}\"" for lit in e.literals)
        out += [
            f"inline void toWire({w}& o, {a} i, vantrel::frame::Scratch&, const char*) {{ vantrel::frame::setRawEnum(o, i); }}",
            f"inline void fromWire({a}& o, const {w}& i) {{ o = vantrel::frame::enumFromWire<{a}>(vantrel::frame::rawEnum(i), {n}); }}",
            f"inline void print(std::ostream& os, const {w}& v) {{",
            f"    static const char* const names[] = {{{names}}};",
            f"    const int32_t i = vantrel::frame::rawEnum(v);",
            f"    if (i >= 0 && i < {n}) os << names[i]; else os << \"Type::\" << i;",
            "}", ""]
    for st in mod.structs:
        w, a = wire_struct(mod.name, st.name), f"::{mod.name}::{st.name}"
        out += [f"VANTREL_EXPORT void toWire({w}& o, const {a}& i, vantrel::frame::Scratch& s, const char* where);",
                f"VANTREL_EXPORT void fromWire({a}& o, const {w}& i);",
                f"VANTREL_EXPORT void print(std::ostream& os, const {w}& v);", ""]
    for msg in all_messages(mod):
        w = wire_message(msg)
        out += [f"VANTREL_EXPORT void print(std::ostream& os, const {w}& v);",
                f"template <> struct kelva::access::TypeTraits<{w}> {{",
                f"    static const dds_topic_descriptor_t* descriptor() {{ return &{w}_desc; }}",
                f"    static const char* className() {{ return \"{class_name(msg)}\"; }}",
                f"    static void print(std::ostream& os, const {w}& v) {{ ::print(os, v); }}",
                "};", ""]
    return "\n".join(out)


def emit_wire_source(mod: Module) -> str:
    out = [HEADER_NOTE.format(file=mod.file.split("/")[-1]),
           f"#include \"intern/vantrel/wire/{mod.name}Wire.h\"", "", "#include <sstream>", "",
           "using vantrel::frame::fromWire;", "using vantrel::frame::print;", "using vantrel::frame::toWire;", ""]
    for st in mod.structs:
        w, a = wire_struct(mod.name, st.name), f"::{mod.name}::{st.name}"
        unused = "" if st.members else " (void)o; (void)i; (void)s;"
        out.append(f"void toWire({w}& o, const {a}& i, vantrel::frame::Scratch& s, const char*) {{{unused}")
        for m in st.members:
            out.append(_to_wire_member(f"o.{m.name}", f"i.{m.name}", m.type, f"{mod.name}::{st.name}::{m.name}"))
        out += ["}", ""]
        unused = "" if st.members else " (void)o; (void)i;"
        out.append(f"void fromWire({a}& o, const {w}& i) {{{unused}")
        for m in st.members:
            out.append(_from_wire_member(f"o.{m.name}", f"i.{m.name}", m.type))
        out += ["}", ""]
        out.append(f"void print(std::ostream& os, const {w}& v) {{")
        out.append("    os << '[';")
        out += _print_members(st.members, "v")
        out += ["    os << ']';", "}", ""]
    for e in mod.enums:
        out += [f"std::string {mod.name}::toText({e.name}::Type value) {{",
                f"    std::ostringstream os;",
                f"    {wire_enum(mod.name, e.name)} wire;",
                "    vantrel::frame::setRawEnum(wire, value);",
                "    print(os, wire);",
                "    return os.str();", "}", ""]
    for st in mod.structs:
        out += [f"std::string {mod.name}::toText(const {st.name}& value) {{",
                "    vantrel::frame::Scratch s;",
                f"    {wire_struct(mod.name, st.name)} wire{{}};",
                f"    toWire(wire, value, s, \"{mod.name}::{st.name}\");",
                "    std::ostringstream os;",
                "    print(os, wire);",
                "    return os.str();", "}", ""]
    for msg in all_messages(mod):
        out.append(f"void print(std::ostream& os, const {wire_message(msg)}& v) {{")
        out.append("    os << '[';")
        out += _print_members(msg.members, "v")
        out += ["    os << ']';", "}", ""]
    return "\n".join(out)


# Used by the sender and observer emitters.
def to_wire_member(dst, src, t, where):
    return _to_wire_member(dst, src, t, where)


def from_wire_member(dst, src, t):
    return _from_wire_member(dst, src, t)


__all__ = ["emit_wire_header", "emit_wire_source", "to_wire_member", "from_wire_member", "api_type"]

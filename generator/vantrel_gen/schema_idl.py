"""The IDL of one wire message flattened into one self-contained text: every type the message reaches, in
dependency order, each inside its modules. Recordings carry it as the channel's schema, so that a
reader decodes the messages without this project's code."""

from __future__ import annotations

from .model import Alias, Enum, Message, Struct, TypeRef

_PRIM = {"boolean": "boolean", "octet": "octet", "int16": "int16", "uint16": "uint16", "int32": "int32",
         "uint32": "uint32", "int64": "int64", "uint64": "uint64", "double": "double", "float": "float"}


def _ref(t: TypeRef) -> str:
    """How a member or element of type `t` is spelled (fully qualified names)."""
    if t.kind == "prim":
        return _PRIM[t.prim]
    if t.kind == "string":
        return "string" if t.bound is None else f"string<{t.bound}>"
    if t.kind == "sequence":
        tail = "" if t.bound is None else f", {t.bound}"
        return f"sequence<{_ref(t.element)}{tail}>"
    suffix = "::Type" if t.kind == "enum" else ""
    return f"VendorData::{t.module}::{t.name}{suffix}"


def _depends(decl) -> list:
    """The named declarations a declaration refers to directly."""
    out = []

    def visit(t: TypeRef):
        if t.kind == "sequence":
            visit(t.element)
        elif t.kind in ("enum", "struct", "alias"):
            out.append(t.target)

    if isinstance(decl, (Struct, Message)):
        for m in decl.members:
            visit(m.type)
    elif isinstance(decl, Alias):
        visit(decl.type)
    return out


def _ordered(msg: Message) -> list:
    """Every declaration the message reaches, each after what it refers to."""
    seen, order = set(), []

    def walk(decl):
        if id(decl) in seen:
            return
        seen.add(id(decl))
        for dep in _depends(decl):
            walk(dep)
        order.append(decl)

    walk(msg)
    return order


def _declare(decl) -> tuple[list[str], list[str]]:
    """(module path, lines) of one declaration."""
    if isinstance(decl, Enum):
        lits = ", ".join(decl.literals)
        return [decl.module, decl.name], [f"enum Type {{ {lits} }};"]
    if isinstance(decl, Alias):
        return [decl.module], [f"typedef {_ref(decl.type)} {decl.name};"]
    path = [decl.module] + ([decl.interface] if isinstance(decl, Message) else [])
    lines = ["@mutable", f"struct {decl.name} {{"]
    for m in decl.members:
        key = "@key " if m.key else ""
        lines.append(f"  {key}{_ref(m.type)} {m.name};")
    lines.append("};")
    return path, lines


def flattened_schema(msg: Message) -> str:
    out = []
    for decl in _ordered(msg):
        path, lines = _declare(decl)
        modules = ["VendorData"] + path
        opening = " ".join(f"module {p} {{" for p in modules)
        closing = " ".join("};" for _ in modules)
        out.append(opening)
        out += [f"  {line}" for line in lines]
        out.append(closing)
    return "\n".join(out) + "\n"

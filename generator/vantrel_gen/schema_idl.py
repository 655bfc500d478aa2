"""The IDL of one wire message flattened into one self-contained text: every type the message reaches, in
dependency order, each inside its modules. Recordings carry it as the channel's schema (encoding
`omgidl`), so that a reader decodes the messages without this project's code. A dispose sample carries
only the key: flattened_key_schema describes that.

The text is written for readers that know only a subset of IDL, while staying true to the XCDR2 bytes the
bus carries:
- No annotation declarations and no preprocessor lines.
- Every member of a struct carries its member id, `@id(N)`, as `@autoid(HASH)` gives it on the wire
  (MD5 of the member name, first four bytes little-endian, masked to 28 bits): a reader that does not
  compute hashed ids still knows, and can check, which member each member header names.
- A sequence of sequences is spelled as a sequence of a one-member struct around the inner sequence
  (readers reject a sequence of a sequence typedef); decoded, each row is {"Items": [...]}. The struct
  is @final when the inner sequence has primitive elements: no delimiter header on either side, the
  bytes are exactly those of the inner sequence. Otherwise (a sequence of structs) it is @appendable:
  its delimiter header stands for the inner sequence's, which is what readers that read no delimiter
  header before a sequence need; a reader that follows XCDR2 to the letter expects two there.
- A sequence of enumerations is spelled as a sequence of a @final struct holding one value; decoded,
  each element is {"Value": n}. The bus writes such a sequence with a delimiter header (enumerations are
  no primitive types), which readers that take enumerations for 32-bit integers would read as an
  element; a sequence of structs has the same header, and the @final struct adds nothing to the value.
"""

from __future__ import annotations

import hashlib
import struct as _struct

from .model import Alias, Enum, Message, Struct, TypeRef

_PRIM = {"boolean": "boolean", "octet": "octet", "int16": "int16", "uint16": "uint16", "int32": "int32",
         "uint32": "uint32", "int64": "int64", "uint64": "uint64", "double": "double", "float": "float"}

# The member of the struct that stands for an inner sequence, and of the one that holds an enumeration.
WRAPPED_SEQUENCE = "Items"
WRAPPED_ENUM = "Value"


def member_id(name: str) -> int:
    """The member id @autoid(HASH) gives a member: as idlc computes it for the wire."""
    digest = hashlib.md5(name.encode("utf-8")).digest()
    return _struct.unpack("<I", digest[:4])[0] & 0x0FFFFFFF


class _Wrapper:
    """A one-member struct standing for a sequence's element: an inner sequence or an enumeration."""

    def __init__(self, path: list[str], name: str, inner: TypeRef):
        self.path, self.name, self.inner = path, name, inner

    @property
    def qualified(self) -> str:
        return "::".join(["VendorData"] + self.path + [self.name])

    def lines(self) -> list[str]:
        r = self.inner.resolved()
        if r.kind == "enum":
            return ["@final @nested", f"struct {self.name} {{", f"  {_ref(r)} {WRAPPED_ENUM};", "};"]
        # No delimiter header before a sequence of primitives: @final adds none either. Any other inner
        # sequence has one, which the @appendable struct's own delimiter header stands for.
        final = r.element.resolved().kind == "prim"
        return [("@final" if final else "@appendable") + " @nested", f"struct {self.name} {{",
                f"  {_ref(r)} {WRAPPED_SEQUENCE};", "};"]


def _wrapped(t: TypeRef) -> bool:
    """Whether a sequence's element of type `t` is spelled through a wrapper struct."""
    return t.resolved().kind in ("sequence", "enum")


def _wrapper_of(t: TypeRef) -> _Wrapper:
    """The wrapper struct for `t`, a sequence's element that is a sequence or an enumeration."""
    r = t.resolved()
    if r.kind == "enum":
        return _Wrapper([r.module, r.name], "Element", r)
    if t.kind == "alias":
        return _Wrapper([t.module], f"{t.name}Element", t)
    element = r.element.resolved()
    what = element.prim if element.kind == "prim" else (element.kind if element.kind == "string" else element.name)
    bound = "" if r.bound is None else f"{r.bound}"
    return _Wrapper(["Sequences"], f"SequenceOf{what[:1].upper()}{what[1:]}{bound}", t)


def _is_seq(t: TypeRef) -> bool:
    return t.resolved().kind == "sequence"


def _spelled_out(t: TypeRef) -> bool:
    """An alias of a sequence of sequences: written out where used (its typedef would compose two
    sequence typedefs)."""
    return t.kind == "alias" and _is_seq(t) and _is_seq(t.resolved().element)


def _ref(t: TypeRef) -> str:
    """How a member or element of type `t` is spelled (fully qualified names)."""
    if t.kind == "prim":
        return _PRIM[t.prim]
    if t.kind == "string":
        return "string" if t.bound is None else f"string<{t.bound}>"
    if t.kind == "sequence":
        tail = "" if t.bound is None else f", {t.bound}"
        element = _wrapper_of(t.element).qualified if _wrapped(t.element) else _ref(t.element)
        return f"sequence<{element}{tail}>"
    if _spelled_out(t):
        return _ref(t.resolved())
    suffix = "::Type" if t.kind == "enum" else ""
    return f"VendorData::{t.module}::{t.name}{suffix}"


def _depends(decl) -> list:
    """The declarations (model ones and wrappers) a declaration refers to directly."""
    out = []

    def visit(t: TypeRef):
        if t.kind == "sequence":
            if _wrapped(t.element):
                out.append(_wrapper_of(t.element))
            else:
                visit(t.element)
        elif _spelled_out(t):
            visit(t.resolved())
        elif t.kind in ("enum", "struct", "alias"):
            out.append(t.target)

    if isinstance(decl, (Struct, Message)):
        for m in decl.members:
            visit(m.type)
    elif isinstance(decl, Alias):
        visit(decl.type)
    elif isinstance(decl, _Wrapper):
        visit(decl.inner.resolved())
    return out


def _key(decl):
    return decl.qualified if isinstance(decl, _Wrapper) else id(decl)


def _ordered(msg: Message) -> list:
    """Every declaration the message reaches, each after what it refers to."""
    seen, order = set(), []

    def walk(decl):
        if _key(decl) in seen:
            return
        seen.add(_key(decl))
        for dep in _depends(decl):
            walk(dep)
        order.append(decl)

    walk(msg)
    return order


def _members(members) -> list[str]:
    lines = []
    for m in members:
        key = "@key " if m.key else ""
        lines.append(f"  @id({member_id(m.name)}) {key}{_ref(m.type)} {m.idl_name};")
    return lines


def _declare(decl) -> tuple[list[str], list[str]]:
    """(module path, lines) of one declaration; an empty list of lines declares nothing."""
    if isinstance(decl, Enum):
        lits = ", ".join(decl.literals)
        return [decl.module, decl.name], [f"@bit_bound(32) enum Type {{ {lits} }};"]
    if isinstance(decl, Alias):
        if _is_seq(decl.type) and _is_seq(decl.type.resolved().element):
            return [decl.module], []  # spelled out where it is used
        return [decl.module], [f"typedef {_ref(decl.type)} {decl.name};"]
    if isinstance(decl, _Wrapper):
        return decl.path, decl.lines()
    path = [decl.module] + ([decl.interface] if isinstance(decl, Message) else [])
    head = "@mutable @autoid(HASH)" + (" @nested" if isinstance(decl, Struct) else "")
    return path, [head, f"struct {decl.name} {{"] + _members(decl.members) + ["};"]


def flattened_schema(msg: Message) -> str:
    out = []
    for decl in _ordered(msg):
        path, lines = _declare(decl)
        if not lines:
            continue
        modules = ["VendorData"] + path
        opening = " ".join(f"module {p} {{" for p in modules)
        closing = " ".join("};" for _ in modules)
        out.append(opening)
        out += [f"  {line}" for line in lines]
        out.append(closing)
    return "\n".join(out) + "\n"


def flattened_key_schema(msg: Message) -> str:
    """The schema of a dispose sample of `msg`: the bus carries only its key then, serialized with no
    delimiter or member headers, the key members in the order of their member ids. Spelled as a @final
    struct of the message's name holding those members."""
    keys = sorted(msg.key_members, key=lambda m: member_id(m.name))
    out = [" ".join(f"module {p} {{" for p in ["VendorData", msg.module, msg.interface]),
           "  @final", f"  struct {msg.name} {{"]
    out += [f"    {_ref(m.type.resolved())} {m.idl_name};" for m in keys]
    out += ["  };", " ".join("};" for _ in range(3))]
    return "\n".join(out) + "\n"

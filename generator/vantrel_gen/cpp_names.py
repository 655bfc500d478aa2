"""How model types are spelled in C++: the API types, the idlc C wire types and how members pass."""

from __future__ import annotations

from .model import Message, Module, TypeRef

_API_PRIM = {
    "boolean": "bool", "octet": "uint8_t", "int16": "int16_t", "uint16": "uint16_t",
    "int32": "int32_t", "uint32": "uint32_t", "int64": "int64_t", "uint64": "uint64_t",
    "double": "double", "float": "float",
}


def short_name(module: str) -> str:
    """M_Alert -> Alert: the name of the module's sources (api/Alert.cpp, ...)."""
    return module[2:] if module.startswith("M_") else module


def api_type(t: TypeRef) -> str:
    """The API spelling, always fully qualified so member names never hide type names."""
    if t.kind == "prim":
        return _API_PRIM[t.prim]
    if t.kind == "string":
        return "std::string"
    if t.kind == "sequence":
        return f"std::vector<{api_type(t.element)}>"
    if t.kind == "enum":
        return f"::{t.module}::{t.name}::Type"
    return f"::{t.module}::{t.name}"


def by_value(t: TypeRef) -> bool:
    r = t.resolved()
    return r.kind in ("prim", "enum")


def param_type(t: TypeRef) -> str:
    return api_type(t) if by_value(t) else f"const {api_type(t)}&"


def wire_struct(module: str, name: str) -> str:
    return f"VendorData_{module}_{name}"


def wire_enum(module: str, name: str) -> str:
    return f"VendorData_{module}_{name}_Type"


def wire_message(msg: Message) -> str:
    return f"VendorData_{msg.module}_{msg.interface}_{msg.name}"


def class_name(msg: Message) -> str:
    return f"VendorData::{msg.module}::{msg.interface}::{msg.name}"


def seq_bound(t: TypeRef) -> int:
    """The bound of a (possibly aliased) sequence, 0 when unbounded."""
    return t.resolved().bound or 0


def is_seq(t: TypeRef) -> bool:
    return t.resolved().kind == "sequence"


def other_interface(iface: str) -> str:
    return "IClient" if iface == "IService" else "IService"


def all_messages(mod: Module):
    for iface in ("IService", "IClient"):
        yield from mod.interfaces[iface]

"""The Python module of a module (`vantrel.M_X`): value classes, enumerations, aliases, the IService / IClient
interfaces and the Client / Service facades. Thin declarations only: conversion, text form, sending and
receiving live in the hand-written package (python/vantrel) and its extension, which read the wire layout
from the run-time catalogue; the classes here give the names, member order and defaults."""

from __future__ import annotations

import json
import keyword

from .emit_api import _decls_in_file_order, operation_params
from .idl_reader import IdlError
from .model import Enum, Message, Module, Struct, TypeRef
from .versions import interface_version

NOTE = "# Generated from idl/{file} by the vantrel generator. Do not edit."

_PRIM_CLASS = {"boolean": "bool", "double": "float", "float": "float"}  # every other primitive: int


def py_name(name: str) -> str:
    """A member, argument or literal name as Python can spell it: a keyword gets a trailing underscore."""
    return name + "_" if keyword.iskeyword(name) else name


def param_name(name: str) -> str:
    """An operation argument's name; also clear of `self` and the trailing `dispose` flag."""
    return name + "_" if keyword.iskeyword(name) or name in ("self", "dispose") else name


def _ref(module: str, t_module: str, name: str) -> str:
    """A class of `t_module` named from inside `module`."""
    return name if t_module == module else f"{t_module}.{name}"


def _is_bytes(r: TypeRef) -> bool:
    """A list of octets (not an optional one) is `bytes` in Python."""
    return r.kind == "sequence" and r.bound != 1 and r.element.resolved().kind == "prim" \
        and r.element.resolved().prim == "octet"


def _python_class(module: str, t: TypeRef) -> str:
    """The Python class an alias stands for."""
    r = t.resolved()
    if r.kind == "prim":
        return _PRIM_CLASS.get(r.prim, "int")
    if r.kind == "string":
        return "str"
    if r.kind == "sequence":
        return "bytes" if _is_bytes(r) else "list"
    return _ref(module, r.module, r.name)


def _default(module: str, t: TypeRef) -> tuple[str, str | None]:
    """(default in the signature, expression made per call for a mutable default or None)."""
    r = t.resolved()
    if r.kind == "prim":
        return {"boolean": "False", "double": "0.0", "float": "0.0"}.get(r.prim, "0"), None
    if r.kind == "string":
        return '""', None
    if r.kind == "enum":
        return f"{_ref(module, r.module, r.name)}.{py_name(r.target.literals[0])}", None
    if r.kind == "sequence":
        return ('b""', None) if _is_bytes(r) else ("None", "[]")
    return "None", f"{_ref(module, r.module, r.name)}()"


def _enum(e: Enum) -> list[str]:
    out = [f"class {e.name}(_enum.IntEnum):",
           f'    """{e.module}::{e.name}::Type (text form "Type::<literal>")."""']
    out += [f"    {py_name(lit)} = {i}" for i, lit in enumerate(e.literals)]
    return out


def _value_class(module: str, s: Struct) -> list[str]:
    out = [f"class {s.name}(_values.Value):"]
    if s.members:
        out += [f'    """{s.module}::{s.name}', ""] + [f"    {m.name}: {m.type}" for m in s.members] + ['    """']
    else:
        out.append(f'    """{s.module}::{s.name} (no members)"""')
    out.append(f"    __slots__ = ({''.join(repr(py_name(m.name)) + ', ' for m in s.members).rstrip()})")
    if not s.members:
        return out
    params, body = [], []
    for m in s.members:
        name = py_name(m.name)
        default, fresh = _default(module, m.type)
        params.append(f"{name}={default}")
        body.append(f"        self.{name} = {fresh} if {name} is None else {name}" if fresh
                    else f"        self.{name} = {name}")
    out += ["", f"    def __init__(self, {', '.join(params)}):"] + body
    return out


def _signature(msg: Message) -> str:
    return f"void {msg.name}({', '.join(operation_params(msg))})".replace("::M_", "M_")


def _interface(mod: Module, iface: str) -> list[str]:
    doc = ("Client to service" if iface == "IService" else "Service to clients") + \
        ": every operation's default body logs a warning; override what you handle."
    out = [f"class {iface}(_facades.Interface):", f'    """{doc}"""']
    for msg in mod.interfaces[iface]:
        params = ["self"] + [param_name(p.name) for p in msg.params] + (["dispose"] if msg.dispose else [])
        out += ["", f"    def {msg.name}({', '.join(params)}):",
                f'        """{_signature(msg)}"""',
                f'        _facades.default_body("{mod.name}::{iface}::{msg.name}")']
    return out


def _facade(mod: Module, facade: str, sends: str, receives: str, first_index: int) -> list[str]:
    base = "ClientFacade" if facade == "Client" else "ServiceFacade"
    out = [f"class {facade}(_facades.{base}):",
           f'    """Sends the {sends} operations of {mod.name}, receives its {receives} ones."""',
           "    __slots__ = ()", "    _module = ModuleName", f"    _interface = {receives}"]
    for i, msg in enumerate(mod.interfaces[sends]):
        names = [param_name(p.name) for p in msg.params]
        params = ["self"] + names + (["dispose=False"] if msg.dispose else [])
        args = f"({names[0]},)" if len(names) == 1 else f"({', '.join(names)})"
        out += ["", f"    def {msg.name}({', '.join(params)}):",
                f'        """{_signature(msg)}"""',
                f"        self._core.send({first_index + i}, {args}, {'dispose' if msg.dispose else 'False'})"]
    return out


# Names the Python module declares itself or uses unqualified: no declaration of the IDL may take them.
_RESERVED = {"ModuleName", "IService", "IClient", "Client", "Service", "bool", "int", "float", "str", "bytes", "list"}


def _check_names(mod: Module) -> None:
    for kind, d in _decls_in_file_order(mod):
        if d.name in _RESERVED or d.name in mod.includes or d.name.startswith("_"):
            raise IdlError(mod.file, d.line, f"{d.name}: the Python module of {mod.name} cannot declare this name")


def emit_python_module(mod: Module) -> str:
    M = mod.name
    _check_names(mod)
    version = interface_version(mod)
    out = [NOTE.format(file=mod.file.split("/")[-1]),
           f'"""{M}, interface version {version}: value types and enumerations' +
           ("; the IService / IClient interfaces\nand the Client / Service facades." if mod.has_interfaces else ".") +
           '"""', ""] + (["import enum as _enum", ""] if mod.enums else []) + ["from vantrel import _values"]
    if mod.has_interfaces:
        out.append("from vantrel import _facades")
    out += [f"from vantrel import {inc}" for inc in mod.includes]
    out += ["", f'ModuleName = "{M}"']
    out += [f"{name} = {json.dumps(value)}" for name, value in mod.consts.items()]
    for kind, d in _decls_in_file_order(mod):
        if kind == "enum":
            out += ["", ""] + _enum(d)
        elif kind == "alias":
            out += ["", "", f"{d.name} = {_python_class(M, d.type)}  # {d.type}"]
        else:
            out += ["", ""] + _value_class(M, d)
    if mod.has_interfaces:
        n_service = len(mod.interfaces["IService"])
        out += ["", ""] + _interface(mod, "IService") + ["", ""] + _interface(mod, "IClient")
        out += ["", ""] + _facade(mod, "Client", "IService", "IClient", 0)
        out += ["", ""] + _facade(mod, "Service", "IClient", "IService", n_service)
    out += ["", "", "_values.bind(ModuleName, globals())", ""]
    return "\n".join(out)


"""The model the generator works on: what one module's IDL file declares.

All names are the wire/API names (an escaping underscore is removed); `Member.idl_name` keeps the
spelling of the IDL file for the places that must write IDL-facing code.
"""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Optional, Union

SENDING_ACTOR = "kelva_sending_actor"
INTERFACES = ("IService", "IClient")


@dataclass
class TypeRef:
    """A use of a type. kind: 'prim', 'string', 'sequence', 'enum', 'struct' or 'alias'."""

    kind: str
    prim: Optional[str] = None          # 'prim': the IDL keyword (int32, double, ...)
    bound: Optional[int] = None         # 'string' / 'sequence': None when unbounded
    element: Optional[TypeRef] = None   # 'sequence'
    module: Optional[str] = None        # named kinds: declaring module (M_X)
    name: Optional[str] = None          # named kinds: type name (an enum's wrapper name)
    # The declaration itself; left out of ==/repr so they stay shallow.
    target: Union[Enum, Struct, Alias, None] = field(default=None, repr=False, compare=False)

    def resolved(self) -> TypeRef:
        """The type behind any chain of aliases (self when not an alias)."""
        t = self
        while t.kind == "alias":
            t = t.target.type
        return t

    def __str__(self) -> str:
        if self.kind == "prim":
            return self.prim
        if self.kind == "string":
            return "string" if self.bound is None else f"string<{self.bound}>"
        if self.kind == "sequence":
            tail = "" if self.bound is None else f", {self.bound}"
            return f"sequence<{self.element}{tail}>"
        suffix = "::Type" if self.kind == "enum" else ""
        return f"{self.module}::{self.name}{suffix}"


@dataclass
class Enum:
    module: str
    name: str                            # the wrapper module (AlarmCategoryKind); the enum is its `Type`
    literals: list[str] = field(default_factory=list)   # value = index; literal 0 is the default
    line: int = field(default=0, compare=False)


@dataclass
class Alias:
    module: str
    name: str
    type: TypeRef
    line: int = field(default=0, compare=False)


@dataclass
class Member:
    name: str                            # wire/API name (BitMask)
    idl_name: str                        # as written in IDL (_BitMask)
    type: TypeRef
    key: bool = False
    line: int = field(default=0, compare=False)


@dataclass
class Struct:
    """A value type (always @nested in this contract)."""

    module: str
    name: str
    members: list[Member] = field(default_factory=list)
    nested: bool = True
    line: int = field(default=0, compare=False)


@dataclass
class Message:
    """The wire message of one operation: VendorData::<module>::<interface>::<name>."""

    module: str
    interface: str                       # 'IService' or 'IClient'
    name: str
    members: list[Member] = field(default_factory=list)   # kelva_sending_actor first
    dispose: bool = False                # the API operation ends in a bool dispose flag
    line: int = field(default=0, compare=False)

    @property
    def params(self) -> list[Member]:
        """The operation's arguments (everything after kelva_sending_actor)."""
        return self.members[1:]

    @property
    def key_members(self) -> list[Member]:
        return [m for m in self.members if m.key]

    @property
    def key_pattern(self) -> str:
        """'none', 'actor', 'actor+key' or 'key' (Key... members without the actor)."""
        actor = bool(self.members) and self.members[0].key
        other = any(m.key for m in self.params)
        if actor:
            return "actor+key" if other else "actor"
        return "key" if other else "none"


@dataclass
class Module:
    name: str                            # M_X
    file: str                            # path the file was read from
    includes: list[str] = field(default_factory=list)       # modules of the files it #includes
    enums: list[Enum] = field(default_factory=list)
    aliases: list[Alias] = field(default_factory=list)
    structs: list[Struct] = field(default_factory=list)     # value types, in file order
    interfaces: dict[str, list[Message]] = field(
        default_factory=lambda: {name: [] for name in INTERFACES})
    consts: dict[str, str] = field(default_factory=dict)
    has_interfaces: bool = False         # False for a module of types only
    include_files: list[str] = field(default_factory=list)  # the #include names as written

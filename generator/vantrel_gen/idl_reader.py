"""Reader for the IDL subset of the wire contract (idl/README.md).

It accepts exactly what the module files use and rejects everything else with "file:line: what", so a
slip in an IDL file stops the generator instead of producing C++ that silently disagrees with the wire
types idlc builds from the same file.
"""

from __future__ import annotations

import glob
import os
import re
from typing import NamedTuple, Optional

from .model import (INTERFACES, SENDING_ACTOR, Alias, Enum, Member, Message, Module, Struct,
                    TypeRef)


class IdlError(Exception):
    def __init__(self, file: str, line: int, what: str):
        super().__init__(f"{file}:{line}: {what}")
        self.file, self.line, self.what = file, line, what


# IDL 4 keywords. An identifier equal to one of them ignoring case must be escaped (`_Port`), as
# other IDL compilers than ours reject more of these than idlc does.
KEYWORDS = frozenset("""
    abstract any alias attribute bitfield bitmask bitset boolean case char component connector const
    consumes context custom default double exception emits enum eventtype factory FALSE finder fixed
    float getraises getter home import in inout interface local long manages map mirrorport module
    multiple native Object octet oneway out primarykey private port porttype provides public publishes
    raises readonly setraises setter sequence short string struct supports switch TRUE truncatable
    typedef typeid typename typeprefix unsigned union uses ValueBase valuetype void wchar wstring
    int8 uint8 int16 int32 int64 uint16 uint32 uint64""".split())
_KEYWORDS_LOWER = {k.lower(): k for k in KEYWORDS}

PRIMITIVES = frozenset(
    "boolean octet int16 uint16 int32 uint32 int64 uint64 double float".split())

# Annotations of the subset and the one argument each takes (None: no argument).
_ANNOTATION_ARG = {"mutable": None, "nested": None, "key": None, "autoid": "HASH",
                   "bit_bound": "32", "vantrel_dispose": None}
_BUILTIN_ANNOTATIONS = {"mutable", "nested", "key", "autoid", "bit_bound"}


# ---------------------------------------------------------------------------------------------------
# Tokens

class Token(NamedTuple):
    kind: str            # 'id', 'int', 'str', 'punct', 'dir' (preprocessor line) or 'eof'
    text: str            # for 'dir': the directive name (ifndef, define, endif, include)
    line: int
    arg: Optional[str] = None   # for 'dir': the guard macro or the include file name


_ID = re.compile(r"[A-Za-z_][A-Za-z0-9_]*")
_INT = re.compile(r"[0-9]+(?![A-Za-z0-9_.])")
_STRING = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
_STRING_ESCAPES = {"n": "\n", "t": "\t", "\\": "\\", '"': '"', "'": "'"}
_DIRECTIVE = re.compile(r"#[ \t]*([A-Za-z_]*)([^\n]*)")
_DIRECTIVE_ARG = {  # what may follow each directive (a trailing // comment is allowed)
    "ifndef": re.compile(r"\s+([A-Za-z_]\w*)\s*(?://.*)?$"),
    "define": re.compile(r"\s+([A-Za-z_]\w*)\s*(?://.*)?$"),
    "endif": re.compile(r"()\s*(?://.*)?$"),
    "include": re.compile(r'\s*"([^"]+)"\s*(?://.*)?$'),
}
# ':' and '[' ']' belong to no accepted construct; as tokens they let the parser name what is outside.
_PUNCT = ("::", ":", "{", "}", ";", "<", ">", ",", "(", ")", "=", "@", "[", "]")


def tokenize(text: str, path: str) -> list[Token]:
    toks: list[Token] = []
    i, line, n = 0, 1, len(text)
    line_start = True                  # nothing but blanks since the last newline
    while i < n:
        c = text[i]
        if c == "\n":
            line, i, line_start = line + 1, i + 1, True
        elif c in " \t\r\f\v":
            i += 1
        elif text.startswith("//", i):
            end = text.find("\n", i)
            i = n if end < 0 else end
        elif text.startswith("/*", i):
            end = text.find("*/", i + 2)
            if end < 0:
                raise IdlError(path, line, "unterminated /* comment")
            line += text.count("\n", i, end)
            i = end + 2
        elif c == "#":
            m = _DIRECTIVE.match(text, i)
            name, rest = m.group(1), m.group(2)
            if not line_start:
                raise IdlError(path, line, f"#{name} must start a line")
            if name not in _DIRECTIVE_ARG:
                raise IdlError(path, line, f"#{name} is outside the subset")
            arg = _DIRECTIVE_ARG[name].match(rest)
            if not arg:
                raise IdlError(path, line, f"malformed #{name}")
            toks.append(Token("dir", name, line, arg.group(1)))
            i = m.end()
        else:
            line_start = False
            for pattern, kind in ((_ID, "id"), (_INT, "int"), (_STRING, "str")):
                m = pattern.match(text, i)
                if m:
                    value = _unescape(m.group(1), path, line) if kind == "str" else m.group(0)
                    toks.append(Token(kind, value, line))
                    i = m.end()
                    break
            else:
                p = next((p for p in _PUNCT if text.startswith(p, i)), None)
                if p is None:
                    raise IdlError(path, line, f"unexpected character {c!r}")
                toks.append(Token("punct", p, line))
                i += len(p)
    # End of file is reported on the last line, not on the empty one after the final newline.
    toks.append(Token("eof", "", line - 1 if text.endswith("\n") and line > 1 else line))
    return toks


def _unescape(body: str, path: str, line: int) -> str:
    def one(m):
        if m.group(1) not in _STRING_ESCAPES:
            raise IdlError(path, line, f"escape \\{m.group(1)} is outside the subset")
        return _STRING_ESCAPES[m.group(1)]
    return re.sub(r"\\(.)", one, body)


def _describe(t: Token) -> str:
    return {"eof": "end of file", "str": "a string", "dir": f"#{t.text}"}.get(t.kind, f"'{t.text}'")


# ---------------------------------------------------------------------------------------------------
# Loader: files, includes and the declarations every file can see

class _Decl(NamedTuple):
    kind: str            # 'module', 'enum', 'literal', 'alias', 'struct', 'message', 'const'
    qname: tuple         # exact qualified name, e.g. ('VendorData', 'M_Alert', 'AlertIdType')
    obj: object
    file_key: str
    path: str
    line: int


class _File:
    def __init__(self, path: str, key: str):
        self.path, self.key = path, key
        self.module: Optional[Module] = None
        self.visible = {key}           # this file and everything it includes, transitively
        self.include_modules: list[str] = []
        self.include_files: list[str] = []


class _Loader:
    def __init__(self, include_dirs):
        self.include_dirs = list(include_dirs)
        self.files: dict[str, _File] = {}          # realpath -> file read completely
        self.loading: list[str] = []               # realpaths being read (include cycles)
        self.decls: dict[tuple, _Decl] = {}        # lower-cased qualified name -> declaration
        self.annotations: dict[str, str] = {}      # declared annotation -> file key

    def load_file(self, path: str, at: Optional[tuple] = None) -> _File:
        """Read `path` once; `at` is the (file, line) of the #include that asks for it."""
        key = os.path.realpath(path)
        if key in self.files:
            return self.files[key]
        where = at or (path, 0)
        if key in self.loading:
            raise IdlError(*where, f"include cycle through {path}")
        try:
            with open(path, encoding="utf-8") as fh:
                text = fh.read()
        except OSError as e:
            raise IdlError(*where, f"cannot read {path}: {e.strerror}") from None
        self.loading.append(key)
        f = _File(path, key)
        _Parser(self, f, tokenize(text, path)).parse_file()
        self.loading.pop()
        self.files[key] = f
        return f

    def find_include(self, name: str, including: str) -> Optional[str]:
        for d in [os.path.dirname(including)] + self.include_dirs:
            candidate = os.path.normpath(os.path.join(d, name))
            if os.path.isfile(candidate):
                return candidate
        return None


def _lower(qname) -> tuple:
    return tuple(s.lower() for s in qname)


# ---------------------------------------------------------------------------------------------------
# Parser of one file

# Where each role sits, for "X is not allowed <where>".
_PLACE = {
    "global": "outside module VendorData",
    "outer": "directly in module VendorData (it holds the file's M_ module)",
    "module": "directly in an M_ module (an enum goes into its own wrapper module)",
    "enum": "in an enumeration module (it holds only `enum Type`)",
    "iface": "in an interface module (it holds only messages)",
}
# Which declarations each role holds.
_ALLOWED = {
    "global": {"module"},
    "outer": {"module"},
    "module": {"module", "struct", "typedef", "const"},
    "enum": {"enum"},
    "iface": {"struct"},
}


class _Anno(NamedTuple):
    name: str
    arg: Optional[str]
    line: int


class _Parser:
    def __init__(self, loader: _Loader, f: _File, toks: list[Token]):
        self.L, self.f, self.toks, self.pos = loader, f, toks, 0
        self.stem = os.path.splitext(os.path.basename(f.path))[0]

    # -- token helpers

    def err(self, line: int, what: str) -> IdlError:
        return IdlError(self.f.path, line, what)

    def peek(self, ahead: int = 0) -> Token:
        return self.toks[min(self.pos + ahead, len(self.toks) - 1)]

    def next(self) -> Token:
        t = self.peek()
        self.pos += 1
        return t

    def at(self, text: str, kind: str = "punct") -> bool:
        t = self.peek()
        return t.kind == kind and t.text == text

    def accept(self, text: str, kind: str = "punct") -> bool:
        if self.at(text, kind):
            self.pos += 1
            return True
        return False

    def expect(self, text: str, kind: str = "punct") -> Token:
        t = self.next()
        if t.kind != kind or t.text != text:
            raise self.err(t.line, f"expected '{text}', found {_describe(t)}")
        return t

    def ident(self, what: str) -> tuple[str, str, int]:
        """An identifier: (name without escaping underscore, name as written, line)."""
        t = self.next()
        if t.kind != "id":
            raise self.err(t.line, f"expected {what}, found {_describe(t)}")
        if t.text in KEYWORDS:
            raise self.err(t.line, f"expected {what}, found keyword '{t.text}'")
        kw = _KEYWORDS_LOWER.get(t.text.lower())
        if kw:
            raise self.err(t.line, f"'{t.text}' collides with the IDL keyword '{kw}': write _{t.text}")
        name = t.text[1:] if t.text.startswith("_") else t.text
        if not name[:1].isalpha():
            raise self.err(t.line, f"'{t.text}' is not a valid identifier")
        return name, t.text, t.line

    def positive_int(self) -> int:
        t = self.next()
        if t.kind != "int" or int(t.text) <= 0:
            raise self.err(t.line, f"expected a positive bound, found {_describe(t)}")
        return int(t.text)

    # -- file level

    def parse_file(self):
        t = self.next()
        if t.kind != "dir" or t.text != "ifndef":
            raise self.err(t.line, "the file must start with its include guard (#ifndef)")
        guard = t.arg
        t = self.next()
        if t.kind != "dir" or t.text != "define" or t.arg != guard:
            raise self.err(t.line, f"expected '#define {guard}' after '#ifndef {guard}'")
        while True:
            t = self.peek()
            if t.kind == "eof":
                raise self.err(t.line, f"missing #endif of the include guard {guard}")
            if t.kind != "dir":
                self.definition((), "global")
                continue
            self.next()
            if t.text == "include":
                self.include(t)
            elif t.text == "endif":
                if self.peek().kind != "eof":
                    raise self.err(self.peek().line, "text after the closing #endif")
                break
            else:
                raise self.err(t.line, f"#{t.text} is allowed only as the include guard")
        if self.f.module:
            self.f.module.includes = self.f.include_modules
            self.f.module.include_files = self.f.include_files

    def include(self, t: Token):
        path = self.L.find_include(t.arg, self.f.path)
        if path is None:
            raise self.err(t.line, f"cannot find include file \"{t.arg}\"")
        inc = self.L.load_file(path, (self.f.path, t.line))
        self.f.visible |= inc.visible
        self.f.include_files.append(t.arg)
        if inc.module and inc.module.name not in self.f.include_modules:
            self.f.include_modules.append(inc.module.name)

    # -- declarations

    def definition(self, scope: tuple, role: str):
        t = self.peek()
        if t.kind == "dir":
            raise self.err(t.line, f"#{t.text} must be outside all modules")
        if self.at("@") and self.peek(1).kind == "id" and self.peek(1).text == "annotation":
            if role != "global":
                raise self.err(t.line, "@annotation declarations belong outside all modules")
            return self.annotation_decl()
        annos = self.annotations()
        t = self.peek()
        if t.kind != "id" or t.text not in KEYWORDS:
            raise self.err(t.line, f"expected a declaration, found {_describe(t)}")
        if t.text not in ("module", "struct", "enum", "typedef", "const"):
            raise self.err(t.line, f"'{t.text}' is outside the subset")
        if t.text not in _ALLOWED[role]:
            raise self.err(t.line, f"'{t.text}' is not allowed {_PLACE[role]}")
        if annos and t.text not in ("struct", "enum"):
            raise self.err(annos[0].line, f"@{annos[0].name} is not allowed on '{t.text}'")
        self.next()
        if t.text == "module":
            self.module_decl(scope, role, t.line)
        elif t.text == "struct":
            self.struct_decl(scope, role, annos, t.line)
        elif t.text == "enum":
            self.enum_decl(scope, annos)
        elif t.text == "typedef":
            self.typedef_decl(scope)
        else:
            self.const_decl(scope)

    def annotation_decl(self):
        self.expect("@")
        self.next()                                      # 'annotation'
        name, _, line = self.ident("an annotation name")
        if name in self.L.annotations or name in _BUILTIN_ANNOTATIONS:
            raise self.err(line, f"annotation @{name} is already declared")
        self.expect("{")
        if not self.at("}"):
            raise self.err(self.peek().line, "annotation members are outside the subset")
        self.expect("}")
        self.expect(";")
        self.L.annotations[name] = self.f.key

    def annotations(self) -> list[_Anno]:
        annos = []
        while self.accept("@"):
            t = self.next()
            if t.kind != "id":
                raise self.err(t.line, f"expected an annotation name, found {_describe(t)}")
            arg = None
            if self.accept("("):
                a = self.next()
                if a.kind not in ("id", "int"):
                    raise self.err(a.line, f"unexpected annotation argument {_describe(a)}")
                arg = a.text
                self.expect(")")
            annos.append(_Anno(t.text, arg, t.line))
        return annos

    def check_annotations(self, annos: list[_Anno], allowed: set, place: str) -> dict:
        seen = {}
        for a in annos:
            if a.name not in _ANNOTATION_ARG:
                raise self.err(a.line, f"@{a.name} is outside the subset")
            # Our own annotations must be declared in a file this one includes, or idlc rejects them.
            if a.name not in _BUILTIN_ANNOTATIONS and self.L.annotations.get(a.name) not in self.f.visible:
                raise self.err(a.line, f"@{a.name} is not declared (include vantrel_annotations.idl)")
            if a.name not in allowed:
                raise self.err(a.line, f"@{a.name} is not allowed on {place}")
            if a.name in seen:
                raise self.err(a.line, f"@{a.name} repeated")
            want = _ANNOTATION_ARG[a.name]
            if a.arg != want:
                raise self.err(a.line, f"write @{a.name}" + (f"({want})" if want else ""))
            seen[a.name] = a
        return seen

    def declare(self, scope: tuple, name: str, line: int, kind: str, obj=None):
        qname = scope + (name,)
        old = self.L.decls.get(_lower(qname))
        if old:
            if kind == "module" and old.kind == "module" and qname == ("VendorData",):
                return                                   # VendorData reopens in every file
            where = "::".join(scope) or "the global scope"
            raise self.err(line, f"'{name}' is already declared in {where} ({old.path}:{old.line})")
        self.L.decls[_lower(qname)] = _Decl(kind, qname, obj, self.f.key, self.f.path, line)

    def module_decl(self, scope: tuple, role: str, line: int):
        name, _, nline = self.ident("a module name")
        if role == "global":
            if name != "VendorData":
                raise self.err(nline, f"the outer module must be VendorData, not '{name}'")
            inner = "outer"
        elif role == "outer":
            if name != self.stem:
                raise self.err(nline, f"module '{name}' in {os.path.basename(self.f.path)}: "
                                      f"the file of module {name} is {name}.idl")
            self.f.module = Module(name=name, file=self.f.path)
            inner = "module"
        else:
            inner = "iface" if name in INTERFACES else "enum"
        self.declare(scope, name, nline, "module")
        self.expect("{")
        if self.at("}"):
            raise self.err(self.peek().line, f"module '{name}' is empty")
        while not self.accept("}"):
            self.definition(scope + (name,), inner)
        self.expect(";")
        if inner == "iface":
            self.f.module.has_interfaces = True
        elif inner == "enum" and _lower(scope + (name, "Type")) not in self.L.decls:
            raise self.err(nline, f"enumeration module '{name}' holds no `enum Type`")

    def enum_decl(self, scope: tuple, annos: list[_Anno]):
        name, _, line = self.ident("an enum name")
        if "bit_bound" not in self.check_annotations(annos, {"bit_bound"}, "an enum"):
            raise self.err(line, "enumerations are 32-bit: write @bit_bound(32)")
        if name != "Type":
            raise self.err(line, f"the enum of enumeration module '{scope[-1]}' is named Type, not '{name}'")
        enum = Enum(module=self.f.module.name, name=scope[-1], line=line)
        self.declare(scope, name, line, "enum", enum)
        self.expect("{")
        while True:
            lit, _, lline = self.ident("an enumeration literal")
            self.declare(scope, lit, lline, "literal")   # IDL puts literals in the enclosing scope
            enum.literals.append(lit)
            if not self.accept(","):
                break
        self.expect("}")
        self.expect(";")
        self.f.module.enums.append(enum)

    def typedef_decl(self, scope: tuple):
        type_ = self.type_spec(scope)
        name, _, line = self.ident("a type name")
        if self.at("["):
            raise self.err(self.peek().line, "arrays are outside the subset")
        self.expect(";")
        alias = Alias(module=self.f.module.name, name=name, type=type_, line=line)
        self.declare(scope, name, line, "alias", alias)
        self.f.module.aliases.append(alias)

    def const_decl(self, scope: tuple):
        t = self.next()
        if t.kind != "id" or t.text != "string":
            raise self.err(t.line, "only string constants are in the subset")
        name, _, line = self.ident("a constant name")
        self.expect("=")
        value = self.next()
        if value.kind != "str":
            raise self.err(value.line, f"expected a string literal, found {_describe(value)}")
        self.expect(";")
        self.declare(scope, name, line, "const")
        self.f.module.consts[name] = value.text

    def struct_decl(self, scope: tuple, role: str, annos: list[_Anno], line: int):
        is_message = role == "iface"
        name, _, nline = self.ident("a struct name")
        place = "a message" if is_message else "a value type"
        allowed = {"mutable", "autoid", "nested"} | ({"vantrel_dispose"} if is_message else set())
        seen = self.check_annotations(annos, allowed, place)
        for required in ("mutable", "autoid") + (() if is_message else ("nested",)):
            if required not in seen:
                spelled = "@autoid(HASH)" if required == "autoid" else f"@{required}"
                raise self.err(nline, f"{place} '{name}' is missing {spelled}")
        if is_message and "nested" in seen:
            raise self.err(seen["nested"].line, f"message '{name}' must not be @nested")
        if self.at(";"):
            raise self.err(self.peek().line, "forward declarations are outside the subset")
        self.expect("{")
        members: list[Member] = []
        names = {}
        while not self.at("}"):
            m = self.member(scope)
            if m.name.lower() in names:
                raise self.err(m.line, f"member '{m.name}' repeated in '{name}'")
            names[m.name.lower()] = m
            members.append(m)
        if not members:
            raise self.err(nline, f"struct '{name}' has no members")
        self.expect("}")
        self.expect(";")
        if not is_message:
            obj = Struct(module=self.f.module.name, name=name, members=members, nested=True, line=nline)
            self.declare(scope, name, nline, "struct", obj)
            self.f.module.structs.append(obj)
            return
        first = members[0]
        if first.name != SENDING_ACTOR or first.type.kind != "string" or first.type.bound is not None:
            raise self.err(first.line, f"message '{name}' must start with 'string {SENDING_ACTOR}'")
        dispose = "vantrel_dispose" in seen
        if dispose and not any(m.key for m in members):
            raise self.err(nline, f"message '{name}' is @vantrel_dispose but has no @key member")
        msg = Message(module=self.f.module.name, interface=scope[-1], name=name, members=members,
                      dispose=dispose, line=nline)
        self.declare(scope, name, nline, "message", msg)
        self.f.module.interfaces[scope[-1]].append(msg)

    def member(self, scope: tuple) -> Member:
        key = "key" in self.check_annotations(self.annotations(), {"key"}, "a member")
        type_ = self.type_spec(scope)
        name, idl_name, line = self.ident("a member name")
        if self.at("["):
            raise self.err(self.peek().line, "arrays are outside the subset")
        if self.at(","):
            raise self.err(self.peek().line, "declare one member per line")
        self.expect(";")
        return Member(name=name, idl_name=idl_name, type=type_, key=key, line=line)

    # -- types

    def type_spec(self, scope: tuple) -> TypeRef:
        t = self.peek()
        if t.kind == "id" and t.text in PRIMITIVES:
            self.next()
            return TypeRef("prim", prim=t.text)
        if self.accept("string", "id"):
            bound = None
            if self.accept("<"):
                bound = self.positive_int()
                self.expect(">")
            return TypeRef("string", bound=bound)
        if self.accept("sequence", "id"):
            self.expect("<")
            element = self.type_spec(scope)
            bound = self.positive_int() if self.accept(",") else None
            self.expect(">")
            return TypeRef("sequence", element=element, bound=bound)
        if t.kind == "id" and t.text in KEYWORDS:
            raise self.err(t.line, f"type '{t.text}' is outside the subset")
        if t.kind == "id" or self.at("::"):
            return self.named_type(scope)
        raise self.err(t.line, f"expected a type, found {_describe(t)}")

    def named_type(self, scope: tuple) -> TypeRef:
        line = self.peek().line
        absolute = self.accept("::")
        parts = [self.ident("a type name")[0]]
        while self.accept("::"):
            parts.append(self.ident("a type name")[0])
        spelled = ("::" if absolute else "") + "::".join(parts)
        candidates = [()] if absolute else [scope[:i] for i in range(len(scope), -1, -1)]
        for prefix in candidates:               # innermost enclosing scope first, as IDL looks up
            d = self.L.decls.get(_lower(prefix + tuple(parts)))
            if d and d.file_key in self.f.visible:
                break
        else:
            raise self.err(line, f"unknown type '{spelled}'")
        if d.qname[-len(parts):] != tuple(parts):
            raise self.err(line, f"'{spelled}' differs in case from '{'::'.join(d.qname)}'")
        if d.kind in ("enum", "struct", "alias"):
            return TypeRef(d.kind, module=d.obj.module, name=d.obj.name, target=d.obj)
        if d.kind == "module" and _lower(d.qname + ("Type",)) in self.L.decls:
            raise self.err(line, f"'{spelled}' is an enumeration module: write {spelled}::Type")
        what = {"message": "a message", "module": "a module"}.get(d.kind, "a constant or literal")
        raise self.err(line, f"'{spelled}' is {what}, not a type")


# ---------------------------------------------------------------------------------------------------
# Entry points

def load(path: str, include_dirs=()) -> Module:
    """Read one module file (and, once each, the files it includes)."""
    f = _Loader(include_dirs).load_file(os.path.normpath(path))
    if f.module is None:
        raise IdlError(f.path, 1, "the file declares no M_ module")
    return f.module


def load_all(idl_dir: str) -> dict[str, Module]:
    """Read every M_*.idl of a folder; files shared through includes are read once."""
    loader = _Loader([idl_dir])
    modules = {}
    for path in sorted(glob.glob(os.path.join(idl_dir, "M_*.idl"))):
        f = loader.load_file(os.path.normpath(path))
        if f.module is None:
            raise IdlError(f.path, 1, "the file declares no M_ module")
        modules[f.module.name] = f.module
    return modules

"""Writes every generated file of every module of an IDL folder into an output folder, touching only files
whose content changed (so a build recompiles only what really changed)."""

from __future__ import annotations

import os

from .cpp_names import short_name
from .emit_api import emit_public_header
from .emit_impl import emit_api_source, emit_impl_header, emit_impl_source, emit_msg_source
from .emit_tests import emit_roundtrip_test
from .emit_wire import emit_wire_header, emit_wire_source
from .idl_reader import IdlError, load_all
from .versions import interface_version

def modules(idl_dir: str, only=None) -> list:
    """The modules to generate: all of the folder, or those named in `only` and what they include."""
    mods = load_all(idl_dir)
    if only:
        unknown = [m for m in only if m not in mods]
        if unknown:
            raise IdlError(idl_dir, 1, f"no such module: {', '.join(unknown)}")
        wanted, todo = set(), list(only)
        while todo:
            name = todo.pop()
            if name not in wanted:
                wanted.add(name)
                todo.extend(mods[name].includes)
        mods = {name: mod for name, mod in mods.items() if name in wanted}
    for mod in mods.values():
        interface_version(mod)
    return list(mods.values())


def outputs(mod) -> dict[str, callable]:
    """Relative output path -> emitter, for one module."""
    M, S = mod.name, short_name(mod.name)
    files = {
        f"include/vantrel/{M}.h": emit_public_header,
        f"include/intern/vantrel/wire/{M}Wire.h": emit_wire_header,
        f"source/intern/vantrel/wire/{S}.cpp": emit_wire_source,
    }
    if mod.has_interfaces:
        files.update({
            f"include/intern/vantrel/impl/{M}.h": emit_impl_header,
            f"source/intern/vantrel/impl/{S}.cpp": emit_impl_source,
            f"source/intern/vantrel/msg/{S}.cpp": emit_msg_source,
            f"source/intern/vantrel/api/{S}.cpp": emit_api_source,
        })
    return files


def write_if_changed(path: str, text: str) -> None:
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return
    except FileNotFoundError:
        pass
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


def _generate(idl_dir: str, out_dir: str, kind, only=None) -> list[str]:
    written = []
    for mod in modules(idl_dir, only):
        for rel, emit in kind(mod).items():
            path = os.path.join(out_dir, rel)
            write_if_changed(path, emit(mod))
            written.append(path)
    return written


def generate(idl_dir: str, out_dir: str, only=None) -> list[str]:
    return _generate(idl_dir, out_dir, outputs, only)


def list_outputs(idl_dir: str, only=None) -> list[str]:
    return [rel for mod in modules(idl_dir, only) for rel in outputs(mod)]


def test_outputs(mod) -> dict[str, callable]:
    """Relative output path -> emitter of the generated tests of one module (none for a types-only one)."""
    if not mod.has_interfaces:
        return {}
    return {f"tests/roundtrip/RoundTrip_{short_name(mod.name)}.cpp": emit_roundtrip_test}


def generate_tests(idl_dir: str, out_dir: str, only=None) -> list[str]:
    return _generate(idl_dir, out_dir, test_outputs, only)


def list_test_outputs(idl_dir: str, only=None) -> list[str]:
    return [rel for mod in modules(idl_dir, only) for rel in test_outputs(mod)]


def catalog_outputs(mod) -> dict[str, callable]:
    """Relative output path -> emitter of a module's run-time catalogue and facade glue."""
    from .emit_catalog import emit_catalog_header, emit_catalog_source
    return {f"include/intern/vantrel/catalog/{mod.name}.h": emit_catalog_header,
            f"source/intern/vantrel/catalog/{short_name(mod.name)}.cpp": emit_catalog_source}


_REGISTRY = "source/intern/vantrel/catalog/Modules.cpp"


def generate_catalog(idl_dir: str, out_dir: str, only=None) -> list[str]:
    from .emit_catalog import emit_catalog_registry
    written = _generate(idl_dir, out_dir, catalog_outputs, only)
    path = os.path.join(out_dir, _REGISTRY)
    write_if_changed(path, emit_catalog_registry(modules(idl_dir, only)))
    return written + [path]


def list_catalog_outputs(idl_dir: str, only=None) -> list[str]:
    return [rel for mod in modules(idl_dir, only) for rel in catalog_outputs(mod)] + [_REGISTRY]


def python_outputs(mod) -> dict[str, callable]:
    """Relative output path -> emitter of a module's Python module (vantrel/M_X.py)."""
    from .emit_python import emit_python_module
    return {f"vantrel/{mod.name}.py": emit_python_module}


def generate_python(idl_dir: str, out_dir: str, only=None) -> list[str]:
    return _generate(idl_dir, out_dir, python_outputs, only)


def list_python_outputs(idl_dir: str, only=None) -> list[str]:
    return [rel for mod in modules(idl_dir, only) for rel in python_outputs(mod)]

"""Module interface versions: every module file declares `const string InterfaceVersion = "major.minor.patch";`."""

from __future__ import annotations

import re

from .idl_reader import IdlError
from .model import Module

_VERSION = re.compile(r"^[0-9]+\.[0-9]+\.[0-9]+$")


def interface_version(mod: Module) -> str:
    """The module's InterfaceVersion constant; a missing or malformed one stops the generator."""
    version = mod.consts.get("InterfaceVersion")
    if version is None or not _VERSION.match(version):
        raise IdlError(mod.file, 1, f"{mod.name} needs `const string InterfaceVersion = \"major.minor.patch\";`"
                                    f" (found {version!r})")
    return version

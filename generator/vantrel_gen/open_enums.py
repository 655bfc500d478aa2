"""Rewrites an idlc-generated C file so that its serialization ops accept every enumeration value.

idlc records, with each enumeration member of a type's ops, the largest literal value, and the DDS layer's
deserializer rejects a whole sample whose enumeration holds a larger number (a peer with a newer interface
revision, or a corrupt one). The system instead reads such a value as literal 0 (our conversion maps every
undeclared value to 0), so the recorded maximum is raised to the largest 32-bit number. Only the ops
change: the XTypes type information idlc computed from the IDL, which peers match against, stays as it is.

Usage: python3 -m vantrel_gen.open_enums FILE.c [FILE.c ...]   (rewrites in place; idempotent)
"""

from __future__ import annotations

import re
import sys

# An op line of an enumeration member or sequence of enumerations ends with its maximum literal value.
_ENUM_OP = re.compile(r"^(\s*DDS_OP_ADR\b.*\bDDS_OP_(?:SUB)?TYPE_ENU\b.*,\s*)(\d+)u,(\s*)$")
_ANY_VALUE = "4294967295"


def open_enums(text: str) -> tuple[str, int]:
    lines, count = [], 0
    for line in text.split("\n"):
        m = _ENUM_OP.match(line)
        if m and m.group(2) != _ANY_VALUE:
            line = f"{m.group(1)}{_ANY_VALUE}u,{m.group(3)}"
            count += 1
        lines.append(line)
    return "\n".join(lines), count


def main(argv: list[str]) -> int:
    for path in argv:
        with open(path, encoding="utf-8") as f:
            text, _ = open_enums(f.read())
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

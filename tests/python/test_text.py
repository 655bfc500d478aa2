"""The text form of Python values is the C++ printer's: the rules, every operation alone and in its message,
the edges where C++ formats differently, and values that would not convert."""

import math

import pytest

from vantrel import catalog
from samples import INTEGER_RANGES, KEEP, arguments, rebuilt_arguments

OPERATIONS = [op for m in catalog.modules() for op in catalog.operations(m)]


def assert_values_print_alike(op, args, sender=""):
    """The wire message's text holds each argument's M_X::toText after its name."""
    text = op.text(args, sender)
    wire = op.wireText(args, sender)
    # The C++ printer's text, unless it holds an octet above 127 (C++ writes the byte, Python its character).
    if wire.decode(errors="replace") == wire.decode(errors="ignore"):
        assert text == wire.decode(), f"{op.module}.{op.name}: the C++ printer writes {wire}"
    assert text.startswith(f"[kelva_sending_actor: {sender}, " if op.params else f"[kelva_sending_actor: {sender}]")
    for param, value in zip(op.params, args):
        if param.type.kind == "struct":
            assert f"{param.name}: {value}" in text, f"{op.module}.{op.name}: {param.name}"
            assert repr(value) == str(value)
    return text


FLOATS = ("double", "float")
# Numbers as C++ streams them (%g, six significant digits).
SHOWN = {1e20: "1e+20", 1 / 3: "0.333333", 123456789.125: "1.23457e+08", 100.0: "100", -2.5e-7: "-2.5e-07",
         5e-324: "4.94066e-324", math.inf: "inf", -math.inf: "-inf", math.nan: "nan",
         math.copysign(math.nan, -1.0): "-nan", -0.0: "-0"}
# name: (the kinds of leaf it changes, the new value, or a function of the kind and the old value)
EDGES = {f"number {text}": (FLOATS, number) for number, text in SHOWN.items()}
EDGES.update({
    "integer maxima": (INTEGER_RANGES, lambda kind, v: INTEGER_RANGES[kind][1]),
    "integer minima": (INTEGER_RANGES, lambda kind, v: INTEGER_RANGES[kind][0]),
    "false": (("boolean",), False),
    "undeclared enumeration number": (("enum",), lambda kind, v: len(type(v)) + 5),
    "negative enumeration number": (("enum",), -3),
    "non-ASCII text": (("string",), "Grüße ✓ 東"),
    "empty text": (("string",), ""),
    "every octet": (("bytes",), bytes(range(256))),
    "no octets": (("bytes",), b""),
    "empty lists and absent optionals": (("sequence", "optional"), []),
    "default values": (("struct",), lambda kind, v: type(v)()),
})


def edge_visit(kinds, value):
    return lambda kind, v, path: KEEP if kind not in kinds else value(kind, v) if callable(value) else value


@pytest.mark.parametrize("edge", list(EDGES))
def test_edge_values_print_alike_alone_and_in_their_message(edge):
    changed = 0
    for op in OPERATIONS:
        original = arguments(op, 3)
        args = rebuilt_arguments(op, original, edge_visit(*EDGES[edge]))
        # Every operation, changed or not: the unchanged ones check the ordinary sample values.
        changed += assert_values_print_alike(op, args, "sender-1") != op.text(original, "sender-1")
    if not changed:
        pytest.skip("no operation of this build has a value this edge changes")


def test_text_rules_on_known_values():
    # On M_Common (in every build): enumerations as Type::Literal or Type::<number>, lists and optionals in
    # brackets, nested lists inline, octets as their characters.
    from vantrel import M_Common
    P, A = M_Common.PropertyType, M_Common.PropertyAccessKind
    assert str(P("n", "s", [0.1], [7], A.Read_Write)) == \
        "[Name: n, StrValue: s, DoubleValue: [0.1], LongValue: [7], AccessMode: Type::Read_Write]"
    for number, text in SHOWN.items():
        assert str(P(DoubleValue=[number])).split(", ")[2] == f"DoubleValue: [{text}]"
    assert str(P(AccessMode=42)).endswith("AccessMode: Type::42]")
    assert str(P()) == "[Name: , StrValue: , DoubleValue: [], LongValue: [], AccessMode: Type::Undefined]"
    assert str(M_Common.EncryptionType("a", b"AB")) == \
        "[Algorithm: a, Token: [A, B], Aad: [], Iv: [], Mac: [], Nounce: []]"
    assert "Covariance: [[1, 2.5], []]" in str(M_Common.UncertaintyType(Covariance=[[1.0, 2.5], []]))
    assert str(M_Common.TimeType(12, 5)) == "[Seconds: 12, Nanoseconds: 5]"
    # Printing never fails: what would not convert is shown with str().
    assert str(M_Common.TimeType("twelve", None)) == "[Seconds: twelve, Nanoseconds: None]"
    op = next(op for op in OPERATIONS if any(p.type.kind == "struct" for p in op.params))
    index = next(i for i, p in enumerate(op.params) if p.type.kind == "struct")
    args = list(arguments(op, 3))
    args[index] = 17
    shown = op.text(tuple(args), "s")
    assert shown.startswith("[kelva_sending_actor: s, ") and f"{op.params[index].name}: 17" in shown

"""The generated Python modules against the catalogue: value classes, enumerations, interfaces, facades."""

import importlib
import keyword

import pytest

from vantrel import _values, catalog
from samples import mix, sample

MODULES = catalog.modules()


def parameters(function):
    code = function.__code__
    return list(code.co_varnames[:code.co_argcount + code.co_kwonlyargcount])


VALUE_CLASSES = [c for m in MODULES for c in vars(importlib.import_module(f"vantrel.{m}")).values()
                 if isinstance(c, type) and issubclass(c, _values.Value) and c.__module__ == f"vantrel.{m}"]


def python_name(name):
    return name + "_" if keyword.iskeyword(name) else name


@pytest.mark.parametrize("cls", VALUE_CLASSES, ids=lambda c: f"{c.__module__}.{c.__name__}")
def test_value_classes(cls):
    # Constructors take the members in order, by position or by name.
    fields = catalog.fields(cls)
    names = [python_name(f.name) for f in fields]
    assert list(cls.__slots__) == names
    assert parameters(cls.__init__) == ["self"] + names
    values = [sample(f.type, mix(40, i)) for i, f in enumerate(fields)]
    by_position = cls(*values)
    by_keyword = cls(**dict(zip(names, values)))
    for name, value in zip(names, values):
        assert getattr(by_position, name) is value
        assert getattr(by_keyword, name) is value
    # Equality is member-wise: each member counts; values are not hashable.
    assert by_position == by_keyword
    assert by_position != object()
    for i, name in enumerate(names):
        changed = list(values)
        changed[i] = getattr(cls(), name)
        assert by_position != cls(*changed), f"{cls.__name__}.{name} does not count in =="
    with pytest.raises(TypeError):
        hash(cls())
    with pytest.raises(AttributeError):
        by_position.Misspelt = 1
    # Defaults are the types' defaults, of their Python types, and not shared between values.
    a, b = cls(), cls()
    for f, name in zip(fields, names):
        value, kind = getattr(a, name), f.type.kind
        default = {"struct": f.type.cls, "enum": lambda: list(f.type.cls)[0], "string": str, "boolean": bool,
                   "float": float, "double": float, "sequence": type(value) if type(value) is bytes else list}
        expected = default.get(kind, int)()
        assert type(value) is type(expected) and value == expected, f"{cls.__name__}.{name}"
        assert value is not getattr(b, name) or kind not in ("struct", "sequence") or type(value) is bytes

def test_a_keyword_literal_has_a_trailing_underscore():
    from vantrel import M_Common
    assert M_Common.HorizontalDirection.None_ == 0
    assert M_Common.HorizontalDirection(0).name == "None_"


@pytest.mark.parametrize("module_name", [m for m in MODULES if catalog.operations(m)])
def test_interfaces_and_facades_have_one_method_per_operation(module_name, log_lines):
    module = importlib.import_module(f"vantrel.{module_name}")
    with pytest.raises(TypeError, match="createWriteOnly"):
        module.Client()  # facades are made by their creation functions only
    for op in catalog.operations(module_name):
        receiver = getattr(module, op.interface)
        sender = module.Client if op.interface == "IService" else module.Service
        names = [python_name(p.name) for p in op.params] + (["dispose"] if op.dispose else [])
        assert parameters(getattr(receiver, op.name)) == ["self"] + names
        sending = getattr(sender, op.name)
        assert parameters(sending) == ["self"] + names
        if op.dispose:
            assert sending.__defaults__[-1] is False
        assert op.name not in vars(module.Service if sender is module.Client else module.Client)
        # The interface's default body logs the warning.
        args = [sample(p.type, 1) for p in op.params] + ([False] if op.dispose else [])
        assert getattr(receiver(), op.name)(*args) is None
        assert (f"default implementation called: {module_name}::{op.interface}::{op.name}. "
                "Forgot to override this method?") in log_lines()


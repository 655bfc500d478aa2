"""The generated Python modules: value classes (constructors in member order, attributes, defaults,
equality), enumerations, aliases, interfaces with default bodies, facade classes with one sending method
per operation. Checked for every module of the build against the catalogue."""

import importlib
import keyword

import pytest

from vantrel import _values, catalog
from samples import mix, sample

MODULES = catalog.modules()


def parameters(function):
    """The parameter names of a generated Python function, in order."""
    code = function.__code__
    return list(code.co_varnames[:code.co_argcount + code.co_kwonlyargcount])


def _classes(module, base):
    return [c for c in vars(module).values() if isinstance(c, type) and issubclass(c, base) and c is not base
            and c.__module__ == module.__name__]


VALUE_CLASSES = [c for m in MODULES for c in _classes(importlib.import_module(f"vantrel.{m}"), _values.Value)]


def python_name(name):
    return name + "_" if keyword.iskeyword(name) else name


@pytest.mark.parametrize("cls", VALUE_CLASSES, ids=lambda c: f"{c.__module__}.{c.__name__}")
def test_constructors_take_members_in_order(cls):
    fields = catalog.fields(cls)
    names = [python_name(f.name) for f in fields]
    assert list(cls.__slots__) == names
    values = [sample(f.type, mix(40, i)) for i, f in enumerate(fields)]
    by_position = cls(*values)
    by_keyword = cls(**dict(zip(names, values)))
    for name, value in zip(names, values):
        assert getattr(by_position, name) is value
        assert getattr(by_keyword, name) is value
    assert by_position == by_keyword
    assert parameters(cls.__init__) == ["self"] + names


@pytest.mark.parametrize("cls", VALUE_CLASSES, ids=lambda c: f"{c.__module__}.{c.__name__}")
def test_defaults_are_the_types_defaults_and_not_shared(cls):
    a, b = cls(), cls()
    for f in catalog.fields(cls):
        value = getattr(a, python_name(f.name))
        kind = f.type.kind
        if kind == "struct":
            assert value == f.type.cls() and value is not getattr(b, python_name(f.name))
        elif kind == "sequence":
            assert value in ([], b"")
            if isinstance(value, list):
                assert value is not getattr(b, python_name(f.name))
        elif kind == "enum":
            assert value is list(f.type.cls)[0]
        elif kind == "string":
            assert value == ""
        elif kind == "boolean":
            assert value is False
        else:
            assert value == 0


@pytest.mark.parametrize("cls", VALUE_CLASSES, ids=lambda c: f"{c.__module__}.{c.__name__}")
def test_equality_is_member_wise(cls):
    fields = catalog.fields(cls)
    values = [sample(f.type, mix(41, i)) for i, f in enumerate(fields)]
    assert cls(*values) == cls(*values)
    assert cls(*values) != object()
    for i, f in enumerate(fields):
        changed = list(values)
        changed[i] = getattr(cls(), python_name(f.name))
        assert cls(*values) != cls(*changed), f"{cls.__name__}.{f.name} does not count in =="
    with pytest.raises(TypeError):
        hash(cls())


def test_a_misspelt_member_is_refused():
    from vantrel import M_Common
    t = M_Common.TimeType()
    with pytest.raises(AttributeError):
        t.Second = 1


def test_a_keyword_literal_has_a_trailing_underscore():
    from vantrel import M_Common
    assert M_Common.HorizontalDirection.None_ == 0
    assert M_Common.HorizontalDirection(0).name == "None_"


@pytest.mark.parametrize("module_name", [m for m in MODULES if catalog.operations(m)])
def test_interfaces_and_facades_have_one_method_per_operation(module_name):
    module = importlib.import_module(f"vantrel.{module_name}")
    for op in catalog.operations(module_name):
        receiver = getattr(module, op.interface)
        sender = module.Client if op.interface == "IService" else module.Service
        names = [python_name(p.name) for p in op.params]
        received = parameters(getattr(receiver, op.name))
        assert received == ["self"] + names + (["dispose"] if op.dispose else [])
        sending = getattr(sender, op.name)
        assert parameters(sending) == ["self"] + names + (["dispose"] if op.dispose else [])
        if op.dispose:
            assert sending.__defaults__[-1] is False
        assert op.name not in vars(module.Service if sender is module.Client else module.Client)


@pytest.mark.parametrize("module_name", [m for m in MODULES if catalog.operations(m)])
def test_default_bodies_log_the_warning(module_name, log_lines):
    module = importlib.import_module(f"vantrel.{module_name}")
    for op in catalog.operations(module_name):
        implementation = getattr(module, op.interface)()
        args = [sample(p.type, 1) for p in op.params] + ([False] if op.dispose else [])
        assert getattr(implementation, op.name)(*args) is None
        assert (f"default implementation called: {module_name}::{op.interface}::{op.name}. "
                "Forgot to override this method?") in log_lines()


def test_facades_are_made_by_their_creation_functions_only():
    module_name = next(m for m in MODULES if catalog.operations(m))
    module = importlib.import_module(f"vantrel.{module_name}")
    with pytest.raises(TypeError, match="createWriteOnly"):
        module.Client()

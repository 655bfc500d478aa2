"""The contract as data: the modules this build has, their operations, and the members of value classes."""

from vantrel import _vantrel

Operation = _vantrel.Operation
Field = _vantrel.Field
Type = _vantrel.Type


def modules():
    """The module names, in name order (also modules of types only, such as M_Common)."""
    return _vantrel.modules()


def operations(module):
    """The operations of a module: its IService ones, then its IClient ones, each in declaration order."""
    return _vantrel.operations(module)


def operation(name):
    """An operation by "M_X.Op" or "M_X.IService.Op"."""
    names = name.split(".")
    if len(names) not in (2, 3):
        raise ValueError(f"expected M_X.Op or M_X.IService.Op, got {name!r}")
    for op in _vantrel.operations(names[0]):
        if op.name == names[-1] and (len(names) == 2 or op.interface == names[1]):
            return op
    raise ValueError(f"no operation {name}")


def fields(cls):
    """The members of a value class (or of the class of a value), in order."""
    return _vantrel.fields(cls if isinstance(cls, type) else type(cls))

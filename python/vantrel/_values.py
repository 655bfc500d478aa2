"""The base of the generated value classes."""

from vantrel import _vantrel


class Value:
    """A value type of the contract: member-wise equality; repr and str give the C++ text form
    ("[Azimuth: 12.5, Elevation: 3, Range: [100]]")."""

    __slots__ = ()

    def __eq__(self, other):
        if type(other) is not type(self):
            return NotImplemented
        return all(getattr(self, name) == getattr(other, name) for name in self.__slots__)

    __hash__ = None  # mutable

    def __repr__(self):
        return _vantrel.text(self)

    __str__ = __repr__


def bind(module, names):
    """Hands a generated module's classes to the extension (checked against its catalogue)."""
    _vantrel.bind(module, names)

"""Receivers that record what arrives, and a comparison of received values that also checks their types."""

import collections

from vantrel import _values


class Recorder(collections.defaultdict):
    """Per operation the arguments of every call (dispose flag included), in order; list.append needs no lock."""

    def __init__(self):
        super().__init__(list)

    def callback(self, operation):
        return lambda *args: self[operation].append(args)

    def calls(self, operation):
        return list(self[operation])

    def count(self, operation):
        return len(self[operation])

    def reached(self, operations, count):
        return all(self.count(op) >= count for op in operations)


def same(a, b):
    """Equal values of the same types throughout (an enumeration literal is not an int, bytes not a list)."""
    if type(a) is not type(b):
        return False
    if isinstance(a, _values.Value):
        return all(same(getattr(a, name), getattr(b, name)) for name in type(a).__slots__)
    if isinstance(a, (list, tuple)):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    return a == b

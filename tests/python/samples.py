"""Values of any type of the contract that are not its defaults, made from the catalogue's type metadata (as
the generated C++ round-trip tests make theirs): numbers 1..100 (x.5 for floating point), true, strings
"<seed>_v", the last literal of an enumeration, lists of two elements, optionals holding one."""

from vantrel import catalog


def mix(seed, index):
    return (seed * 7 + index + 1) % 1000003


def sample(type_, seed):
    kind = type_.kind
    if kind == "boolean":
        return True
    if kind in ("float", "double"):
        return 0.5 + seed % 1000
    if kind in ("octet", "int16", "uint16", "int32", "uint32", "int64", "uint64"):
        return 1 + seed % 100
    if kind == "string":
        text = f"{seed}_v"
        return text[:type_.bound] if type_.bound else text
    if kind == "enum":
        return list(type_.cls)[-1]
    if kind == "struct":
        return struct_sample(type_.cls, seed)
    if kind == "sequence":
        count = 1 if type_.bound == 1 else 2
        elements = [sample(type_.element, mix(seed, i)) for i in range(count)]
        if type_.element.kind == "octet" and type_.bound != 1:
            return bytes(elements)
        return elements
    raise ValueError(f"no sample for kind {kind}")


def struct_sample(cls, seed):
    return cls(*[sample(f.type, mix(seed, i)) for i, f in enumerate(catalog.fields(cls))])


def arguments(operation, seed):
    """Non-default arguments of an operation, in API order."""
    return tuple(sample(p.type, mix(seed, i)) for i, p in enumerate(operation.params))


def key_arguments(operation, args):
    return [value for p, value in zip(operation.params, args) if p.key]


def transformed(type_, value, change):
    """`value` with every leaf (number, string, enumeration, byte list) replaced by change(kind, leaf)."""
    kind = type_.kind
    if kind == "struct":
        names = type(value).__slots__
        return type(value)(*[transformed(f.type, getattr(value, name), change)
                             for f, name in zip(catalog.fields(value), names)])
    if kind == "sequence":
        if isinstance(value, bytes):
            return change("bytes", value)
        return [transformed(type_.element, element, change) for element in value]
    return change(kind, value)


def transformed_arguments(operation, args, change):
    return tuple(transformed(p.type, value, change) for p, value in zip(operation.params, args))


def with_first_leaf(operation, args, wanted, replace):
    """`args` with the first leaf of kind `wanted` replaced by replace(leaf), and that leaf's path ("Status.List[1].Name"); the
    path is None when the operation has no such leaf. Kinds: those of the catalogue, "bytes" (a list of
    octets), "optional" (a sequence of bound 1) and "struct" (the whole value)."""
    found = []

    def take(path, value):
        found.append(path)
        return replace(value)

    def walk(type_, value, path):
        kind = type_.kind
        if kind == "struct":
            if wanted == "struct" and not found:
                return take(path, value)
            return type(value)(*[walk(f.type, getattr(value, name), f"{path}.{f.name}")
                                 for f, name in zip(catalog.fields(value), type(value).__slots__)])
        if kind == "sequence" and not isinstance(value, bytes):
            if wanted == "optional" and type_.bound == 1 and value and not found:
                return take(path, value)
            return [walk(type_.element, element, f"{path}[{i}]") for i, element in enumerate(value)]
        if ("bytes" if isinstance(value, bytes) else kind) == wanted and not found:
            return take(path, value)
        return value

    changed = tuple(walk(p.type, value, p.name) for p, value in zip(operation.params, args))
    return changed, (found[0] if found else None)

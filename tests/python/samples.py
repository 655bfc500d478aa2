"""Non-default values of any type of the contract, from the catalogue's type metadata."""

from vantrel import catalog

INTEGER_RANGES = {"octet": (0, 255), "int16": (-2**15, 2**15 - 1), "uint16": (0, 2**16 - 1),
                  "int32": (-2**31, 2**31 - 1), "uint32": (0, 2**32 - 1), "int64": (-2**63, 2**63 - 1),
                  "uint64": (0, 2**64 - 1)}


def mix(seed, index):
    return (seed * 7 + index + 1) % 1000003


def sample(type_, seed, text="{}_v"):
    kind = type_.kind
    if kind == "boolean":
        return True
    if kind in ("float", "double"):
        return 0.5 + seed % 1000
    if kind in INTEGER_RANGES:
        return 1 + seed % 100
    if kind == "string":
        value = text.format(seed)
        return value[:type_.bound] if type_.bound else value
    if kind == "enum":
        return list(type_.cls)[-1]
    if kind == "struct":
        return type_.cls(*[sample(f.type, mix(seed, i), text) for i, f in enumerate(catalog.fields(type_.cls))])
    if kind == "sequence":
        count = 1 if type_.bound == 1 else 2
        elements = [sample(type_.element, mix(seed, i), text) for i in range(count)]
        if type_.element.kind == "octet" and type_.bound != 1:
            return bytes(elements)
        return elements
    raise ValueError(f"no sample for kind {kind}")


def arguments(operation, seed, text="{}_v"):
    """Non-default arguments of an operation, in API order; strings are `text` formatted with a number."""
    return tuple(sample(p.type, mix(seed, i), text) for i, p in enumerate(operation.params))


KEEP = object()


def rebuilt(type_, value, path, visit):
    """`value` rebuilt with visit(kind, node, path) applied on the way down: what it returns replaces the
    node, KEEP goes on into it. Kinds: those of the catalogue, "bytes" (a list of octets) and "optional" (a
    sequence of bound 1) for a sequence; paths as "Status.List[1].Name"."""
    kind = type_.kind
    if isinstance(value, bytes):
        kind = "bytes"
    elif kind == "sequence" and type_.bound == 1:
        kind = "optional"
    replaced = visit(kind, value, path)
    if replaced is not KEEP:
        return replaced
    if kind == "struct":
        return type(value)(*[rebuilt(f.type, getattr(value, name), f"{path}.{f.name}", visit)
                             for f, name in zip(catalog.fields(value), type(value).__slots__)])
    if kind in ("sequence", "optional"):
        return [rebuilt(type_.element, element, f"{path}[{i}]", visit) for i, element in enumerate(value)]
    return value


def rebuilt_arguments(operation, args, visit):
    return tuple(rebuilt(p.type, value, p.name, visit) for p, value in zip(operation.params, args))


def with_first_leaf(operation, args, wanted, replace):
    """`args` with the first node of kind `wanted` (see rebuilt; "optional" only when present) replaced by
    replace(node), and that node's path; the path is None when the operation has no such node."""
    found = []

    def visit(kind, value, path):
        if kind != wanted or found or (kind == "optional" and not value):
            return KEEP
        found.append(path)
        return replace(value)

    changed = rebuilt_arguments(operation, args, visit)
    return changed, (found[0] if found else None)

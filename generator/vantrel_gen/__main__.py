"""Command line: `python3 -m vantrel_gen --dump idl/M_X.idl -I idl` prints what the reader sees."""

import argparse
import os
import sys

from .idl_reader import IdlError, load, load_all


def dump(mod, out=sys.stdout):
    print(f"{mod.name} ({mod.file})", file=out)
    print(f"  includes: {', '.join(mod.includes) or '-'}", file=out)
    print(f"  structs {len(mod.structs)}, enums {len(mod.enums)}, aliases {len(mod.aliases)}, "
          f"consts {len(mod.consts)}", file=out)
    if not mod.has_interfaces:
        print("  types only (no IService / IClient)", file=out)
        return
    for iface, messages in mod.interfaces.items():
        print(f"  {iface}: {len(messages)} operations", file=out)
        for m in messages:
            print(f"    {m.name:<44} {m.key_pattern:<10}{' dispose' if m.dispose else ''}", file=out)


def main(argv=None) -> int:
    ap = argparse.ArgumentParser(prog="vantrel_gen")
    ap.add_argument("--dump", nargs="+", metavar="IDL", required=True,
                    help="module files (or a folder: all its M_*.idl) to summarise")
    ap.add_argument("-I", dest="include_dirs", action="append", default=[], metavar="DIR",
                    help="folder searched for #include files")
    args = ap.parse_args(argv)
    try:
        for path in args.dump:
            mods = (load_all(path).values() if os.path.isdir(path)
                    else [load(path, args.include_dirs)])
            for mod in mods:
                dump(mod)
    except IdlError as e:
        print(e, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

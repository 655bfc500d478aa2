"""Command line: `python3 -m vantrel_gen --dump idl/M_X.idl -I idl` prints what the reader sees."""

import argparse
import os
import sys

from .idl_reader import IdlError, load, load_all


def dump(mod, out=None):
    out = out or sys.stdout
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
            line = f"    {m.name:<44} {m.key_pattern:<10}{' dispose' if m.dispose else ''}"
            print(line.rstrip(), file=out)


# The output sets: the generating option, the listing option, what it writes; the functions of .generate
# are named after the options.
OUTPUT_SETS = [
    ("generate", "list-outputs", "the C++ of every module of --idl-dir"),
    ("generate-tests", "list-test-outputs", "the generated round-trip test sources of every module"),
    ("generate-catalog", "list-catalog-outputs", "the run-time catalogue and facade glue of every module"),
    ("generate-python", "list-python-outputs", "the Python module of every module (vantrel/M_X.py)"),
]


def main(argv=None) -> int:
    ap = argparse.ArgumentParser(prog="vantrel_gen")
    for generating, listing, what in OUTPUT_SETS:
        ap.add_argument(f"--{generating}", metavar="OUT_DIR", help=f"write {what} into OUT_DIR")
        ap.add_argument(f"--{listing}", action="store_true",
                        help=f"print the files --{generating} writes (relative paths), one a line")
    ap.add_argument("--generate-plugin", nargs=2, metavar=("MODULE", "OUT_FILE"),
                    help="write a recording plug-in exporting every hook of MODULE")
    ap.add_argument("--generate-fuzz-catalog", metavar="OUT_FILE",
                    help="write the operation catalog of the receive-path fuzz target")
    ap.add_argument("--idl-dir", metavar="DIR", help="the folder of the module IDL files")
    ap.add_argument("--modules", metavar="M_X,M_Y", default="",
                    help="generate only these modules (and the modules they include); default: all")
    ap.add_argument("--dump", nargs="+", metavar="IDL",
                    help="module files (or a folder: all its M_*.idl) to summarise")
    ap.add_argument("-I", dest="include_dirs", action="append", default=[], metavar="DIR",
                    help="folder searched for #include files")
    args = ap.parse_args(argv)
    only = [m for m in args.modules.split(",") if m] or None
    try:
        from . import generate as gen
        for generating, listing, _ in OUTPUT_SETS:
            out_dir = getattr(args, generating.replace("-", "_"))
            list_only = getattr(args, listing.replace("-", "_"))
            if not out_dir and not list_only:
                continue
            if not args.idl_dir:
                ap.error(f"--{generating} and --{listing} need --idl-dir")
            if list_only:
                print("\n".join(getattr(gen, listing.replace("-", "_"))(args.idl_dir, only)))
            else:
                getattr(gen, generating.replace("-", "_"))(args.idl_dir, out_dir, only)
            return 0
        if args.generate_fuzz_catalog or args.generate_plugin:
            if not args.idl_dir:
                ap.error("--generate-fuzz-catalog and --generate-plugin need --idl-dir")
            if args.generate_fuzz_catalog:
                from .emit_fuzz import emit_fuzz_catalog
                gen.write_if_changed(args.generate_fuzz_catalog, emit_fuzz_catalog(gen.modules(args.idl_dir, only)))
            else:
                from .emit_plugin import emit_test_plugin
                module, out_file = args.generate_plugin
                gen.write_if_changed(out_file, emit_test_plugin(load_all(args.idl_dir)[module]))
            return 0
        if not args.dump:
            ap.error("nothing to do: --dump, or one of the --generate... and --list-...-outputs options")
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

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


def main(argv=None) -> int:
    ap = argparse.ArgumentParser(prog="vantrel_gen")
    ap.add_argument("--generate", metavar="OUT_DIR",
                    help="write the C++ of every module of --idl-dir into OUT_DIR")
    ap.add_argument("--list-outputs", action="store_true",
                    help="print the files --generate writes (relative paths), one a line")
    ap.add_argument("--generate-tests", metavar="OUT_DIR",
                    help="write the generated round-trip test sources of every module into OUT_DIR")
    ap.add_argument("--list-test-outputs", action="store_true",
                    help="print the files --generate-tests writes (relative paths), one a line")
    ap.add_argument("--generate-catalog", metavar="OUT_DIR",
                    help="write the run-time catalogue and facade glue of every module into OUT_DIR")
    ap.add_argument("--list-catalog-outputs", action="store_true",
                    help="print the files --generate-catalog writes (relative paths), one a line")
    ap.add_argument("--generate-python", metavar="OUT_DIR",
                    help="write the Python module of every module (vantrel/M_X.py) into OUT_DIR")
    ap.add_argument("--list-python-outputs", action="store_true",
                    help="print the files --generate-python writes (relative paths), one a line")
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
        if args.generate_tests or args.list_test_outputs:
            from .generate import generate_tests, list_test_outputs
            if not args.idl_dir:
                ap.error("--generate-tests and --list-test-outputs need --idl-dir")
            if args.list_test_outputs:
                print("\n".join(list_test_outputs(args.idl_dir, only)))
            else:
                generate_tests(args.idl_dir, args.generate_tests, only)
            return 0
        if args.generate_catalog or args.list_catalog_outputs:
            from .generate import generate_catalog, list_catalog_outputs
            if not args.idl_dir:
                ap.error("--generate-catalog and --list-catalog-outputs need --idl-dir")
            if args.list_catalog_outputs:
                print("\n".join(list_catalog_outputs(args.idl_dir, only)))
            else:
                generate_catalog(args.idl_dir, args.generate_catalog, only)
            return 0
        if args.generate_python or args.list_python_outputs:
            from .generate import generate_python, list_python_outputs
            if not args.idl_dir:
                ap.error("--generate-python and --list-python-outputs need --idl-dir")
            if args.list_python_outputs:
                print("\n".join(list_python_outputs(args.idl_dir, only)))
            else:
                generate_python(args.idl_dir, args.generate_python, only)
            return 0
        if args.generate_fuzz_catalog:
            from .emit_fuzz import emit_fuzz_catalog
            from .generate import modules, write_if_changed
            if not args.idl_dir:
                ap.error("--generate-fuzz-catalog needs --idl-dir")
            write_if_changed(args.generate_fuzz_catalog, emit_fuzz_catalog(modules(args.idl_dir, only)))
            return 0
        if args.generate_plugin:
            from .emit_plugin import emit_test_plugin
            from .generate import write_if_changed
            if not args.idl_dir:
                ap.error("--generate-plugin needs --idl-dir")
            module, out_file = args.generate_plugin
            write_if_changed(out_file, emit_test_plugin(load_all(args.idl_dir)[module]))
            return 0
        if args.generate or args.list_outputs:
            from .generate import generate, list_outputs
            if not args.idl_dir:
                ap.error("--generate and --list-outputs need --idl-dir")
            if args.list_outputs:
                print("\n".join(list_outputs(args.idl_dir, only)))
            else:
                generate(args.idl_dir, args.generate, only)
            return 0
        if not args.dump:
            ap.error("nothing to do: --dump, --generate, --list-outputs, --generate-tests or --list-test-outputs")
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

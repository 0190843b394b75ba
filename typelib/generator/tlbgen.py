#!/usr/bin/env python3
"""The type library generator: reads one IDL file and writes, into the output directory,
NAME.h (interfaces, enumerations, GUIDs), NAMEDispatch.cpp (dispatch thunks) and
NAMETypeInfo.cpp (run-time type information).

    tlbgen.py --idl FILE --name NAME --out DIR

An error in the IDL is printed as FILE:LINE:COLUMN: error: message and the exit status
is 1; nothing is written then.
"""

from __future__ import annotations

import argparse
import os
import sys

# The build runs the generator from the source tree: leave no bytecode caches there.
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from dispatch_writer import write_dispatch  # noqa: E402
from header_writer import write_header  # noqa: E402
from idl_ast import IdlError, Location  # noqa: E402
from idl_parser import parse  # noqa: E402
from typeinfo_writer import write_typeinfo  # noqa: E402


def write_file(path: str, text: str) -> None:
    # Always rewritten, so that the time stamps tell the build the outputs are current;
    # replaced whole, so that an interrupted run leaves no half-written file.
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8", newline="\n") as f:
        f.write(text)
    os.replace(tmp, path)


def generate(idl_path: str, name: str, out_dir: str) -> dict[str, str]:
    """Parses the IDL and returns the generated files by name; raises IdlError."""
    with open(idl_path, encoding="utf-8") as f:
        text = f.read()
    library = parse(text, idl_path)
    if library.name != name:
        raise IdlError(Location(idl_path, 1, 1), f"the IDL declares library {library.name}, not {name}")
    header = f"{name}.h"
    return {
        header: write_header(library),
        f"{name}Dispatch.cpp": write_dispatch(library, header),
        f"{name}TypeInfo.cpp": write_typeinfo(library, header),
    }


def main(argv: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Generate C++ interfaces, dispatch thunks and type "
                                                 "information from an IDL file.")
    parser.add_argument("--idl", required=True, help="the IDL file")
    parser.add_argument("--name", required=True, help="the library name, also the base of the output names")
    parser.add_argument("--out", required=True, help="the output directory")
    args = parser.parse_args(argv)
    try:
        files = generate(args.idl, args.name, args.out)
    except IdlError as e:
        print(str(e), file=sys.stderr)
        return 1
    except OSError as e:
        print(f"{args.idl}: error: {e.strerror}", file=sys.stderr)
        return 1
    except UnicodeDecodeError:
        print(f"{args.idl}: error: the file is not UTF-8 text", file=sys.stderr)
        return 1
    os.makedirs(args.out, exist_ok=True)
    for filename, text in files.items():
        write_file(os.path.join(args.out, filename), text)
    return 0


if __name__ == "__main__":
    sys.exit(main())

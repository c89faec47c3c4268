#!/usr/bin/env python3
"""The generator: writes one output of the build per run.

Usage: python3 generator/generate.py OUTPUT [--declarations FILE --catalogue DIR] [options]

  idl     the IDL of the type library, or of one half of it (backend_idl.py)
  cpp     the interfaces header, wrapper classes and exposers (backend_cpp.py)
  script  the member table of script hosts (backend_script.py)
  chain   the chain of type-name tests of a wrappers manager (emit_type_chain.py)
  report  the layout against the catalogue's counts and anchors (report.py)

Every back-end is a module with COMMAND (its output's name), READS_LAYOUT
(whether it works from the layout, which then takes --declarations and
--catalogue), add_arguments(parser) for its own options and write(library,
args), which writes its output from the layout.load() of the inputs (None
without READS_LAYOUT) and returns the exit status.
"""

import argparse
import sys

import backend_cpp
import backend_idl
import backend_script
import emit_type_chain
import layout
import report

BACKENDS = (backend_idl, backend_cpp, backend_script, emit_type_chain, report)


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    outputs = ap.add_subparsers(dest="output", required=True)
    for backend in BACKENDS:
        summary = backend.__doc__.split("\n")[0]
        sub = outputs.add_parser(backend.COMMAND, help=summary, description=summary)
        if backend.READS_LAYOUT:
            sub.add_argument("--declarations", required=True)
            sub.add_argument("--catalogue", required=True)
        backend.add_arguments(sub)
        sub.set_defaults(backend=backend)
    args = ap.parse_args(argv)
    library = layout.load(args.catalogue, args.declarations) if args.backend.READS_LAYOUT else None
    return args.backend.write(library, args)


if __name__ == "__main__":
    sys.exit(main())

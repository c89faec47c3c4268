#!/usr/bin/env python3
"""Wrapper members that need a Qt symbol Qt's DLLs do not export.

A member of a class that Qt does not export (QUtf8Codec, QObjectData) is
defined inside QtCore4.dll but cannot be called from outside it; a wrapper
body that calls one, directly or through the inline code it expands (the
copy that a value result makes), cannot be linked.  Such a wrapper member
is inexpressible: the layout drops it and keeps its suffix and DISPID.

This tool finds them in the compiled wrapper objects of a build made
against a Qt 4.8 SDK.  It reads every relocation of the objects, follows
the references from each wrapper member's code (and the helper code it
uses) to the Qt symbols they need, and lists the members that reach a
symbol that neither the objects nor the SDK's import libraries define.
Its output is committed next to the declarations and read by layout.py:

  scan_exports.py --sdk DIR --objects OBJ... [--out FILE] [--prefix x86_64-w64-mingw32-]

Run it after a link fails with "undefined reference" to a Qt symbol; the
generated wrappers must then be written without the list (--objects of a
build whose list is empty), or with it, to confirm that nothing is left.
"""

import argparse
import os
import re
import subprocess
import sys
from collections import defaultdict

from output import write_if_changed

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_OUT = os.path.join(os.path.dirname(HERE), "typelib", "qt48", "unexported.txt")
IMPORT_PREFIX = "__imp_"
# A wrapper member in demangled text: wrp_<Class>::<Member>(
WRAPPER_MEMBER = re.compile(r"\bwrp_(\w+)::(\w+)\(")


def run(tool, *args):
    return subprocess.run([tool, *args], check=True, stdout=subprocess.PIPE,
                          universal_newlines=True).stdout


def exported_symbols(nm, libraries):
    """Symbols the import libraries define, with and without __imp_."""
    out = set()
    for lib in libraries:
        for line in run(nm, "-g", "--defined-only", lib).splitlines():
            parts = line.split()
            if len(parts) == 3:
                symbol = parts[2]
                out.add(symbol[len(IMPORT_PREFIX):] if symbol.startswith(IMPORT_PREFIX) else symbol)
    return out


def object_graph(objdump, nm, objects):
    """(defined symbols, {code section: referenced symbols},
    {symbol: section defining it}) of the objects."""
    defined, refs, home = set(), defaultdict(set), {}
    for obj in objects:
        for line in run(nm, "--defined-only", obj).splitlines():
            parts = line.split()
            if len(parts) == 3:
                defined.add(parts[2])
        section = None
        for line in run(objdump, "-r", obj).splitlines():
            m = re.match(r"RELOCATION RECORDS FOR \[(.*)\]:", line)
            if m:
                section = m.group(1)
                if section.startswith(".text$"):
                    home.setdefault(section[len(".text$"):], section)
                continue
            parts = line.split()
            if section and len(parts) == 3 and re.match(r"[0-9a-f]+$", parts[0]):
                symbol = parts[2].split("+")[0].split("-")[0]
                refs[section].add(symbol[len(IMPORT_PREFIX):] if symbol.startswith(IMPORT_PREFIX)
                                  else symbol)
    return defined, refs, home


def demangled(cxxfilt, symbols):
    symbols = sorted(symbols)
    text = subprocess.run([cxxfilt], input="\n".join(symbols) + "\n", stdout=subprocess.PIPE,
                          universal_newlines=True, check=True).stdout
    return dict(zip(symbols, text.splitlines()))


def unexported_members(defined, refs, home, exported, names):
    """{(wrapped flat class, member name): sorted missing Qt symbols}."""
    missing = {s for r in refs.values() for s in r
               if s not in defined and s not in exported and names.get(s, s)[:1] in "Qq"}
    reach = {}

    def missing_from(section, seen):
        if section in reach:
            return reach[section]
        found = set()
        for symbol in refs.get(section, ()):
            if symbol in missing:
                found.add(symbol)
            elif symbol in home and home[symbol] not in seen:
                seen.add(home[symbol])
                found |= missing_from(home[symbol], seen)
        reach[section] = found
        return found

    out = {}
    for section in refs:
        if not section.startswith(".text$"):
            continue
        m = WRAPPER_MEMBER.search(names.get(section[len(".text$"):], ""))
        found = m and missing_from(section, {section})
        if found:
            key = (m.group(1), m.group(2))
            out[key] = sorted(set(out.get(key, ())) | {names.get(s, s) for s in found})
    return out


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--sdk", required=True, help="Qt 4.8 SDK folder (lib/libQtCore4.a, lib/libQtGui4.a)")
    ap.add_argument("--objects", nargs="+", required=True)
    ap.add_argument("--out", default=DEFAULT_OUT)
    ap.add_argument("--prefix", default="x86_64-w64-mingw32-")
    args = ap.parse_args(argv)

    tool = lambda name: args.prefix + name  # noqa: E731
    libs = [os.path.join(args.sdk, "lib", "libQt%s4.a" % m) for m in ("Core", "Gui")]
    exported = exported_symbols(tool("nm"), libs)
    defined, refs, home = object_graph(tool("objdump"), tool("nm"), args.objects)
    referenced = set(home) | {s for r in refs.values() for s in r}
    names = demangled(tool("c++filt"), referenced)
    members = unexported_members(defined, refs, home, exported, names)

    lines = ["# Written by scan_exports.py from the wrapper objects of a build against the",
             "# Qt 4.8.7 SDK: wrapper members whose code needs a Qt symbol that Qt's DLLs",
             "# do not export, with the symbols. One member a line:",
             "#   <wrapped class, flattened> <member> <symbol>[; <symbol>...]"]
    for (flat, member), symbols in sorted(members.items()):
        lines.append("%s %s %s" % (flat, member, "; ".join(symbols)))
    write_if_changed(args.out, "\n".join(lines) + "\n")
    print("scan_exports: %d wrapper members need unexported Qt symbols; wrote %s"
          % (len(members), args.out))
    return 0


if __name__ == "__main__":
    sys.exit(main())

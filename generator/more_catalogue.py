#!/usr/bin/env python3
"""The catalogue of kwscript's second wrappers set: the public QtCore and
QtGui classes the library has no wrapper for.

Reads the installed headers of a Qt 4.8 SDK for Windows x64 the way a
client of the shared Qt sees them (the module headers QtCore/QtCore and
QtGui/QtGui preprocessed by mingw-w64's g++ with QT_DLL, so that classes of
other platforms and configured-out features are gone) and keeps every class
that is

  - exported (Q_CORE_EXPORT, Q_GUI_EXPORT: declared dllimport),
  - defined at namespace level in a public header (not under private/),
    named Q..., not a template,
  - not wrapped by the library (typelib/catalogue/: a class it only
    declares, such as QGraphicsView, is kept here).

It writes, into the output folder (typelib/qt48more/ by default):

  catalogue/classes.tsv            the classes: item models first, then
                                   QObject and its other subclasses, then
                                   the rest; bases before derived classes
  catalogue/compositions.tsv       per class, its chain of first bases that
                                   are in this set, own class last (the
                                   library's classes are composed by the
                                   script facade, not by this set)
  catalogue/known_type_names.txt   every class of the set
  catalogue/also_nameable.txt      the library's known names: classes a
                                   member may take or give, wrapped by the
                                   library's manager
  catalogue/interface_namespace.txt  the set's LIBID, the namespace of its
                                   interfaces' IIDs (CMake reads it too)
  headers.txt                      the headers the front-end reads

Only the first base is followed: a composed wrapper is bound to the
instance pointer the exposer gets, which is the object's address for its
first base chain only (QGraphicsObject's QGraphicsItem part lies elsewhere).

Usage: more_catalogue.py [--sdk DIR] [--library-catalogue DIR] [--out DIR]
                         [--cc x86_64-w64-mingw32-g++]
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
DEFAULT_SDK = os.path.join(os.path.dirname(REPO), "shared", "qt48-sdk")
MODULE_HEADERS = ("QtCore/QtCore", "QtGui/QtGui")
# A client of the shared Qt, as cmake/QtCatalogue.cmake builds the wrappers.
DEFINES = ("-D_WIN64", "-DUNICODE", "-DQT_DLL", "-DQT_CORE_LIB", "-DQT_GUI_LIB")
# The LIBID of the set's type library (QtMoreWrap), also the namespace of its
# interfaces' IIDs: 38 of its classes are declared-only interfaces of the
# library, under the same names, and must not have the library's IIDs.
LIBID = "97BF05E2-02E3-4DAA-9F52-932409AAC817"

_LINE_MARKER = re.compile(r'^# (\d+) "([^"]*)"')
_EXPORTED = re.compile(r"^class __attribute__\(\(dllimport\)\) (Q\w+)\s*(:[^{;]*)?\{")
_BASE = re.compile(r"^\s*(?:public|protected|private)?\s*(?:virtual\s+)?([\w:]+)\s*(<)?")


def sdk_includes(sdk):
    return [os.path.join(sdk, "include"), os.path.join(sdk, "include", "QtCore"),
            os.path.join(sdk, "include", "QtGui"), os.path.join(sdk, "mkspecs", "default")]


def preprocess(cc, sdk):
    """The module headers as the compiler sees them (with line markers)."""
    with tempfile.TemporaryDirectory(prefix="kw_more_") as work:
        tu = os.path.join(work, "modules.cpp")
        with open(tu, "w") as f:
            f.writelines("#include <%s>\n" % h for h in MODULE_HEADERS)
        cmd = [cc, "-std=gnu++98", "-E", *DEFINES]
        for folder in sdk_includes(sdk):
            cmd += ["-I", folder]
        return subprocess.run(cmd + [tu], check=True, stdout=subprocess.PIPE,
                              universal_newlines=True).stdout


def library_symbols(nm, sdk):
    """The symbols Qt's import libraries define, as one text."""
    libs = [os.path.join(sdk, "lib", name) for name in ("libQtCore4.a", "libQtGui4.a")]
    text = subprocess.run([nm, "-g", "--defined-only", *libs], check=True, stdout=subprocess.PIPE,
                          universal_newlines=True).stdout
    return "\n".join(line.split()[-1] for line in text.splitlines() if len(line.split()) == 3)


def in_the_dlls(name, symbols):
    """Whether a mangled symbol of Qt's DLLs names the class."""
    return "%d%s" % (len(name), name) in symbols


def exported_classes(text, sdk, symbols):
    """[(class, header relative to include/, first base or None)] of the
    exported classes defined at namespace level in public headers, in the
    order the compiler meets them. A class with a meta-object that Qt's
    DLLs have no symbol of is another platform's (QS60Style, declared on
    every platform, built on one)."""
    include = os.path.realpath(os.path.join(sdk, "include")) + os.sep
    out, seen = [], set()
    header, previous = None, ""
    lines = text.split("\n")
    for n, line in enumerate(lines):
        marker = _LINE_MARKER.match(line)
        if marker:
            header = os.path.realpath(marker.group(2))
            continue
        if line.startswith("class __attribute__((dllimport)) Q"):
            # The head of a definition may run over several lines.
            head = " ".join(lines[n:n + 6])
            m = _EXPORTED.match(head)
            public = (header and header.startswith(include)
                      and "/private/" not in header[len(include) - 1:])
            template = previous.lstrip().startswith("template") and not previous.rstrip().endswith(";")
            meta = "staticMetaObject" in " ".join(lines[n:n + 10])
            foreign = meta and not in_the_dlls(m.group(1), symbols) if m else False
            if m and public and not template and not foreign and m.group(1) not in seen:
                seen.add(m.group(1))
                out.append((m.group(1), header[len(include):], first_base(m.group(2))))
        if line.strip():
            previous = line
    return out


def first_base(bases):
    """The first base's name when it is a plain class (not a template)."""
    if not bases:
        return None
    m = _BASE.match(bases[1:].split(",")[0])
    return m.group(1) if m and not m.group(2) else None


def read_library(folder):
    """(wrapped classes, known type names) of the library's catalogue."""
    wrapped = set()
    with open(os.path.join(folder, "classes.tsv"), encoding="utf-8") as f:
        for line in f:
            if line.startswith("#") or not line.strip():
                continue
            cols = line.rstrip("\n").split("\t")
            if cols[4] == "1":
                wrapped.add(cols[5])
    with open(os.path.join(folder, "known_type_names.txt"), encoding="utf-8") as f:
        known = [line.rstrip("\n") for line in f if line.strip()]
    return wrapped, known


def arrange(classes, library_wrapped):
    """The set in catalogue order, each as (group, class, header, base)."""
    base_of = {c: b for c, _h, b in classes}

    def chain(c):
        out = []
        while c is not None:
            out.append(c)
            c = base_of.get(c)
        return out

    def group(c):
        ancestors = chain(c)
        if "QAbstractItemModel" in ancestors:
            return "model"
        if "QObject" in ancestors:
            return "qobject"
        if "QEvent" in ancestors:
            return "event"
        return "value"

    kept = [(group(c), c, h, b) for c, h, b in classes if c not in library_wrapped]
    order = {"model": 0, "qobject": 1, "event": 2, "value": 3}
    # Depth first, then name: every base before the classes derived from it.
    kept.sort(key=lambda r: (order[r[0]], len(chain(r[1])), r[1]))
    return kept


def compositions(kept, classes):
    """Per kept class, its first-base chain through every exported class
    (the library's too), of which those in this set, base first."""
    members = {c for _g, c, _h, _b in kept}
    base_of = {c: b for c, _h, b in classes}
    out = []
    for _g, c, _h, _b in kept:
        composed, walk = [], c
        while walk is not None:
            if walk in members:
                composed.append(walk)
            walk = base_of.get(walk)
        out.append((c, list(reversed(composed))))
    return out


def write_catalogue(out, kept, classes, library_known):
    cat = os.path.join(out, "catalogue")
    os.makedirs(cat, exist_ok=True)
    note = "# Written by generator/more_catalogue.py; regenerate, do not edit.\n"
    with open(os.path.join(cat, "classes.tsv"), "w", encoding="utf-8") as f:
        f.write("# place\thalf\tgroup\tmembers\twrapped\ttype_name\n")
        for place, (group, c, _h, _b) in enumerate(kept):
            f.write("%d\t1\t%s\t0\t1\t%s\n" % (place, group, c))
    with open(os.path.join(cat, "compositions.tsv"), "w", encoding="utf-8") as f:
        f.write("# type_name\twrappers composed by its exposer, in creation order (flattened names)\n")
        for c, composed in compositions(kept, classes):
            f.write("%s\t%s\n" % (c, " ".join(composed)))
    with open(os.path.join(cat, "known_type_names.txt"), "w", encoding="utf-8") as f:
        f.writelines(c + "\n" for _g, c, _h, _b in kept)
    with open(os.path.join(cat, "also_nameable.txt"), "w", encoding="utf-8") as f:
        f.write(note + "# The library's known type names (typelib/catalogue/known_type_names.txt).\n")
        f.writelines(n + "\n" for n in library_known)
    with open(os.path.join(cat, "interface_namespace.txt"), "w", encoding="utf-8") as f:
        f.write(note + "# The LIBID of QtMoreWrap, the namespace of its interfaces' IIDs.\n" + LIBID + "\n")
    headers = sorted({h for _g, _c, h, _b in kept})
    with open(os.path.join(out, "headers.txt"), "w", encoding="utf-8") as f:
        f.write(note)
        f.writelines(h + "\n" for h in headers)


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--sdk", default=DEFAULT_SDK)
    ap.add_argument("--library-catalogue", default=os.path.join(REPO, "typelib", "catalogue"))
    ap.add_argument("--out", default=os.path.join(REPO, "typelib", "qt48more"))
    ap.add_argument("--cc", default="x86_64-w64-mingw32-g++")
    args = ap.parse_args(argv)
    if not os.path.isfile(os.path.join(args.sdk, "include", "QtCore", "qglobal.h")):
        print("more_catalogue: no Qt 4.8 SDK at %s" % args.sdk)
        return 2
    nm = args.cc[:-len("g++")] + "nm" if args.cc.endswith("g++") else "nm"
    classes = exported_classes(preprocess(args.cc, args.sdk), args.sdk, library_symbols(nm, args.sdk))
    wrapped, known = read_library(args.library_catalogue)
    kept = arrange(classes, wrapped)
    write_catalogue(args.out, kept, classes, known)
    groups = {}
    for g, *_rest in kept:
        groups[g] = groups.get(g, 0) + 1
    print("more_catalogue: %d classes (%s) of %d exported public ones; wrote %s"
          % (len(kept), ", ".join("%s %d" % kv for kv in sorted(groups.items())),
             len(classes), args.out))
    return 0


if __name__ == "__main__":
    sys.exit(main())

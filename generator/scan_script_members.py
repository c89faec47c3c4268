#!/usr/bin/env python3
"""Scan: Qt headers -> the members a script host calls beyond the library's.

The library has no body for two kinds of member a script wants: the
constructors of value classes (it makes no objects of its own; a script
host makes values: `app.value("QRect", 0, 0, 10, 10)`), and the pure
virtual functions of abstract classes (only subclasses implement them, yet
a call through the base class reaches the subclass's:
`model.rowCount()` on a QAbstractItemModel). This reads the installed
headers of a Qt 4.8 SDK for Windows x64 with castxml, as mingw-w64's g++
sees them, and writes, for every class of the type-names lists, the public
constructors of a value class (copyable, not abstract, no QObject) and the
public pure virtual functions, in the declarations file's member format.
The output is committed; the build only reads it.

Usage:
  scan_script_members.py --sdk DIR --type-names FILE [--type-names FILE ...]
                         [--out FILE] [--castxml castxml]
                         [--cc x86_64-w64-mingw32-g++]

Exit status 0 on success; 2 when castxml or the SDK is missing.
"""

import argparse
import json
import os
import shutil
import sys
import tempfile

from castxml_reader import Castxml, find_classes, run_castxml
from catalogue import read_list
from output import write_if_changed

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
DEFAULT_OUT = os.path.join(REPO, "typelib", "qt48", "script_members.jsonl")
FORMAT = "kwQtWrappers script members 1"


def is_qobject(cx, cls):
    """Whether the class is QObject or derives from it."""
    if cx.class_spelling(cls) == "QObject":
        return True
    return any(is_qobject(cx, cx.by_id[base.get("type")]) for base in cls.findall("Base")
               if base.get("type") in cx.by_id)


def value_class(cx, cls):
    """A class whose objects a script may make and own: complete, not
    abstract, copyable and no QObject (QObjects belong to their parents)."""
    if cls.get("incomplete") == "1" or cls.get("abstract") == "1" or cls.get("access") in ("private", "protected"):
        return False
    if is_qobject(cx, cls):
        return False
    for member in (cx.by_id.get(i) for i in (cls.get("members") or "").split()):
        if member is not None and member.tag == "Constructor" and member.get("access") != "public" \
                and _is_copy(cx, member, cls):
            return False
    return True


def _is_copy(cx, ctor, cls):
    args = ctor.findall("Argument")
    return len(args) == 1 and cx.spell(args[0].get("type"))[1].replace(" const &", "") == cx.class_spelling(cls)


def parameters(cx, member):
    """A member's parameters as declarations records: name, type, default."""
    out = []
    for a in member.findall("Argument"):
        p = {"name": a.get("name", ""), "type": cx.spell(a.get("type"))[1]}
        if a.get("default") is not None:
            p["default"] = a.get("default")
        out.append(p)
    return out


def constructors(cx, cls):
    """The public constructors of a class as member records, in
    declaration order; the copy constructor and the implicit ones are left
    out (a script copies a value by passing it)."""
    out = []
    for member in (cx.by_id.get(i) for i in (cls.get("members") or "").split()):
        if member is None or member.tag != "Constructor" or member.get("access") != "public":
            continue
        if member.get("artificial") == "1" or _is_copy(cx, member, cls):
            continue
        params = parameters(cx, member)
        path, line = cx.location(member)
        rec = {"name": cx.class_spelling(cls).rsplit("::", 1)[-1], "kind": "constructor", "access": "public",
               "flags": [], "result": "void", "params": params, "at": "%s:%d" % (path, line)}
        if member.find("Ellipsis") is not None:
            continue
        out.append(rec)
    return out


def pure_virtuals(cx, cls):
    """The public pure virtual functions a class declares, as member
    records in declaration order (operators left out)."""
    out = []
    for member in (cx.by_id.get(i) for i in (cls.get("members") or "").split()):
        if member is None or member.tag != "Method" or member.get("access") != "public":
            continue
        if member.get("pure_virtual") != "1" or member.find("Ellipsis") is not None:
            continue
        params = parameters(cx, member)
        path, line = cx.location(member)
        flags = ["const"] if member.get("const") == "1" else []
        out.append({"name": member.get("name"), "kind": "method", "access": "public", "flags": flags + ["virtual", "pure"],
                    "result": cx.spell(member.get("returns"))[1], "params": params, "at": "%s:%d" % (path, line)})
    return out


def scan(sdk, type_names, castxml, cc, work):
    include = os.path.join(sdk, "include")
    tu = os.path.join(work, "all.cpp")
    with open(tu, "w") as f:
        f.write("#include <QtCore/QtCore>\n#include <QtGui/QtGui>\n")
    xml = os.path.join(work, "all.xml")
    includes = [include, os.path.join(include, "QtCore"), os.path.join(include, "QtGui"),
                os.path.join(sdk, "mkspecs", "default")]
    code, err = run_castxml(castxml, cc, includes, tu, xml)
    if code != 0:
        sys.stderr.write(err)
        raise SystemExit("scan_script_members: castxml failed")
    cx = Castxml(xml, include)
    classes = find_classes(cx)
    records = []
    for name in type_names:
        cls = classes.get(name)
        if cls is None or "<" in name or cls.get("incomplete") == "1":
            continue
        record = {"type": name}
        if value_class(cx, cls):
            record["constructors"] = constructors(cx, cls)
        record["virtuals"] = pure_virtuals(cx, cls)
        if record.get("constructors") or record["virtuals"]:
            records.append(record)
    return records


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--sdk", required=True)
    ap.add_argument("--type-names", action="append", required=True)
    ap.add_argument("--out", default=DEFAULT_OUT)
    ap.add_argument("--castxml", default="castxml")
    ap.add_argument("--cc", default="x86_64-w64-mingw32-g++")
    args = ap.parse_args(argv)
    if shutil.which(args.castxml) is None or not os.path.isdir(os.path.join(args.sdk, "include")):
        sys.stderr.write("scan_script_members: needs castxml and a Qt SDK\n")
        return 2
    names = []
    for path in args.type_names:
        names += [n for n in read_list(path) if n not in names]
    with tempfile.TemporaryDirectory() as work:
        records = scan(os.path.realpath(args.sdk), names, args.castxml, args.cc, work)
    lines = [json.dumps({"format": FORMAT, "qt": "4.8.7", "classes": len(records)})]
    lines += [json.dumps(r, sort_keys=True) for r in records]
    write_if_changed(args.out, "\n".join(lines) + "\n")
    print("%d constructors of %d value classes, %d pure virtual members of %d classes" % (
        sum(len(r.get("constructors", [])) for r in records), sum(1 for r in records if r.get("constructors")),
        sum(len(r["virtuals"]) for r in records), sum(1 for r in records if r["virtuals"])))
    return 0


if __name__ == "__main__":
    sys.exit(main())

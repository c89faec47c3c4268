"""Report (generate.py report): the generated type library against the catalogue's counts.

Prints, interface by interface, the number of members the generator makes
from the declarations beside the catalogue's number, then the totals
(members, unused DISPIDs, overload groups, last DISPID of each half)
beside the catalogue's targets, with the reason where a class could not be
read from the headers, then the catalogue's anchors (anchors.txt) that the
layout does not hold, with what the declarations give in their place.

With --dump-with TOOL... DLL, the DLL's own type library is printed with
the dump tool and must hold exactly the generated interfaces, members and
DISPIDs; a difference makes the exit status 1.
"""

import argparse
import os
import subprocess
import sys
import textwrap
from collections import defaultdict

import anchors as anchors_mod
import drops
import naming

COMMAND = "report"
READS_LAYOUT = True

_INSTANCE_NOTE = ("template instance: members are those Qt 4.8.7's own sources and "
                  "headers instantiate with this compiler; the catalogue's come from "
                  "another compiler's build of Qt, which inlined and instantiated otherwise")
_DECLARED_NOTE = ("the class as Qt 4.8.7 declares it; the catalogue's count comes from "
                  "an earlier Qt 4 release (its QInputDialog has only the static functions "
                  "of the API before Qt 4.5) and another configuration (members added "
                  "since, Qt 3 support members, pure virtual functions listed for some "
                  "classes)")

GROUP_NOTES = {
    "container": _INSTANCE_NOTE,
    "iterator": _INSTANCE_NOTE,
    "qflags": _INSTANCE_NOTE,
    "internal": "Qt-internal class: its use in Qt's implementation files decides "
                "what the catalogue holds",
    "runtime": "the catalogue's classes are the other compiler's runtime; "
               "libstdc++ has other classes and members",
    "codec": "private codec classes: the catalogue lists none of their members",
    "value": _DECLARED_NOTE,
    "qobject": _DECLARED_NOTE,
    "event": _DECLARED_NOTE,
    "style_option": _DECLARED_NOTE,
}

NOT_FOUND_NOTES = {
    "runtime": "a class of the other compiler's standard library or runtime",
    "internal": "declared only in Qt's implementation files or private to them",
    "container": "an instance over a type declared only in Qt's implementation files",
    "iterator": "an instance over a type declared only in Qt's implementation files",
}


def totals(interfaces):
    out = {}
    halves = defaultdict(list)
    for itf in interfaces:
        halves[itf.entry.half].append(itf)
    out["interfaces"] = len(interfaces)
    out["members"] = sum(len(i.kept) for i in interfaces)
    unused = {}
    last = {}
    for half, itfs in sorted(halves.items()):
        used = [m.dispid for i in itfs for m in i.kept]
        if used:
            last[half] = max(used)
            first = min(m.dispid for i in itfs for m in i.members)
            unused[half] = (max(used) - first + 1) - len(used)
        else:
            last[half] = None
            unused[half] = 0
    out["unused"] = unused
    out["last"] = last
    groups = 0
    skipping = 0
    for itf in interfaces:
        # Group candidates by the name before numbering.
        cands = defaultdict(list)
        for m in itf.members:
            cands[_unnumbered(m, itf)].append(m)
        for members in cands.values():
            kept = [m for m in members if m.kept]
            if len(kept) > 1:
                groups += 1
            if kept and any(not m.kept for m in members[:members.index(kept[-1])]):
                skipping += 1
    out["overload_groups"] = groups
    out["groups_skipping"] = skipping
    return out


def _unnumbered(member, itf):
    return naming.member_base_name(itf.entry.type_name, member.decl)


def print_anchors(results):
    """The catalogue's fixed members: how many the layout holds, and for
    each it misses what the declarations give there."""
    missed = [r for r in results if not r.met]
    print()
    print("Anchors: %d of %d hold" % (len(results) - len(missed), len(results)))
    previous = None
    for r in missed:
        a = r.anchor
        print("  not held: %s %s" % (a.interface, " ".join(
            ([] if a.member == "-" else [a.member]) + [a.fact] + list(a.names))))
        if r.details == previous:
            print("      (as above)")
            continue
        for line in r.details:
            print("      " + line)
        previous = r.details


def read_dump(text):
    """tlbdump output -> {interface: [(dispid, name), ...]}."""
    out = {}
    cur = None
    for line in text.splitlines():
        if line.startswith("interface "):
            cur = line.split()[1]
            out[cur] = []
        elif line.startswith("  0x") and cur:
            dispid, rest = line.strip().split(" ", 1)
            out[cur].append((int(dispid, 16), rest.split("(", 1)[0]))
    return out


def add_arguments(ap):
    ap.add_argument("--dump-with", nargs=argparse.REMAINDER,
                    help="dump command and the DLL (last argument)")


def write(library, args):
    cat, header, interfaces = library.catalogue, library.header, library.interfaces

    print("Type library report: %s, declarations of Qt %s read with %s (%s)"
          % ("QtClientWrap", header.get("qt"), header.get("compiler"), header.get("std")))
    print("%5s %-60s %9s %9s %6s  %s" % ("place", "interface", "generated", "catalogue", "diff", "note"))
    exact = 0
    for itf in interfaces:
        gen = len(itf.kept)
        want = itf.entry.members
        diff = gen - want
        exact += diff == 0
        note = ""
        if not itf.found:
            note = "not in the headers (%s)" % itf.reason
            why = NOT_FOUND_NOTES.get(itf.entry.group)
            if why:
                note += ": " + why
        elif diff:
            note = GROUP_NOTES.get(itf.entry.group, "")
        name = itf.name if len(itf.name) <= 60 else itf.name[:57] + "..."
        print("%5d %-60s %9d %9d %+6d  %s" % (itf.entry.place, name, gen, want, diff, note))

    t = totals(interfaces)
    tg = cat.targets
    print()
    print("Totals                       generated   catalogue")
    print("  interfaces                 %9d   %9d" % (t["interfaces"], tg.get("interfaces", 0)))
    print("  members                    %9d   %9d" % (t["members"], tg.get("members", 0)))
    print("  interfaces with the catalogue's count: %d of %d" % (exact, len(interfaces)))
    un = t["unused"]
    print("  unused DISPIDs             %9d   %9d" % (sum(un.values()), tg.get("unused_dispids", 0)))
    for half in sorted(un):
        print("    half %d                   %9d   %9d" % (half, un[half], tg.get("unused_dispids_half%d" % half, 0)))
    print("  overload groups            %9d   %9d" % (t["overload_groups"], tg.get("overload_groups", 0)))
    print("  groups skipping a suffix   %9d" % t["groups_skipping"])
    for half in sorted(t["last"]):
        last = t["last"][half]
        print("  last DISPID of half %d      0x%08X  0x%08X" % (
            half, last or 0, tg.get("last_dispid_half%d" % half, 0)))
    by_group = defaultdict(lambda: [0, 0])
    for itf in interfaces:
        by_group[itf.entry.group][0] += len(itf.kept)
        by_group[itf.entry.group][1] += itf.entry.members
    print("  by group:")
    for g, (gen, want) in sorted(by_group.items()):
        print("    %-14s %9d   %9d" % (g, gen, want))
    missing = [i for i in interfaces if not i.found]
    print("  classes not found in the headers: %d (kept at their place with their IID, no members)"
          % len(missing))
    big = sorted(interfaces, key=lambda i: -abs(len(i.kept) - i.entry.members))[:10]
    print("  largest differences: " + ", ".join(
        "%s %+d" % (i.entry.flat, len(i.kept) - i.entry.members) for i in big))
    dropped = defaultdict(list)
    for itf in interfaces:
        for member in itf.members:
            if not member.kept:
                dropped[member.drop.kind].append(member)
    print("  dropped candidates (name suffix and DISPID kept unused), by kind: %d"
          % sum(len(v) for v in dropped.values()))
    for kind in drops.KINDS:
        print("    %-24s %5d" % (kind, len(dropped[kind])))
    for kind in (drops.NOT_EXPORTED, drops.ABSTRACT_RESULT):
        for member in dropped[kind]:
            print("    %s (DISPID 0x%08X): %s" % (member.name, member.dispid, member.reason))
    vtable_only = [m.name for i in interfaces if i.entry.wrapped for m in i.kept
                   if (m.retval and m.retval.count("*") > 1 and m.retval != "IDispatch**")
                   or any(p.idl.startswith("void*") for p in m.params)]
    print("  members Wine's ITypeInfo::Invoke refuses (a pointer-to-pointer result or a void* "
          "parameter; hosts call them through the vtable): %d" % len(vtable_only))
    print(textwrap.fill(", ".join(vtable_only), width=100, initial_indent="    ",
                        subsequent_indent="    "))
    anchors_path = os.path.join(args.catalogue, "anchors.txt")
    if os.path.exists(anchors_path):
        print_anchors(anchors_mod.check(interfaces, anchors_mod.load(anchors_path)))

    if args.dump_with:
        cmd = args.dump_with
        proc = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              universal_newlines=True)
        if proc.returncode != 0:
            sys.stderr.write(proc.stderr)
            print("report: the dump tool failed")
            return 1
        dump = read_dump(proc.stdout)
        problems = []
        if list(dump) != [i.name for i in interfaces]:
            problems.append("interfaces differ in names or order")
        for itf in interfaces:
            want = [(m.dispid, m.name) for m in itf.kept]
            if dump.get(itf.name) != want:
                problems.append("%s: members differ" % itf.name)
        if problems:
            print("The DLL's type library differs from the generated layout:")
            for p in problems[:20]:
                print("  " + p)
            return 1
        print("The DLL's type library holds exactly these %d interfaces and %d members."
              % (len(dump), sum(len(v) for v in dump.values())))
    return 0


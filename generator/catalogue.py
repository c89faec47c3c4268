"""Reads the checked-in catalogue data under typelib/catalogue/."""

import os
from collections import namedtuple

import naming

def read_list(path):
    """The entries of a list file: one a line, blank lines and # comments left out."""
    out = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if line:
                out.append(line)
    return out


Entry = namedtuple("Entry", "place half group members wrapped type_name flat")


class Catalogue:
    def __init__(self, entries, compositions, known_names, targets, also_nameable=(), iid_namespace=None):
        self.entries = entries
        # The namespace of the interfaces' name-based IIDs when it is not
        # the library's (interface_namespace.txt): a second DLL's interface
        # of a class the library also declares must not share its IID.
        self.iid_namespace = iid_namespace
        # Classes another wrappers DLL wraps (also_nameable.txt): a result
        # of one goes to this DLL's manager under its name, and the host's
        # dispatch sink hands it to the DLL that knows it.
        self.also_nameable = list(also_nameable)
        self.compositions = compositions
        self.known_names = known_names
        self.targets = targets

    def nameable_classes(self):
        """The classes whose objects a member may take or give: those the
        wrappers manager knows, and the declared-only Qt classes, which have
        their interface in the library but no wrapper code.  An argument of
        one is read out of whatever wrapper the host passes (arguments are
        never checked against their class), and a result goes to the manager
        under its name, the manager's answer being the member's.  The
        declared-only runtime entries are excepted: they are another
        compiler's library classes, not this compiler's classes of the same
        name."""
        return set(self.known_names) | set(self.also_nameable) | {
            e.type_name for e in self.entries
            if not e.wrapped and e.group != "runtime"}

    def halves(self):
        out = {}
        for e in self.entries:
            out.setdefault(e.half, []).append(e)
        return [out[k] for k in sorted(out)]


def _rows(path):
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            if line and not line.startswith("#"):
                yield line.split("\t")


def load(folder):
    entries = []
    for place, half, group, members, wrapped, type_name in _rows(
            os.path.join(folder, "classes.tsv")):
        entries.append(Entry(int(place), int(half), group, int(members),
                             wrapped == "1", type_name, naming.flatten(type_name)))
    if [e.place for e in entries] != list(range(len(entries))):
        raise ValueError("classes.tsv: places must run 0, 1, 2 ... in order")
    compositions = {}
    path = os.path.join(folder, "compositions.tsv")
    if os.path.exists(path):
        for type_name, wrappers in _rows(path):
            compositions[type_name] = wrappers.split()
    known = []
    path = os.path.join(folder, "known_type_names.txt")
    if os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            known = [line.rstrip("\n") for line in f if line.strip()]
    targets = {}
    path = os.path.join(folder, "targets.txt")
    if os.path.exists(path):
        for row in _rows(path):
            key, value = row[0].split("=", 1)
            targets[key.strip()] = int(value.strip(), 0)
    path = os.path.join(folder, "also_nameable.txt")
    also = read_list(path) if os.path.exists(path) else []
    path = os.path.join(folder, "interface_namespace.txt")
    namespace = read_list(path)[0] if os.path.exists(path) else None
    return Catalogue(entries, compositions, known, targets, also, namespace)

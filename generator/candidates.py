"""The candidate members of a class, as declarations records: what the
class declares publicly (public slots told apart by the header's access
labels), the implicit copy assignment and destructor where they do work,
filtered by what is instantiated for template instances and by what Qt's
sources emit for classes the DLL does not export."""

import os
import re

_LABEL = re.compile(r"^\s*(public|protected|private|Q_SIGNALS|signals)"
                    r"\s*(Q_SLOTS|slots)?\s*:(?!:)")


class SlotFinder:
    """Tells whether a member stands in a 'public slots' section, reading
    the access labels of the header around the class."""

    def __init__(self):
        self.cache = {}

    def labels(self, path):
        if path not in self.cache:
            out = []
            try:
                with open(path, encoding="latin-1") as f:
                    for n, line in enumerate(f, 1):
                        m = _LABEL.match(line)
                        if m:
                            slot = bool(m.group(2)) and m.group(1) == "public"
                            out.append((n, slot))
            except OSError:
                pass
            self.cache[path] = out
        return self.cache[path]

    def is_slot(self, path, class_line, member_line):
        result = False
        for n, slot in self.labels(path):
            if n <= class_line:
                continue
            if n >= member_line:
                break
            result = slot
        return result


KIND_BY_TAG = {"Method": "method", "OperatorMethod": "operator",
               "Converter": "conversion", "Destructor": "destructor",
               "Constructor": "constructor"}
FUNCTION_TAGS = set(KIND_BY_TAG)
NEVER = {"metaObject", "d_func"}
_ID = re.compile(r"^_\d+")


class Members:
    """Which members of a class the compiler gives it: the declared ones,
    and the implicit copy assignment and destructor where they do work
    (a non-trivial one is generated for an exported class; a trivial one
    is not)."""

    def __init__(self, cx):
        self.cx = cx
        self._memo = {}

    def functions(self, cls):
        return [self.cx.by_id[m] for m in cls.get("members", "").split()
                if self.cx.by_id[m].tag in FUNCTION_TAGS]

    def _class_elem(self, tid, through_arrays=False, through_references=False):
        skip = ("Typedef", "ElaboratedType", "CvQualifiedType")
        if through_arrays:
            skip += ("ArrayType",)
        if through_references:
            skip += ("ReferenceType",)
        e = self.cx.by_id[_ID.match(tid).group(0)]
        while e.tag in skip:
            e = self.cx.by_id[_ID.match(e.get("type")).group(0)]
        return e if e.tag in ("Class", "Struct", "Union") else None

    def bases(self, cls):
        for b in cls.findall("Base"):
            yield b, self._class_elem(b.get("type"))

    def subobject_classes(self, cls):
        """The classes of cls's bases and data members (arrays of a class
        count as that class): what its implicit members call into."""
        out = [e for _b, e in self.bases(cls) if e is not None]
        for mid in cls.get("members", "").split():
            f = self.cx.by_id[mid]
            if f.tag == "Field":
                e = self._class_elem(f.get("type"), through_arrays=True)
                if e is not None:
                    out.append(e)
        return out

    def polymorphic(self, cls):
        if any(m.get("virtual") == "1" for m in self.functions(cls)):
            return True
        return any(b.get("virtual") == "1" or (e is not None and self.polymorphic(e))
                   for b, e in self.bases(cls))

    def copy_assignable(self, cls):
        """Whether the implicit copy assignment of cls could be compiled:
        not when cls or a base or member class declares its own out of reach
        (Q_DISABLE_COPY in QObject makes every QObject subclass's implicit
        one ill-formed)."""
        key = (cls.get("id"), "assignable")
        if key in self._memo:
            return self._memo[key]
        self._memo[key] = True
        own = [m for m in self.functions(cls) if m.get("artificial") != "1"
               and m.tag == "OperatorMethod" and m.get("name") == "="
               and self._is_copy_parameter(m, cls)]
        if own:
            result = all(m.get("access") == "public" for m in own)
        else:
            result = all(self.copy_assignable(p) for p in self.subobject_classes(cls))
        self._memo[key] = result
        return result

    def copy_constructible(self, cls):
        """Whether a copy of cls can be made: not when cls or a base or
        member class declares its copy constructor out of reach
        (Q_DISABLE_COPY in QDataStream, QTextStream, QObject)."""
        key = (cls.get("id"), "copyable")
        if key in self._memo:
            return self._memo[key]
        self._memo[key] = True
        own = [m for m in self.functions(cls) if m.get("artificial") != "1"
               and m.tag == "Constructor" and self._is_copy_parameter(m, cls)]
        if own:
            result = all(m.get("access") == "public" for m in own)
        else:
            result = all(self.copy_constructible(p) for p in self.subobject_classes(cls))
        self._memo[key] = result
        return result

    def _is_copy_parameter(self, m, cls):
        """Whether m takes one argument of its own class (X, X & or
        const X &): a copy assignment rather than one from another type."""
        args = m.findall("Argument")
        return len(args) == 1 and \
            self._class_elem(args[0].get("type"), through_references=True) is cls

    def nontrivial(self, cls, what):
        """what: 'destructor' or 'assignment' (copy assignment)."""
        key = (cls.get("id"), what)
        if key in self._memo:
            return self._memo[key]
        self._memo[key] = False
        declared = [m for m in self.functions(cls) if m.get("artificial") != "1" and (
            m.tag == "Destructor" if what == "destructor"
            else m.tag == "OperatorMethod" and m.get("name") == "=")]
        result = bool(declared)
        if not result and what == "assignment":
            result = self.polymorphic(cls)
        if not result:
            result = any(self.nontrivial(p, what) for p in self.subobject_classes(cls))
            result = result or any(b.get("virtual") == "1" for b, _ in self.bases(cls))
        self._memo[key] = result
        return result

    def candidates(self, cls):
        """Public member functions of the class in declaration order that
        the library implements (not pure virtual ones), with the implicit
        ones that do work.  Constructors count for a class nested in
        another class (iterators, nodes): their name is not the name the
        class is known by."""
        if cls.get("access") in ("private", "protected"):
            # A class nested out of reach (QList<T>::Node): no caller can
            # name it, so it has no members to offer.
            return []
        nested = self.cx.by_id.get(cls.get("context"))
        nested = nested is not None and nested.tag in ("Class", "Struct", "Union")
        out = []
        for m in self.functions(cls):
            if m.get("access") != "public" or m.get("name") in NEVER:
                continue
            if m.get("pure_virtual") == "1":
                # No code in the library: only subclasses implement it.
                continue
            implicit = m.get("artificial") == "1"
            if m.tag == "Constructor":
                if not nested or implicit:
                    continue
            elif implicit:
                if m.tag == "Destructor" and not self.nontrivial(cls, "destructor"):
                    continue
                if m.tag == "OperatorMethod" and not (self.nontrivial(cls, "assignment")
                                                      and self.copy_assignable(cls)):
                    continue
                if m.tag not in ("Destructor", "OperatorMethod"):
                    continue
            out.append(m)
        return out


def is_template_instance(cx, cls):
    return "<" in cx.qualified(cls)


def is_container_iterator(cx, cls):
    """An iterator class nested in a template instance (QList<T>::iterator)."""
    return cx.qualified(cls).rsplit("::", 1)[-1] in ("iterator", "const_iterator")


def is_equality(m):
    return m.tag == "OperatorMethod" and m.get("name") in ("==", "!=")


def is_exported(cls):
    """The class is declared dllimport (Q_CORE_EXPORT, Q_GUI_EXPORT): the
    DLL carries every member, inline ones included."""
    return "dllimport" in (cls.get("attributes") or "").split()


def collect_members(cx, cls, slots, members, instantiated=(), used_by_sources=None):
    """The candidate members of one class as declarations records.

    instantiated: for template instances, the emitted symbol sets to try in
    turn (Instantiated objects); the first under which any member of the
    instance was emitted decides.  Empty: no filtering.  used_by_sources:
    members emitted by Qt's sources, which decide the inline members of a
    class the DLL does not export; None: no filtering of that kind."""
    out = []
    cls_file = os.path.realpath(cx.files.get(cls.get("file"), ""))
    cls_line = int(cls.get("line", "0"))
    candidates = members.candidates(cls)
    if instantiated and is_template_instance(cx, cls):
        for tier in instantiated:
            chosen = [m for m in candidates if tier(cls, m)]
            if chosen:
                break
        if is_container_iterator(cx, cls):
            # A host walks a container with begin(), end() and operator!=
            # whether or not Qt's own code compares that kind of iterator.
            chosen = [m for m in candidates if m in chosen or is_equality(m)]
        candidates = chosen
    elif used_by_sources is not None and not is_exported(cls):
        candidates = [m for m in candidates
                      if m.get("inline") != "1" or used_by_sources(cls, m)]
    for m in candidates:
        kind = KIND_BY_TAG[m.tag]
        name = m.get("name")
        if m.tag == "OperatorMethod":
            name = "operator" + name
        elif m.tag == "Converter":
            name = "operator " + cx.spell(m.get("returns"))[1]
        elif m.tag == "Destructor":
            name = "~" + name
        if kind == "method" and m.get("static") == "1":
            kind = "static"
        params = []
        for a in m.findall("Argument"):
            node, text = cx.spell(a.get("type"))
            p = {"name": a.get("name", ""), "type": text}
            if a.get("default") is not None:
                p["default"] = a.get("default")
            params.append(p)
        result = "void"
        if m.get("returns"):
            result = cx.spell(m.get("returns"))[1]
        m_file = os.path.realpath(cx.files.get(m.get("file"), ""))
        slot = (m_file == cls_file
                and slots.is_slot(cls_file, cls_line, int(m.get("line", "0"))))
        path, line = cx.location(m)
        flags = [f for f, attr in (("const", "const"), ("virtual", "virtual"),
                                   ("pure", "pure_virtual"), ("inline", "inline"),
                                   ("implicit", "artificial"))
                 if m.get(attr) == "1"]
        rec = {"name": name, "kind": kind,
               "access": "public slot" if slot else "public",
               "flags": flags, "result": result, "params": params}
        if m.find("Ellipsis") is not None:
            rec["variadic"] = True
        rec["at"] = "%s:%d" % (path, line)
        out.append(rec)
    return out


def class_record(cx, cls, entry, members=None):
    """The class line of the declarations file. With `members` (a Members)
    a class that cannot be copied says so ("copyable": false): a value
    result of it cannot be handed over."""
    bases = []
    for b in cls.findall("Base"):
        bases.append({"type": cx.spell(b.get("type"))[1],
                      "access": b.get("access"),
                      "virtual": b.get("virtual") == "1"})
    path, line = cx.location(cls)
    rec = {"place": entry.place, "type": entry.type_name, "flat": entry.flat,
           "found": True, "at": "%s:%d" % (path, line), "bases": bases,
           "abstract": cls.get("abstract") == "1"}
    if cls.get("access") in ("private", "protected"):
        # Nested out of reach (QList<T>::Node): code outside the enclosing
        # class cannot name it.
        rec["nested_access"] = cls.get("access")
    if members is not None and not members.copy_constructible(cls):
        rec["copyable"] = False
    return rec

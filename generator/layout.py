"""The library's layout: interfaces, member names, DISPIDs and types.

Combines the catalogue (which classes, in which order, in which half) with
the declarations file (each class's candidate members) by the rules of
naming.py and automation.py.  Every back-end works from the result, so the
type library and the wrapper classes agree on names, numbers and order.
"""

import json
import os
import uuid
from collections import namedtuple

import automation
import catalogue as catalogue_mod
import drops
import identifiers
import marshalling
import naming
import typenames
from drops import Drop

# row: the marshalling.py row of the parameter's C++ type (cxx).
Param = namedtuple("Param", "name idl direction row cxx")


class Member:
    """One candidate member of an interface.

    drop is None for a member the library holds, else the drops.Drop that
    says why it is not written: it keeps its name suffix and DISPID, which
    then stay unused. A kept member has its parameters and its result
    (marshalling.Result), classified once for every back-end.
    """

    def __init__(self, decl, name, dispid):
        self.decl = decl
        self.name = name
        self.dispid = dispid
        self.drop = None
        self.params = []
        self.result = None
        self.detaches = False

    @property
    def kept(self):
        return self.drop is None

    @property
    def reason(self):
        return None if self.drop is None else str(self.drop)

    @property
    def retval(self):
        """The IDL type of the [out, retval] parameter, None for none."""
        return self.result.retval if self.result is not None else None

    def declaration(self, type_name):
        """The Qt declaration the member calls, on one line of C++."""
        decl = self.decl
        params = ", ".join((p["type"] + (" " + p["name"] if p["name"] else "")).replace("& ", "&")
                           for p in decl["params"])
        if decl.get("variadic"):
            params += ", ..."
        head = "" if decl["kind"] in ("constructor", "destructor") else decl["result"] + " "
        static = "static " if decl["kind"] == "static" else ""
        const = " const" if "const" in decl.get("flags", []) else ""
        return "%s%s%s::%s(%s)%s" % (static, head, type_name, decl["name"], params, const)

    def comment_lines(self, type_name):
        """The comment before a member: what a kept member calls, or why a
        dropped one is not written (its number and suffix stay unused) and
        what it would have called."""
        text = self.declaration(type_name)
        if self.decl.get("at"):
            text += "  [%s]" % self.decl["at"]
        if self.kept:
            return ["// %s (DISPID 0x%08X) calls %s" % (self.name, self.dispid, text)]
        return ["// dropped %s (DISPID 0x%08X): %s" % (self.name, self.dispid, self.reason), "//   " + text]


class Interface:
    def __init__(self, entry, iid, members, found, reason=None):
        self.entry = entry
        self.name = naming.interface_name(entry.flat)
        self.iid = iid
        self.members = members
        self.found = found
        self.reason = reason

    @property
    def kept(self):
        return [m for m in self.members if m.kept]


# Next to a declarations file: the wrapper members whose code needs a symbol
# the wrapped library's DLLs do not export (written by scan_exports.py).
UNEXPORTED_FILE = "unexported.txt"


def read_unexported(path):
    """unexported.txt -> {(flat class, member name): symbols text}; {} when
    there is no such file."""
    out = {}
    if os.path.isfile(path):
        with open(path, encoding="utf-8") as f:
            for line in f:
                if line.strip() and not line.startswith("#"):
                    flat, member, symbols = line.rstrip("\n").split(" ", 2)
                    out[(flat, member)] = symbols
    return out


def read_declarations(path):
    """Declarations file -> (header dict, {place: class record}). The
    header's "unexported" is read_unexported of the file beside it."""
    classes = {}
    with open(path, encoding="utf-8") as f:
        header = json.loads(f.readline())
        if header.get("format") != "kwQtWrappers declarations 1":
            raise ValueError("%s: not a declarations file" % path)
        for line in f:
            if line.strip():
                rec = json.loads(line)
                classes[rec["place"]] = rec
    header["unexported"] = read_unexported(os.path.join(os.path.dirname(path), UNEXPORTED_FILE))
    return header, classes


def _require_wrapper(node, known, unreachable):
    """The class of an object argument or result must be one the module
    can hand over (known: Catalogue.nameable_classes, None: no such check),
    and the wrapper code must be able to name it: not a class nested
    privately in another (QList<T>::Node)."""
    automation.require_wrapper(node, known)
    name = typenames.result_type_name(node)
    if name in unreachable:
        raise Drop(drops.PRIVATE_NESTED, name)


def _require_copyable_result(result, abstract, uncopyable=frozenset()):
    """A class result is copied to the heap for the host; an abstract class
    cannot be, nor one whose copy constructor is out of reach, and handing
    over the referenced object itself would give the host a second wrapper
    of it."""
    if result.row in marshalling.VALUE_RESULT_ROWS:
        name = typenames.result_type_name(result.node)
        if name in abstract:
            raise Drop(drops.ABSTRACT_RESULT, name)
        if name in uncopyable:
            raise Drop(drops.UNCOPYABLE_RESULT, name)


def _express(member, decl, known, unreachable=frozenset(), template_args=frozenset(), abstract=frozenset(),
             uncopyable=frozenset()):
    """Fill params and result, or give the member its drop.

    known is the set of classes members may take or give, or None for a class
    with no wrapper class of its own: nothing runs behind its members, so
    they need no wrapper of their argument and result classes either.
    template_args are the classes the class's template arguments name: an
    argument declared as a pointer to one of them (QPointer<QObject>'s
    operator=(QObject *)) stands for the template's parameter, which any
    wrapped object the host passes can fill. abstract: the classes that
    cannot be copied into a value result; uncopyable: the classes whose
    copy constructor is out of reach."""
    try:
        params = []
        for i, p in enumerate(decl["params"]):
            node = typenames.parse_type(p["type"])
            idl, direction, row = automation.map_type(node)
            check = None if automation.points_to_one_of(node, template_args) else known
            _require_wrapper(node, check, unreachable)
            params.append(Param("Par%d" % i, idl, direction, row, p["type"]))
        # A variadic tail is not passed: the host gives the fixed
        # parameters only (a printf-style format is then used as it is).
        result = marshalling.classify_result(decl["result"])
        if result.row is not marshalling.VOID:
            # Only a class-typed result names a class; others pass.
            _require_wrapper(result.node, known, unreachable)
            _require_copyable_result(result, abstract, uncopyable)
    except Drop as drop:
        member.drop = drop
        return
    except typenames.TypeSyntaxError as exc:
        member.drop = Drop(drops.UNREADABLE_TYPE, str(exc))
        return
    member.params = params
    member.result = result


def _signature(decl):
    return decl["name"], tuple(p["type"] for p in decl["params"])


def _refers_into(result, type_name):
    """Whether a result of C++ type `result` refers into the object it came
    from: a reference, a pointer or one of the class's own iterators."""
    node = typenames.strip_const(typenames.parse_type(result))
    if isinstance(node, (typenames.Reference, typenames.Pointer)):
        return True
    return typenames.spell(node) in ("%s::iterator" % type_name, "%s::const_iterator" % type_name)


def detaching_members(decls, type_name):
    """The const members that are called on the bound object as on a
    non-const one, so that data it shares is detached first: those whose
    result refers into the object (a reference, a pointer, one of its
    iterators) and that either stand beside a non-const overload of the
    same parameters or give one of the class's iterators (begin() const,
    constBegin())."""
    non_const = {_signature(d) for d in decls
                 if d["kind"] in ("method", "operator") and "const" not in d.get("flags", [])}
    out = set()
    for i, d in enumerate(decls):
        if d["kind"] not in ("method", "operator") or "const" not in d.get("flags", []):
            continue
        try:
            refers = _refers_into(d["result"], type_name)
        except typenames.TypeSyntaxError:
            continue
        own_iterator = refers and "iterator" in d["result"]
        if refers and (_signature(d) in non_const or own_iterator):
            out.add(i)
    return out


def build(catalogue, classes, unexported=None):
    """Lay out the whole library: a list of Interface in catalogue order.
    unexported: read_unexported's members, dropped like inexpressible ones."""
    unexported = unexported or {}
    out = []
    known = catalogue.nameable_classes() if catalogue.known_names else None
    unreachable = frozenset(rec["type"] for rec in classes.values()
                            if rec.get("nested_access"))
    abstract = frozenset(rec["type"] for rec in classes.values() if rec.get("abstract"))
    uncopyable = frozenset(rec["type"] for rec in classes.values() if rec.get("copyable") is False)
    if catalogue.iid_namespace:
        namespace = uuid.UUID(catalogue.iid_namespace)
        interface_iid = lambda name: identifiers.interface_iid(name, namespace, fixed={})
    else:
        interface_iid = identifiers.interface_iid
    for half in catalogue.halves():
        counter = identifiers.DISPID_BASE
        for entry in half:
            rec = classes.get(entry.place)
            iid = interface_iid(naming.interface_name(entry.flat))
            if rec is None or not rec.get("found"):
                reason = rec.get("reason") if rec else "no declarations"
                out.append(Interface(entry, iid, [], False, reason))
                continue
            decls = rec.get("members", [])
            check = known if entry.wrapped else None
            template_args = typenames.template_argument_classes(entry.type_name)
            bases = [naming.member_base_name(entry.type_name, d) for d in decls]
            order = naming.candidate_order(bases, [[p["type"] for p in d["params"]]
                                                  for d in decls])
            decls = [decls[i] for i in order]
            bases = [bases[i] for i in order]
            names = naming.number_overloads(bases)
            detaching = detaching_members(decls, entry.type_name)
            members = []
            for i, (decl, name) in enumerate(zip(decls, names)):
                m = Member(decl, name, counter)
                counter += 1
                _express(m, decl, check, unreachable, template_args, abstract, uncopyable)
                m.detaches = i in detaching
                symbols = unexported.get((entry.flat, name))
                if m.kept and symbols:
                    m.drop = Drop(drops.NOT_EXPORTED, symbols)
                members.append(m)
            out.append(Interface(entry, iid, members, True))
    return out


Library = namedtuple("Library", "catalogue header classes interfaces")


def load(catalogue_dir, declarations_path):
    """The catalogue, the declarations and the layout built from them."""
    cat = catalogue_mod.load(catalogue_dir)
    header, classes = read_declarations(declarations_path)
    return Library(cat, header, classes, build(cat, classes, header["unexported"]))

"""Fixed points of the catalogue's library, checked against a layout.

typelib/catalogue/anchors.txt lists members the host already knows: which
names exist, which do not, the DISPIDs of some, the parameters of some,
which member opens or closes an interface, the whole member list of a few.  check() tells for
each whether the generated layout holds it and, where it does not, shows
what the declarations give at that place (the candidates of the name with
their fate, the numbers before the member), so that the reader sees why.
"""

import re
from collections import namedtuple

import identifiers
import naming

Anchor = namedtuple("Anchor", "interface member fact names")
Result = namedtuple("Result", "anchor met details")

_FACTS = ("present", "absent", "first", "last", "exactly", "takes")
_LISTS = ("exactly", "takes")
_SUFFIX = re.compile(r"^(.*?)(?:_(\d+))?$")


def load(path):
    """anchors.txt -> [Anchor].  Each line: interface, member (or - for a
    fact about the whole interface), fact (present, absent, first, last, a
    DISPID, exactly followed by the interface's member names, or takes
    followed by the member's parameter types: "(int, char const *)")."""
    out = []
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            words = line.split("#", 1)[0].split()
            if not words:
                continue
            if len(words) < 3:
                raise ValueError("%s:%d: interface, member and fact expected" % (path, number))
            interface, member, fact = words[:3]
            if fact not in _FACTS and not fact.startswith("0x"):
                raise ValueError("%s:%d: unknown fact %r" % (path, number, fact))
            if (fact in _LISTS) != (len(words) > 3):
                raise ValueError("%s:%d: only %s take a list" % (path, number, " and ".join(_LISTS)))
            out.append(Anchor(interface, member, fact, tuple(words[3:])))
    return out


def signature(member):
    """name(parameter types) const, as the declarations give it."""
    decl = member.decl
    text = "%s(%s)" % (decl["name"], ", ".join(p["type"] for p in decl["params"]))
    return text + (" const" if "const" in decl.get("flags", ()) else "")


def _fate(member):
    if member.kept:
        return "0x%08X kept" % member.dispid
    return "0x%08X dropped, %s" % (member.dispid, member.reason)


def _group(itf, name):
    """The candidates that share the unnumbered name of `name`."""
    bases = {m.name: naming.member_base_name(itf.entry.type_name, m.decl) for m in itf.members}
    bare = bases.get(name) or _SUFFIX.match(name).group(1)
    return [m for m in itf.members if bases[m.name] == bare]


def _group_details(itf, name):
    group = _group(itf, name)
    if not group:
        return ["the declarations give no candidate of that name"]
    lines = ["the declarations give %d candidate%s of that name:"
             % (len(group), "" if len(group) == 1 else "s")]
    lines += ["  %s: %s, %s" % (m.name, signature(m), _fate(m)) for m in group]
    return lines


def _listing(members):
    """A short list of candidates with their fate, or their count when long."""
    kept = sum(1 for m in members if m.kept)
    counts = "%d (%d kept, %d dropped)" % (len(members), kept, len(members) - kept)
    if not members or len(members) > 8:
        return counts
    return counts + ": " + ", ".join(
        "%s %s" % (signature(m), "kept" if m.kept else "dropped") for m in members)


def _room_before(itf, member, dispid, interfaces):
    """Why a DISPID cannot come out: the catalogue's number leaves room for
    only so many candidates before the member in its interface, since every
    member of an earlier interface of the half holds a number below it."""
    earlier = sum(i.entry.members for i in interfaces
                  if i.entry.half == itf.entry.half and i.entry.place < itf.entry.place)
    room = dispid - identifiers.DISPID_BASE - earlier
    before = itf.members[:itf.members.index(member)]
    return ["the catalogue's number leaves room for at most %d candidates before it "
            "(the earlier interfaces of half %d hold %d members)" % (room, itf.entry.half, earlier),
            "the declarations give %s; in the whole interface %d candidates, %d dropped"
            % (_listing(before), len(itf.members), len(itf.members) - len(itf.kept))]


def _check_one(anchor, itf, interfaces):
    kept = itf.kept
    by_name = {m.name: m for m in kept}
    fact = anchor.fact
    if fact == "exactly":
        have = sorted(m.name for m in kept)
        want = sorted(anchor.names)
        if have == want:
            return True, []
        details = []
        for name in sorted(set(have) - set(want)):
            details.append("also generated: %s, %s" % (name, signature(by_name[name])))
        details += ["not generated: %s" % n for n in sorted(set(want) - set(have))]
        return False, details
    member = by_name.get(anchor.member)
    if fact == "present":
        return member is not None, [] if member else _group_details(itf, anchor.member)
    if fact == "absent":
        return member is None, _group_details(itf, anchor.member) if member else []
    if member is None:
        return False, ["not generated"] + _group_details(itf, anchor.member)
    if fact == "takes":
        have = "(%s)" % ", ".join(p.cxx for p in member.params)
        if have == " ".join(anchor.names):
            return True, []
        return False, ["generated with %s" % have] + _group_details(itf, anchor.member)
    if fact in ("first", "last"):
        at = kept[0] if fact == "first" else kept[-1]
        if at is member:
            return True, []
        index = itf.members.index(member)
        others = itf.members[:index] if fact == "first" else itf.members[index + 1:]
        return False, ["generated %s member: %s" % (fact, at.name),
                       "candidates %s it: %s" % ("before" if fact == "first" else "after",
                                                 _listing(others))]
    dispid = int(fact, 0)
    if member.dispid == dispid:
        return True, []
    return False, ["generated at 0x%08X" % member.dispid] + _room_before(itf, member, dispid, interfaces)


def check(interfaces, anchors):
    """[Result] in the order of the anchors."""
    by_name = {i.name: i for i in interfaces}
    out = []
    for anchor in anchors:
        itf = by_name.get(anchor.interface)
        if itf is None:
            out.append(Result(anchor, False, ["no such interface"]))
            continue
        met, details = _check_one(anchor, itf, interfaces)
        out.append(Result(anchor, met, details))
    return out

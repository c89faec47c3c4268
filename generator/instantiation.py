"""Which members of a template instance exist: the functions the compiler
emits for the translation unit when it keeps every inline function (as a
DLL that exports its classes does), and those Qt's own sources emit
(instantiated.txt, written by scan_sources.py), matched to castxml's
members by their symbols."""

import os
import re
import shutil
import subprocess

from catalogue import read_list

# Its section of the template bases exported with a class, instantiated whole.
EXPORTED_SECTION = "exported"


def emitted_symbols(cc, includes, tu, work, std="gnu++98"):
    """Symbols of the functions the compiler emits for the translation unit
    when it keeps every inline function, as a DLL that exports its classes
    does: the member functions of template instances that the headers' own
    code instantiates.  None when the compiler fails."""
    asm = os.path.join(work, "tu.s")
    cmd = [cc, "-std=" + std, "-w", "-fno-access-control", "-fkeep-inline-functions",
           "-O0", "-S", "-D_WIN64", "-DUNICODE", "-DQT_DLL"]
    for i in includes:
        cmd += ["-I", i]
    cmd += ["-o", asm, tu]
    proc = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          universal_newlines=True)
    if proc.returncode != 0:
        return None
    return assembly_symbols(asm)


def assembly_symbols(asm):
    """The function symbols an assembly file of g++ defines."""
    with open(asm, encoding="latin-1") as f:
        return set(re.findall(r"^\s*\.def\s+([^;\s]+);", f.read(), re.M))


def demangle_symbols(cc, symbols):
    """{symbol: demangled text} through the compiler's c++filt; {} when
    there is none."""
    tool = cc[:-len("g++")] + "c++filt" if cc.endswith("g++") else "c++filt"
    if shutil.which(tool) is None:
        tool = "c++filt"
    wanted = sorted(symbols)
    if not wanted or shutil.which(tool) is None:
        return {}
    proc = subprocess.run([tool], input="\n".join(wanted) + "\n", stdout=subprocess.PIPE,
                          universal_newlines=True)
    return dict(zip(wanted, proc.stdout.splitlines()))


def demangle(cc, symbols):
    """{symbol: demangled text} for the symbols of constructors and
    destructors (castxml gives no mangled name for those)."""
    return demangle_symbols(cc, (s for s in symbols if re.search(r"[CD][0-9]E", s)))


_TU_LINE = re.compile(r"^(?:In file included from )?(\S*?tu\.cpp):(\d+):")


def failing_tu_lines(stderr):
    """Lines of the translation unit that an error traces back to."""
    bad = set()
    chain = []
    for line in stderr.splitlines():
        m = _TU_LINE.match(line)
        if line.startswith("In file included from "):
            chain.append(line)
            continue
        if ": error:" in line or ": fatal error:" in line:
            if chain:
                m2 = _TU_LINE.match(chain[0])
                if m2:
                    bad.add(int(m2.group(2)))
            elif m:
                bad.add(int(m.group(2)))
        chain = [] if not line.startswith(" ") and "note:" not in line else chain
    return bad


def _normal(text):
    return re.sub(r"\s+", "", text)


class Instantiated:
    """Tells whether a member function of a template instance has been
    instantiated: its symbol is among those the compiler emitted."""

    def __init__(self, cx, symbols, demangled):
        self.cx = cx
        self.symbols = symbols
        self.special = {}   # normalised "Class::name(" -> [normalised params]
        for text in (demangled[s] for s in symbols if s in demangled):
            head, _, rest = text.partition("(")
            self.special.setdefault(_normal(head), []).append(_normal(rest.rsplit(")", 1)[0]))

    def __call__(self, cls, m):
        if m.get("mangled"):
            return m.get("mangled") in self.symbols
        qualified = _normal(self.cx.qualified(cls))
        name = qualified.rsplit("::", 1)[-1].split("<", 1)[0]
        head = qualified + "::" + ("~" if m.tag == "Destructor" else "") + name
        found = self.special.get(head, [])
        if m.tag == "Destructor":
            return bool(found)
        params = [_normal(cx_param) for cx_param in
                  (self.cx.qualified_type(a.get("type")) for a in m.findall("Argument"))]
        want = ",".join(params)
        return any(p == want or (p == "void" and not params) for p in found)


def read_source_symbols(path):
    """instantiated.txt -> {module: set of symbols}, modules in file order."""
    out = {}
    for line in read_list(path):
        module, symbol = line.split()
        out.setdefault(module, set()).add(symbol)
    return out


def instantiation_tiers(cc, cx, header_symbols, sources_file):
    """The symbol sets a template instance's members are looked up in, in
    turn: the headers' own code and the template bases exported with a
    class, with the first module's sources (QtCore, whose half of the
    catalogue holds the instances); then with every module's sources, for
    an instance the first module never instantiates.  Also the set of all
    the sources' symbols (for classes the DLL does not export), or None
    without a sources file."""
    if not os.path.isfile(sources_file):
        return [Instantiated(cx, header_symbols, demangle(cc, header_symbols))], None
    sections = read_source_symbols(sources_file)
    seen = set(header_symbols) | sections.pop(EXPORTED_SECTION, set())
    from_sources = set().union(*sections.values())
    demangled = demangle(cc, seen | from_sources)
    tiers = []
    for module_symbols in sections.values():
        seen |= module_symbols
        tiers.append(Instantiated(cx, set(seen), demangled))
    return tiers, Instantiated(cx, from_sources, demangled)

"""Reading castxml's description of the headers: running castxml over the
translation unit, an indexed view of its XML output with the compiler's
spelling of every type, and the classes it defines."""

import os
import re
import subprocess
import xml.etree.ElementTree as ET

import typenames


def run_castxml(castxml, cc, includes, tu, xml_out, std="gnu++98"):
    cmd = [castxml, "--castxml-output=1",
           "--castxml-cc-gnu", "(", cc, "-std=" + std, ")",
           "-std=" + std, "-w", "-fno-access-control", "-ferror-limit=0",
           "-D_WIN64", "-DUNICODE", "-DQT_DLL"]
    for i in includes:
        cmd += ["-I", i]
    cmd += ["-o", xml_out, tu]
    proc = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          universal_newlines=True)
    return proc.returncode, proc.stderr


# castxml leaves out template arguments that equal their defaults; type
# names always spell them.  The defaults of the templates concerned:
_DEFAULT_ARGS = {
    "std::vector": lambda a: [a[0], _std("allocator", a[0])],
    "std::basic_string": lambda a: [a[0], _std("char_traits", a[0]), _std("allocator", a[0])],
}


def _std(name, arg):
    return typenames.Named([("std", None), (name, [arg])])


def _with_default_args(node):
    if isinstance(node, typenames.Named):
        parts = []
        prefix = []
        for ident, args in node.parts:
            prefix.append(ident)
            if args is not None:
                args = [_with_default_args(a) for a in args]
                fill = _DEFAULT_ARGS.get("::".join(prefix))
                if fill is not None and len(args) == 1:
                    args = fill(args)
            parts.append((ident, args))
        return typenames.Named(parts, node.is_enum)
    for attr in ("inner", "result"):
        if hasattr(node, attr):
            setattr(node, attr, _with_default_args(getattr(node, attr)))
    if isinstance(node, typenames.Function):
        node.params = [_with_default_args(p) for p in node.params]
    return node


class Castxml:
    """Indexed view of a castxml output document."""

    def __init__(self, path, qt_source):
        self.root = ET.parse(path).getroot()
        self.by_id = {e.get("id"): e for e in self.root}
        self.files = {e.get("id"): e.get("name") for e in self.root.iter("File")}
        self.qt_source = os.path.realpath(qt_source)
        self.enum_names = set()
        for e in self.root.iter("Enumeration"):
            self.enum_names.add(self.qualified(e))
        self._spell_cache = {}

    def qualified(self, elem):
        parts = []
        while elem is not None and elem.get("name") not in (None, "::"):
            parts.append(elem.get("name"))
            elem = self.by_id.get(elem.get("context"))
        return "::".join(reversed(parts))

    def class_spelling(self, elem):
        name = self.qualified(elem)
        try:
            node = typenames.parse_type(name, self.enum_names)
        except typenames.TypeSyntaxError:
            return name
        return typenames.spell(_with_default_args(node))

    def type_node(self, tid):
        """TypeExpr of a castxml type id (typedefs resolved)."""
        cv = ""
        if tid.endswith(("c", "v", "r")):
            # castxml ids like "_12c" are const-qualified "_12".
            m = re.match(r"^(_\d+)([cvr]*)$", tid)
            if m:
                tid, cv = m.group(1), m.group(2)
        e = self.by_id[tid]
        tag = e.tag
        if tag == "FundamentalType":
            node = typenames.parse_type(e.get("name"))
        elif tag in ("Typedef", "ElaboratedType"):
            node = self.type_node(e.get("type"))
        elif tag == "CvQualifiedType":
            node = self.type_node(e.get("type"))
            if e.get("const") == "1":
                node = typenames.Const(node)
        elif tag == "PointerType":
            node = typenames.Pointer(self.type_node(e.get("type")))
        elif tag == "ReferenceType":
            node = typenames.Reference(self.type_node(e.get("type")))
        elif tag in ("Class", "Struct", "Union"):
            node = _with_default_args(typenames.parse_type(self.qualified(e), self.enum_names))
        elif tag == "Enumeration":
            node = typenames.parse_type(self.qualified(e), self.enum_names)
            node.is_enum = True
        elif tag == "FunctionType":
            params = [self.type_node(a.get("type")) for a in e.findall("Argument")]
            node = typenames.Function(self.type_node(e.get("returns")), params,
                                  e.find("Ellipsis") is not None)
        elif tag == "ArrayType":
            mx = e.get("max", "")
            size = int(mx) + 1 if mx.lstrip("-").isdigit() and int(mx) >= 0 else None
            node = typenames.Array(self.type_node(e.get("type")), size)
        elif tag == "MethodType":
            node = typenames.Builtin("__method")
        elif tag == "OffsetType":
            node = typenames.Builtin("__member_pointer")
        else:
            raise ValueError("unhandled castxml type %s" % tag)
        if "c" in cv:
            node = typenames.Const(node)
        return node

    def spell(self, tid):
        if tid not in self._spell_cache:
            node = self.type_node(tid)
            self._spell_cache[tid] = (node, typenames.spell(node))
        return self._spell_cache[tid]

    def qualified_type(self, tid):
        """A parameter type as the demangler writes it, for comparing
        after blanks are removed."""
        text = self.spell(tid)[1]
        text = re.sub(r"\benum ", "", text)
        return re.sub(r"\b__int64\b", "long long", text)

    def location(self, elem):
        path = os.path.realpath(self.files.get(elem.get("file"), ""))
        if path.startswith(self.qt_source + os.sep):
            path = os.path.relpath(path, self.qt_source)
        else:
            path = os.path.basename(path)
        return path, int(elem.get("line", "0"))


def find_classes(cx):
    table = {}
    for tag in ("Class", "Struct", "Union"):
        for e in cx.root.iter(tag):
            spelling = cx.class_spelling(e)
            prev = table.get(spelling)
            # Prefer the complete definition over forward declarations.
            if prev is None or (prev.get("incomplete") == "1" and e.get("incomplete") != "1"):
                table[spelling] = e
    return table

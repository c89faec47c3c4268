"""Naming and typing rules shared by every back-end of the generator.

Everything that decides what the host sees lives here: how a type name is
spelled, how it is flattened into an identifier, how members are named and
numbered, which C++ types have an Automation form and what that form is,
how DISPIDs are counted and how IIDs are fixed.  The IDL back-end and the
C++ wrapper back-end both import this module so they cannot disagree.
"""

import re
import uuid

# ---------------------------------------------------------------------------
# Type expressions
#
# A small parser for C++ type names as compilers print them.  It reads both
# the compiler spelling used for type names handed to CreateWrapper
# ("QHash<QObject *,QObject * *>", "QList<void (__cdecl*)(void)>",
# "QFlags<enum Qt::WindowType>") and clang's spelling as castxml writes it
# ("QHash<QObject *, QObject **>", "QList<void (*)()>").  spell() prints a
# parsed type back in the compiler spelling.
# ---------------------------------------------------------------------------


class TypeExpr:
    """Base of the parsed type nodes."""

    def __eq__(self, other):
        return type(self) is type(other) and self.__dict__ == other.__dict__

    def __hash__(self):
        return hash(spell(self))

    def __repr__(self):
        return "<%s %s>" % (type(self).__name__, spell(self))


class Builtin(TypeExpr):
    def __init__(self, name):
        self.name = name


class Named(TypeExpr):
    """A class, struct, union or enumeration, possibly qualified/templated.

    parts is a list of (identifier, args) where args is None for a part
    without template arguments, else a list of TypeExpr or int literals.
    """

    def __init__(self, parts, is_enum=False):
        self.parts = parts
        self.is_enum = is_enum


class Const(TypeExpr):
    def __init__(self, inner):
        self.inner = inner


class Pointer(TypeExpr):
    def __init__(self, inner):
        self.inner = inner


class Reference(TypeExpr):
    def __init__(self, inner):
        self.inner = inner


class Function(TypeExpr):
    def __init__(self, result, params, variadic=False):
        self.result = result
        self.params = params
        self.variadic = variadic


class Array(TypeExpr):
    def __init__(self, inner, size):
        self.inner = inner
        self.size = size


class IntLiteral(TypeExpr):
    def __init__(self, value):
        self.value = value


# Builtin spellings: every way the parser may meet a builtin, to the
# compiler spelling.
_BUILTIN_WORDS = {"void", "bool", "char", "short", "int", "long", "float",
                  "double", "signed", "unsigned", "wchar_t", "__int64",
                  "__int128", "char16_t", "char32_t"}

_BUILTIN_CANON = {
    ("void",): "void",
    ("bool",): "bool",
    ("char",): "char",
    ("signed", "char"): "signed char",
    ("unsigned", "char"): "unsigned char",
    ("short",): "short",
    ("short", "int"): "short",
    ("signed", "short"): "short",
    ("signed", "short", "int"): "short",
    ("unsigned", "short"): "unsigned short",
    ("unsigned", "short", "int"): "unsigned short",
    ("short", "unsigned", "int"): "unsigned short",
    ("int",): "int",
    ("signed",): "int",
    ("signed", "int"): "int",
    ("unsigned",): "unsigned int",
    ("unsigned", "int"): "unsigned int",
    ("long",): "long",
    ("long", "int"): "long",
    ("signed", "long"): "long",
    ("unsigned", "long"): "unsigned long",
    ("unsigned", "long", "int"): "unsigned long",
    ("long", "unsigned", "int"): "unsigned long",
    ("long", "long"): "__int64",
    ("long", "long", "int"): "__int64",
    ("signed", "long", "long"): "__int64",
    ("__int64",): "__int64",
    ("unsigned", "long", "long"): "unsigned __int64",
    ("unsigned", "long", "long", "int"): "unsigned __int64",
    ("long", "long", "unsigned", "int"): "unsigned __int64",
    ("unsigned", "__int64"): "unsigned __int64",
    ("float",): "float",
    ("double",): "double",
    ("long", "double"): "long double",
    ("wchar_t",): "wchar_t",
    ("__int128",): "__int128",
    ("unsigned", "__int128"): "unsigned __int128",
    ("char16_t",): "char16_t",
    ("char32_t",): "char32_t",
}

_TOKEN = re.compile(r"\s*(::|\.\.\.|[A-Za-z_][A-Za-z0-9_]*|-?\d+|[<>,*&()\[\]])")


class TypeSyntaxError(ValueError):
    pass


def _tokenize(text):
    pos = 0
    out = []
    text = text.rstrip()
    while pos < len(text):
        m = _TOKEN.match(text, pos)
        if not m:
            raise TypeSyntaxError("cannot read %r at %d" % (text, pos))
        out.append(m.group(1))
        pos = m.end()
    return out


class _Parser:
    def __init__(self, text, enum_names):
        self.toks = _tokenize(text)
        self.i = 0
        self.text = text
        self.enum_names = enum_names

    def peek(self, k=0):
        j = self.i + k
        return self.toks[j] if j < len(self.toks) else None

    def take(self, want=None):
        tok = self.peek()
        if tok is None or (want is not None and tok != want):
            raise TypeSyntaxError("expected %r in %r" % (want, self.text))
        self.i += 1
        return tok

    def parse_type(self):
        const = False
        elaborated = None
        while self.peek() in ("const", "volatile", "enum", "struct", "class",
                              "union", "typename"):
            tok = self.take()
            if tok == "const":
                const = True
            elif tok != "volatile" and tok != "typename":
                elaborated = tok
        if self.peek() in _BUILTIN_WORDS:
            words = []
            while self.peek() in _BUILTIN_WORDS or self.peek() == "const":
                tok = self.take()
                if tok == "const":
                    const = True
                else:
                    words.append(tok)
            key = tuple(words)
            if key not in _BUILTIN_CANON:
                raise TypeSyntaxError("unknown builtin %r" % (key,))
            base = Builtin(_BUILTIN_CANON[key])
        else:
            base = self.parse_named(elaborated)
        while self.peek() == "const":
            self.take()
            const = True
        if const:
            base = Const(base)
        return self.parse_declarator(base)

    def parse_named(self, elaborated):
        parts = []
        if self.peek() == "::":
            self.take()
        while True:
            ident = self.take()
            if not re.match(r"[A-Za-z_]", ident):
                raise TypeSyntaxError("bad name %r in %r" % (ident, self.text))
            args = None
            if self.peek() == "<":
                self.take("<")
                args = []
                if self.peek() != ">":
                    while True:
                        args.append(self.parse_arg())
                        if self.peek() == ",":
                            self.take()
                            continue
                        break
                self.take(">")
            parts.append((ident, args))
            if self.peek() == "::":
                self.take()
                continue
            break
        qualified = "::".join(p for p, _ in parts)
        is_enum = elaborated == "enum" or qualified in self.enum_names
        return Named(parts, is_enum)

    def parse_arg(self):
        tok = self.peek()
        if tok is not None and re.match(r"-?\d+$", tok):
            self.take()
            return IntLiteral(int(tok))
        return self.parse_type()

    def parse_declarator(self, base):
        while True:
            tok = self.peek()
            if tok == "*":
                self.take()
                base = Pointer(base)
            elif tok == "&":
                self.take()
                base = Reference(base)
            elif tok == "const":
                self.take()
                base = Const(base)
            elif tok == "volatile":
                self.take()
            elif tok == "(" and self._is_function_pointer():
                base = self.parse_function_pointer(base)
            elif tok == "(":
                # A plain function type: "void (void)".
                params, variadic = self.parse_params()
                base = Function(base, params, variadic)
            elif tok == "[":
                self.take()
                size = None
                if self.peek() != "]":
                    size = int(self.take())
                self.take("]")
                base = Array(base, size)
            else:
                return base

    def _is_function_pointer(self):
        j = 1
        while self.peek(j) in ("__cdecl", "__stdcall", "__thiscall"):
            j += 1
        return self.peek(j) in ("*", "&")

    def parse_function_pointer(self, result):
        self.take("(")
        while self.peek() in ("__cdecl", "__stdcall", "__thiscall"):
            self.take()
        wrappers = []
        while self.peek() in ("*", "&", "const"):
            wrappers.append(self.take())
        self.take(")")
        params, variadic = self.parse_params()
        node = Function(result, params, variadic)
        for w in wrappers:
            if w == "*":
                node = Pointer(node)
            elif w == "&":
                node = Reference(node)
            else:
                node = Const(node)
        return node

    def parse_params(self):
        self.take("(")
        params = []
        variadic = False
        if self.peek() != ")":
            while True:
                if self.peek() == "...":
                    self.take()
                    variadic = True
                    break
                params.append(self.parse_type())
                if self.peek() == ",":
                    self.take()
                    continue
                break
        self.take(")")
        if len(params) == 1 and params[0] == Builtin("void"):
            params = []
        return params, variadic


def parse_type(text, enum_names=frozenset()):
    """Parse a type name in either the compiler or clang spelling.

    enum_names holds qualified names that are enumerations, for spellings
    (like clang's) that do not say "enum".
    """
    p = _Parser(text, enum_names)
    node = p.parse_type()
    if p.peek() is not None:
        raise TypeSyntaxError("trailing %r in %r" % (p.peek(), text))
    return node


def _spell_args(args):
    inner = ",".join(spell(a) for a in args)
    if inner.endswith(">"):
        inner += " "
    return "<" + inner + ">"


def spell(node):
    """The compiler spelling of a parsed type."""
    if isinstance(node, Builtin):
        return node.name
    if isinstance(node, IntLiteral):
        return str(node.value)
    if isinstance(node, Named):
        text = "::".join(ident + (_spell_args(args) if args is not None else "")
                         for ident, args in node.parts)
        return ("enum " + text) if node.is_enum else text
    if isinstance(node, Const):
        return spell(node.inner) + " const"
    if isinstance(node, Pointer):
        if isinstance(node.inner, Function):
            return _spell_function(node.inner, "*")
        return spell(node.inner) + " *"
    if isinstance(node, Reference):
        if isinstance(node.inner, Function):
            return _spell_function(node.inner, "&")
        return spell(node.inner) + " &"
    if isinstance(node, Function):
        return _spell_function(node, "")
    if isinstance(node, Array):
        return spell(node.inner) + " [%s]" % ("" if node.size is None else node.size)
    raise TypeError(node)


def _spell_function(fn, declarator):
    params = ",".join(spell(p) for p in fn.params)
    if fn.variadic:
        params = params + ",..." if params else "..."
    if not params:
        params = "void"
    if declarator:
        return "%s (__cdecl%s)(%s)" % (spell(fn.result), declarator, params)
    return "%s __cdecl(%s)" % (spell(fn.result), params)


def compiler_spelling(text, enum_names=frozenset()):
    """Any spelling of a type name -> the compiler spelling."""
    return spell(parse_type(text, enum_names))


# ---------------------------------------------------------------------------
# Identifiers
# ---------------------------------------------------------------------------

def flatten(type_name):
    """Flatten a type name into an identifier, character for character.

    '::' becomes one '_'; every other character that is not a letter, a
    digit or '_' becomes one '_'.
    """
    return re.sub(r"[^A-Za-z0-9_]", "_", type_name.replace("::", "_"))


def interface_name(flat):
    return "Iwrp_" + flat


def wrapper_class_name(flat):
    return "wrp_" + flat


def exposer_class_name(flat):
    return flat + "Exposer"


OPERATOR_WORDS = {
    "=": "ASSIGMENT",
    "==": "EQUAL",
    "!=": "NOTEQUAL",
    "<": "LESS",
    ">": "GREATER",
    "<=": "LESS_ASSIGMENT",
    ">=": "GREATER_ASSIGMENT",
    "<<": "LESS_LESS",
    ">>": "GREATER_GREATER",
    "+": "PLUS",
    "-": "MINUS",
    "+=": "PLUS_ASSIGMENT",
    "-=": "MINUS_ASSIGMENT",
    "++": "PLUS_PLUS",
    "--": "MINUS_MINUS",
    "*": "ASTERIX",
    "*=": "ASTERIX_ASSIGMENT",
    "/": "SLASH",
    "/=": "SLASH_ASSIGMENT",
    "%": "PERCENT",
    "%=": "PERCENT_ASSIGMENT",
    "&": "AND",
    "&=": "AND_ASSIGMENT",
    "&&": "AND_AND",
    "|": "OR",
    "|=": "OR_ASSIGMENT",
    "||": "OR_OR",
    "^": "CAP",
    "^=": "CAP_ASSIGMENT",
    "~": "TILDE",
    "!": "NOT",
    "[]": "INDEXING",
    "()": "CALL",
    "->": "MINUS_GREATER",
    "<<=": "LESS_LESS_ASSIGMENT",
    ">>=": "GREATER_GREATER_ASSIGMENT",
    "new": "NEW",
    "delete": "DELETE",
    "new[]": "NEW_ARRAY",
    "delete[]": "DELETE_ARRAY",
    ",": "COMMA",
}


def conversion_word(target_spelling):
    """Member-name part of a conversion to target (compiler spelling).

    '*' and '&' are written _ASTERIX and _AND, a space becomes '_'
    ("char const *" gives char_const__ASTERIX).
    """
    text = target_spelling.replace("*", "_ASTERIX").replace("&", "_AND")
    return flatten(text)


def innermost_name(type_name):
    """The last part of a qualified class name, template arguments and all:
    "QList<int>" for "QList<int>", "iterator" for "QList<int>::iterator",
    "ConverterState" for "QTextCodec::ConverterState"."""
    node = parse_type(type_name)
    return spell(Named([node.parts[-1]], node.is_enum))


def member_base_name(type_name, member):
    """Member name before overload numbering.

    type_name is the class's compiler spelling; member is a declarations
    record (see README): uses 'kind', 'name' and 'result'.  A destructor is
    named after the class as the compiler names it, template arguments
    included (QList<int>::~QList<int> gives QList_int__DTOR_QList_int_).
    """
    flat_class = flatten(type_name)
    kind = member["kind"]
    if kind == "destructor":
        return "%s_DTOR_%s" % (flat_class, flatten(innermost_name(type_name)))
    if kind == "operator":
        symbol = member["name"][len("operator"):].strip()
        return "%s_operator_%s" % (flat_class, OPERATOR_WORDS[symbol])
    if kind == "conversion":
        return "%s_operator_%s" % (flat_class, conversion_word(member["result"]))
    return "%s_%s" % (flat_class, member["name"])


def undecorated_parameters(param_types):
    """A parameter list as the compiler's undecorated names write it:
    class types carry the word "class" ("class QRect const &"), an empty
    list is "void"."""
    def one(text):
        core = parse_type(text)
        while isinstance(core, (Const, Pointer, Reference, Array)):
            core = core.inner
        spelled = spell(parse_type(text))
        if isinstance(core, Named) and not core.is_enum:
            spelled = "class " + spelled
        return spelled
    return ",".join(one(t) for t in param_types) or "void"


def candidate_order(base_names, param_lists):
    """Order of the candidates of one class: overloads stand together at
    the place of the first of their name, in the order of their
    undecorated parameter lists (QString::number(double,char,int) before
    number(int,int)); names keep the order of declaration.  Returns
    indexes into the given lists."""
    groups = {}
    order = []
    for i, name in enumerate(base_names):
        if name not in groups:
            groups[name] = []
            order.append(name)
        groups[name].append(i)
    out = []
    for name in order:
        out.extend(sorted(groups[name], key=lambda i: undecorated_parameters(param_lists[i])))
    return out


def number_overloads(base_names):
    """Bare name for the first of a name, then _2, _3 ... in order."""
    seen = {}
    out = []
    for name in base_names:
        n = seen.get(name, 0) + 1
        seen[name] = n
        out.append(name if n == 1 else "%s_%d" % (name, n))
    return out


# ---------------------------------------------------------------------------
# Automation types
# ---------------------------------------------------------------------------

# Plain types: compiler spelling -> IDL spelling.
PLAIN_TYPES = {
    "bool": "long",
    "int": "int",
    "unsigned int": "unsigned int",
    "long": "long",
    "unsigned long": "unsigned long",
    "__int64": "__int64",
    "unsigned __int64": "unsigned __int64",
    "short": "short",
    "unsigned short": "unsigned short",
    "char": "unsigned char",
    "signed char": "unsigned char",
    "unsigned char": "unsigned char",
    "double": "double",
    "float": "float",
}

IN = "in"
IN_OUT = "in, out"


class Inexpressible(Exception):
    """A C++ type with no Automation form; its member is dropped."""


def strip_const(node):
    """The type under any const qualifiers (a pointer's own const too)."""
    while isinstance(node, Const):
        node = node.inner
    return node


def is_class(node):
    """Whether node names a class or structure (not an enumeration)."""
    return isinstance(node, Named) and not node.is_enum


def _plain(node):
    """IDL spelling of a plain (by-value scalar) type, or None."""
    node = strip_const(node)
    if isinstance(node, Named) and node.is_enum:
        return "long"
    if isinstance(node, Builtin):
        return PLAIN_TYPES.get(node.name)
    return None


def map_type(node):
    """Automation form of a parameter type: (idl_type, direction, category).

    category says how a C++ back-end converts the value:
      'value'      a scalar passed as it is ('bool'/'enum' widened to long)
      'pointer'    pointer to a scalar, passed through as a pointer
      'reference'  reference to a scalar, passed as a pointer
      'text'       char pointer / ushort pointer passed through
      'void_ptr'   void * or void **
      'object'     a class value, reference or pointer, as IDispatch*
    Raises Inexpressible for anything else.
    """
    core = strip_const(node)
    plain = _plain(core)
    if plain is not None:
        return plain, IN, "value"
    if is_class(core):
        return "IDispatch*", IN, "object"
    if isinstance(core, (Pointer, Reference)):
        target = strip_const(core.inner)
        if is_class(target):
            return "IDispatch*", IN, "object"
        if isinstance(target, Builtin) and target.name == "void":
            if isinstance(core, Pointer):
                return "void*", IN_OUT, "void_ptr"
            raise Inexpressible(spell(node))
        if (isinstance(core, Pointer) and isinstance(target, Pointer)
                and isinstance(strip_const(target.inner), Builtin)
                and strip_const(target.inner).name == "void"):
            return "void**", IN_OUT, "void_ptr"
        tplain = _plain(target)
        if tplain is not None:
            if isinstance(core, Pointer) and isinstance(target, Builtin) and \
                    target.name in ("char", "signed char", "unsigned char",
                                    "unsigned short"):
                return tplain + "*", IN_OUT, "text"
            return tplain + "*", IN_OUT, ("pointer" if isinstance(core, Pointer)
                                          else "reference")
    raise Inexpressible(spell(node))


def _object_class(node):
    """The class a value, reference or pointer type names, or None."""
    core = strip_const(node)
    if isinstance(core, (Pointer, Reference)):
        core = strip_const(core.inner)
    return core if is_class(core) else None


def result_type_name(node):
    """Type name a class-typed result is wrapped under: the class itself for
    a value, reference or pointer ("QString" for const QString &)."""
    cls = _object_class(node)
    return spell(cls) if cls is not None else None


def template_argument_classes(type_name):
    """Spellings of the template arguments of a class name that are
    classes themselves, in any part of it: "QObject" for
    "QPointer<QObject>", "QString" and "QVariant" for
    "QMap<QString,QVariant>::iterator", none for "QHash<QObject *,int>",
    whose arguments are a pointer and a number."""
    out = set()
    node = parse_type(type_name)
    if isinstance(node, Named):
        for _ident, args in node.parts:
            for arg in args or ():
                if is_class(arg):
                    out.add(spell(arg))
    return frozenset(out)


def points_to_one_of(node, class_names):
    """True for a pointer (const or not) to one of the named classes."""
    cls = _object_class(node)
    return isinstance(strip_const(node), Pointer) and cls is not None and spell(cls) in class_names


def is_flags(node):
    """A QFlags<E> value, reference or pointer."""
    cls = _object_class(node)
    return cls is not None and len(cls.parts) == 1 and cls.parts[0][0] == "QFlags"


def require_wrapper(node, known_type_names):
    """An object argument is read out of a wrapper this module made and an
    object result comes back as a new wrapper made by type name, so the
    class of an object type must be one the module can hand over.  Raises
    Inexpressible when known_type_names (None: no check) lacks it.

    QFlags are the exception: an argument is the 32-bit value of whatever
    wrapper the host passes, and a result is handed to the manager under
    its own name whether the manager knows it or not (QWidget::windowFlags
    gives "QFlags<enum Qt::WindowType>"), the manager's answer being the
    member's."""
    name = result_type_name(node)
    if name is None or known_type_names is None or is_flags(node):
        return
    if name not in known_type_names:
        raise Inexpressible("%s (no wrapper for %s)" % (spell(node), name))


def map_result(node, known_type_names=None):
    """Automation form of a result type: the [out, retval] IDL type, or None
    for void.  Raises Inexpressible; with known_type_names given, also for a
    class the module has no wrapper for (require_wrapper)."""
    core = strip_const(node)
    if isinstance(core, Builtin) and core.name == "void":
        return None
    idl, _direction, category = map_type(node)
    if category == "object":
        require_wrapper(node, known_type_names)
    return idl + "*"


# ---------------------------------------------------------------------------
# DISPIDs and IIDs
# ---------------------------------------------------------------------------

DISPID_BASE = 0x0D001000

LIBID = "92F9C2B3-370B-4B5C-9998-D372C7BFDF08"
LIBRARY_NAME = "QtClientWrap"
LIBRARY_HELPSTRING = "Static wrappers support library"
CUSTOM_ATTRIBUTE_GUID = "94E37ED7-36B9-4AE8-B449-ACD0013AB56A"
CUSTOM_ATTRIBUTE_VALUE = "Qt"

# Fixed IIDs hosts already know; every other IID is derived from the name.
FIXED_IIDS = {
    "Iwrp_QString": "562BC544-7B64-4D29-A69F-614F7D90F12F",
    "Iwrp_QWidget": "C0092B1E-C6B3-4C43-9442-9702632D19BA",
    "Iwrp_QMetaObject": "B43C12FB-CA11-4846-8381-921A1B13E03B",
    "Iwrp_QChar": "FE899A7A-12EF-47F6-BC39-981A6955DDBC",
}

_IID_NAMESPACE = uuid.UUID(LIBID)


def interface_iid(name, namespace=_IID_NAMESPACE, fixed=FIXED_IIDS):
    """IID of an interface: a fixed one where hosts know it, otherwise a
    name-based (SHA-1) UUID in the library's namespace, stable forever."""
    if name in fixed:
        return fixed[name]
    return str(uuid.uuid5(namespace, name)).upper()

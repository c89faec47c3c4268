"""C++ type names: parsing, the compiler spelling, and questions about a type.

A small parser for C++ type names as compilers print them.  It reads both
the compiler spelling used for type names handed to CreateWrapper
("QHash<QObject *,QObject * *>", "QList<void (__cdecl*)(void)>",
"QFlags<enum Qt::WindowType>") and clang's spelling as castxml writes it
("QHash<QObject *, QObject **>", "QList<void (*)()>").  spell() prints a
parsed type back in the compiler spelling.
"""

import re

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



def strip_const(node):
    """The type under any const qualifiers (a pointer's own const too)."""
    while isinstance(node, Const):
        node = node.inner
    return node


def is_class(node):
    """Whether node names a class or structure (not an enumeration)."""
    return isinstance(node, Named) and not node.is_enum


def is_builtin(node, *names):
    """Whether node (const or not) is a builtin, one of names if given."""
    node = strip_const(node)
    return isinstance(node, Builtin) and (not names or node.name in names)


def object_class(node):
    """The class a value, reference or pointer type names, or None."""
    core = strip_const(node)
    if isinstance(core, (Pointer, Reference)):
        core = strip_const(core.inner)
    return core if is_class(core) else None


def result_type_name(node):
    """Type name a class-typed result is wrapped under: the class itself for
    a value, reference or pointer ("QString" for const QString &)."""
    cls = object_class(node)
    return spell(cls) if cls is not None else None


def is_flags(node):
    """A QFlags<E> value, reference or pointer."""
    cls = object_class(node)
    return cls is not None and len(cls.parts) == 1 and cls.parts[0][0] == "QFlags"


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

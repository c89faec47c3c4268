"""Names the host sees: flattened type names, interface, wrapper and exposer
names, member names with their operator words, and the order and numbering
of a class's candidates."""

import re

from typenames import Const, Array, Named, Pointer, Reference, parse_type, spell

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

"""How a value crosses between a host and a wrapped member: one row per kind
of C++ type.  A parameter `Par<i>` and the result slot `RetPar` have the IDL
type of their row (a result one `*` more, as [out, retval]); a member whose
parameter or result fits no row is dropped (drops.NO_AUTOMATION_FORM).

row           C++ type (any const)          IDL type (direction)
  body takes Par                              result: RetPar gets                  result owned
  Marshalling.h helper                        script kinds (argument/result)
------------  ----------------------------  -----------------------------------------------------
bool          bool                          long (in)
  Par != 0                                    BoolResult(call): -1 or 0            by value
  BoolResult                                  b/b
enum          enum E                        long (in)
  static_cast<enum E>(Par)                    static_cast<long>(call)              by value
  -                                           e/e
number        int, double, char, __int64... its own spelling, chars as unsigned char (in)
  Par, or static_cast<T>(Par)                 static_cast<idl>(call)               by value
  -                                           n/n
text          char *, (un)signed char *     unsigned char* (in, out)
  reinterpret_cast<char *>(Par)               PointerResult<unsigned char*>(call)  passed through
  PointerResult                               t/t
scalar ptr    pointer to a bool, enum or    the scalar's IDL type * (in, out)
              number (unsigned short *)
  reinterpret_cast<T *>(Par)                  PointerResult<idl>(call)             passed through
  PointerResult                               p/p
scalar ref    reference to a bool, enum     the scalar's IDL type * (in, out)
              or number
  *reinterpret_cast<T *>(Par)                 ReferencedValueResult<idl>(call):    by value
  ReferencedValueResult                       the value, integers sign-extended,   (not its address)
                                              floats in their own bytes
                                              p/the referenced scalar's kind
void ptr      void *, void * *              void*, void** (in, out)
  static_cast<void *>(Par)                    PointerResult<idl>(call)             passed through
  PointerResult                               p/p
QString       QString by value or reference IDispatch* (in)
class         a class by value or reference IDispatch* (in)
flags         QFlags<E> by value or ref.    IDispatch* (in)
  *arg.As<T>() of the host's wrapper          a wrapper of a copy (WrapValueResult) copied to the heap,
  InstanceArgument, WrapValueResult           s/o (QString), o/o   never freed (the wrapper's)
class ptr     pointer to a class            IDispatch* (in)
  arg.As<T>() of the host's wrapper           a wrapper of the object itself,      passed through
  InstanceArgument, InstancePointer           o/r                  made by CreateWrapper (null: null)
void          void (results only)           no [out, retval]
  -                                           call; S_OK                           -

Arguments and results of the class rows are objects of this module's
wrappers (`needs_wrapper`): the layout drops a member whose class the module
cannot hand over.  QFlags need none: an argument is the 32-bit value of
whatever wrapper comes, a result goes to the manager under its own name.
Everything else (references to pointers, pointers to class pointers,
function pointers, arrays, long double, wchar_t) has no row.
"""

from collections import namedtuple

from drops import NO_AUTOMATION_FORM, Drop
from typenames import (Builtin, Named, Pointer, Reference, is_builtin, is_class,
                       is_flags, object_class, parse_type, spell, strip_const)

IN = "in"
IN_OUT = "in, out"

# Numbers by value: compiler spelling -> IDL spelling.
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

TEXT_CHARACTERS = ("char", "signed char", "unsigned char")


def wide_literal(text):
    return 'L"%s"' % text.replace("\\", "\\\\").replace('"', '\\"')


# How a body takes Par<index> of type `node`: the expression handed to the
# callee; a class argument first adds the fetching of its instance to `body`.

def _take_bool(node, name, index, body):
    return "%s != 0" % name


def _take_scalar(node, name, index, body):
    cxx = spell(strip_const(node))
    return name if PLAIN_TYPES.get(cxx) == cxx else "static_cast<%s>(%s)" % (cxx, name)


def _take_pointer(node, name, index, body):
    return "reinterpret_cast<%s>(%s)" % (spell(strip_const(node)), name)


def _take_reference(node, name, index, body):
    return "*reinterpret_cast<%s*>(%s)" % (spell(strip_const(node).inner), name)


def _take_void_pointer(node, name, index, body):
    return "static_cast<%s>(%s)" % (spell(strip_const(node)), name)


def _fetch_instance(name, index, body):
    arg = "arg%d" % index
    body.append("kwwrap::InstanceArgument %s(%s);" % (arg, name))
    body.append("if (FAILED(hr = %s.Fetch())) return hr;" % arg)
    return arg


def _take_object(node, name, index, body):
    core = strip_const(node)
    target = core.inner if isinstance(core, Reference) else node
    return "*%s.As<%s>()" % (_fetch_instance(name, index, body), spell(target))


def _take_object_pointer(node, name, index, body):
    return "%s.As<%s>()" % (_fetch_instance(name, index, body), spell(strip_const(node).inner))


# How a body delivers the result of `call` (of type `node`) into RetPar,
# which points at a `slot` (the row's IDL type): the body's last lines.

def _store(helper):
    def give(node, slot, call):
        return ["*RetPar = %s(%s);" % (helper % {"slot": slot}, call), "return S_OK;"]
    return give


def _give_object(node, slot, call):
    return ["return kwwrap::WrapValueResult<%s>(m_pManager, %s, RetPar, [&]() -> decltype(auto) { return %s; });"
            % (spell(object_class(node)), wide_literal(spell(object_class(node))), call)]


def _give_object_pointer(node, slot, call):
    return ["return m_pManager->CreateWrapper(%s, kwwrap::InstancePointer(%s), RetPar);"
            % (wide_literal(spell(object_class(node))), call)]


def _give_nothing(node, slot, call):
    return ["%s;" % call, "return S_OK;"]


Row = namedtuple("Row", "name direction take give owner helpers arg_kind result_kind needs_wrapper")

BOOL = Row("bool", IN, _take_bool, _store("kwwrap::BoolResult"), "by value", "BoolResult", "b", "b", False)
ENUM = Row("enum", IN, _take_scalar, _store("static_cast<%(slot)s>"), "by value", "", "e", "e", False)
NUMBER = Row("number", IN, _take_scalar, _store("static_cast<%(slot)s>"), "by value", "", "n", "n", False)
TEXT = Row("text", IN_OUT, _take_pointer, _store("kwwrap::PointerResult<%(slot)s>"),
           "passed through", "PointerResult", "t", "t", False)
SCALAR_POINTER = Row("scalar ptr", IN_OUT, _take_pointer, _store("kwwrap::PointerResult<%(slot)s>"),
                     "passed through", "PointerResult", "p", "p", False)
# result_kind None: that of the referenced scalar.
SCALAR_REFERENCE = Row("scalar ref", IN_OUT, _take_reference, _store("kwwrap::ReferencedValueResult<%(slot)s>"),
                       "by value", "ReferencedValueResult", "p", None, False)
VOID_POINTER = Row("void ptr", IN_OUT, _take_void_pointer, _store("kwwrap::PointerResult<%(slot)s>"),
                   "passed through", "PointerResult", "p", "p", False)
QSTRING = Row("QString", IN, _take_object, _give_object, "copied to the heap, never freed",
              "InstanceArgument WrapValueResult", "s", "o", True)
CLASS = QSTRING._replace(name="class", arg_kind="o")
FLAGS = CLASS._replace(name="flags", needs_wrapper=False)
CLASS_POINTER = Row("class ptr", IN, _take_object_pointer, _give_object_pointer, "passed through",
                    "InstanceArgument InstancePointer", "o", "r", True)
VOID = Row("void", None, None, _give_nothing, "", "", None, "-", False)

# Results copied to the heap and handed over as a new object.
VALUE_RESULT_ROWS = (QSTRING, CLASS, FLAGS)

ROWS = (BOOL, ENUM, NUMBER, TEXT, SCALAR_POINTER, SCALAR_REFERENCE, VOID_POINTER,
        QSTRING, CLASS, FLAGS, CLASS_POINTER, VOID)

Form = namedtuple("Form", "row idl")


def _scalar(node):
    """The form of a bool, enumeration or number by value, or None."""
    if isinstance(node, Named) and node.is_enum:
        return Form(ENUM, "long")
    if isinstance(node, Builtin) and node.name in PLAIN_TYPES:
        return Form(BOOL if node.name == "bool" else NUMBER, PLAIN_TYPES[node.name])
    return None


def classify(node):
    """The row of a parsed C++ type and its IDL type (None for void).
    Raises Drop (no Automation form) for a type that fits no row."""
    core = strip_const(node)
    if is_builtin(core, "void"):
        return Form(VOID, None)
    form = _scalar(core)
    if form is not None:
        return form
    if is_class(core) or (isinstance(core, Reference) and is_class(strip_const(core.inner))):
        if is_flags(core):
            return Form(FLAGS, "IDispatch*")
        return Form(QSTRING if spell(object_class(core)) == "QString" else CLASS, "IDispatch*")
    if isinstance(core, Pointer):
        target = strip_const(core.inner)
        if is_class(target):
            return Form(CLASS_POINTER, "IDispatch*")
        if is_builtin(target, "void"):
            return Form(VOID_POINTER, "void*")
        if isinstance(target, Pointer) and is_builtin(target.inner, "void"):
            return Form(VOID_POINTER, "void**")
        form = _scalar(target)
        if form is not None:
            return Form(TEXT if is_builtin(target, *TEXT_CHARACTERS) else SCALAR_POINTER, form.idl + "*")
    if isinstance(core, Reference):
        form = _scalar(strip_const(core.inner))
        if form is not None:
            return Form(SCALAR_REFERENCE, form.idl + "*")
    raise Drop(NO_AUTOMATION_FORM, spell(node))


# A member's result, classified once for every back-end: the C++ type as
# declared (cxx) and parsed (node), its row, the IDL type of the slot RetPar
# points at (None for void), the [out, retval] type (None for void) and
# the kind a script host gives back.
Result = namedtuple("Result", "cxx node row idl retval script_kind")


def classify_result(cxx):
    """The Result of a member declared to return `cxx`. Raises Drop, or
    typenames.TypeSyntaxError for a type it cannot read."""
    node = parse_type(cxx)
    form = classify(node)
    if form.row is VOID:
        return Result(cxx, node, VOID, None, None, VOID.result_kind)
    kind = form.row.result_kind
    if form.row is SCALAR_REFERENCE:  # a script gets the referenced scalar's kind
        kind = classify(strip_const(node).inner).row.result_kind
    return Result(cxx, node, form.row, form.idl, form.idl + "*", kind)

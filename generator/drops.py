"""Why a candidate member is not in the library: one vocabulary for the
generated comments, the report and the tests.

A drop is a kind (which rule) and its detail (which type, class or symbol).
A dropped candidate keeps its name suffix and DISPID, which then stay unused.

kind                    rule (where it is decided)
----------------------  ---------------------------------------------------------------
no Automation form      a parameter or result type fits no row of the marshalling table
                        (marshalling.classify; a void parameter: automation.map_type)
no wrapper class        a class argument or result the module has no exposer for, so it
                        cannot be handed over (automation.require_wrapper)
private nested class    a class nested privately in another, which the wrapper code
                        cannot name (layout, from the declarations' nested_access)
abstract value result   a class result that would have to be copied, of an abstract class
                        (layout, from the declarations' abstract flag)
uncopyable value result a class result that would have to be copied, of a class whose
                        copy constructor is out of reach (layout, from the declarations'
                        copyable flag)
not exported by Qt      the body needs a symbol the wrapped DLLs do not export
                        (layout, from unexported.txt written by scan_exports.py)
unreadable type         a declared type the type parser cannot read (typenames)
"""

NO_AUTOMATION_FORM = "no Automation form"
NO_WRAPPER_CLASS = "no wrapper class"
PRIVATE_NESTED = "private nested class"
ABSTRACT_RESULT = "abstract value result"
UNCOPYABLE_RESULT = "uncopyable value result"
NOT_EXPORTED = "not exported by Qt"
UNREADABLE_TYPE = "unreadable type"

KINDS = (NO_AUTOMATION_FORM, NO_WRAPPER_CLASS, PRIVATE_NESTED, ABSTRACT_RESULT, UNCOPYABLE_RESULT, NOT_EXPORTED,
         UNREADABLE_TYPE)


class Drop(Exception):
    """A candidate that is not written: `kind` is one of KINDS, `detail`
    names the type, class or symbols that decide it."""

    def __init__(self, kind, detail):
        if kind not in KINDS:
            raise ValueError("unknown drop kind %r" % kind)
        super().__init__("%s: %s" % (kind, detail))
        self.kind = kind
        self.detail = detail

    def __str__(self):
        return "%s: %s" % (self.kind, self.detail)

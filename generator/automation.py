"""The Automation form of a member's parameter and result types, by the rows
of marshalling.py, and the check that a class-typed one can be handed over."""

from drops import NO_AUTOMATION_FORM, NO_WRAPPER_CLASS, Drop
from marshalling import VOID, classify
from typenames import Pointer, object_class, result_type_name, spell, strip_const


def map_type(node):
    """Automation form of a parameter type: (idl_type, direction, row).
    Raises Drop."""
    form = classify(node)
    if form.row is VOID:
        raise Drop(NO_AUTOMATION_FORM, spell(node))
    return form.idl, form.row.direction, form.row


def require_wrapper(node, known_type_names):
    """An object argument is read out of a wrapper this module made and an
    object result comes back as a new wrapper made by type name, so the
    class of an object type must be one the module can hand over.  Raises
    Drop (no wrapper class) when known_type_names (None: no check) lacks it.

    QFlags are the exception: an argument is the 32-bit value of whatever
    wrapper the host passes, and a result is handed to the manager under
    its own name whether the manager knows it or not (QWidget::windowFlags
    gives "QFlags<enum Qt::WindowType>"), the manager's answer being the
    member's."""
    if known_type_names is None or not classify(node).row.needs_wrapper:
        return
    name = result_type_name(node)
    if name not in known_type_names:
        raise Drop(NO_WRAPPER_CLASS, name)


def points_to_one_of(node, class_names):
    """True for a pointer (const or not) to one of the named classes."""
    cls = object_class(node)
    return isinstance(strip_const(node), Pointer) and cls is not None and spell(cls) in class_names

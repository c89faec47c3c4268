"""Fixed numbers and GUIDs of the type library: the DISPID base, the library's
own constants and the IIDs of its interfaces."""

import uuid

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

"""The shared library and the fixed part of its C interface.

The library is the file named by the environment variable KXIFCMODEL_LIBRARY
when set (a build tree), else the one the build or the install recorded in
_location.py, else the one the system's loader finds by its SONAME.
Generated accessors are looked up by name on first use and kept.
"""
import ctypes
import os

SONAME = "libkxifcmodel.so.0"

P = ctypes.c_void_p
U32 = ctypes.c_uint32
I32 = ctypes.c_int32
DOUBLE = ctypes.c_double
TEXT = ctypes.c_char_p          # a NUL-terminated UTF-16 buffer made by wide()
UTF8 = ctypes.c_char_p


class Binary(ctypes.Structure):
    """kxBinary: one '0' or '1' character per bit."""
    _fields_ = [("contents", ctypes.c_void_p), ("num_bits", ctypes.c_uint32)]


def _library_path():
    configured = os.environ.get("KXIFCMODEL_LIBRARY")
    if configured:
        return configured
    try:
        from . import _location
    except ImportError:
        return SONAME
    here = os.path.dirname(os.path.abspath(__file__))
    candidate = os.path.normpath(os.path.join(here, _location.LIBRARY))
    return candidate if os.path.exists(candidate) else SONAME


def _load():
    path = _library_path()
    try:
        return ctypes.CDLL(path)
    except OSError as error:
        raise ImportError("kxifcmodel: cannot load the shared library %s (%s); set KXIFCMODEL_LIBRARY to the "
                          "path of libkxifcmodel.so" % (path, error)) from None


lib = _load()

# name: (result type, argument types) of every hand-written function used.
_SIGNATURES = {
    "kxifcmodel_version": (UTF8, []),
    "kxClass_find_by_name": (P, [TEXT]),
    "kxClass_ifc_name": (P, [P]),
    "kxClass_is_entity": (I32, [P]),
    "kxIfcModel_new": (P, []),
    "kxIfcModel_set_version": (None, [P, I32]),
    "kxIfcModel_ifc_version": (I32, [P]),
    "kxIfcModel_free": (None, [ctypes.POINTER(P)]),
    "kxIfcModel_count_objects": (U32, [P]),
    "kxIfcModel_dontuse_new_object": (P, [P, P]),
    "kxIfcModel_dontuse_get_objects_by_class": (P, [P, P]),
    "kxIfcModel_get_header": (P, [P]),
    "kxIfcModel_set_text_mode": (None, [P, I32]),
    "kxIfcModel_read_with_report": (P, [TEXT, U32, I32, P, ctypes.POINTER(I32)]),
    "kxIfcModel_export_with_status": (I32, [P, TEXT, TEXT]),
    "kxExportStatus_message": (UTF8, [I32]),
    "kxReadReport_new": (P, [U32]),
    "kxReadReport_free": (None, [ctypes.POINTER(P)]),
    "kxReadReport_set_threads": (None, [P, U32]),
    "kxReadReport_count": (U32, [P]),
    "kxReadReport_severity": (I32, [P, U32]),
    "kxReadReport_code": (I32, [P, U32]),
    "kxReadReport_line": (U32, [P, U32]),
    "kxReadReport_column": (U32, [P, U32]),
    "kxReadReport_file_id": (U32, [P, U32]),
    "kxReadReport_entity_name": (UTF8, [P, U32]),
    "kxReadReport_attribute_name": (UTF8, [P, U32]),
    "kxReadReport_message": (UTF8, [P, U32]),
    "kxReadCode_name": (UTF8, [I32]),
    "kxReadSeverity_name": (UTF8, [I32]),
    "kxBaseObject_dontuse_object_output_file_id": (U32, [P]),
    "kxBaseObject_dontuse_get_ifc_class_name": (P, [P]),
    "kxBaseObject_dontuse_is_object_kind_of": (I32, [P, P]),
    "kxArrayST_dontuse_new": (P, [P]),
    "kxArrayST_dontuse_free": (None, [ctypes.POINTER(P), P]),
    "kxArrayST_dontuse_count": (U32, [P]),
    "kxArrayST_dontuse_get": (P, [P, U32]),
    "kxArrayST_dontuse_append": (None, [P, P]),
    "kxWideString_length": (U32, [P]),
    "kxWideString_free": (None, [ctypes.POINTER(P)]),
    "kxIfcHeader_description_fields_count": (U32, [P]),
    "kxIfcHeader_get_description_field": (P, [P, U32]),
    "kxIfcHeader_author_fields_count": (U32, [P]),
    "kxIfcHeader_get_author_field": (P, [P, U32]),
    "kxIfcHeader_organization_fields_count": (U32, [P]),
    "kxIfcHeader_get_organization_field": (P, [P, U32]),
    "kxIfcHeader_authorization_fields_count": (U32, [P]),
    "kxIfcHeader_get_authorization_field": (P, [P, U32]),
    "kxIfcHeader_get_file_name": (P, [P]),
    "kxIfcHeader_get_timestamp": (P, [P]),
    "kxIfcHeader_get_originating_system": (P, [P]),
    "kxIfcHeader_get_file_schema": (P, [P]),
    "kxCreateCompressedGuidString_Create": (P, []),
}


class _Functions:
    """Attribute access to the declared functions: native.f.kxIfcModel_new()."""

    def __getattr__(self, name):
        restype, argtypes = _SIGNATURES[name]
        return declare(name, restype, argtypes)


def declare(name, restype, argtypes):
    """The library's function of that name with its signature, kept on the
    first call so later uses are plain attribute reads."""
    function = getattr(lib, name)
    function.restype = restype
    function.argtypes = argtypes
    setattr(_Functions, name, staticmethod(function))
    return function


def has_symbol(name):
    return hasattr(lib, name)


f = _Functions()

_string_at = ctypes.string_at
_length = f.kxWideString_length


def text(address):
    """The Python text of a borrowed UTF-16 string, or None for NULL."""
    if not address:
        return None
    return _string_at(address, 2 * _length(address)).decode("utf-16-le", "surrogatepass")


def wide(value):
    """A NUL-terminated UTF-16 buffer of a Python text, for TEXT arguments."""
    return value.encode("utf-16-le", "surrogatepass") + b"\0\0"


def owned_text(address):
    """The text of a string the caller owns, which it frees."""
    holder = P(address)
    try:
        return text(address)
    finally:
        if address:
            f.kxWideString_free(ctypes.byref(holder))


def array_items(array):
    """The elements of a new kxArrayST (instance addresses), which it frees."""
    if not array:
        return []
    count = f.kxArrayST_dontuse_count(array)
    get = f.kxArrayST_dontuse_get
    items = [get(array, i) for i in range(count)]
    holder = P(array)
    f.kxArrayST_dontuse_free(ctypes.byref(holder), None)
    return items

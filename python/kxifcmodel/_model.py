"""Models: reading, creating, querying and writing."""
import ctypes
import os
from collections import namedtuple

from . import _native as native
from ._instances import RELEASE_NAMES, instance_class
from ._native import P, f, wide
from ._schema import ENTITIES
from ._services import Relationships, UnitConversion

TEXT_MODE_SPEC, TEXT_MODE_LOSSLESS = 0, 1

Problem = namedtuple("Problem", "severity code line column id entity attribute message")
Problem.__doc__ = "One problem a read found: severity and code names, where, and what."
Problem.__str__ = lambda p: "%d:%d: %s: %s%s: %s" % (
    p.line, p.column, p.severity, p.code, " #%d %s" % (p.id, p.entity) if p.id else "", p.message)

Header = namedtuple("Header", "description file_name time_stamp author organization originating_system "
                              "authorization schema")
Header.__doc__ = "The HEADER section of a model's file (texts, lists as tuples)."


class ReadError(OSError):
    """A file that could not be read; .problems holds what the read reported."""

    def __init__(self, path, problems):
        self.path = path
        self.problems = problems
        reasons = "; ".join(str(p) for p in problems[:5]) or "no report"
        super().__init__("cannot read %s: %s" % (path, reasons))


class WriteError(OSError):
    pass


def _problems(report):
    result = []
    for i in range(f.kxReadReport_count(report)):
        def utf8(value):
            return value.decode("utf-8", "replace") if value else None
        result.append(Problem(utf8(f.kxReadSeverity_name(f.kxReadReport_severity(report, i))),
                              utf8(f.kxReadCode_name(f.kxReadReport_code(report, i))),
                              f.kxReadReport_line(report, i), f.kxReadReport_column(report, i),
                              f.kxReadReport_file_id(report, i), utf8(f.kxReadReport_entity_name(report, i)),
                              utf8(f.kxReadReport_attribute_name(report, i)), utf8(f.kxReadReport_message(report, i))))
    return result


def open(path, lossless=True, threads=0):  # noqa: A001 - the package's entry point, as in other file libraries
    """Reads an IFC2X3 or IFC4 exchange file. lossless keeps every real and
    string exactly as the file has it, also when written again. threads: how
    many threads the second pass of a large file's read may use (0: every
    core, 1: the calling thread only); the model is the same. Raises
    ReadError, with the read's problems, when the file cannot be read; a
    file read with problems gives a model whose .problems lists them."""
    path = os.fspath(path)
    report = P(f.kxReadReport_new(0))
    f.kxReadReport_set_threads(report, threads)
    try:
        with_errors = ctypes.c_int32(0)
        handle = f.kxIfcModel_read_with_report(wide(path), 0, TEXT_MODE_LOSSLESS if lossless else TEXT_MODE_SPEC,
                                               report, ctypes.byref(with_errors))
        problems = _problems(report)
    finally:
        f.kxReadReport_free(ctypes.byref(report))
    if not handle:
        raise ReadError(path, problems)
    model = Model._adopt(handle)
    model.problems = problems
    return model


class Model(Relationships, UnitConversion):
    """An in-memory IFC model of one release. Model("IFC4") makes an empty
    one; open() reads one. The library's model is freed with the last
    reference to the model or to one of its instances."""

    def __init__(self, schema="IFC4", lossless=True):
        if schema.upper() not in RELEASE_NAMES:
            raise ValueError("schema: 'IFC2X3' or 'IFC4', not %r" % schema)
        handle = f.kxIfcModel_new()
        f.kxIfcModel_set_version(handle, RELEASE_NAMES.index(schema.upper()))
        f.kxIfcModel_set_text_mode(handle, TEXT_MODE_LOSSLESS if lossless else TEXT_MODE_SPEC)
        self._init(handle)

    @classmethod
    def _adopt(cls, handle):
        model = cls.__new__(cls)
        model._init(handle)
        return model

    def _init(self, handle):
        self._h = handle
        self._release = f.kxIfcModel_ifc_version(handle)
        self._classes = {}      # address of a class's name -> Python class
        self._by_id = None      # #id -> instance address, made on demand
        self.problems = []

    def __del__(self):
        handle = getattr(self, "_h", None)
        if handle:
            holder = P(handle)
            f.kxIfcModel_free(ctypes.byref(holder))
            self._h = None

    # ---- what the model is -------------------------------------------------
    @property
    def schema(self):
        """'IFC2X3' or 'IFC4'."""
        return RELEASE_NAMES[self._release]

    @property
    def header(self):
        header = f.kxIfcModel_get_header(self._h)

        def items(count, get):
            return tuple(native.text(get(header, i)) for i in range(count(header)))
        return Header(items(f.kxIfcHeader_description_fields_count, f.kxIfcHeader_get_description_field),
                      native.text(f.kxIfcHeader_get_file_name(header)),
                      native.text(f.kxIfcHeader_get_timestamp(header)),
                      items(f.kxIfcHeader_author_fields_count, f.kxIfcHeader_get_author_field),
                      items(f.kxIfcHeader_organization_fields_count, f.kxIfcHeader_get_organization_field),
                      native.text(f.kxIfcHeader_get_originating_system(header)),
                      items(f.kxIfcHeader_authorization_fields_count, f.kxIfcHeader_get_authorization_field),
                      native.text(f.kxIfcHeader_get_file_schema(header)))

    def __repr__(self):
        return "<kxifcmodel.Model %s, %d instances>" % (self.schema, len(self))

    # ---- instances -----------------------------------------------------------
    def _wrap(self, address):
        """The Python instance of a library instance (None for NULL)."""
        if not address:
            return None
        name = _class_name(address)
        cls = self._classes.get(name)
        if cls is None:
            cls = self._classes[name] = instance_class(native.text(name), self._release)
        return cls(address, self)

    def _entity(self, name):
        """(schema name, class handle) of an entity of the model's release."""
        klass = f.kxClass_find_by_name(wide(name)) if isinstance(name, str) else None
        canonical = native.text(f.kxClass_ifc_name(klass)) if klass else None
        if canonical not in ENTITIES or ENTITIES[canonical][0][self._release] is None:
            raise ValueError("%r is not an entity of %s" % (name, self.schema))
        return canonical, klass

    def _addresses(self, entity):
        return native.array_items(f.kxIfcModel_dontuse_get_objects_by_class(self._h, self._entity(entity)[1]))

    def by_type(self, entity):
        """The instances of the entity and of its subtypes, oldest first."""
        wrap = self._wrap
        return [wrap(address) for address in self._addresses(entity)]

    def _all_addresses(self):
        addresses = []
        for root in _roots(self._release):
            addresses += self._addresses(root)
        return addresses

    def __iter__(self):
        """Every entity instance, subtype trees of the schema's root
        entities one after the other."""
        wrap = self._wrap
        for root in _roots(self._release):
            for address in self._addresses(root):
                yield wrap(address)

    def __len__(self):
        """The number of entity instances (select values not counted)."""
        return len(self._all_addresses())

    def by_id(self, number):
        """The instance of that #id; KeyError when there is none."""
        if self._by_id is None:
            self._by_id = {_id_of(address): address for address in self._all_addresses()}
        return self._wrap(self._by_id[number])

    def _new_object(self, class_symbol):
        klass = native.declare(class_symbol, P, [])()
        return f.kxIfcModel_dontuse_new_object(self._h, klass)

    def create(self, entity, **attributes):
        """A new instance of the entity with the attributes given. An IfcRoot
        without a GlobalId gets a fresh one."""
        name, klass = self._entity(entity)
        cls = instance_class(name, self._release)
        unknown = sorted(set(attributes) - set(cls.attribute_names()))
        if unknown:
            raise TypeError("%s has no attribute %s in %s" % (name, ", ".join(unknown), self.schema))
        if ENTITIES[name][1][self._release]:
            raise ValueError("%s is abstract in %s" % (name, self.schema))
        address = f.kxIfcModel_dontuse_new_object(self._h, klass)
        instance = self._wrap(address)
        if instance.is_a("IfcRoot") and attributes.get("GlobalId") is None:
            attributes["GlobalId"] = new_guid()
        try:
            for key, value in attributes.items():
                setattr(instance, key, value)
        except Exception:
            instance._p = None      # a wrapper kept by the traceback must not reach the freed instance
            holder = P(address)
            _free_object(self._h, ctypes.byref(holder))
            raise
        if self._by_id is not None:
            self._by_id[instance.id()] = address
        return instance

    # ---- files ---------------------------------------------------------------
    def write(self, path):
        """Writes the model as an exchange file (name ending in .ifc, added
        when missing), through a temporary file that replaces the target
        only when complete. Raises WriteError when the file cannot be made."""
        path = os.fspath(path)
        stem = path[:-4] if path.lower().endswith(".ifc") else path
        directory, name = os.path.split(stem)
        status = f.kxIfcModel_export_with_status(self._h, wide(name), wide(directory or "."))
        if status != 0:
            raise WriteError("cannot write %s.ifc: %s" % (stem, f.kxExportStatus_message(status).decode()))


_class_name = f.kxBaseObject_dontuse_get_ifc_class_name
_id_of = f.kxBaseObject_dontuse_object_output_file_id
_free_object = native.declare("kxIfcModel_dontuse_free_object", None, [P, ctypes.POINTER(P)])
_ROOTS = {}


def _roots(release):
    """Entities without a supertype in the release: their subtype trees hold
    every instance once."""
    if release not in _ROOTS:
        _ROOTS[release] = [name for name, (supertypes, *_) in ENTITIES.items()
                           if supertypes[release] == ()]
    return _ROOTS[release]


def new_guid():
    """A fresh 22-character compressed GUID."""
    return native.owned_text(f.kxCreateCompressedGuidString_Create())

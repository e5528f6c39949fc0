"""Entity instances as Python objects.

Each entity of each release gets its own Python class, made on first use,
whose properties are the entity's explicit attributes (read and written
through the generated kx<Entity>_get_/set_<Attr> functions) and its inverse
relations (kx<Entity>_inverse_relation_<Name>, read only). An instance holds
the address of the library's instance and its model, which it keeps alive.
"""
from . import _native as native
from . import _values as values
from ._native import P
from ._schema import ATTRIBUTES, ENTITIES, INVERSES

RELEASE_NAMES = ("IFC2X3", "IFC4")
_id_of = native.f.kxBaseObject_dontuse_object_output_file_id
_assert_count = native.declare("kxDiagnostics_assert_count", native.ctypes.c_uint64, [])


class Instance:
    """An entity instance of a model. Attributes and inverse relations are
    properties named as in the schema of the model's release."""
    __slots__ = ("_p", "_m")
    ifc_class = None                # the entity's schema name, per class
    _kind_of = frozenset()          # lower-case names of the entity and its supertypes
    _attribute_names = ()
    _inverse_names = ()

    def __init__(self, address, model):
        self._p = address
        self._m = model

    def id(self):
        """The instance's #id in the file."""
        return _id_of(self._p)

    def is_a(self, class_name=None):
        """Whether the instance is of the entity or one of its subtypes
        (any case); without an argument, the instance's entity name."""
        if class_name is None:
            return self.ifc_class
        return class_name.lower() in self._kind_of

    @property
    def model(self):
        return self._m

    def attributes(self):
        """Every explicit attribute by name, in schema order."""
        return {name: getattr(self, name) for name in self._attribute_names}

    @classmethod
    def attribute_names(cls):
        return cls._attribute_names

    @classmethod
    def inverse_names(cls):
        return cls._inverse_names

    def __eq__(self, other):
        return isinstance(other, Instance) and other._p == self._p

    def __hash__(self):
        return hash(self._p)

    def __repr__(self):
        return "#%d=%s" % (self.id(), self.ifc_class)

    def __getattr__(self, name):
        raise AttributeError("%s has no attribute %r in %s" % (self.ifc_class, name, self._m.schema))


_CLASSES = {}


def instance_class(entity, release):
    """The Python class of the entity's instances in the release."""
    key = (entity, release)
    found = _CLASSES.get(key)
    if found is None:
        found = _CLASSES[key] = _make_class(entity, release)
    return found


def _make_class(entity, release):
    supertypes, _, attributes, inverses = ENTITIES[entity]
    namespace = {"__slots__": (), "ifc_class": entity,
                 "_kind_of": frozenset(name.lower() for name in supertypes[release] + (entity,))}
    names = []
    for index in attributes[release]:
        name, suffix, kind, type_name, _, derived = ATTRIBUTES[index]
        namespace[name] = _attribute(entity, name, suffix, kind, type_name, derived)
        names.append(name)
    inverse_names = []
    for index in inverses[release]:
        name, accessor = INVERSES[index]
        namespace[name] = _inverse(entity, name, accessor)
        inverse_names.append(name)
    namespace["_attribute_names"] = tuple(names)
    namespace["_inverse_names"] = tuple(inverse_names)
    return type(entity, (Instance,), namespace)


def _getter(get, kind, type_name):
    """The property getter: the fast paths of plain values and references
    call the accessor and convert its result directly."""
    if kind == "STRING":
        text = native.text

        def read_text(self):
            return text(get(self._p))
        return read_text
    if kind == "ENTITY":
        def read_reference(self):
            return self._m._wrap(get(self._p))
        return read_reference
    read = values.reader(kind, type_name)

    def read_value(self):
        return read(self._m, get(self._p))
    return read_value


def _attribute(entity, name, suffix, kind, type_name, derived):
    get = native.declare("kx%s_get_%s%s" % (entity, name, suffix), values.RESULT_TYPE[kind], [P])
    label = "%s.%s" % (entity, name)
    write = values.writer(kind, type_name)
    setter = []

    def set_value(self, value):
        if derived:
            raise AttributeError("%s is derived in %s and cannot be set" % (label, self._m.schema))
        raw = values.UNSET[kind] if value is None else write(values.Target(label, self._m), value)
        if not setter:
            setter.append(native.declare("kx%s_set_%s%s" % (entity, name, suffix), None,
                                         [P, values.ARGUMENT_TYPE[kind]]))
        refused = _assert_count()
        setter[0](self._p, raw)
        if _assert_count() != refused:
            if kind == "AGGREGATE" and raw:
                values.aggregate_type(type_name).dispose(raw)   # refused, so not taken over
            raise ValueError("%s: the library refused the value %r (see the report on stderr)" % (label, value))

    return property(_getter(get, kind, type_name), set_value, doc="%s (%s)" % (label, type_name))


def _inverse(entity, name, accessor):
    symbol = "kx%s_inverse_relation_%s" % (entity, accessor)
    function = []

    def read(self):
        if not function:
            function.append(native.declare(symbol, P, [P]))
        wrap = self._m._wrap
        return tuple([wrap(address) for address in native.array_items(function[0](self._p))])

    return property(read, doc="inverse relation %s.%s" % (entity, name))

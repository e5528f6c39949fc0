"""Conversions between the library's in-band values and Python values.

Every value kind of the schema (the storage kinds of the generated tables)
has a reader, from the raw result of a generated getter to a Python value
(None when unset), and a writer, from a Python value to the raw argument of
the matching setter, checking its type. Readers and writers of references,
selects and aggregates need the model, to wrap instances and to make select
values and aggregates.
"""
import ctypes
import sys

from . import _native as native
from ._native import Binary, DOUBLE, I32, P, TEXT
from ._schema import AGGREGATES, ENUMS, SELECTS

REAL_UNSET = sys.float_info.max
INTEGER_UNSET = 2 ** 31 - 1
BOOLEAN_UNSET = -1
LOGICAL_UNSET = -2
LOGICAL_UNKNOWN = -1
UNKNOWN = "UNKNOWN"

# The C type a getter returns and a setter takes, per storage kind.
RESULT_TYPE = {"STRING": P, "REAL": DOUBLE, "INTEGER": I32, "BOOLEAN": I32, "LOGICAL": I32, "BINARY": Binary,
               "ENUM": I32, "ENTITY": P, "SELECT": P, "AGGREGATE": P}
ARGUMENT_TYPE = dict(RESULT_TYPE, STRING=TEXT)
UNSET = {"STRING": None, "REAL": REAL_UNSET, "INTEGER": INTEGER_UNSET, "BOOLEAN": BOOLEAN_UNSET,
         "LOGICAL": LOGICAL_UNSET, "BINARY": Binary(None, 0), "ENUM": 0, "ENTITY": None, "SELECT": None,
         "AGGREGATE": None}


# ---- values of select members keep their type -----------------------------
class TypedStr(str):
    """Text held by a select, with the name of its defined type in .type."""


class TypedFloat(float):
    """A number held by a select, with its defined type in .type."""


class TypedInt(int):
    """An integer held by a select, with its defined type in .type."""


class TypedBool(int):
    """A BOOLEAN or LOGICAL member: compares and tests like True/False."""

    def __repr__(self):
        return repr(bool(self))


class TypedTuple(tuple):
    """An aggregate held by a select, with its defined type in .type."""


def typed(type_name, value):
    """The value tagged with the defined type or enumeration it is of, as
    select attributes return it and take it: typed("IfcLabel", "Brick")."""
    if isinstance(value, bool):
        result = TypedBool(value)
    elif isinstance(value, str):
        result = TypedStr(value)
    elif isinstance(value, int):
        result = TypedInt(value)
    elif isinstance(value, float):
        result = TypedFloat(value)
    elif isinstance(value, (tuple, list)):
        result = TypedTuple(value)
    else:
        raise TypeError("typed(%r, ...): a text, number, boolean or sequence, not %s"
                        % (type_name, type(value).__name__))
    result.type = type_name
    return result


# ---- plain values ----------------------------------------------------------
def read_real(raw):
    return None if raw == REAL_UNSET else raw


def read_integer(raw):
    return None if raw == INTEGER_UNSET else raw


def read_boolean(raw):
    return None if raw == BOOLEAN_UNSET else raw != 0


def read_logical(raw):
    if raw == LOGICAL_UNSET:
        return None
    return UNKNOWN if raw == LOGICAL_UNKNOWN else raw != 0


def read_binary(raw):
    return ctypes.string_at(raw.contents, raw.num_bits).decode("ascii") if raw.num_bits else None


PLAIN_READERS = {"STRING": native.text, "REAL": read_real, "INTEGER": read_integer, "BOOLEAN": read_boolean,
                 "LOGICAL": read_logical, "BINARY": read_binary}


def enum_reader(enum):
    members = ENUMS[enum]

    def read(raw):
        return members[raw - 1][0] if 0 < raw <= len(members) else None
    return read


def describe(value):
    return type(value).__name__


class Target:
    """What a written value is checked for: the attribute (or element) it
    goes to, named in errors, and the release of the model."""

    def __init__(self, label, model):
        self.label = label
        self.model = model

    def type_error(self, expected, value):
        return TypeError("%s: expected %s, got %s %r" % (self.label, expected, describe(value), value))

    def value_error(self, message):
        return ValueError("%s: %s" % (self.label, message))


def write_string(target, value):
    if not isinstance(value, str):
        raise target.type_error("a text", value)
    return native.wide(value)


def write_real(target, value):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise target.type_error("a number", value)
    return float(value)


def write_integer(target, value):
    if isinstance(value, bool) or not isinstance(value, int):
        raise target.type_error("an integer", value)
    if not -2 ** 31 <= value < INTEGER_UNSET:
        raise target.value_error("%d is out of the 32-bit range" % value)
    return value


def write_boolean(target, value):
    if not isinstance(value, (bool, TypedBool)):
        raise target.type_error("True or False", value)
    return int(bool(value))


def write_logical(target, value):
    if isinstance(value, str) and value.upper() == UNKNOWN:
        return LOGICAL_UNKNOWN
    if not isinstance(value, (bool, TypedBool)):
        raise target.type_error("True, False or 'UNKNOWN'", value)
    return int(bool(value))


def write_binary(target, value):
    if not isinstance(value, str) or not value or set(value) - {"0", "1"}:
        raise target.type_error("a text of '0' and '1' bits", value)
    buffer = ctypes.create_string_buffer(value.encode("ascii"), len(value))
    result = Binary(ctypes.cast(buffer, ctypes.c_void_p), len(value))
    result._buffer = buffer      # lives as long as the argument
    return result


PLAIN_WRITERS = {"STRING": write_string, "REAL": write_real, "INTEGER": write_integer, "BOOLEAN": write_boolean,
                 "LOGICAL": write_logical, "BINARY": write_binary}


def enum_writer(enum):
    members = ENUMS[enum]
    numbers = {name: (number, mask) for number, (name, mask) in enumerate(members, start=1)}

    def write(target, value):
        if not isinstance(value, str):
            raise target.type_error("a member of %s as text" % enum, value)
        number, mask = numbers.get(value.upper().strip("."), (0, 0))
        if not mask >> target.model._release & 1:
            valid = ", ".join(name for name, m in members if m >> target.model._release & 1)
            raise target.value_error("%r is not a member of %s in %s (%s)" % (value, enum, target.model.schema, valid))
        return number
    return write


# ---- the value kinds as a whole ------------------------------------------
def reader(kind, type_name):
    """read(model, raw) -> Python value for a value of this kind and type."""
    if kind == "ENTITY":
        return lambda model, raw: model._wrap(raw)
    if kind == "SELECT":
        return select_reader(type_name)
    if kind == "AGGREGATE":
        return aggregate_reader(type_name)
    plain = enum_reader(type_name) if kind == "ENUM" else PLAIN_READERS[kind]
    return lambda model, raw: plain(raw)


def writer(kind, type_name):
    """write(target, value) -> raw argument (value not None)."""
    if kind == "ENTITY":
        return entity_writer(type_name)
    if kind == "SELECT":
        return select_writer(type_name)
    if kind == "AGGREGATE":
        return aggregate_writer(type_name)
    return enum_writer(type_name) if kind == "ENUM" else PLAIN_WRITERS[kind]


def entity_writer(entity):
    def write(target, value):
        from ._instances import Instance
        if not isinstance(value, Instance) or not value.is_a(entity):
            raise target.type_error("an instance of %s" % entity, value)
        if value._m is not target.model:
            raise target.value_error("%r belongs to another model" % value)
        return value._p
    return write


# ---- selects -----------------------------------------------------------------
class Member:
    """One member of a select: its code, type, kind and accessors."""

    def __init__(self, select, code, name, kind, mask):
        self.code, self.name, self.kind, self.mask = code, name, kind, mask
        member_kind = "INTEGER" if kind in ("BOOLEAN", "LOGICAL") else kind
        self.get = native.declare("kx%s_get_kx%s" % (select, name), RESULT_TYPE[member_kind], [P])
        self.set = native.declare("kx%s_set_kx%s" % (select, name), None, [P, ARGUMENT_TYPE[member_kind]])
        element_type = name if kind in ("ENUM", "AGGREGATE", "ENTITY") else None
        self.read = reader(kind, element_type)
        self.write = writer(kind, element_type)


_SELECTS = {}


def select_info(select):
    """(get_type function, members by code) of a select, made once."""
    info = _SELECTS.get(select)
    if info is None:
        members = {code: Member(select, code, name, kind, mask) for code, name, kind, mask in SELECTS[select][1]}
        info = (native.declare("kx%s_get_type" % select, native.U32, [P]), members)
        _SELECTS[select] = info
    return info


def select_reader(select):
    def read(model, raw):
        if not raw:
            return None
        get_type, members = select_info(select)
        member = members.get(get_type(raw))
        if member is None:
            return None
        value = member.read(model, member.get(raw))
        return value if member.kind == "ENTITY" or value is None else typed(member.name, value)
    return read


def select_writer(select):
    def write(target, value):
        member = choose_member(select, target, value)
        raw = member.write(target, value)
        holder = target.model._new_object("kx%s_class" % select)
        member.set(holder, raw)
        return holder
    return write


def choose_member(select, target, value):
    """The member a value goes to: an instance's class, a typed value's
    type, or the one member of the value's Python kind."""
    from ._instances import Instance
    _, members = select_info(select)
    release_bit = 1 << target.model._release
    live = [m for m in members.values() if m.mask & release_bit]
    if isinstance(value, Instance):
        found = [m for m in live if m.kind == "ENTITY" and value.is_a(m.name)]
    elif hasattr(value, "type"):
        found = [m for m in live if m.name == value.type]
    else:
        found = [m for m in live if m.kind in python_kinds(value)]
    if len(found) == 1 or (found and isinstance(value, Instance)):
        return found[0]
    names = ", ".join(m.name for m in (found or live))
    if found:
        raise target.type_error("a typed value, e.g. kxifcmodel.typed(%r, ...), one of: %s"
                                % (found[0].name, names), value)
    raise target.type_error("a value of one of: %s" % names, value)


def python_kinds(value):
    if isinstance(value, bool):
        return ("BOOLEAN", "LOGICAL")
    if isinstance(value, str):
        return ("STRING", "ENUM")
    if isinstance(value, int):
        return ("INTEGER", "REAL")
    if isinstance(value, float):
        return ("REAL",)
    if isinstance(value, (tuple, list)):
        return ("AGGREGATE",)
    return ()


# ---- aggregates --------------------------------------------------------------
class AggregateType:
    """An aggregate type's accessors and how its elements read and write."""

    def __init__(self, name):
        container, kind, element, getter, adder = AGGREGATES[name]
        self.name, self.container, self.kind, self.element = name, container, kind, element
        value_type = RESULT_TYPE[kind]
        self.new = native.declare("kx%s_new" % name, P, [])
        self.free = native.declare("kx%s_free" % name, None, [ctypes.POINTER(P)])
        self.count = native.declare("kx%s_count" % name, native.U32, [P])
        self.get = native.declare("kx%s_%s" % (name, getter), value_type, [P, native.U32])
        self.add = native.declare("kx%s_%s" % (name, adder), None, [P, ARGUMENT_TYPE[kind]])
        self.read = reader(kind, element)
        self.write = writer(kind, element)

    def dispose(self, address):
        holder = P(address)
        self.free(ctypes.byref(holder))


_AGGREGATES = {}


def aggregate_type(name):
    found = _AGGREGATES.get(name)
    if found is None:
        found = _AGGREGATES[name] = AggregateType(name)
    return found


def aggregate_reader(name):
    def read(model, raw):
        if not raw:
            return None
        info = aggregate_type(name)
        get, count = info.get, info.count(raw)
        # The common lists (points, references) skip the per-element reader.
        if info.kind == "REAL":
            elements = [get(raw, i) for i in range(count)]
            return tuple(elements if REAL_UNSET not in elements else map(read_real, elements))
        if info.kind == "ENTITY":
            wrap = model._wrap
            return tuple([wrap(get(raw, i)) for i in range(count)])
        read_element = info.read
        return tuple([read_element(model, get(raw, i)) for i in range(count)])
    return read


def aggregate_writer(name):
    def write(target, value):
        if isinstance(value, (str, bytes)) or not hasattr(value, "__iter__"):
            raise target.type_error("a sequence", value)
        info = aggregate_type(name)
        address = info.new()
        try:
            for index, element in enumerate(value):
                element_target = Target("%s[%d]" % (target.label, index), target.model)
                if element is None:
                    raise element_target.value_error("an element needs a value")
                info.add(address, info.write(element_target, element))
        except Exception:
            info.dispose(address)
            raise
        return address
    return write

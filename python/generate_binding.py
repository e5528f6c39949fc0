#!/usr/bin/env python3
"""Writes the schema tables of the Python package from the schema digest.

Usage: generate_binding.py DIGEST OUTFILE

OUTFILE (the package's _schema.py) holds plain Python literals the package
reads at run time: per entity its supertypes, attributes and inverse
relations per release, per select its members with their codes, per
enumeration its members, per aggregate type how its elements are read and
added. Accessor symbol names follow from these: kx<Class>_get_<Attr><suffix>,
kx<Select>_get_kx<Member>, kx<Aggregate>_count... The class model is the one
the C binding is generated from (tools/schema_model.py), so the two agree on
every name, suffix, member code and aggregate type.
"""
import os
import pprint
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))

from generate_schema import Generator, write_if_changed  # noqa: E402
from schema_model import R2X3, R4, RELEASES, SUFFIX, ClassModel, Schema  # noqa: E402

# Aggregates of these element kinds are read with _get_element and filled
# with _append_element; the others with _get and _add.
ELEMENT_ACCESSED = ("ENTITY", "SELECT", "AGGREGATE")


class Binding:
    def __init__(self, generator):
        self.generator = generator
        self.model = generator.model
        self.schema = self.model.schema
        # Attribute descriptions and inverse entries repeat along the class
        # tree: each is stored once and classes list their positions.
        self.attribute_table = {}
        self.inverse_table = {}

    @staticmethod
    def intern(table, entry):
        return table.setdefault(entry, len(table))

    def aggregate_name(self, aggregate):
        """The aggregate's runtime type without its kx prefix, as the tables
        name it (kxArrReal -> ArrReal)."""
        return self.generator.aggregate_type[aggregate.index][2:]

    def value_type(self, kind, type_text, release):
        """What a value of a slot is checked against and read through: the
        class, enumeration or aggregate type name; the declared type for
        simple values."""
        if kind in ("ENTITY", "SELECT", "ENUM"):
            return self.model.resolve_named(type_text, release)
        if kind == "AGGREGATE":
            return self.aggregate_name(self.model.slot_aggregate(type_text, release))
        return type_text

    def attributes(self, name, release):
        model = self.model
        entity = model.entities[name]
        if not entity.exists[release]:
            return None
        suffixed = {attr: flag for attr, _, flag in model.accessors(name)}
        derived = set(model.derived_names(name, release))
        result = []
        for slot, optional in model.attributes(name, release):
            suffix = SUFFIX[release] if suffixed[slot.name] else ""
            entry = (slot.name, suffix, slot.kind, self.value_type(slot.kind, slot.type_text, release),
                     bool(optional), slot.qualified_name in derived)
            result.append(self.intern(self.attribute_table, entry))
        return tuple(result)

    def inverses(self, name):
        """Per release: positions of (inverse name, accessor name part)."""
        per_release = ([], [])
        for accessor, releases in self.model.inverse_accessors(name):
            plain = accessor[:-len(SUFFIX[R2X3])] if accessor.endswith(SUFFIX[R2X3]) else accessor
            plain = plain[:-len(SUFFIX[R4])] if plain.endswith(SUFFIX[R4]) else plain
            for release in releases:
                per_release[release].append(self.intern(self.inverse_table, (plain, accessor)))
        return tuple(tuple(entries) for entries in per_release)

    def entities(self):
        result = {}
        for name in self.model.entity_order:
            entity = self.model.entities[name]
            result[name] = (
                tuple(tuple(self.schema.ancestors(name, r)) if entity.exists[r] else None for r in RELEASES),
                tuple(entity.abstract),
                tuple(self.attributes(name, r) for r in RELEASES),
                self.inverses(name),
            )
        return result

    def selects(self):
        result = {}
        for name in self.model.select_order:
            members = []
            for code, (member, mask) in enumerate(self.model.select_members[name], start=1):
                kind = self.schema.kind_of_name(member)
                kind = self.generator.defined_kind[member] if kind == "TYPE" else kind
                members.append((code, member, kind, mask))
            result[name] = (tuple(self.schema.selects[name][r] is not None for r in RELEASES), tuple(members))
        return result

    def enums(self):
        return {name: tuple(self.model.enum_members[name]) for name in self.model.enum_order}

    def aggregates(self):
        """Aggregate type (symbol name without kx) -> (container, element
        kind, element type, getter, adder). The element type is a class or
        enumeration name, or the aggregate type of a nested level."""
        generator = self.generator
        result = {}
        for aggregate in generator.aggregates:
            kind = generator.element_kind(aggregate)
            if aggregate.inner is not None:
                element = self.aggregate_name(aggregate.inner)
            elif kind in ("ENTITY", "SELECT", "ENUM", "AGGREGATE"):
                element = aggregate.element
            else:
                element = None
            result[self.aggregate_name(aggregate)] = self._aggregate_entry(
                aggregate.containers[0], kind, element, kind in ELEMENT_ACCESSED)
        # Aggregate defined types (select members, elements of other
        # aggregates) carry their own accessors, always by element.
        for name in generator.defined_order:
            if generator.defined_kind[name] != "AGGREGATE":
                continue
            text = self.schema.underlying(name, R4)
            containers = tuple(c.split("[")[0] for c in text.split("/")[:-1])
            aggregate = self.model.aggregate_of[(containers, text.split("/")[-1])]
            kind = generator.element_kind(aggregate)
            element = aggregate.element if kind in ("ENTITY", "SELECT", "ENUM") else None
            result[name] = self._aggregate_entry(containers[0], kind, element, True)
        return result

    @staticmethod
    def _aggregate_entry(container, kind, element, by_element):
        return (container, kind, element, "get_element" if by_element else "get",
                "append_element" if by_element else "add")


def render(binding):
    entities = binding.entities()
    tables = [
        ("ATTRIBUTES", "(name, accessor suffix, kind, type, optional, derived)",
         tuple(sorted(binding.attribute_table, key=binding.attribute_table.get))),
        ("INVERSES", "(inverse name, accessor name part)",
         tuple(sorted(binding.inverse_table, key=binding.inverse_table.get))),
        ("ENTITIES", "entity -> (supertypes root first per release or None when absent, abstract per release, "
                     "attributes per release (positions in ATTRIBUTES), inverses per release (positions in INVERSES))",
         entities),
        ("SELECTS", "select -> (exists per release, members: (code, member, kind, release mask))", binding.selects()),
        ("ENUMS", "enumeration -> members: (name, release mask); a member's value is its position + 1",
         binding.enums()),
        ("AGGREGATES", "aggregate type -> (container, element kind, element type, getter, adder)",
         binding.aggregates()),
    ]
    parts = ['"""Generated by python/generate_binding.py from schema/ifc.digest. Do not edit."""\n']
    for name, comment, value in tables:
        parts.append("\n# %s\n%s = %s\n" % (comment, name, pprint.pformat(value, width=120, compact=True)))
    return "".join(parts)


def main(argv):
    if len(argv) != 3:
        sys.stderr.write(__doc__)
        return 2
    generator = Generator(ClassModel(Schema(argv[1])))
    write_if_changed(argv[2], render(Binding(generator)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

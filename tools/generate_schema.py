#!/usr/bin/env python3
"""Generates the schema binding of kxifcmodel from the schema digest.

Usage: generate_schema.py DIGEST OUTDIR

Writes, under OUTDIR:
  src/schema_tables.cpp        constant tables: classes, slots, enumerations,
                               defined types, aggregates, keywords
  src/schema_exports_<n>.cpp   the exported entry points, thin calls into the
                               hand-written engines
  include/kxifc_schema.h       their public declarations (C11 and C++)
Files are rewritten only when their content changes, so a re-run does not
force a rebuild.
"""
import os
import sys

from schema_model import (KINDS, R2X3, R4, RELEASES, SUFFIX, Aggregate, ClassModel, Schema, simple_base,
                          sort_key)

EXPORT_FILES = 8
SIMPLE_ARRAY_NAMES = {"REAL": ("Real", "Array of reals"), "INTEGER": ("Integer", "Array of integers"),
                      "BINARY": ("Binary", "Array of bits"), "BOOLEAN": ("Boolean", "Array of booleans"),
                      "LOGICAL": ("Logical", "Array of logicals"), "STRING": ("String", "Array of strings")}
C_VALUE_TYPE = {"STRING": "kxWChar *", "REAL": "double", "INTEGER": "int32_t", "BOOLEAN": "kxBoolean",
                "LOGICAL": "kxLogical", "BINARY": "kxBinary", "ENUM": "int32_t"}
CONST_IN_TYPE = {"STRING": "const kxWChar *"}


def u(text):
    return 'u"%s"' % text


def write_if_changed(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if os.path.exists(path):
        with open(path, encoding="utf-8") as handle:
            if handle.read() == text:
                return
    with open(path, "w", encoding="utf-8") as handle:
        handle.write(text)


class Generator:
    def __init__(self, model):
        self.model = model
        self.manifest = []
        self.test_table = []
        self.schema = model.schema
        self._plan_defined_types()
        self._plan_aggregates()

    # ---- planning --------------------------------------------------------
    def _plan_defined_types(self):
        self.defined_order = sorted(self.schema.types, key=sort_key)
        self.defined_index = {name: i for i, name in enumerate(self.defined_order)}
        self.defined_kind = {}
        for name in self.defined_order:
            kinds = {self.schema.storage_kind(name, r) for r in RELEASES if self.schema.types[name][r]}
            if len(kinds) != 1:
                raise SystemExit("defined type %s changes storage between releases" % name)
            self.defined_kind[name] = kinds.pop()

    def element_kind(self, aggregate):
        if aggregate.inner is not None:
            return "AGGREGATE"
        element = aggregate.element
        base = simple_base(element)
        if base:
            return base
        kind = self.schema.kind_of_name(element)
        return self.defined_kind[element] if kind == "TYPE" else kind

    def _plan_aggregates(self):
        """Runtime type names: kxSet<E>/kxList<E> for instances, kxArr<X>
        for values, kxListList<X> for nested lists."""
        self.aggregates = list(self.model.aggregates)
        self.aggregate_type = {}
        for aggregate in self.aggregates:
            self.aggregate_type[aggregate.index] = self._runtime_name(aggregate)
        # Arrays of every base type exist for hosts, used by the schema or not.
        present = set(self.aggregate_type.values())
        for base, (label, _) in sorted(SIMPLE_ARRAY_NAMES.items()):
            if "kxArr" + label not in present:
                extra = Aggregate(["LIST"], base)
                extra.index = len(self.aggregates)
                self.aggregates.append(extra)
                self.aggregate_type[extra.index] = "kxArr" + label
        # Runtime types in name order, each with the descriptor that defines it.
        self.runtime_types = {}
        for aggregate in self.aggregates:
            self.runtime_types.setdefault(self.aggregate_type[aggregate.index], aggregate)

    def _element_label(self, aggregate):
        base = simple_base(aggregate.element)
        return SIMPLE_ARRAY_NAMES[base][0] if base else aggregate.element

    def _runtime_name(self, aggregate):
        kind = self.element_kind(aggregate)
        if aggregate.inner is not None:
            return "kxListList" + self._element_label(aggregate)
        if kind in ("ENTITY", "SELECT"):
            return ("kxSet" if aggregate.containers[0] in ("SET", "BAG") else "kxList") + aggregate.element
        return "kxArr" + self._element_label(aggregate)

    def description(self, aggregate):
        base = simple_base(aggregate.element)
        if base and aggregate.inner is None:
            return SIMPLE_ARRAY_NAMES[base][1]
        return "Collection of " + aggregate.element

    def element_ref(self, aggregate):
        if aggregate.inner is not None:
            return aggregate.inner.index
        kind = self.schema.kind_of_name(aggregate.element)
        if kind in ("ENTITY", "SELECT"):
            return self.model.class_id[aggregate.element]
        if kind == "ENUM":
            return self.model.enum_index[aggregate.element]
        if kind == "TYPE":
            return self.defined_index[aggregate.element]
        return 0

    # ---- tables ----------------------------------------------------------
    def tables(self):
        out = []
        w = out.append
        w("// Generated by tools/generate_schema.py from schema/ifc.digest. Do not edit.\n")
        w('#include "core/class.h"\n#include "schema/engines.h"\n\n')
        w("namespace kx {\nnamespace {\n\n")
        self.shared_arrays = {}
        self.array_lines = []
        class_lines = []
        for name in self.model.entity_order:
            class_lines.append(self._entity_class(name))
        for name in self.model.select_order:
            class_lines.append(self._select_class(name))
        out += self.array_lines
        w("\n")
        out += class_lines
        w("\n}  // namespace\n\n")
        w("const kxClass_t *const g_classes[] = {\n")
        for i in range(len(self.model.class_names)):
            w("    &C%d,\n" % i)
        w("};\nconst uint32_t g_num_classes = %d;\n\n" % len(self.model.class_names))
        w("const uint32_t g_class_list_order[] = {%s};\n\n" % ",".join(
            str(self.model.class_id[n]) for n in sorted(self.model.class_names, key=sort_key)))
        out += self._slots()
        out += self._enums()
        out += self._defined_types()
        out += self._aggregates()
        out += self._keywords()
        w("}  // namespace kx\n")
        return "".join(out)

    def _shared(self, ctype, prefix, values):
        """Emits a constant array once per distinct content; returns its name."""
        key = (ctype, tuple(values))
        if key not in self.shared_arrays:
            name = "%s%d" % (prefix, len(self.shared_arrays))
            self.shared_arrays[key] = name
            self.array_lines.append("const %s %s[] = {%s};\n" % (ctype, name, ",".join(values)))
        return self.shared_arrays[key]

    def _release(self, name, release):
        model = self.model
        entity = model.entities[name]
        if not entity.exists[release]:
            return "nullptr"
        ancestors = [str(model.class_id[a]) for a in self.schema.ancestors(name, release)]
        derived = model.derived_names(name, release)
        attrs = []
        predefined = -1
        for i, (slot, optional) in enumerate(model.attributes(name, release)):
            is_derived = 1 if slot.qualified_name in derived else 0
            attrs.append("{%d,%d,%d,%d,0}" % (slot.index, model.offset_in(name, slot), optional, is_derived))
            if slot.name == "PredefinedType" and slot.kind == "ENUM":
                predefined = i
        a = self._shared("uint32_t", "A", ancestors) if ancestors else "nullptr"
        t = self._shared("AttrRef", "T", attrs) if attrs else "nullptr"
        d = self._shared("char16_t *const", "D", [u(x) for x in derived]) if derived else "nullptr"
        rname = "R%d_%d" % (model.class_id[name], release)
        self.array_lines.append("const ClassRelease %s = {%d,%d,%s,%s,%d,%d,%s,%d,0};\n" % (
            rname, release, len(ancestors), a, t, len(attrs), len(derived), d, predefined))
        return "&" + rname

    def _entity_class(self, name):
        model = self.model
        entity = model.entities[name]
        cid = model.class_id[name]
        releases = [self._release(name, r) for r in RELEASES]
        record = ["{%d,%d,0,%d}" % (model.offset_in(name, s), KINDS.index(s.kind), s.type_ref)
                  for s in model.record_slots(name)]
        rs = self._shared("RecordSlot", "S", record) if record else "nullptr"
        relocations = ["{%d,%d}" % (model.class_id[e], shift) for e, shift in model.relocation[name]]
        rl = self._shared("Relocation", "L", relocations) if relocations else "nullptr"
        abstract = ",".join("CIERTO" if a else "FALSO" for a in entity.abstract)
        return ('const kxClass_t C%d = {%d,%s,%s,CIERTO,{%s},&entity_new,&entity_init_from_parse,'
                '&entity_process_inverse_relation,&entity_hooks,{%s},%s,%d,%d,%d,%d,%s,nullptr,%s,'
                '"kx%s (KXIFCMODEL.DLL)"};\n' % (
                    cid, cid, u(name), u("kx" + name), abstract, ",".join(releases), rs, len(record),
                    model.record_size[name], model.subtree_end[name], len(relocations), rl,
                    u(name.upper()), name.lower()))

    def _select_class(self, name):
        model = self.model
        cid = model.class_id[name]
        releases = []
        for release in RELEASES:
            if self.schema.selects[name][release] is None:
                releases.append("nullptr")
            else:
                rname = "R%d_%d" % (cid, release)
                self.array_lines.append("const ClassRelease %s = {%d,0,nullptr,nullptr,0,0,nullptr,-1,0};\n"
                                        % (rname, release))
                releases.append("&" + rname)
        members = []
        for member, mask in model.select_members[name]:
            kind = self.schema.kind_of_name(member)
            if kind == "ENTITY":
                members.append("{%d,%d,0,%d}" % (KINDS.index("ENTITY"), mask, model.class_id[member]))
            elif kind == "TYPE":
                members.append("{%d,%d,0,%d}" % (KINDS.index(self.defined_kind[member]), mask,
                                                 self.defined_index[member]))
            elif kind == "ENUM":
                members.append("{%d,%d,0,%d}" % (KINDS.index("ENUM"), mask, model.enum_index[member]))
            else:
                raise SystemExit("select %s has a member of kind %s" % (name, kind))
        m = self._shared("SelectMember", "M", members)
        self.array_lines.append("const SelectInfo I%d = {%s,%d};\n" % (cid, m, len(members)))
        return ('const kxClass_t C%d = {%d,%s,%s,FALSO,{FALSO,FALSO},&select_new,nullptr,nullptr,'
                '&select_hooks,{%s},nullptr,0,0,%d,0,nullptr,&I%d,%s,"kx%s (KXIFCMODEL.DLL)"};\n' % (
                    cid, cid, u(name), u("kx" + name), ",".join(releases), cid + 1, cid,
                    u(name.upper()), name.lower()))

    def _slots(self):
        lines = ["const SlotInfo g_slots[] = {\n"]
        for slot in self.model.slots:
            mask = sum(1 << r for r in slot.releases)
            value_type = self.defined_index.get(slot.type_text, "NO_INDEX") if "/" not in slot.type_text else "NO_INDEX"
            lines.append("    {%d,%d,%d,%d,%d,%d,%s,%s,%s},\n" % (
                slot.offset, KINDS.index(slot.kind), mask, slot.type_ref, self.model.class_id[slot.entity],
                self.model.subtree_end[slot.entity], value_type, u(slot.name), u(slot.qualified_name)))
        lines.append("};\nconst uint32_t g_num_slots = %d;\n\n" % len(self.model.slots))
        return lines

    def _enums(self):
        lines = []
        infos = []
        for i, name in enumerate(self.model.enum_order):
            members = self.model.enum_members[name]
            names = [u("UNDEFINED")] + [u(m) for m, _ in members]
            literals = [u(".KX_UNDEFINED.")] + [u("." + m + ".") for m, _ in members]
            masks = ["0"] + [str(mask) for _, mask in members]
            lines.append("const char16_t *const EN%d[] = {%s};\n" % (i, ",".join(names)))
            lines.append("const char16_t *const EL%d[] = {%s};\n" % (i, ",".join(literals)))
            lines.append("const uint8_t ER%d[] = {%s};\n" % (i, ",".join(masks)))
            infos.append('    {%s,%s,"kx%s (KXIFCMODEL.DLL)",%d,EN%d,EL%d,ER%d},\n' % (
                u(name), u("kx" + name), name.lower(), len(names), i, i, i))
        return (["namespace {\n"] + lines + ["}  // namespace\n\nconst EnumInfo g_enums[] = {\n"] + infos +
                ["};\nconst uint32_t g_num_enums = %d;\n\n" % len(infos)])

    def _defined_types(self):
        lines = ["const DefinedTypeInfo g_defined_types[] = {\n"]
        for name in self.defined_order:
            kind = self.defined_kind[name]
            ref = 0
            if kind == "AGGREGATE":
                text = self.schema.underlying(name, R4)
                containers = tuple(c.split("[")[0] for c in text.split("/")[:-1])
                ref = self.model.aggregate_of[(containers, text.split("/")[-1])].index
            mask = sum(1 << r for r in RELEASES if self.schema.types[name][r])
            unit_kind, unit_type = self.measure_unit(name)
            lines.append("    {%s,%s,%d,%d,%d,%d,%d},\n" % (u(name), u(name.upper()), KINDS.index(kind), mask,
                                                         unit_kind, unit_type, ref))
        lines.append("};\nconst uint32_t g_num_defined_types = %d;\n\n" % len(self.defined_order))
        return lines

    # Measure types whose name does not spell their unit type.
    UNIT_NAME_OVERRIDES = {"SectionalAreaIntegral": "SECTIONAREAINTEGRAL", "ThermalConductivity": "THERMALCONDUCTANCE"}

    def measure_unit(self, name):
        """(unit kind, unit enumerator) of a measure type: Ifc<X>Measure is in
        the unit <X>UNIT of IfcUnitEnum or IfcDerivedUnitEnum (a Positive or
        NonNegative prefix aside); the monetary measure in the currency."""
        if not name.endswith("Measure") or self.defined_kind[name] not in ("REAL", "INTEGER"):
            return 0, 0
        if name == "IfcMonetaryMeasure":
            return 3, 0
        core = name[3:-len("Measure")]
        for prefix in ("Positive", "NonNegative"):
            if core.startswith(prefix) and len(core) > len(prefix):
                core = core[len(prefix):]
        unit = self.UNIT_NAME_OVERRIDES.get(core, core.upper()) + "UNIT"
        for kind, enum in ((1, "IfcUnitEnum"), (2, "IfcDerivedUnitEnum")):
            members = [m for m, _ in self.model.enum_members[enum]]
            if unit in members:
                return kind, members.index(unit) + 1
        return 0, 0

    def _aggregates(self):
        lines = ["const AggregateInfo g_aggregates[] = {\n"]
        for aggregate in self.aggregates:
            container = {"LIST": 0, "SET": 1, "BAG": 1, "ARRAY": 2}[aggregate.containers[0]]
            lines.append("    {%s,%s,%s,%d,%d,0,%d},\n" % (
                u(self.aggregate_type[aggregate.index]), u(aggregate.keyword), u(self.description(aggregate)),
                container, KINDS.index(self.element_kind(aggregate)), self.element_ref(aggregate)))
        lines.append("};\nconst uint32_t g_num_aggregates = %d;\n\n" % len(self.aggregates))
        return lines

    def _keywords(self):
        keywords = self.model.keywords()
        ids = [str(self.model.class_id.get(k, "NO_INDEX")) if k in self.model.class_id else "NO_INDEX"
               for k in keywords]
        return (["const char16_t *const g_keywords[] = {\n"] + ["    %s,\n" % u(k) for k in keywords] +
                ["};\nconst uint32_t g_keyword_class_ids[] = {%s};\n" % ",".join(ids),
                 "const uint32_t g_num_keywords = %d;\n\n" % len(keywords)])

    # ---- exported entry points --------------------------------------------
    def exports(self):
        """(declarations for the public header, definitions) per type."""
        units = []
        for name in self.model.class_names:
            cid = self.model.class_id[name]
            units.append(("typedef struct kxBaseObject kx%s;\nKX_API const kxClass_t *kx%s_class(void);" % (name, name),
                          "KX_API const kxClass_t *kx%s_class(void) { return g_classes[%d]; }\n" % (name, cid)))
        for i, name in enumerate(self.model.enum_order):
            units.append(self._enum_exports(i, name))
        for name in self.defined_order:
            units.append(self._defined_exports(name))
        for type_name in sorted(self.runtime_types, key=sort_key):
            units.append(self._aggregate_exports(type_name, self.runtime_types[type_name]))
        for name in self.defined_order:
            if self.defined_kind[name] == "AGGREGATE":
                units.append(self._aggregate_defined_exports(name))
        for name in self.model.entity_order:
            units.append(self._entity_exports(name))
        for name in self.model.select_order:
            units.append(self._select_exports(name))
        return units

    # ---- entity and select accessors ---------------------------------------
    def value_type(self, slot_kind, type_text, release):
        """C type of a value of an attribute type (getter result, setter argument)."""
        if slot_kind in ("ENTITY", "SELECT"):
            return "kx%s *" % self.model.resolve_named(type_text, release)
        if slot_kind == "ENUM":
            return "kx%s" % self.model.resolve_named(type_text, release)
        if slot_kind == "AGGREGATE":
            return "%s *" % self.aggregate_type[self.model.slot_aggregate(type_text, release).index]
        return C_VALUE_TYPE[slot_kind]

    def _accessor_triple(self, entity, attr, slot, releases, suffix, entity_id):
        kind = slot.kind
        release = min(releases)
        ctype = self.value_type(kind, slot.type_text, release)
        get_type = "const kxWChar *" if kind == "STRING" else ctype
        set_type = "const kxWChar *" if kind == "STRING" else ctype
        mask = sum(1 << r for r in releases)
        args = "instance, %d, %d, %d" % (slot.index, mask, entity_id)
        engine = {"STRING": "string", "REAL": "real", "INTEGER": "integer", "BOOLEAN": "boolean",
                  "LOGICAL": "logical", "ENUM": "enum", "BINARY": "binary", "ENTITY": "object",
                  "SELECT": "object", "AGGREGATE": "aggregate"}[kind]
        sep = "" if get_type.endswith("*") else " "
        e = "kx" + entity
        functions = [
            ("kxBool %s_%s_has_value%s(const %s *instance)" % (e, attr, suffix, e),
             "return attr_has_value(%s);" % args),
            ("%s%s%s_get_%s%s(const %s *instance)" % (get_type, sep, e, attr, suffix, e),
             "return attr_get_%s(%s);" % (engine, args)),
            ("void %s_set_%s%s(%s *instance, %s%svalue)" % (e, attr, suffix, e, set_type, "" if set_type.endswith("*") else " "),
             "attr_set_%s(%s, value);" % (engine, args)),
        ]
        self.manifest.append("attr\t%s\t%s\t%s\t%s\t%d\t%d\t%s" % (
            entity, attr, suffix or "-", kind, slot.index, mask, ctype.replace(" ", "")))
        self.test_table.append('{u"%s", u"%s", u"%s", %d, %d, %d, (void (*)())&%s_%s_has_value%s, '
                               '(void (*)())&%s_get_%s%s, (void (*)())&%s_set_%s%s},' % (
                                   entity, attr, suffix, KINDS.index(kind), slot.index, mask,
                                   e, attr, suffix, e, attr, suffix, e, attr, suffix))
        return functions

    def _entity_exports(self, name):
        model = self.model
        cid = model.class_id[name]
        e = "kx" + name
        functions = [
            ("kxBool %s_dontuse_is_typeof(const %s *instance, const kxClass_t *klass)" % (e, e),
             "return entity_is_typeof(instance, klass, %d);" % cid),
            ("kxBaseObject *%s_dontuse_cast_to(%s *instance, const kxClass_t *klass)" % (e, e),
             "return entity_cast_to(instance, klass, %d);" % cid),
        ]
        for attr, per_release, suffixed in model.accessors(name):
            if not suffixed:
                slot = per_release[R2X3][0]
                functions += self._accessor_triple(name, attr, slot, (R2X3, R4), "", cid)
            else:
                for release in sorted(per_release):
                    slot = per_release[release][0]
                    functions += self._accessor_triple(name, attr, slot, (release,), SUFFIX[release], cid)
        for inverse, per_release in model.inverse_accessors(name):
            args = []
            for release in RELEASES:
                if release in per_release:
                    relating, attribute = per_release[release]
                    args.append("%d, %s" % (model.class_id[relating], u(attribute)))
                else:
                    args.append("NO_INDEX, nullptr")
            functions.append(("kxArrayST *%s_inverse_relation_%s(const %s *instance)" % (e, inverse, e),
                              "return entity_inverse(instance, %d, %s);" % (cid, ", ".join(args))))
            self.manifest.append("inverse\t%s\t%s\t%s" % (name, inverse, "\t".join(
                "%s\t%s" % per_release[r] if r in per_release else "-\t-" for r in RELEASES)))
        return self._functions(functions)

    def _select_exports(self, name):
        model = self.model
        sid = model.class_id[name]
        s = "kx" + name
        functions = [("uint32_t %s_get_type(const %s *select)" % (s, s), "return select_get_type(select, %d);" % sid)]
        for code, (member, mask) in enumerate(model.select_members[name], start=1):
            kind = self.schema.kind_of_name(member)
            if kind == "ENTITY":
                ctype, engine = "kx%s *" % member, "object"
            elif kind == "ENUM":
                ctype, engine = "kx%s" % member, "integer"
            else:
                storage = self.defined_kind[member]
                engine = {"STRING": "string", "REAL": "real", "INTEGER": "integer", "BOOLEAN": "integer",
                          "LOGICAL": "integer", "BINARY": "binary", "AGGREGATE": "aggregate"}[storage]
                if storage == "AGGREGATE":
                    ctype = "kx%s *" % member
                elif storage == "STRING":
                    ctype = "const kxWChar *"
                else:
                    ctype = "kx%s" % member
            sep = "" if ctype.endswith("*") else " "
            functions.append(("%s%s%s_get_kx%s(const %s *select)" % (ctype, sep, s, member, s),
                              "return select_get_%s(select, %d);" % (engine, sid)))
            functions.append(("void %s_set_kx%s(%s *select, %s%svalue)" % (s, member, s, ctype, sep),
                              "select_set_%s(select, %d, %d, value);" % (engine, sid, code)))
            self.manifest.append("member\t%s\t%d\t%s\t%s\t%d" % (name, code, member, kind if kind != "TYPE" else self.defined_kind[member], mask))
        return self._functions(functions)

    @staticmethod
    def _functions(functions):
        decl = "\n".join("KX_API %s;" % signature for signature, _ in functions)
        body = "".join("KX_API %s { %s }\n" % (signature, statement) for signature, statement in functions)
        return decl, body

    def _enum_exports(self, index, name):
        # Member constants: 0 is undefined, then the members by their number.
        members = self.model.enum_members[name]
        constants = ["kx%s_UNDEFINED = 0" % name] + ["kx%s_%s = %d" % (name, member, i + 1)
                                                    for i, (member, _) in enumerate(members)]
        decl = ("typedef int32_t kx%s;\n" % name +
                "enum { %s };\n" % ", ".join(constants) +
                "KX_API kxBool kx%s_has_value(kx%s value);\n" % (name, name) +
                "KX_API const kxWChar *kx%s_to_string(kx%s value);" % (name, name))
        body = ("KX_API kxBool kx%s_has_value(kx%s value) { return enum_has_value(g_enums[%d], value); }\n"
                "KX_API const kxWChar *kx%s_to_string(kx%s value) { return enum_to_string(g_enums[%d], value); }\n"
                % (name, name, index, name, name, index))
        return decl, body

    def _defined_exports(self, name):
        kind = self.defined_kind[name]
        if kind == "AGGREGATE":
            return ("typedef struct kxAggregate kx%s;" % name, "")
        ctype = C_VALUE_TYPE[kind]
        arg = CONST_IN_TYPE.get(kind, ctype)
        typedef = "" if kind == "STRING" else "typedef %s kx%s;\n" % (ctype, name)
        low = kind.lower()
        decl = (typedef + "KX_API kxBool kx%s_has_value(%s value);\n" % (name, arg) +
                "KX_API %s kx%s_undefined_value(void);" % (ctype, name))
        body = ("KX_API kxBool kx%s_has_value(%s value) { return kxIfcCoreTypes_%s_has_value(value); }\n"
                "KX_API %s kx%s_undefined_value(void) { return kxIfcCoreTypes_%s_undefined_value(); }\n"
                % (name, arg, low, ctype, name, low))
        return decl, body

    def _aggregate_exports(self, type_name, aggregate):
        kind = self.element_kind(aggregate)
        ref = aggregate.index
        t = type_name
        if kind in ("ENTITY", "SELECT") or kind == "AGGREGATE":
            element = "kxBaseObject *" if kind != "AGGREGATE" else "kxAggregate *"
            ops = [
                ("%s *%s_new(void)" % (t, t), "return aggregate_new();"),
                ("void %s_free(%s **array_of_elements)" % (t, t), "aggregate_free(array_of_elements, %d);" % ref),
                ("uint32_t %s_count(const %s *array_of_elements)" % (t, t), "return aggregate_count(array_of_elements);"),
                ("%s%s_get_element(const %s *array_of_elements, uint32_t index)" % (element, t, t),
                 "return aggregate_get_%s(array_of_elements, index);" % ("object" if kind != "AGGREGATE" else "aggregate")),
                ("void %s_set_element(%s *array_of_elements, uint32_t index, %selement)" % (t, t, element),
                 "aggregate_set_%s(array_of_elements, index, element, %d);" % ("object" if kind != "AGGREGATE" else "aggregate", ref)),
                ("void %s_append_element(%s *array_of_elements, %selement)" % (t, t, element),
                 "aggregate_append_%s(array_of_elements, element, %d);" % ("object" if kind != "AGGREGATE" else "aggregate", ref)),
            ]
            if kind != "AGGREGATE":
                ops += [("void %s_remove_element(%s *array_of_elements, kxBaseObject *element)" % (t, t),
                         "aggregate_remove_object(array_of_elements, element);"),
                        ("void %s_delete_element(%s *array_of_elements, kxBaseObject *element)" % (t, t),
                         "aggregate_remove_object(array_of_elements, element);")]
            else:
                ops += [("void %s_remove_element(%s *array_of_elements, uint32_t index)" % (t, t),
                         "aggregate_remove_index(array_of_elements, index, %d);" % ref)]
        else:
            ctype = C_VALUE_TYPE[kind]
            arg = CONST_IN_TYPE.get(kind, ctype)
            getter = "const kxWChar *" if kind == "STRING" else ctype + " "
            low = kind.lower()
            ops = [
                ("%s *%s_new(void)" % (t, t), "return aggregate_new();"),
                ("%s *%s_copy(const %s *array_of_elements)" % (t, t, t), "return aggregate_copy(array_of_elements, %d);" % ref),
                ("void %s_free(%s **array_of_elements)" % (t, t), "aggregate_free(array_of_elements, %d);" % ref),
                ("uint32_t %s_count(const %s *array_of_elements)" % (t, t), "return aggregate_count(array_of_elements);"),
                ("void %s_add(%s *array_of_elements, %s value)" % (t, t, arg), "aggregate_add_%s(array_of_elements, value);" % low),
                ("void %s_remove(%s *array_of_elements, uint32_t index)" % (t, t), "aggregate_remove_index(array_of_elements, index, %d);" % ref),
                ("%s%s_get(const %s *array_of_elements, uint32_t index)" % (getter, t, t), "return aggregate_get_%s(array_of_elements, index);" % low),
                ("void %s_set(%s *array_of_elements, uint32_t index, %s value)" % (t, t, arg), "aggregate_set_%s(array_of_elements, index, value);" % low),
            ]
        decl = ["typedef struct kxAggregate %s;" % t]
        body = []
        for signature, statement in ops:
            decl.append("KX_API %s;" % signature)
            body.append("KX_API %s { %s }\n" % (signature, statement))
        return "\n".join(decl), "".join(body)

    def _aggregate_defined_exports(self, name):
        """An aggregate defined type offers its element aggregate's
        operations under its own name."""
        index = self.defined_index[name]
        text = self.schema.underlying(name, R4)
        containers = tuple(c.split("[")[0] for c in text.split("/")[:-1])
        aggregate = self.model.aggregate_of[(containers, text.split("/")[-1])]
        kind = self.element_kind(aggregate)
        t = "kx" + name
        ref = aggregate.index
        if kind in ("ENTITY", "SELECT"):
            element, getter, low = "kxBaseObject *", "kxBaseObject *", "object"
            setter = "aggregate_set_object(array_of_elements, index, element, %d);" % ref
            append = "aggregate_append_object(array_of_elements, element, %d);" % ref
        else:
            ctype = C_VALUE_TYPE[kind]
            element, getter, low = ctype + " ", ctype + " ", kind.lower()
            setter = "aggregate_set_%s(array_of_elements, index, element);" % low
            append = "aggregate_add_%s(array_of_elements, element);" % low
        ops = [("%s *%s_new(void)" % (t, t), "return aggregate_new();")]
        if kind not in ("ENTITY", "SELECT") and name not in ("IfcArcIndex", "IfcLineIndex"):
            ops.append(("%s *%s_copy(const %s *array_of_elements)" % (t, t, t),
                        "return aggregate_copy(array_of_elements, %d);" % ref))
        ops += [
            ("void %s_free(%s **array_of_elements)" % (t, t), "aggregate_free(array_of_elements, %d);" % ref),
            ("uint32_t %s_count(const %s *array_of_elements)" % (t, t), "return aggregate_count(array_of_elements);"),
            ("void %s_set_element(%s *array_of_elements, uint32_t index, %selement)" % (t, t, element), setter),
            ("%s%s_get_element(const %s *array_of_elements, uint32_t index)" % (getter, t, t),
             "return aggregate_get_%s(array_of_elements, index);" % low),
            ("void %s_append_element(%s *array_of_elements, %selement)" % (t, t, element), append),
            ("void %s_remove_element(%s *array_of_elements, uint32_t index)" % (t, t),
             "aggregate_remove_index(array_of_elements, index, %d);" % ref),
        ]
        decl = ["KX_API %s;" % s for s, _ in ops]
        body = "".join("KX_API %s { %s }\n" % (s, st) for s, st in ops)
        del index
        return "\n".join(decl), body


def public_header(declarations):
    return ("/* Generated by tools/generate_schema.py from schema/ifc.digest. Do not edit. */\n"
            "/* kxifc_schema.h: the schema binding (classes, enumerations, defined types,\n"
            " * aggregates). Compiles as C11 and as C++. */\n"
            "#ifndef KXIFC_SCHEMA_H\n#define KXIFC_SCHEMA_H\n\n"
            '#include "kxifc_defs.h"\n#include "kxifc_model.h"\n\n'
            "KX_EXTERN_C_BEGIN\n\n"
            "typedef struct kxAggregate kxAggregate;\n\n" +
            "\n\n".join(d for d in declarations if d) +
            "\n\nKX_EXTERN_C_END\n\n#endif\n")


def export_unit(bodies):
    return ("// Generated by tools/generate_schema.py from schema/ifc.digest. Do not edit.\n"
            '#include "kxifc_coretypes.h"\n#include "kxifc_schema.h"\n#include "core/class.h"\n'
            '#include "schema/accessors.h"\n#include "schema/engines.h"\n\nusing namespace kx;\n\nextern "C" {\n\n' +
            "".join(bodies) + '\n}  // extern "C"\n')


def main(argv):
    if len(argv) != 3:
        sys.stderr.write(__doc__)
        return 2
    digest, outdir = argv[1], argv[2]
    generator = Generator(ClassModel(Schema(digest)))
    write_if_changed(os.path.join(outdir, "src", "schema_tables.cpp"), generator.tables())
    units = generator.exports()
    write_if_changed(os.path.join(outdir, "manifest", "accessors.tsv"), "\n".join(generator.manifest) + "\n")
    # For tests: every attribute accessor with its slot, as function pointers.
    write_if_changed(os.path.join(outdir, "manifest", "accessor_table.inc"), "\n".join(generator.test_table) + "\n")
    write_if_changed(os.path.join(outdir, "include", "kxifc_schema.h"), public_header([d for d, _ in units]))
    # Units are spread over the files by size, so they compile in even time.
    files = [[] for _ in range(EXPORT_FILES)]
    sizes = [0] * EXPORT_FILES
    for _, body in units:
        smallest = sizes.index(min(sizes))
        files[smallest].append(body)
        sizes[smallest] += len(body)
    for n, bodies in enumerate(files):
        write_if_changed(os.path.join(outdir, "src", "schema_exports_%d.cpp" % n), export_unit(bodies))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

"""The merged IFC2X3 + IFC4 class model, computed from the schema digest.

Everything the C++ generator emits is decided here: class ids, ancestor lists,
attribute slots and record layouts, accessor names with their release
suffixes, inverse accessors, enumeration numbering, select member codes,
aggregate types and the keyword table.
"""
import re

R2X3, R4 = 0, 1
RELEASES = (R2X3, R4)
RELEASE_TAG = {"2": (R2X3,), "4": (R4,), "24": (R2X3, R4)}
SUFFIX = {R2X3: "_v2x3", R4: "_v4"}

# Storage kinds of attribute slots and aggregate elements (same order as the
# C++ enum kx::SlotKind).
KINDS = ["STRING", "REAL", "INTEGER", "BOOLEAN", "LOGICAL", "BINARY", "ENUM", "ENTITY",
         "SELECT", "AGGREGATE"]
KIND_SIZE = {"STRING": 8, "REAL": 8, "INTEGER": 4, "BOOLEAN": 4, "LOGICAL": 4, "BINARY": 16,
             "ENUM": 4, "ENTITY": 8, "SELECT": 8, "AGGREGATE": 8}
KIND_ALIGN = {k: min(v, 8) for k, v in KIND_SIZE.items()}
BASE_OBJECT_SIZE = 40
AGGREGATE_PREFIX = {"LIST": "List", "SET": "Set", "ARRAY": "Arr", "BAG": "Set"}
SIMPLE_KIND = {"REAL": "REAL", "NUMBER": "REAL", "INTEGER": "INTEGER", "BOOLEAN": "BOOLEAN",
               "LOGICAL": "LOGICAL", "STRING": "STRING", "BINARY": "BINARY"}


def sort_key(name):
    return (name.lower(), name)


def simple_base(text):
    """REAL, STRING(255), BINARY(32)FIXED... -> the storage kind, or None."""
    return SIMPLE_KIND.get(re.match(r"[A-Z]+", text).group(0)) if re.match(r"[A-Z]+$|[A-Z]+\(", text) else None


def strip_bounds(type_text):
    return re.sub(r"\[[^\]]*\]", "", type_text)


def split_aggregate(type_text):
    """'LIST[1:?]/SET[0:?]/IfcX' -> (['LIST', 'SET'], 'IfcX')."""
    parts = type_text.split("/")
    return [re.match(r"[A-Z]+", p).group(0) for p in parts[:-1]], parts[-1]


class Entity:
    def __init__(self, name):
        self.name = name
        self.exists = [False, False]
        self.super = [None, None]
        self.abstract = [False, False]
        self.attrs = [[], []]        # per release: (name, optional, type text), own, in order
        self.derives = [[], []]      # per release: "Entity.Attr"
        self.inverses = [[], []]     # per release: (name, aggregate, entity, attr)
        self.merged_attrs = []       # (releases, name, optional, type) as the digest interleaves them


class Schema:
    def __init__(self, digest_path):
        self.entities = {}
        self.types = {}     # name -> [underlying or None, ...] per release
        self.enums = {}     # name -> [members or None, ...]
        self.selects = {}   # name -> [members or None, ...]
        self._read(digest_path)
        self._check_kinds()

    # ---- reading -------------------------------------------------------
    def _read(self, path):
        current = None
        with open(path, encoding="ascii") as handle:
            for line in handle:
                if line.startswith("#") or not line.strip():
                    continue
                fields = line.split()
                record = fields[0]
                if record in ("type", "enum", "select"):
                    table = {"type": self.types, "enum": self.enums, "select": self.selects}[record]
                    entry = table.setdefault(fields[1], [None, None])
                    value = fields[3] if record == "type" else fields[3].split(",")
                    for release in RELEASE_TAG[fields[2]]:
                        entry[release] = value
                elif record == "entity":
                    current = self.entities.setdefault(fields[1], Entity(fields[1]))
                    for release in RELEASE_TAG[fields[2]]:
                        current.exists[release] = True
                        current.super[release] = None if fields[3] == "-" else fields[3]
                        current.abstract[release] = fields[4] == "1"
                elif record == "attr":
                    releases = RELEASE_TAG[fields[1]]
                    attr = (fields[2], fields[3] == "opt", fields[4])
                    current.merged_attrs.append((releases,) + attr)
                    for release in releases:
                        current.attrs[release].append(attr)
                elif record == "derive":
                    for release in RELEASE_TAG[fields[1]]:
                        current.derives[release].append(fields[2])
                elif record == "inverse":
                    for release in RELEASE_TAG[fields[1]]:
                        current.inverses[release].append(tuple(fields[2:6]))
                else:
                    raise SystemExit("unknown digest record: " + line)

    def _check_kinds(self):
        names = [set(self.entities), set(self.types), set(self.enums), set(self.selects)]
        for i in range(len(names)):
            for j in range(i + 1, len(names)):
                if names[i] & names[j]:
                    raise SystemExit("name used for two kinds: %s" % (names[i] & names[j]))

    # ---- type resolution -----------------------------------------------
    def kind_of_name(self, name):
        if name in self.entities:
            return "ENTITY"
        if name in self.selects:
            return "SELECT"
        if name in self.enums:
            return "ENUM"
        if name in self.types:
            return "TYPE"
        return None

    def underlying(self, name, release):
        """The underlying type text of a defined type in a release (the
        other release's when this one lacks it)."""
        definition = self.types[name]
        return definition[release] if definition[release] is not None else definition[1 - release]

    def storage_kind(self, type_text, release):
        """Storage kind of a slot holding a value of this type."""
        if "/" in type_text:
            return "AGGREGATE"
        base = simple_base(type_text)
        if base:
            return base
        kind = self.kind_of_name(type_text)
        if kind == "TYPE":
            return self.storage_kind(self.underlying(type_text, release), release)
        if kind is None:
            raise SystemExit("unknown type " + type_text)
        return kind

    def ancestors(self, name, release):
        """Supertypes of an entity in a release, root first."""
        chain = []
        parent = self.entities[name].super[release]
        while parent:
            chain.append(parent)
            parent = self.entities[parent].super[release]
        return list(reversed(chain))


class Slot:
    """One attribute slot of an entity record."""

    def __init__(self, entity, name, releases, type_text, kind):
        self.entity = entity          # declaring entity
        self.name = name
        self.releases = releases      # tuple of releases that use this slot
        self.type_text = type_text
        self.kind = kind
        self.offset = None
        self.index = None
        self.type_ref = None          # enum index, class id, aggregate index
        self.aggregate = None

    @property
    def qualified_name(self):
        return "kx%s.%s" % (self.entity, self.name)


class Aggregate:
    """One aggregate type held by attributes: containers outermost first."""

    def __init__(self, containers, element):
        self.containers = tuple(containers)
        self.element = element
        self.index = None
        self.inner = None             # Aggregate of the nested level, if any

    @property
    def keyword(self):
        return "".join(AGGREGATE_PREFIX[c] if c != "ARRAY" else "Arr" for c in self.containers) + self.element


class ClassModel:
    def __init__(self, schema):
        self.schema = schema
        self.entities = schema.entities
        self._union_parents()
        self._number_classes()
        self._make_slots()
        self._layout_records()
        self._number_enums()
        self._collect_aggregates()
        self._resolve_slot_types()
        self._select_members()

    # ---- classes -------------------------------------------------------
    def _union_parents(self):
        """One primary parent per entity: its IFC4 supertype where it has
        one, else its IFC2X3 supertype. Class ids and record layouts follow
        the tree of primary parents; supertypes of the other release that
        are not on the primary chain get extra record segments."""
        self.parent = {}
        for name, entity in self.entities.items():
            release = R4 if entity.exists[R4] else R2X3
            self.parent[name] = entity.super[release]

    def _number_classes(self):
        """Entities take ids in depth-first preorder of the union tree
        (children by name), so a class's subtypes follow it in one range;
        select types follow, by name."""
        children = {name: [] for name in self.entities}
        roots = []
        for name in self.entities:
            (children[self.parent[name]] if self.parent[name] else roots).append(name)
        order = []

        def visit(name):
            order.append(name)
            for child in sorted(children[name], key=sort_key):
                visit(child)

        for root in sorted(roots, key=sort_key):
            visit(root)
        self.entity_order = order
        self.select_order = sorted(self.schema.selects, key=sort_key)
        self.class_names = order + self.select_order
        self.class_id = {name: i for i, name in enumerate(self.class_names)}
        self.subtree_end = {}
        for name in reversed(order):
            end = self.class_id[name] + 1
            for child in children[name]:
                end = max(end, self.subtree_end[child])
            self.subtree_end[name] = end
        for name in self.select_order:
            self.subtree_end[name] = self.class_id[name] + 1

    def exists(self, name, release):
        if name in self.entities:
            return self.entities[name].exists[release]
        return self.schema.selects[name][release] is not None

    def abstract(self, name, release):
        return name in self.entities and self.entities[name].abstract[release]

    # ---- slots ---------------------------------------------------------
    def _make_slots(self):
        """Own slots of every entity: the IFC2X3 attributes in order (one
        common slot when IFC4 has the same attribute with the same type,
        bounds aside), then the IFC4-only ones in IFC4 order."""
        self.own_slots = {}
        self.slots = []
        self.slot_of = {}   # (entity, attr name, release) -> Slot
        for name in self.entity_order:
            entity = self.entities[name]
            by_name4 = {a[0]: a for a in entity.attrs[R4]}
            own = []
            common = set()
            for attr in entity.attrs[R2X3]:
                other = by_name4.get(attr[0])
                if other is not None and strip_bounds(other[2]) == strip_bounds(attr[2]):
                    own.append(Slot(name, attr[0], (R2X3, R4), attr[2], None))
                    common.add(attr[0])
                else:
                    own.append(Slot(name, attr[0], (R2X3,), attr[2], None))
            for attr in entity.attrs[R4]:
                if attr[0] not in common:
                    own.append(Slot(name, attr[0], (R4,), attr[2], None))
            for slot in own:
                slot.kind = self.schema.storage_kind(slot.type_text, slot.releases[0])
                slot.index = len(self.slots)
                self.slots.append(slot)
                for release in slot.releases:
                    self.slot_of[(name, slot.name, release)] = slot
            self.own_slots[name] = own

    def attributes(self, name, release):
        """(slot, optional) of every explicit attribute in read/write order."""
        result = []
        for entity in self.schema.ancestors(name, release) + [name]:
            for attr_name, optional, _ in self.entities[entity].attrs[release]:
                result.append((self.slot_of[(entity, attr_name, release)], optional))
        return result

    def record_slots(self, name):
        """Every slot of a record, in record order."""
        return [slot for entity, _ in self.segments[name] for slot in self.own_slots[entity]]

    def union_ancestors(self, name):
        """Supertypes in either release, primary chain first, root first."""
        result = []
        for release in (R4, R2X3):
            if self.entities[name].exists[release]:
                result += [a for a in self.schema.ancestors(name, release) if a not in result]
        return result

    def _layout_records(self):
        """A record is the base object, then one segment per entity of the
        class's union ancestry: the primary parent's segments in its order,
        then those of other-release supertypes it lacks, then the class's
        own. Slot offsets are absolute in the declaring entity's own
        record; `relocation` gives, per class, the shift of any segment that
        lies elsewhere than in its declarer's record."""
        segment_size = {}
        for name in self.entity_order:
            offset = 0
            for slot in self.own_slots[name]:
                align = KIND_ALIGN[slot.kind]
                offset = (offset + align - 1) // align * align
                slot.segment_offset = offset
                offset += KIND_SIZE[slot.kind]
            segment_size[name] = (offset + 7) // 8 * 8
        self.segments = {}
        self.record_size = {}
        for name in self.entity_order:   # parents come before children
            parent = self.parent[name]
            segments = list(self.segments[parent]) if parent else []
            end = self.record_size[parent] if parent else BASE_OBJECT_SIZE
            placed = {entity for entity, _ in segments}
            for entity in self.union_ancestors(name) + [name]:
                if entity not in placed:
                    segments.append((entity, end))
                    end += segment_size[entity]
            self.segments[name] = segments
            self.record_size[name] = end
        self.segment_start = {name: dict(self.segments[name]) for name in self.entity_order}
        for slot in self.slots:
            slot.offset = self.segment_start[slot.entity][slot.entity] + slot.segment_offset
        self.relocation = {}
        for name in self.entity_order:
            primary = set(self.primary_chain(name))
            self.relocation[name] = [(entity, start - self.segment_start[entity][entity])
                                     for entity, start in self.segments[name]
                                     if entity not in primary and self.own_slots[entity]]

    def primary_chain(self, name):
        """The entity and its primary parents up to the root."""
        chain = []
        while name:
            chain.append(name)
            name = self.parent[name]
        return chain

    def offset_in(self, name, slot):
        """Byte offset of a slot in a record of class `name`. Offsets hold
        unchanged along the primary tree; a segment off the primary chain
        is found through the class's relocations."""
        return self.segment_start[name][slot.entity] + slot.segment_offset

    def derived_names(self, name, release):
        """Qualified names of attributes this class or a supertype redeclares
        as derived, in the release."""
        names = []
        for entity in self.schema.ancestors(name, release) + [name]:
            for derive in self.entities[entity].derives[release]:
                declarer, attr = derive.split(".")
                names.append("kx%s.%s" % (declarer, attr))
        return names

    def accessors(self, name):
        """(attribute name, {release: slot}, suffixed) of every attribute the
        entity has in either release, IFC2X3 order first."""
        per_release = {}
        order = []
        for release in RELEASES:
            if not self.entities[name].exists[release]:
                continue
            for slot, optional in self.attributes(name, release):
                if slot.name not in per_release:
                    per_release[slot.name] = {}
                    order.append(slot.name)
                per_release[slot.name][release] = (slot, optional)
        result = []
        for attr in order:
            slots = per_release[attr]
            common = (len(slots) == 2 and slots[R2X3][0] is slots[R4][0])
            result.append((attr, slots, not common))
        return result

    def predefined_type_slots(self, name):
        """Per release, the PredefinedType slot of the entity, or None."""
        result = [None, None]
        for release in RELEASES:
            if self.entities[name].exists[release]:
                for slot, _ in self.attributes(name, release):
                    if slot.name == "PredefinedType" and slot.kind == "ENUM":
                        result[release] = slot
        return result

    # ---- inverse accessors ---------------------------------------------
    def inverse_accessors(self, name):
        """(accessor name suffix, {release: (relating entity, attribute)})
        in export order: the IFC2X3 list root first (a differing one as
        _v2x3 then _v4), then the IFC4-only ones in IFC4 order."""
        lists = []
        for release in RELEASES:
            items = []
            if self.entities[name].exists[release]:
                for entity in self.schema.ancestors(name, release) + [name]:
                    for inv in self.entities[entity].inverses[release]:
                        items.append((inv[0], inv[2], inv[3]))
            lists.append(items)
        in4 = {item[0]: item for item in lists[R4]}
        in2 = {item[0]: item for item in lists[R2X3]}
        result = []
        for inv_name, relating, attr in lists[R2X3]:
            other = in4.get(inv_name)
            if other is None:
                result.append((inv_name, {R2X3: (relating, attr)}))
            elif other[1:] == (relating, attr):
                result.append((inv_name, {R2X3: (relating, attr), R4: (relating, attr)}))
            else:
                result.append((inv_name + "_v2x3", {R2X3: (relating, attr)}))
                result.append((inv_name + "_v4", {R4: other[1:]}))
        for inv_name, relating, attr in lists[R4]:
            if inv_name not in in2:
                result.append((inv_name, {R4: (relating, attr)}))
        return result

    # ---- enumerations --------------------------------------------------
    def _number_enums(self):
        """Members numbered from 1: IFC2X3 order, then IFC4 additions."""
        self.enum_order = sorted(self.schema.enums, key=sort_key)
        self.enum_index = {name: i for i, name in enumerate(self.enum_order)}
        self.enum_members = {}
        for name in self.enum_order:
            defs = self.schema.enums[name]
            members = list(defs[R2X3] or [])
            members += [m for m in (defs[R4] or []) if m not in members]
            masks = []
            for member in members:
                mask = 0
                for release in RELEASES:
                    if defs[release] and member in defs[release]:
                        mask |= 1 << release
                masks.append(mask)
            self.enum_members[name] = list(zip(members, masks))

    # ---- aggregates ----------------------------------------------------
    def _aggregate(self, type_text):
        containers, element = split_aggregate(type_text)
        key = (tuple(containers), element)
        if key not in self.aggregate_of:
            aggregate = Aggregate(containers, element)
            self.aggregate_of[key] = aggregate
            if len(containers) > 1:
                aggregate.inner = self._aggregate("/".join(type_text.split("/")[1:]))
        return self.aggregate_of[key]

    def _collect_aggregates(self):
        self.aggregate_of = {}
        for slot in self.slots:
            if slot.kind == "AGGREGATE":
                text = slot.type_text
                if "/" not in text:   # an aggregate defined type
                    text = self.schema.underlying(text, slot.releases[0])
                slot.aggregate = self._aggregate(text)
        for name in sorted(self.schema.types, key=sort_key):
            for release in RELEASES:
                text = self.schema.types[name][release]
                if text and "/" in text:
                    self._aggregate(text)
        self.aggregates = sorted(self.aggregate_of.values(), key=lambda a: sort_key(a.keyword))
        for index, aggregate in enumerate(self.aggregates):
            aggregate.index = index

    def slot_aggregate(self, type_text, release):
        """The aggregate held by a slot of this type (an aggregate type text
        or an aggregate defined type)."""
        if "/" not in type_text:
            type_text = self.schema.underlying(type_text, release)
        return self._aggregate(type_text)

    def element_kind(self, aggregate):
        if aggregate.inner is not None:
            return "AGGREGATE"
        return self.schema.storage_kind(aggregate.element, R4 if self.schema.kind_of_name(aggregate.element) != "TYPE"
                                        or self.schema.types[aggregate.element][R4] else R2X3)

    def _resolve_slot_types(self):
        for slot in self.slots:
            if slot.kind in ("ENTITY", "SELECT"):
                slot.type_ref = self.class_id[slot.type_text]
            elif slot.kind == "ENUM":
                slot.type_ref = self.enum_index[self.resolve_named(slot.type_text, slot.releases[0])]
            elif slot.kind == "AGGREGATE":
                slot.type_ref = slot.aggregate.index
            else:
                slot.type_ref = 0

    def resolve_named(self, name, release):
        """Follows defined types down to the enumeration/entity they name."""
        while self.schema.kind_of_name(name) == "TYPE":
            name = self.schema.underlying(name, release)
        return name

    # ---- selects -------------------------------------------------------
    def _expand_select(self, name, release):
        members = []
        for member in self.schema.selects[name][release] or []:
            if member in self.schema.selects:
                members += [m for m in self._expand_select(member, release) if m not in members]
            elif member not in members:
                members.append(member)
        return members

    def _select_members(self):
        """Member codes from 1: the expanded IFC2X3 members in schema file
        order, then the members IFC4 adds, in IFC4 order."""
        self.select_members = {}
        for name in self.select_order:
            first = self._expand_select(name, R2X3) if self.schema.selects[name][R2X3] else []
            second = self._expand_select(name, R4) if self.schema.selects[name][R4] else []
            members = first + [m for m in second if m not in first]
            result = []
            for member in members:
                mask = (1 if member in first else 0) | (2 if member in second else 0)
                result.append((member, mask))
            self.select_members[name] = result

    # ---- keyword table -------------------------------------------------
    def keywords(self):
        """(keyword, class name or None) for every type name of both
        releases and every named aggregate type, sorted without case."""
        names = set(self.entities) | set(self.schema.selects) | set(self.schema.enums) | set(self.schema.types)
        for aggregate in self.aggregates:
            if not simple_base(aggregate.element):
                names.add(aggregate.keyword)
        return sorted(names, key=sort_key)

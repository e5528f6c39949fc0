#!/usr/bin/env python3
"""Reads the IFC2X3 and IFC4 EXPRESS schemas and writes the merged schema digest.

The digest is a line-oriented text file that holds everything the code
generator needs and nothing else: every type's kind and releases, entity
supertypes and abstract flags, explicit attributes (in schema order, under the
entity that declares them), derived redeclarations of inherited attributes,
inverse attributes, enumeration and select members, and the underlying types
of defined types. Re-running this reader on the same two files reproduces the
digest byte for byte.

Usage: express_digest.py IFC2X3.exp IFC4.exp > schema/ifc.digest

Digest records (fields separated by one blank; <rel> is 2, 4 or 24 for the
releases the record holds in):
  type <Name> <rel> <underlying>
  enum <Name> <rel> <Member,Member,...>
  select <Name> <rel> <Member,Member,...>
  entity <Name> <rel> <Supertype or -> <abstract 0/1>
   attr <rel> <Name> <opt/req> <type>
   derive <rel> <Entity>.<Attr>
   inverse <rel> <Name> <aggregate or -> <Entity> <Attribute>
Aggregate types are written <KIND>[<lo>:<hi>]<UNIQUE?>/<element>, nested as
needed; KIND is LIST, SET, ARRAY or BAG.
"""
import difflib
import re
import sys

RELEASE_NAMES = ("2", "4")


def strip_comments(text):
    text = re.sub(r"\(\*.*?\*\)", " ", text, flags=re.S)
    return re.sub(r"--[^\n]*", " ", text)


def normalise_type(expr):
    """Canonical, blank-free text of an EXPRESS type expression."""
    expr = " ".join(expr.split())
    aggregate = re.match(r"(LIST|SET|ARRAY|BAG)\s*\[\s*([^:\]]+?)\s*:\s*([^\]]+?)\s*\]\s*OF\s+(UNIQUE\s+)?(.*)$", expr)
    if aggregate:
        kind, low, high, unique, rest = aggregate.groups()
        return "%s[%s:%s]%s/%s" % (kind, low.replace(" ", ""), high.replace(" ", ""),
                                   "UNIQUE" if unique else "", normalise_type(rest))
    return expr.replace(" ", "")


def split_statements(body):
    return [s.strip() for s in body.split(";") if s.strip()]


def parse_names(text):
    return [name.strip() for name in text.split(",") if name.strip()]


def parse_entity(name, text):
    header, _, body = text.partition(";")
    abstract = 1 if re.search(r"\bABSTRACT\b", header) else 0
    supertype = re.search(r"SUBTYPE\s+OF\s*\(\s*(\w+)\s*\)", header)
    sections = re.split(r"^\s*(DERIVE|INVERSE|UNIQUE|WHERE)\b", body, flags=re.M)
    entity = {"name": name, "abstract": abstract,
              "super": supertype.group(1) if supertype else "-",
              "attrs": [], "derives": [], "inverses": []}
    for statement in split_statements(sections[0]):
        names, _, type_text = statement.partition(":")
        optional = "opt" if re.match(r"\s*OPTIONAL\b", type_text) else "req"
        type_text = re.sub(r"^\s*OPTIONAL\b", "", type_text)
        for attr in parse_names(names):
            entity["attrs"].append((attr, optional, normalise_type(type_text)))
    for index in range(1, len(sections), 2):
        keyword, content = sections[index], sections[index + 1]
        if keyword == "DERIVE":
            for statement in split_statements(content):
                redeclared = re.match(r"SELF\\(\w+)\.(\w+)\s*:", statement)
                if redeclared:
                    entity["derives"].append("%s.%s" % redeclared.groups())
        elif keyword == "INVERSE":
            for statement in split_statements(content):
                inverse = re.match(r"(\w+)\s*:\s*(?:(SET|BAG)\s*\[\s*(\S+?)\s*:\s*(\S+?)\s*\]\s*OF\s+)?(\w+)\s+FOR\s+(\w+)$",
                                   " ".join(statement.split()))
                if not inverse:
                    raise SystemExit("unreadable inverse in %s: %s" % (name, statement))
                inv_name, kind, low, high, target, attr = inverse.groups()
                aggregate = "%s[%s:%s]" % (kind, low, high) if kind else "-"
                entity["inverses"].append((inv_name, aggregate, target, attr))
    return entity


def parse_type(name, underlying):
    underlying = " ".join(underlying.split())
    enum = re.match(r"ENUMERATION\s+OF\s*\((.*)\)$", underlying)
    if enum:
        return ("enum", ",".join(parse_names(enum.group(1))))
    select = re.match(r"SELECT\s*\((.*)\)$", underlying)
    if select:
        return ("select", ",".join(parse_names(select.group(1))))
    return ("type", normalise_type(underlying))


def parse_schema(path):
    with open(path, encoding="latin-1") as handle:
        text = strip_comments(handle.read())
    types, entities = {}, {}
    for match in re.finditer(r"^TYPE\s+(\w+)\s*=\s*(.*?);\s*(?:WHERE.*?)?END_TYPE;", text, flags=re.S | re.M):
        types[match.group(1)] = parse_type(match.group(1), match.group(2))
    for match in re.finditer(r"^ENTITY\s+(\w+)\b(.*?)END_ENTITY;", text, flags=re.S | re.M):
        entities[match.group(1)] = parse_entity(match.group(1), match.group(2))
    return types, entities


def merge_sequences(first, second):
    """Interleaves two ordered lists of records so that each keeps its order:
    records in both come once, tagged 24; the others tagged 2 or 4."""
    merged = []
    matcher = difflib.SequenceMatcher(a=first, b=second, autojunk=False)
    for tag, a0, a1, b0, b1 in matcher.get_opcodes():
        if tag == "equal":
            merged += [("24", item) for item in first[a0:a1]]
        else:
            merged += [("2", item) for item in first[a0:a1]]
            merged += [("4", item) for item in second[b0:b1]]
    return merged


def sort_key(name):
    return (name.lower(), name)


def write_digest(schemas, out):
    (types2, entities2), (types4, entities4) = schemas
    out.write("# kxifcmodel schema digest: IFC2X3 (2) and IFC4 (4), made by tools/express_digest.py\n")
    for name in sorted(set(types2) | set(types4), key=sort_key):
        defs = [d for d in (types2.get(name), types4.get(name))]
        if defs[0] == defs[1]:
            out.write("%s %s 24 %s\n" % (defs[0][0], name, defs[0][1]))
        else:
            for release, definition in zip(RELEASE_NAMES, defs):
                if definition:
                    out.write("%s %s %s %s\n" % (definition[0], name, release, definition[1]))
    for name in sorted(set(entities2) | set(entities4), key=sort_key):
        defs = (entities2.get(name), entities4.get(name))
        heads = [(d["super"], d["abstract"]) if d else None for d in defs]
        if heads[0] == heads[1]:
            out.write("entity %s 24 %s %d\n" % (name, heads[0][0], heads[0][1]))
        else:
            for release, head in zip(RELEASE_NAMES, heads):
                if head:
                    out.write("entity %s %s %s %d\n" % (name, release, head[0], head[1]))
        lists = [d if d else {"attrs": [], "derives": [], "inverses": []} for d in defs]
        for release, attr in merge_sequences(lists[0]["attrs"], lists[1]["attrs"]):
            out.write(" attr %s %s %s %s\n" % ((release,) + attr))
        for release, derive in merge_sequences(lists[0]["derives"], lists[1]["derives"]):
            out.write(" derive %s %s\n" % (release, derive))
        for release, inverse in merge_sequences(lists[0]["inverses"], lists[1]["inverses"]):
            out.write(" inverse %s %s %s %s %s\n" % ((release,) + inverse))


def main(argv):
    if len(argv) != 3:
        sys.stderr.write(__doc__)
        return 2
    schemas = [parse_schema(argv[1]), parse_schema(argv[2])]
    write_digest(schemas, sys.stdout)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

#!/usr/bin/env python3
"""Lists the walls of each building storey with their single-value
properties, through the Python package and the inverse relations:
storey -> ContainsElements -> walls -> IsDefinedBy -> property sets.

    walls_per_storey.py [FILE]     (default: the bundled sample house)
"""
import os
import sys

import kxifcmodel

DEFAULT_FILE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "data", "sample_house.ifc")


def property_values(element):
    """(property set name, property name, value) of the element's single values."""
    for relationship in element.IsDefinedBy:
        if not relationship.is_a("IfcRelDefinesByProperties"):
            continue
        definition = relationship.RelatingPropertyDefinition
        if not definition.is_a("IfcPropertySet"):
            continue
        for prop in definition.HasProperties:
            if prop.is_a("IfcPropertySingleValue"):
                yield definition.Name, prop.Name, prop.NominalValue


def main(argv):
    path = argv[1] if len(argv) > 1 else DEFAULT_FILE
    try:
        model = kxifcmodel.open(path)
    except kxifcmodel.ReadError as error:
        print(error, file=sys.stderr)
        return 1
    print("%s: %s, %d instances, %d read problems" % (path, model.schema, len(model), len(model.problems)))
    for storey in model.by_type("IfcBuildingStorey"):
        print("storey #%d %s" % (storey.id(), storey.Name))
        for containment in storey.ContainsElements:
            for element in containment.RelatedElements:
                if element.is_a("IfcWall"):
                    print("    %s #%d %s" % (element.is_a(), element.id(), element.Name))
                    for set_name, name, value in property_values(element):
                        # A select's value carries its type: IfcLabel, IfcBoolean...
                        shown = "(unset)" if value is None else "%s (%s)" % (value, value.type)
                        print("      %s.%s = %s" % (set_name, name, shown))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

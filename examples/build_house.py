#!/usr/bin/env python3
"""Puts a small IFC4 house together through the relationship helpers: the
spatial breakdown, walls contained in their storeys, a wall type and a
shared property set, lengths in millimetres. Writes it, reads it back and
checks each wall's relations through its inverse attributes.

    build_house.py DIRECTORY     (writes DIRECTORY/python_house.ifc)
"""
import os
import sys

import kxifcmodel
from kxifcmodel import typed

STOREYS = ("Ground floor", "First floor")
WALLS_PER_STOREY = 3
STOREY_HEIGHT = 3000.0  # mm


def build():
    model = kxifcmodel.Model("IFC4")
    units = [model.create("IfcSIUnit", UnitType="LENGTHUNIT", Prefix="MILLI", Name="METRE"),
             model.create("IfcSIUnit", UnitType="AREAUNIT", Name="SQUARE_METRE"),
             model.create("IfcSIUnit", UnitType="VOLUMEUNIT", Name="CUBIC_METRE")]
    project = model.create("IfcProject", Name="Python house",
                           UnitsInContext=model.create("IfcUnitAssignment", Units=units))
    site = model.create("IfcSite", Name="Site")
    building = model.create("IfcBuilding", Name="House")
    model.aggregate(project, site, name="Project site")
    model.aggregate(site, building, name="Site buildings")

    wall_type = model.create("IfcWallType", Name="Brick wall", PredefinedType="SOLIDWALL")
    height = model.create("IfcPropertySingleValue", Name="Height",
                          NominalValue=typed("IfcLengthMeasure", STOREY_HEIGHT))
    external = model.create("IfcPropertySingleValue", Name="IsExternal", NominalValue=typed("IfcBoolean", True))
    properties = model.create("IfcPropertySet", Name="Pset_WallCommon", HasProperties=[height, external])
    for level, storey_name in enumerate(STOREYS):
        storey = model.create("IfcBuildingStorey", Name=storey_name, Elevation=level * STOREY_HEIGHT)
        # Both storeys join the one aggregation of that name.
        model.aggregate(building, storey, name="Building storeys")
        for number in range(WALLS_PER_STOREY):
            wall = model.create("IfcWall", Name="Wall %d.%d" % (level + 1, number + 1), PredefinedType="STANDARD")
            model.contain(storey, wall)
            model.define_by_type(wall_type, wall)
            model.define_by_properties(properties, wall)
    return model


def check(model):
    """Every wall is in one storey, typed once and defined by the one
    property set; the relationships were shared, not repeated."""
    walls = model.by_type("IfcWall")
    problems = []
    if len(walls) != len(STOREYS) * WALLS_PER_STOREY:
        problems.append("%d walls" % len(walls))
    for wall in walls:
        if (len(wall.ContainedInStructure), len(wall.IsTypedBy), len(wall.IsDefinedBy)) != (1, 1, 1):
            problems.append("%s is not related as built" % wall.Name)
    expected = {"IfcRelAggregates": 3, "IfcRelContainedInSpatialStructure": len(STOREYS),
                "IfcRelDefinesByType": 1, "IfcRelDefinesByProperties": 1}
    for entity, count in expected.items():
        if len(model.by_type(entity)) != count:
            problems.append("%d %s" % (len(model.by_type(entity)), entity))
    return problems


def main(argv):
    if len(argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    path = os.path.join(argv[1], "python_house.ifc")
    build().write(path)
    model = kxifcmodel.open(path)
    problems = check(model) + [str(problem) for problem in model.problems]
    print("%s: %d instances, relations %s" % (path, len(model), "NOT as built: " + "; ".join(problems)
                                                                  if problems else "as built"))
    for storey in model.by_type("IfcBuildingStorey"):
        walls = [wall.Name for rel in storey.ContainsElements for wall in rel.RelatedElements]
        print("  %s at %g mm: %s" % (storey.Name, storey.Elevation, ", ".join(walls)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

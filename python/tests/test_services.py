"""The services from Python: relationship helpers, unit conversion of whole
real models, merging with a GlobalId table, compressed GUIDs."""
import os
import re
import shutil

from support import SAMPLE, LibraryTestCase, kxifcmodel, output_dir, real_files


def coordinates(model):
    return {point.id(): point.Coordinates for point in model.by_type("IfcCartesianPoint")}


class ServicesTest(LibraryTestCase):
    def test_relationship_helpers_share_relationships_and_show_in_inverses(self):
        for schema in ("IFC2X3", "IFC4"):
            with self.subTest(schema=schema):
                model = kxifcmodel.Model(schema)
                storey, building = model.create("IfcBuildingStorey"), model.create("IfcBuilding")
                walls = [model.create("IfcWall", Name="W%d" % n) for n in range(3)]
                properties = model.create("IfcPropertySet", Name="Pset_WallCommon", HasProperties=[
                    model.create("IfcPropertySingleValue", Name="IsExternal",
                                 NominalValue=kxifcmodel.typed("IfcBoolean", True))])
                model.aggregate(building, storey, name="storeys")
                for wall in walls:
                    model.contain(storey, wall)
                    model.define_by_properties(properties, wall)
                self.assertEqual(model.by_id(walls[0].id()), walls[0])
                connection = model.connect(walls[0], walls[1], name="joint")
                self.assertEqual(connection.RelatingElement, walls[0])
                self.assertEqual(model.by_id(connection.id()), connection)
                self.assertEqual(storey.Decomposes[0].RelatingObject, building)
                (containment,) = storey.ContainsElements
                self.assertEqual(set(containment.RelatedElements), set(walls))
                self.assertEqual({wall.IsDefinedBy for wall in walls}, {walls[0].IsDefinedBy})
                with self.assertRaisesRegex(TypeError, r"contain\(\) argument 1.*IfcProduct"):
                    model.contain(properties, walls[0])

    def test_millimetre_models_converted_to_metres_and_inches(self):
        files = [path for path in real_files() if os.path.basename(path) == "IfcOpenHouse_IFC4.ifc"]
        if not files:
            self.skipTest("IfcOpenHouse_IFC4.ifc missing")
        for unit, size, stated in (("m", 1000.0, ("IfcSIUnit", None)), ("in", 25.4, ("IfcConversionBasedUnit", "inch"))):
            with self.subTest(length=unit):
                model = kxifcmodel.open(files[0])
                before = coordinates(model)
                self.assertEqual(model.convert_units(length=unit, si=True), 1)
                path = os.path.join(output_dir(self), "house_%s.ifc" % unit)
                model.write(path)
                again = kxifcmodel.open(path)
                self.assertEqual(again.problems, [])
                for number, point in coordinates(again).items():
                    for old, new in zip(before[number], point):
                        self.assertAlmostEqual(new, old / size, delta=1e-9 * max(1.0, abs(old)))
                (assignment,) = again.by_type("IfcUnitAssignment")
                (length,) = [u for u in assignment.Units if u.is_a("IfcNamedUnit") and u.UnitType == "LENGTHUNIT"]
                self.assertEqual((length.is_a(), getattr(length, "Prefix", None) if unit == "m" else length.Name),
                                 stated)
        with self.assertRaisesRegex(ValueError, "length"):
            kxifcmodel.Model().convert_units(length="furlong")

    def test_merging_with_a_table_gives_the_same_global_ids_again(self):
        folder = output_dir(self)
        second = os.path.join(folder, "second.ifc")
        shutil.copyfile(SAMPLE, second)
        table = os.path.join(folder, "table.txt")
        if os.path.exists(table):
            os.remove(table)
        merged = []
        for _ in range(2):
            model, failed = kxifcmodel.merge(SAMPLE, [second, os.path.join(folder, "missing.ifc")], table=table)
            self.assertEqual(failed, [os.path.join(folder, "missing.ifc")])
            self.assertEqual(len(model.by_type("IfcProject")), 1)
            self.assertEqual(len(model.by_type("IfcWall")), 2 * len(kxifcmodel.open(SAMPLE).by_type("IfcWall")))
            global_ids = [root.GlobalId for root in model.by_type("IfcRoot")]
            self.assertEqual(len(set(global_ids)), len(global_ids))
            merged.append(sorted(global_ids))
        self.assertEqual(merged[0], merged[1])
        with self.assertRaises(ValueError):
            kxifcmodel.merge(os.path.join(folder, "missing.ifc"), [second])

    def test_new_global_ids_are_compressed_and_unique(self):
        guids = {kxifcmodel.new_guid() for _ in range(2000)}
        self.assertEqual(len(guids), 2000)
        self.assertTrue(all(re.fullmatch(r"[0-3][0-9A-Za-z_$]{21}", guid) for guid in guids))

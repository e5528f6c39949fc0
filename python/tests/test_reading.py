"""Reading: every real file opens and every attribute and inverse relation
of every instance reads as a Python value; unreadable files raise with the
read's diagnostics."""
import os

from support import SAMPLE, LibraryTestCase, kxifcmodel, output_dir, real_files


def check_value(test, value, where):
    """Values are None, text, numbers, booleans, instances or tuples of them."""
    if isinstance(value, tuple):
        for index, element in enumerate(value):
            check_value(test, element, "%s[%d]" % (where, index))
    else:
        test.assertIsInstance(value, (type(None), str, float, int, kxifcmodel.Instance), where)


class RealFilesTest(LibraryTestCase):
    def test_every_attribute_and_inverse_of_every_instance_reads_and_queries_find_subtypes(self):
        for path in real_files():
            with self.subTest(file=os.path.basename(path)):
                model = kxifcmodel.open(path)
                seen = 0
                for instance in model:
                    seen += 1
                    for name, value in instance.attributes().items():
                        check_value(self, value, "#%d.%s" % (instance.id(), name))
                self.assertEqual(seen, len(model))
                for rooted in model.by_type("IfcRoot"):
                    self.assertEqual(len(rooted.GlobalId), 22, rooted)
                    for name in rooted.inverse_names():
                        for related in getattr(rooted, name):
                            self.assertIsInstance(related, kxifcmodel.Instance)
                products = set(model.by_type("IfcProduct"))
                walls = model.by_type("ifcwall")
                self.assertTrue(set(walls) <= products)
                self.assertTrue(all(wall.is_a("IfcWall") and wall.is_a("IFCPRODUCT") for wall in walls))
                self.assertTrue(set(model.by_type("IfcWallStandardCase")) <= set(walls))
                for product in list(products)[:200]:
                    self.assertEqual(model.by_id(product.id()), product)
                with self.assertRaises(ValueError):
                    model.by_type("IfcNoSuchEntity")

    def test_attributes_follow_the_release_of_the_model(self):
        cases = {"IFC2X3": ("duplex.ifc", False), "IFC4": ("AC20-FZK-Haus.ifc", True)}
        files = {os.path.basename(path): path for path in real_files()}
        for schema, (name, has_predefined_type) in cases.items():
            with self.subTest(schema=schema):
                if name not in files:
                    self.skipTest("%s missing" % name)
                model = kxifcmodel.open(files[name])
                self.assertEqual(model.schema, schema)
                wall = model.by_type("IfcWall")[0]
                self.assertEqual(hasattr(wall, "PredefinedType"), has_predefined_type)
                self.assertIsInstance(wall.OwnerHistory, kxifcmodel.Instance)
                unit = model.by_type("IfcSIUnit")[0]
                self.assertTrue(unit.UnitType.isupper())
                values = [p.NominalValue for p in model.by_type("IfcPropertySingleValue") if p.NominalValue is not None]
                self.assertTrue(values and all(value.type.startswith("Ifc") for value in values))


class FilesTest(LibraryTestCase):
    def test_header_schema_and_problems_of_the_sample(self):
        model = kxifcmodel.open(SAMPLE)
        self.assertEqual((model.schema, model.problems), ("IFC4", []))
        self.assertEqual(model.header.schema, "IFC4")
        self.assertTrue(model.header.file_name.endswith(".ifc"))

    def test_unreadable_files_raise_with_the_read_problems(self):
        folder = output_dir(self)
        broken = os.path.join(folder, "broken.ifc")
        with open(broken, "w") as handle:
            handle.write("ISO-10303-21;\nHEADER;\nFILE_SCHEMA(('IFC4'));\nENDSEC;\nDATA;\n#1=IFCWALL('a',$;\n")
        for path, code in ((os.path.join(folder, "missing.ifc"), "unreadable-file"), (broken, "syntax-error")):
            with self.subTest(path=os.path.basename(path)):
                with self.assertRaises(kxifcmodel.ReadError) as raised:
                    kxifcmodel.open(path)
                self.assertIn(code, [problem.code for problem in raised.exception.problems])
                self.assertIn(path, str(raised.exception))

#!/usr/bin/env python3
"""Speed of the Python package on a large model: reading it, then iterating
over about a million instances and reading one attribute of each.

Usage: python_bench.py [SOURCE.ifc] [INSTANCES]
  (default: ../shared/ifc/AC20-FZK-Haus.ifc tiled to 1,000,000 instances
   with make_large_ifc.py in a temporary folder)

Needs the package importable (PYTHONPATH=build/python) and its library.
"""
import os
import sys
import tempfile
import time

import kxifcmodel

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import make_large_ifc  # noqa: E402

DEFAULT_SOURCE = os.path.join(HERE, "..", "..", "shared", "ifc", "AC20-FZK-Haus.ifc")


def timed(label, work, count=None):
    start = time.perf_counter()
    result = work()
    seconds = time.perf_counter() - start
    rate = " (%.2f s per million)" % (seconds * 1e6 / count) if count else ""
    print("%-55s %7.2f s%s" % (label, seconds, rate))
    return result


def first_attribute_of_each(model):
    count = 0
    for instance in model:
        getattr(instance, instance.attribute_names()[0]) if instance.attribute_names() else None
        count += 1
    return count


def main(argv):
    source = argv[1] if len(argv) > 1 else DEFAULT_SOURCE
    wanted = int(argv[2]) if len(argv) > 2 else 1000000
    per_copy = len(kxifcmodel.open(source))
    # make_large_ifc.py adds copies while the file is smaller than asked;
    # a copy is a little longer than the source (larger ids): 5% more.
    megabytes = os.path.getsize(source) * wanted / per_copy * 1.05 / 1048576
    with tempfile.TemporaryDirectory() as folder:
        large = os.path.join(folder, "large.ifc")
        make_large_ifc.main(["make_large_ifc.py", source, large, str(megabytes)])
        print("%s tiled to %.0f MB" % (os.path.basename(source), os.path.getsize(large) / 1048576))
        model = timed("read the file", lambda: kxifcmodel.open(large))
        count = len(model)
        print("%d instances" % count)
        timed("iterate every instance, read its id", lambda: sum(1 for i in model if i.id()), count)
        timed("iterate every instance, read its first attribute", lambda: first_attribute_of_each(model), count)
        points = model.by_type("IfcCartesianPoint")
        timed("IfcCartesianPoint.Coordinates (%d points)" % len(points), lambda: [p.Coordinates for p in points],
              len(points))
        roots = timed("by_type('IfcRoot')", lambda: model.by_type("IfcRoot"))
        timed("IfcRoot.GlobalId (%d instances)" % len(roots), lambda: [r.GlobalId for r in roots], len(roots))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

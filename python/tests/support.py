"""What the Python tests share: where the real files are, where output goes,
and a check that the library reported no failed precondition."""
import ctypes
import glob
import os
import tempfile
import unittest

import kxifcmodel
from kxifcmodel import _native

SHARED_DIR = os.environ.get("KX_SHARED_DIR", os.path.join(os.path.dirname(__file__), "..", "..", "..", "shared"))
SAMPLE = os.environ.get("KX_SAMPLE", os.path.join(os.path.dirname(__file__), "..", "..", "examples", "data",
                                                  "sample_house.ifc"))
_assert_count = _native.declare("kxDiagnostics_assert_count", ctypes.c_uint64, [])


def real_files():
    """Every IFC file of the shared folder; the test is skipped without them."""
    files = sorted(glob.glob(os.path.join(SHARED_DIR, "ifc", "*.ifc")))
    if not files:
        raise unittest.SkipTest("no IFC files in %s" % os.path.join(SHARED_DIR, "ifc"))
    return files


def output_dir(test):
    """A fresh folder for a test's files, removed afterwards unless the build
    gives one (KX_TEST_OUTPUT) to look into."""
    base = os.environ.get("KX_TEST_OUTPUT")
    if base:
        path = os.path.join(base, test.id())
        os.makedirs(path, exist_ok=True)
        return path
    folder = tempfile.TemporaryDirectory()
    test.addCleanup(folder.cleanup)
    return folder.name


class LibraryTestCase(unittest.TestCase):
    """Fails a test during which the library reported a failed precondition
    (its report goes to stderr): the package must never misuse the API."""

    def setUp(self):
        self._asserts = _assert_count()
        self.addCleanup(lambda: self.assertEqual(_assert_count(), self._asserts,
                                                 "the library reported a misuse (see stderr)"))


__all__ = ["kxifcmodel", "real_files", "output_dir", "LibraryTestCase", "SAMPLE"]

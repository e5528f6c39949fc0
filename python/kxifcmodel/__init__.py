"""kxifcmodel: IFC2X3 and IFC4 models in Python, over the kxifcmodel library.

    import kxifcmodel
    model = kxifcmodel.open("house.ifc")
    for wall in model.by_type("IfcWall"):
        print(wall.id(), wall.GlobalId, wall.Name)

Pure Python over the shared library (ctypes): set KXIFCMODEL_LIBRARY to the
library's path to use one from a build tree.
"""
from ._instances import Instance
from ._model import Header, Model, Problem, ReadError, WriteError, new_guid, open
from ._native import f as _f
from ._services import merge
from ._values import UNKNOWN, typed

__all__ = ["Instance", "Header", "Model", "Problem", "ReadError", "WriteError", "UNKNOWN", "merge", "new_guid", "open",
           "typed", "library_version"]


def library_version():
    """The version of the loaded shared library, such as '0.1.0'."""
    return _f.kxifcmodel_version().decode()

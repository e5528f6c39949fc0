"""The library's services on Python models: the relationship helpers, the
whole-model unit conversion and the model merger."""
import ctypes
import math
import os

from . import _native as native
from . import _values as values
from ._native import P, TEXT, wide
from ._schema import ENUMS

_RELATIONS = {
    # method: (C function, argument kinds: "name", an entity to check, "set:<aggregate>", "model", "out")
    "aggregate": ("kxRelCommon_append_rel_aggregates", ("name", "IfcObjectDefinition", "IfcObjectDefinition",
                                                        "model")),
    "connect": ("kxRelCommon_append_rel_connects_elements", ("name", "IfcElement", "IfcElement", "model", "out")),
    "connect_with_realizing_elements": ("kxRelCommon_append_rel_connects_with_realizing_elements",
                                        ("name", "IfcElement", "IfcElement", "set:SetIfcElement", "model", "out")),
    "define_by_properties": ("kxRelCommon_append_rel_defines_by_properties",
                             ("IfcPropertySetDefinition", "IfcObjectDefinition", "model", "out")),
    "define_by_type": ("kxRelCommon_append_rel_defines_by_type", ("IfcTypeObject", "IfcObject", "model")),
    "contain": ("kxRelCommon_append_rel_contained_in_spatial_structure", ("IfcProduct", "IfcProduct", "model")),
    "cover": ("kxRelCommon_append_rel_covers_bldg_elements", ("IfcElement", "IfcCovering", "model")),
    "reference_in_structure": ("kxRelCommon_append_rel_referenced_in_spatial_structure",
                               ("IfcProduct", "IfcProduct", "model")),
    "assign_to_group": ("kxRelCommon_append_rel_assigns_to_group", ("set:SetIfcObjectDefinition", "name", "model")),
    "assign_to_product": ("kxRelCommon_append_rel_assigns_to_product",
                          ("name", "set:SetIfcObjectDefinition", "IfcProduct", "model")),
}


def _relation_method(method, function_name, kinds):
    inputs = [kind for kind in kinds if kind not in ("model", "out")]
    argument_types = [TEXT if kind == "name" else (ctypes.POINTER(P) if kind == "out" else P) for kind in kinds]

    def call(self, *arguments, name=None):
        if len(arguments) != len(inputs) - inputs.count("name"):
            raise TypeError("%s() takes %s" % (method, ", ".join(k for k in inputs if k != "name")))
        given = iter(arguments)
        raw = []
        made = ctypes.c_void_p()
        for position, kind in enumerate(kinds):
            target = values.Target("%s() argument %d" % (method, position + 1), self)
            if kind == "name":
                raw.append(None if name is None else values.write_string(target, name))
            elif kind == "model":
                raw.append(self._h)
            elif kind == "out":
                raw.append(ctypes.byref(made))
            elif kind.startswith("set:"):
                raw.append(values.aggregate_writer(kind[4:])(target, next(given)))
            else:
                raw.append(values.entity_writer(kind)(target, next(given)))
        native.declare(function_name, None, argument_types)(*raw)
        self._by_id = None      # the helper may have made instances
        return self._wrap(made.value)

    call.__name__ = method
    call.__doc__ = "Relationship helper %s: reuses the relationship that already links the relating object, " \
                   "else makes one (name= names it); returns it where the library tells it." % function_name
    return call


class Relationships:
    """Model methods over the relationship helpers, one per objectified
    relationship (kxifc_relations.h), arguments in the C order."""


for _method, (_function, _kinds) in _RELATIONS.items():
    setattr(Relationships, _method, _relation_method(_method, _function, _kinds))


# ---- units ---------------------------------------------------------------------
# unit: (unit type, size in the SI unit, prefix, SI unit, name of a conversion-based unit, length exponent)
UNITS = {
    "mm": ("LENGTHUNIT", 1e-3, "MILLI", "METRE", None, 1),
    "cm": ("LENGTHUNIT", 1e-2, "CENTI", "METRE", None, 1),
    "m": ("LENGTHUNIT", 1.0, None, "METRE", None, 1),
    "in": ("LENGTHUNIT", 0.0254, None, "METRE", "inch", 1),
    "ft": ("LENGTHUNIT", 0.3048, None, "METRE", "foot", 1),
    "mm2": ("AREAUNIT", 1e-6, "MILLI", "SQUARE_METRE", None, 2),
    "cm2": ("AREAUNIT", 1e-4, "CENTI", "SQUARE_METRE", None, 2),
    "m2": ("AREAUNIT", 1.0, None, "SQUARE_METRE", None, 2),
    "in2": ("AREAUNIT", 0.0254 ** 2, None, "SQUARE_METRE", "square inch", 2),
    "ft2": ("AREAUNIT", 0.3048 ** 2, None, "SQUARE_METRE", "square foot", 2),
    "mm3": ("VOLUMEUNIT", 1e-9, "MILLI", "CUBIC_METRE", None, 3),
    "cm3": ("VOLUMEUNIT", 1e-6, "CENTI", "CUBIC_METRE", None, 3),
    "m3": ("VOLUMEUNIT", 1.0, None, "CUBIC_METRE", None, 3),
    "in3": ("VOLUMEUNIT", 0.0254 ** 3, None, "CUBIC_METRE", "cubic inch", 3),
    "ft3": ("VOLUMEUNIT", 0.3048 ** 3, None, "CUBIC_METRE", "cubic foot", 3),
    "rad": ("PLANEANGLEUNIT", 1.0, None, "RADIAN", None, 0),
    "deg": ("PLANEANGLEUNIT", math.pi / 180.0, None, "RADIAN", "degree", 0),
}
UNIT_OPTIONS = {"length": "LENGTHUNIT", "area": "AREAUNIT", "volume": "VOLUMEUNIT", "angle": "PLANEANGLEUNIT"}
MEASURE_OF_EXPONENT = {0: "IfcPlaneAngleMeasure", 1: "IfcLengthMeasure", 2: "IfcAreaMeasure", 3: "IfcVolumeMeasure"}
# The SI unit without prefix of each unit type (mass: the kilogram).
SI_UNITS = {
    "ABSORBEDDOSEUNIT": "GRAY", "AMOUNTOFSUBSTANCEUNIT": "MOLE", "AREAUNIT": "SQUARE_METRE",
    "DOSEEQUIVALENTUNIT": "SIEVERT", "ELECTRICCAPACITANCEUNIT": "FARAD", "ELECTRICCHARGEUNIT": "COULOMB",
    "ELECTRICCONDUCTANCEUNIT": "SIEMENS", "ELECTRICCURRENTUNIT": "AMPERE", "ELECTRICRESISTANCEUNIT": "OHM",
    "ELECTRICVOLTAGEUNIT": "VOLT", "ENERGYUNIT": "JOULE", "FORCEUNIT": "NEWTON", "FREQUENCYUNIT": "HERTZ",
    "ILLUMINANCEUNIT": "LUX", "INDUCTANCEUNIT": "HENRY", "LENGTHUNIT": "METRE", "LUMINOUSFLUXUNIT": "LUMEN",
    "LUMINOUSINTENSITYUNIT": "CANDELA", "MAGNETICFLUXDENSITYUNIT": "TESLA", "MAGNETICFLUXUNIT": "WEBER",
    "MASSUNIT": "GRAM", "PLANEANGLEUNIT": "RADIAN", "POWERUNIT": "WATT", "PRESSUREUNIT": "PASCAL",
    "RADIOACTIVITYUNIT": "BECQUEREL", "SOLIDANGLEUNIT": "STERADIAN", "THERMODYNAMICTEMPERATUREUNIT": "KELVIN",
    "TIMEUNIT": "SECOND", "VOLUMEUNIT": "CUBIC_METRE",
}
_HANDLER = ctypes.CFUNCTYPE(ctypes.c_double, ctypes.c_double)


def _unit_number(member):
    return [name for name, _ in ENUMS["IfcUnitEnum"]].index(member) + 1


class UnitConversion:
    def convert_units(self, si=False, **units):
        """Converts every measure value of the model and states the new units
        in its unit assignments: convert_units(length="m", area="m2"...)
        (length mm|cm|m|in|ft, area and volume the same with 2 or 3, angle
        rad|deg); si=True takes every other non-monetary unit to its SI unit
        without prefix (mass: kilogram). Returns the number of unit
        assignments rewritten (0: the model states no units, nothing changed)."""
        targets = {}
        for option, unit in units.items():
            if option not in UNIT_OPTIONS or unit not in UNITS or UNITS[unit][0] != UNIT_OPTIONS[option]:
                raise ValueError("convert_units(%s=%r): options %s with units %s" % (
                    option, unit, ", ".join(UNIT_OPTIONS), ", ".join(UNITS)))
            targets[UNIT_OPTIONS[option]] = UNITS[unit]
        assignments = self.by_type("IfcUnitAssignment")
        if not assignments:
            return 0
        conversor = P(native.declare("kxUnitsModelConversor_new", P, [])())
        handlers = [_HANDLER(lambda value, size=target[1]: value / size) for target in targets.values()]
        try:
            if si:
                native.declare("kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units",
                               None, [P])(conversor)
            append = native.declare("kxUnitsModelConversor_append_named_unit_handler", None, [P, native.I32, TEXT,
                                                                                             _HANDLER])
            for unit_type, handler in zip(targets, handlers):
                append(conversor, _unit_number(unit_type), None, handler)
            native.declare("kxUnitsModelConversor_apply_conversion", None, [P, P])(conversor, self._h)
        finally:
            native.declare("kxUnitsModelConversor_free", None, [ctypes.POINTER(P)])(ctypes.byref(conversor))
        rewriter = _UnitRewriter(self, targets, si)
        for assignment in assignments:
            rewriter.rewrite(assignment)
        return len(assignments)


class _UnitRewriter:
    """Puts the unit each converted unit type now has in place of the named
    units of an assignment (one new unit per type, shared)."""

    def __init__(self, model, targets, si):
        self.model, self.targets, self.si = model, targets, si
        self.made = {}

    def rewrite(self, assignment):
        units = list(assignment.Units or ())
        stated = set()
        for position, unit in enumerate(units):
            if not unit.is_a("IfcNamedUnit") or unit.is_a("IfcContextDependentUnit"):
                continue
            stated.add(unit.UnitType)
            replacement = self.unit_for(unit.UnitType, unit.is_a("IfcSIUnit"))
            if replacement is not None:
                units[position] = replacement
        units += [self.unit_for(unit_type, False) for unit_type in self.targets if unit_type not in stated]
        assignment.Units = units

    def unit_for(self, unit_type, was_si):
        if unit_type not in self.made:
            unit = None
            if unit_type in self.targets:
                unit = self.target_unit(unit_type, self.targets[unit_type])
            # Temperatures in an SI unit keep it: Celsius to kelvin is no
            # change of scale, so their values stayed as they were.
            elif self.si and unit_type in SI_UNITS and not (was_si and unit_type == "THERMODYNAMICTEMPERATUREUNIT"):
                name = SI_UNITS[unit_type]
                unit = self.model.create("IfcSIUnit", UnitType=unit_type, Name=name,
                                         Prefix="KILO" if name == "GRAM" else None)
            self.made[unit_type] = unit
        return self.made[unit_type]

    def target_unit(self, unit_type, target):
        _, size, prefix, si_name, converted_name, exponent = target
        create = self.model.create
        if converted_name is None:
            return create("IfcSIUnit", UnitType=unit_type, Prefix=prefix, Name=si_name)
        factor = create("IfcMeasureWithUnit", ValueComponent=values.typed(MEASURE_OF_EXPONENT[exponent], size),
                        UnitComponent=create("IfcSIUnit", UnitType=unit_type, Name=si_name))
        dimensions = create("IfcDimensionalExponents", LengthExponent=exponent, MassExponent=0, TimeExponent=0,
                            ElectricCurrentExponent=0, ThermodynamicTemperatureExponent=0,
                            AmountOfSubstanceExponent=0, LuminousIntensityExponent=0)
        return create("IfcConversionBasedUnit", Dimensions=dimensions, UnitType=unit_type, Name=converted_name,
                      ConversionFactor=factor)


# ---- merging -----------------------------------------------------------------
def merge(main, secondaries, table=None):
    """Merges IFC4 files of one project (kxifc_merger.h): the secondary
    files' instances join the main file's model, sites, buildings and
    storeys matched by GlobalId; colliding GlobalIds are replaced and, with
    a table file, remembered so a later merge gives the same ones. Returns
    (model, names of the secondary files not merged). Raises ValueError when
    the main file cannot be read or is not IFC4."""
    from ._model import Model
    merger = P(native.declare("kxIfcModelMerger_new", P, [TEXT])(wide(os.fspath(main))))
    merged, not_merged = P(), P()
    try:
        add = native.declare("kxIfcModelMerger_add_secondary_model", None, [P, TEXT])
        for secondary in secondaries:
            add(merger, wide(os.fspath(secondary)))
        ok = native.declare("kxIfcModelMerger_merge_models", native.I32,
                            [P, TEXT, ctypes.POINTER(P), ctypes.POINTER(P)])(
            merger, wide(os.fspath(table)) if table is not None else None, ctypes.byref(merged),
            ctypes.byref(not_merged))
    finally:
        native.declare("kxIfcModelMerger_free", None, [ctypes.POINTER(P)])(ctypes.byref(merger))
    names = values.aggregate_type("ArrString")
    failed = [native.text(names.get(not_merged, i)) for i in range(names.count(not_merged))] if not_merged else []
    if not_merged:
        names.dispose(not_merged.value)
    if not ok or not merged:
        raise ValueError("cannot merge into %s: the file cannot be read or is not IFC4" % os.fspath(main))
    return Model._adopt(merged.value), failed

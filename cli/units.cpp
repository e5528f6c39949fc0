// kxifc units IN.ifc -o OUT.ifc [--si] [--length U] [--area U] [--volume U]
// [--angle U]: converts every measure value of a model and rewrites the
// project's unit assignment so that the output states the units it now uses.
#include <array>
#include <cmath>
#include <utility>

#include "commands.h"

namespace kxcli {
namespace {

constexpr const char *kUsage =
    "usage: kxifc units IN.ifc -o OUT.ifc [--si] [--length mm|cm|m|in|ft] [--area mm2|cm2|m2|in2|ft2]\n"
    "                  [--volume mm3|cm3|m3|in3|ft3] [--angle rad|deg]\n"
    "Converts every measure value of the model (placements, profiles, quantities, properties...)\n"
    "into the units asked for and rewrites the unit assignment to state them. --si takes every\n"
    "other non-monetary unit to its SI unit without prefix (kilogram for masses); the other\n"
    "options pick the unit of one kind of measure.\n";

// One unit the host can ask for: an SI unit (with its prefix) or a
// conversion-based one, and its size in the SI unit without prefix.
struct TargetUnit {
    const char *option;
    const char *name;
    kxIfcUnitEnum unit_type;
    double size_in_si;
    kxIfcSIPrefix prefix;           // SI units
    kxIfcSIUnitName si_name;        // the SI unit, or the base of a conversion-based one
    const char16_t *converted_name;  // conversion-based units; nullptr for SI ones
    int32_t length_exponent;
};

constexpr double kPi = 3.14159265358979323846;
constexpr TargetUnit kTargets[] = {
    {"--length", "mm", kxIfcUnitEnum_LENGTHUNIT, 1e-3, kxIfcSIPrefix_MILLI, kxIfcSIUnitName_METRE, nullptr, 1},
    {"--length", "cm", kxIfcUnitEnum_LENGTHUNIT, 1e-2, kxIfcSIPrefix_CENTI, kxIfcSIUnitName_METRE, nullptr, 1},
    {"--length", "m", kxIfcUnitEnum_LENGTHUNIT, 1.0, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_METRE, nullptr, 1},
    {"--length", "in", kxIfcUnitEnum_LENGTHUNIT, 0.0254, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_METRE, u"inch", 1},
    {"--length", "ft", kxIfcUnitEnum_LENGTHUNIT, 0.3048, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_METRE, u"foot", 1},
    {"--area", "mm2", kxIfcUnitEnum_AREAUNIT, 1e-6, kxIfcSIPrefix_MILLI, kxIfcSIUnitName_SQUARE_METRE, nullptr, 2},
    {"--area", "cm2", kxIfcUnitEnum_AREAUNIT, 1e-4, kxIfcSIPrefix_CENTI, kxIfcSIUnitName_SQUARE_METRE, nullptr, 2},
    {"--area", "m2", kxIfcUnitEnum_AREAUNIT, 1.0, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_SQUARE_METRE, nullptr, 2},
    {"--area", "in2", kxIfcUnitEnum_AREAUNIT, 0.0254 * 0.0254, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_SQUARE_METRE,
     u"square inch", 2},
    {"--area", "ft2", kxIfcUnitEnum_AREAUNIT, 0.3048 * 0.3048, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_SQUARE_METRE,
     u"square foot", 2},
    {"--volume", "mm3", kxIfcUnitEnum_VOLUMEUNIT, 1e-9, kxIfcSIPrefix_MILLI, kxIfcSIUnitName_CUBIC_METRE, nullptr, 3},
    {"--volume", "cm3", kxIfcUnitEnum_VOLUMEUNIT, 1e-6, kxIfcSIPrefix_CENTI, kxIfcSIUnitName_CUBIC_METRE, nullptr, 3},
    {"--volume", "m3", kxIfcUnitEnum_VOLUMEUNIT, 1.0, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_CUBIC_METRE, nullptr, 3},
    {"--volume", "in3", kxIfcUnitEnum_VOLUMEUNIT, 0.0254 * 0.0254 * 0.0254, kxIfcSIPrefix_UNDEFINED,
     kxIfcSIUnitName_CUBIC_METRE, u"cubic inch", 3},
    {"--volume", "ft3", kxIfcUnitEnum_VOLUMEUNIT, 0.3048 * 0.3048 * 0.3048, kxIfcSIPrefix_UNDEFINED,
     kxIfcSIUnitName_CUBIC_METRE, u"cubic foot", 3},
    {"--angle", "rad", kxIfcUnitEnum_PLANEANGLEUNIT, 1.0, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_RADIAN, nullptr, 0},
    {"--angle", "deg", kxIfcUnitEnum_PLANEANGLEUNIT, kPi / 180.0, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_RADIAN,
     u"degree", 0},
};
constexpr size_t kTargetCount = sizeof kTargets / sizeof kTargets[0];

// The conversor's handlers are plain functions: one per target unit.
template <size_t I>
double to_target(double si_value) {
    return si_value / kTargets[I].size_in_si;
}
template <size_t... I>
constexpr std::array<kxUnitsModelConversorUnitHandler, kTargetCount> make_handlers(std::index_sequence<I...>) {
    return {to_target<I>...};
}
constexpr auto kHandlers = make_handlers(std::make_index_sequence<kTargetCount>());

// The SI unit without prefix of each unit type --si converts.
struct SiUnit {
    kxIfcUnitEnum unit_type;
    kxIfcSIUnitName name;
};
constexpr SiUnit kSiUnits[] = {
    {kxIfcUnitEnum_ABSORBEDDOSEUNIT, kxIfcSIUnitName_GRAY},
    {kxIfcUnitEnum_AMOUNTOFSUBSTANCEUNIT, kxIfcSIUnitName_MOLE},
    {kxIfcUnitEnum_AREAUNIT, kxIfcSIUnitName_SQUARE_METRE},
    {kxIfcUnitEnum_DOSEEQUIVALENTUNIT, kxIfcSIUnitName_SIEVERT},
    {kxIfcUnitEnum_ELECTRICCAPACITANCEUNIT, kxIfcSIUnitName_FARAD},
    {kxIfcUnitEnum_ELECTRICCHARGEUNIT, kxIfcSIUnitName_COULOMB},
    {kxIfcUnitEnum_ELECTRICCONDUCTANCEUNIT, kxIfcSIUnitName_SIEMENS},
    {kxIfcUnitEnum_ELECTRICCURRENTUNIT, kxIfcSIUnitName_AMPERE},
    {kxIfcUnitEnum_ELECTRICRESISTANCEUNIT, kxIfcSIUnitName_OHM},
    {kxIfcUnitEnum_ELECTRICVOLTAGEUNIT, kxIfcSIUnitName_VOLT},
    {kxIfcUnitEnum_ENERGYUNIT, kxIfcSIUnitName_JOULE},
    {kxIfcUnitEnum_FORCEUNIT, kxIfcSIUnitName_NEWTON},
    {kxIfcUnitEnum_FREQUENCYUNIT, kxIfcSIUnitName_HERTZ},
    {kxIfcUnitEnum_ILLUMINANCEUNIT, kxIfcSIUnitName_LUX},
    {kxIfcUnitEnum_INDUCTANCEUNIT, kxIfcSIUnitName_HENRY},
    {kxIfcUnitEnum_LENGTHUNIT, kxIfcSIUnitName_METRE},
    {kxIfcUnitEnum_LUMINOUSFLUXUNIT, kxIfcSIUnitName_LUMEN},
    {kxIfcUnitEnum_LUMINOUSINTENSITYUNIT, kxIfcSIUnitName_CANDELA},
    {kxIfcUnitEnum_MAGNETICFLUXDENSITYUNIT, kxIfcSIUnitName_TESLA},
    {kxIfcUnitEnum_MAGNETICFLUXUNIT, kxIfcSIUnitName_WEBER},
    {kxIfcUnitEnum_MASSUNIT, kxIfcSIUnitName_GRAM},  // with the prefix KILO
    {kxIfcUnitEnum_PLANEANGLEUNIT, kxIfcSIUnitName_RADIAN},
    {kxIfcUnitEnum_POWERUNIT, kxIfcSIUnitName_WATT},
    {kxIfcUnitEnum_PRESSUREUNIT, kxIfcSIUnitName_PASCAL},
    {kxIfcUnitEnum_RADIOACTIVITYUNIT, kxIfcSIUnitName_BECQUEREL},
    {kxIfcUnitEnum_SOLIDANGLEUNIT, kxIfcSIUnitName_STERADIAN},
    {kxIfcUnitEnum_THERMODYNAMICTEMPERATUREUNIT, kxIfcSIUnitName_KELVIN},
    {kxIfcUnitEnum_TIMEUNIT, kxIfcSIUnitName_SECOND},
    {kxIfcUnitEnum_VOLUMEUNIT, kxIfcSIUnitName_CUBIC_METRE},
};

kx::Instance new_si_unit(kx::Model &model, kxIfcUnitEnum unit_type, kxIfcSIPrefix prefix, kxIfcSIUnitName name) {
    const kx::Instance unit = model.create(kxIfcSIUnit_class());
    kxIfcSIUnit_set_UnitType(unit.get(), unit_type);
    kxIfcSIUnit_set_Prefix(unit.get(), prefix);
    kxIfcSIUnit_set_Name(unit.get(), name);
    return unit;
}

// A conversion-based unit: its name, its size as a measure of the SI unit
// and its dimensions.
kx::Instance new_converted_unit(kx::Model &model, const TargetUnit &target) {
    const kx::Instance si_unit = new_si_unit(model, target.unit_type, kxIfcSIPrefix_UNDEFINED, target.si_name);
    kxIfcUnit *si_select = model.create(kxIfcUnit_class()).get();
    kxIfcUnit_set_kxIfcNamedUnit(si_select, si_unit.get());
    kxIfcValue *size = model.create(kxIfcValue_class()).get();
    switch (target.length_exponent) {
    case 1: kxIfcValue_set_kxIfcLengthMeasure(size, target.size_in_si); break;
    case 2: kxIfcValue_set_kxIfcAreaMeasure(size, target.size_in_si); break;
    case 3: kxIfcValue_set_kxIfcVolumeMeasure(size, target.size_in_si); break;
    default: kxIfcValue_set_kxIfcPlaneAngleMeasure(size, target.size_in_si); break;
    }
    const kx::Instance factor = model.create(kxIfcMeasureWithUnit_class());
    kxIfcMeasureWithUnit_set_ValueComponent(factor.get(), size);
    kxIfcMeasureWithUnit_set_UnitComponent(factor.get(), si_select);
    const kx::Instance dimensions = model.create(kxIfcDimensionalExponents_class());
    kxIfcDimensionalExponents_set_LengthExponent(dimensions.get(), target.length_exponent);
    for (auto set : {kxIfcDimensionalExponents_set_MassExponent, kxIfcDimensionalExponents_set_TimeExponent,
                     kxIfcDimensionalExponents_set_ElectricCurrentExponent,
                     kxIfcDimensionalExponents_set_ThermodynamicTemperatureExponent,
                     kxIfcDimensionalExponents_set_AmountOfSubstanceExponent,
                     kxIfcDimensionalExponents_set_LuminousIntensityExponent})
        set(dimensions.get(), 0);
    const kx::Instance unit = model.create(kxIfcConversionBasedUnit_class());
    kxIfcConversionBasedUnit_set_Dimensions(unit.get(), dimensions.get());
    kxIfcConversionBasedUnit_set_UnitType(unit.get(), target.unit_type);
    kxIfcConversionBasedUnit_set_Name(unit.get(), target.converted_name);
    kxIfcConversionBasedUnit_set_ConversionFactor(unit.get(), factor.get());
    return unit;
}

kx::Instance new_target_unit(kx::Model &model, const TargetUnit &target) {
    return target.converted_name != nullptr ? new_converted_unit(model, target)
                                            : new_si_unit(model, target.unit_type, target.prefix, target.si_name);
}

// The SI unit without prefix of a unit type, or an empty handle for a type
// that has none.
kx::Instance new_plain_si_unit(kx::Model &model, kxIfcUnitEnum unit_type) {
    for (const SiUnit &si : kSiUnits)
        if (si.unit_type == unit_type)
            return new_si_unit(model, unit_type,
                               si.name == kxIfcSIUnitName_GRAM ? kxIfcSIPrefix_KILO : kxIfcSIPrefix_UNDEFINED, si.name);
    return kx::Instance();
}

// The named units the conversion changed, by unit type: the new unit (made
// on first use) that states each.
class UnitRewriter {
public:
    UnitRewriter(kx::Model &model, const std::vector<const TargetUnit *> &targets, bool si)
        : model_(model), targets_(targets), si_(si) {}

    // Puts the new unit of its type in place of each named unit of the
    // assignment, and adds those of types the assignment did not state.
    void rewrite(kxIfcUnitAssignment *assignment) {
        kxSetIfcUnit *units = kxIfcUnitAssignment_get_Units(assignment);
        std::set<kxIfcUnitEnum> stated;
        for (uint32_t i = 0, n = units != nullptr ? kxSetIfcUnit_count(units) : 0; i < n; ++i) {
            kxIfcUnit *select = kxSetIfcUnit_get_element(units, i);
            const kx::Instance held(select != nullptr ? kxIfcUnit_get_kxIfcNamedUnit(select) : nullptr);
            if (!held.is_a("IfcNamedUnit") || held.is_a("IfcContextDependentUnit")) continue;
            const kxIfcUnitEnum unit_type = kxIfcNamedUnit_get_UnitType(held.get());
            stated.insert(unit_type);
            if (const kx::Instance unit = unit_for(unit_type, held.is_a("IfcSIUnit")))
                kxIfcUnit_set_kxIfcNamedUnit(select, unit.get());
        }
        for (const TargetUnit *target : targets_) {
            if (units == nullptr || stated.count(target->unit_type) != 0) continue;
            kxIfcUnit *select = model_.create(kxIfcUnit_class()).get();
            kxIfcUnit_set_kxIfcNamedUnit(select, unit_for(target->unit_type, false).get());
            kxSetIfcUnit_append_element(units, select);
        }
    }

private:
    kx::Instance unit_for(kxIfcUnitEnum unit_type, bool was_si) {
        const auto made = made_.find(unit_type);
        if (made != made_.end()) return made->second;
        kx::Instance unit;
        for (const TargetUnit *target : targets_)
            if (target->unit_type == unit_type) unit = new_target_unit(model_, *target);
        // Temperatures in an SI unit keep it: degrees Celsius convert to
        // kelvin by scale alone, so their values stay as they are.
        const bool kept = was_si && unit_type == kxIfcUnitEnum_THERMODYNAMICTEMPERATUREUNIT;
        if (!unit && si_ && !kept) unit = new_plain_si_unit(model_, unit_type);
        return made_[unit_type] = unit;
    }

    kx::Model &model_;
    const std::vector<const TargetUnit *> &targets_;
    bool si_;
    std::map<kxIfcUnitEnum, kx::Instance> made_;
};

// The target units the options ask for; an error text for a unit no table
// row knows.
std::string pick_targets(const Arguments &arguments, std::vector<const TargetUnit *> &targets) {
    for (const char *option : {"--length", "--area", "--volume", "--angle"}) {
        const char *wanted = arguments.value(option);
        if (wanted == nullptr) continue;
        const TargetUnit *found = nullptr;
        for (const TargetUnit &target : kTargets)
            if (std::strcmp(target.option, option) == 0 && std::strcmp(target.name, wanted) == 0) found = &target;
        if (found == nullptr) {
            std::string error = "unknown unit \"";
            return error.append(wanted).append("\" for ").append(option);
        }
        targets.push_back(found);
    }
    return targets.empty() && !arguments.has("--si") ? "say what to convert to: --si, --length, --area, --volume or --angle"
                                                     : "";
}

}  // namespace

int run_units(int argc, char **argv) {
    if (wants_help(argc, argv)) return print_usage_of(kUsage, true);
    const Arguments arguments =
        parse_arguments(argc, argv, {"-o", "--length", "--area", "--volume", "--angle"}, {"--si"});
    if (!arguments.error.empty()) return usage_error("units", arguments.error, kUsage);
    if (arguments.files.size() != 1) return usage_error("units", "give exactly one input file", kUsage);
    if (arguments.value("-o") == nullptr) return usage_error("units", "give the output file with -o", kUsage);
    std::vector<const TargetUnit *> targets;
    if (const std::string error = pick_targets(arguments, targets); !error.empty())
        return usage_error("units", error, kUsage);

    std::optional<kx::Model> model = read_model("units", arguments.files[0], true);
    if (!model) return kExitFailure;
    const kx::InstanceRange assignments = model->by_type("IfcUnitAssignment");
    if (assignments.empty()) {
        std::fprintf(stderr, "kxifc units: \"%s\" states no units; nothing to convert\n", arguments.files[0]);
        return kExitFailure;
    }
    kxUnitsModelConversor *conversor = kxUnitsModelConversor_new();
    if (arguments.has("--si")) kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(conversor);
    for (const TargetUnit *target : targets)
        kxUnitsModelConversor_append_named_unit_handler(conversor, target->unit_type, nullptr,
                                                        kHandlers[static_cast<size_t>(target - kTargets)]);
    kxUnitsModelConversor_apply_conversion(conversor, model->get());
    kxUnitsModelConversor_free(&conversor);

    UnitRewriter rewriter(*model, targets, arguments.has("--si"));
    for (kx::Instance assignment : assignments) rewriter.rewrite(assignment.get());
    if (!write_model("units", *model, arguments.value("-o"))) return kExitFailure;
    std::printf("converted %s into %s\n", arguments.files[0], arguments.value("-o"));
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

}  // namespace kxcli

// The units model conversor on models built through the public interface:
// scales of SI prefixes and units, handlers and the default conversion,
// conversion-based and derived units, values that state their own unit,
// integer measures, monetary values, and what is left alone.
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "core/class.h"
#include "services/unitconversion.h"
#include "support/ptrarray.h"
#include "support/wstring.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

using kxtest::narrow;

int32_t unit_type(const std::string &name) {
    return kxtest::enum_member(kxIfcUnitEnum_has_value, kxIfcUnitEnum_to_string, name);
}
int32_t derived_type(const std::string &name) {
    return kxtest::enum_member(kxIfcDerivedUnitEnum_has_value, kxIfcDerivedUnitEnum_to_string, name);
}
int32_t prefix(const std::string &name) {
    return kxtest::enum_member(kxIfcSIPrefix_has_value, kxIfcSIPrefix_to_string, name);
}
int32_t si_name(const std::string &name) {
    return kxtest::enum_member(kxIfcSIUnitName_has_value, kxIfcSIUnitName_to_string, name);
}

double times_thousand(double value) { return value * 1000.0; }
double plus_one(double value) { return value + 1.0; }
double times_ten(double value) { return value * 10.0; }
double to_cents(double value, const kxWChar *currency) {
    return narrow(currency) == "EUR" ? value * 100.0 : -1.0;
}

constexpr kxIfcVersion_t kReleases[] = {KXIFCVERSION_IFC_2X3, KXIFCVERSION_IFC_4};

class UnitsModelConversorTest : public kxtest::ModelFixture {
protected:
    void TearDown() override {
        if (conversor_ != nullptr) kxUnitsModelConversor_free(&conversor_);
        ModelFixture::TearDown();
    }
    kxUnitsModelConversor *conversor() {
        if (conversor_ == nullptr) conversor_ = kxUnitsModelConversor_new();
        return conversor_;
    }
    void convert_by_default() {
        kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(conversor());
        convert();
    }
    void convert() { kxUnitsModelConversor_apply_conversion(conversor(), model_); }
    // A new model of the release and no conversor yet.
    void fresh(kxIfcVersion_t release) {
        if (conversor_ != nullptr) kxUnitsModelConversor_free(&conversor_);
        model(release);
    }
    // An IfcValue holding the measure.
    template <typename T>
    kxBaseObject *value(void (*set)(kxIfcValue *, T), T measure) {
        kxBaseObject *select = make(kxIfcValue_class());
        set(select, measure);
        return select;
    }

    // ---- units ----

    kxBaseObject *si_unit(const std::string &type, const char *si_prefix, const std::string &name) {
        kxBaseObject *unit = make(kxIfcSIUnit_class());
        kxIfcSIUnit_set_UnitType(unit, unit_type(type));
        if (si_prefix != nullptr) kxIfcSIUnit_set_Prefix(unit, prefix(si_prefix));
        kxIfcSIUnit_set_Name(unit, si_name(name));
        return unit;
    }
    // An IfcUnit select holding the unit.
    kxBaseObject *unit_select(kxBaseObject *unit) {
        kxBaseObject *select = make(kxIfcUnit_class());
        if (kxBaseObject_dontuse_is_object_kind_of(unit, kxIfcNamedUnit_class()))
            kxIfcUnit_set_kxIfcNamedUnit(select, unit);
        else if (kxBaseObject_dontuse_is_object_kind_of(unit, kxIfcDerivedUnit_class()))
            kxIfcUnit_set_kxIfcDerivedUnit(select, unit);
        else
            kxIfcUnit_set_kxIfcMonetaryUnit(select, unit);
        return select;
    }
    kxBaseObject *assign(std::initializer_list<kxBaseObject *> units) {
        kxBaseObject *assignment = make(kxIfcUnitAssignment_class());
        kxSetIfcUnit *set = kxSetIfcUnit_new();
        for (kxBaseObject *unit : units) kxSetIfcUnit_append_element(set, unit_select(unit));
        kxIfcUnitAssignment_set_Units(assignment, set);
        return assignment;
    }
    // A conversion-based unit: factor units of the base unit.
    kxBaseObject *conversion_based(const std::string &type, const char16_t *name, double factor, kxBaseObject *base,
                                   const kxClass_t *klass = kxIfcConversionBasedUnit_class()) {
        kxBaseObject *unit = make(klass);
        kxIfcNamedUnit_set_UnitType(unit, unit_type(type));
        kxIfcConversionBasedUnit_set_Name(unit, name);
        kxBaseObject *measure = make(kxIfcMeasureWithUnit_class());
        kxIfcMeasureWithUnit_set_ValueComponent(measure, value(kxIfcValue_set_kxIfcReal, factor));
        kxIfcMeasureWithUnit_set_UnitComponent(measure, unit_select(base));
        kxIfcConversionBasedUnit_set_ConversionFactor(unit, measure);
        return unit;
    }
    kxBaseObject *derived(const std::string &type, std::initializer_list<std::pair<kxBaseObject *, int32_t>> elements) {
        kxBaseObject *unit = make(kxIfcDerivedUnit_class());
        kxIfcDerivedUnit_set_UnitType(unit, derived_type(type));
        kxSetIfcDerivedUnitElement *set = kxSetIfcDerivedUnitElement_new();
        for (const auto &[named, exponent] : elements) {
            kxBaseObject *element = make(kxIfcDerivedUnitElement_class());
            kxIfcDerivedUnitElement_set_Unit(element, named);
            kxIfcDerivedUnitElement_set_Exponent(element, exponent);
            kxSetIfcDerivedUnitElement_append_element(set, element);
        }
        kxIfcDerivedUnit_set_Elements(unit, set);
        return unit;
    }

    // ---- values ----

    kxBaseObject *length_value(double length) { return value(kxIfcValue_set_kxIfcLengthMeasure, length); }
    kxBaseObject *single_value(kxBaseObject *value, kxBaseObject *unit = nullptr) {
        kxBaseObject *property = make(kxIfcPropertySingleValue_class());
        kxIfcPropertySingleValue_set_Name(property, u"Value");
        kxIfcPropertySingleValue_set_NominalValue(property, value);
        if (unit != nullptr) kxIfcPropertySingleValue_set_Unit(property, unit_select(unit));
        return property;
    }
    kxBaseObject *point(std::initializer_list<double> coordinates) {
        kxBaseObject *instance = make(kxIfcCartesianPoint_class());
        kxArrIfcLengthMeasure *list = kxArrIfcLengthMeasure_new();
        for (double coordinate : coordinates) kxArrIfcLengthMeasure_add(list, coordinate);
        kxIfcCartesianPoint_set_Coordinates(instance, list);
        return instance;
    }
    std::vector<double> coordinates(kxBaseObject *instance) {
        std::vector<double> result;
        const kxArrIfcLengthMeasure *list = kxIfcCartesianPoint_get_Coordinates(instance);
        for (uint32_t i = 0; i < kxArrIfcLengthMeasure_count(list); i++)
            result.push_back(kxArrIfcLengthMeasure_get(list, i));
        return result;
    }
    kxBaseObject *extrusion(double depth) {
        kxBaseObject *instance = make(kxIfcExtrudedAreaSolid_class());
        kxIfcExtrudedAreaSolid_set_Depth(instance, depth);
        return instance;
    }
    kxListIfcValue *length_list(std::initializer_list<double> values) {
        kxListIfcValue *list = kxListIfcValue_new();
        for (double value : values) kxListIfcValue_append_element(list, length_value(value));
        return list;
    }
    static double length_at(const kxListIfcValue *list, uint32_t index) {
        return kxIfcValue_get_kxIfcLengthMeasure(kxListIfcValue_get_element(list, index));
    }
    static double nominal_length(kxBaseObject *property) {
        return kxIfcValue_get_kxIfcLengthMeasure(kxIfcPropertySingleValue_get_NominalValue(property));
    }

    // How many instances of model_ are not marked visited (this marks them).
    uint32_t unvisited_instances() {
        uint32_t count = 0;
        kxIfcModel_dontuse_visit_model(model_, &count, [](kxBaseObject *, void *counter, int32_t *) {
            ++*static_cast<uint32_t *>(counter);
        });
        return count;
    }

    kxUnitsModelConversor *conversor_ = nullptr;
};

// ---- the default conversion of the assignment's units ----

TEST_F(UnitsModelConversorTest, MilliMetreModelDividesEveryLengthBy1000AndModelWithoutUnitsIsLeftAlone) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        // The first length unit wins; an absorbed dose unit (the first
        // measure type of the tables) must not reach a plain REAL list.
        assign({si_unit("ABSORBEDDOSEUNIT", "MILLI", "GRAY"), si_unit("LENGTHUNIT", "MILLI", "METRE"),
                si_unit("LENGTHUNIT", "CENTI", "METRE")});
        kxBaseObject *corner = point({1000.0, 2500.0, -500.0});
        kxBaseObject *solid = extrusion(3000.0);
        kxBaseObject *unset_depth = make(kxIfcExtrudedAreaSolid_class());
        kxBaseObject *property = single_value(length_value(2500.0));
        kxBaseObject *ratio = value(kxIfcValue_set_kxIfcReal, 1000.0);
        kxBaseObject *count = value(kxIfcValue_set_kxIfcCountMeasure, 1000.0);
        kxBaseObject *angle = value(kxIfcValue_set_kxIfcPlaneAngleMeasure, 90.0);
        kxBaseObject *direction = make(kxIfcDirection_class());
        kxArrReal *ratios = kxArrReal_new();
        kxArrReal_add(ratios, 1000.0);
        if (release == KXIFCVERSION_IFC_2X3)
            kxIfcDirection_set_DirectionRatios_v2x3(direction, ratios);
        else
            kxArrReal_free(&ratios);

        convert_by_default();

        EXPECT_EQ(coordinates(corner), (std::vector<double>{1.0, 2.5, -0.5}));
        EXPECT_DOUBLE_EQ(kxIfcExtrudedAreaSolid_get_Depth(solid), 3.0);
        EXPECT_EQ(kxIfcExtrudedAreaSolid_Depth_has_value(unset_depth), kxBFALSE) << "unset values stay unset";
        EXPECT_DOUBLE_EQ(nominal_length(property), 2.5);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcReal(ratio), 1000.0) << "a value without a unit";
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcCountMeasure(count), 1000.0);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcPlaneAngleMeasure(angle), 90.0) << "no angle unit is assigned";
        if (release == KXIFCVERSION_IFC_2X3) {
            EXPECT_DOUBLE_EQ(kxArrReal_get(kxIfcDirection_get_DirectionRatios_v2x3(direction), 0), 1000.0);
        }

        // A model without units (in IFC4 an assignment without any) is left
        // unchanged, even with a handler and a value that states its unit.
        fresh(release);
        if (release == KXIFCVERSION_IFC_4) make(kxIfcUnitAssignment_class());
        corner = point({1000.0, 2000.0});
        property = single_value(length_value(2500.0), si_unit("LENGTHUNIT", "MILLI", "METRE"));
        kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), nullptr, &times_thousand);
        convert_by_default();
        EXPECT_EQ(coordinates(corner), (std::vector<double>{1000.0, 2000.0}));
        EXPECT_DOUBLE_EQ(nominal_length(property), 2500.0);
    }
}

// ---- handlers ----

TEST_F(UnitsModelConversorTest, ContextDependentUnitsTakeOnlyTheHandlerOfTheirNameAndMisusedHandlersAreReported) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *unit = make(kxIfcContextDependentUnit_class());
    kxIfcContextDependentUnit_set_UnitType(unit, unit_type("LENGTHUNIT"));
    kxIfcContextDependentUnit_set_Name(unit, u"Module");
    // Without a default conversion a derived unit without handler is left alone.
    assign({unit, derived("MASSDENSITYUNIT", {{si_unit("MASSUNIT", nullptr, "GRAM"), 1}})});
    kxBaseObject *solid = extrusion(3.0);
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), nullptr, &plus_one);
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), u"module", &times_thousand);
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), u"Module", &times_ten);
    convert();
    EXPECT_DOUBLE_EQ(kxIfcExtrudedAreaSolid_get_Depth(solid), 30.0) << "identity, then the handler of that name";

    expect_reports();
    kxUnitsModelConversor_append_named_unit_handler(conversor(), 0, nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("kxIfcUnitEnum_has_value(named_unit_type) == kxBTRUE"));
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("USERDEFINED"), nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("named_unit_user_defined_name != NULL"));
    kxUnitsModelConversor_append_named_unit_handler(conversor(), unit_type("LENGTHUNIT"), nullptr, nullptr);
    EXPECT_TRUE(asserts().saw("(named_unit_handler) != NULL"));
    kxUnitsModelConversor_append_derived_unit_handler(conversor(), 0, nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("kxIfcDerivedUnitEnum_has_value(derived_unit_type) == kxBTRUE"));
    kxUnitsModelConversor_append_derived_unit_handler(conversor(), derived_type("USERDEFINED"), nullptr, &plus_one);
    EXPECT_TRUE(asserts().saw("derived_unit_user_defined_name != NULL"));
    kxUnitsModelConversor_append_derived_unit_handler(conversor(), derived_type("MASSDENSITYUNIT"), nullptr, nullptr);
    EXPECT_TRUE(reported("(derived_unit_handler) != NULL"));
    kxUnitsModelConversor_apply_conversion(conversor(), nullptr);
    EXPECT_TRUE(asserts().saw("(ifc_model) != NULL"));
    kxUnitsModelConversor_apply_conversion(nullptr, nullptr);
    kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(nullptr);
    kxUnitsModelConversor_set_monetary_unit_handler(nullptr, &to_cents);
    EXPECT_TRUE(asserts().saw("(units_handler) != NULL"));
    kxUnitsModelConversor *none = nullptr;
    kxUnitsModelConversor_free(&none);
    kxUnitsModelConversor_free(nullptr);
}

// ---- conversion-based and derived units ----

TEST_F(UnitsModelConversorTest, ConversionOffsetIsAddedAfterTheFactorAndRecursionStops) {
    model(KXIFCVERSION_IFC_4);
    kxBaseObject *fahrenheit =
        conversion_based("THERMODYNAMICTEMPERATUREUNIT", u"DEGREE FAHRENHEIT", 5.0 / 9.0,
                         si_unit("THERMODYNAMICTEMPERATUREUNIT", nullptr, "KELVIN"),
                         kxIfcConversionBasedUnitWithOffset_class());
    kxIfcConversionBasedUnitWithOffset_set_ConversionOffset_v4(fahrenheit, 255.37222222222223);
    assign({fahrenheit});
    kxBaseObject *temperature = value(kxIfcValue_set_kxIfcThermodynamicTemperatureMeasure, 32.0);
    single_value(temperature);
    convert_by_default();
    EXPECT_NEAR(kxIfcValue_get_kxIfcThermodynamicTemperatureMeasure(temperature), 273.15, 1e-9);

    // Units that define themselves stop at the recursion limit.
    expect_reports();
    fresh(KXIFCVERSION_IFC_4);
    kxBaseObject *odd = conversion_based("LENGTHUNIT", u"ODD", 1.0, si_unit("LENGTHUNIT", nullptr, "METRE"));
    kxIfcMeasureWithUnit_set_UnitComponent(kxIfcConversionBasedUnit_get_ConversionFactor(odd), unit_select(odd));
    assign({odd});
    kxBaseObject *solid = extrusion(5.0);
    convert_by_default();
    EXPECT_TRUE(asserts().saw("recursion_level < 100"));
    EXPECT_TRUE(asserts().saw("did_get_conversion_to_base_handle == CIERTO"));
    EXPECT_DOUBLE_EQ(kxIfcExtrudedAreaSolid_get_Depth(solid), 5.0);
}

TEST_F(UnitsModelConversorTest, DerivedUnitsComposeTheirElementsAndTruncateIntegers) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        // g/cm3: 1 g/cm3 = 1000 kg/m3.
        kxBaseObject *density = derived("MASSDENSITYUNIT", {{si_unit("MASSUNIT", nullptr, "GRAM"), 1},
                                                             {si_unit("LENGTHUNIT", "CENTI", "METRE"), -3}});
        // mm/s.
        kxBaseObject *velocity = derived("LINEARVELOCITYUNIT", {{si_unit("LENGTHUNIT", "MILLI", "METRE"), 1},
                                                                 {si_unit("TIMEUNIT", nullptr, "SECOND"), -1}});
        // A count per tenth of a second: 29 of them are 2.9 per second, and
        // integer measures are truncated toward zero.
        kxBaseObject *rate = derived("INTEGERCOUNTRATEUNIT", {{si_unit("FREQUENCYUNIT", "DECI", "HERTZ"), 1}});
        assign({density, velocity, rate});
        kxBaseObject *mass_density = value(kxIfcValue_set_kxIfcMassDensityMeasure, 2.5);
        kxBaseObject *speed = value(kxIfcValue_set_kxIfcLinearVelocityMeasure, 1500.0);
        kxBaseObject *positive = value(kxIfcValue_set_kxIfcIntegerCountRateMeasure, 29);
        kxBaseObject *negative = value(kxIfcValue_set_kxIfcIntegerCountRateMeasure, -29);
        kxBaseObject *whole = value(kxIfcValue_set_kxIfcIntegerCountRateMeasure, 30);
        single_value(positive);
        kxUnitsModelConversor_append_derived_unit_handler(conversor(), derived_type("LINEARVELOCITYUNIT"), nullptr,
                                                          &times_ten);
        convert_by_default();
        EXPECT_NEAR(kxIfcValue_get_kxIfcMassDensityMeasure(mass_density), 2500.0, 1e-9);
        EXPECT_NEAR(kxIfcValue_get_kxIfcLinearVelocityMeasure(speed), 15.0, 1e-12) << "1.5 m/s, then the handler";
        EXPECT_EQ(kxIfcValue_get_kxIfcIntegerCountRateMeasure(positive), 2) << "2.9 becomes 2, not 3";
        EXPECT_EQ(kxIfcValue_get_kxIfcIntegerCountRateMeasure(negative), -2);
        EXPECT_EQ(kxIfcValue_get_kxIfcIntegerCountRateMeasure(whole), 3);
    }
}

// ---- values that state their own unit ----

// Each value is converted once, under its own unit where it states one: every
// kind of property, quantities, measures with unit, time series and table
// columns; a value without a unit of its own takes the model's.
TEST_F(UnitsModelConversorTest, ValuesWithTheirOwnUnitConvertUnderIt) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        assign({si_unit("LENGTHUNIT", "MILLI", "METRE"), si_unit("TIMEUNIT", nullptr, "SECOND")});
        kxBaseObject *in_metres = single_value(length_value(2.5), si_unit("LENGTHUNIT", nullptr, "METRE"));
        kxBaseObject *in_centimetres = single_value(length_value(250.0), si_unit("LENGTHUNIT", "CENTI", "METRE"));
        kxBaseObject *quantity = make(kxIfcQuantityLength_class());
        kxIfcQuantityLength_set_LengthValue(quantity, 250.0);
        kxIfcQuantityLength_set_Unit(quantity, si_unit("LENGTHUNIT", "CENTI", "METRE"));
        kxBaseObject *global = make(kxIfcQuantityLength_class());
        kxIfcQuantityLength_set_LengthValue(global, 250.0);
        kxBaseObject *measure = make(kxIfcMeasureWithUnit_class());
        kxBaseObject *value = length_value(25.0);
        kxIfcMeasureWithUnit_set_ValueComponent(measure, value);
        kxIfcMeasureWithUnit_set_UnitComponent(measure, unit_select(si_unit("LENGTHUNIT", "DECI", "METRE")));

        kxBaseObject *bounded = make(kxIfcPropertyBoundedValue_class());
        kxBaseObject *upper = length_value(3000.0);
        kxBaseObject *lower = length_value(1000.0);
        kxIfcPropertyBoundedValue_set_UpperBoundValue(bounded, upper);
        kxIfcPropertyBoundedValue_set_LowerBoundValue(bounded, lower);
        kxIfcPropertyBoundedValue_set_Unit(bounded, unit_select(si_unit("LENGTHUNIT", "MILLI", "METRE")));
        kxBaseObject *enumeration = make(kxIfcPropertyEnumeration_class());
        kxIfcPropertyEnumeration_set_Name(enumeration, u"Sizes");
        kxIfcPropertyEnumeration_set_EnumerationValues(enumeration, length_list({100.0, 200.0}));
        kxIfcPropertyEnumeration_set_Unit(enumeration, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));
        kxBaseObject *list = make(kxIfcPropertyListValue_class());
        kxIfcPropertyListValue_set_ListValues(list, length_list({10.0, 20.0}));
        kxIfcPropertyListValue_set_Unit(list, unit_select(si_unit("LENGTHUNIT", "DECI", "METRE")));
        kxBaseObject *table = make(kxIfcPropertyTableValue_class());
        kxIfcPropertyTableValue_set_DefiningValues(table, length_list({1000.0}));
        kxIfcPropertyTableValue_set_DefinedValues(table, length_list({100.0}));
        kxIfcPropertyTableValue_set_DefiningUnit(table, unit_select(si_unit("LENGTHUNIT", "MILLI", "METRE")));
        kxIfcPropertyTableValue_set_DefinedUnit(table, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));

        kxBaseObject *series = make(kxIfcRegularTimeSeries_class());
        kxIfcRegularTimeSeries_set_TimeStep(series, 60.0);
        kxIfcRegularTimeSeries_set_Unit(series, unit_select(si_unit("LENGTHUNIT", "MILLI", "METRE")));
        kxBaseObject *sample = make(kxIfcTimeSeriesValue_class());
        kxIfcTimeSeriesValue_set_ListValues(sample, length_list({1500.0}));
        kxListIfcTimeSeriesValue *samples = kxListIfcTimeSeriesValue_new();
        kxListIfcTimeSeriesValue_append_element(samples, sample);
        kxIfcRegularTimeSeries_set_Values(series, samples);
        kxBaseObject *irregular = make(kxIfcIrregularTimeSeries_class());
        kxIfcIrregularTimeSeries_set_Unit(irregular, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));
        kxBaseObject *irregular_sample = make(kxIfcIrregularTimeSeriesValue_class());
        kxIfcIrregularTimeSeriesValue_set_ListValues(irregular_sample, length_list({150.0}));
        kxListIfcIrregularTimeSeriesValue *irregular_samples = kxListIfcIrregularTimeSeriesValue_new();
        kxListIfcIrregularTimeSeriesValue_append_element(irregular_samples, irregular_sample);
        kxIfcIrregularTimeSeries_set_Values(irregular, irregular_samples);

        // Table columns with a unit convert their cells in full rows (IFC4).
        kxBaseObject *full = nullptr, *short_row = nullptr;
        if (release == KXIFCVERSION_IFC_4) {
            kxListIfcTableColumn *columns = kxListIfcTableColumn_new();
            kxBaseObject *with_unit = make(kxIfcTableColumn_class());
            kxIfcTableColumn_set_Unit_v4(with_unit, unit_select(si_unit("LENGTHUNIT", "CENTI", "METRE")));
            kxListIfcTableColumn_append_element(columns, with_unit);
            kxListIfcTableColumn_append_element(columns, make(kxIfcTableColumn_class()));
            kxBaseObject *cells = make(kxIfcTable_class());
            kxIfcTable_set_Columns_v4(cells, columns);
            kxListIfcTableRow *rows = kxListIfcTableRow_new();
            full = make(kxIfcTableRow_class());
            kxIfcTableRow_set_RowCells(full, length_list({150.0, 2000.0}));
            short_row = make(kxIfcTableRow_class());
            kxIfcTableRow_set_RowCells(short_row, length_list({3000.0}));
            kxListIfcTableRow_append_element(rows, full);
            kxListIfcTableRow_append_element(rows, short_row);
            kxIfcTable_set_Rows(cells, rows);
        }

        convert_by_default();

        EXPECT_DOUBLE_EQ(kxIfcQuantityLength_get_LengthValue(quantity), 2.5);
        EXPECT_DOUBLE_EQ(kxIfcQuantityLength_get_LengthValue(global), 0.25);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcLengthMeasure(value), 2.5);
        EXPECT_DOUBLE_EQ(nominal_length(in_metres), 2.5);
        EXPECT_DOUBLE_EQ(nominal_length(in_centimetres), 2.5);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcLengthMeasure(upper), 3.0);
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcLengthMeasure(lower), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyEnumeration_get_EnumerationValues(enumeration), 1), 2.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyListValue_get_ListValues(list), 0), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyTableValue_get_DefiningValues(table), 0), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcPropertyTableValue_get_DefinedValues(table), 0), 1.0);
        EXPECT_DOUBLE_EQ(length_at(kxIfcTimeSeriesValue_get_ListValues(sample), 0), 1.5);
        EXPECT_DOUBLE_EQ(kxIfcRegularTimeSeries_get_TimeStep(series), 0.06) << "under the series' unit, as it is";
        EXPECT_DOUBLE_EQ(length_at(kxIfcIrregularTimeSeriesValue_get_ListValues(irregular_sample), 0), 1.5);
        if (full != nullptr) {
            EXPECT_DOUBLE_EQ(length_at(kxIfcTableRow_get_RowCells(full), 0), 1.5) << "under the column's unit";
            EXPECT_DOUBLE_EQ(length_at(kxIfcTableRow_get_RowCells(full), 1), 2.0) << "no unit: the model's unit";
            EXPECT_DOUBLE_EQ(length_at(kxIfcTableRow_get_RowCells(short_row), 0), 3.0) << "not a full row";
        }
        EXPECT_EQ(unvisited_instances(), kxIfcModel_count_objects(model_)) << "no visited mark is left";
    }
}

// ---- monetary values ----

TEST_F(UnitsModelConversorTest, MonetaryValuesGoThroughTheMonetaryHandlerWithTheirCurrency) {
    for (kxIfcVersion_t release : kReleases) {
        fresh(release);
        kxBaseObject *euro = make(kxIfcMonetaryUnit_class());
        if (release == KXIFCVERSION_IFC_4)
            kxIfcMonetaryUnit_set_Currency_v4(euro, u"EUR");
        else
            kxIfcMonetaryUnit_set_Currency_v2x3(
                euro, kxtest::enum_member(kxIfcCurrencyEnum_has_value, kxIfcCurrencyEnum_to_string, "EUR"));
        assign({euro});
        kxBaseObject *price = value(kxIfcValue_set_kxIfcMonetaryMeasure, 12.5);

        convert_by_default();
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcMonetaryMeasure(price), 12.5) << "the default leaves money alone";
        kxUnitsModelConversor_free(&conversor_);

        kxUnitsModelConversor_set_monetary_unit_handler(conversor(), &to_cents);
        convert();
        EXPECT_DOUBLE_EQ(kxIfcValue_get_kxIfcMonetaryMeasure(price), 1250.0);
    }
}

// ---- files ----

// The lengths of one kind of slot in file order: extrusion depths.
std::vector<double> depths(kxIfcModel *ifc_model) {
    std::vector<double> result;
    kxArrayST *solids = kxIfcModel_dontuse_get_objects_by_class(ifc_model, kxIfcExtrudedAreaSolid_class());
    for (kxBaseObject *solid : kxtest::elements(solids))
        result.push_back(kxIfcExtrudedAreaSolid_get_Depth(solid));
    return result;
}

// The scale of the model's SI length unit to metres (its prefix), or 0 when
// its length unit is not an SI unit.
double si_length_scale(kxIfcModel *ifc_model) {
    kxBaseObject *assignment = kxIfcModel_dontuse_get_first_occurrence_of_class(ifc_model, kxIfcUnitAssignment_class());
    const kxSetIfcUnit *units = assignment != nullptr ? kxIfcUnitAssignment_get_Units(assignment) : nullptr;
    for (uint32_t i = 0; units != nullptr && i < kxSetIfcUnit_count(units); i++) {
        kxBaseObject *unit = kxIfcUnit_get_kxIfcNamedUnit(kxSetIfcUnit_get_element(units, i));
        if (unit == nullptr || kxIfcNamedUnit_get_UnitType(unit) != unit_type("LENGTHUNIT")) continue;
        if (!kxBaseObject_dontuse_is_object_kind_of(unit, kxIfcSIUnit_class())) return 0.0;
        if (kxIfcSIUnit_Prefix_has_value(unit) != kxBTRUE) return 1.0;
        const std::string name = narrow(kxIfcSIPrefix_to_string(kxIfcSIUnit_get_Prefix(unit)));
        return name == "MILLI" ? 1e-3 : name == "CENTI" ? 1e-2 : name == "DECI" ? 1e-1 : name == "KILO" ? 1e3 : 0.0;
    }
    return 0.0;
}

TEST_F(UnitsModelConversorTest, SampleFilesScaleEveryLengthByOneFactor) {
    const std::vector<std::string> files = kxtest::sample_files();
    if (files.empty()) GTEST_SKIP() << "no sample files";
    int checked = 0;
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        const std::u16string name = kxtest::wide(path);
        kxIfcModel *original = kxIfcModel_read_from_step_file(name.c_str(), 0, nullptr);
        kxIfcModel *converted = kxIfcModel_read_from_step_file(name.c_str(), 0, nullptr);
        ASSERT_NE(original, nullptr);
        ASSERT_NE(converted, nullptr);
        kxUnitsModelConversor *units = kxUnitsModelConversor_new();
        kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(units);
        kxUnitsModelConversor_append_named_unit_handler(units, unit_type("LENGTHUNIT"), nullptr, &times_thousand);
        kxUnitsModelConversor_apply_conversion(units, converted);
        kxUnitsModelConversor_free(&units);

        // Every depth is now in millimetres: one factor for all of them.
        const std::vector<double> before = depths(original);
        const std::vector<double> after = depths(converted);
        ASSERT_EQ(before.size(), after.size());
        double factor = 0.0;
        for (size_t i = 0; i < before.size(); i++) {
            if (before[i] == 0.0) continue;
            if (factor == 0.0) factor = after[i] / before[i];
            EXPECT_NEAR(after[i], before[i] * factor, std::fabs(before[i] * factor) * 1e-12);
        }
        const double expected = 1000.0 * si_length_scale(original);
        if (factor != 0.0 && expected > 0.0) {
            EXPECT_NEAR(factor, expected, expected * 1e-9);
            checked++;
        }
        kxIfcModel_free(&original);
        kxIfcModel_free(&converted);
    }
    EXPECT_GT(checked, 0) << "some file has extrusions in an SI length unit";
}

// Conversion handles (linear, composed, chained), unit conversions with
// their callbacks and ordering, and the manager that forwards to the
// conversor's callbacks.
using namespace kx;

class UnitConversionTest : public kxtest::LibraryTest {};

kxUnitConversionHandle *linear(double factor, double offset) {
    return unitconvhandle_new_linear(factor, offset, nullptr, nullptr);
}

double record_cents(double value, const char16_t *) { return value * 100.0; }

TEST_F(UnitConversionTest, HandlesApplyTheirPartsThenTheirBaseConversionsAreOrderedByUnitAndMisuseIsReported) {
    expect_reports();
    // With sub-handlers a linear handle ignores its own factor and offset.
    PtrArray *parts = ptrarray_create(0);
    ptrarray_append(parts, linear(3.0, 0.0));
    kxUnitConversionHandle *base = linear(1.0, 1.0);
    kxUnitConversionHandle *handle = unitconvhandle_new_linear(100.0, 50.0, &parts, &base);
    EXPECT_EQ(parts, nullptr);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(handle, 2.0), 7.0) << "2 x 3, then the base + 1";
    unitconvhandle_destroy(&handle);

    // A second base is reported, taken over all the same, and replaces the first.
    handle = linear(2.0, 0.0);
    kxUnitConversionHandle *first = linear(1.0, 1.0), *second = linear(100.0, 0.0);
    unitconvhandle_set_base(handle, &first);
    unitconvhandle_set_base(handle, &second);
    EXPECT_TRUE(reported("handle->base_conversion_handler == NULL"));
    EXPECT_EQ(second, nullptr);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(handle, 3.0), 600.0);
    unitconvhandle_destroy(&handle);

    // A composed handle of nothing leaves values alone.
    PtrArray *nothing = ptrarray_create(0);
    kxUnitConversionHandle *empty = unitconvhandle_new_composed(&nothing);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(empty, 4.0), 4.0);
    EXPECT_TRUE(reported("num_handlers > 0"));
    unitconvhandle_destroy(&empty);

    // Conversions are ordered by the identity of their unit. Misuse leaves values
    // as they are; an unknown or monetary type has no order, a default that must
    // not be reached (reported with no condition).
    kxUnitConversionHandle *h1 = linear(1.0, 0.0), *h2 = linear(1.0, 0.0), *h3 = linear(1.0, 0.0);
    kxUnitConversionHandle *h4 = linear(1.0, 0.0);
    kxUnitConversion *named = unitconversion_new_named(16, &h1, nullptr);
    kxUnitConversion *derived = unitconversion_new_derived(8, &h2, nullptr);
    kxUnitConversion *area = unitconversion_new_named(3, &h4, nullptr);
    kxUnitConversion *strange = unitconversion_new_named(1, &h3, nullptr);
    strange->type = 9;
    EXPECT_GT(unitconversion_compare(named, area), 0);
    EXPECT_LT(unitconversion_compare(area, named), 0);
    EXPECT_EQ(unitconversion_compare(named, named), 0);
    const uint32_t sixteen = 16, three = 3, eight = 8, nine = 9;
    EXPECT_EQ(unitconversion_compare_with_named_unit(named, &sixteen), 0);
    EXPECT_GT(unitconversion_compare_with_named_unit(named, &three), 0);
    EXPECT_EQ(unitconversion_compare_with_derived_unit(derived, &eight), 0);
    EXPECT_LT(unitconversion_compare_with_derived_unit(derived, &nine), 0);
    EXPECT_EQ(unitconversion_key(named), 16u);
    EXPECT_EQ(unitconversion_key(derived), 8u);
    WideString euro = wstr_copy(u"EUR"), dollar = wstr_copy(u"USD");
    kxUnitConversion *monetary = unitconversion_new_monetary(&euro, &record_cents);
    kxUnitConversion *without_callback = unitconversion_new_monetary(&dollar, nullptr);
    kxUnitConversion *without_handle = nullptr, *none = nullptr;
    kxUnitConversionHandle *no_handle = nullptr;
    kxUnitConvManager *manager = unitconvmngr_new(nullptr, nullptr, nullptr, nullptr), *no_manager = nullptr;
    double converted = 0.0;
    int32_t value = 7;
    expect_each_reported({
        {"(unit_handle_to_ifc_basic_unit) != NULL",
         [&] { without_handle = unitconversion_new_named(1, nullptr, nullptr); }},
        {"unit_conversion->func_custom_monetary_unit_handler != NULL",
         [&] { EXPECT_DOUBLE_EQ(unitconversion_apply(without_callback, 2.0), 2.0); }},
        {"", [&] { EXPECT_DOUBLE_EQ(unitconversion_apply(strange, 2.0), 2.0); }},
        {"(unit_conversion) != NULL", [&] { EXPECT_DOUBLE_EQ(unitconversion_apply(nullptr, 2.0), 2.0); }},
        {"(*unit_conversion) != NULL", [&] { unitconversion_destroy(&none); }},
        {"unit_id1->type == unit_id2->type", [&] { unitconversion_compare(named, derived); }},
        {"", [&] { unitconversion_compare(monetary, monetary); }},
        {"(unit_conversion2) != NULL", [&] { unitconversion_compare(named, nullptr); }},
        {"(unit_conversion1) != NULL", [&] { unitconversion_compare(nullptr, named); }},
        {"(ifc_si_unit_name) != NULL", [&] { unitconversion_compare_with_named_unit(named, nullptr); }},
        {"(ifc_derived_unit_enum) != NULL", [&] { unitconversion_compare_with_derived_unit(derived, nullptr); }},
        {"(handle) != NULL", [&] { EXPECT_DOUBLE_EQ(unitconvhandle_apply(nullptr, 4.0), 4.0); }},
        {"(*handle) != NULL", [&] { unitconvhandle_destroy(&no_handle); }},
        {"(handle) != NULL", [&] { unitconvhandle_destroy(nullptr); }},
        {"(manager->func_force_conversion_with_unit) != NULL",
         [&] { unitconvmngr_force_conversion_with_unit(manager, nullptr); }},
        {"(manager->func_apply_conversion_double) != NULL",
         [&] { unitconvmngr_apply_conversion_double(manager, 0, 2.5, &converted); }},
        {"(manager->func_apply_conversion_long) != NULL",
         [&] { unitconvmngr_apply_conversion_long(manager, 0, &value); }},
        {"(manager) != NULL", [&] { unitconvmngr_force_conversion_with_unit(nullptr, nullptr); }},
        {"(*manager) != NULL", [&] { unitconvmngr_destroy(&no_manager); }},
    });
    EXPECT_DOUBLE_EQ(unitconversion_apply(without_handle, 2.0), 2.0);
    EXPECT_DOUBLE_EQ(converted, 2.5);
    EXPECT_EQ(value, 7);
    for (kxUnitConversion **conversion :
         {&named, &derived, &area, &strange, &monetary, &without_callback, &without_handle})
        unitconversion_destroy(conversion);
    unitconvmngr_destroy(&manager);
}

}  // namespace

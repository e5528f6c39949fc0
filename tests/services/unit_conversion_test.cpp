// Conversion handles (linear, power, composed, chained), unit conversions
// with their callbacks and ordering, and the manager that forwards to the
// conversor's callbacks.
#include <string>

#include "services/unitconversion.h"
#include "support/ptrarray.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

using namespace kx;

class UnitConversionTest : public kxtest::LibraryTest {};

kxUnitConversionHandle *linear(double factor, double offset) {
    return unitconvhandle_new_linear(factor, offset, nullptr, nullptr);
}

PtrArray *handles(std::initializer_list<kxUnitConversionHandle *> items) {
    PtrArray *array = ptrarray_create(0);
    for (kxUnitConversionHandle *item : items) ptrarray_append(array, item);
    return array;
}

// ---- handles ----

TEST_F(UnitConversionTest, LinearHandleWithSubHandlersIgnoresItsOwnFactorAndOffset) {
    PtrArray *parts = handles({linear(3.0, 0.0)});
    kxUnitConversionHandle *base = linear(1.0, 1.0);
    kxUnitConversionHandle *handle = unitconvhandle_new_linear(100.0, 50.0, &parts, &base);
    EXPECT_EQ(parts, nullptr);
    EXPECT_EQ(base, nullptr);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(handle, 2.0), 7.0) << "2 x 3, then the base + 1";
    unitconvhandle_destroy(&handle);
}

TEST_F(UnitConversionTest, ChainingAHandleTwiceIsReported) {
    expect_reports();
    kxUnitConversionHandle *handle = linear(2.0, 0.0);
    kxUnitConversionHandle *first = linear(1.0, 1.0);
    kxUnitConversionHandle *second = linear(100.0, 0.0);
    unitconvhandle_set_base(handle, &first);
    unitconvhandle_set_base(handle, &second);
    EXPECT_TRUE(asserts().saw("handle->base_conversion_handler == NULL"));
    EXPECT_EQ(second, nullptr) << "taken over all the same";
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(handle, 3.0), 600.0) << "the second base replaced the first";
    unitconvhandle_destroy(&handle);
}

TEST_F(UnitConversionTest, MisuseOfHandlesIsReported) {
    expect_reports();
    PtrArray *nothing = ptrarray_create(0);
    kxUnitConversionHandle *empty = unitconvhandle_new_composed(&nothing);
    EXPECT_DOUBLE_EQ(unitconvhandle_apply(empty, 4.0), 4.0);
    EXPECT_TRUE(asserts().saw("num_handlers > 0"));
    unitconvhandle_destroy(&empty);

    EXPECT_DOUBLE_EQ(unitconvhandle_apply(nullptr, 4.0), 4.0);
    EXPECT_TRUE(asserts().saw("(handle) != NULL"));
    asserts().clear();
    kxUnitConversionHandle *none = nullptr;
    unitconvhandle_destroy(&none);
    EXPECT_TRUE(asserts().saw("(*handle) != NULL"));
    unitconvhandle_destroy(nullptr);
    EXPECT_TRUE(asserts().saw("(handle) != NULL"));
}

// ---- unit conversions ----

std::u16string g_last_currency;  // set by the monetary handler of one test
double to_cents(double value, const char16_t *currency) {
    g_last_currency = currency != nullptr ? currency : u"<null>";
    return value * 100.0;
}

TEST_F(UnitConversionTest, MisuseOfUnitConversionsIsReported) {
    expect_reports();
    kxUnitConversion *without_handle = unitconversion_new_named(1, nullptr, nullptr);
    EXPECT_TRUE(asserts().saw("(unit_handle_to_ifc_basic_unit) != NULL"));
    EXPECT_DOUBLE_EQ(unitconversion_apply(without_handle, 2.0), 2.0);
    unitconversion_destroy(&without_handle);

    WideString currency = wstr_copy(u"USD");
    kxUnitConversion *monetary = unitconversion_new_monetary(&currency, nullptr);
    EXPECT_DOUBLE_EQ(unitconversion_apply(monetary, 2.0), 2.0);
    EXPECT_TRUE(asserts().saw("unit_conversion->func_custom_monetary_unit_handler != NULL"));
    unitconversion_destroy(&monetary);

    asserts().clear();
    kxUnitConversionHandle *handle = linear(1.0, 0.0);
    kxUnitConversion *strange = unitconversion_new_named(1, &handle, nullptr);
    strange->type = 9;
    EXPECT_DOUBLE_EQ(unitconversion_apply(strange, 2.0), 2.0);
    EXPECT_TRUE(asserts().saw("")) << "an unknown type is a default that must not be reached";
    unitconversion_destroy(&strange);

    asserts().clear();
    EXPECT_DOUBLE_EQ(unitconversion_apply(nullptr, 2.0), 2.0);
    EXPECT_TRUE(asserts().saw("(unit_conversion) != NULL"));
    kxUnitConversion *none = nullptr;
    unitconversion_destroy(&none);
    EXPECT_TRUE(asserts().saw("(*unit_conversion) != NULL"));
}

TEST_F(UnitConversionTest, ConversionsAreOrderedByUnitIdentity) {
    kxUnitConversionHandle *h1 = linear(1.0, 0.0);
    kxUnitConversionHandle *h2 = linear(1.0, 0.0);
    kxUnitConversionHandle *h3 = linear(1.0, 0.0);
    kxUnitConversion *length = unitconversion_new_named(16, &h1, nullptr);
    kxUnitConversion *area = unitconversion_new_named(3, &h2, nullptr);
    kxUnitConversion *velocity = unitconversion_new_derived(8, &h3, nullptr);

    EXPECT_GT(unitconversion_compare(length, area), 0);
    EXPECT_LT(unitconversion_compare(area, length), 0);
    EXPECT_EQ(unitconversion_compare(length, length), 0);
    const uint32_t sixteen = 16, three = 3, eight = 8, nine = 9;
    EXPECT_EQ(unitconversion_compare_with_named_unit(length, &sixteen), 0);
    EXPECT_GT(unitconversion_compare_with_named_unit(length, &three), 0);
    EXPECT_EQ(unitconversion_compare_with_derived_unit(velocity, &eight), 0);
    EXPECT_LT(unitconversion_compare_with_derived_unit(velocity, &nine), 0);
    EXPECT_EQ(unitconversion_key(length), 16u);
    EXPECT_EQ(unitconversion_key(velocity), 8u);

    unitconversion_destroy(&length);
    unitconversion_destroy(&area);
    unitconversion_destroy(&velocity);
}

TEST_F(UnitConversionTest, OrderingMixedOrMonetaryConversionsIsReported) {
    expect_reports();
    kxUnitConversionHandle *h1 = linear(1.0, 0.0);
    kxUnitConversionHandle *h2 = linear(1.0, 0.0);
    kxUnitConversion *named = unitconversion_new_named(16, &h1, nullptr);
    kxUnitConversion *derived = unitconversion_new_derived(16, &h2, nullptr);
    WideString currency = wstr_copy(u"EUR");
    kxUnitConversion *monetary = unitconversion_new_monetary(&currency, &to_cents);

    unitconversion_compare(named, derived);
    EXPECT_TRUE(asserts().saw("unit_id1->type == unit_id2->type"));
    asserts().clear();
    unitconversion_compare(monetary, monetary);
    EXPECT_TRUE(asserts().saw("")) << "monetary conversions have no order";
    asserts().clear();
    unitconversion_compare(named, nullptr);
    EXPECT_TRUE(asserts().saw("(unit_conversion2) != NULL"));
    unitconversion_compare(nullptr, named);
    EXPECT_TRUE(asserts().saw("(unit_conversion1) != NULL"));
    unitconversion_compare_with_named_unit(named, nullptr);
    EXPECT_TRUE(asserts().saw("(ifc_si_unit_name) != NULL"));
    unitconversion_compare_with_derived_unit(derived, nullptr);
    EXPECT_TRUE(asserts().saw("(ifc_derived_unit_enum) != NULL"));

    unitconversion_destroy(&named);
    unitconversion_destroy(&derived);
    unitconversion_destroy(&monetary);
}

// ---- manager ----

TEST_F(UnitConversionTest, ManagerWithoutCallbacksReportsAndLeavesValues) {
    expect_reports();
    kxUnitConvManager *manager = unitconvmngr_new(nullptr, nullptr, nullptr, nullptr);
    unitconvmngr_force_conversion_with_unit(manager, nullptr);
    EXPECT_TRUE(asserts().saw("(manager->func_force_conversion_with_unit) != NULL"));
    double converted = 0.0;
    unitconvmngr_apply_conversion_double(manager, 0, 2.5, &converted);
    EXPECT_TRUE(asserts().saw("(manager->func_apply_conversion_double) != NULL"));
    EXPECT_DOUBLE_EQ(converted, 2.5);
    int32_t value = 7;
    unitconvmngr_apply_conversion_long(manager, 0, &value);
    EXPECT_TRUE(asserts().saw("(manager->func_apply_conversion_long) != NULL"));
    EXPECT_EQ(value, 7);
    unitconvmngr_destroy(&manager);

    asserts().clear();
    unitconvmngr_force_conversion_with_unit(nullptr, nullptr);
    EXPECT_TRUE(asserts().saw("(manager) != NULL"));
    unitconvmngr_destroy(&manager);
    EXPECT_TRUE(asserts().saw("(*manager) != NULL"));
}

}  // namespace

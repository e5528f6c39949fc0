#define KX_UNIT "kxunitconversion"
// Conversion handles and unit conversions: the linear maps that take a value
// from one unit to the SI basic unit, and one unit's conversion with the
// host's callback applied after it.
#include <cmath>
#include <cstddef>

#include "services/unitconversion.h"
#include "support/assert.h"
#include "support/memory.h"

namespace kx {

// ---- conversion handles ------------------------------------------------------

kxUnitConversionHandle *unitconvhandle_new_linear(double factor, double offset, PtrArray **sub_handlers,
                                                  kxUnitConversionHandle **base_conversion_handler) {
    kxUnitConversionHandle *handle = mem_new_zeroed<kxUnitConversionHandle>();
    handle->factor = factor;
    handle->offset = offset;
    handle->sub_handlers = sub_handlers != nullptr ? mem_take(sub_handlers) : nullptr;
    handle->base_conversion_handler = base_conversion_handler != nullptr ? mem_take(base_conversion_handler) : nullptr;
    return handle;
}

kxUnitConversionHandle *unitconvhandle_new_power(double base, double offset, int32_t exponent) {
    return unitconvhandle_new_linear(std::pow(base, static_cast<double>(exponent)), offset, nullptr, nullptr);
}

kxUnitConversionHandle *unitconvhandle_new_composed(PtrArray **sub_handlers) {
    kx_assert_not_null(sub_handlers);
    return unitconvhandle_new_linear(1.0, 0.0, sub_handlers, nullptr);
}

void unitconvhandle_set_base(kxUnitConversionHandle *handle, kxUnitConversionHandle **base_conversion_handler) {
    kx_assert_not_null(handle);
    kx_assert_not_null(base_conversion_handler);
    if (handle == nullptr || base_conversion_handler == nullptr) return;
    kx_assert(handle->base_conversion_handler == NULL);
    // Chained again all the same: the new base replaces the old one, which
    // is freed.
    if (handle->base_conversion_handler != nullptr) unitconvhandle_destroy(&handle->base_conversion_handler);
    handle->base_conversion_handler = mem_take(base_conversion_handler);
}

void unitconvhandle_destroy(kxUnitConversionHandle **handle) {
    kx_assert_not_null(handle);
    if (handle == nullptr) return;
    kx_assert_not_null(*handle);
    if (*handle == nullptr) return;
    kxUnitConversionHandle *to_free = *handle;
    if (to_free->sub_handlers != nullptr)
        ptrarray_destroy(&to_free->sub_handlers, callback<DestroyFn, &unitconvhandle_destroy>());
    mem_destroy_optional(&to_free->base_conversion_handler, &unitconvhandle_destroy);
    mem_free_and_clear(handle);
}

double unitconvhandle_apply(const kxUnitConversionHandle *handle, double value) {
    kx_assert_not_null(handle);
    if (handle == nullptr) return value;
    if (handle->sub_handlers == nullptr) {
        value = value * handle->factor + handle->offset;
    } else {
        const uint32_t num_handlers = ptrarray_count(handle->sub_handlers);
        kx_assert(num_handlers > 0);
        for (uint32_t i = 0; i < num_handlers; i++)
            value = unitconvhandle_apply(
                static_cast<const kxUnitConversionHandle *>(ptrarray_get(handle->sub_handlers, i)), value);
    }
    if (handle->base_conversion_handler != nullptr)
        value = unitconvhandle_apply(handle->base_conversion_handler, value);
    return value;
}

// ---- unit conversions --------------------------------------------------------

namespace {

kxUnitConversion *new_conversion(uint32_t type, uint32_t unit_name, uint32_t derived_unit,
                                 kxUnitConversionHandle **unit_handle_to_ifc_basic_unit,
                                 UnitValueHandlerFn value_handler) {
    kx_assert_text(unit_handle_to_ifc_basic_unit != nullptr && *unit_handle_to_ifc_basic_unit != nullptr,
                   "(unit_handle_to_ifc_basic_unit) != NULL");
    kxUnitConversion *unit_conversion = mem_new_zeroed<kxUnitConversion>();
    unit_conversion->type = type;
    unit_conversion->unit_name = unit_name;
    unit_conversion->derived_unit = derived_unit;
    unit_conversion->unit_handle_to_ifc_basic_unit =
        unit_handle_to_ifc_basic_unit != nullptr ? mem_take(unit_handle_to_ifc_basic_unit) : nullptr;
    unit_conversion->value_handler = value_handler;
    return unit_conversion;
}

// The identity that orders conversions: the first three members.
struct UnitId {
    uint32_t type;
    uint32_t unit_name;
    uint32_t derived_unit;
};

int compare_unit_ids(const UnitId *unit_id1, const UnitId *unit_id2) {
    kx_assert_not_null(unit_id1);
    kx_assert_not_null(unit_id2);
    if (unit_id1 == nullptr || unit_id2 == nullptr) return 0;
    kx_assert(unit_id1->type == unit_id2->type);
    switch (unit_id1->type) {
    case UNIT_CONVERSION_NAMED: return ulong_compare(&unit_id1->unit_name, &unit_id2->unit_name);
    case UNIT_CONVERSION_DERIVED: return ulong_compare(&unit_id1->derived_unit, &unit_id2->derived_unit);
    default: kx_assert_unreachable(); return 0;
    }
}

UnitId unit_id_of(const kxUnitConversion *unit_conversion) {
    return UnitId{unit_conversion->type, unit_conversion->unit_name, unit_conversion->derived_unit};
}

}  // namespace

kxUnitConversion *unitconversion_new_named(uint32_t unit_name, kxUnitConversionHandle **unit_handle_to_ifc_basic_unit,
                                           UnitValueHandlerFn value_handler) {
    return new_conversion(UNIT_CONVERSION_NAMED, unit_name, 0, unit_handle_to_ifc_basic_unit, value_handler);
}

kxUnitConversion *unitconversion_new_derived(uint32_t derived_unit,
                                             kxUnitConversionHandle **unit_handle_to_ifc_basic_unit,
                                             UnitValueHandlerFn value_handler) {
    return new_conversion(UNIT_CONVERSION_DERIVED, 0, derived_unit, unit_handle_to_ifc_basic_unit, value_handler);
}

kxUnitConversion *unitconversion_new_monetary(WideString *currency, MonetaryValueHandlerFn monetary_handler) {
    kxUnitConversion *unit_conversion = mem_new_zeroed<kxUnitConversion>();
    unit_conversion->type = UNIT_CONVERSION_MONETARY;
    unit_conversion->user_defined_name = currency != nullptr ? mem_take(currency) : nullptr;
    unit_conversion->func_custom_monetary_unit_handler = monetary_handler;
    return unit_conversion;
}

void unitconversion_destroy(kxUnitConversion **unit_conversion) {
    kx_assert_not_null(unit_conversion);
    if (unit_conversion == nullptr) return;
    kx_assert_not_null(*unit_conversion);
    if (*unit_conversion == nullptr) return;
    kxUnitConversion *to_free = *unit_conversion;
    wstr_destroy_optional(&to_free->user_defined_name);
    mem_destroy_optional(&to_free->unit_handle_to_ifc_basic_unit, &unitconvhandle_destroy);
    mem_free_and_clear(unit_conversion);
}

double unitconversion_apply(const kxUnitConversion *unit_conversion, double value) {
    kx_assert_not_null(unit_conversion);
    if (unit_conversion == nullptr) return value;
    if (unit_conversion->unit_handle_to_ifc_basic_unit != nullptr)
        value = unitconvhandle_apply(unit_conversion->unit_handle_to_ifc_basic_unit, value);
    switch (unit_conversion->type) {
    case UNIT_CONVERSION_NAMED:
    case UNIT_CONVERSION_DERIVED:
        return unit_conversion->value_handler != nullptr ? unit_conversion->value_handler(value) : value;
    case UNIT_CONVERSION_MONETARY:
        kx_assert(unit_conversion->func_custom_monetary_unit_handler != NULL);
        if (unit_conversion->func_custom_monetary_unit_handler == nullptr) return value;
        return unit_conversion->func_custom_monetary_unit_handler(value, unit_conversion->user_defined_name);
    default:
        kx_assert_unreachable();
        return value;
    }
}

int unitconversion_compare(const kxUnitConversion *unit_conversion1, const kxUnitConversion *unit_conversion2) {
    kx_assert_not_null(unit_conversion1);
    kx_assert_not_null(unit_conversion2);
    if (unit_conversion1 == nullptr || unit_conversion2 == nullptr) return 0;
    const UnitId unit_id1 = unit_id_of(unit_conversion1);
    const UnitId unit_id2 = unit_id_of(unit_conversion2);
    return compare_unit_ids(&unit_id1, &unit_id2);
}

int unitconversion_compare_with_named_unit(const kxUnitConversion *unit_conversion, const uint32_t *ifc_si_unit_name) {
    kx_assert_not_null(unit_conversion);
    kx_assert_not_null(ifc_si_unit_name);
    if (unit_conversion == nullptr || ifc_si_unit_name == nullptr) return 0;
    const UnitId unit_id1 = unit_id_of(unit_conversion);
    const UnitId unit_id2{UNIT_CONVERSION_NAMED, *ifc_si_unit_name, 0};
    return compare_unit_ids(&unit_id1, &unit_id2);
}

int unitconversion_compare_with_derived_unit(const kxUnitConversion *unit_conversion,
                                             const uint32_t *ifc_derived_unit_enum) {
    kx_assert_not_null(unit_conversion);
    kx_assert_not_null(ifc_derived_unit_enum);
    if (unit_conversion == nullptr || ifc_derived_unit_enum == nullptr) return 0;
    const UnitId unit_id1 = unit_id_of(unit_conversion);
    const UnitId unit_id2{UNIT_CONVERSION_DERIVED, 0, *ifc_derived_unit_enum};
    return compare_unit_ids(&unit_id1, &unit_id2);
}

uint32_t unitconversion_key(const kxUnitConversion *unit_conversion) {
    kx_assert_not_null(unit_conversion);
    if (unit_conversion == nullptr) return 0;
    switch (unit_conversion->type) {
    case UNIT_CONVERSION_NAMED: return unit_conversion->unit_name;
    case UNIT_CONVERSION_DERIVED: return unit_conversion->derived_unit;
    default: kx_assert_unreachable(); return 0;
    }
}

}  // namespace kx

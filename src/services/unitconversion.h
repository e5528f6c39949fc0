// Unit conversion building blocks: conversion handles (a linear map that can
// be composed of others and chained to a base), unit conversions (one IFC
// unit with its handle to the SI basic unit and the host's callback), their
// ordering by unit identity, and the small manager through which the units
// model conversor hands values to its conversion callbacks.
#pragma once

#include <cstdint>

#include "support/ptrarray.h"
#include "support/types.h"
#include "support/wstring.h"

struct kxBaseObject;

namespace kx {

// The measure types of the schema tables that carry a unit (named, derived
// or monetary): 84 of them. Counts of 90 include measure types without a
// unit (counts, ratios, parameters...), which are never converted.
constexpr uint32_t KXMEASURABLETYPE_NUM_VALUES = 84;

// ---- conversion handles ------------------------------------------------------

// v -> v * factor + offset, or, with sub-handlers, v passed through each of
// them in order; then through the base handle when there is one.
struct kxUnitConversionHandle {
    double factor;
    double offset;
    PtrArray *sub_handlers;                            // of kxUnitConversionHandle, owned, or NULL
    kxUnitConversionHandle *base_conversion_handler;   // owned, or NULL
};

// Takes both holders over (each may point to NULL) and clears them.
kxUnitConversionHandle *unitconvhandle_new_linear(double factor, double offset, PtrArray **sub_handlers,
                                                  kxUnitConversionHandle **base_conversion_handler);
// factor = base raised to the exponent, with the offset; no sub-handlers.
kxUnitConversionHandle *unitconvhandle_new_power(double base, double offset, int32_t exponent);
// The composition of the handles of the array, which it takes over.
kxUnitConversionHandle *unitconvhandle_new_composed(PtrArray **sub_handlers);
// Chains the base after the handle (once only) and takes it over.
void unitconvhandle_set_base(kxUnitConversionHandle *handle, kxUnitConversionHandle **base_conversion_handler);
// Destroys the sub-handlers, the base and the handle; the holder becomes NULL.
void unitconvhandle_destroy(kxUnitConversionHandle **handle);
double unitconvhandle_apply(const kxUnitConversionHandle *handle, double value);

// ---- unit conversions --------------------------------------------------------

enum kxUnitConversionType : uint32_t {
    UNIT_CONVERSION_NAMED = 0,     // an IfcUnitEnum (or IfcSIUnitName) value
    UNIT_CONVERSION_DERIVED = 1,   // an IfcDerivedUnitEnum value
    UNIT_CONVERSION_MONETARY = 2,
};

using UnitValueHandlerFn = double (*)(double value);
using MonetaryValueHandlerFn = double (*)(double value, const char16_t *currency);

struct kxUnitConversion {
    uint32_t type;                 // kxUnitConversionType
    uint32_t unit_name;            // named units
    uint32_t derived_unit;         // derived units
    WideString user_defined_name;  // the currency of a monetary unit, owned, or NULL
    kxUnitConversionHandle *unit_handle_to_ifc_basic_unit;  // owned, or NULL
    UnitValueHandlerFn value_handler;                        // named and derived units, or NULL
    MonetaryValueHandlerFn func_custom_monetary_unit_handler;
};

// Each takes the handle over and clears the holder.
kxUnitConversion *unitconversion_new_named(uint32_t unit_name, kxUnitConversionHandle **unit_handle_to_ifc_basic_unit,
                                           UnitValueHandlerFn value_handler);
kxUnitConversion *unitconversion_new_derived(uint32_t derived_unit,
                                             kxUnitConversionHandle **unit_handle_to_ifc_basic_unit,
                                             UnitValueHandlerFn value_handler);
// Takes the currency text over and clears the holder.
kxUnitConversion *unitconversion_new_monetary(WideString *currency, MonetaryValueHandlerFn monetary_handler);
void unitconversion_destroy(kxUnitConversion **unit_conversion);
double unitconversion_apply(const kxUnitConversion *unit_conversion, double value);

// Order by unit identity (type, unit name, derived unit): negative, 0 or
// positive. Both sides must be of the same type, named or derived.
int unitconversion_compare(const kxUnitConversion *unit_conversion1, const kxUnitConversion *unit_conversion2);
int unitconversion_compare_with_named_unit(const kxUnitConversion *unit_conversion, const uint32_t *ifc_si_unit_name);
int unitconversion_compare_with_derived_unit(const kxUnitConversion *unit_conversion,
                                             const uint32_t *ifc_derived_unit_enum);
// The key of a named or derived conversion in an OrderedPtrMap: its unit
// name or derived unit.
uint32_t unitconversion_key(const kxUnitConversion *unit_conversion);

// ---- manager -----------------------------------------------------------------

// Forced unit: values converted from now on are in this unit (an IfcNamedUnit,
// IfcDerivedUnit or IfcMonetaryUnit), or in their measure type's unit again
// for NULL.
using ForceConversionWithUnitFn = void (*)(void *context, kxBaseObject *unit);
// Converts a value of the measurable type (0 .. KXMEASURABLETYPE_NUM_VALUES - 1)
// into *converted_value.
using ApplyConversionDoubleFn = void (*)(void *context, uint32_t measurable_type, double value,
                                         double *converted_value);
// Converts an integer value of the measurable type in place.
using ApplyConversionLongFn = void (*)(void *context, uint32_t measurable_type, int32_t *value);

struct kxUnitConvManager {
    void *context;
    ForceConversionWithUnitFn func_force_conversion_with_unit;
    ApplyConversionDoubleFn func_apply_conversion_double;
    ApplyConversionLongFn func_apply_conversion_long;
};

kxUnitConvManager *unitconvmngr_new(void *context, ForceConversionWithUnitFn force_conversion_with_unit,
                                    ApplyConversionDoubleFn apply_conversion_double,
                                    ApplyConversionLongFn apply_conversion_long);
void unitconvmngr_destroy(kxUnitConvManager **manager);
void unitconvmngr_force_conversion_with_unit(const kxUnitConvManager *manager, kxBaseObject *unit);
// Without a callback *converted_value is the value unchanged.
void unitconvmngr_apply_conversion_double(const kxUnitConvManager *manager, uint32_t measurable_type, double value,
                                          double *converted_value);
void unitconvmngr_apply_conversion_long(const kxUnitConvManager *manager, uint32_t measurable_type, int32_t *value);

}  // namespace kx

#define KX_UNIT "kxunitsmodelconversor"
// The units model conversor: reads the model's unit assignment, builds one
// conversion per unit (its handle to the SI basic unit followed by the
// host's handler), converts first the values of the objects that state their
// own unit under that unit, then every other measure value of the model by
// the unit of its measure type.
//
// Values are found from the schema tables, not per class: every entity
// converts the measure-valued slots of its release's attributes (plain
// values and aggregates of them, nested ones too), and every select value of
// the model converts the member it holds. Instances referenced from a slot
// are instances of the model and are converted on their own turn.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "kxifc_units.h"

#include "core/baseobject.h"
#include "core/class.h"
#include "core/coretypes.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "schema/select.h"
#include "services/unitconversion.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/ptrarray.h"
#include "support/ptrmap.h"
#include "support/valuearray.h"
#include "support/wstring.h"

using namespace kx;

struct kxUnitsModelConversor {
    OrderedPtrMap *named_unit_handlers;    // of HandlerEntry, by IfcUnitEnum value
    OrderedPtrMap *derived_unit_handlers;  // of HandlerEntry, by IfcDerivedUnitEnum value
    kxUnitsModelConversorMonetaryHandler monetary_unit_handler;
    kx_bool16 apply_default_conversion;
};

namespace {

constexpr uint32_t NO_MEASURABLE_TYPE = ULONG_MAX32;
constexpr uint32_t MAX_RECURSION_LEVELS = 100;

// ---- handler entries ---------------------------------------------------------

struct HandlerEntry {
    uint32_t unit_type;
    WideString user_defined_name;  // owned, or NULL
    kxUnitsModelConversorUnitHandler handler;
};

uint32_t handler_entry_key(const HandlerEntry *entry) { return entry->unit_type; }

void handler_entry_destroy(HandlerEntry **entry) {
    wstr_destroy_optional(&(*entry)->user_defined_name);
    mem_free_and_clear(entry);
}

OrderedPtrMap *new_handler_map() {
    return orderedmap_create(callback<KeyFn, &handler_entry_key>(), nullptr,
                             callback<DestroyFn, &handler_entry_destroy>());
}

void insert_handler_entry(OrderedPtrMap *handlers, uint32_t unit_type, const kxWChar *user_defined_name,
                          kxUnitsModelConversorUnitHandler handler) {
    HandlerEntry *entry = mem_new_zeroed<HandlerEntry>();
    entry->unit_type = unit_type;
    entry->user_defined_name = wstr_copy_optional(user_defined_name);
    entry->handler = handler;
    orderedmap_insert(handlers, entry);
}

// The handler entry for a unit of the type. A unit known by its name (a
// context-dependent unit, or any USERDEFINED one) takes only the entry of
// that name, compared case-sensitively; any other unit takes the entry
// without a name, else the first entry of its type.
const HandlerEntry *find_handler_entry(OrderedPtrMap *handlers, uint32_t unit_type, const char16_t *unit_name) {
    uint32_t position = 0;
    if (orderedmap_exists(handlers, unit_type, &position) != CIERTO) return nullptr;
    const HandlerEntry *first_of_type = nullptr;
    for (uint32_t i = position; i < orderedmap_count(handlers); i++) {
        const HandlerEntry *entry = static_cast<const HandlerEntry *>(orderedmap_get(handlers, i));
        if (entry == nullptr || entry->unit_type != unit_type) break;
        if (unit_name != nullptr) {
            if (entry->user_defined_name != nullptr && wstr_compare(entry->user_defined_name, unit_name) == 0)
                return entry;
            continue;
        }
        if (entry->user_defined_name == nullptr) return entry;
        if (first_of_type == nullptr) first_of_type = entry;
    }
    return first_of_type;
}

bool is_user_defined_unit_type(int32_t unit_type) {
    return kxIfcUnitEnum_has_value(unit_type) == kxBTRUE &&
           wstr_equal(kxIfcUnitEnum_to_string(unit_type), u"USERDEFINED");
}

bool is_user_defined_derived_unit_type(int32_t derived_unit_type) {
    return kxIfcDerivedUnitEnum_has_value(derived_unit_type) == kxBTRUE &&
           wstr_equal(kxIfcDerivedUnitEnum_to_string(derived_unit_type), u"USERDEFINED");
}

// ---- the working record of one run -------------------------------------------

// A unit object met as the own unit of some values, with its conversion
// (NULL when none can be built).
struct UnitCacheEntry {
    kxBaseObject *unit;
    uint32_t unit_object_id;
    kxUnitConversion *unit_conversion;  // owned, or NULL
};

uint32_t cache_entry_key(const UnitCacheEntry *cache_entry) { return cache_entry->unit_object_id; }

void cache_entry_destroy(UnitCacheEntry **cache_entry) {
    mem_destroy_optional(&(*cache_entry)->unit_conversion, &unitconversion_destroy);
    mem_free_and_clear(cache_entry);
}

struct ConversionRun {
    const kxUnitsModelConversor *units_handler;
    OrderedPtrMap *named_units_conversions;    // of kxUnitConversion, by unit type
    OrderedPtrMap *derived_units_conversions;  // of kxUnitConversion, by derived unit type
    kxUnitConversion *monetary_unit_conversion;
    // Per measurable type: its conversion (borrowed) and whether it was looked for.
    PtrArray *units_conversion_per_measurable_type_cache;
    BoolArray *did_search_units_conversion_per_measurable_type_cache;
    OrderedPtrMap *units_conversion_per_unit_cache;  // of UnitCacheEntry, by object id
    kx_bool16 has_forced_unit;
    kxBaseObject *forced_unit;
    kxUnitConvManager *manager;
    // Where the measure types are in the schema tables.
    ULongArray *measurable_type_of_defined_type;     // per defined type, or NO_MEASURABLE_TYPE
    ULongArray *defined_type_of_measurable_type;     // per measurable type
    ULongArray *measurable_type_of_aggregate;        // per aggregate type: of its value elements
    uint32_t time_measurable_type;                   // IfcTimeMeasure
};

// Whether the aggregate type's elements are values of the defined type (plain
// REAL or INTEGER lists name no defined type).
bool aggregate_holds_defined_type(const AggregateInfo &info) {
    if (info.element_ref >= g_num_defined_types) return false;
    const DefinedTypeInfo &type = g_defined_types[info.element_ref];
    if (type.kind != info.element_kind) return false;
    const uint32_t keyword_length = wstr_length(info.keyword);
    const uint32_t name_length = wstr_length(type.name);
    return keyword_length >= name_length && wstr_equal(info.keyword + keyword_length - name_length, type.name);
}

void build_measurable_type_tables(ConversionRun *manager_data) {
    manager_data->measurable_type_of_defined_type = ulongarray_create(0);
    manager_data->defined_type_of_measurable_type = ulongarray_create(0);
    manager_data->time_measurable_type = NO_MEASURABLE_TYPE;
    for (uint32_t i = 0; i < g_num_defined_types; i++) {
        const DefinedTypeInfo &type = g_defined_types[i];
        const bool measurable = type.unit_kind != UNIT_NONE && (type.kind == SLOT_REAL || type.kind == SLOT_INTEGER);
        const uint32_t measurable_type = measurable ? ulongarray_count(manager_data->defined_type_of_measurable_type)
                                                    : NO_MEASURABLE_TYPE;
        ulongarray_append(manager_data->measurable_type_of_defined_type, measurable_type);
        if (measurable) ulongarray_append(manager_data->defined_type_of_measurable_type, i);
        if (measurable && wstr_equal(type.name, u"IfcTimeMeasure"))
            manager_data->time_measurable_type = measurable_type;
    }
    kx_assert(ulongarray_count(manager_data->defined_type_of_measurable_type) == KXMEASURABLETYPE_NUM_VALUES);
    manager_data->measurable_type_of_aggregate = ulongarray_create(0);
    for (uint32_t i = 0; i < g_num_aggregates; i++) {
        const AggregateInfo &info = g_aggregates[i];
        const bool of_values = (info.element_kind == SLOT_REAL || info.element_kind == SLOT_INTEGER) &&
                               aggregate_holds_defined_type(info);
        ulongarray_append(manager_data->measurable_type_of_aggregate,
                          of_values ? ulongarray_get(manager_data->measurable_type_of_defined_type, info.element_ref)
                                    : NO_MEASURABLE_TYPE);
    }
}

// The measurable type of a value stored as `kind` of the defined type, or
// NO_MEASURABLE_TYPE.
uint32_t measurable_type_of(const ConversionRun *manager_data, uint32_t defined_type, uint8_t kind) {
    if (defined_type >= g_num_defined_types || g_defined_types[defined_type].kind != kind) return NO_MEASURABLE_TYPE;
    return ulongarray_get(manager_data->measurable_type_of_defined_type, defined_type);
}

// ---- handles to the SI basic unit --------------------------------------------

struct PrefixFactor {
    const char16_t *name;
    double factor;
};

constexpr PrefixFactor kPrefixFactors[] = {
    {u"EXA", 1e18},  {u"PETA", 1e15}, {u"TERA", 1e12},  {u"GIGA", 1e9},    {u"MEGA", 1e6},   {u"KILO", 1e3},
    {u"HECTO", 100}, {u"DECA", 10},   {u"DECI", 0.1},   {u"CENTI", 0.01},  {u"MILLI", 0.001}, {u"MICRO", 1e-6},
    {u"NANO", 1e-9}, {u"PICO", 1e-12}, {u"FEMTO", 1e-15}, {u"ATTO", 1e-18},
};

double prefix_factor(kxIfcSIPrefix prefix) {
    if (kxIfcSIPrefix_has_value(prefix) != kxBTRUE) return 1.0;
    const char16_t *name = kxIfcSIPrefix_to_string(prefix);
    for (const PrefixFactor &known : kPrefixFactors)
        if (wstr_equal(name, known.name)) return known.factor;
    return 1.0;
}

// The scale of an SI unit to its basic unit: the prefix, squared or cubed
// for areas and volumes; the gram is a thousandth of the basic kilogram.
// Degrees Celsius keep their scale only, without an offset.
double si_unit_scale(kxBaseObject *si_unit) {
    double factor = prefix_factor(kxIfcSIUnit_get_Prefix(si_unit));
    const kxIfcSIUnitName name = kxIfcSIUnit_get_Name(si_unit);
    if (kxIfcSIUnitName_has_value(name) != kxBTRUE) return factor;
    const char16_t *text = kxIfcSIUnitName_to_string(name);
    if (wstr_equal(text, u"CUBIC_METRE"))
        factor = factor * factor * factor;
    else if (wstr_equal(text, u"SQUARE_METRE"))
        factor = factor * factor;
    else if (wstr_equal(text, u"GRAM"))
        factor = factor / 1000.0;
    return factor;
}

// The instance a select holds, or NULL; an instance given for a select is
// taken as it is.
kxBaseObject *instance_held_by(kxBaseObject *select_or_instance) {
    if (select_or_instance == nullptr) return nullptr;
    if (select_or_instance->object_class->is_entity) return select_or_instance;
    const kxSelectObject *select = reinterpret_cast<const kxSelectObject *>(select_or_instance);
    const SelectInfo *info = select_or_instance->object_class->select;
    if (info == nullptr || select->type == 0 || select->type > info->num_members) return nullptr;
    return info->members[select->type - 1].kind == SLOT_ENTITY ? select->value.object : nullptr;
}

// The number a value select holds (REAL or INTEGER members), or `otherwise`.
double numeric_value_of(const kxBaseObject *value, double otherwise) {
    if (value == nullptr || value->object_class->is_entity) return otherwise;
    const kxSelectObject *select = reinterpret_cast<const kxSelectObject *>(value);
    const SelectInfo *info = value->object_class->select;
    if (info == nullptr || select->type == 0 || select->type > info->num_members) return otherwise;
    switch (info->members[select->type - 1].kind) {
    case SLOT_REAL: return real_is_undefined(select->value.real) ? otherwise : select->value.real;
    case SLOT_INTEGER:
        return select->value.integer == kIntegerUndefined ? otherwise : static_cast<double>(select->value.integer);
    default: return otherwise;
    }
}

bool build_derived_unit_handle(kxBaseObject *derived_unit, uint32_t recursion_level, int32_t dimensional_exponent,
                               kxUnitConversionHandle **handle);

// The handle of a named unit to its SI basic unit, raised to the dimensional
// exponent; false for a unit that cannot be converted.
bool build_named_unit_handle(kxBaseObject *named_unit, uint32_t recursion_level, int32_t dimensional_exponent,
                             kxUnitConversionHandle **handle) {
    kx_assert(recursion_level < 100);
    if (recursion_level >= MAX_RECURSION_LEVELS) return false;
    if (baseobject_is_kind_of(named_unit, kxIfcSIUnit_class()) == CIERTO) {
        *handle = unitconvhandle_new_power(si_unit_scale(named_unit), 0.0, dimensional_exponent);
        return true;
    }
    if (baseobject_is_kind_of(named_unit, kxIfcContextDependentUnit_class()) == CIERTO) {
        *handle = unitconvhandle_new_power(1.0, 0.0, dimensional_exponent);
        return true;
    }
    if (baseobject_is_kind_of(named_unit, kxIfcConversionBasedUnit_class()) != CIERTO) return false;

    double offset = 0.0;
    if (baseobject_is_kind_of(named_unit, kxIfcConversionBasedUnitWithOffset_class()) == CIERTO &&
        kxIfcConversionBasedUnitWithOffset_ConversionOffset_has_value_v4(named_unit) == kxBTRUE) {
        offset = kxIfcConversionBasedUnitWithOffset_get_ConversionOffset_v4(named_unit);
        kx_assert(dimensional_exponent == 1);
    }
    kxBaseObject *conversion_factor = kxIfcConversionBasedUnit_get_ConversionFactor(named_unit);
    const double factor =
        conversion_factor != nullptr
            ? numeric_value_of(kxIfcMeasureWithUnit_get_ValueComponent(conversion_factor), 1.0)
            : 1.0;
    *handle = unitconvhandle_new_power(factor, offset, dimensional_exponent);
    if (conversion_factor == nullptr) return true;

    // The factor is stated in another unit, whose own way to the basic unit
    // follows this handle.
    kxBaseObject *base_unit = instance_held_by(kxIfcMeasureWithUnit_get_UnitComponent(conversion_factor));
    kxUnitConversionHandle *base_handle = nullptr;
    kx_bool16 did_get_conversion_to_base_handle = FALSO;
    if (base_unit != nullptr && baseobject_is_kind_of(base_unit, kxIfcNamedUnit_class()) == CIERTO)
        did_get_conversion_to_base_handle =
            build_named_unit_handle(base_unit, recursion_level + 1, dimensional_exponent, &base_handle) ? CIERTO
                                                                                                        : FALSO;
    else if (base_unit != nullptr && baseobject_is_kind_of(base_unit, kxIfcDerivedUnit_class()) == CIERTO)
        did_get_conversion_to_base_handle =
            build_derived_unit_handle(base_unit, recursion_level + 1, dimensional_exponent, &base_handle) ? CIERTO
                                                                                                          : FALSO;
    kx_assert(did_get_conversion_to_base_handle == CIERTO);
    if (did_get_conversion_to_base_handle == CIERTO) unitconvhandle_set_base(*handle, &base_handle);
    return true;
}

// The handle of one element of a derived unit: its unit raised to the
// element's exponent.
bool build_element_handle(kxBaseObject *named_unit, uint32_t recursion_level, int32_t dimensional_exponent,
                          kxUnitConversionHandle **handle) {
    kx_assert(dimensional_exponent != 0);
    return build_named_unit_handle(named_unit, recursion_level, dimensional_exponent, handle);
}

// The handle of a derived unit: its elements' handles, each raised to the
// element's exponent, one after the other.
bool build_derived_unit_handle(kxBaseObject *derived_unit, uint32_t recursion_level, int32_t dimensional_exponent,
                               kxUnitConversionHandle **handle) {
    kx_assert(recursion_level < 100);
    if (recursion_level >= MAX_RECURSION_LEVELS) return false;
    const kxAggregate *elements = kxIfcDerivedUnit_get_Elements(derived_unit);
    const uint32_t num_elements = elements != nullptr ? aggregate_count(elements) : 0;
    if (num_elements == 0) return false;
    PtrArray *sub_handlers = ptrarray_create_with_capacity(0, num_elements);
    bool converted = true;
    for (uint32_t i = 0; i < num_elements && converted; i++) {
        kxBaseObject *element = aggregate_get_object(elements, i);
        kxBaseObject *unit = element != nullptr ? kxIfcDerivedUnitElement_get_Unit(element) : nullptr;
        const int32_t exponent = element != nullptr ? kxIfcDerivedUnitElement_get_Exponent(element) : kIntegerUndefined;
        if (unit == nullptr || exponent == kIntegerUndefined) {
            converted = false;
            break;
        }
        kxUnitConversionHandle *element_handle = nullptr;
        converted = build_element_handle(unit, recursion_level + 1, exponent * dimensional_exponent, &element_handle);
        if (converted) ptrarray_append(sub_handlers, element_handle);
    }
    if (!converted) {
        ptrarray_destroy(&sub_handlers, callback<DestroyFn, &unitconvhandle_destroy>());
        return false;
    }
    *handle = unitconvhandle_new_composed(&sub_handlers);
    return true;
}

// ---- unit conversions of unit objects ----------------------------------------

// The conversion of a named unit: with the host's handler of its type, or by
// default; NULL when neither applies or the unit cannot be converted.
// USERDEFINED units are converted only where they are the own unit of some
// values (`by_name_allowed`), matched to a handler by their name.
kxUnitConversion *build_named_unit_conversion(const kxUnitsModelConversor *units_handler, kxBaseObject *named_unit,
                                              bool by_name_allowed) {
    const kxIfcUnitEnum unit_type = kxIfcNamedUnit_get_UnitType(named_unit);
    if (kxIfcUnitEnum_has_value(unit_type) != kxBTRUE) return nullptr;
    const bool user_defined = is_user_defined_unit_type(unit_type);
    if (user_defined && !by_name_allowed) return nullptr;
    const char16_t *unit_name = nullptr;
    if (baseobject_is_kind_of(named_unit, kxIfcContextDependentUnit_class()) == CIERTO)
        unit_name = kxIfcContextDependentUnit_get_Name(named_unit);
    else if (user_defined && baseobject_is_kind_of(named_unit, kxIfcConversionBasedUnit_class()) == CIERTO)
        unit_name = kxIfcConversionBasedUnit_get_Name(named_unit);
    if (user_defined && unit_name == nullptr) return nullptr;
    const HandlerEntry *entry =
        find_handler_entry(units_handler->named_unit_handlers, static_cast<uint32_t>(unit_type), unit_name);
    if (entry == nullptr && units_handler->apply_default_conversion != CIERTO) return nullptr;
    kxUnitConversionHandle *handle = nullptr;
    if (!build_named_unit_handle(named_unit, 0, 1, &handle)) return nullptr;
    return unitconversion_new_named(static_cast<uint32_t>(unit_type), &handle,
                                    entry != nullptr ? entry->handler : nullptr);
}

kxUnitConversion *build_derived_unit_conversion(const kxUnitsModelConversor *units_handler, kxBaseObject *derived_unit,
                                                bool by_name_allowed) {
    const kxIfcDerivedUnitEnum unit_type = kxIfcDerivedUnit_get_UnitType(derived_unit);
    if (kxIfcDerivedUnitEnum_has_value(unit_type) != kxBTRUE) return nullptr;
    const bool user_defined = is_user_defined_derived_unit_type(unit_type);
    if (user_defined && !by_name_allowed) return nullptr;
    const char16_t *unit_name = user_defined ? kxIfcDerivedUnit_get_UserDefinedType(derived_unit) : nullptr;
    if (user_defined && unit_name == nullptr) return nullptr;
    const HandlerEntry *entry =
        find_handler_entry(units_handler->derived_unit_handlers, static_cast<uint32_t>(unit_type), unit_name);
    if (entry == nullptr && units_handler->apply_default_conversion != CIERTO) return nullptr;
    kxUnitConversionHandle *handle = nullptr;
    if (!build_derived_unit_handle(derived_unit, 0, 1, &handle)) return nullptr;
    return unitconversion_new_derived(static_cast<uint32_t>(unit_type), &handle,
                                      entry != nullptr ? entry->handler : nullptr);
}

// The conversion of a monetary unit through the host's monetary handler;
// NULL without one (monetary values are then left alone).
kxUnitConversion *build_monetary_unit_conversion(const kxUnitsModelConversor *units_handler,
                                                 kxBaseObject *monetary_unit) {
    if (units_handler->monetary_unit_handler == nullptr) return nullptr;
    WideString currency = nullptr;
    if (baseobject_version(monetary_unit) == KXIFCVERSION_IFC_4) {
        currency = wstr_copy_optional(kxIfcMonetaryUnit_get_Currency_v4(monetary_unit));
    } else {
        const kxIfcCurrencyEnum code = kxIfcMonetaryUnit_get_Currency_v2x3(monetary_unit);
        if (kxIfcCurrencyEnum_has_value(code) == kxBTRUE) currency = wstr_copy(kxIfcCurrencyEnum_to_string(code));
    }
    kxUnitConversion *monetary_unit_conversion =
        unitconversion_new_monetary(&currency, units_handler->monetary_unit_handler);
    kx_assert_not_null(monetary_unit_conversion);
    return monetary_unit_conversion;
}

// The conversion of any unit object, by its kind; NULL when there is none.
kxUnitConversion *build_unit_conversion(const kxUnitsModelConversor *units_handler, kxBaseObject *unit) {
    if (unit == nullptr) return nullptr;
    if (baseobject_is_kind_of(unit, kxIfcNamedUnit_class()) == CIERTO)
        return build_named_unit_conversion(units_handler, unit, true);
    if (baseobject_is_kind_of(unit, kxIfcDerivedUnit_class()) == CIERTO)
        return build_derived_unit_conversion(units_handler, unit, true);
    if (baseobject_is_kind_of(unit, kxIfcMonetaryUnit_class()) == CIERTO)
        return build_monetary_unit_conversion(units_handler, unit);
    return nullptr;
}

OrderedPtrMap *new_conversion_map() {
    return orderedmap_create(callback<KeyFn, &unitconversion_key>(), nullptr,
                             callback<DestroyFn, &unitconversion_destroy>());
}

// The conversion of that unit type in the map, or NULL.
kxUnitConversion *conversion_with_key(OrderedPtrMap *units_conversions, uint32_t unit_type) {
    uint32_t position = 0;
    if (orderedmap_exists(units_conversions, unit_type, &position) != CIERTO) return nullptr;
    return static_cast<kxUnitConversion *>(orderedmap_get(units_conversions, position));
}

kxUnitConversion *named_unit_conversion_of(OrderedPtrMap *named_units_conversions, uint32_t unit_type) {
    kx_assert_not_null(named_units_conversions);
    return named_units_conversions != nullptr ? conversion_with_key(named_units_conversions, unit_type) : nullptr;
}

kxUnitConversion *derived_unit_conversion_of(OrderedPtrMap *derived_units_conversions, uint32_t unit_type) {
    kx_assert_not_null(derived_units_conversions);
    return derived_units_conversions != nullptr ? conversion_with_key(derived_units_conversions, unit_type) : nullptr;
}

// One conversion per unit type of the assignment: the first unit of a type
// wins; units of no type, USERDEFINED or unconvertible ones are skipped.
void build_assignment_conversions(ConversionRun *manager_data, const kxAggregate *units) {
    const kxUnitsModelConversor *units_handler = manager_data->units_handler;
    const uint32_t count = aggregate_count(units);
    for (uint32_t i = 0; i < count; i++) {
        kxBaseObject *unit = instance_held_by(aggregate_get_object(units, i));
        if (unit == nullptr) continue;
        if (baseobject_is_kind_of(unit, kxIfcNamedUnit_class()) == CIERTO) {
            const kxIfcUnitEnum unit_type = kxIfcNamedUnit_get_UnitType(unit);
            if (kxIfcUnitEnum_has_value(unit_type) != kxBTRUE || is_user_defined_unit_type(unit_type)) continue;
            if (named_unit_conversion_of(manager_data->named_units_conversions, static_cast<uint32_t>(unit_type)))
                continue;
            kxUnitConversion *unit_conversion = build_named_unit_conversion(units_handler, unit, false);
            if (unit_conversion != nullptr) orderedmap_insert(manager_data->named_units_conversions, unit_conversion);
        } else if (baseobject_is_kind_of(unit, kxIfcDerivedUnit_class()) == CIERTO) {
            const kxIfcDerivedUnitEnum unit_type = kxIfcDerivedUnit_get_UnitType(unit);
            if (kxIfcDerivedUnitEnum_has_value(unit_type) != kxBTRUE || is_user_defined_derived_unit_type(unit_type))
                continue;
            if (derived_unit_conversion_of(manager_data->derived_units_conversions, static_cast<uint32_t>(unit_type)))
                continue;
            kxUnitConversion *unit_conversion = build_derived_unit_conversion(units_handler, unit, false);
            if (unit_conversion != nullptr)
                orderedmap_insert(manager_data->derived_units_conversions, unit_conversion);
        } else if (baseobject_is_kind_of(unit, kxIfcMonetaryUnit_class()) == CIERTO) {
            if (manager_data->monetary_unit_conversion == nullptr)
                manager_data->monetary_unit_conversion = build_monetary_unit_conversion(units_handler, unit);
        }
    }
}

// ---- the manager's callbacks -------------------------------------------------

void force_conversion_with_unit(void *context, kxBaseObject *unit) {
    ConversionRun *manager_data = static_cast<ConversionRun *>(context);
    kx_assert_not_null(manager_data);
    if (manager_data == nullptr) return;
    manager_data->has_forced_unit = unit != nullptr ? CIERTO : FALSO;
    manager_data->forced_unit = unit;
}

// The conversion of the forced unit, built on first use and kept, also when
// there is none.
const kxUnitConversion *forced_unit_conversion(ConversionRun *manager_data) {
    kxBaseObject *unit = manager_data->forced_unit;
    OrderedPtrMap *cache = manager_data->units_conversion_per_unit_cache;
    uint32_t position = 0;
    if (orderedmap_exists(cache, unit->object_id, &position) == CIERTO) {
        for (uint32_t i = position; i < orderedmap_count(cache); i++) {
            const UnitCacheEntry *cache_entry = static_cast<const UnitCacheEntry *>(orderedmap_get(cache, i));
            kx_assert_not_null(cache_entry);
            if (cache_entry == nullptr || cache_entry->unit_object_id != unit->object_id) break;
            if (cache_entry->unit == unit) return cache_entry->unit_conversion;
        }
    }
    UnitCacheEntry *cache_entry = mem_new_zeroed<UnitCacheEntry>();
    cache_entry->unit = unit;
    cache_entry->unit_object_id = unit->object_id;
    cache_entry->unit_conversion = build_unit_conversion(manager_data->units_handler, unit);
    orderedmap_insert(cache, cache_entry);
    return cache_entry->unit_conversion;
}

// The conversion of a measurable type's unit, looked for once per run.
const kxUnitConversion *measurable_type_conversion(ConversionRun *manager_data, uint32_t idx_of_measurable_type) {
    kx_assert(idx_of_measurable_type < KXMEASURABLETYPE_NUM_VALUES);
    if (idx_of_measurable_type >= KXMEASURABLETYPE_NUM_VALUES) return nullptr;
    PtrArray *cache = manager_data->units_conversion_per_measurable_type_cache;
    BoolArray *searched = manager_data->did_search_units_conversion_per_measurable_type_cache;
    kx_assert(ptrarray_count(cache) == KXMEASURABLETYPE_NUM_VALUES);
    kx_assert(boolarray_count(searched) == KXMEASURABLETYPE_NUM_VALUES);
    if (boolarray_get(searched, idx_of_measurable_type) == CIERTO)
        return static_cast<const kxUnitConversion *>(ptrarray_get(cache, idx_of_measurable_type));

    const uint32_t defined_type = ulongarray_get(manager_data->defined_type_of_measurable_type, idx_of_measurable_type);
    const DefinedTypeInfo &type = g_defined_types[defined_type];
    const uint32_t unit_type = type.unit_type;
    kxUnitConversion *unit_conversion = nullptr;
    switch (type.unit_kind) {
    case UNIT_NAMED:
        kx_assert(unit_type != 0 && !is_user_defined_unit_type(static_cast<int32_t>(unit_type)));
        unit_conversion = named_unit_conversion_of(manager_data->named_units_conversions, unit_type);
        break;
    case UNIT_DERIVED:
        kx_assert(unit_type != 0 && !is_user_defined_derived_unit_type(static_cast<int32_t>(unit_type)));
        unit_conversion = derived_unit_conversion_of(manager_data->derived_units_conversions, unit_type);
        break;
    case UNIT_MONETARY:
        unit_conversion = manager_data->monetary_unit_conversion;
        break;
    default:
        kx_assert_unreachable();
        break;
    }
    ptrarray_set(cache, idx_of_measurable_type, unit_conversion);
    boolarray_set(searched, idx_of_measurable_type, CIERTO);
    return unit_conversion;
}

void apply_conversion_double(void *context, uint32_t measurable_type, double value, double *converted_value) {
    ConversionRun *manager_data = static_cast<ConversionRun *>(context);
    kx_assert_not_null(manager_data);
    *converted_value = value;
    if (manager_data == nullptr || real_is_undefined(value)) return;
    const kxUnitConversion *unit_conversion = manager_data->has_forced_unit == CIERTO
                                                  ? forced_unit_conversion(manager_data)
                                                  : measurable_type_conversion(manager_data, measurable_type);
    if (unit_conversion != nullptr) *converted_value = unitconversion_apply(unit_conversion, value);
}

// Toward zero; kept inside the integers that are values (the largest one is
// the unset mark). A result that is not a number leaves the value as it was.
int32_t truncated(double value, int32_t otherwise) {
    if (std::isnan(value)) return otherwise;
    const double whole = std::trunc(value);
    if (whole >= static_cast<double>(kIntegerUndefined)) return kIntegerUndefined - 1;
    if (whole <= static_cast<double>(INT32_MIN)) return INT32_MIN;
    return static_cast<int32_t>(whole);
}

void apply_conversion_long(void *context, uint32_t measurable_type, int32_t *value) {
    kx_assert_not_null(value);
    if (value == nullptr || *value == kIntegerUndefined) return;
    double converted = 0.0;
    apply_conversion_double(context, measurable_type, static_cast<double>(*value), &converted);
    *value = truncated(converted, *value);
}

// ---- converting instances ----------------------------------------------------

void convert_real(const ConversionRun *manager_data, uint32_t measurable_type, double *value) {
    double converted = *value;
    unitconvmngr_apply_conversion_double(manager_data->manager, measurable_type, *value, &converted);
    *value = converted;
}

void convert_aggregate(const ConversionRun *manager_data, kxAggregate *aggregate, uint32_t aggregate_index) {
    if (aggregate == nullptr || aggregate_index >= g_num_aggregates) return;
    const AggregateInfo &info = g_aggregates[aggregate_index];
    switch (info.element_kind) {
    case SLOT_REAL:
    case SLOT_INTEGER: {
        const uint32_t measurable_type = ulongarray_get(manager_data->measurable_type_of_aggregate, aggregate_index);
        if (measurable_type == NO_MEASURABLE_TYPE) return;
        for (uint32_t i = 0; i < aggregate->count; i++) {
            if (info.element_kind == SLOT_REAL)
                convert_real(manager_data, measurable_type, &aggregate->items[i].real);
            else
                unitconvmngr_apply_conversion_long(manager_data->manager, measurable_type,
                                                   &aggregate->items[i].integer);
        }
        return;
    }
    case SLOT_AGGREGATE:
        for (uint32_t i = 0; i < aggregate->count; i++)
            convert_aggregate(manager_data, aggregate->items[i].aggregate, info.element_ref);
        return;
    default:
        // Instances and select values are instances of the model, converted
        // on their own turn.
        return;
    }
}

void convert_select_value(const ConversionRun *manager_data, kxSelectObject *select) {
    const SelectInfo *info = select->base.object_class->select;
    if (info == nullptr || select->type == 0 || select->type > info->num_members) return;
    const SelectMember &member = info->members[select->type - 1];
    switch (member.kind) {
    case SLOT_REAL: {
        const uint32_t measurable_type = measurable_type_of(manager_data, member.type_ref, SLOT_REAL);
        if (measurable_type != NO_MEASURABLE_TYPE) convert_real(manager_data, measurable_type, &select->value.real);
        return;
    }
    case SLOT_INTEGER: {
        const uint32_t measurable_type = measurable_type_of(manager_data, member.type_ref, SLOT_INTEGER);
        if (measurable_type != NO_MEASURABLE_TYPE)
            unitconvmngr_apply_conversion_long(manager_data->manager, measurable_type, &select->value.integer);
        return;
    }
    case SLOT_AGGREGATE:
        if (member.type_ref < g_num_defined_types)
            convert_aggregate(manager_data, select->value.aggregate, g_defined_types[member.type_ref].type_ref);
        return;
    default:
        return;
    }
}

void convert_entity(const ConversionRun *manager_data, kxBaseObject *instance) {
    const ClassRelease *release = class_release(instance->object_class, instance->ifc_version);
    if (release == nullptr) return;
    for (uint32_t i = 0; i < release->num_attrs; i++) {
        const AttrRef &attr = release->attrs[i];
        if (attr.derived != 0) continue;
        const SlotInfo &slot = g_slots[attr.slot];
        switch (slot.kind) {
        case SLOT_REAL: {
            const uint32_t measurable_type = measurable_type_of(manager_data, slot.value_type, SLOT_REAL);
            if (measurable_type != NO_MEASURABLE_TYPE)
                convert_real(manager_data, measurable_type, &record_slot<double>(instance, attr.offset));
            break;
        }
        case SLOT_INTEGER: {
            const uint32_t measurable_type = measurable_type_of(manager_data, slot.value_type, SLOT_INTEGER);
            if (measurable_type != NO_MEASURABLE_TYPE)
                unitconvmngr_apply_conversion_long(manager_data->manager, measurable_type,
                                                   &record_slot<int32_t>(instance, attr.offset));
            break;
        }
        case SLOT_AGGREGATE:
            convert_aggregate(manager_data, record_slot<kxAggregate *>(instance, attr.offset), slot.type_ref);
            break;
        default:
            break;
        }
    }
}

// Converts each measure value the instance holds itself.
void convert_instance(const ConversionRun *manager_data, kxBaseObject *instance) {
    if (instance == nullptr || !baseobject_check(instance)) return;
    if (instance->object_class->is_entity)
        convert_entity(manager_data, instance);
    else
        convert_select_value(manager_data, reinterpret_cast<kxSelectObject *>(instance));
}

void convert_visited_instance(kxBaseObject *instance, void *user_data, int32_t *) {
    convert_instance(static_cast<const ConversionRun *>(user_data), instance);
}

// ---- objects that state their own unit ---------------------------------------

// Converts a value (a select of the model) under the forced unit, once.
void convert_own_unit_value(const ConversionRun *manager_data, kxBaseObject *value) {
    if (value == nullptr || baseobject_has_been_visited(value) == CIERTO) return;
    convert_instance(manager_data, value);
    baseobject_mark_as_visited(value);
}

void convert_own_unit_values(const ConversionRun *manager_data, const kxAggregate *values) {
    if (values == nullptr) return;
    for (uint32_t i = 0; i < aggregate_count(values); i++)
        convert_own_unit_value(manager_data, aggregate_get_object(values, i));
}

// Forces the unit a unit attribute holds; false (nothing forced) when unset.
bool force_unit(const ConversionRun *manager_data, kxBaseObject *unit_attribute) {
    kxBaseObject *unit = instance_held_by(unit_attribute);
    if (unit == nullptr) return false;
    unitconvmngr_force_conversion_with_unit(manager_data->manager, unit);
    return true;
}

void release_forced_unit(const ConversionRun *manager_data) {
    unitconvmngr_force_conversion_with_unit(manager_data->manager, nullptr);
}

// Each returns whether it converted something under the object's unit.
using OwnUnitConversionFn = bool (*)(const ConversionRun *manager_data, kxBaseObject *instance);

bool convert_property_bounded_value(const ConversionRun *manager_data, kxBaseObject *instance) {
    kxBaseObject *upper = kxIfcPropertyBoundedValue_get_UpperBoundValue(instance);
    kxBaseObject *lower = kxIfcPropertyBoundedValue_get_LowerBoundValue(instance);
    // The set point of IFC4 is stated in the same unit as the bounds.
    kxBaseObject *set_point = kxIfcPropertyBoundedValue_get_SetPointValue_v4(instance);
    if (upper == nullptr && lower == nullptr && set_point == nullptr) return false;
    if (!force_unit(manager_data, kxIfcPropertyBoundedValue_get_Unit(instance))) return false;
    convert_own_unit_value(manager_data, upper);
    convert_own_unit_value(manager_data, lower);
    convert_own_unit_value(manager_data, set_point);
    release_forced_unit(manager_data);
    return true;
}

bool convert_property_enumeration(const ConversionRun *manager_data, kxBaseObject *instance) {
    const kxAggregate *values = kxIfcPropertyEnumeration_get_EnumerationValues(instance);
    if (values == nullptr || !force_unit(manager_data, kxIfcPropertyEnumeration_get_Unit(instance))) return false;
    convert_own_unit_values(manager_data, values);
    release_forced_unit(manager_data);
    return true;
}

bool convert_property_list_value(const ConversionRun *manager_data, kxBaseObject *instance) {
    const kxAggregate *values = kxIfcPropertyListValue_get_ListValues(instance);
    if (values == nullptr || !force_unit(manager_data, kxIfcPropertyListValue_get_Unit(instance))) return false;
    convert_own_unit_values(manager_data, values);
    release_forced_unit(manager_data);
    return true;
}

bool convert_property_single_value(const ConversionRun *manager_data, kxBaseObject *instance) {
    kxBaseObject *value = kxIfcPropertySingleValue_get_NominalValue(instance);
    if (value == nullptr || !force_unit(manager_data, kxIfcPropertySingleValue_get_Unit(instance))) return false;
    convert_own_unit_value(manager_data, value);
    release_forced_unit(manager_data);
    return true;
}

bool convert_property_table_value(const ConversionRun *manager_data, kxBaseObject *instance) {
    bool converted = false;
    const kxAggregate *defining_values = kxIfcPropertyTableValue_get_DefiningValues(instance);
    if (defining_values != nullptr &&
        force_unit(manager_data, kxIfcPropertyTableValue_get_DefiningUnit(instance))) {
        convert_own_unit_values(manager_data, defining_values);
        release_forced_unit(manager_data);
        converted = true;
    }
    const kxAggregate *defined_values = kxIfcPropertyTableValue_get_DefinedValues(instance);
    if (defined_values != nullptr && force_unit(manager_data, kxIfcPropertyTableValue_get_DefinedUnit(instance))) {
        convert_own_unit_values(manager_data, defined_values);
        release_forced_unit(manager_data);
        converted = true;
    }
    return converted;
}

// The ListValues of each time series value of the list.
void convert_time_series_values(const ConversionRun *manager_data, const kxAggregate *values, bool irregular) {
    if (values == nullptr) return;
    for (uint32_t i = 0; i < aggregate_count(values); i++) {
        kxBaseObject *value = aggregate_get_object(values, i);
        if (value == nullptr) continue;
        convert_own_unit_values(manager_data, irregular ? kxIfcIrregularTimeSeriesValue_get_ListValues(value)
                                                        : kxIfcTimeSeriesValue_get_ListValues(value));
    }
}

bool convert_irregular_time_series(const ConversionRun *manager_data, kxBaseObject *instance) {
    const kxAggregate *values = kxIfcIrregularTimeSeries_get_Values(instance);
    if (values == nullptr || !force_unit(manager_data, kxIfcIrregularTimeSeries_get_Unit(instance))) return false;
    convert_time_series_values(manager_data, values, true);
    release_forced_unit(manager_data);
    return true;
}

// The time step goes under the series' unit like its values.
bool convert_regular_time_series(const ConversionRun *manager_data, kxBaseObject *instance) {
    const kxAggregate *values = kxIfcRegularTimeSeries_get_Values(instance);
    double time_step = kxIfcRegularTimeSeries_get_TimeStep(instance);
    if (values == nullptr && real_is_undefined(time_step)) return false;
    if (!force_unit(manager_data, kxIfcRegularTimeSeries_get_Unit(instance))) return false;
    if (!real_is_undefined(time_step)) {
        convert_real(manager_data, manager_data->time_measurable_type, &time_step);
        kxIfcRegularTimeSeries_set_TimeStep(instance, time_step);
    }
    convert_time_series_values(manager_data, values, false);
    release_forced_unit(manager_data);
    return true;
}

// Each column with a unit: its cell in every row of as many cells as there
// are columns.
bool convert_table(const ConversionRun *manager_data, kxBaseObject *instance) {
    const kxAggregate *columns = kxIfcTable_get_Columns_v4(instance);
    const kxAggregate *rows = kxIfcTable_get_Rows(instance);
    if (columns == nullptr || rows == nullptr) return false;
    const uint32_t num_columns = aggregate_count(columns);
    bool converted = false;
    for (uint32_t column = 0; column < num_columns; column++) {
        kxBaseObject *table_column = aggregate_get_object(columns, column);
        if (table_column == nullptr || !force_unit(manager_data, kxIfcTableColumn_get_Unit_v4(table_column))) continue;
        for (uint32_t row = 0; row < aggregate_count(rows); row++) {
            kxBaseObject *table_row = aggregate_get_object(rows, row);
            const kxAggregate *cells = table_row != nullptr ? kxIfcTableRow_get_RowCells(table_row) : nullptr;
            if (cells != nullptr && aggregate_count(cells) == num_columns)
                convert_own_unit_value(manager_data, aggregate_get_object(cells, column));
        }
        release_forced_unit(manager_data);
        converted = true;
    }
    return converted;
}

// A measure stated with its unit (outside unit definitions, see below).
bool convert_measure_with_unit(const ConversionRun *manager_data, kxBaseObject *instance) {
    kxBaseObject *value = kxIfcMeasureWithUnit_get_ValueComponent(instance);
    if (value == nullptr || !force_unit(manager_data, kxIfcMeasureWithUnit_get_UnitComponent(instance))) return false;
    convert_own_unit_value(manager_data, value);
    release_forced_unit(manager_data);
    return true;
}

// A quantity whose Unit is set is stated in that unit, not in the global one.
bool convert_physical_simple_quantity(const ConversionRun *manager_data, kxBaseObject *instance) {
    if (!force_unit(manager_data, kxIfcPhysicalSimpleQuantity_get_Unit(instance))) return false;
    convert_instance(manager_data, instance);
    release_forced_unit(manager_data);
    return true;
}

void convert_objects_of_class(const ConversionRun *manager_data, kxIfcModel *ifc_model, const kxClass_t *klass,
                              OwnUnitConversionFn convert) {
    kxArrayST *objects = kxIfcModel_dontuse_get_objects_by_class(ifc_model, klass);
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(objects); i++) {
        kxBaseObject *instance = static_cast<kxBaseObject *>(kxArrayST_dontuse_get(objects, i));
        if (instance == nullptr || baseobject_has_been_visited(instance) == CIERTO) continue;
        if (convert(manager_data, instance)) baseobject_mark_as_visited(instance);
    }
    kxArrayST_dontuse_free(&objects, nullptr);
}

// The measures that define conversion-based units describe units, not data:
// they keep their numbers.
void keep_unit_definitions(kxIfcModel *ifc_model) {
    kxArrayST *units = kxIfcModel_dontuse_get_objects_by_class(ifc_model, kxIfcConversionBasedUnit_class());
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(units); i++) {
        kxBaseObject *unit = static_cast<kxBaseObject *>(kxArrayST_dontuse_get(units, i));
        kxBaseObject *conversion_factor = kxIfcConversionBasedUnit_get_ConversionFactor(unit);
        if (conversion_factor == nullptr) continue;
        baseobject_mark_as_visited(conversion_factor);
        kxBaseObject *value = kxIfcMeasureWithUnit_get_ValueComponent(conversion_factor);
        if (value != nullptr) baseobject_mark_as_visited(value);
    }
    kxArrayST_dontuse_free(&units, nullptr);
}

void convert_objects_with_own_unit(const ConversionRun *manager_data, kxIfcModel *ifc_model) {
    keep_unit_definitions(ifc_model);
    convert_objects_of_class(manager_data, ifc_model, kxIfcPropertyBoundedValue_class(),
                             &convert_property_bounded_value);
    convert_objects_of_class(manager_data, ifc_model, kxIfcPropertyEnumeration_class(),
                             &convert_property_enumeration);
    convert_objects_of_class(manager_data, ifc_model, kxIfcPropertyListValue_class(), &convert_property_list_value);
    convert_objects_of_class(manager_data, ifc_model, kxIfcPropertySingleValue_class(),
                             &convert_property_single_value);
    convert_objects_of_class(manager_data, ifc_model, kxIfcPropertyTableValue_class(),
                             &convert_property_table_value);
    convert_objects_of_class(manager_data, ifc_model, kxIfcIrregularTimeSeries_class(),
                             &convert_irregular_time_series);
    convert_objects_of_class(manager_data, ifc_model, kxIfcRegularTimeSeries_class(), &convert_regular_time_series);
    if (kxIfcModel_ifc_version(ifc_model) == KXIFCVERSION_IFC_4)
        convert_objects_of_class(manager_data, ifc_model, kxIfcTable_class(), &convert_table);
    convert_objects_of_class(manager_data, ifc_model, kxIfcMeasureWithUnit_class(), &convert_measure_with_unit);
    convert_objects_of_class(manager_data, ifc_model, kxIfcPhysicalSimpleQuantity_class(),
                             &convert_physical_simple_quantity);
}

// ---- one run -----------------------------------------------------------------

void run_begin(ConversionRun *manager_data, const kxUnitsModelConversor *units_handler) {
    manager_data->units_handler = units_handler;
    manager_data->named_units_conversions = new_conversion_map();
    manager_data->derived_units_conversions = new_conversion_map();
    build_measurable_type_tables(manager_data);
}

void run_create_caches(ConversionRun *manager_data) {
    manager_data->units_conversion_per_measurable_type_cache =
        ptrarray_create_with_capacity(0, KXMEASURABLETYPE_NUM_VALUES);
    manager_data->did_search_units_conversion_per_measurable_type_cache = boolarray_create(0);
    for (uint32_t i = 0; i < KXMEASURABLETYPE_NUM_VALUES; i++) {
        ptrarray_append(manager_data->units_conversion_per_measurable_type_cache, nullptr);
        boolarray_append(manager_data->did_search_units_conversion_per_measurable_type_cache, FALSO);
    }
    manager_data->units_conversion_per_unit_cache = orderedmap_create(
        callback<KeyFn, &cache_entry_key>(), nullptr, callback<DestroyFn, &cache_entry_destroy>());
    manager_data->manager =
        unitconvmngr_new(manager_data, &force_conversion_with_unit, &apply_conversion_double, &apply_conversion_long);
}

void run_end(ConversionRun *manager_data) {
    if (manager_data->manager != nullptr) unitconvmngr_destroy(&manager_data->manager);
    if (manager_data->units_conversion_per_unit_cache != nullptr)
        orderedmap_destroy(&manager_data->units_conversion_per_unit_cache);
    if (manager_data->units_conversion_per_measurable_type_cache != nullptr)
        ptrarray_destroy_const(&manager_data->units_conversion_per_measurable_type_cache);
    if (manager_data->did_search_units_conversion_per_measurable_type_cache != nullptr)
        boolarray_destroy(&manager_data->did_search_units_conversion_per_measurable_type_cache);
    mem_destroy_optional(&manager_data->monetary_unit_conversion, &unitconversion_destroy);
    orderedmap_destroy(&manager_data->derived_units_conversions);
    orderedmap_destroy(&manager_data->named_units_conversions);
    ulongarray_destroy(&manager_data->measurable_type_of_aggregate);
    ulongarray_destroy(&manager_data->defined_type_of_measurable_type);
    ulongarray_destroy(&manager_data->measurable_type_of_defined_type);
}

}  // namespace

extern "C" {

KX_API kxUnitsModelConversor *kxUnitsModelConversor_new(void) {
    kxUnitsModelConversor *units_handler = mem_new_zeroed<kxUnitsModelConversor>();
    units_handler->named_unit_handlers = new_handler_map();
    units_handler->derived_unit_handlers = new_handler_map();
    units_handler->monetary_unit_handler = nullptr;
    units_handler->apply_default_conversion = FALSO;
    return units_handler;
}

KX_API void kxUnitsModelConversor_free(kxUnitsModelConversor **units_handler) {
    kx_assert_not_null(units_handler);
    if (units_handler == nullptr) return;
    kx_assert_not_null(*units_handler);
    if (*units_handler == nullptr) return;
    orderedmap_destroy(&(*units_handler)->named_unit_handlers);
    orderedmap_destroy(&(*units_handler)->derived_unit_handlers);
    mem_free_and_clear(units_handler);
}

KX_API void kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(
    kxUnitsModelConversor *units_handler) {
    kx_assert_not_null(units_handler);
    if (units_handler != nullptr) units_handler->apply_default_conversion = CIERTO;
}

KX_API void kxUnitsModelConversor_append_named_unit_handler(kxUnitsModelConversor *units_handler,
                                                            kxIfcUnitEnum named_unit_type,
                                                            const kxWChar *named_unit_user_defined_name,
                                                            kxUnitsModelConversorUnitHandler named_unit_handler) {
    kx_assert_not_null(units_handler);
    kx_assert(kxIfcUnitEnum_has_value(named_unit_type) == kxBTRUE);
    kx_assert_not_null(named_unit_handler);
    if (units_handler == nullptr || kxIfcUnitEnum_has_value(named_unit_type) != kxBTRUE ||
        named_unit_handler == nullptr)
        return;
    if (is_user_defined_unit_type(named_unit_type)) {
        kx_assert(named_unit_user_defined_name != NULL);
        if (named_unit_user_defined_name == nullptr) return;
    }
    insert_handler_entry(units_handler->named_unit_handlers, static_cast<uint32_t>(named_unit_type),
                         named_unit_user_defined_name, named_unit_handler);
}

KX_API void kxUnitsModelConversor_append_derived_unit_handler(kxUnitsModelConversor *units_handler,
                                                              kxIfcDerivedUnitEnum derived_unit_type,
                                                              const kxWChar *derived_unit_user_defined_name,
                                                              kxUnitsModelConversorUnitHandler derived_unit_handler) {
    kx_assert_not_null(units_handler);
    kx_assert(kxIfcDerivedUnitEnum_has_value(derived_unit_type) == kxBTRUE);
    kx_assert_not_null(derived_unit_handler);
    if (units_handler == nullptr || kxIfcDerivedUnitEnum_has_value(derived_unit_type) != kxBTRUE ||
        derived_unit_handler == nullptr)
        return;
    if (is_user_defined_derived_unit_type(derived_unit_type)) {
        kx_assert(derived_unit_user_defined_name != NULL);
        if (derived_unit_user_defined_name == nullptr) return;
    }
    insert_handler_entry(units_handler->derived_unit_handlers, static_cast<uint32_t>(derived_unit_type),
                         derived_unit_user_defined_name, derived_unit_handler);
}

KX_API void kxUnitsModelConversor_set_monetary_unit_handler(
    kxUnitsModelConversor *units_handler, kxUnitsModelConversorMonetaryHandler monetary_unit_handler) {
    kx_assert_not_null(units_handler);
    if (units_handler != nullptr) units_handler->monetary_unit_handler = monetary_unit_handler;
}

KX_API void kxUnitsModelConversor_apply_conversion(kxUnitsModelConversor *units_handler, kxIfcModel *ifc_model) {
    kx_assert_not_null(units_handler);
    kx_assert_not_null(ifc_model);
    if (units_handler == nullptr || ifc_model == nullptr) return;

    kxBaseObject *unit_assignment =
        kxIfcModel_dontuse_get_first_occurrence_of_class(ifc_model, kxIfcUnitAssignment_class());
    if (unit_assignment == nullptr) return;
    const kxAggregate *units = kxIfcUnitAssignment_get_Units(unit_assignment);
    if (units == nullptr) return;

    ConversionRun run{};
    ConversionRun *manager_data = &run;
    run_begin(manager_data, units_handler);
    build_assignment_conversions(manager_data, units);
    run_create_caches(manager_data);

    kxIfcModel_clear_objects_visited_mask(ifc_model);
    convert_objects_with_own_unit(manager_data, ifc_model);
    kxIfcModel_dontuse_visit_model(ifc_model, manager_data, &convert_visited_instance);
    kxIfcModel_clear_objects_visited_mask(ifc_model);

    run_end(manager_data);
}

}  // extern "C"

#define KX_UNIT "kxunitconvmngr"
// The manager of conversion callbacks: a context and three callbacks that
// the units model conversor installs; the manager only forwards to them.
#include <cstddef>

#include "services/unitconversion.h"
#include "support/assert.h"
#include "support/memory.h"

namespace kx {

kxUnitConvManager *unitconvmngr_new(void *context, ForceConversionWithUnitFn force_conversion_with_unit,
                                    ApplyConversionDoubleFn apply_conversion_double,
                                    ApplyConversionLongFn apply_conversion_long) {
    kxUnitConvManager *manager = mem_new_zeroed<kxUnitConvManager>();
    manager->context = context;
    manager->func_force_conversion_with_unit = force_conversion_with_unit;
    manager->func_apply_conversion_double = apply_conversion_double;
    manager->func_apply_conversion_long = apply_conversion_long;
    return manager;
}

void unitconvmngr_destroy(kxUnitConvManager **manager) {
    kx_assert_not_null(manager);
    if (manager == nullptr) return;
    kx_assert_not_null(*manager);
    mem_free_and_clear(manager);
}

void unitconvmngr_force_conversion_with_unit(const kxUnitConvManager *manager, kxBaseObject *unit) {
    kx_assert_not_null(manager);
    if (manager == nullptr) return;
    kx_assert_not_null(manager->func_force_conversion_with_unit);
    if (manager->func_force_conversion_with_unit != nullptr)
        manager->func_force_conversion_with_unit(manager->context, unit);
}

void unitconvmngr_apply_conversion_double(const kxUnitConvManager *manager, uint32_t measurable_type, double value,
                                          double *converted_value) {
    kx_assert_not_null(converted_value);
    if (converted_value == nullptr) return;
    *converted_value = value;
    kx_assert_not_null(manager);
    if (manager == nullptr) return;
    kx_assert_not_null(manager->func_apply_conversion_double);
    if (manager->func_apply_conversion_double != nullptr)
        manager->func_apply_conversion_double(manager->context, measurable_type, value, converted_value);
}

void unitconvmngr_apply_conversion_long(const kxUnitConvManager *manager, uint32_t measurable_type, int32_t *value) {
    kx_assert_not_null(manager);
    if (manager == nullptr) return;
    kx_assert_not_null(manager->func_apply_conversion_long);
    if (manager->func_apply_conversion_long != nullptr)
        manager->func_apply_conversion_long(manager->context, measurable_type, value);
}

}  // namespace kx

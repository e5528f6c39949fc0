/*
 * kxifc_units.h: the units model conversor, which rewrites every measure
 * value of a model from the units its IfcUnitAssignment declares into the
 * units the host wants. Compiles as C11 and as C++.
 *
 * A named-unit or derived-unit handler receives a value already expressed in
 * the SI basic unit of its unit type (metre, kilogram, second... without
 * prefix) and returns it in the host's unit. Units without a handler are left
 * alone unless the default conversion is on, which takes every non-monetary
 * unit to its SI basic unit. Monetary values go through the monetary handler
 * with their currency. The unit assignment itself is not rewritten.
 */
#ifndef KXIFC_UNITS_H
#define KXIFC_UNITS_H

#include "kxifc_defs.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"

KX_EXTERN_C_BEGIN

typedef struct kxUnitsModelConversor kxUnitsModelConversor;

/* Takes a value in the SI basic unit and returns it in the host's unit. */
typedef double (*kxUnitsModelConversorUnitHandler)(double value);
/* Takes a monetary value and its currency text, returns the host's value. */
typedef double (*kxUnitsModelConversorMonetaryHandler)(double value, const kxWChar *currency);

/* A new conversor: no handlers, no monetary handler, default conversion off. */
KX_API kxUnitsModelConversor *kxUnitsModelConversor_new(void);
/* Frees the conversor and its handlers; *units_handler becomes NULL. */
KX_API void kxUnitsModelConversor_free(kxUnitsModelConversor **units_handler);
/* Units without a handler (monetary ones excepted) are converted to their SI
 * basic unit too. There is no way back. */
KX_API void kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(
    kxUnitsModelConversor *units_handler);
/* Registers the handler of a unit type. The name (copied) picks the
 * context-dependent (or USERDEFINED) unit of that Name; it is required for
 * USERDEFINED and NULL for any unit of the type. */
KX_API void kxUnitsModelConversor_append_named_unit_handler(kxUnitsModelConversor *units_handler,
                                                            kxIfcUnitEnum named_unit_type,
                                                            const kxWChar *named_unit_user_defined_name,
                                                            kxUnitsModelConversorUnitHandler named_unit_handler);
/* Registers the handler of a derived unit type; the name (copied) is
 * required for USERDEFINED and matches the unit's UserDefinedType. */
KX_API void kxUnitsModelConversor_append_derived_unit_handler(kxUnitsModelConversor *units_handler,
                                                              kxIfcDerivedUnitEnum derived_unit_type,
                                                              const kxWChar *derived_unit_user_defined_name,
                                                              kxUnitsModelConversorUnitHandler derived_unit_handler);
/* Sets the handler of monetary values; without one they are left alone. */
KX_API void kxUnitsModelConversor_set_monetary_unit_handler(kxUnitsModelConversor *units_handler,
                                                            kxUnitsModelConversorMonetaryHandler monetary_unit_handler);
/* Converts every measure value of the model in place; a model without an
 * IfcUnitAssignment is left unchanged. */
KX_API void kxUnitsModelConversor_apply_conversion(kxUnitsModelConversor *units_handler, kxIfcModel *ifc_model);

KX_EXTERN_C_END

#endif

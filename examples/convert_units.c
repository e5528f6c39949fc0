/* A C host that converts a whole model to SI units without prefixes (metre,
 * square metre, kilogram...) with the units model conversor, then states the
 * new units: the conversor changes the values only, so the host drops the
 * prefixes of the SI units itself. (`kxifc units` also replaces
 * conversion-based units and picks any target unit.)
 *
 *   convert_units IN.ifc DIRECTORY NAME     (writes DIRECTORY/NAME.ifc) */
#include <stdio.h>
#include <stdlib.h>

#include "kxifcmodel.h"

/* Prints the elevation of each storey, a length the conversion changes. */
static void print_elevations(const char *when, const kxIfcModel *model) {
    kxArrayST *storeys = kxIfcModel_dontuse_get_objects_by_class(model, kxIfcBuildingStorey_class());
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(storeys); i++) {
        const kxIfcBuildingStorey *storey = kxArrayST_dontuse_get(storeys, i);
        char *name = kxWideString_to_utf8(kxIfcBuildingStorey_get_Name(storey));
        printf("%s: storey %s at %g\n", when, name != NULL ? name : "", kxIfcBuildingStorey_get_Elevation(storey));
        kxUtf8String_free(&name);
    }
    kxArrayST_dontuse_free(&storeys, NULL);
}

/* Every SI unit now stands for its unit without prefix; the basic unit of
 * mass is the kilogram. */
static void drop_si_prefixes(kxIfcModel *model) {
    kxArrayST *units = kxIfcModel_dontuse_get_objects_by_class(model, kxIfcSIUnit_class());
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(units); i++) {
        kxIfcSIUnit *unit = kxArrayST_dontuse_get(units, i);
        const int is_gram = kxIfcSIUnit_get_Name(unit) == kxIfcSIUnitName_GRAM;
        kxIfcSIUnit_set_Prefix(unit, is_gram ? kxIfcSIPrefix_KILO : kxIfcSIPrefix_UNDEFINED);
    }
    kxArrayST_dontuse_free(&units, NULL);
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: convert_units IN.ifc DIRECTORY NAME\n");
        return 2;
    }
    kxWChar *input = kxWideString_new_from_utf8(argv[1]);
    kxIfcModel *model = kxIfcModel_read_with_report(input, 0, KX_TEXT_MODE_LOSSLESS, NULL, NULL);
    kxWideString_free(&input);
    if (model == NULL) {
        fprintf(stderr, "convert_units: cannot read %s\n", argv[1]);
        return 1;
    }
    print_elevations("before", model);

    kxUnitsModelConversor *conversor = kxUnitsModelConversor_new();
    kxUnitsModelConversor_set_apply_default_conversion_to_all_non_monetary_units(conversor);
    kxUnitsModelConversor_apply_conversion(conversor, model);
    kxUnitsModelConversor_free(&conversor);
    drop_si_prefixes(model);
    print_elevations("after", model);

    kxWChar *directory = kxWideString_new_from_utf8(argv[2]);
    kxWChar *name = kxWideString_new_from_utf8(argv[3]);
    const kxExportStatus status = kxIfcModel_export_with_status(model, name, directory);
    kxWideString_free(&name);
    kxWideString_free(&directory);
    kxIfcModel_free(&model);
    if (status != KX_EXPORT_OK) {
        fprintf(stderr, "convert_units: %s\n", kxExportStatus_message(status));
        return 1;
    }
    printf("wrote %s/%s.ifc\n", argv[2], argv[3]);
    return EXIT_SUCCESS;
}

/* A C host: builds a small IFC4 model, sets attributes through the typed
 * accessors, follows an inverse relation and frees everything. */
#include <stdio.h>
#include <stdlib.h>

#include "kxifcmodel.h"

static void print_text(const char *label, const kxWChar *text) {
    char *utf8 = kxWideString_to_utf8(text);
    printf("%s: %s\n", label, utf8 != NULL ? utf8 : "(unset)");
    kxUtf8String_free(&utf8);
}

int main(void) {
    kxIfcModel *model = kxIfcModel_new();
    kxIfcModel_set_version(model, KXIFCVERSION_IFC_4);

    kxIfcBuildingStorey *storey = kxIfcModel_dontuse_new_object(model, kxIfcBuildingStorey_class());
    kxIfcWall *wall = kxIfcModel_dontuse_new_object(model, kxIfcWall_class());
    kxWChar *guid = kxCreateCompressedGuidString_Create();
    kxWChar *name = kxWideString_new_from_utf8("Façade wall");
    kxIfcWall_set_GlobalId(wall, guid);
    kxIfcWall_set_Name(wall, name);
    kxIfcWall_set_PredefinedType_v4(wall, kxIfcWallTypeEnum_STANDARD);
    kxWideString_free(&guid);
    kxWideString_free(&name);

    /* Contain the wall in the storey. */
    kxIfcRelContainedInSpatialStructure *contained =
        kxIfcModel_dontuse_new_object(model, kxIfcRelContainedInSpatialStructure_class());
    kxSetIfcProduct *elements = kxSetIfcProduct_new();
    kxSetIfcProduct_append_element(elements, wall);
    kxIfcRelContainedInSpatialStructure_set_RelatedElements(contained, elements);
    kxIfcRelContainedInSpatialStructure_set_RelatingStructure_v4(contained, storey);

    print_text("name", kxIfcWall_get_Name(wall));
    print_text("type", kxIfcWallTypeEnum_to_string(kxIfcWall_get_PredefinedType_v4(wall)));
    printf("GlobalId has %u characters\n", (unsigned)kxWideString_length(kxIfcWall_get_GlobalId(wall)));

    kxArrayST *containers = kxIfcWall_inverse_relation_ContainedInStructure(wall);
    printf("contained in %u structure(s)\n", (unsigned)kxArrayST_dontuse_count(containers));
    int ok = kxArrayST_dontuse_count(containers) == 1 && kxArrayST_dontuse_get(containers, 0) == contained;
    kxArrayST_dontuse_free(&containers, NULL);

    kxArrayST *products = kxIfcModel_dontuse_get_objects_by_class(model, kxIfcProduct_class());
    printf("products: %u\n", (unsigned)kxArrayST_dontuse_count(products));
    ok = ok && kxArrayST_dontuse_count(products) == 2;
    kxArrayST_dontuse_free(&products, NULL);

    kxIfcModel_free(&model);
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}

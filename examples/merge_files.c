/* A C host that merges the IFC4 files of one project with the model merger:
 * the secondary file's instances move into the main model, storeys and
 * buildings with the same GlobalId become one, colliding GlobalIds are
 * replaced and remembered in the translation table, so a second merge of the
 * same files gives the same GlobalIds.
 *
 *   merge_files MAIN.ifc SECONDARY.ifc TABLE DIRECTORY NAME
 *   (writes DIRECTORY/NAME.ifc) */
#include <stdio.h>
#include <stdlib.h>

#include "kxifcmodel.h"

int main(int argc, char **argv) {
    if (argc != 6) {
        fprintf(stderr, "usage: merge_files MAIN.ifc SECONDARY.ifc TABLE DIRECTORY NAME\n");
        return 2;
    }
    kxWChar *texts[5] = {NULL};
    for (int i = 0; i < 5; i++) texts[i] = kxWideString_new_from_utf8(argv[i + 1]);

    kxIfcModelMerger *merger = kxIfcModelMerger_new(texts[0]);
    kxIfcModelMerger_add_secondary_model(merger, texts[1]);
    kxIfcModel *merged = NULL;
    kxArrString *not_merged = NULL;
    const kxBool done = kxIfcModelMerger_merge_models(merger, texts[2], &merged, &not_merged);
    kxIfcModelMerger_free(&merger);

    const uint32_t failures = not_merged != NULL ? kxArrString_count(not_merged) : 0;
    for (uint32_t i = 0; i < failures; i++) {
        char *name = kxWideString_to_utf8(kxArrString_get(not_merged, i));
        printf("not merged: %s\n", name);
        kxUtf8String_free(&name);
    }
    if (not_merged != NULL) kxArrString_free(&not_merged);

    kxExportStatus status = KX_EXPORT_NO_MODEL;
    if (done) {
        kxArrayST *storeys = kxIfcModel_dontuse_get_objects_by_class(merged, kxIfcBuildingStorey_class());
        printf("merged model: %u instances, %u storeys\n", kxIfcModel_count_objects(merged),
               kxArrayST_dontuse_count(storeys));
        kxArrayST_dontuse_free(&storeys, NULL);
        status = kxIfcModel_export_with_status(merged, texts[4], texts[3]);
        kxIfcModel_free(&merged);
    }
    for (int i = 0; i < 5; i++) kxWideString_free(&texts[i]);
    if (status != KX_EXPORT_OK) {
        fprintf(stderr, "merge_files: %s\n", done ? kxExportStatus_message(status) : "the main file is not IFC4");
        return 1;
    }
    printf("wrote %s/%s.ifc\n", argv[4], argv[5]);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

/* Reads a file through the installed library and checks that the headers
 * and the loaded library are of the same version. */
#include <stdio.h>

#include "kxifcmodel.h"

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    if (kxifcmodel_version_number() != KXIFCMODEL_VERSION_NUMBER) {
        fprintf(stderr, "headers %s, library %s\n", KXIFCMODEL_VERSION_STRING, kxifcmodel_version());
        return 1;
    }
    kxWChar *file_name = kxWideString_new_from_utf8(argv[1]);
    kxIfcModel *model = kxIfcModel_read_from_step_file(file_name, 0, NULL);
    kxWideString_free(&file_name);
    if (model == NULL) return 1;
    kxArrayST *walls = kxIfcModel_dontuse_get_objects_by_class(model, kxIfcWall_class());
    printf("C: kxifcmodel %s, %u walls\n", kxifcmodel_version(), kxArrayST_dontuse_count(walls));
    kxArrayST_dontuse_free(&walls, NULL);
    kxIfcModel_free(&model);
    return 0;
}

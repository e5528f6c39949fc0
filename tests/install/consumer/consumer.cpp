// Reads a file through the installed library from C++.
#include <cstdio>

#include "kxifcmodel.h"

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    kxWChar *file_name = kxWideString_new_from_utf8(argv[1]);
    kxIfcModel *model = kxIfcModel_read_from_step_file(file_name, 0, nullptr);
    kxWideString_free(&file_name);
    if (model == nullptr) return 1;
    std::printf("C++: %u instances\n", kxIfcModel_count_objects(model));
    kxIfcModel_free(&model);
    return 0;
}

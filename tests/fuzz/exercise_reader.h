// What the fuzzer and the regression test do with one input file: read it
// in one and in two passes, each in one text mode, export what was read, read
// the export back, and check that both reads agree and that the library's
// memory is back where it was. Returns "" or what went wrong.
#pragma once

#include <string>

#include "kxifcmodel.h"

namespace kxfuzz {

inline int64_t live_bytes() {
    int64_t blocks = 0, bytes = 0;
    kxMemory_get_usage(&blocks, &bytes);
    return bytes;
}

// Reads the file; exports the model to <directory>/copy.ifc and reads that
// back. The instance count of the first read, or -1 when it failed.
inline int64_t read_write_read(const kxWChar *path, const kxWChar *directory, const kxWChar *copy, uint32_t mode,
                               kxTextMode text_mode, std::string *problem) {
    kxReadReport *report = kxReadReport_new(8);
    kxIfcModel *model = kxIfcModel_read_with_report(path, mode, text_mode, report, nullptr);
    int64_t count = -1;
    if (model != nullptr) {
        count = kxIfcModel_count_objects(model);
        if (kxIfcModel_export_with_status(model, u"copy", directory) != KX_EXPORT_OK) {
            *problem = "the export failed";
        } else {
            kxIfcModel *again = kxIfcModel_read_with_report(copy, mode, text_mode, nullptr, nullptr);
            if (again == nullptr) *problem = "the export cannot be read back";
            else if (kxIfcModel_count_objects(again) != kxIfcModel_count_objects(model))
                *problem = "the export reads back with another number of instances";
            if (again != nullptr) kxIfcModel_free(&again);
        }
        kxIfcModel_free(&model);
    }
    kxReadReport_free(&report);
    return count;
}

inline std::string exercise_reader(const std::string &file, const std::string &directory) {
    const int64_t bytes_before = live_bytes();
    kxWChar *path = kxWideString_new_from_utf8(file.c_str());
    kxWChar *folder = kxWideString_new_from_utf8(directory.c_str());
    kxWChar *copy = kxWideString_new_from_utf8((directory + "/copy.ifc").c_str());
    std::string problem;
    const int64_t one_pass = read_write_read(path, folder, copy, 1, KX_TEXT_MODE_SPEC, &problem);
    const int64_t two_passes = read_write_read(path, folder, copy, 2, KX_TEXT_MODE_LOSSLESS, &problem);
    if (problem.empty() && one_pass != two_passes) problem = "one and two passes read different instances";
    kxWideString_free(&copy);
    kxWideString_free(&folder);
    kxWideString_free(&path);
    if (problem.empty() && live_bytes() != bytes_before) problem = "memory was left behind";
    return problem;
}

}  // namespace kxfuzz

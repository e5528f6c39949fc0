#define KX_UNIT "kxifcmodel"
// Writing a whole model as one exchange file, through a temporary file that
// replaces the target only once it is complete and closed.
#include <sys/stat.h>

#include <cstdio>

#include "core/baseobject.h"
#include "kxifc_files.h"
#include "core/class.h"
#include "model/headerio.h"
#include "model/model.h"
#include "support/writedata.h"
#include "support/assert.h"
#include "support/files.h"
#include "support/memory.h"
#include "support/ptrarray.h"
#include "support/wstring.h"

namespace {

// DATA section: one line per entity instance, in the model's order. Select
// values held as objects get no line; they are written inside the lines of
// the instances that use them.
void write_data_section(const kxIfcModel *ifc_model, kxIfcWriteData *output) {
    kxIfcWriteData_write_line(output, u"DATA");
    const uint32_t count = kx::ptrarray_count(ifc_model->objects);
    void *const *items = ifc_model->objects->items;
    for (uint32_t i = 0; i < count; i++) {
        if (ifc_model->export_progress != nullptr && i % 65536 == 0)
            ifc_model->export_progress(ifc_model->export_progress_data, i, count);
        kxBaseObject *base_object = static_cast<kxBaseObject *>(items[i]);
        kx_assert_text((base_object->flags & kx::OBJECT_WRITTEN) == 0,
                       "kxBaseObject_has_been_written_to_output_file(base_object) == FALSO");
        const kxClass_t *klass = kx::baseobject_class(base_object);
        if (klass == nullptr || !klass->is_entity) continue;
        kx_assert_text(base_object->output_file_id != kx::ULONG_MAX32,
                       "kxBaseObject_get_output_file_id(base_object) != ULONG_MAX");
        kx::baseobject_write_object(base_object, output);
    }
    kxIfcWriteData_write_line(output, u"ENDSEC");
    if (ifc_model->export_progress != nullptr) ifc_model->export_progress(ifc_model->export_progress_data, count, count);
}

// Every instance may be written again by the next export.
void clear_written_flags(const kxIfcModel *ifc_model) {
    const uint32_t count = kx::ptrarray_count(ifc_model->objects);
    void *const *items = ifc_model->objects->items;
    for (uint32_t i = 0; i < count; i++)
        static_cast<kxBaseObject *>(items[i])->flags &= static_cast<uint16_t>(~kx::OBJECT_WRITTEN);
}

// A base name that stays inside the export's directory.
bool acceptable_base_name(const char16_t *file_name) {
    if (file_name[0] == u'\0' || kx::wstr_equal(file_name, u".") || kx::wstr_equal(file_name, u"..")) return false;
    for (const char16_t *c = file_name; *c != u'\0'; c++)
        if (*c == u'/') return false;
    return true;
}

// Whether something that is not a regular file (a directory) has the name.
bool taken_by_other_than_file(const char16_t *name) {
    char *path = kx::wstr_to_utf8(name);
    struct stat info;
    const bool taken = path != nullptr && ::stat(path, &info) == 0 && !S_ISREG(info.st_mode);
    kx::mem_free(path);
    return taken;
}

// Writes the whole file; false when some of it could not be written.
bool write_file(kxIfcModel *ifc_model, FILE *file, const char16_t *written_name) {
    // The writer gathers the lines and hands them over a megabyte at a time:
    // the stream needs no buffer of its own to keep the system calls few.
    std::setvbuf(file, nullptr, _IONBF, 0);
    kxIfcWriteData *output = kxIfcWriteData_new(file);
    kxIfcWriteData_set_lossless(output, ifc_model->text_mode == KX_TEXT_MODE_LOSSLESS);
    kxIfcWriteData_set_batched(output, true);
    kxIfcWriteData_write_line(output, u"ISO-10303-21");
    kx::header_write_section(ifc_model->header, written_name, ifc_model->ifc_version, output);
    kxIfcWriteData_write_newline(output);
    write_data_section(ifc_model, output);
    kxIfcWriteData_write_line(output, u"END-ISO-10303-21");
    bool written = kxIfcWriteData_flush(output) && std::fflush(file) == 0 && std::ferror(file) == 0;
    kxIfcWriteData_free(&output);
    written = kx::file_close(&file) && written;
    // A direct walk over the model's list: the model visitor would leave
    // every instance marked as visited.
    clear_written_flags(ifc_model);
    return written;
}

// The export: into "<name>.ifctmp", which replaces "<name>.ifc" only once it
// is complete and closed; on any failure the temporary file goes and the
// target stays as it was.
kxExportStatus export_model(kxIfcModel *ifc_model, const char16_t *file_name, const char16_t *directory) {
    if (!acceptable_base_name(file_name)) return KX_EXPORT_BAD_NAME;
    kx::WideString written_name = kx::wstr_format(u"%s.ifc", file_name);
    kx::WideString final_file_name = kx::file_join_path(directory, written_name);
    kx::WideString temp_base_name = kx::wstr_format(u"%s.ifctmp", file_name);
    kx::WideString temp_file_name = kx::file_join_path(directory, temp_base_name);
    kx::wstr_destroy(&temp_base_name);
    kxExportStatus status = KX_EXPORT_OK;
    FILE *file = nullptr;
    if (taken_by_other_than_file(final_file_name) || taken_by_other_than_file(temp_file_name)) {
        status = KX_EXPORT_CANNOT_REPLACE;
    } else if ((file = kx::file_open(temp_file_name, "wt")) == nullptr) {
        status = KX_EXPORT_CANNOT_CREATE;
    } else if (!write_file(ifc_model, file, written_name)) {
        status = KX_EXPORT_WRITE_FAILED;
    } else if (!kx::file_rename(temp_file_name, final_file_name)) {  // replaces the target at once
        status = KX_EXPORT_CANNOT_REPLACE;
    }
    if (status == KX_EXPORT_WRITE_FAILED || status == KX_EXPORT_CANNOT_REPLACE) kx::file_delete_if_exists(temp_file_name);
    kx::wstr_destroy(&final_file_name);
    kx::wstr_destroy(&written_name);
    kx::wstr_destroy(&temp_file_name);
    return status;
}

}  // namespace

extern "C" {

KX_API kxExportStatus kxIfcModel_export_with_status(kxIfcModel *ifc_model, const kxWChar *file_name,
                                                    const kxWChar *directory) {
    kx_assert_not_null(ifc_model);
    kx_assert_not_null(file_name);
    kx_assert_not_null(directory);
    if (ifc_model == nullptr || file_name == nullptr || directory == nullptr) return KX_EXPORT_NO_MODEL;
    ifc_model->last_export_status = export_model(ifc_model, file_name, directory);
    return ifc_model->last_export_status;
}

KX_API void kxIfcModel_export_model_to_file(kxIfcModel *ifc_model, const kxWChar *file_name,
                                            const kxWChar *directory) {
    kxIfcModel_export_with_status(ifc_model, file_name, directory);
}

KX_API void kxIfcModel_set_export_progress(kxIfcModel *ifc_model, kxProgressFn progress, void *user_data) {
    kx_assert_not_null(ifc_model);
    if (ifc_model == nullptr) return;
    ifc_model->export_progress = progress;
    ifc_model->export_progress_data = user_data;
}

KX_API kxExportStatus kxIfcModel_last_export_status(const kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    return ifc_model != nullptr ? ifc_model->last_export_status : KX_EXPORT_NO_MODEL;
}

KX_API const char *kxExportStatus_message(kxExportStatus status) {
    switch (status) {
    case KX_EXPORT_OK: return "written";
    case KX_EXPORT_BAD_NAME: return "the file name is empty, \".\", \"..\" or holds a '/'";
    case KX_EXPORT_CANNOT_CREATE: return "the temporary file cannot be created in the directory";
    case KX_EXPORT_WRITE_FAILED: return "writing stopped (the disk is full or a size limit was reached)";
    case KX_EXPORT_CANNOT_REPLACE: return "the target cannot be replaced (a directory has its name, or renaming failed)";
    case KX_EXPORT_NO_MODEL: return "no model or no name was given";
    default: return "unknown export status";
    }
}

}  // extern "C"

#define KX_UNIT "kxifcmodel"
// Writing a whole model as one exchange file, through a temporary file that
// replaces the target only once it is complete and closed.
#include <cstdio>

#include "core/baseobject.h"
#include "kxifc_files.h"
#include "core/class.h"
#include "model/headerio.h"
#include "model/model.h"
#include "step/writedata.h"
#include "support/assert.h"
#include "support/files.h"
#include "support/memory.h"
#include "support/ptrarray.h"
#include "support/wstring.h"

namespace {

// Output buffer of the file: large writes keep the system calls few on
// files of hundreds of megabytes.
constexpr size_t kOutputBufferSize = 1u << 20;

// DATA section: one line per entity instance, in the model's order. Select
// values held as objects get no line; they are written inside the lines of
// the instances that use them.
void write_data_section(const kxIfcModel *ifc_model, kxIfcWriteData *output) {
    kxIfcWriteData_write_line(output, u"DATA");
    const uint32_t count = kx::ptrarray_count(ifc_model->objects);
    void *const *items = ifc_model->objects->items;
    for (uint32_t i = 0; i < count; i++) {
        kxBaseObject *base_object = static_cast<kxBaseObject *>(items[i]);
        kx_assert_text(!kx::baseobject_has_been_written(base_object),
                       "kxBaseObject_has_been_written_to_output_file(base_object) == FALSO");
        const kxClass_t *klass = kx::baseobject_class(base_object);
        if (klass == nullptr || !klass->is_entity) continue;
        kx_assert_text(base_object->output_file_id != kx::ULONG_MAX32,
                       "kxBaseObject_get_output_file_id(base_object) != ULONG_MAX");
        kx::baseobject_write_object(base_object, output);
    }
    kxIfcWriteData_write_line(output, u"ENDSEC");
}

// Every instance may be written again by the next export.
void clear_written_flags(const kxIfcModel *ifc_model) {
    const uint32_t count = kx::ptrarray_count(ifc_model->objects);
    void *const *items = ifc_model->objects->items;
    for (uint32_t i = 0; i < count; i++)
        kx::baseobject_clear_written_flag(static_cast<kxBaseObject *>(items[i]));
}

}  // namespace

extern "C" KX_API void kxIfcModel_export_model_to_file(kxIfcModel *ifc_model, const kxWChar *file_name,
                                                       const kxWChar *directory) {
    kx_assert_not_null(ifc_model);
    kx_assert_not_null(file_name);
    kx_assert_not_null(directory);
    if (ifc_model == nullptr || file_name == nullptr || directory == nullptr) return;

    kx::WideString temp_base_name = kx::wstr_format(u"%s.ifctmp", file_name);
    kx::WideString temp_file_name = kx::file_join_path(directory, temp_base_name);
    kx::wstr_destroy(&temp_base_name);
    FILE *file = kx::file_open(temp_file_name, "wt");
    if (file == nullptr) {
        kx::wstr_destroy(&temp_file_name);
        return;
    }
    char *file_buffer = static_cast<char *>(kx::mem_alloc(kOutputBufferSize));
    std::setvbuf(file, file_buffer, _IOFBF, kOutputBufferSize);

    kx::WideString written_name = kx::wstr_format(u"%s.ifc", file_name);
    kx::WideString final_file_name = kx::file_join_path(directory, written_name);

    kxIfcWriteData *output = kxIfcWriteData_new(file);
    kxIfcWriteData_set_lossless(output, ifc_model->text_mode == KX_TEXT_MODE_LOSSLESS);
    kxIfcWriteData_write_line(output, u"ISO-10303-21");
    kx::header_write_section(ifc_model->header, written_name, ifc_model->ifc_version, output);
    kxIfcWriteData_write_newline(output);
    write_data_section(ifc_model, output);
    kxIfcWriteData_write_line(output, u"END-ISO-10303-21");
    kxIfcWriteData_free(&output);
    kx::file_close(&file);
    kx::mem_free(file_buffer);

    // A direct walk over the model's list: the model visitor would leave
    // every instance marked as visited.
    clear_written_flags(ifc_model);

    kx::file_delete_if_exists(final_file_name);
    kx::file_rename(temp_file_name, final_file_name);
    kx::wstr_destroy(&final_file_name);
    kx::wstr_destroy(&written_name);
    kx::wstr_destroy(&temp_file_name);
}

#define KX_UNIT "kxifcheader"
#include "model/header.h"

#include "support/assert.h"
#include "support/memory.h"
#include "support/valuearray.h"
#include "support/wstring.h"

namespace {

// What an item getter gives for an index at or past the count.
static const char16_t kEmptyString[] = u"";

// No element type of its own: the header's lists hold only strings.
constexpr uint32_t kHeaderListType = 0;

template <typename T>
T *take_optional(T **holder) {
    return holder != nullptr ? kx::mem_take(holder) : nullptr;
}

uint32_t item_count(const kx::WStrArray *value_container) {
    kx_assert_not_null(value_container);
    if (value_container == nullptr) return 0;
    return kx::wstrarray_count(value_container);
}

const char16_t *item_or_empty(const kx::WStrArray *value_container, uint32_t index) {
    kx_assert_not_null(value_container);
    if (value_container == nullptr || index >= kx::wstrarray_count(value_container)) return kEmptyString;
    const char16_t *item = kx::wstrarray_get(value_container, index);
    return item != nullptr ? item : kEmptyString;
}

// Appends a copy; a list the record lacks (read from a file without its
// entity) is made on the first append.
void append_copy(kx::WStrArray **value_container, const char16_t *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return;
    if (*value_container == nullptr) *value_container = kx::wstrarray_create(kHeaderListType);
    kx::wstrarray_append(*value_container, value);
}

void replace_with_copy(kx::WideString *member, const char16_t *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return;
    kx::WideString copy = kx::wstr_copy(value);
    kx::wstr_destroy_optional(member);
    *member = copy;
}

void replace_with(kx::WideString *member, kx::WideString *value) {
    kx::wstr_destroy_optional(member);
    *member = kx::mem_take(value);
}

void destroy_list(kx::WStrArray **value_container) {
    kx::mem_destroy_optional(value_container, kx::wstrarray_destroy);
}

}  // namespace

namespace kx {

kxIfcHeader *header_new(WStrArray **description_data, WideString *file_name, WideString *time_stamp,
                        WStrArray **author_data, WStrArray **organization_data,
                        WideString *originating_system, WStrArray **authorization_data,
                        WideString *file_schema) {
    kxIfcHeader *header = mem_new_zeroed<kxIfcHeader>();
    header->description_data = take_optional(description_data);
    header->file_name = take_optional(file_name);
    header->time_stamp = take_optional(time_stamp);
    header->author_data = take_optional(author_data);
    header->organization_data = take_optional(organization_data);
    header->originating_system = take_optional(originating_system);
    header->authorization_data = take_optional(authorization_data);
    header->file_schema = take_optional(file_schema);
    return header;
}

void header_destroy(kxIfcHeader **header) {
    kx_assert_not_null(header);
    if (header == nullptr) return;
    kx_assert_not_null(*header);
    if (*header == nullptr) return;
    kxIfcHeader *record = *header;
    destroy_list(&record->description_data);
    wstr_destroy_optional(&record->file_name);
    wstr_destroy_optional(&record->time_stamp);
    destroy_list(&record->author_data);
    destroy_list(&record->organization_data);
    wstr_destroy_optional(&record->originating_system);
    destroy_list(&record->authorization_data);
    wstr_destroy_optional(&record->file_schema);
    mem_free_and_clear(header);
}

void header_set_time_stamp(kxIfcHeader *header, WideString *time_stamp) {
    kx_assert_not_null(header);
    kx_assert_not_null(time_stamp);
    if (header == nullptr || time_stamp == nullptr) return;
    replace_with(&header->time_stamp, time_stamp);
}

void header_set_file_schema(kxIfcHeader *header, WideString *file_schema) {
    kx_assert_not_null(header);
    kx_assert_not_null(file_schema);
    if (header == nullptr || file_schema == nullptr) return;
    replace_with(&header->file_schema, file_schema);
}

}  // namespace kx

// ---- Building ---------------------------------------------------------------

extern "C" KX_API kxIfcHeader *kxIfcHeader_new_empty_header(void) {
    kx::WStrArray *description_data = kx::wstrarray_create(kHeaderListType);
    kx::WideString file_name = kx::wstr_new_empty();
    kx::WideString time_stamp = kx::wstr_new_empty();
    kx::WStrArray *author_data = kx::wstrarray_create(kHeaderListType);
    kx::WStrArray *organization_data = kx::wstrarray_create(kHeaderListType);
    kx::WideString originating_system = kx::wstr_new_empty();
    kx::WStrArray *authorization_data = kx::wstrarray_create(kHeaderListType);
    kx::WideString file_schema = kx::wstr_new_empty();
    return kx::header_new(&description_data, &file_name, &time_stamp, &author_data, &organization_data,
                          &originating_system, &authorization_data, &file_schema);
}

extern "C" KX_API void kxIfcHeader_add_to_description(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    append_copy(&ifc_header->description_data, value);
}

extern "C" KX_API void kxIfcHeader_set_file_name(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    replace_with_copy(&ifc_header->file_name, value);
}

extern "C" KX_API void kxIfcHeader_add_to_author(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    append_copy(&ifc_header->author_data, value);
}

extern "C" KX_API void kxIfcHeader_add_to_organization(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    append_copy(&ifc_header->organization_data, value);
}

extern "C" KX_API void kxIfcHeader_add_to_authorization(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    append_copy(&ifc_header->authorization_data, value);
}

extern "C" KX_API void kxIfcHeader_set_originating_system(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    replace_with_copy(&ifc_header->originating_system, value);
}

extern "C" KX_API void kxIfcHeader_set_time_stamp(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    replace_with_copy(&ifc_header->time_stamp, value);
}

extern "C" KX_API void kxIfcHeader_set_file_schema(kxIfcHeader *ifc_header, const kxWChar *value) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return;
    replace_with_copy(&ifc_header->file_schema, value);
}

// ---- Reading ----------------------------------------------------------------

// Reads the author list, not the description: hosts rely on this getter
// giving the author items, so it stays so. The description items are read
// with kxIfcHeader_get_description_field.
extern "C" KX_API const kxWChar *kxIfcHeader_get_description_data(const kxIfcHeader *ifc_header,
                                                                  uint32_t index) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return kEmptyString;
    return item_or_empty(ifc_header->author_data, index);
}

extern "C" KX_API uint32_t kxIfcHeader_description_fields_count(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return 0;
    return item_count(ifc_header->description_data);
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_description_field(const kxIfcHeader *ifc_header,
                                                                   uint32_t index) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return kEmptyString;
    return item_or_empty(ifc_header->description_data, index);
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_file_name(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return nullptr;
    return ifc_header->file_name;
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_timestamp(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return nullptr;
    return ifc_header->time_stamp;
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_originating_system(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return nullptr;
    return ifc_header->originating_system;
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_file_schema(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return nullptr;
    return ifc_header->file_schema;
}

extern "C" KX_API uint32_t kxIfcHeader_author_fields_count(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return 0;
    return item_count(ifc_header->author_data);
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_author_field(const kxIfcHeader *ifc_header, uint32_t index) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return kEmptyString;
    return item_or_empty(ifc_header->author_data, index);
}

extern "C" KX_API uint32_t kxIfcHeader_organization_fields_count(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return 0;
    return item_count(ifc_header->organization_data);
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_organization_field(const kxIfcHeader *ifc_header,
                                                                    uint32_t index) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return kEmptyString;
    return item_or_empty(ifc_header->organization_data, index);
}

extern "C" KX_API uint32_t kxIfcHeader_authorization_fields_count(const kxIfcHeader *ifc_header) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return 0;
    return item_count(ifc_header->authorization_data);
}

extern "C" KX_API const kxWChar *kxIfcHeader_get_authorization_field(const kxIfcHeader *ifc_header,
                                                                     uint32_t index) {
    kx_assert_not_null(ifc_header);
    if (ifc_header == nullptr) return kEmptyString;
    return item_or_empty(ifc_header->authorization_data, index);
}

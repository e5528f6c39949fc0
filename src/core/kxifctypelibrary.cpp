#define KX_UNIT "kxifctypelibrary"
#include "core/typelibrary.h"

#include "core/class.h"
#include "support/assert.h"

namespace kx {

PtrArray *typelibrary_all_classes() {
    PtrArray *classes = ptrarray_create_with_capacity(0, g_num_classes);
    for (uint32_t i = 0; i < g_num_classes; i++) ptrarray_append_const(classes, g_classes[g_class_list_order[i]]);
    return classes;
}

void typelibrary_keyword_tables(WStrArray **keywords, ULongArray **unique_class_id, PtrArray **entity_classes) {
    kx_assert_not_null(keywords);
    kx_assert_not_null(unique_class_id);
    kx_assert_not_null(entity_classes);
    if (keywords == nullptr || unique_class_id == nullptr || entity_classes == nullptr) return;
    *keywords = wstrarray_create(0);
    *unique_class_id = ulongarray_create(0);
    *entity_classes = ptrarray_create_with_capacity(0, g_num_keywords);
    for (uint32_t i = 0; i < g_num_keywords; i++) {
        wstrarray_append(*keywords, g_keywords[i]);
        ulongarray_append(*unique_class_id, i);
        const uint32_t class_id = g_keyword_class_ids[i];
        ptrarray_append_const(*entity_classes, class_id != NO_INDEX ? g_classes[class_id] : nullptr);
    }
}

}  // namespace kx

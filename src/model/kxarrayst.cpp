#define KX_UNIT "kxarrayst"
// kxArrayST: the instance arrays that class queries and inverse relations
// return; a PtrArray that does not own its elements.
#include "kxifc_model.h"
#include "support/ptrarray.h"

using namespace kx;

namespace {
PtrArray *as_array(kxArrayST *array) { return reinterpret_cast<PtrArray *>(array); }
const PtrArray *as_array(const kxArrayST *array) { return reinterpret_cast<const PtrArray *>(array); }
}  // namespace

extern "C" {

KX_API kxArrayST *kxArrayST_dontuse_new(kxArraySTDestroyFn) { return reinterpret_cast<kxArrayST *>(ptrarray_create(0)); }

KX_API void kxArrayST_dontuse_free(kxArrayST **array, kxArraySTDestroyFn element_destructor) {
    ptrarray_destroy(reinterpret_cast<PtrArray **>(array), element_destructor);
}

KX_API uint32_t kxArrayST_dontuse_count(const kxArrayST *array) { return ptrarray_count(as_array(array)); }
KX_API void *kxArrayST_dontuse_get(const kxArrayST *array, uint32_t index) { return ptrarray_get(as_array(array), index); }
KX_API void kxArrayST_dontuse_set(kxArrayST *array, uint32_t index, void *element) {
    ptrarray_set(as_array(array), index, element);
}
KX_API void kxArrayST_dontuse_append(kxArrayST *array, void *element) { ptrarray_append(as_array(array), element); }

}  // extern "C"

#define KX_UNIT "kxptrarray"
#include "support/ptrarray.h"

#include <cstring>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {
namespace {

constexpr uint32_t MIN_CAPACITY = 8;

void reserve(PtrArray *array, uint32_t needed) {
    if (needed <= array->capacity) return;
    uint64_t capacity = array->capacity < MIN_CAPACITY ? MIN_CAPACITY : array->capacity;
    while (capacity < needed) capacity += capacity / 2 + 1;
    if (capacity > ULONG_MAX32) capacity = ULONG_MAX32;
    array->items = static_cast<void **>(
        mem_realloc(array->items, static_cast<size_t>(capacity) * sizeof(void *)));
    array->capacity = static_cast<uint32_t>(capacity);
}

void destroy_element(void **slot, DestroyFn destroy) {
    if (destroy != nullptr && *slot != nullptr) destroy(slot);
}

kx_bool16 search(const PtrArray *array, const void *key, MatchFn match, uint32_t *index) {
    for (uint32_t i = 0; i < array->count; i++) {
        if (match(array->items[i], key)) {
            if (index != nullptr) *index = i;
            return CIERTO;
        }
    }
    return FALSO;
}

}  // namespace

PtrArray *ptrarray_create(uint32_t element_type) {
    return ptrarray_create_with_capacity(element_type, 0);
}

PtrArray *ptrarray_create_with_capacity(uint32_t element_type, uint32_t capacity) {
    PtrArray *array = mem_new_zeroed<PtrArray>();
    array->element_type = element_type;
    reserve(array, capacity);
    return array;
}

uint32_t ptrarray_count_of_null() {
    kx_assert_text(false, "(array) != NULL");
    return 0;
}

void *ptrarray_get_out_of_range(const PtrArray *array, uint32_t index) {
    kx_assert_not_null(array);
    if (array != nullptr) kx_assert(index < array->count);
    return nullptr;
}

uint32_t ptrarray_element_type(const PtrArray *array) {
    kx_assert_not_null(array);
    return array != nullptr ? array->element_type : 0;
}

void ptrarray_set(PtrArray *array, uint32_t index, void *element) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert(index < array->count);
    if (index < array->count) array->items[index] = element;
}

void ptrarray_append(PtrArray *array, void *element) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert(array->count < ULONG_MAX32);
    if (array->count == ULONG_MAX32) return;
    if (array->count == array->capacity) [[unlikely]]
        reserve(array, array->count + 1);
    array->items[array->count++] = element;
}

void ptrarray_append_const(PtrArray *array, const void *element) {
    ptrarray_append(array, const_cast<void *>(element));
}

void ptrarray_append_all(PtrArray *array, const PtrArray *other) {
    kx_assert_not_null(array);
    kx_assert_not_null(other);
    if (array == nullptr || other == nullptr || other->count == 0) return;
    kx_assert(other->count <= ULONG_MAX32 - array->count);
    if (other->count > ULONG_MAX32 - array->count) return;
    reserve(array, array->count + other->count);
    std::memcpy(array->items + array->count, other->items, other->count * sizeof(void *));
    array->count += other->count;
}

void ptrarray_insert(PtrArray *array, uint32_t index, void *element) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert(index <= array->count);
    if (index > array->count || array->count == ULONG_MAX32) return;
    reserve(array, array->count + 1);
    std::memmove(array->items + index + 1, array->items + index,
                 (array->count - index) * sizeof(void *));
    array->items[index] = element;
    array->count++;
}

void ptrarray_remove(PtrArray *array, uint32_t index) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert(index < array->count);
    if (index >= array->count) return;
    std::memmove(array->items + index, array->items + index + 1,
                 (array->count - index - 1) * sizeof(void *));
    array->count--;
}

void ptrarray_remove_and_destroy(PtrArray **array, uint32_t index, DestroyFn destroy) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert_not_null(*array);
    if (*array == nullptr) return;
    kx_assert(index < (*array)->count);
    if (index >= (*array)->count) return;
    void *element = (*array)->items[index];
    ptrarray_remove(*array, index);
    destroy_element(&element, destroy);
}

kx_bool16 ptrarray_exists(const PtrArray *array, const void *key, MatchFn match, uint32_t *index) {
    kx_assert_not_null(array);
    kx_assert_not_null(match);
    if (array == nullptr || match == nullptr) return FALSO;
    return search(array, key, match, index);
}

kx_bool16 ptrarray_exists_unique(const PtrArray *array, const void *key, MatchFn match,
                                 uint32_t *index) {
    return ptrarray_exists(array, key, match, index);
}

void *ptrarray_find(const PtrArray *array, const void *key, MatchFn match) {
    uint32_t index = 0;
    if (!ptrarray_exists(array, key, match, &index)) return nullptr;
    return array->items[index];
}

void *ptrarray_find_unique(const PtrArray *array, const void *key, MatchFn match) {
    return ptrarray_find(array, key, match);
}

PtrArray *ptrarray_copy(const PtrArray *array, CopyFn copy) {
    kx_assert_not_null(array);
    if (array == nullptr) return ptrarray_create(0);
    PtrArray *result = ptrarray_create_with_capacity(array->element_type, array->count);
    ptrarray_concatenate(result, array, copy);
    return result;
}

void ptrarray_concatenate(PtrArray *destination, const PtrArray *source, CopyFn copy) {
    kx_assert_not_null(destination);
    kx_assert_not_null(source);
    if (destination == nullptr || source == nullptr) return;
    // The source may be the destination itself: read its count once.
    const uint32_t count = source->count;
    if (static_cast<uint64_t>(destination->count) + count > ULONG_MAX32) {
        kx_assert_unreachable();
        return;
    }
    reserve(destination, destination->count + count);
    for (uint32_t i = 0; i < count; i++) {
        void *element = source->items[i];
        destination->items[destination->count++] =
            (copy != nullptr && element != nullptr) ? copy(element) : element;
    }
}

void ptrarray_walk(const PtrArray *array, void (*visit)(void *element)) {
    kx_assert_not_null(array);
    kx_assert_not_null(visit);
    if (array == nullptr || visit == nullptr) return;
    for (uint32_t i = 0; i < array->count; i++) visit(array->items[i]);
}

void ptrarray_walk_with(const PtrArray *array, void (*visit)(void *element, void *context),
                        void *context) {
    kx_assert_not_null(array);
    kx_assert_not_null(visit);
    if (array == nullptr || visit == nullptr) return;
    for (uint32_t i = 0; i < array->count; i++) visit(array->items[i], context);
}

void ptrarray_shrink(PtrArray **array, uint32_t new_count, DestroyFn destroy) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert_not_null(*array);
    if (*array == nullptr) return;
    PtrArray *self = *array;
    kx_assert(new_count <= self->count);
    // Destroy from the back, one element at a time, so the array never holds
    // a destroyed element if a callback looks at it.
    while (self->count > new_count) {
        void *element = self->items[self->count - 1];
        self->count--;
        destroy_element(&element, destroy);
    }
}

void ptrarray_clear(PtrArray *array) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    mem_free_and_clear(&array->items);
    array->count = array->capacity = 0;
}

void ptrarray_destroy(PtrArray **array, DestroyFn destroy) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert_not_null(*array);
    if (*array == nullptr) return;
    PtrArray *self = *array;
    for (uint32_t i = 0; i < self->count; i++) destroy_element(&self->items[i], destroy);
    mem_free(self->items);
    mem_free_and_clear(array);
}

void ptrarray_destroy_const(PtrArray **array) { ptrarray_destroy(array, nullptr); }

void ptrarray_destroy_array_of_arrays(PtrArray **array, DestroyFn destroy) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert_not_null(*array);
    if (*array == nullptr) return;
    PtrArray *self = *array;
    for (uint32_t i = 0; i < self->count; i++) {
        PtrArray *inner = static_cast<PtrArray *>(self->items[i]);
        if (inner != nullptr) ptrarray_destroy(&inner, destroy);
    }
    mem_free(self->items);
    mem_free_and_clear(array);
}

}  // namespace kx

// PtrArray: an ordered, growable array of pointers indexed from 0. Elements
// belong to the array only as far as a destroy callback is handed to it when
// the array or an element is destroyed. An index out of range is reported and
// ignored: get gives NULL, set and remove do nothing.
#pragma once

#include <cstdint>

#include "support/types.h"

namespace kx {

// The fields are the array's own business; read them through the accessors.
struct PtrArray {
    void **items;
    uint32_t count;
    uint32_t capacity;
    uint32_t element_type;  // recorded at creation, no effect of its own
};

PtrArray *ptrarray_create(uint32_t element_type);
PtrArray *ptrarray_create_with_capacity(uint32_t element_type, uint32_t capacity);

// Slow paths of the accessors below: report the failed check and give 0/NULL.
uint32_t ptrarray_count_of_null();
void *ptrarray_get_out_of_range(const PtrArray *array, uint32_t index);

inline uint32_t ptrarray_count(const PtrArray *array) {
    if (array == nullptr) [[unlikely]]
        return ptrarray_count_of_null();
    return array->count;
}

inline void *ptrarray_get(const PtrArray *array, uint32_t index) {
    if (array == nullptr || index >= array->count) [[unlikely]]
        return ptrarray_get_out_of_range(array, index);
    return array->items[index];
}

uint32_t ptrarray_element_type(const PtrArray *array);

// Replaces the element at the index; the replaced one is not destroyed.
void ptrarray_set(PtrArray *array, uint32_t index, void *element);
void ptrarray_append(PtrArray *array, void *element);
// For elements the array never destroys.
void ptrarray_append_const(PtrArray *array, const void *element);
// Appends every element of `other`, in order.
void ptrarray_append_all(PtrArray *array, const PtrArray *other);
// Empties the array and gives back its room (the elements are not destroyed).
void ptrarray_clear(PtrArray *array);
// Inserts before the index; index == count appends.
void ptrarray_insert(PtrArray *array, uint32_t index, void *element);
// Removes the pointer, shifting the rest down; the element is not destroyed.
void ptrarray_remove(PtrArray *array, uint32_t index);
// Removes the element and destroys it with the callback.
void ptrarray_remove_and_destroy(PtrArray **array, uint32_t index, DestroyFn destroy);

// Whether some element matches the key; the first match's index is stored
// in *index (left untouched when there is none).
kx_bool16 ptrarray_exists(const PtrArray *array, const void *key, MatchFn match, uint32_t *index);
// Same, where at most one element can match.
kx_bool16 ptrarray_exists_unique(const PtrArray *array, const void *key, MatchFn match,
                                 uint32_t *index);
// The first matching element, or NULL.
void *ptrarray_find(const PtrArray *array, const void *key, MatchFn match);
void *ptrarray_find_unique(const PtrArray *array, const void *key, MatchFn match);

// A new array of copies made by the callback, in the same order; with a NULL
// callback the new array shares the pointers.
PtrArray *ptrarray_copy(const PtrArray *array, CopyFn copy);
// Appends to `destination` copies of the source's elements (the pointers
// themselves with a NULL callback).
void ptrarray_concatenate(PtrArray *destination, const PtrArray *source, CopyFn copy);

// Calls the callback on every element in order.
void ptrarray_walk(const PtrArray *array, void (*visit)(void *element));
void ptrarray_walk_with(const PtrArray *array, void (*visit)(void *element, void *context),
                        void *context);

// Drops the elements past new_count, destroying them with the callback
// (NULL: just dropped). A larger new_count is reported and ignored.
void ptrarray_shrink(PtrArray **array, uint32_t new_count, DestroyFn destroy);

// Destroys every element with the callback (none when NULL), frees the
// array and leaves the holder NULL.
void ptrarray_destroy(PtrArray **array, DestroyFn destroy);
// Frees the array only.
void ptrarray_destroy_const(PtrArray **array);
// Destroys an array whose elements are arrays: each inner array with its
// elements destroyed by the callback, then the outer one.
void ptrarray_destroy_array_of_arrays(PtrArray **array, DestroyFn destroy);

}  // namespace kx

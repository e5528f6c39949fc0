#define KX_UNIT "kxvaluearray"
#include "support/valuearray.h"

#include <cstring>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {

void valuearray_report_bad_access(bool array_is_null, uint32_t index, uint32_t count) {
    if (array_is_null)
        kx_assert_text(false, "(array) != NULL");
    else
        kx_assert(index < count);
}

namespace {

// The kinds differ only in how an element is released, copied and matched.
template <typename T>
struct PlainValue {
    static void release(T *) {}
    static T duplicate(T value) { return value; }
    static bool same(T a, T b) { return a == b; }
};

struct OwnedString {
    static void release(char16_t **value) { wstr_destroy_optional(value); }
    static char16_t *duplicate(const char16_t *value) { return wstr_copy_optional(value); }
    static bool same(const char16_t *a, const char16_t *b) {
        if (a == nullptr || b == nullptr) return a == b;
        return wstr_equal(a, b);
    }
};

template <typename T>
ValueArray<T> *create(uint32_t element_type) {
    ValueArray<T> *array = mem_new_zeroed<ValueArray<T>>();
    array->element_type = element_type;
    return array;
}

template <typename T>
void reserve(ValueArray<T> *array, uint32_t needed) {
    if (needed <= array->capacity) return;
    uint64_t capacity = array->capacity < 8 ? 8 : array->capacity;
    while (capacity < needed) capacity += capacity / 2 + 1;
    if (capacity > ULONG_MAX32) capacity = ULONG_MAX32;
    array->items = static_cast<T *>(
        mem_realloc(array->items, static_cast<size_t>(capacity) * sizeof(T)));
    array->capacity = static_cast<uint32_t>(capacity);
}

template <typename T>
bool usable(const ValueArray<T> *array) {
    kx_assert_not_null(array);
    return array != nullptr;
}

template <typename T>
bool in_range(const ValueArray<T> *array, uint32_t index) {
    if (!usable(array)) return false;
    kx_assert(index < array->count);
    return index < array->count;
}

// Stores `value`, which the array now owns.
template <typename T, typename Kind>
void set_owned(ValueArray<T> *array, uint32_t index, T value) {
    if (!in_range(array, index)) {
        Kind::release(&value);
        return;
    }
    Kind::release(&array->items[index]);
    array->items[index] = value;
}

template <typename T, typename Kind>
void append_owned(ValueArray<T> *array, T value) {
    if (!usable(array) || array->count == ULONG_MAX32) {
        Kind::release(&value);
        return;
    }
    if (array->count == array->capacity) reserve(array, array->count + 1);
    array->items[array->count++] = value;
}

template <typename T, typename Kind>
void remove(ValueArray<T> *array, uint32_t index) {
    if (!in_range(array, index)) return;
    Kind::release(&array->items[index]);
    std::memmove(array->items + index, array->items + index + 1,
                 (array->count - index - 1) * sizeof(T));
    array->count--;
}

template <typename T, typename Kind>
ValueArray<T> *copy(const ValueArray<T> *array) {
    if (!usable(array)) return create<T>(0);
    ValueArray<T> *result = create<T>(array->element_type);
    reserve(result, array->count);
    for (uint32_t i = 0; i < array->count; i++) result->items[i] = Kind::duplicate(array->items[i]);
    result->count = array->count;
    return result;
}

template <typename T, typename Kind>
void destroy(ValueArray<T> **array) {
    kx_assert_not_null(array);
    if (array == nullptr) return;
    kx_assert_not_null(*array);
    if (*array == nullptr) return;
    for (uint32_t i = 0; i < (*array)->count; i++) Kind::release(&(*array)->items[i]);
    mem_free((*array)->items);
    mem_free_and_clear(array);
}

template <typename T, typename V, typename Kind>
kx_bool16 exists(const ValueArray<T> *array, V value, uint32_t *index) {
    if (!usable(array)) return FALSO;
    for (uint32_t i = 0; i < array->count; i++) {
        if (Kind::same(array->items[i], value)) {
            if (index != nullptr) *index = i;
            return CIERTO;
        }
    }
    return FALSO;
}

}  // namespace

#define KX_VALUEARRAY_KIND(prefix, T)                                                  \
    ValueArray<T> *prefix##_create(uint32_t element_type) { return create<T>(element_type); } \
    void prefix##_set(ValueArray<T> *array, uint32_t index, T value) {                 \
        set_owned<T, PlainValue<T>>(array, index, value);                              \
    }                                                                                  \
    void prefix##_append(ValueArray<T> *array, T value) {                              \
        append_owned<T, PlainValue<T>>(array, value);                                  \
    }                                                                                  \
    void prefix##_remove(ValueArray<T> *array, uint32_t index) {                       \
        remove<T, PlainValue<T>>(array, index);                                        \
    }                                                                                  \
    ValueArray<T> *prefix##_copy(const ValueArray<T> *array) {                         \
        return copy<T, PlainValue<T>>(array);                                          \
    }                                                                                  \
    void prefix##_destroy(ValueArray<T> **array) { destroy<T, PlainValue<T>>(array); } \
    kx_bool16 prefix##_exists(const ValueArray<T> *array, T value, uint32_t *index) {  \
        return exists<T, T, PlainValue<T>>(array, value, index);                       \
    }

KX_VALUEARRAY_KIND(ulongarray, uint32_t)
KX_VALUEARRAY_KIND(longarray, int32_t)
KX_VALUEARRAY_KIND(doublearray, double)
KX_VALUEARRAY_KIND(boolarray, kx_bool16)

#undef KX_VALUEARRAY_KIND

WStrArray *wstrarray_create(uint32_t element_type) { return create<char16_t *>(element_type); }

WideString wstrarray_get_copy(const WStrArray *array, uint32_t index) {
    return wstr_copy_optional(valuearray_get(array, index));
}

void wstrarray_set(WStrArray *array, uint32_t index, const char16_t *value) {
    if (!in_range(array, index)) return;
    set_owned<char16_t *, OwnedString>(array, index, wstr_copy_optional(value));
}

void wstrarray_set_take(WStrArray *array, uint32_t index, WideString *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return;
    set_owned<char16_t *, OwnedString>(array, index, mem_take(value));
}

void wstrarray_append(WStrArray *array, const char16_t *value) {
    if (!usable(array)) return;
    append_owned<char16_t *, OwnedString>(array, wstr_copy_optional(value));
}

void wstrarray_append_take(WStrArray *array, WideString *value) {
    kx_assert_not_null(value);
    if (value == nullptr) return;
    append_owned<char16_t *, OwnedString>(array, mem_take(value));
}

void wstrarray_remove(WStrArray *array, uint32_t index) {
    remove<char16_t *, OwnedString>(array, index);
}

WStrArray *wstrarray_copy(const WStrArray *array) { return copy<char16_t *, OwnedString>(array); }

void wstrarray_destroy(WStrArray **array) { destroy<char16_t *, OwnedString>(array); }

kx_bool16 wstrarray_exists(const WStrArray *array, const char16_t *value, uint32_t *index) {
    return exists<char16_t *, const char16_t *, OwnedString>(array, value, index);
}

}  // namespace kx

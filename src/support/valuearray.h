// ValueArray: growable arrays of scalars held by value, indexed from 0, in
// five kinds: unsigned long (uint32_t), long (int32_t), double, BOOL
// (kx_bool16) and WideString. A WideString array owns its strings: append
// and set store copies, the taking forms store the given string itself and
// clear the caller's holder, get lends the string and get-copy gives a new
// one. An index out of range is reported and ignored (get gives 0 / NULL).
#pragma once

#include <cstdint>

#include "support/types.h"
#include "support/wstring.h"

namespace kx {

// The fields are the array's own business; read them through the functions.
template <typename T>
struct ValueArray {
    T *items;
    uint32_t count;
    uint32_t capacity;
    uint32_t element_type;
};

using ULongArray = ValueArray<uint32_t>;
using LongArray = ValueArray<int32_t>;
using DoubleArray = ValueArray<double>;
using BoolArray = ValueArray<kx_bool16>;
using WStrArray = ValueArray<char16_t *>;

// Slow path of the accessors: reports a NULL array or an index out of range.
void valuearray_report_bad_access(bool array_is_null, uint32_t index, uint32_t count);

template <typename T>
inline uint32_t valuearray_count(const ValueArray<T> *array) {
    if (array == nullptr) [[unlikely]] {
        valuearray_report_bad_access(true, 0, 0);
        return 0;
    }
    return array->count;
}

template <typename T>
inline T valuearray_get(const ValueArray<T> *array, uint32_t index) {
    if (array == nullptr || index >= array->count) [[unlikely]] {
        valuearray_report_bad_access(array == nullptr, index, array ? array->count : 0);
        return T{};
    }
    return array->items[index];
}

// unsigned long
ULongArray *ulongarray_create(uint32_t element_type);
inline uint32_t ulongarray_count(const ULongArray *array) { return valuearray_count(array); }
inline uint32_t ulongarray_get(const ULongArray *array, uint32_t index) {
    return valuearray_get(array, index);
}
void ulongarray_set(ULongArray *array, uint32_t index, uint32_t value);
void ulongarray_append(ULongArray *array, uint32_t value);
void ulongarray_remove(ULongArray *array, uint32_t index);
ULongArray *ulongarray_copy(const ULongArray *array);
void ulongarray_destroy(ULongArray **array);
kx_bool16 ulongarray_exists(const ULongArray *array, uint32_t value, uint32_t *index);

// long
LongArray *longarray_create(uint32_t element_type);
inline uint32_t longarray_count(const LongArray *array) { return valuearray_count(array); }
inline int32_t longarray_get(const LongArray *array, uint32_t index) {
    return valuearray_get(array, index);
}
void longarray_set(LongArray *array, uint32_t index, int32_t value);
void longarray_append(LongArray *array, int32_t value);
void longarray_remove(LongArray *array, uint32_t index);
LongArray *longarray_copy(const LongArray *array);
void longarray_destroy(LongArray **array);
kx_bool16 longarray_exists(const LongArray *array, int32_t value, uint32_t *index);

// double (exists compares exactly)
DoubleArray *doublearray_create(uint32_t element_type);
inline uint32_t doublearray_count(const DoubleArray *array) { return valuearray_count(array); }
inline double doublearray_get(const DoubleArray *array, uint32_t index) {
    return valuearray_get(array, index);
}
void doublearray_set(DoubleArray *array, uint32_t index, double value);
void doublearray_append(DoubleArray *array, double value);
void doublearray_remove(DoubleArray *array, uint32_t index);
DoubleArray *doublearray_copy(const DoubleArray *array);
void doublearray_destroy(DoubleArray **array);
kx_bool16 doublearray_exists(const DoubleArray *array, double value, uint32_t *index);

// BOOL
BoolArray *boolarray_create(uint32_t element_type);
inline uint32_t boolarray_count(const BoolArray *array) { return valuearray_count(array); }
inline kx_bool16 boolarray_get(const BoolArray *array, uint32_t index) {
    return valuearray_get(array, index);
}
void boolarray_set(BoolArray *array, uint32_t index, kx_bool16 value);
void boolarray_append(BoolArray *array, kx_bool16 value);
void boolarray_remove(BoolArray *array, uint32_t index);
BoolArray *boolarray_copy(const BoolArray *array);
void boolarray_destroy(BoolArray **array);
kx_bool16 boolarray_exists(const BoolArray *array, kx_bool16 value, uint32_t *index);

// WideString (NULL strings may be stored; exists compares exactly)
WStrArray *wstrarray_create(uint32_t element_type);
inline uint32_t wstrarray_count(const WStrArray *array) { return valuearray_count(array); }
// Borrowed: the string stays the array's.
inline const char16_t *wstrarray_get(const WStrArray *array, uint32_t index) {
    return valuearray_get(array, index);
}
WideString wstrarray_get_copy(const WStrArray *array, uint32_t index);
// Stores a copy; the string replaced is destroyed.
void wstrarray_set(WStrArray *array, uint32_t index, const char16_t *value);
// Stores *value itself and clears the holder.
void wstrarray_set_take(WStrArray *array, uint32_t index, WideString *value);
void wstrarray_append(WStrArray *array, const char16_t *value);
void wstrarray_append_take(WStrArray *array, WideString *value);
// Removes and destroys the string.
void wstrarray_remove(WStrArray *array, uint32_t index);
WStrArray *wstrarray_copy(const WStrArray *array);
void wstrarray_destroy(WStrArray **array);
kx_bool16 wstrarray_exists(const WStrArray *array, const char16_t *value, uint32_t *index);

}  // namespace kx

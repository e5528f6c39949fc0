// OrderedPtrMap: owned elements kept in the order of an unsigned-long key
// that a callback reads from each element. Equal keys are allowed; a new
// element goes after those with the same key. Positions run from 0 to
// count - 1 in key order.
#pragma once

#include <cstdint>

#include "support/types.h"

namespace kx {

struct OrderedPtrMap;

// `copy` may be NULL (the map then cannot be copied); `destroy` releases an
// element when the map is destroyed.
OrderedPtrMap *orderedmap_create(KeyFn key, CopyFn copy, DestroyFn destroy);
// Adds the element in key order; the map owns it from now on.
void orderedmap_insert(OrderedPtrMap *map, void *element);
uint32_t orderedmap_count(OrderedPtrMap *map);
// Whether an element has the key; the position of the first such element is
// stored in *position (left untouched when there is none).
kx_bool16 orderedmap_exists(OrderedPtrMap *map, uint32_t key, uint32_t *position);
// The element at the position (borrowed), NULL when out of range.
void *orderedmap_get(OrderedPtrMap *map, uint32_t position);
// A new map with copies of every element made by the copy callback.
OrderedPtrMap *orderedmap_copy(OrderedPtrMap *map);
// Destroys every element with the destroy callback, frees the map and leaves
// the holder NULL.
void orderedmap_destroy(OrderedPtrMap **map);

}  // namespace kx

#define KX_UNIT "kxptrmap"
#include "support/ptrmap.h"

#include <algorithm>
#include <vector>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {

struct OrderedPtrMap {
    KeyFn key;
    CopyFn copy;
    DestroyFn destroy;
    // items[0, sorted) are in key order; later ones were inserted since the
    // last lookup, in insertion order. Lookups merge them in first, so a run
    // of inserts costs O(n log n) rather than one shift per insert.
    std::vector<void *, TrackedAllocator<void *>> items;
    size_t sorted;
};

namespace {

bool usable(const OrderedPtrMap *map) {
    kx_assert_not_null(map);
    return map != nullptr;
}

void settle(OrderedPtrMap *map) {
    if (map->sorted == map->items.size()) return;
    const KeyFn key = map->key;
    auto by_key = [key](const void *a, const void *b) { return key(a) < key(b); };
    auto middle = map->items.begin() + static_cast<std::ptrdiff_t>(map->sorted);
    // Both steps are stable: equal keys keep their insertion order.
    std::stable_sort(middle, map->items.end(), by_key);
    std::inplace_merge(map->items.begin(), middle, map->items.end(), by_key);
    map->sorted = map->items.size();
}

}  // namespace

OrderedPtrMap *orderedmap_create(KeyFn key, CopyFn copy, DestroyFn destroy) {
    kx_assert_not_null(key);
    OrderedPtrMap *map = static_cast<OrderedPtrMap *>(mem_alloc(sizeof(OrderedPtrMap)));
    new (map) OrderedPtrMap{key, copy, destroy, {}, 0};
    return map;
}

void orderedmap_insert(OrderedPtrMap *map, void *element) {
    if (!usable(map)) return;
    kx_assert_not_null(element);
    if (element == nullptr) return;
    // In-order inserts (the usual case when reading back) stay sorted. A map
    // without a key callback (already reported) just keeps insertion order.
    const bool in_order =
        map->key == nullptr ||
        (map->sorted == map->items.size() &&
         (map->items.empty() || map->key(map->items.back()) <= map->key(element)));
    map->items.push_back(element);
    if (in_order) map->sorted = map->items.size();
}

uint32_t orderedmap_count(OrderedPtrMap *map) {
    if (!usable(map)) return 0;
    return static_cast<uint32_t>(map->items.size());
}

kx_bool16 orderedmap_exists(OrderedPtrMap *map, uint32_t key, uint32_t *position) {
    if (!usable(map) || map->key == nullptr) return FALSO;
    settle(map);
    const KeyFn key_of = map->key;
    auto found = std::lower_bound(map->items.begin(), map->items.end(), key,
                                  [key_of](const void *element, uint32_t wanted) {
                                      return key_of(element) < wanted;
                                  });
    if (found == map->items.end() || key_of(*found) != key) return FALSO;
    if (position != nullptr) *position = static_cast<uint32_t>(found - map->items.begin());
    return CIERTO;
}

void *orderedmap_get(OrderedPtrMap *map, uint32_t position) {
    if (!usable(map)) return nullptr;
    kx_assert(position < map->items.size());
    if (position >= map->items.size()) return nullptr;
    if (map->key != nullptr) settle(map);
    return map->items[position];
}

OrderedPtrMap *orderedmap_copy(OrderedPtrMap *map) {
    if (!usable(map)) return orderedmap_create(nullptr, nullptr, nullptr);
    kx_assert_not_null(map->copy);
    OrderedPtrMap *result = orderedmap_create(map->key, map->copy, map->destroy);
    if (map->copy == nullptr) return result;
    if (map->key != nullptr) settle(map);
    result->items.reserve(map->items.size());
    for (void *element : map->items) result->items.push_back(map->copy(element));
    result->sorted = result->items.size();
    return result;
}

void orderedmap_destroy(OrderedPtrMap **map) {
    kx_assert_not_null(map);
    if (map == nullptr) return;
    kx_assert_not_null(*map);
    if (*map == nullptr) return;
    OrderedPtrMap *self = *map;
    if (self->destroy != nullptr)
        for (void *&element : self->items) self->destroy(&element);
    self->~OrderedPtrMap();
    mem_free_and_clear(map);
}

}  // namespace kx

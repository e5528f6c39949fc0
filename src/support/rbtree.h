// RbTree: a red-black tree of borrowed elements keyed by the unsigned long
// (uint32_t) stored at the start of each element; used to find STEP
// instances by their #id. Elements stay with their owners: destroying the
// tree frees its nodes only. The tree orders keys as kx::ulong_compare does;
// the comparison callbacks of the operations are taken for the form of the
// interface and must be that comparison.
#pragma once

#include <cstdint>

#include "support/types.h"

namespace kx {

struct RbTree;

RbTree *rbtree_create(CompareFn compare);
// Adds the element under the key at its start. A key already present keeps
// its first element: the tree is unchanged and FALSO is returned.
kx_bool16 rbtree_insert(RbTree *tree, void *element);
// Whether the key is present; the element is stored in *element (left
// untouched when absent).
kx_bool16 rbtree_exists(const RbTree *tree, uint32_t key, CompareFn compare, void **element);
// The element with the key, or NULL.
void *rbtree_get(const RbTree *tree, uint32_t key, CompareFn compare);
uint32_t rbtree_count(const RbTree *tree);
// Checks the red-black and search-order invariants (a diagnostic aid).
bool rbtree_is_valid(const RbTree *tree);
void rbtree_destroy(RbTree **tree);

}  // namespace kx

#define KX_UNIT "kxrbtree"
#include "support/rbtree.h"

#include <cstring>
#include <vector>

#include "support/assert.h"
#include "support/memory.h"

namespace kx {
namespace {

// Nodes live in one array and link by index; index 0 is the black leaf
// sentinel. The key is copied into the node and the elements are kept in a
// parallel array, so a search walks 16-byte nodes only (four to a cache
// line). The low bit of parent_red is the colour.
struct RbNode {
    uint32_t key;
    uint32_t left;
    uint32_t right;
    uint32_t parent_red;
};

constexpr uint32_t NIL = 0;
constexpr uint32_t MAX_NODES = 0x7FFFFFFFu;

}  // namespace

struct RbTree {
    std::vector<RbNode, TrackedAllocator<RbNode>> nodes;
    std::vector<void *, TrackedAllocator<void *>> elements;  // by node index
    uint32_t root;
};

namespace {

class Links {
public:
    explicit Links(RbTree *tree) : tree_(tree) {}
    RbNode &at(uint32_t i) { return tree_->nodes[i]; }
    uint32_t parent(uint32_t i) { return at(i).parent_red >> 1; }
    bool red(uint32_t i) { return (at(i).parent_red & 1u) != 0; }
    void set_parent(uint32_t i, uint32_t p) { at(i).parent_red = (p << 1) | (at(i).parent_red & 1u); }
    void set_red(uint32_t i, bool is_red) {
        at(i).parent_red = (at(i).parent_red & ~1u) | (is_red ? 1u : 0u);
    }

    void rotate_left(uint32_t x) {
        const uint32_t y = at(x).right;
        at(x).right = at(y).left;
        if (at(y).left != NIL) set_parent(at(y).left, x);
        replace_child(x, y);
        at(y).left = x;
        set_parent(x, y);
    }

    void rotate_right(uint32_t x) {
        const uint32_t y = at(x).left;
        at(x).left = at(y).right;
        if (at(y).right != NIL) set_parent(at(y).right, x);
        replace_child(x, y);
        at(y).right = x;
        set_parent(x, y);
    }

    // Restores the colour rules after the red node z was linked in.
    void fix_after_insert(uint32_t z) {
        while (red(parent(z))) {
            const uint32_t p = parent(z);
            const uint32_t g = parent(p);
            const bool parent_is_left = at(g).left == p;
            const uint32_t uncle = parent_is_left ? at(g).right : at(g).left;
            if (red(uncle)) {
                set_red(p, false);
                set_red(uncle, false);
                set_red(g, true);
                z = g;
                continue;
            }
            if (parent_is_left) {
                if (z == at(p).right) {
                    z = p;
                    rotate_left(z);
                }
                set_red(parent(z), false);
                set_red(g, true);
                rotate_right(g);
            } else {
                if (z == at(p).left) {
                    z = p;
                    rotate_right(z);
                }
                set_red(parent(z), false);
                set_red(g, true);
                rotate_left(g);
            }
        }
        set_red(tree_->root, false);
    }

private:
    // Puts `y` where `x` hangs from x's parent (or at the root).
    void replace_child(uint32_t x, uint32_t y) {
        const uint32_t p = parent(x);
        set_parent(y, p);
        if (p == NIL)
            tree_->root = y;
        else if (at(p).left == x)
            at(p).left = y;
        else
            at(p).right = y;
    }

    RbTree *tree_;
};

uint32_t find_node(const RbTree *tree, uint32_t key) {
    const RbNode *nodes = tree->nodes.data();
    uint32_t current = tree->root;
    while (current != NIL) {
        const RbNode &node = nodes[current];
        if (key == node.key) return current;
        current = key < node.key ? node.left : node.right;
    }
    return NIL;
}

// Black height of the subtree, or -1 when a rule is broken in it.
int check_subtree(const RbTree *tree, uint32_t i, uint32_t parent, uint64_t low, uint64_t high) {
    if (i == NIL) return 1;
    const RbNode &node = tree->nodes[i];
    if ((node.parent_red >> 1) != parent) return -1;
    if (node.key < low || node.key > high) return -1;
    const bool is_red = (node.parent_red & 1u) != 0;
    if (is_red) {
        const RbNode &l = tree->nodes[node.left];
        const RbNode &r = tree->nodes[node.right];
        if ((l.parent_red & 1u) != 0 || (r.parent_red & 1u) != 0) return -1;
    }
    if (node.key == 0 && node.left != NIL) return -1;
    const int left = check_subtree(tree, node.left, i, low, static_cast<uint64_t>(node.key) - 1);
    const int right = check_subtree(tree, node.right, i, static_cast<uint64_t>(node.key) + 1, high);
    if (left < 0 || right < 0 || left != right) return -1;
    return left + (is_red ? 0 : 1);
}

}  // namespace

RbTree *rbtree_create(CompareFn compare) {
    kx_assert_not_null(compare);
    RbTree *tree = static_cast<RbTree *>(mem_alloc(sizeof(RbTree)));
    new (tree) RbTree{{}, {}, NIL};
    tree->nodes.push_back(RbNode{0, NIL, NIL, 0});
    tree->elements.push_back(nullptr);
    return tree;
}

kx_bool16 rbtree_insert(RbTree *tree, void *element) {
    kx_assert_not_null(tree);
    kx_assert_not_null(element);
    if (tree == nullptr || element == nullptr) return FALSO;
    uint32_t key;
    std::memcpy(&key, element, sizeof key);

    uint32_t parent = NIL;
    uint32_t current = tree->root;
    bool go_left = false;
    while (current != NIL) {
        const RbNode &node = tree->nodes[current];
        if (key == node.key) return FALSO;
        parent = current;
        go_left = key < node.key;
        current = go_left ? node.left : node.right;
    }
    kx_assert(tree->nodes.size() <= MAX_NODES);
    if (tree->nodes.size() > MAX_NODES) return FALSO;

    const uint32_t z = static_cast<uint32_t>(tree->nodes.size());
    tree->nodes.push_back(RbNode{key, NIL, NIL, (parent << 1) | 1u});
    tree->elements.push_back(element);
    if (parent == NIL)
        tree->root = z;
    else if (go_left)
        tree->nodes[parent].left = z;
    else
        tree->nodes[parent].right = z;
    Links(tree).fix_after_insert(z);
    return CIERTO;
}

kx_bool16 rbtree_exists(const RbTree *tree, uint32_t key, CompareFn compare, void **element) {
    kx_assert_not_null(tree);
    kx_assert_not_null(compare);
    if (tree == nullptr) return FALSO;
    const uint32_t found = find_node(tree, key);
    if (found == NIL) return FALSO;
    if (element != nullptr) *element = tree->elements[found];
    return CIERTO;
}

void *rbtree_get(const RbTree *tree, uint32_t key, CompareFn compare) {
    kx_assert_not_null(tree);
    kx_assert_not_null(compare);
    if (tree == nullptr) return nullptr;
    return tree->elements[find_node(tree, key)];  // the sentinel's is NULL
}

uint32_t rbtree_count(const RbTree *tree) {
    kx_assert_not_null(tree);
    if (tree == nullptr) return 0;
    return static_cast<uint32_t>(tree->nodes.size() - 1);
}

bool rbtree_is_valid(const RbTree *tree) {
    if (tree == nullptr || tree->nodes.empty()) return false;
    const RbNode &sentinel = tree->nodes[NIL];
    if ((sentinel.parent_red & 1u) != 0 || tree->elements.size() != tree->nodes.size() ||
        tree->elements[NIL] != nullptr)
        return false;
    if (tree->root != NIL && (tree->nodes[tree->root].parent_red & 1u) != 0) return false;
    return check_subtree(tree, tree->root, NIL, 0, ULONG_MAX32) > 0;
}

void rbtree_destroy(RbTree **tree) {
    kx_assert_not_null(tree);
    if (tree == nullptr) return;
    kx_assert_not_null(*tree);
    if (*tree == nullptr) return;
    (*tree)->~RbTree();
    mem_free_and_clear(tree);
}

}  // namespace kx

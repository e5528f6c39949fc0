// PtrArray, ValueArray and OrderedPtrMap: ordering under inserts and
// removals, ownership of elements, and reports on misuse; the #id tree; and
// tracked memory across where blocks come from: the heap, a pool (while a
// thread has one), large mappings; blocks moving between them when resized,
// outliving their pool's owner.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "support/memory.h"
#include "support/pool.h"
#include "support/ptrarray.h"
#include "support/ptrmap.h"
#include "support/rbtree.h"
#include "support/valuearray.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

struct Item {
    uint32_t key;
    uint32_t serial;
};

int g_destroyed = 0;

Item *item_new(uint32_t key, uint32_t serial = 0) {
    Item *item = kx::mem_new_zeroed<Item>();
    item->key = key;
    item->serial = serial;
    return item;
}

void item_destroy(void **holder) {
    g_destroyed++;
    kx::mem_free_and_clear(holder);
}

void *item_copy(const void *element) {
    const Item *item = static_cast<const Item *>(element);
    return item_new(item->key, item->serial);
}

uint32_t item_key(const void *element) { return static_cast<const Item *>(element)->key; }

kx_bool16 item_has_key(const void *element, const void *key) {
    return static_cast<const Item *>(element)->key == *static_cast<const uint32_t *>(key) ? CIERTO
                                                                                          : FALSO;
}

uint32_t key_at(const kx::PtrArray *array, uint32_t index) {
    return static_cast<const Item *>(kx::ptrarray_get(array, index))->key;
}

std::vector<uint32_t> keys_of(const kx::PtrArray *array) {
    std::vector<uint32_t> keys;
    for (uint32_t i = 0; i < kx::ptrarray_count(array); i++) keys.push_back(key_at(array, i));
    return keys;
}

class ContainersTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        g_destroyed = 0;
    }
};

TEST_F(ContainersTest, PtrArrayKeepsOrderThroughInsertRemoveShrinkAndSearchesCopiesConcatenatesWalks) {
    kx::PtrArray *array = kx::ptrarray_create(7);
    EXPECT_EQ(kx::ptrarray_element_type(array), 7u);
    for (uint32_t i = 0; i < 100000; i++) kx::ptrarray_append(array, item_new(i));
    ASSERT_EQ(kx::ptrarray_count(array), 100000u);
    for (uint32_t i = 0; i < 100000; i += 997) EXPECT_EQ(key_at(array, i), i);

    kx::ptrarray_shrink(&array, 5, item_destroy);
    EXPECT_EQ(g_destroyed, 100000 - 5);
    EXPECT_EQ(keys_of(array), (std::vector<uint32_t>{0, 1, 2, 3, 4}));

    kx::ptrarray_insert(array, 0, item_new(100));
    kx::ptrarray_insert(array, 3, item_new(101));
    kx::ptrarray_insert(array, kx::ptrarray_count(array), item_new(102));
    EXPECT_EQ(keys_of(array), (std::vector<uint32_t>{100, 0, 1, 101, 2, 3, 4, 102}));

    void *removed = kx::ptrarray_get(array, 3);
    kx::ptrarray_remove(array, 3);  // not destroyed
    kx::ptrarray_remove_and_destroy(&array, 0, item_destroy);
    EXPECT_EQ(keys_of(array), (std::vector<uint32_t>{0, 1, 2, 3, 4, 102}));
    item_destroy(&removed);

    void *old = kx::ptrarray_get(array, 1);
    kx::ptrarray_set(array, 1, item_new(55));
    EXPECT_EQ(keys_of(array), (std::vector<uint32_t>{0, 55, 2, 3, 4, 102}));
    item_destroy(&old);

    g_destroyed = 0;
    kx::ptrarray_destroy(&array, item_destroy);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(g_destroyed, 6);

    g_destroyed = 0;
    array = kx::ptrarray_create_with_capacity(0, 0x10000);
    for (uint32_t key : {5u, 9u, 5u, 12u}) kx::ptrarray_append(array, item_new(key));

    uint32_t index = 77;
    const uint32_t missing = 6, twelve = 12, five = 5;
    EXPECT_FALSE(kx::ptrarray_exists(array, &missing, item_has_key, &index));
    EXPECT_EQ(index, 77u);
    EXPECT_TRUE(kx::ptrarray_exists(array, &five, item_has_key, &index));
    EXPECT_EQ(index, 0u);  // the first match
    EXPECT_TRUE(kx::ptrarray_exists_unique(array, &twelve, item_has_key, &index));
    EXPECT_EQ(index, 3u);
    EXPECT_EQ(kx::ptrarray_find(array, &twelve, item_has_key), kx::ptrarray_get(array, 3));
    EXPECT_EQ(kx::ptrarray_find_unique(array, &missing, item_has_key), nullptr);

    kx::PtrArray *copy = kx::ptrarray_copy(array, item_copy);
    EXPECT_EQ(keys_of(copy), keys_of(array));
    EXPECT_NE(kx::ptrarray_get(copy, 0), kx::ptrarray_get(array, 0));

    // Concatenating an array onto itself doubles it without reading past it.
    kx::ptrarray_concatenate(copy, copy, item_copy);
    EXPECT_EQ(keys_of(copy), (std::vector<uint32_t>{5, 9, 5, 12, 5, 9, 5, 12}));

    // Shared pointers, destroyed only through the owning array.
    kx::PtrArray *view = kx::ptrarray_create(0);
    kx::ptrarray_concatenate(view, array, nullptr);
    EXPECT_EQ(kx::ptrarray_get(view, 2), kx::ptrarray_get(array, 2));
    kx::ptrarray_append_const(view, kx::ptrarray_get(array, 0));
    uint32_t sum = 0;
    kx::ptrarray_walk_with(
        view, [](void *element, void *total) {
            *static_cast<uint32_t *>(total) += static_cast<Item *>(element)->key;
        },
        &sum);
    EXPECT_EQ(sum, 5u + 9 + 5 + 12 + 5);
    kx::ptrarray_destroy_const(&view);
    EXPECT_EQ(g_destroyed, 0);

    // An array of arrays destroys the inner arrays and their elements.
    kx::PtrArray *outer = kx::ptrarray_create(0);
    kx::ptrarray_append(outer, array);
    kx::ptrarray_append(outer, copy);
    kx::ptrarray_destroy_array_of_arrays(&outer, item_destroy);
    EXPECT_EQ(outer, nullptr);
    EXPECT_EQ(g_destroyed, 12);
}

TEST_F(ContainersTest, ScalarValueArraysAndAStringArrayThatOwnsItsStrings) {
    kx::ULongArray *ulongs = kx::ulongarray_create(0);
    for (uint32_t i = 0; i < 1000; i++) kx::ulongarray_append(ulongs, i * 3);
    kx::ulongarray_remove(ulongs, 0);
    kx::ulongarray_set(ulongs, 0, 4294967295u);
    uint32_t index = 0;
    EXPECT_TRUE(kx::ulongarray_exists(ulongs, 30, &index) && index == 9u);
    EXPECT_FALSE(kx::ulongarray_exists(ulongs, 31, &index));
    kx::ULongArray *ulong_copy = kx::ulongarray_copy(ulongs);
    kx::ulongarray_destroy(&ulongs);
    EXPECT_EQ(kx::ulongarray_count(ulong_copy), 999u);
    EXPECT_EQ(kx::ulongarray_get(ulong_copy, 0), 4294967295u);
    EXPECT_EQ(kx::ulongarray_get(ulong_copy, 998), 2997u);
    kx::ulongarray_destroy(&ulong_copy);

    kx::LongArray *longs = kx::longarray_create(0);
    kx::longarray_append(longs, -5);
    kx::longarray_append(longs, 2147483647);
    EXPECT_TRUE(kx::longarray_exists(longs, 2147483647, &index) && index == 1u);
    EXPECT_EQ(kx::longarray_get(longs, 0), -5);
    kx::longarray_destroy(&longs);

    kx::DoubleArray *doubles = kx::doublearray_create(0);
    kx::doublearray_append(doubles, 0.5);
    kx::doublearray_append(doubles, -1e300);
    kx::doublearray_set(doubles, 0, 2.25);
    kx::DoubleArray *double_copy = kx::doublearray_copy(doubles);
    EXPECT_DOUBLE_EQ(kx::doublearray_get(double_copy, 0), 2.25);
    EXPECT_TRUE(kx::doublearray_exists(double_copy, -1e300, &index) && index == 1u);
    kx::doublearray_destroy(&doubles);
    kx::doublearray_destroy(&double_copy);

    kx::BoolArray *flags = kx::boolarray_create(0);
    kx::boolarray_append(flags, FALSO);
    kx::boolarray_append(flags, CIERTO);
    EXPECT_TRUE(kx::boolarray_exists(flags, CIERTO, &index) && index == 1u);
    kx::boolarray_remove(flags, 0);
    EXPECT_EQ(kx::boolarray_get(flags, 0), CIERTO);
    kx::boolarray_destroy(&flags);
    kx::WStrArray *strings = kx::wstrarray_create(0);
    char16_t text[] = u"wall";
    kx::wstrarray_append(strings, text);
    text[0] = u'b';  // the array holds its own copy
    EXPECT_TRUE(kx::wstr_equal(kx::wstrarray_get(strings, 0), u"wall"));

    kx::WideString taken = kx::wstr_copy(u"slab");
    const char16_t *taken_address = taken;
    kx::wstrarray_append_take(strings, &taken);
    EXPECT_EQ(taken, nullptr);
    EXPECT_EQ(kx::wstrarray_get(strings, 1), taken_address);
    kx::wstrarray_append(strings, nullptr);  // absent strings are kept too

    kx::wstrarray_set(strings, 0, u"door");  // the old string is released
    kx::WideString replacement = kx::wstr_copy(u"roof");
    kx::wstrarray_set_take(strings, 1, &replacement);
    EXPECT_EQ(replacement, nullptr);

    kx::WideString copy = kx::wstrarray_get_copy(strings, 1);
    EXPECT_NE(copy, kx::wstrarray_get(strings, 1));
    EXPECT_TRUE(kx::wstr_equal(copy, u"roof"));
    kx::wstr_destroy(&copy);

    EXPECT_TRUE(kx::wstrarray_exists(strings, u"roof", &index) && index == 1u);
    EXPECT_FALSE(kx::wstrarray_exists(strings, u"ROOF", &index));

    kx::WStrArray *deep = kx::wstrarray_copy(strings);
    kx::wstrarray_remove(strings, 0);
    EXPECT_TRUE(kx::wstr_equal(kx::wstrarray_get(strings, 0), u"roof"));
    kx::wstrarray_destroy(&strings);
    EXPECT_TRUE(kx::wstr_equal(kx::wstrarray_get(deep, 0), u"door"));
    EXPECT_EQ(kx::wstrarray_get(deep, 2), nullptr);
    kx::wstrarray_destroy(&deep);
}

TEST_F(ContainersTest, OrderedMapKeepsKeyOrderAndInsertionOrderOfEqualKeysAndMisuseIsNotFatal) {
    kx::OrderedPtrMap *map = kx::orderedmap_create(item_key, item_copy, item_destroy);
    std::mt19937 random(42);
    std::vector<std::pair<uint32_t, uint32_t>> expected;  // (key, serial)
    uint32_t position = 0;
    for (uint32_t serial = 0; serial < 20000; serial++) {
        const uint32_t key = random() % 5000;
        kx::orderedmap_insert(map, item_new(key, serial));
        expected.emplace_back(key, serial);
        // Lookups between inserts must see everything inserted so far.
        if (serial % 3000 == 0) {
            ASSERT_TRUE(kx::orderedmap_exists(map, key, &position));
            EXPECT_EQ(static_cast<Item *>(kx::orderedmap_get(map, position))->key, key);
        }
    }
    std::stable_sort(expected.begin(), expected.end(),
                     [](auto a, auto b) { return a.first < b.first; });
    ASSERT_EQ(kx::orderedmap_count(map), 20000u);
    for (uint32_t i = 0; i < 20000; i++) {
        const Item *item = static_cast<const Item *>(kx::orderedmap_get(map, i));
        ASSERT_EQ(item->key, expected[i].first);
        ASSERT_EQ(item->serial, expected[i].second) << "at " << i;
    }
    // exists gives the first element of a run of equal keys.
    const uint32_t key = expected[10000].first;
    ASSERT_TRUE(kx::orderedmap_exists(map, key, &position));
    EXPECT_EQ(position, static_cast<uint32_t>(
                            std::find_if(expected.begin(), expected.end(),
                                         [key](auto e) { return e.first == key; }) -
                            expected.begin()));
    position = 12345;
    EXPECT_FALSE(kx::orderedmap_exists(map, 5000, &position));
    EXPECT_EQ(position, 12345u);

    kx::OrderedPtrMap *copy = kx::orderedmap_copy(map);
    EXPECT_EQ(kx::orderedmap_count(copy), 20000u);
    EXPECT_NE(kx::orderedmap_get(copy, 7), kx::orderedmap_get(map, 7));
    kx::orderedmap_destroy(&map);
    EXPECT_EQ(map, nullptr);
    EXPECT_EQ(g_destroyed, 20000);
    kx::orderedmap_destroy(&copy);
    EXPECT_EQ(g_destroyed, 40000);

    g_destroyed = 0;
    expect_reports();
    kx::PtrArray *array = kx::ptrarray_create(0);
    kx::ptrarray_append(array, nullptr);
    EXPECT_EQ(kx::ptrarray_get(array, 1), nullptr);
    EXPECT_TRUE(asserts().saw("index < array->count"));
    kx::ptrarray_set(array, 5, array);
    kx::ptrarray_remove(array, 9);
    kx::ptrarray_insert(array, 3, array);
    kx::ptrarray_shrink(&array, 4, item_destroy);
    EXPECT_EQ(kx::ptrarray_count(array), 1u);
    EXPECT_EQ(kx::ptrarray_count(nullptr), 0u);
    EXPECT_TRUE(asserts().saw("(array) != NULL"));
    kx::ptrarray_destroy(&array, item_destroy);  // NULL elements are skipped
    EXPECT_EQ(g_destroyed, 0);
    kx::ptrarray_destroy(&array, nullptr);
    EXPECT_TRUE(asserts().saw("(*array) != NULL"));

    kx::WStrArray *strings = kx::wstrarray_create(0);
    kx::WideString lost = kx::wstr_copy(u"x");
    kx::wstrarray_set_take(strings, 3, &lost);  // out of range: released, not leaked
    EXPECT_EQ(lost, nullptr);
    EXPECT_EQ(kx::wstrarray_get(strings, 0), nullptr);
    EXPECT_TRUE(asserts().saw("index < count"));
    EXPECT_EQ(kx::doublearray_get(nullptr, 0), 0.0);
    kx::wstrarray_destroy(&strings);
}

// The #id tree: a million random keys, duplicates, misses, and the balance
// rules checked on the way.
struct Entry {
    uint32_t id;  // the key sits at the start of the element
    uint32_t payload;
};

using RbTreeTest = kxtest::LibraryTest;

TEST_F(RbTreeTest, MillionRandomKeysThenAnEmptyTreeAndMisuse) {
    constexpr uint32_t COUNT = 1000000;
    std::mt19937 random(7);
    std::vector<Entry> entries(COUNT);
    std::vector<uint32_t> keys(COUNT);
    // Distinct keys spread over the whole 32-bit range, including both ends.
    std::iota(keys.begin(), keys.end(), 0u);
    for (uint32_t &key : keys) key = key * 4271u + 1u;
    keys[0] = 0;
    keys[1] = 4294967295u;
    std::shuffle(keys.begin(), keys.end(), random);
    for (uint32_t i = 0; i < COUNT; i++) entries[i] = Entry{keys[i], i};

    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
    for (uint32_t i = 0; i < COUNT; i++) ASSERT_TRUE(kx::rbtree_insert(tree, &entries[i]));
    std::shuffle(keys.begin(), keys.end(), random);
    uint32_t found = 0;
    for (uint32_t key : keys) {
        const Entry *entry = static_cast<const Entry *>(kx::rbtree_get(tree, key, kx::ulong_compare));
        if (entry != nullptr && entry->id == key) found++;
    }
    EXPECT_EQ(found, COUNT);
    EXPECT_EQ(kx::rbtree_count(tree), COUNT);
    EXPECT_TRUE(kx::rbtree_is_valid(tree));

    // Keys between the inserted ones are missing.
    void *element = &entries[0];
    EXPECT_FALSE(kx::rbtree_exists(tree, 2, kx::ulong_compare, &element));
    EXPECT_EQ(element, &entries[0]);  // untouched
    EXPECT_EQ(kx::rbtree_get(tree, 4294967294u, kx::ulong_compare), nullptr);
    EXPECT_TRUE(kx::rbtree_exists(tree, 4294967295u, kx::ulong_compare, &element));
    EXPECT_EQ(static_cast<Entry *>(element)->id, 4294967295u);
    Entry again{4294967295u, 0};
    EXPECT_FALSE(kx::rbtree_insert(tree, &again));  // a key already there: the first element stays
    EXPECT_EQ(kx::rbtree_get(tree, 4294967295u, kx::ulong_compare), element);

    kx::rbtree_destroy(&tree);
    EXPECT_EQ(tree, nullptr);
    tree = kx::rbtree_create(kx::ulong_compare);
    EXPECT_TRUE(kx::rbtree_is_valid(tree));
    EXPECT_EQ(kx::rbtree_get(tree, 0, kx::ulong_compare), nullptr);
    expect_reports();
    EXPECT_FALSE(kx::rbtree_insert(tree, nullptr));
    EXPECT_TRUE(asserts().saw("(element) != NULL"));
    EXPECT_EQ(kx::rbtree_get(nullptr, 1, kx::ulong_compare), nullptr);
    kx::rbtree_destroy(&tree);
    kx::rbtree_destroy(&tree);
    EXPECT_TRUE(asserts().saw("(*tree) != NULL"));
}

using MemoryTest = kxtest::LibraryTest;

// Fills a block with a pattern that says where each byte was.
void fill(void *block, size_t size) {
    for (size_t i = 0; i < size; i++) static_cast<unsigned char *>(block)[i] = static_cast<unsigned char>(i * 7 + 1);
}

bool holds_fill(const void *block, size_t size) {
    for (size_t i = 0; i < size; i++)
        if (static_cast<const unsigned char *>(block)[i] != static_cast<unsigned char>(i * 7 + 1)) return false;
    return true;
}

// A block keeps its bytes through every move: pool to pool (grown), pool to
// mapping, mapping past a huge page (moved to an aligned place), mapping
// shrunk back, and resized outside any pool after its pool's owner let go;
// a pool's freed place serves the next block of its size; the pool goes
// with its last block.
TEST_F(MemoryTest, BlocksKeepTheirBytesWhereverTheyMoveAndGrowZeroed) {
    kx::Pool *pool = kx::pool_new();
    void *block = nullptr;
    {
        kx::MemPoolScope scope(pool);
        void *first = kx::mem_alloc(40);
        kx::mem_free(first);
        void *again = kx::mem_alloc(40);
        EXPECT_EQ(again, first);
        kx::mem_free(again);
        std::vector<size_t> sizes = {24, 500, 900, 300000, 3000000, 5000000, 2000, 100};
        block = kx::mem_calloc(1, 8);
        size_t size = 8;
        for (size_t next : sizes) {
            fill(block, size);
            block = kx::mem_realloc(block, next);
            EXPECT_TRUE(holds_fill(block, std::min(size, next))) << size << " -> " << next;
            size = next;
        }
        fill(block, size);
    }
    kx::pool_release(&pool);
    EXPECT_EQ(pool, nullptr);
    block = kx::mem_realloc(block, 5000);
    EXPECT_TRUE(holds_fill(block, 100));
    kx::mem_free(block);
    // Bytes a block gains by growing read as zero, on the heap and in a mapping
    // that shrank and grew again.
    size_t size = 16;
    char *grown = static_cast<char *>(kx::mem_calloc(1, size));
    for (size_t next : {size_t{4000}, size_t{600000}, size_t{300001}, size_t{900000}, size_t{4500000}}) {
        std::memset(grown, 0xAB, size);
        grown = static_cast<char *>(kx::mem_realloc_zeroed(grown, size, next));
        for (size_t i = size; i < next; i++) ASSERT_EQ(grown[i], 0) << size << " -> " << next << " at " << i;
        size = next;
    }
    kx::mem_free(grown);
}

}  // namespace

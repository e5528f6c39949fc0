// PtrArray, ValueArray and OrderedPtrMap: ordering under inserts and
// removals, ownership of elements, and reports on misuse; the #id tree; and
// tracked memory across where blocks come from: the heap, a pool (while a
// thread has one), large mappings; blocks moving between them when resized,
// outliving their pool's owner. Then files by wide name, formatted output,
// the binary save stream (round trips, truncated or corrupt streams) and the
// header lexer. Then rounding, hex text, pointer keys, plane axes, 3D
// vectors, unique ids, the text of reals and wide strings; the lossless text
// mode: reals in their shortest exact STEP form, strings by every escape of
// the exchange format, and whole files that come back with every value as it
// was; and instance lines as the value writers print them: separators,
// nested lists and typed values, the base-type writers, the 120-column
// wrapping and ids.
#include <algorithm>
#include <bit>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "core/coretypes.h"
#include "core/coretypes_io.h"
#include "step/scanner.h"
#include "support/files.h"
#include "support/geometry.h"
#include "support/memory.h"
#include "support/numbers.h"
#include "support/pool.h"
#include "support/ptrarray.h"
#include "support/ptrmap.h"
#include "support/rbtree.h"
#include "support/realtext.h"
#include "support/savestream.h"
#include "support/steplexer.h"
#include "support/steptext.h"
#include "support/uniqueid.h"
#include "support/valuearray.h"
#include "support/writedata.h"
#include "support/wstring.h"
#include "kxifcmodel.h"
#include "record_helpers.h"
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

namespace fs = std::filesystem;

using kx::WideString;

// Copies a library string into a std::u16string and frees it.
std::u16string take(WideString text) {
    EXPECT_NE(text, nullptr);
    if (text == nullptr) return u"<null>";
    std::u16string copy(text);
    kx::wstr_destroy(&text);
    EXPECT_EQ(text, nullptr);
    return copy;
}

std::string take_utf8(char *text) {
    std::string copy(text);
    kx::mem_free_and_clear(&text);
    return copy;
}

// A path as UTF-16, decoded from UTF-8.
std::u16string wide_path(const std::string &path) { return take(kx::wstr_from_utf8(path.c_str())); }

using kxtest::read_file;
using kxtest::utf8;

using FilesTest = kxtest::LibraryTest;

TEST_F(FilesTest, JoinSplitOpenLengthRenameDelete) {
    const auto join = [](const char16_t *dir, const char16_t *name) {
        return utf8(take(kx::file_join_path(dir, name)).c_str());
    };
    for (const char16_t *dir : {u"/tmp/models", u"/tmp/models/"})
        for (const char16_t *name : {u"a.ifc", u"/a.ifc"}) EXPECT_EQ(join(dir, name), "/tmp/models/a.ifc");
    EXPECT_EQ(join(u"/", u"a.ifc"), "/a.ifc");
    EXPECT_EQ(join(u"", u"a.ifc"), "a.ifc");

    const auto split = [](const char16_t *path, kx_bool16 keep_extension) {
        kx::WideString directory = nullptr, base = nullptr;
        kx::file_split_path(path, &directory, &base, keep_extension);
        std::string result = utf8(directory) + "|" + utf8(base);
        kx::wstr_destroy(&directory);
        kx::wstr_destroy(&base);
        return result;
    };
    EXPECT_EQ(split(u"/data/site.v2/model.ifc", FALSO), "/data/site.v2|model");
    EXPECT_EQ(split(u"/data/site.v2/model.ifc", CIERTO), "/data/site.v2|model.ifc");
    EXPECT_EQ(split(u"/data/site.v2/model", FALSO), "/data/site.v2|model");
    EXPECT_EQ(split(u"model.tar.ifc", FALSO), "|model.tar");
    EXPECT_EQ(split(u"/.hidden", FALSO), "/|.hidden");
    EXPECT_EQ(split(u"/data/", FALSO), "/data|");

    kx::WideString base = nullptr;
    kx::file_split_path(u"a/b.c", nullptr, &base, FALSO);  // directory not wanted
    EXPECT_EQ(utf8(base), "b");
    kx::wstr_destroy(&base);
    // A non-ASCII name goes to the system as UTF-8.
    const std::u16string name = wide_path(dir().file("pl\xC3\xA1nta.ifc"));
    const std::u16string other = wide_path(dir().file("renamed.ifc"));
    EXPECT_FALSE(kx::file_exists(name.c_str()));
    EXPECT_EQ(kx::file_length(name.c_str()), 0u);
    EXPECT_EQ(kx::file_open(name.c_str(), "rb"), nullptr);

    FILE *file = kx::file_open(name.c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(kx::file_printf(file, "#%d=IFCWALL(%s);\n", 12, "$"), 16);
    EXPECT_EQ(kx::file_printf_wide(file, u"%s %hs %lu %.2f\n", u"ENDSEC", "x", 4294967295u, 1.5),
              25);
    EXPECT_TRUE(kx::file_close(&file));
    EXPECT_EQ(file, nullptr);
    EXPECT_TRUE(fs::exists(fs::u8path(dir().file("pl\xC3\xA1nta.ifc"))));
    EXPECT_EQ(read_file(dir().file("pl\xC3\xA1nta.ifc")), "#12=IFCWALL($);\nENDSEC x 4294967295 1.50\n");

    EXPECT_TRUE(kx::file_exists(name.c_str()));
    EXPECT_EQ(kx::file_length(name.c_str()), 41u);
    EXPECT_TRUE(kx::file_rename(name.c_str(), other.c_str()));
    EXPECT_FALSE(kx::file_exists(name.c_str()));
    EXPECT_FALSE(kx::file_rename(name.c_str(), other.c_str()));
    EXPECT_TRUE(kx::file_exists(other.c_str()));

    kx::file_delete_if_exists(name.c_str());  // absent: quiet
    kx::file_delete_if_exists(other.c_str());
    EXPECT_FALSE(kx::file_exists(other.c_str()));

    const std::u16string directory = wide_path(dir().path());
    EXPECT_FALSE(kx::file_exists(directory.c_str()));  // a directory is not a file

    FILE *again = kx::file_open(other.c_str(), "wb");
    kx::file_close(&again);
    EXPECT_TRUE(kx::file_delete_checked(other.c_str()));
    expect_reports();
    EXPECT_FALSE(kx::file_delete_checked(other.c_str()));
    EXPECT_TRUE(asserts().saw("deleted"));
}

// Elements of the maps written by the stream tests.
struct Pair {
    uint32_t key;
    kx::WideString name;
};

Pair *pair_new(uint32_t key, const char16_t *name) {
    Pair *pair = kx::mem_new_zeroed<Pair>();
    pair->key = key;
    pair->name = kx::wstr_copy_optional(name);
    return pair;
}
void pair_destroy(void **holder) {
    Pair *pair = static_cast<Pair *>(*holder);
    kx::wstr_destroy_optional(&pair->name);
    kx::mem_free_and_clear(holder);
}
void *pair_copy(const void *element) {
    const Pair *pair = static_cast<const Pair *>(element);
    return pair_new(pair->key, pair->name);
}
uint32_t pair_key(const void *element) { return static_cast<const Pair *>(element)->key; }
kx_bool16 pair_write(kx::SaveStream *stream, const void *element) {
    const Pair *pair = static_cast<const Pair *>(element);
    kx::savestream_write_ulong(stream, pair->key);
    kx::savestream_write_string(stream, pair->name);
    return CIERTO;
}
void *pair_read(kx::SaveStream *stream) {
    const uint32_t key = kx::savestream_read_ulong(stream);
    kx::WideString name = kx::savestream_read_string(stream);
    if (kx::savestream_has_error(stream)) {
        kx::wstr_destroy_optional(&name);
        return nullptr;
    }
    Pair *pair = pair_new(key, nullptr);
    pair->name = name;
    return pair;
}

TEST_F(FilesTest, SaveStreamRoundTripAndTruncatedOrCorruptStreamsFailSafely) {
    const std::u16string name = wide_path(dir().file("table.bin"));
    kx::SaveStream *out = kx::savestream_register_binary_file(name.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    kx::savestream_write_byte(out, 0);
    kx::savestream_write_byte(out, 255);
    // The last one holds a surrogate pair.
    const char16_t *const texts[] = {u"2O2Fr$t4X7Zf8NOew3FLOH", u"", nullptr, u"caf\u00e9 \U0001F3E0"};
    for (const char16_t *text : texts) kx::savestream_write_string(out, text);
    kx::OrderedPtrMap *map = kx::orderedmap_create(pair_key, pair_copy, pair_destroy);
    for (uint32_t key : {30u, 10u, 20u, 10u}) kx::orderedmap_insert(map, pair_new(key, u"g"));
    kx::savestream_write_ordered_map(out, map, pair_write);
    kx::savestream_write_byte(out, 42);
    EXPECT_FALSE(kx::savestream_has_error(out));
    EXPECT_TRUE(kx::savestream_free(&out));
    EXPECT_EQ(out, nullptr);

    kx::SaveStream *in = kx::savestream_register_binary_file(name.c_str(), "rb");
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(kx::savestream_read_byte(in), 0);
    EXPECT_EQ(kx::savestream_read_byte(in), 255);
    for (const char16_t *expected : texts) {
        kx::WideString text = kx::savestream_read_string(in);
        EXPECT_EQ(kxtest::text_of(text), kxtest::text_of(expected));
        kx::wstr_destroy_optional(&text);
    }
    kx::OrderedPtrMap *back =
        kx::savestream_read_ordered_map(in, pair_read, pair_key, pair_copy, pair_destroy);
    ASSERT_EQ(kx::orderedmap_count(back), 4u);
    for (uint32_t i = 0; i < 4; i++)
        EXPECT_EQ(pair_key(kx::orderedmap_get(back, i)), pair_key(kx::orderedmap_get(map, i)));
    EXPECT_EQ(kx::savestream_read_byte(in), 42);
    EXPECT_FALSE(kx::savestream_has_error(in));
    // Reading past the end: 0 and the error flag.
    EXPECT_EQ(kx::savestream_read_byte(in), 0);
    EXPECT_TRUE(kx::savestream_has_error(in));
    EXPECT_FALSE(kx::savestream_free(&in));
    kx::orderedmap_destroy(&map);
    kx::orderedmap_destroy(&back);

    const std::u16string missing = wide_path(dir().file("no/such/dir/table.bin"));
    EXPECT_EQ(kx::savestream_register_binary_file(missing.c_str(), "wb"), nullptr);

    // A truncated or corrupt stream fails safely.
    out = kx::savestream_register_binary_file(name.c_str(), "wb");
    map = kx::orderedmap_create(pair_key, pair_copy, pair_destroy);
    for (uint32_t key = 0; key < 50; key++) kx::orderedmap_insert(map, pair_new(key, u"name"));
    kx::savestream_write_ordered_map(out, map, pair_write);
    kx::savestream_free(&out);
    kx::orderedmap_destroy(&map);
    const std::string whole = read_file(dir().file("table.bin"));

    // Every truncation of the file reads back as an error and an empty map.
    for (size_t length = 0; length < whole.size(); length += 7) {
        const std::u16string cut = wide_path(dir().write("cut.bin", whole.substr(0, length)));
        in = kx::savestream_register_binary_file(cut.c_str(), "rb");
        back = kx::savestream_read_ordered_map(in, pair_read, pair_key, pair_copy, pair_destroy);
        EXPECT_EQ(kx::orderedmap_count(back), 0u) << "length " << length;
        EXPECT_TRUE(kx::savestream_has_error(in));
        kx::orderedmap_destroy(&back);
        kx::savestream_free(&in);
    }

    // Huge counts must not allocate or loop for them.
    const std::u16string bad =
        wide_path(dir().write("bad.bin", std::string("\xff\xff\xff\x7f\x01\x00\x00\x00\xfe\xff\xff\xff", 12)));
    in = kx::savestream_register_binary_file(bad.c_str(), "rb");
    back = kx::savestream_read_ordered_map(in, pair_read, pair_key, pair_copy, pair_destroy);
    EXPECT_EQ(kx::orderedmap_count(back), 0u);
    kx::orderedmap_destroy(&back);
    kx::savestream_free(&in);
    in = kx::savestream_register_binary_file(bad.c_str(), "rb");
    kx::savestream_read_ulong(in);
    kx::savestream_read_ulong(in);
    EXPECT_EQ(kx::savestream_read_string(in), nullptr);  // length 0xFFFFFFFE
    EXPECT_TRUE(kx::savestream_has_error(in));
    kx::savestream_free(&in);

    // Reading a stream opened for writing is a misuse.
    expect_reports();
    out = kx::savestream_register_binary_file(name.c_str(), "wb");
    EXPECT_EQ(kx::savestream_read_byte(out), 0);
    EXPECT_TRUE(asserts().saw("!stream->writing"));
    kx::savestream_free(&out);
}

// The header lexer with small buffers that split tokens, and broken input
// (the header reader tests read real header text through it).
using kx::StepToken;

enum Word : uint32_t { ISO = 1, HEADER, FILE_DESCRIPTION, FILE_NAME, FILE_SCHEMA, ENDSEC, DATA, END_ISO };

const char *const HEADER_TEXT =
    "ISO-10303-21;\r\n"
    "HEADER;\n"
    "/* a comment with a ' quote; and ENDSEC */\n"
    "FILE_DESCRIPTION(('ViewDefinition [CoordinationView]'),'2;1');\n"
    "file_name('caf\\S\\'e.ifc','2024-01-01T10:00:00',('O''Brien'),(''),\n"
    "  'Processor /* not a comment */','App $ 1.0',$);\n"
    "FILE_SCHEMA(('IFC4'));\n"
    "ENDSEC;\n"
    "DATA;\n"
    "#1=IFCWALL('x',$,.T.);\n"
    "ENDSEC;\n"
    "END-ISO-10303-21;\n";

class StepLexerTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        path_ = wide_path(dir().file(kFileName));
    }

    void write_file(const std::string &content) { dir().write(kFileName, content); }

    // A lexer over the file, set up as the header reader does.
    kx::StepLexer *open_lexer(uint32_t buffer_length = 0) {
        kx::ReservedWords *words = kx::steplexer_words_create();
        const char16_t *names[] = {u"ISO-10303-21", u"HEADER", u"FILE_DESCRIPTION", u"FILE_NAME",
                                   u"FILE_SCHEMA",  u"ENDSEC", u"DATA",             u"END-ISO-10303-21"};
        for (uint32_t i = 0; i < 8; i++) kx::steplexer_words_add(words, names[i], i + 1);
        kx::StepLexer *lexer = kx::steplexer_create(path_.c_str(), &words);
        EXPECT_EQ(words, nullptr);
        if (lexer == nullptr) return nullptr;
        if (buffer_length != 0) kx::steplexer_set_buffer_length(lexer, buffer_length);
        kx::steplexer_quote_literals(lexer);
        kx::steplexer_add_literal_symbol(lexer, u"\\S\\'");
        kx::steplexer_add_literal_filter(lexer, u"''", u"'");
        kx::steplexer_start(lexer);
        return lexer;
    }

    // Every token to the end, as "kind:text" (reserved words as "W<code>").
    static std::vector<std::string> all_tokens(kx::StepLexer *lexer, size_t limit = 1000000) {
        std::vector<std::string> tokens;
        while (tokens.size() < limit) {
            const StepToken kind = kx::steplexer_token(lexer);
            std::string text = utf8(kx::steplexer_token_text(lexer));
            if (kind == StepToken::Word && kx::steplexer_word_code(lexer) != kx::ULONG_MAX32)
                text = std::string("W").append(std::to_string(kx::steplexer_word_code(lexer)));
            tokens.push_back(std::to_string(static_cast<int>(kind)) + ":" + text);
            if (kind == StepToken::End) break;
            kx::steplexer_read_token(lexer);
        }
        return tokens;
    }

    static constexpr const char *kFileName = "lexer.ifc";
    std::u16string path_;
};

TEST_F(StepLexerTest, SmallBuffersGiveTheSameTokens) {
    // Bytes 0x80..0xFF become the code units of the same value.
    write_file(std::string(HEADER_TEXT) + "'\xE9\xFF' other #");
    kx::StepLexer *lexer = open_lexer();
    const std::vector<std::string> expected = all_tokens(lexer);
    kx::steplexer_destroy(&lexer);
    EXPECT_EQ(expected[expected.size() - 4], "5:\xC3\xA9\xC3\xBF");
    EXPECT_EQ(expected[expected.size() - 2], "7:#");
    for (uint32_t length : {1u, 5u, 16u, 17u, 19u, 23u, 64u, 200u}) {
        lexer = open_lexer(length);
        EXPECT_EQ(all_tokens(lexer), expected) << "buffer of " << length;
        kx::steplexer_destroy(&lexer);
    }
    // A buffer resized after the start keeps what it had read.
    lexer = open_lexer(16);
    kx::steplexer_read_token(lexer);
    kx::steplexer_set_buffer_length(lexer, 4096);
    std::vector<std::string> rest = all_tokens(lexer);
    EXPECT_EQ(rest, std::vector<std::string>(expected.begin() + 1, expected.end()));
    kx::steplexer_destroy(&lexer);
}

// A missing file releases the reserved words; binary garbage, an
// unterminated literal or comment end in an error or at the end, an empty
// file at the end; the literal of another token is a misuse.
TEST_F(StepLexerTest, MissingFileBinaryGarbageUnterminatedTextEmptyFileAndMisuse) {
    kx::ReservedWords *words = kx::steplexer_words_create();
    kx::steplexer_words_add(words, u"HEADER", 2);
    EXPECT_EQ(kx::steplexer_create(path_.c_str(), &words), nullptr);
    EXPECT_EQ(words, nullptr);  // taken over and released

    std::mt19937 random(3);
    std::string content("HEADER;\0'a\0b';", 14);
    content.push_back('\0');
    for (int i = 0; i < 200000; i++) content.push_back(static_cast<char>(random()));
    write_file(content);
    for (uint32_t length : {16u, 4096u}) {
        kx::StepLexer *lexer = open_lexer(length);
        const std::vector<std::string> tokens = all_tokens(lexer, 400000);
        EXPECT_EQ(tokens.back().substr(0, 2), "8:");  // reached the end (or an error before it)
        EXPECT_LE(tokens.size(), 200020u);
        kx::steplexer_destroy(&lexer);
    }

    write_file("FILE_NAME('never closed, it''s");
    kx::StepLexer *lexer = open_lexer(16);
    EXPECT_TRUE(kx::steplexer_word_is_and_read(lexer, FILE_NAME));
    EXPECT_TRUE(kx::steplexer_token_is_and_read(lexer, StepToken::LeftParen));
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::Error));
    EXPECT_EQ(utf8(kx::steplexer_token_text(lexer)), "never closed, it's");
    kx::steplexer_read_token(lexer);
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::End));
    kx::steplexer_destroy(&lexer);

    write_file("HEADER; /* no end *");
    lexer = open_lexer();
    expect_reports();
    EXPECT_EQ(utf8(kx::steplexer_literal(lexer)), "HEADER");
    EXPECT_TRUE(asserts().saw("lexer->token == StepToken::Literal"));
    EXPECT_FALSE(kx::steplexer_skip_to_word_and_read(lexer, FILE_SCHEMA));
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::Error));
    kx::steplexer_destroy(&lexer);

    write_file("");
    lexer = open_lexer();
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::End));
    EXPECT_FALSE(kx::steplexer_skip_to_word_and_read(lexer, HEADER));
    kx::steplexer_read_token(lexer);
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::End)) << "and stays there";
    kx::steplexer_destroy(&lexer);
}

using NumbersTest = kxtest::LibraryTest;

// Halves round away from zero, also where the double lies just below the
// half; with nothing left to round, or no room to scale, a value stays.
TEST_F(NumbersTest, RoundingHalvesAwayFromZeroHexTextAndPointers) {
    const double cases[][3] = {
        {2.675, 2, 2.68},   {-2.675, 2, -2.68}, {1.005, 2, 1.01},   {0.125, 2, 0.13},   {0.1249, 2, 0.12},
        {3.14159, 0, 3.0},  {1234.5, -2, 1200}, {0.5, 0, 1.0},      {-0.5, 0, -1.0},    {1e300, 10, 1e300},
        {DBL_MAX, 2, DBL_MAX}, {0.1, 400, 0.1},
    };
    for (const auto &c : cases) EXPECT_DOUBLE_EQ(kx::number_round_decimals(c[0], static_cast<int>(c[1])), c[2]) << c[0];
    EXPECT_TRUE(std::isnan(kx::number_round_decimals(NAN, 2)));
    const std::pair<double, int32_t> to_long[] = {{2.5, 3}, {-2.5, -3}, {2.4999, 2}, {0.49999999999999994, 0}, {1e20, INT32_MAX},
                                                  {-1e20, INT32_MIN}, {NAN, 0}};
    for (const auto &[value, rounded] : to_long) EXPECT_EQ(kx::number_round_to_long(value), rounded) << value;
    // In the last the top digit shifts out.
    const std::pair<const char16_t *, uint32_t> hex[] = {
        {u"0", 0u}, {u"", 0u}, {u"DeadBeef", 0xDEADBEEFu}, {u"ffffffff", 4294967295u}, {u"123456789", 0x23456789u}};
    for (const auto &[text, value] : hex) EXPECT_EQ(kx::number_hex_to_ulong(text), value);
    expect_reports();
    EXPECT_EQ(kx::number_hex_to_ulong(u"1Fg7"), 0x1Fu);
    EXPECT_TRUE(asserts().saw("is_hex_digit"));

    int a = 0, b = 0;
    EXPECT_NE(kx::number_pointer_to_ulong(&a), kx::number_pointer_to_ulong(&b));
    EXPECT_EQ(kx::number_pointer_to_ulong(&a), kx::number_pointer_to_ulong(&a));
    EXPECT_EQ(kx::number_pointer_to_ulong(nullptr), 0u);
}

// Each value within 1e-12 of the expected one.
void expect_near(std::initializer_list<double> got, std::initializer_list<double> expected) {
    ASSERT_EQ(got.size(), expected.size());
    for (auto g = got.begin(), e = expected.begin(); g != got.end(); ++g, ++e) EXPECT_NEAR(*g, *e, 1e-12);
}

TEST_F(NumbersTest, UniqueIdsAreDistinctAcrossThreadsAndPlaneAxesAndVectorsConvert) {
    constexpr int PER_THREAD = 50000;
    std::vector<std::vector<uint32_t>> ids(4);
    std::vector<std::thread> threads;
    for (auto &list : ids)
        threads.emplace_back([&list] {
            for (int i = 0; i < PER_THREAD; i++) list.push_back(kx::uniqueid_new());
        });
    for (auto &thread : threads) thread.join();
    std::set<uint32_t> all;
    for (const auto &list : ids) all.insert(list.begin(), list.end());
    EXPECT_EQ(all.size(), 4u * PER_THREAD);
    EXPECT_EQ(all.count(0), 0u);
    // Origin (10, 5), x axis along global +y.
    kx::PlaneAxes *axes = kx::planeaxes_create(10.0, 5.0, M_PI / 2);
    EXPECT_NEAR(kx::planeaxes_angle(axes), M_PI / 2, 1e-12);
    double x, y;
    kx::planeaxes_point_to_global(axes, 2.0, 1.0, &x, &y);
    expect_near({x, y}, {9.0, 7.0});
    kx::planeaxes_point_to_local(axes, x, y, &x, &y);
    expect_near({x, y}, {2.0, 1.0});

    // A frame given by a direction that is not of unit length.
    kx::PlaneAxes *inner = kx::planeaxes_create_with_direction(1.0, 0.0, 0.0, -3.0);
    kx::PlaneAxes *global = kx::planeaxes_to_global(axes, inner);
    // The direction -y turned a quarter: +x.
    expect_near({global->origin_x, global->origin_y, global->direction_x, global->direction_y}, {10.0, 6.0, 1.0, 0.0});
    kx::PlaneAxes *back = kx::planeaxes_to_local(axes, global);
    expect_near({back->origin_x, back->origin_y, back->direction_x, back->direction_y},
                {inner->origin_x, inner->origin_y, inner->direction_x, inner->direction_y});

    double ox, oy, dx, dy;
    kx::planeaxes_frame_to_local(axes, 10.0, 5.0, 0.0, 2.0, &ox, &oy, &dx, &dy);
    expect_near({ox, oy, dx, dy}, {0.0, 0.0, 1.0, 0.0});

    for (kx::PlaneAxes **p : {&axes, &inner, &global, &back}) kx::planeaxes_destroy(p);
    EXPECT_EQ(axes, nullptr);

    // 3D vectors: a unit vector from components that would overflow if
    // squared directly; a cross product into one of its arguments.
    double z = 0.0;
    x = y = 1e300;
    EXPECT_TRUE(kx::vector3_unit(&x, &y, &z));
    EXPECT_NEAR(x, std::sqrt(0.5), 1e-15);
    x = y = z = 0.0;
    EXPECT_FALSE(kx::vector3_unit(&x, &y, &z));
    double a[3] = {2, 3, 4};
    const double b[3] = {5, 6, 7};
    kx::vector3_cross(a, b, a);  // the result may overwrite an argument
    EXPECT_EQ(std::vector<double>(a, a + 3), (std::vector<double>{-3, 6, -3}));

    expect_reports();
    kx::PlaneAxes *degenerate = kx::planeaxes_create_with_direction(0.0, 0.0, 0.0, 0.0);
    EXPECT_EQ(degenerate->direction_x, 1.0);
    EXPECT_TRUE(asserts().saw("usable"));
    kx::planeaxes_destroy(&degenerate);
}

// The exchange-file form of reals: zero below 1e-08, whole numbers as "n.",
// ten significant digits inside the 32-bit range, "%.1f" or twelve digits
// outside it, and always a decimal point.
using RealFormatTest = kxtest::LibraryTest;

std::string format(double value) { return utf8(take(kxIfcWriteData_format_real(value)).c_str()); }

const std::pair<double, const char *> kFormats[] = {
    // Tiny values and negative zero are zero; 1e-08 itself is not below the
    // limit.
    {0.0, "0."}, {-0.0, "0."}, {1e-9, "0."}, {-1e-9, "0."}, {9.9e-9, "0."}, {1e-8, "1.E-08"},
    // Whole numbers inside the 32-bit range (or within 1e-08 of one) end
    // with a dot.
    {2.0, "2."}, {-120.0, "-120."}, {2500.0, "2500."}, {3.000000000001, "3."}, {-2.999999999999, "-3."},
    {2147483647.0, "2147483647."}, {-2147483648.0, "-2147483648."},
    // Fractions inside the range take ten digits, then the point is added;
    // glibc prints two exponent digits.
    {-0.5, "-0.5"}, {2.5, "2.5"}, {0.1, "0.1"}, {1.0 / 3.0, "0.3333333333"}, {123456789.123, "123456789.1"},
    {3.00000002, "3.00000002"}, {2147483646.7, "2147483647."}, {1.23456789e-7, "1.23456789E-07"},
    {1e-5, "1.E-05"}, {-2.5e-7, "-2.5E-07"},
    // Outside the range: "%.1f" within 0.10001 of a whole number (every
    // double that large is whole), else twelve digits; when those drop the
    // half, %G leaves no point and one goes before the exponent.
    {1.0e20, "100000000000000000000.0"}, {-1.5e20, "-150000000000000000000.0"}, {4294967296.0, "4294967296.0"},
    {2147483648.0, "2147483648.0"}, {-2147483649.0, "-2147483649.0"}, {3000000000.04, "3000000000.0"},
    {3000000000.1, "3000000000.1"}, {3000000000.5, "3000000000.5"}, {-3000000000.25, "-3000000000.25"},
    {1e15 + 0.5, "1.E+15"}, {1234567890123.5, "1.23456789012E+12"},
    {std::numeric_limits<double>::infinity(), "INF."}, {-std::numeric_limits<double>::infinity(), "-INF."},
};

TEST_F(RealFormatTest, EachRangeHasItsForm) {
    for (const auto &[value, text] : kFormats) EXPECT_EQ(format(value), text) << value;
    const std::string huge = format(1e300);
    ASSERT_EQ(huge.size(), 303u);
    EXPECT_EQ(huge.substr(0, 4), "1000");
    EXPECT_EQ(huge.substr(huge.size() - 2), ".0");
    const std::string largest = format(std::numeric_limits<double>::max());
    EXPECT_EQ(largest.size(), 311u);
    EXPECT_EQ(largest.substr(0, 6), "179769");
}

using kxtest::wide;

class WideStringTest : public kxtest::LibraryTest {};

// Concatenation (also of the held string's own tail), upper case, blanks,
// whole-word search, and replacing every occurrence: growing, shrinking, left
// to right without overlaps, and nothing to look for.
TEST_F(WideStringTest, EditsInPlaceSearchesAndUtf8BothWaysWithReplacementCharacters) {
    WideString text = kx::wstr_copy(u"Ifc");
    kx::wstr_concat(&text, u"Wall");
    kx::wstr_concat(&text, u"");
    EXPECT_EQ(std::u16string(text), u"IfcWall");
    kx::wstr_concat(&text, text + 3);  // the tail lives inside the held string
    EXPECT_EQ(take(text), u"IfcWallWall");

    text = kx::wstr_copy(u"ifc_wall-\u00e9z");
    kx::wstr_to_upper(text);
    EXPECT_EQ(take(text), u"IFC_WALL-\u00e9Z");
    for (const char16_t *blank : {u"", u" \t\r\n "}) EXPECT_TRUE(kx::wstr_is_blank(blank));
    EXPECT_FALSE(kx::wstr_is_blank(u"  x "));
    EXPECT_TRUE(kx::wstr_find_word(u"IFC2X3_TC1", u"2X3"));
    EXPECT_TRUE(kx::wstr_find_word(u"IFC4", u"IFC4"));
    for (const char16_t *word : {u"IFC4X", u"ifc"}) EXPECT_FALSE(kx::wstr_find_word(u"IFC4", word));

    text = kx::wstr_copy(u"it''s ''quoted''");
    kx::wstr_replace_all(&text, u"''", u"'");
    EXPECT_EQ(std::u16string(text), u"it's 'quoted'");
    kx::wstr_replace_all(&text, u"'", u"\\S\\'");  // grows
    EXPECT_EQ(std::u16string(text), u"it\\S\\'s \\S\\'quoted\\S\\'");
    kx::wstr_replace_all(&text, u"absent", u"x");
    kx::wstr_replace_all(&text, u"", u"x");  // nothing to look for
    EXPECT_EQ(take(text), u"it\\S\\'s \\S\\'quoted\\S\\'");
    text = kx::wstr_copy(u"aaaaa");
    kx::wstr_replace_all(&text, u"aa", u"b");  // left to right, no overlaps
    EXPECT_EQ(take(text), u"bba");
    text = kx::wstr_copy(u"xx");
    kx::wstr_replace_all(&text, u"x", u"");
    EXPECT_EQ(take(text), u"");
    struct Case {
        const char *utf8;
        std::u16string expected;
    };
    const Case cases[] = {
        {"\x80", u"\ufffd"},                              // stray continuation
        {"a\xbf" "b", u"a\ufffdb"},
        {"\xc0\x80", u"\ufffd\ufffd"},                    // overlong NUL
        {"\xc1\xbf", u"\ufffd\ufffd"},                    // overlong
        {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},          // overlong three-byte
        {"\xf0\x8f\xbf\xbf", u"\ufffd\ufffd\ufffd\ufffd"},  // overlong four-byte
        {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},          // encoded high surrogate
        {"\xed\xbf\xbf", u"\ufffd\ufffd\ufffd"},          // encoded low surrogate
        {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"},  // beyond U+10FFFF
        {"\xf5\x80", u"\ufffd\ufffd"},                    // lead byte above F4
        {"\xff" "A", u"\ufffdA"},
        {"\xe2\x82", u"\ufffd"},                          // truncated at the end
        {"\xe2\x82" "A", u"\ufffdA"},                     // truncated mid-text
        {"\xf0\x9f\x98", u"\ufffd"},
        {"\xf0\x9f" "\xc3\xa9", u"\ufffd\u00e9"},         // next sequence survives
    };
    for (const Case &c : cases) EXPECT_EQ(take(kx::wstr_from_utf8(c.utf8)), c.expected) << c.utf8;
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(u"")), "");
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(u"A\u00e9\u20ac\U0001F600\U0010FFFF")),
              "A\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf");
    // A lone high surrogate at the end or before a letter, a lone low one, a swapped pair.
    const std::pair<std::u16string, std::string> lone[] = {
        {{u'a', 0xD83D}, "a\xef\xbf\xbd"}, {{0xDE00, u'b'}, "\xef\xbf\xbd" "b"},
        {{0xD83D, u'c'}, "\xef\xbf\xbd" "c"}, {{0xDE00, 0xD83D}, "\xef\xbf\xbd\xef\xbf\xbd"}};
    for (const auto &[text, utf8] : lone) EXPECT_EQ(take_utf8(kx::wstr_to_utf8(text.c_str())), utf8);

    // Every scalar value survives UTF-16 -> UTF-8 -> UTF-16.
    for (uint32_t code = 1; code <= 0x10FFFF; code += (code < 0x30000 ? 1 : 0x101)) {
        if (code >= 0xD800 && code <= 0xDFFF) continue;
        char16_t units[3] = {};
        if (code < 0x10000) {
            units[0] = char16_t(code);
        } else {
            units[0] = char16_t(0xD800 + ((code - 0x10000) >> 10));
            units[1] = char16_t(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
        char *utf8 = kx::wstr_to_utf8(units);
        WideString back = kx::wstr_from_utf8(utf8);
        kx::mem_free_and_clear(&utf8);
        ASSERT_EQ(std::u16string(back), std::u16string(units)) << std::hex << code;
        kx::wstr_destroy(&back);
    }
}

TEST_F(WideStringTest, FormatsAsPrintfDoesAndMisuseIsReported) {
    const std::pair<std::u16string, std::u16string> cases[] = {
        {take(kx::wstr_format(u"%d %i %u %x %X %o %#x", -1, 42, 3000000000u, 255u, 255u, 8u, 255u)),
         u"-1 42 3000000000 ff FF 10 0xff"},
        {take(kx::wstr_format(u"%lld %zu", INT64_MIN, SIZE_MAX)), u"-9223372036854775808 18446744073709551615"},
        {take(kx::wstr_format(u"%hd %hu %hhd %llu", 70000, 70000, 300, UINT64_MAX)),
         u"4464 4464 44 18446744073709551615"},
        {take(kx::wstr_format(u"[%5d|%-5d|%05d|%+d|% d]", 42, 42, -42, 42, 42)), u"[   42|42   |-0042|+42| 42]"},
        {take(kx::wstr_format(u"[%.3d|%*d|%-*d|%*d]", 7, 4, 1, 3, 2, -4, 9)), u"[007|   1|2  |9   ]"},
        // Arguments after 32-bit and 64-bit ones are read from the right place.
        {take(kx::wstr_format(u"%ld %lld %ld %s", int32_t(1), 2LL, int32_t(3), u"four")), u"1 2 3 four"},
        {take(kx::wstr_format(u"'%s' %hs", u"\u00e9\U0001F600", "Caf\xe9")), u"'\u00e9\U0001F600' Caf\u00e9"},
        {take(kx::wstr_format(u"[%6s|%-6s|%.2s|%6.2hs]", u"abc", u"abc", u"abc", "xyz")), u"[   abc|abc   |ab|    xy]"},
        {take(kx::wstr_format(u"%s|%hs", static_cast<const char16_t *>(nullptr), static_cast<const char *>(nullptr))),
         u"(null)|(null)"},
        {take(kx::wstr_format(u"%c%c%3c%hc", 'A', 0x20AC, 'z', '\xe9')), u"A\u20ac  z\u00e9"},
        {take(kx::wstr_format(u"100%% \u00e9%d\u20ac", 5)), u"100% \u00e95\u20ac"},
        {take(kx::wstr_format(u"")), u""},
    };
    for (const auto &[got, expected] : cases) EXPECT_EQ(got, expected);
    int object = 0;
    char expected[64];
    std::snprintf(expected, sizeof expected, "%p", static_cast<void *>(&object));
    EXPECT_EQ(take(kx::wstr_format(u"%p", static_cast<void *>(&object))), wide(expected));
    const char *specs[] = {"%f", "%F", "%e", "%E", "%g", "%G", "%+.3e", "%012.4f", "%-12.2f|",
                           "%#.0f", "%.0e", "%a", "%.17g"};
    const double values[] = {0.0, -0.0, 1.0, -123.456, 1e-300, 6.02214076e23, DBL_MAX,
                             1.0 / 0.0, -1.0 / 0.0};
    for (const char *spec : specs) {
        for (double value : values) {
            char printed[512];
            std::snprintf(printed, sizeof printed, spec, value);
            EXPECT_EQ(take(kx::wstr_format(wide(spec).c_str(), value)), wide(printed))
                << spec << " " << value;
        }
    }
    EXPECT_EQ(take(kx::wstr_format(u"%.*f", 2, 3.14159)), u"3.14");
    EXPECT_EQ(take(kx::wstr_format(u"%.*f", -1, 1.5)), u"1.500000");  // negative: no precision
    EXPECT_EQ(take(kx::wstr_format(u"%Lg", 2.5L)), u"2.5");
    // Longer than any fixed buffer.
    EXPECT_EQ(take(kx::wstr_format(u"%f", DBL_MAX)).size(), 316u);
    EXPECT_EQ(take(kx::wstr_format(u"%300d", 1)), std::u16string(299, u' ') + u"1");
    // NULL where a string is required, and an unknown conversion (kept as it
    // is), are reported; the exported text functions accept NULL quietly.
    WideString held = nullptr;
    expect_each_reported({
        {"(text) != NULL", [] { EXPECT_EQ(kx::wstr_copy(nullptr), nullptr); }},
        {"(*holder) != NULL", [&] { kx::wstr_destroy(&held); }},
        {"(text) != NULL", [] { EXPECT_EQ(kx::wstr_length(nullptr), 0u); }},
        {"(b) != NULL", [] { EXPECT_FALSE(kx::wstr_equal(u"a", nullptr)); }},
        {"", [] { EXPECT_EQ(take(kx::wstr_format(u"a%qb %d", 7)), u"a%qb 7"); }},
        {"", [] { EXPECT_EQ(take(kx::wstr_format(u"end%")), u"end%"); }},
    });
    EXPECT_EQ(kxWideString_new_from_utf8(nullptr), nullptr);
    EXPECT_EQ(kxWideString_to_utf8(nullptr), nullptr);
    EXPECT_EQ(kxWideString_length(nullptr), 0u);
    kxWChar *no_wide = nullptr;
    char *no_narrow = nullptr;
    kxWideString_free(&no_wide);
    kxUtf8String_free(&no_narrow);
    kxWideString_free(nullptr);
    kxUtf8String_free(nullptr);
}

// The digits of reals: the rounded and the shortest digits agree with the
// standard library's on values where the quick scaling decides and on
// values where it must not (halves, seventeen-digit values, extremes).

// "-125e-3": the sign, the digits and the exponent of the first digit.
std::string digits_text(bool negative, const std::string &digits, int exponent) {
    std::string text = negative ? "-" : "";
    text.append(digits).append("e").append(std::to_string(exponent));
    return text;
}

std::string digits_text(const kx::DecimalDigits &decimal) {
    return digits_text(decimal.negative, std::string(decimal.digits, decimal.count), decimal.exponent);
}

// The library's scientific text as digits without trailing zeros and an exponent.
std::string reference(const char *text_end, const char *text) {
    std::string digits;
    const char *c = text;
    bool negative = false;
    if (*c == '-') {
        negative = true;
        c++;
    }
    for (; c < text_end && *c != 'e'; c++)
        if (*c != '.') digits += *c;
    while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
    int exponent = 0;
    if (c < text_end) std::from_chars(c[1] == '+' ? c + 2 : c + 1, text_end, exponent);
    return digits_text(negative, digits, exponent);
}

std::string reference_shortest(double value) {
    char text[64];
    return reference(std::to_chars(text, text + 64, value, std::chars_format::scientific).ptr, text);
}

std::string reference_rounded(double value, int significant) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", significant - 1, value);
    return reference(text + std::char_traits<char>::length(text), text);
}

TEST(RealDigitsTest, AgreeWithTheStandardLibrary) {
    std::mt19937_64 random(11);
    std::vector<double> values = {1.0, 0.1, 0.5, 2.5, 1e15, 1e15 - 1, 1e-5, 9.999999999e-5, 123456789.5,
                                  0.30000000000000004, 1e22, 1e23, 5e-324, 1.7976931348623157e308, -0.0};
    for (int i = 0; i < 100000; i++) {
        values.push_back(std::bit_cast<double>(random()));
        // Short decimals of every length, and their neighbours.
        const int digits = 1 + static_cast<int>(random() % 17);
        char text[48];
        std::snprintf(text, sizeof text, "%llue%d",
                      static_cast<unsigned long long>(random() % static_cast<uint64_t>(std::pow(10.0, digits))),
                      static_cast<int>(random() % 50) - 30);
        const double value = std::strtod(text, nullptr);
        values.insert(values.end(), {value, std::nextafter(value, 1e300), std::nextafter(value, -1e300)});
        // Exact halves at the tenth digit.
        values.push_back(static_cast<double>(random() % 100000000000ull) + 0.5);
    }
    for (double value : values) {
        if (!std::isfinite(value)) continue;
        kx::DecimalDigits decimal;
        kx::decimal_shortest(value, &decimal);
        ASSERT_EQ(digits_text(decimal), reference_shortest(value));
        for (int significant : {10, 12, 15}) {
            kx::decimal_round(value, significant, &decimal);
            ASSERT_EQ(digits_text(decimal), reference_rounded(value, significant)) << significant;
        }
    }
}

using LosslessTextTest = kxtest::LibraryTest;

std::string shortest(double value) {
    char text[kx::kShortestRealSize];
    return std::string(text, kx::step_format_real_shortest(value, text));
}

// Whether the scanner reads the whole text as one real, to this very double.
bool reads_back_exactly(const std::string &text, double value) {
    kx::Scanner scanner;
    kx::scanner_init(&scanner, text.data(), text.size());
    const kx::Token token = kx::scanner_next(&scanner);
    return token.kind == kx::TOKEN_REAL && token.length == text.size() &&
           std::bit_cast<uint64_t>(token.real) == std::bit_cast<uint64_t>(value);
}

TEST_F(LosslessTextTest, RealsAreTheShortestExactStepText) {
    const struct {
        double value;
        const char *text;
    } cases[] = {
        {0.0, "0."}, {-0.0, "-0."}, {1e-9, "1.E-09"}, {2.0, "2."}, {-120.0, "-120."}, {100000.0, "100000."},
        {5.00000001012284, "5.00000001012284"}, {0.766044443119, "0.766044443119"}, {1e20, "1.E+20"},
        {-2.5e-7, "-2.5E-07"}, {DBL_MAX, "1.7976931348623157E+308"}, {4.9406564584124654e-324, "5.E-324"},
    };
    for (const auto &c : cases) EXPECT_EQ(shortest(c.value), c.text) << c.value;
    // No STEP real stands for an infinity or a NaN: in either form they are
    // written unset.
    for (bool lossless : {false, true}) {
        const std::string line = kxtest::written_text([lossless](kxIfcWriteData *output) {
            kxIfcWriteData_set_lossless(output, lossless);
            kxIfcWriteData_begin_parameters(output);
            for (double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) kxIfcWriteData_write_real(output, value);
            kxIfcWriteData_write_entity_line(output, u"IfcCartesianPoint", 1, nullptr);
        });
        EXPECT_EQ(line, "#1= IFCCARTESIANPOINT($,$,$);\n");
    }
    // Random bit patterns of every magnitude, subnormals included.
    std::mt19937_64 random(7);
    for (int i = 0; i < 200000; i++) {
        double value = std::bit_cast<double>(random());
        if (!std::isfinite(value)) continue;
        const std::string text = shortest(value);
        ASSERT_TRUE(reads_back_exactly(text, value)) << text;
    }
}

std::u16string lossless_decode(const std::u16string &text, kx::StringIssue *issue) {
    return take(kx::step_decode_string(text.data(), text.size(), issue));
}

std::u16string lossless_encode(const std::u16string &text) {
    std::u16string encoded(kx::step_encoded_bound(text.size()), u'\0');
    encoded.resize(kx::step_encode_string(text.c_str(), encoded.data()));
    return encoded;
}

TEST_F(LosslessTextTest, StringsDecodeByEveryEscapeAndEncodeBackToThemselves) {
    const struct {
        std::u16string file_text;
        std::u16string value;
        kxReadCode issue;
        std::u16string written;  // empty: as in the file
    } cases[] = {
        {u"Schriftgr\\X2\\00F600DF\\X0\\e", u"Schriftgr\u00f6\u00dfe", 0, u""},
        {u"\\X4\\0001F600\\X0\\!", u"\U0001F600!", 0, u"\\X2\\D83DDE00\\X0\\!"},
        {u"\\X2\\D83DDE00\\X0\\", u"\U0001F600", 0, u""},
        {u"Wohn\\X\\FCberbauung", u"Wohn\u00fcberbauung", 0, u"Wohn\\X2\\00FC\\X0\\berbauung"},
        {u"\\S\\D", u"\u00c4", 0, u"\\X2\\00C4\\X0\\"},
        {u"\\PE\\\\S\\d", u"\u0444", 0, u"\\X2\\0444\\X0\\"},   // ISO 8859-5
        {u"\\PB\\\\S\\a\\PA\\\\S\\a", u"\u00e1\u00e1", 0, u"\\X2\\00E100E1\\X0\\"},
        {u"It''s a\\\\b", u"It's a\\b", 0, u""},
        {u"a\\X2\\00E\\X0\\b", u"a\\X2\\00E\\X0\\b", KX_READ_MALFORMED_ESCAPE, u"a\\\\X2\\\\00E\\\\X0\\\\b"},
        {u"\\Q\\", u"\\Q\\", KX_READ_MALFORMED_ESCAPE, u"\\\\Q\\\\"},
        {u"x\\X\\00y", u"xy", KX_READ_NUL_IN_STRING, u"xy"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(kxtest::utf8(c.file_text.c_str()));
        kx::StringIssue issue;
        EXPECT_EQ(lossless_decode(c.file_text, &issue), c.value);
        EXPECT_EQ(issue.code, c.issue);
        EXPECT_EQ(lossless_encode(c.value), c.written.empty() ? c.file_text : c.written);
    }
    // Any text at all, lone surrogates and controls included, comes back.
    std::mt19937 random(11);
    for (int i = 0; i < 20000; i++) {
        std::u16string text(random() % 12, u'a');
        for (char16_t &unit : text) unit = static_cast<char16_t>(random() % 3 == 0 ? 1 + random() % 0xFFFF : 0x20 + random() % 0x5F);
        kx::StringIssue issue;
        ASSERT_EQ(lossless_decode(lossless_encode(text), &issue), text);
        ASSERT_EQ(issue.count, 0u);
    }
}

class LosslessFileTest : public kxtest::LibraryTest {
protected:
    kxIfcModel *read(const std::string &path, kxReadReport *report) {
        return kxIfcModel_read_with_report(kxtest::wide(path).c_str(), 0, KX_TEXT_MODE_LOSSLESS, report, nullptr);
    }
    // Exports the model as <directory>/<base>.ifc; its text.
    std::string write(kxIfcModel *model, const std::string &base) {
        kxIfcModel_export_model_to_file(model, kxtest::wide(base).c_str(), kxtest::wide(dir().path()).c_str());
        return kxtest::read_file(dir().file(base + ".ifc"));
    }
    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // empty time stamps: byte-identical exports
};

// Where two data sections first disagree, value by value: reals bit for
// bit, strings once decoded, everything else by its text ("" when equal).
std::string first_lost_value(const std::string &original, const std::string &written) {
    kx::Scanner a, b;
    const size_t from_a = original.find("DATA;"), from_b = written.find("DATA;");
    kx::scanner_init(&a, original.data() + from_a, original.size() - from_a);
    kx::scanner_init(&b, written.data() + from_b, written.size() - from_b);
    for (;;) {
        const kx::Token x = kx::scanner_next(&a), y = kx::scanner_next(&b);
        const bool numbers = (x.kind == kx::TOKEN_REAL || x.kind == kx::TOKEN_INT) &&
                             (y.kind == kx::TOKEN_REAL || y.kind == kx::TOKEN_INT);
        bool same = x.kind == y.kind || numbers;
        if (same && numbers) {
            same = std::bit_cast<uint64_t>(kx::scanner_real_value(x.text, x.length)) ==
                   std::bit_cast<uint64_t>(kx::scanner_real_value(y.text, y.length));
        } else if (same && x.kind == kx::TOKEN_STRING) {
            char16_t *u = kx::step_string_value(x.text, x.length, true, nullptr);
            char16_t *v = kx::step_string_value(y.text, y.length, true, nullptr);
            same = kx::wstr_equal(u, v);
            kx::wstr_destroy(&u);
            kx::wstr_destroy(&v);
        } else if (same && x.kind != kx::TOKEN_END) {
            same = strncasecmp(x.text, y.text, std::max(x.length, y.length)) == 0;
        }
        if (!same) return "line " + std::to_string(x.line) + ": " + std::string(x.text, x.length) + " <> " + std::string(y.text, y.length);
        if (x.kind == kx::TOKEN_ENDSECTION || x.kind == kx::TOKEN_END) return "";
    }
}

// The header fields an export keeps as they were read, as one text (an
// empty list is written as one empty item: empty items are left out).
std::string header_fields(const kxIfcModel *model) {
    const kxIfcHeader *header = kxIfcModel_get_header(model);
    std::string text = kxtest::utf8(kxIfcHeader_get_originating_system(header));
    const struct {
        uint32_t (*count)(const kxIfcHeader *);
        const kxWChar *(*get)(const kxIfcHeader *, uint32_t);
    } lists[] = {{kxIfcHeader_description_fields_count, kxIfcHeader_get_description_field},
                 {kxIfcHeader_author_fields_count, kxIfcHeader_get_author_field},
                 {kxIfcHeader_organization_fields_count, kxIfcHeader_get_organization_field},
                 {kxIfcHeader_authorization_fields_count, kxIfcHeader_get_authorization_field}};
    for (const auto &list : lists)
        for (uint32_t i = 0; i < list.count(header); i++)
            if (*list.get(header, i) != 0) text.append("|").append(kxtest::utf8(list.get(header, i)));
    return text;
}

TEST_F(LosslessFileTest, EverySampleFileComesBackAsItWasAndReachesAFixedPointInTheFixedTextMode) {
    KX_REQUIRE_SHARED("ifc");
    for (const std::string &path : kxtest::sample_files()) {
        SCOPED_TRACE(path);
        kxReadReport *report = kxReadReport_new(0);
        kxIfcModel *model = read(path, report);
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(kxIfcModel_text_mode(model), KX_TEXT_MODE_LOSSLESS);
        const bool clean = kxReadReport_total(report, 0) == 0;
        const std::string header = header_fields(model);
        const std::string first = write(model, "first");
        kxIfcModel_free(&model);
        // A file the reader found faults in cannot come back as it was;
        // what was read must still reach a fixed point.
        if (clean) {
            EXPECT_EQ(first_lost_value(kxtest::read_file(path), first), "");
        }
        kxReadReport_clear(report);
        model = read(dir().file("first.ifc"), report);
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(kxReadReport_total(report, 0), 0u);
        EXPECT_EQ(header_fields(model), header);
        EXPECT_EQ(write(model, "second"), first);
        kxIfcModel_free(&model);
        kxReadReport_free(&report);

        // In the fixed text mode the file is read, written, read again and
        // written again. What the library writes it reads without a fault;
        // reals are written with ten significant digits, so a value close to
        // the rounding threshold may change once, and from the second export
        // on the data section is a fixed point.
        std::string texts[3], name = path;
        uint32_t count = 0;
        kxIfcVersion_t version = ifc_version_not_defined;
        for (int round = 0; round < 3; round++) {
            kxBool errors = kxBFALSE;
            kxIfcModel *model = kxIfcModel_read_from_step_file(kxtest::wide(name).c_str(), 0, &errors);
            ASSERT_NE(model, nullptr);
            if (round == 0) {
                count = kxIfcModel_count_objects(model);
                version = kxIfcModel_ifc_version(model);
            }
            EXPECT_TRUE(round == 0 || errors == kxBFALSE) << "round " << round;
            EXPECT_EQ(kxIfcModel_ifc_version(model), version);
            EXPECT_EQ(kxIfcModel_count_objects(model), count);
            texts[round] = write(model, "round" + std::to_string(round));
            name = dir().file("round" + std::to_string(round) + ".ifc");
            kxIfcModel_free(&model);
        }
        const size_t data = texts[1].find("\nDATA;\n");
        ASSERT_NE(data, std::string::npos);
        EXPECT_EQ(kxtest::first_difference(texts[1].substr(data), texts[2].substr(texts[2].find("\nDATA;\n"))), "");
        EXPECT_EQ(std::count(texts[0].begin(), texts[0].end(), '#'), std::count(texts[1].begin(), texts[1].end(), '#'));
        for (char c : texts[0]) ASSERT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F)) << "not 7-bit text";
    }
}

class ValueWriterTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        file_ = open_memstream(&buffer_, &size_);
        ASSERT_NE(file_, nullptr);
        writer_ = kxIfcWriteData_new(file_);
    }
    void TearDown() override {
        if (writer_ != nullptr) kxIfcWriteData_free(&writer_);
        std::fclose(file_);
        std::free(buffer_);
        LibraryTest::TearDown();
    }
    // Everything printed so far.
    std::string output() {
        std::fflush(file_);
        return std::string(buffer_, size_);
    }
    // Prints the collected parameters as "#id= NAME(...);".
    std::string line(const char16_t *name = u"IfcThing", uint32_t id = 1) {
        const size_t before = output().size();
        kxIfcWriteData_write_entity_line(writer_, name, id, nullptr);
        return output().substr(before);
    }
    kxIfcWriteData *writer_ = nullptr;

private:
    FILE *file_ = nullptr;
    char *buffer_ = nullptr;
    size_t size_ = 0;
};

void write_label(kxIfcWriteData *writer, const char16_t *text) {
    kxIfcWriteData_begin_typed_value(writer);
    kxIfcWriteData_write_string(writer, text);
    kxIfcWriteData_end_typed_value(writer, u"IFCLABEL");
}

// ---- separators and groups ----

TEST_F(ValueWriterTest, ValueFormsGroupsAndLinesWithTheWritersCounterOrTheirIdNestedOnesReferenced) {
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_integer(writer_, INT32_MIN);
    kxIfcWriteData_write_integer(writer_, 2147483647);
    kxIfcWriteData_write_reference(writer_, 4294967295u);
    kxIfcWriteData_write_real(writer_, -0.5);
    kxIfcWriteData_write_real(writer_, 1e-5);  // glibc: two exponent digits
    kxIfcWriteData_write_string(writer_, u"It's a\\b");
    kxIfcWriteData_write_string(writer_, u"");
    char16_t *owned = kx::wstr_copy(u".ELEMENT.");
    kxIfcWriteData_write_text_owned(writer_, &owned);
    EXPECT_EQ(owned, nullptr);
    // A group closed as the other kind; the type name is kept as given.
    kxIfcWriteData_begin_typed_value(writer_);
    kxIfcWriteData_write_integer(writer_, 1);
    kxIfcWriteData_end_list(writer_);
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_integer(writer_, 2);
    kxIfcWriteData_end_typed_value(writer_, u"IfcInteger");
    EXPECT_EQ(line(u"IfcRel_x9"), "#1= IFCREL_X9(-2147483648,2147483647,#4294967295,-0.5,1.E-05,'It''s a\\\\b','',"
                                  ".ELEMENT.,(1),IfcInteger(2));\n");
    kxIfcWriteData_begin_parameters(writer_);
    EXPECT_EQ(line(), "#1= IFCTHING();\n");

    // The base-type writers; an undefined logical comes out UNKNOWN.
    kxIfcWriteData_begin_parameters(writer_);
    kx::coretype_write_boolean(writer_, kxBTRUE);
    kx::coretype_write_boolean(writer_, kxBFALSE);
    for (kxLogical value : {kx::kLogicalTrue, kx::kLogicalFalse, kx::kLogicalUnknown, kx::kLogicalUndefined})
        kx::coretype_write_logical(writer_, value);
    kx::coretype_write_integer(writer_, -7);
    kx::coretype_write_real(writer_, 2.0);
    kx::coretype_write_string(writer_, u"It's");
    kx::coretype_write_string(writer_, nullptr);
    char three_bits[] = {'1', '0', '1'};
    kx::coretype_write_binary(writer_, kxBinary{three_bits, 3});
    kx::coretype_write_binary(writer_, kxBinary{nullptr, 0});  // nothing written
    EXPECT_EQ(line(), "#1= IFCTHING(.T.,.F.,.T.,.F.,.U.,.U.,-7,2.,'It''s',$,\"15\");\n");

    // Binary literals: the leading digit counts the unused high bits.
    kxIfcWriteData_begin_parameters(writer_);
    for (const char16_t *bits : {u"1", u"0101", u"11111", u"10000000", u"", u"011010011"})
        kxIfcWriteData_write_binary(writer_, bits);  // "" writes nothing at all
    EXPECT_EQ(line(), "#1= IFCTHING(\"31\",\"05\",\"31F\",\"080\",\"30D3\");\n");
    kxIfcWriteData_begin_parameters(writer_);
    std::string bits(1001, '1');
    kx::coretype_write_binary(writer_, kxBinary{bits.data(), 1001});  // past the stack buffer
    EXPECT_EQ(line(), "#1= IFCTHING(\"31" + std::string(250, 'F') + "\");\n");

    // A given id leaves the counter alone.
    const size_t start = output().size();
    const std::tuple<const char16_t *, uint32_t, uint32_t> lines[] = {
        {u"IfcA", 0xFFFFFFFFu, 1u}, {u"IfcB", 30u, 30u}, {u"IfcC", 0xFFFFFFFFu, 2u}};
    for (const auto &[name, given, expected] : lines) {
        uint32_t id = 0;
        kxIfcWriteData_begin_parameters(writer_);
        kxIfcWriteData_write_entity_line(writer_, name, given, &id);
        EXPECT_EQ(id, expected);
    }
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_entity_line(writer_, u"IfcD", 0xFFFFFFFFu, nullptr);
    EXPECT_EQ(output().substr(start), "#1= IFCA();\n#30= IFCB();\n#2= IFCC();\n#3= IFCD();\n");
    // An instance written while another is collected is referenced by it.
    kxIfcWriteData_begin_parameters(writer_);
    EXPECT_TRUE(kxIfcWriteData_is_writing_nested(writer_));
    kxIfcWriteData_write_integer(writer_, 5);
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_string(writer_, u"inner");
    write_label(writer_, u"label");
    kxIfcWriteData_write_entity_line(writer_, u"IfcInner", 0xFFFFFFFFu, nullptr);
    kxIfcWriteData_write_unset(writer_);
    kxIfcWriteData_write_entity_line(writer_, u"IfcOuter", 9, nullptr);
    EXPECT_FALSE(kxIfcWriteData_is_writing_nested(writer_));
    EXPECT_EQ(output().substr(start + 49), "#4= IFCINNER('inner',IFCLABEL('label'));\n#9= IFCOUTER(5,#4,$);\n");
}

// ---- wrapping at 120 columns ----

// A value of exactly `length` characters.
std::u16string value_of(size_t length, char16_t fill = u'A') { return std::u16string(length, fill); }

// A new line starts before the value that would pass column 120 (one ending
// at 120 stays); a value longer than a line stands alone unless it comes
// first; parentheses wrap like values, and a type name keeps its "(".
TEST_F(ValueWriterTest, WrapsBeforeColumn120AndMisuseIsReported) {
    const std::string a10(10, 'A'), a100(100, 'A'), a106(106, 'A'), a200(200, 'A');
    // "#1= IFCTHING(" is 13 columns; nine values of 10 with their commas reach 111.
    kxIfcWriteData_begin_parameters(writer_);
    for (int i = 0; i < 9; i++) kxIfcWriteData_write_text(writer_, value_of(10).c_str());
    kxIfcWriteData_write_text(writer_, value_of(8, u'B').c_str());
    kxIfcWriteData_write_text(writer_, value_of(10).c_str());
    std::string expected = "#1= IFCTHING(";
    for (int i = 0; i < 9; i++) expected += a10 + ",";
    EXPECT_EQ(line(), expected + "BBBBBBBB,\n" + a10 + ");\n");

    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(200).c_str());
    kxIfcWriteData_write_integer(writer_, 1);
    kxIfcWriteData_write_text(writer_, value_of(200).c_str());
    kxIfcWriteData_write_integer(writer_, 2);
    EXPECT_EQ(line(), "#1= IFCTHING(" + a200 + ",\n1,\n" + a200 + ",\n2);\n");

    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(106).c_str());  // 13 + 106 = 119
    kxIfcWriteData_begin_parameters(writer_);                  // comma: 120, "(" passes
    kxIfcWriteData_write_integer(writer_, 1);
    kxIfcWriteData_end_list(writer_);
    EXPECT_EQ(line(), "#1= IFCTHING(" + a106 + ",\n(1));\n");
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(106).c_str());  // 120: the ")" goes on
    kxIfcWriteData_end_list(writer_);
    EXPECT_EQ(line(), "#1= IFCTHING((" + a106 + "\n));\n");
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(100).c_str());
    write_label(writer_, u"Wall");
    EXPECT_EQ(line(), "#1= IFCTHING(" + a100 + ",IFCLABEL(\n'Wall'));\n");
    // Closing without a group, NULL arguments, bad values for the base-type
    // writers and freeing with a group open are reported; what can be printed
    // still is.
    char bits[] = {'1', '0', 'x', '1'};
    expect_each_reported({
        {"num_stacked_buffers > 0", [&] { kxIfcWriteData_end_list(writer_); }},
        {"num_stacked_buffers > 0", [&] {
             kxIfcWriteData_write_integer(writer_, 4);
             EXPECT_EQ(line(), "#1= IFCTHING(4);\n");  // printed, then nothing to go back to
         }},
        {"(value_text) != NULL", [&] {
             kxIfcWriteData_begin_parameters(writer_);
             kxIfcWriteData_write_text(writer_, nullptr);
         }},
        {"(value_text) != NULL", [&] { kxIfcWriteData_write_string(writer_, nullptr); }},
        {"(write_data) != NULL", [] { kxIfcWriteData_write_integer(nullptr, 1); }},
        {"value == kxBFALSE", [&] { kx::coretype_write_boolean(writer_, 5); }},
        {"", [&] { kx::coretype_write_logical(writer_, 7); }},
        {"value.contents[i] == '1'", [&] { kx::coretype_write_binary(writer_, kxBinary{bits, 4}); }},
    });
    EXPECT_EQ(line(), "#1= IFCTHING(.F.,.U.,\"0B\");\n");
    expect_each_reported({{"num_stacked_buffers == 0", [&] {
        kxIfcWriteData_begin_parameters(writer_);
        kxIfcWriteData_free(&writer_);
    }}});
    EXPECT_EQ(writer_, nullptr);
}

// The STEP string escapes: what the writer produces and what the reader
// decodes.
using StringCodecTest = kxtest::LibraryTest;

std::u16string encode(const std::u16string &text) { return take(kxIfcWriteData_encode_string(text.c_str())); }
std::u16string decode(const std::u16string &text) { return take(kxIfcWriteData_decode_string(text.c_str())); }

// Text and what the writer makes of it.
const std::pair<std::u16string, std::u16string> kEncoded[] = {
    // Quote and backslash are doubled; printable ASCII, '~' and the blank
    // included, stays as it is.
    {u"It's", u"It''s"}, {u"a\\b", u"a\\\\b"}, {u"''", u"''''"}, {u"", u""},
    {u" Wall-1 ~#$*()\".", u" Wall-1 ~#$*()\"."},
    // Every code unit outside printable ASCII gets its own group (two in a
    // row: two groups) in upper-case digits; a surrogate pair one half at a
    // time.
    {u"Wall \u00e9", u"Wall \\X2\\00E9\\X0\\"}, {u"a\nb", u"a\\X2\\000A\\X0\\b"}, {u"\t", u"\\X2\\0009\\X0\\"},
    {u"\u007f", u"\\X2\\007F\\X0\\"}, {u"\u00e9\u00e8", u"\\X2\\00E9\\X0\\\\X2\\00E8\\X0\\"},
    {u"\uFFFD", u"\\X2\\FFFD\\X0\\"}, {u"\U0001F600", u"\\X2\\D83D\\X0\\\\X2\\DE00\\X0\\"},
};

// Text as a file holds it and what the reader makes of it.
const std::pair<std::u16string, std::u16string> kDecoded[] = {
    // The writer's escapes, in either case.
    {u"It''s", u"It's"}, {u"a\\\\b", u"a\\b"}, {u"Wall \\X2\\00E9\\X0\\", u"Wall \u00e9"},
    {u"\\x2\\00e9\\x0\\", u"\u00e9"}, {u"\\X2\\D83D\\X0\\\\X2\\DE00\\X0\\", u"\U0001F600"}, {u"", u""},
    // Two-digit escapes; an escaped quote joins the quotes around it.
    {u"\\X\\E9t\\X\\E9", u"\u00e9t\u00e9"}, {u"\\x\\e9", u"\u00e9"}, {u"\\X\\0A", u"\n"},
    {u"a\\X\\27b", u"a'b"}, {u"\\X\\27\\X\\27", u"'"},
    // Kept literally: a group of several code units, a lone backslash,
    // cut-off escapes, escapes without hex digits, and what follows "\\".
    {u"\\X2\\00E900E8\\X0\\", u"\\X2\\00E900E8\\X0\\"}, {u"a\\b", u"a\\b"}, {u"end\\", u"end\\"},
    {u"\\X2\\00E", u"\\X2\\00E"}, {u"\\X2\\00E9\\X0", u"\\X2\\00E9\\X0"}, {u"\\X\\4", u"\\X\\4"},
    {u"\\X\\G1", u"\\X\\G1"}, {u"\\S\\a\\P", u"\\S\\a\\P"}, {u"\\\\X\\41", u"\\X\\41"},
};

TEST_F(StringCodecTest, EncodesAndDecodesTheEscapesAndEveryCodeUnitRoundTrips) {
    for (const auto &[text, encoded] : kEncoded) EXPECT_EQ(encode(text), encoded) << kxtest::utf8(text.c_str());
    for (const auto &[text, decoded] : kDecoded) EXPECT_EQ(decode(text), decoded) << kxtest::utf8(text.c_str());
    std::u16string all;
    for (uint32_t c = 1; c <= 0xFFFF; c++) all.push_back(static_cast<char16_t>(c));
    const std::u16string encoded = encode(all);
    for (char16_t c : encoded) ASSERT_TRUE(c >= 0x20 && c <= 0x7E) << int(c);
    EXPECT_EQ(decode(encoded), all);
    for (const auto &pair : kEncoded) EXPECT_EQ(decode(encode(pair.first)), pair.first);
}

// An instance printed as its values come (its head given first) and one
// whose values are collected until its head comes print alike: the same
// separators, wrapping at 120 columns and value forms, in both text modes,
// batched or not.

// Writes a random instance body: values of every form, some long enough to
// wrap, nested lists and typed values.
void write_values(kxIfcWriteData *output, uint64_t seed, bool named_first) {
    std::mt19937_64 random(seed);
    static const char16_t *const kTypeNames[] = {u"IFCLABEL", u"IFCLENGTHMEASURE", u"IFCA"};
    int depth = 0;
    const int count = 5 + static_cast<int>(random() % 40);
    for (int i = 0; i < count; i++) {
        switch (random() % 10) {
            case 0: kxIfcWriteData_write_reference(output, static_cast<uint32_t>(random() % 2000000000)); break;
            case 1: kxIfcWriteData_write_integer(output, static_cast<int32_t>(random())); break;
            case 2: kxIfcWriteData_write_real(output, std::ldexp(static_cast<double>(random() % 100000), -12 + static_cast<int>(random() % 40))); break;
            case 3: kxIfcWriteData_write_string(output, std::u16string(random() % 90, u'x').append(u"'\\\u00e9").c_str()); break;
            case 4: kxIfcWriteData_write_text(output, u".NOTDEFINED."); break;
            case 5: (random() & 1) != 0 ? kxIfcWriteData_write_unset(output) : kxIfcWriteData_write_derived(output); break;
            case 6:
            case 7:
                kxIfcWriteData_begin_parameters(output);
                depth++;
                break;
            case 8: {
                const char16_t *name = kTypeNames[random() % 3];
                if (named_first)
                    kxIfcWriteData_begin_named_value(output, name);
                else
                    kxIfcWriteData_begin_typed_value(output);
                kxIfcWriteData_write_real(output, static_cast<double>(random() % 1000) / 7.0);
                kxIfcWriteData_end_typed_value(output, name);
                break;
            }
            default:
                if (depth > 0) {
                    kxIfcWriteData_end_list(output);
                    depth--;
                }
                break;
        }
    }
    for (; depth > 0; depth--) kxIfcWriteData_end_list(output);
}

TEST(InstancePrintingTest, PrintedAsTheyComeOrCollectedAlike) {
    int wrapped = 0;
    for (bool lossless : {false, true}) {
        for (uint64_t seed = 1; seed <= 300; seed++) {
            const std::string collected = kxtest::written_text([&](kxIfcWriteData *output) {
                kxIfcWriteData_set_lossless(output, lossless);
                kxIfcWriteData_begin_parameters(output);
                write_values(output, seed, false);
                kxIfcWriteData_write_entity_line(output, u"IfcSomething", static_cast<uint32_t>(seed * 7919), nullptr);
            });
            const std::string printed = kxtest::written_text([&](kxIfcWriteData *output) {
                kxIfcWriteData_set_lossless(output, lossless);
                kxIfcWriteData_set_batched(output, (seed & 1) != 0);
                const uint32_t class_key = (seed & 2) != 0 ? 7 : 0xFFFFFFFFu;  // by index, or by address alone
                kxIfcWriteData_begin_instance(output, u"IfcSomething", class_key, static_cast<uint32_t>(seed * 7919));
                write_values(output, seed, true);
                kxIfcWriteData_end_instance(output);
            });
            ASSERT_EQ(printed, collected) << "seed " << seed << (lossless ? ", lossless" : "");
            if (printed.find('\n') + 1 < printed.size()) wrapped++;
        }
    }
    EXPECT_GT(wrapped, 100);  // the wrapping was exercised
}

}  // namespace

// PtrArray, ValueArray and OrderedPtrMap: ordering under inserts and
// removals, ownership of elements, and reports on misuse; the #id tree; and
// tracked memory across where blocks come from: the heap, a pool (while a
// thread has one), large mappings; blocks moving between them when resized,
// outliving their pool's owner. Then files by wide name, formatted output,
// the binary save stream (round trips, truncated or corrupt streams) and the
// header lexer.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/memory.h"
#include "support/pool.h"
#include "support/ptrarray.h"
#include "support/ptrmap.h"
#include "support/rbtree.h"
#include "support/savestream.h"
#include "support/steplexer.h"
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

namespace fs = std::filesystem;

// A path as UTF-16, decoded from UTF-8.
std::u16string wide_path(const std::string &path) {
    kx::WideString text = kx::wstr_from_utf8(path.c_str());
    std::u16string copy(text);
    kx::wstr_destroy(&text);
    return copy;
}

using kxtest::read_file;
using kxtest::utf8;

using FilesTest = kxtest::LibraryTest;

TEST_F(FilesTest, JoinSplitOpenLengthRenameDelete) {
    const auto join = [](const char16_t *dir, const char16_t *name) {
        kx::WideString joined = kx::file_join_path(dir, name);
        std::string result = utf8(joined);
        kx::wstr_destroy(&joined);
        return result;
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

}  // namespace

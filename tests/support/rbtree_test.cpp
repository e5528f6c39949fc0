// The #id tree: a million random keys, duplicates, misses, and the balance
// rules checked on the way.
#include <chrono>
#include <cstdio>
#include <numeric>
#include <random>
#include <vector>

#include "support/rbtree.h"
#include "test_support.h"

namespace {

struct Entry {
    uint32_t id;  // the key sits at the start of the element
    uint32_t payload;
};

using RbTreeTest = kxtest::LibraryTest;

TEST_F(RbTreeTest, MillionRandomKeys) {
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

    const auto started = std::chrono::steady_clock::now();
    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
    for (uint32_t i = 0; i < COUNT; i++) ASSERT_TRUE(kx::rbtree_insert(tree, &entries[i]));
    std::shuffle(keys.begin(), keys.end(), random);
    uint32_t found = 0;
    for (uint32_t key : keys) {
        const Entry *entry = static_cast<const Entry *>(kx::rbtree_get(tree, key, kx::ulong_compare));
        if (entry != nullptr && entry->id == key) found++;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("1M inserts and lookups: %.3f s\n", seconds);
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

    kx::rbtree_destroy(&tree);
    EXPECT_EQ(tree, nullptr);
}

TEST_F(RbTreeTest, AscendingKeysAndDuplicates) {
    // Sorted input is the worst case for an unbalanced tree (and what STEP
    // files usually hold).
    std::vector<Entry> entries(100000);
    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
    for (uint32_t i = 0; i < entries.size(); i++) {
        entries[i] = Entry{i + 1, i};
        kx::rbtree_insert(tree, &entries[i]);
        if (i % 9973 == 0) {
            ASSERT_TRUE(kx::rbtree_is_valid(tree));
        }
    }
    EXPECT_TRUE(kx::rbtree_is_valid(tree));

    Entry again{500, 999};
    EXPECT_FALSE(kx::rbtree_insert(tree, &again));  // the first element stays
    EXPECT_EQ(kx::rbtree_get(tree, 500, kx::ulong_compare), &entries[499]);
    EXPECT_EQ(kx::rbtree_count(tree), 100000u);
    EXPECT_EQ(kx::rbtree_get(tree, 0, kx::ulong_compare), nullptr);
    kx::rbtree_destroy(&tree);
}

TEST_F(RbTreeTest, EmptyTreeAndMisuse) {
    kx::RbTree *tree = kx::rbtree_create(kx::ulong_compare);
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

}  // namespace

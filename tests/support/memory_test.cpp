// Tracked memory across where blocks come from: the heap, a pool (while a
// thread has one), large mappings; blocks moving between them when resized,
// outliving their pool's owner, or their pool adopted by another.
#include <cstring>
#include <numeric>
#include <vector>

#include "support/memory.h"
#include "support/pool.h"
#include "test_support.h"

namespace {

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
TEST_F(MemoryTest, BlocksKeepTheirBytesWhereverTheyMove) {
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
}

// Bytes a block gains by growing read as zero, on the heap and in a mapping
// that shrank and grew again.
TEST_F(MemoryTest, GrowingZeroedClearsWhatItGains) {
    size_t size = 16;
    char *block = static_cast<char *>(kx::mem_calloc(1, size));
    for (size_t next : {size_t{4000}, size_t{600000}, size_t{300001}, size_t{900000}, size_t{4500000}}) {
        std::memset(block, 0xAB, size);
        block = static_cast<char *>(kx::mem_realloc_zeroed(block, size, next));
        for (size_t i = size; i < next; i++) ASSERT_EQ(block[i], 0) << size << " -> " << next << " at " << i;
        size = next;
    }
    kx::mem_free(block);
}

// Blocks a thread made in a pool of its own live on in the pool that
// adopted it, and are freed into it.
TEST_F(MemoryTest, AnAdoptedPoolsBlocksBelongToTheAdopter) {
    kx::Pool *main = kx::pool_new();
    kx::Pool *part = kx::pool_new();
    std::vector<void *> blocks;
    for (kx::Pool *pool : {main, part}) {
        kx::MemPoolScope scope(pool);
        for (int i = 0; i < 3000; i++) blocks.push_back(kx::mem_alloc(static_cast<size_t>(i % 200) + 1));
        blocks.push_back(kx::pool_alloc(pool, 64));
    }
    kx::pool_adopt(main, &part);
    EXPECT_EQ(part, nullptr);
    kx::pool_release(&main);
    kx::pool_free(blocks[3000], 64);
    kx::pool_free(blocks.back(), 64);
    blocks.erase(blocks.begin() + 3000);
    blocks.pop_back();
    for (void *block : blocks) kx::mem_free(block);
}

}  // namespace

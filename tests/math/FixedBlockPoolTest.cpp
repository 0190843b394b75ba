// The fixed-block pool: blocks are distinct, aligned and reused, chunks grow by 256 blocks,
// oversized requests go to the general heap, a release with blocks still held waits for the
// last of them, and threads allocating at once keep the count exact.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <thread>
#include <vector>

#include "xnl/std/base/ccFixedBlockPool.h"

namespace {

TEST(FixedBlockPool, BlocksAreDistinctAlignedAndReused) {
    ccFixedBlockPool pool("LEAKTestValue", 40, 16);
    EXPECT_EQ(pool.BlockSize(), 48u);  // rounded up to the alignment
    EXPECT_EQ(pool.ChunkCount(), 0u);  // nothing before the first allocation
    std::set<void*> blocks;
    for (size_t i = 0; i < ccFixedBlockPool::kBlocksPerChunk + 1; ++i) {
        void* block = pool.Allocate(40);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
        EXPECT_TRUE(blocks.insert(block).second);
    }
    EXPECT_EQ(pool.ChunkCount(), 2u);
    EXPECT_EQ(pool.BlocksInUse(), ccFixedBlockPool::kBlocksPerChunk + 1);
    void* last = *blocks.begin();
    pool.Free(last, 40);
    EXPECT_EQ(pool.Allocate(40), last);  // the block just freed is the next one out
    for (void* block : blocks) pool.Free(block, 40);
    EXPECT_EQ(pool.BlocksInUse(), 0u);
    pool.Free(nullptr, 40);
    EXPECT_EQ(pool.Release(), 0u);
    EXPECT_EQ(pool.ChunkCount(), 0u);
    void* again = pool.Allocate(8);  // usable after a release
    EXPECT_EQ(pool.ChunkCount(), 1u);
    pool.Free(again, 8);
}

TEST(FixedBlockPool, OversizedBlocksComeFromTheHeap) {
    ccFixedBlockPool pool("LEAKTestValue", 16);
    void* big = pool.Allocate(1000);
    EXPECT_EQ(pool.BlocksInUse(), 0u);
    EXPECT_EQ(pool.ChunkCount(), 0u);
    static_cast<char*>(big)[999] = 1;
    pool.Free(big, 1000);
}

TEST(FixedBlockPool, AReleaseWithBlocksHeldFreesTheChunksWithTheLast) {
    ccFixedBlockPool pool("LEAKTestValue", 24);
    void* first = pool.Allocate(24);
    void* second = pool.Allocate(24);
    EXPECT_EQ(pool.Release(), 2u);
    EXPECT_EQ(pool.ChunkCount(), 1u);  // kept: the blocks are still in use
    pool.Free(first, 24);
    EXPECT_EQ(pool.ChunkCount(), 1u);
    pool.Free(second, 24);
    EXPECT_EQ(pool.ChunkCount(), 0u);
}

TEST(FixedBlockPool, ThreadsAllocatingAtOnceKeepTheCountExact) {
    ccFixedBlockPool pool("LEAKTestValue", 32);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&pool, t] {
            std::vector<void*> held;
            for (int round = 0; round < 200; ++round) {
                for (int i = 0; i < 50; ++i) {
                    auto* block = static_cast<int*>(pool.Allocate(32));
                    *block = t;
                    held.push_back(block);
                }
                for (void* block : held) {
                    EXPECT_EQ(*static_cast<int*>(block), t);
                    pool.Free(block, 32);
                }
                held.clear();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(pool.BlocksInUse(), 0u);
}

}  // namespace

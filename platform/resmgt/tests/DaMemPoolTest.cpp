#include "DaMemPool.h"
#include "ExBase.h"
#include "MbAlignment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>
#include <utility>
#include <vector>

using namespace Vn;

namespace {

struct Block {
    unsigned char* p;
    std::size_t size;
};

void fill(Block const& b, unsigned seed) {
    for (std::size_t i = 0; i < b.size; ++i)
        b.p[i] = static_cast<unsigned char>(seed * 31 + i);
}

bool intact(Block const& b, unsigned seed) {
    for (std::size_t i = 0; i < b.size; ++i)
        if (b.p[i] != static_cast<unsigned char>(seed * 31 + i))
            return false;
    return true;
}

} // namespace

TEST(DaMemPool, EverySizeIsAlignedDistinctAndKeepsItsContents) {
    DaMemPool pool("test", 16384, 0x20000, 1024);
    EXPECT_EQ(pool.getName(), "test");
    // Later rounds run on freed blocks: each must come back in a class it fits.
    std::mt19937 rng(7);
    for (int round = 0; round < 4; ++round) {
        std::vector<Block> blocks;
        for (std::size_t size = 0; size <= 2100; size += (size < 300 ? 1 : 7)) {
            for (int k = 0; k < 4; ++k) {
                auto* p = static_cast<unsigned char*>(pool.alloc(size));
                ASSERT_NE(p, nullptr);
                ASSERT_TRUE(MbAlignment::isAligned(p, DaMemPool::getAlignment(size))) << size;
                blocks.push_back({p, size});
            }
        }
        for (std::size_t i = 0; i < blocks.size(); ++i)
            fill(blocks[i], static_cast<unsigned>(i));
        for (std::size_t i = 0; i < blocks.size(); ++i)
            ASSERT_TRUE(intact(blocks[i], static_cast<unsigned>(i)))
                << "round " << round << " size " << blocks[i].size;
        std::shuffle(blocks.begin(), blocks.end(), rng);
        for (Block const& b : blocks)
            pool.free(b.p, b.size);
    }
    pool.free(nullptr, 10);
}

TEST(DaMemPool, PowerOfTwoSizesGetTheirOwnAlignment) {
    DaMemPool pool("test", 0x10000, 0x4000, 16384);
    for (std::size_t size = 16; size <= 16384; size *= 2) {
        void* p = pool.alloc(size);
        EXPECT_TRUE(MbAlignment::isAligned(p, std::min<std::size_t>(size, 4096))) << size;
        pool.free(p, size);
    }
    EXPECT_EQ(DaMemPool::getAlignment(12288), 4096u);
}

TEST(DaMemPool, FreedBlocksAreReusedWithoutNewChunks) {
    DaMemPool pool("test", 16384, 0x20000, 1024);
    void* p = pool.alloc(100);
    pool.free(p, 100);
    EXPECT_EQ(pool.alloc(100), p);
    pool.free(p, 100);
    std::size_t reserved = pool.getReservedBytes();
    EXPECT_GT(reserved, 0u);
    for (int round = 0; round < 50; ++round) {
        std::vector<void*> v;
        for (int i = 0; i < 100; ++i)
            v.push_back(pool.alloc(100));
        for (void* q : v)
            pool.free(q, 100);
    }
    EXPECT_EQ(pool.getReservedBytes(), reserved);
    // Sizes above the largest class never touch the chunks.
    void* big = pool.alloc(5000);
    EXPECT_EQ(pool.getReservedBytes(), reserved);
    pool.free(big, 5000);
}

TEST(DaMemPool, BlocksCrossThreadsAndComeBackWhenThreadsEnd) {
    for (std::size_t cache : {std::size_t(0x20000), std::size_t(0)}) {
        DaMemPool pool("test", 16384, cache, 1024);
        constexpr int kN = 2000;
        // What a thread still caches goes back to the shared lists when the thread ends, so
        // another thread can take every block again without new chunks.
        std::thread([&] {
            std::vector<void*> v;
            for (int i = 0; i < kN; ++i)
                v.push_back(pool.alloc(200));
            for (void* p : v)
                pool.free(p, 200);
        }).join();
        std::size_t reserved = pool.getReservedBytes();
        std::vector<void*> mine;
        for (int i = 0; i < kN; ++i)
            mine.push_back(pool.alloc(200));
        EXPECT_EQ(pool.getReservedBytes(), reserved) << "cache " << cache;

        // Freed on another thread.
        std::thread([&] {
            for (void* p : mine)
                pool.free(p, 200);
        }).join();
        std::vector<void*> again;
        for (int i = 0; i < kN; ++i)
            again.push_back(pool.alloc(200));
        EXPECT_EQ(pool.getReservedBytes(), reserved) << "cache " << cache;
        for (void* p : again)
            pool.free(p, 200);
    }
}

TEST(DaMemPool, RefusesAChunkSmallerThanTheLargestBlock) {
    EXPECT_THROW(DaMemPool("bad", 512, 4096, 1024), ExAssertionFailed);
    EXPECT_THROW(DaMemPool("bad", 4096, 4096, 0), ExAssertionFailed);
}

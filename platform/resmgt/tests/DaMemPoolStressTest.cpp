#include "DaMemPool.h"
#include "LkLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

using Clock = std::chrono::steady_clock;

struct Parcel {
    unsigned char* p;
    std::size_t size;
    std::uint64_t id;
};

void stamp(Parcel const& b) {
    for (std::size_t i = 0; i < b.size; ++i)
        b.p[i] = static_cast<unsigned char>(b.id * 131 + i * 7);
}

bool intact(Parcel const& b) {
    for (std::size_t i = 0; i < b.size; ++i)
        if (b.p[i] != static_cast<unsigned char>(b.id * 131 + i * 7))
            return false;
    return true;
}

} // namespace

// Producers allocate and stamp blocks and hand them to consumers, which check and free them on
// their own threads. Producers come and go, so thread caches are handed back while others run.
TEST(DaMemPoolStress, BlocksHandedAcrossThreadsKeepTheirContents) {
    unsigned seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    DaMemPool pool("stress", 16384, 0x20000, 1024);
    auto deadline = Clock::now() + std::chrono::milliseconds(2500);

    LkLock queueLock("queue");
    std::deque<Parcel> queue;
    std::atomic<int> producersLeft{0};
    std::atomic<int> damaged{0};
    std::atomic<int> misaligned{0};
    std::atomic<std::uint64_t> nextId{1};
    std::atomic<std::uint64_t> consumed{0};
    std::atomic<std::uint64_t> produced{0};

    auto producer = [&](unsigned s) {
        std::mt19937 rng(s);
        std::vector<Parcel> local;
        for (int i = 0, n = 2000 + static_cast<int>(rng() % 4000); i < n; ++i) {
            std::size_t size = 1 + rng() % (rng() % 8 == 0 ? 1500 : 300);
            Parcel b{static_cast<unsigned char*>(pool.alloc(size)), size, nextId.fetch_add(1)};
            if (reinterpret_cast<std::uintptr_t>(b.p) % DaMemPool::getAlignment(size) != 0)
                misaligned.fetch_add(1);
            stamp(b);
            if (rng() % 3 == 0) {
                // Some blocks stay a while on this thread and die here, in random order.
                local.push_back(b);
                if (local.size() > 64) {
                    std::size_t k = rng() % local.size();
                    if (!intact(local[k]))
                        damaged.fetch_add(1);
                    pool.free(local[k].p, local[k].size);
                    local[k] = local.back();
                    local.pop_back();
                }
                continue;
            }
            LkGuard g(queueLock);
            queue.push_back(b);
            produced.fetch_add(1, std::memory_order_relaxed);
        }
        for (Parcel const& b : local) {
            if (!intact(b))
                damaged.fetch_add(1);
            pool.free(b.p, b.size);
        }
    };

    auto consumer = [&] {
        std::vector<Parcel> batch;
        for (;;) {
            batch.clear();
            {
                LkGuard g(queueLock);
                while (!queue.empty() && batch.size() < 32) {
                    batch.push_back(queue.front());
                    queue.pop_front();
                }
            }
            if (batch.empty()) {
                if (producersLeft.load() == 0) {
                    LkGuard g(queueLock);
                    if (queue.empty())
                        return;
                    continue;
                }
                std::this_thread::yield();
                continue;
            }
            for (Parcel const& b : batch) {
                if (!intact(b))
                    damaged.fetch_add(1);
                pool.free(b.p, b.size);
                consumed.fetch_add(1, std::memory_order_relaxed);
            }
        }
    };

    producersLeft.store(1);
    std::thread consumers[2] = {std::thread(consumer), std::thread(consumer)};
    // Two producer lines, each a series of short-lived threads.
    auto line = [&](unsigned s) {
        for (unsigned gen = 0; Clock::now() < deadline; ++gen)
            std::thread(producer, s * 7919 + gen).join();
    };
    std::thread lines[2] = {std::thread(line, seed), std::thread(line, seed + 1)};
    for (auto& t : lines)
        t.join();
    producersLeft.store(0);
    for (auto& t : consumers)
        t.join();

    EXPECT_EQ(damaged.load(), 0);
    EXPECT_EQ(misaligned.load(), 0);
    EXPECT_EQ(consumed.load(), produced.load());
    EXPECT_GT(produced.load(), 0u);
}

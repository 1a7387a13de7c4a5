#include "RCBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kObjects = 64;
std::atomic<int> s_destroyed[kObjects];

class Tracked : public RCSWBase<LkCounter<int>> {
public:
    explicit Tracked(int id) : _id(id) {}
    ~Tracked() override { s_destroyed[_id].fetch_add(1, std::memory_order_acq_rel); }

private:
    int _id;
};

void spin(unsigned n) {
    for (; n > 0; --n)
        std::atomic_signal_fence(std::memory_order_seq_cst);
}

} // namespace

// One thread drops the last strong reference of each object while another locks weak pointers
// to them. A lock that succeeds must hold a live object: it stays alive after the other thread's
// release has returned, and every object dies exactly once.
TEST(RCWeakPtrStress, LockRacingTheLastReleaseNeverRevivesADeadObject) {
    unsigned seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    auto deadline = Clock::now() + std::chrono::milliseconds(2500);

    std::vector<RCShdPtr<Tracked>> strong(kObjects);
    std::vector<RCWeakPtr<Tracked>> weak(kObjects);
    std::vector<Tracked*> address(kObjects);
    std::atomic<bool> released[kObjects];
    std::atomic<int> releasedCount{0};
    bool stop = false;
    std::barrier sync(3);

    std::atomic<int> revived{0};
    std::atomic<int> wrongObject{0};
    int doubleDeaths = 0;
    int survivors = 0;
    int lateLocks = 0;
    std::uint64_t rounds = 0;
    std::atomic<std::uint64_t> successfulLocks{0};

    std::thread releaser([&] {
        std::mt19937 rng(seed);
        std::vector<int> order(kObjects);
        std::iota(order.begin(), order.end(), 0);
        for (;;) {
            sync.arrive_and_wait();
            if (stop)
                return;
            std::shuffle(order.begin(), order.end(), rng);
            for (int k : order) {
                spin(rng() % 200);
                strong[static_cast<std::size_t>(k)].reset();
                released[k].store(true, std::memory_order_release);
                releasedCount.fetch_add(1, std::memory_order_release);
            }
            sync.arrive_and_wait();
        }
    });
    std::thread locker([&] {
        std::mt19937 rng(seed + 1);
        for (;;) {
            sync.arrive_and_wait();
            if (stop)
                return;
            while (releasedCount.load(std::memory_order_acquire) < kObjects) {
                int k = static_cast<int>(rng() % kObjects);
                RCShdPtr<Tracked> p = weak[static_cast<std::size_t>(k)].lock();
                if (!p)
                    continue;
                successfulLocks.fetch_add(1, std::memory_order_relaxed);
                if (p.get() != address[static_cast<std::size_t>(k)])
                    wrongObject.fetch_add(1);
                // Wait for the release to have returned: had the lock revived a dying object,
                // its destructor has run by then.
                while (!released[k].load(std::memory_order_acquire))
                    std::this_thread::yield();
                if (s_destroyed[k].load(std::memory_order_acquire) != 0)
                    revived.fetch_add(1);
            }
            sync.arrive_and_wait();
        }
    });

    for (;;) {
        for (int k = 0; k < kObjects; ++k) {
            s_destroyed[k].store(0);
            released[k].store(false);
            strong[static_cast<std::size_t>(k)] = RCShdPtr<Tracked>(new Tracked(k));
            weak[static_cast<std::size_t>(k)] =
                RCWeakPtr<Tracked>(strong[static_cast<std::size_t>(k)]);
            address[static_cast<std::size_t>(k)] = strong[static_cast<std::size_t>(k)].get();
        }
        releasedCount.store(0);
        stop = Clock::now() >= deadline;
        sync.arrive_and_wait();
        if (stop)
            break;
        sync.arrive_and_wait();
        ++rounds;
        for (int k = 0; k < kObjects; ++k) {
            auto& w = weak[static_cast<std::size_t>(k)];
            int deaths = s_destroyed[k].load();
            doubleDeaths += deaths > 1 ? 1 : 0;
            survivors += deaths == 0 ? 1 : 0;
            lateLocks += w.lock() ? 1 : 0;
            EXPECT_TRUE(w.isExpired());
            w.reset();
        }
    }
    releaser.join();
    locker.join();

    EXPECT_EQ(revived.load(), 0);
    EXPECT_EQ(wrongObject.load(), 0);
    EXPECT_EQ(doubleDeaths, 0);
    EXPECT_EQ(survivors, 0);
    EXPECT_EQ(lateLocks, 0);
    EXPECT_GT(rounds, 0u);
    EXPECT_GT(successfulLocks.load(), 0u);
}

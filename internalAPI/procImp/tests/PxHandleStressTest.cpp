// Weak handles locking while the last strong handle goes: a lock either fails or gives a node
// that stays alive for as long as it is held.

#include "PxNode.h"
#include "PxValueProtocol.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

std::atomic<int> g_deleted{0};

class Probe final : public PxAnimValueProtocol<int> {
public:
    Probe() : PxNode(PxNode::Init{"probe"}) {}
    ~Probe() override { ++g_deleted; }
    PxResult<int> getValue(PxTimeContext const&) const override { return PxResult<int>(1); }
    std::atomic<bool> destroyed{false};

protected:
    void destroy() override {
        destroyed = true;
        PxNode::destroy();
    }
};

} // namespace

TEST(PxHandleStress, WeakLockRacingTheLastStrongReleaseNeverGivesADeadNode) {
    unsigned const seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    std::atomic<int> deadSeen{0};
    std::atomic<long> locks{0};
    int rounds = 0;
    std::mt19937 rng(seed);
    while (std::chrono::steady_clock::now() < end) {
        ++rounds;
        auto* strong = new PxStrongHndl<Probe>(new Probe);
        PxWeakHndl<Probe> weak(*strong);
        std::atomic<bool> go{false};
        std::vector<std::thread> lockers;
        std::vector<PxWeakHndl<Probe>> weaks(3, weak);
        for (int t = 0; t < 3; ++t)
            lockers.emplace_back([&, t] {
                PxWeakHndl<Probe> const& mine = weaks[static_cast<std::size_t>(t)];
                while (!go.load())
                    std::this_thread::yield();
                for (int i = 0; i < 200; ++i) {
                    PxStrongHndl<Probe> h = mine.lock();
                    if (h) {
                        ++locks;
                        if (h->destroyed.load())
                            ++deadSeen;
                        PxStrongHndl<Probe> copy = h; // held strong handles keep it alive
                        if (copy->destroyed.load())
                            ++deadSeen;
                    }
                }
            });
        go = true;
        for (unsigned spin = rng() % 2000; spin > 0; --spin)
            std::atomic_signal_fence(std::memory_order_seq_cst);
        delete strong;
        for (auto& t : lockers)
            t.join();
        EXPECT_TRUE(weak.lock().isNull());
    }
    std::printf("%d rounds, %ld successful locks\n", rounds, locks.load());
    EXPECT_EQ(deadSeen.load(), 0);
    EXPECT_EQ(g_deleted.load(), rounds); // every node's memory went, once
}

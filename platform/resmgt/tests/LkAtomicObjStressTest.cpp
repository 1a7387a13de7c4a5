#include "LkAtomicObj.h"
#include "LkWaitEntry.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

using Clock = std::chrono::steady_clock;

unsigned makeSeed() {
    unsigned seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    return seed;
}

// About 1 KiB, every field tied to the others: a torn copy breaks one of the ties.
struct Ledger {
    std::uint64_t commits;
    std::int64_t plus;
    std::int64_t minus;
    std::uint32_t lastWriter;
    std::uint32_t check; // lastWriter ^ low bits of commits
    std::array<std::uint64_t, 120> stamps;
};
static_assert(sizeof(Ledger) > 960 && sizeof(Ledger) <= 1024);

bool consistent(Ledger const& l) {
    if (l.minus != -l.plus)
        return false;
    if (l.check != (l.lastWriter ^ static_cast<std::uint32_t>(l.commits)))
        return false;
    for (std::uint64_t s : l.stamps)
        if (s != l.commits)
            return false;
    return true;
}

void apply(Ledger& l, std::uint32_t writer, std::int64_t delta) {
    ++l.commits;
    l.plus += delta;
    l.minus -= delta;
    l.lastWriter = writer;
    l.check = writer ^ static_cast<std::uint32_t>(l.commits);
    l.stamps.fill(l.commits);
}

Ledger zeroLedger() {
    Ledger l{};
    l.check = 0;
    return l;
}

} // namespace

TEST(LkAtomicObjStress, NoCommitLostAndNoCopyTorn) {
    unsigned seed = makeSeed();
    LkAtomicObj<Ledger> ledger(zeroLedger());
    LkAtomicObj<Ledger> side(zeroLedger());
    constexpr int kWriters = 3;
    auto deadline = Clock::now() + std::chrono::milliseconds(2500);

    std::atomic<int> torn{0};
    std::atomic<int> wentBack{0};
    std::array<std::uint64_t, kWriters> commitsOf{};
    std::array<std::int64_t, kWriters> sumOf{};
    std::array<std::uint64_t, kWriters> sideCommitsOf{};

    auto writer = [&](int id) {
        std::mt19937 rng(seed + static_cast<unsigned>(id));
        std::uint64_t n = 0, sideN = 0;
        std::int64_t sum = 0;
        while (Clock::now() < deadline) {
            std::int64_t delta = static_cast<std::int64_t>(rng() % 2001) - 1000;
            int mode = static_cast<int>(rng() % 8);
            LkAtomicWrGuard<Ledger> g(ledger);
            bool done = false;
            while (!done) {
                if (!consistent(*g))
                    torn.fetch_add(1);
                apply(*g, static_cast<std::uint32_t>(id), delta);
                if (mode == 0) {
                    // A commit of the same type on the same thread while this edit is pending.
                    LkAtomicWrGuard<Ledger> inner(side);
                    do {
                        if (!consistent(*inner))
                            torn.fetch_add(1);
                        apply(*inner, static_cast<std::uint32_t>(id), 1);
                    } while (!inner.commit());
                    ++sideN;
                }
                done = g.commit();
                if (done) {
                    ++n;
                    sum += delta;
                }
            }
            if (mode == 1) {
                // A guard that won holds the value it published and goes on from there.
                do {
                    if (!consistent(*g))
                        torn.fetch_add(1);
                    apply(*g, static_cast<std::uint32_t>(id), delta);
                } while (!g.commit());
                ++n;
                sum += delta;
            }
        }
        commitsOf[static_cast<std::size_t>(id)] = n;
        sumOf[static_cast<std::size_t>(id)] = sum;
        sideCommitsOf[static_cast<std::size_t>(id)] = sideN;
    };

    auto reader = [&] {
        std::uint64_t last = 0;
        while (Clock::now() < deadline) {
            LkAtomicRdGuard<Ledger> r(ledger);
            if (!consistent(*r))
                torn.fetch_add(1);
            if (r->commits < last)
                wentBack.fetch_add(1);
            last = r->commits;
            Ledger l = side.load();
            if (!consistent(l))
                torn.fetch_add(1);
        }
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < kWriters; ++i)
        threads.emplace_back(writer, i);
    threads.emplace_back(reader);
    for (auto& t : threads)
        t.join();

    Ledger end = ledger.load();
    std::uint64_t totalCommits = 0;
    std::int64_t totalSum = 0;
    std::uint64_t totalSide = 0;
    for (int i = 0; i < kWriters; ++i) {
        totalCommits += commitsOf[static_cast<std::size_t>(i)];
        totalSum += sumOf[static_cast<std::size_t>(i)];
        totalSide += sideCommitsOf[static_cast<std::size_t>(i)];
    }
    EXPECT_EQ(torn.load(), 0);
    EXPECT_EQ(wentBack.load(), 0);
    EXPECT_TRUE(consistent(end));
    EXPECT_EQ(end.commits, totalCommits);
    EXPECT_EQ(end.plus, totalSum);
    EXPECT_EQ(side.load().commits, totalSide);
    EXPECT_GT(totalCommits, 0u);
}

namespace {

// Threads park themselves on a stack of wait entries inside the state and wake each other, as
// a scheduler does: every park is one commit, and the wake-up is given after the commit.
struct Parking {
    LkWaitEntry* parked;
    std::int32_t nbParked;
    std::int32_t running;
    std::uint32_t stop;
    std::uint32_t pad;
    std::uint64_t handoffs;
};

} // namespace

TEST(LkAtomicObjStress, ParkedThreadsAreWokenOnceEach) {
    unsigned seed = makeSeed();
    constexpr int kThreads = 4;
    LkAtomicObj<Parking> obj(Parking{nullptr, 0, kThreads, 0, 0, 0});
    std::vector<LkWaitEntry> entries(kThreads);
    auto deadline = Clock::now() + std::chrono::milliseconds(2500);
    std::atomic<int> badCounts{0};
    std::array<std::uint64_t, kThreads> parks{};
    std::array<std::uint64_t, kThreads> wakes{};

    auto body = [&](int id) {
        std::mt19937 rng(seed + static_cast<unsigned>(id));
        LkWaitEntry& self = entries[static_cast<std::size_t>(id)];
        for (;;) {
            enum { NOTHING, EXIT, STOP, SWAP, PARK } act = NOTHING;
            LkWaitEntry* woken = nullptr;
            unsigned coin = rng() % 4;
            bool late = Clock::now() >= deadline;
            LkAtomicWrGuard<Parking> g(obj);
            for (;;) {
                if (g->running + g->nbParked != kThreads || g->running < 1 || g->nbParked < 0)
                    badCounts.fetch_add(1);
                // A stale copy may list entries whose owners are relinking them; reading the
                // links must still be safe.
                int walked = 0;
                for (LkWaitEntry* e = g->parked; e && walked <= kThreads; ++walked)
                    e = static_cast<LkWaitEntry*>(e->getNext());
                woken = nullptr;
                if (g->stop) {
                    act = EXIT;
                    break;
                }
                if (late) {
                    act = STOP;
                    woken = g->parked;
                    g->parked = nullptr;
                    g->running += g->nbParked;
                    g->nbParked = 0;
                    g->stop = 1;
                } else if (g->parked && coin < 2) {
                    act = SWAP;
                    woken = LkSListNode::pop(g->parked);
                    LkSListNode::push(g->parked, &self);
                    ++g->handoffs;
                } else if (g->running > 1 && coin == 2) {
                    act = PARK;
                    LkSListNode::push(g->parked, &self);
                    ++g->nbParked;
                    --g->running;
                } else {
                    act = NOTHING;
                    break;
                }
                if (g.commit())
                    break;
            }
            if (act == EXIT)
                return;
            if (act == STOP) {
                while (woken) {
                    // Read the link first: once woken, the owner may end.
                    auto* next = static_cast<LkWaitEntry*>(woken->getNext());
                    woken->signal();
                    woken = next;
                }
                return;
            }
            if (act == SWAP)
                woken->signal();
            if (act == SWAP || act == PARK) {
                ++parks[static_cast<std::size_t>(id)];
                self.wait();
                ++wakes[static_cast<std::size_t>(id)];
            } else {
                for (unsigned i = rng() % 64; i > 0; --i)
                    std::atomic_signal_fence(std::memory_order_seq_cst);
            }
        }
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(body, i);
    for (auto& t : threads)
        t.join();

    Parking end = obj.load();
    EXPECT_EQ(badCounts.load(), 0);
    EXPECT_EQ(end.parked, nullptr);
    EXPECT_EQ(end.nbParked, 0);
    EXPECT_EQ(end.running, kThreads);
    EXPECT_EQ(end.stop, 1u);
    std::uint64_t totalParks = 0;
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(parks[static_cast<std::size_t>(i)], wakes[static_cast<std::size_t>(i)]);
        totalParks += parks[static_cast<std::size_t>(i)];
    }
    EXPECT_GT(totalParks, 0u);
    // No signal is left over: every entry's signal was taken by its one wait.
    for (LkWaitEntry& e : entries)
        EXPECT_FALSE(e.tryWait());
}

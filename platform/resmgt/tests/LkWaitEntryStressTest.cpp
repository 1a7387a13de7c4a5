#include "LkWaitEntry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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

void spin(unsigned n) {
    for (; n > 0; --n)
        std::atomic_signal_fence(std::memory_order_seq_cst);
}

// A lost wake-up shows as threads that make no progress at all. Rather than hang, the watchdog
// then marks the run failed and keeps signalling every entry until the threads have left.
class Watchdog {
public:
    explicit Watchdog(std::vector<LkWaitEntry>& entries)
        : _entries(entries), _thread([this] { run(); }) {}
    ~Watchdog() {
        _finished.store(true);
        _thread.join();
    }
    void progress() noexcept { _progress.fetch_add(1, std::memory_order_relaxed); }
    bool failed() const noexcept { return _failed.load(); }

private:
    void run() {
        std::uint64_t seen = _progress.load();
        auto lastChange = Clock::now();
        while (!_finished.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (_failed.load()) {
                for (LkWaitEntry& e : _entries)
                    e.signal();
                continue;
            }
            std::uint64_t now = _progress.load();
            if (now != seen) {
                seen = now;
                lastChange = Clock::now();
            } else if (Clock::now() - lastChange > std::chrono::seconds(20)) {
                _failed.store(true);
            }
        }
    }

    std::vector<LkWaitEntry>& _entries;
    std::atomic<std::uint64_t> _progress{0};
    std::atomic<bool> _failed{false};
    std::atomic<bool> _finished{false};
    std::thread _thread;
};

} // namespace

TEST(LkWaitEntryStress, SignalBeforeWaitNeverSleeps) {
    unsigned seed = makeSeed();
    std::vector<LkWaitEntry> entries(2);
    LkWaitEntry& signallerEntry = entries[0];
    LkWaitEntry& waiterEntry = entries[1];
    auto deadline = Clock::now() + std::chrono::milliseconds(2500);
    std::atomic<std::uint64_t> signalledRound{0};
    std::atomic<bool> last{false};
    std::uint64_t earlyRounds = 0, earlySleeps = 0, rounds = 0;
    {
        Watchdog dog(entries);
        // Both sides draw the same sequence, so they agree on each round's kind.
        std::thread signaller([&] {
            std::mt19937 rng(seed);
            for (std::uint64_t round = 1;; ++round) {
                bool early = rng() % 2 == 0;
                unsigned pause = rng() % 256;
                bool isLast = Clock::now() >= deadline || dog.failed();
                last.store(isLast, std::memory_order_relaxed);
                if (!early)
                    spin(pause);
                waiterEntry.signal();
                signalledRound.store(round, std::memory_order_release);
                signallerEntry.wait();
                dog.progress();
                if (isLast)
                    return;
            }
        });
        std::thread waiter([&] {
            std::mt19937 rng(seed);
            for (std::uint64_t round = 1;; ++round) {
                bool early = rng() % 2 == 0;
                unsigned pause = rng() % 256;
                if (early) {
                    while (signalledRound.load(std::memory_order_acquire) < round)
                        std::this_thread::yield();
                    std::uint64_t before = waiterEntry.getNbSleeps();
                    waiterEntry.wait();
                    ++earlyRounds;
                    earlySleeps += waiterEntry.getNbSleeps() - before;
                } else {
                    waiterEntry.wait();
                    spin(pause);
                }
                ++rounds;
                bool isLast = last.load(std::memory_order_relaxed);
                signallerEntry.signal();
                if (isLast)
                    return;
            }
        });
        signaller.join();
        waiter.join();
        EXPECT_FALSE(dog.failed());
    }
    EXPECT_GT(earlyRounds, 0u);
    EXPECT_EQ(earlySleeps, 0u);
    EXPECT_GT(rounds, earlyRounds);
    EXPECT_FALSE(waiterEntry.tryWait());
    EXPECT_FALSE(signallerEntry.tryWait());
}

TEST(LkWaitEntryStress, TokenRingLosesNoSignal) {
    unsigned seed = makeSeed();
    constexpr int kThreads = 3;
    std::vector<LkWaitEntry> entries(kThreads);
    auto deadline = Clock::now() + std::chrono::milliseconds(2500);
    // Only the token holder touches these; the signal/wait pair orders the hand-over.
    std::uint64_t passes = 0;
    bool stop = false;
    std::atomic<int> outOfTurn{0};
    std::vector<std::uint64_t> turns(kThreads, 0);
    {
        Watchdog dog(entries);
        std::vector<std::thread> threads;
        for (int id = 0; id < kThreads; ++id)
            threads.emplace_back([&, id] {
                std::mt19937 rng(seed + static_cast<unsigned>(id));
                LkWaitEntry& self = entries[static_cast<std::size_t>(id)];
                LkWaitEntry& next = entries[static_cast<std::size_t>((id + 1) % kThreads)];
                if (id == 0)
                    self.signal(); // thread 0 holds the token first
                for (;;) {
                    spin(rng() % 512);
                    self.wait();
                    if (dog.failed())
                        return;
                    dog.progress();
                    if (stop) {
                        next.signal();
                        return;
                    }
                    if (passes % kThreads != static_cast<std::uint64_t>(id))
                        outOfTurn.fetch_add(1);
                    ++passes;
                    ++turns[static_cast<std::size_t>(id)];
                    if (Clock::now() >= deadline)
                        stop = true;
                    spin(rng() % 512);
                    next.signal();
                }
            });
        for (auto& t : threads)
            t.join();
        EXPECT_FALSE(dog.failed());
    }
    EXPECT_EQ(outOfTurn.load(), 0);
    std::uint64_t sum = 0;
    for (std::uint64_t t : turns)
        sum += t;
    EXPECT_EQ(sum, passes);
    EXPECT_GT(passes, static_cast<std::uint64_t>(kThreads));
    // The stop goes round once and back to the thread that set it; its last signal stays pending
    // on the entry of its successor, which had already left.
    int pending = 0;
    for (LkWaitEntry& e : entries)
        pending += e.tryWait() ? 1 : 0;
    EXPECT_EQ(pending, 1);
}

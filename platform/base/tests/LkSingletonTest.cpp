#include "LkSingleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Vn;

namespace {
std::atomic<int> g_made{0};

struct Inner {
    Inner() { ++g_made; }
    int value = 5;
};

// Reaches another singleton while being made, under the same lock.
struct Outer {
    Outer() : inner(&LkSingleton<Inner>::getInstance()) { ++g_made; }
    Inner* inner;
};

struct Raced {
    Raced() { ++made; }
    static inline std::atomic<int> made{0};
};
} // namespace

TEST(LkSingleton, IsMadeOnFirstUseAndNestedCreationWorks) {
    EXPECT_EQ(LkSingleton<Outer>::getState(), LkSingletonBase::UNINITIALIZED);
    EXPECT_EQ(LkSingleton<Outer>::tryGetInstance(), nullptr);
    Outer& o = LkSingleton<Outer>::getInstance();
    EXPECT_EQ(LkSingleton<Outer>::getState(), LkSingletonBase::INITIALIZED);
    EXPECT_EQ(o.inner, &LkSingleton<Inner>::getInstance());
    EXPECT_EQ(&o, &LkSingleton<Outer>::getInstance());
    EXPECT_EQ(g_made.load(), 2);
    EXPECT_EQ(LkSingletonBase::getInitLock().getName(), "LkSingleton init lock");
}

TEST(LkSingleton, ThreadsRacingForTheFirstUseShareOneInstance) {
    std::vector<std::thread> threads;
    std::vector<Raced*> seen(4, nullptr);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] { seen[i] = &LkSingleton<Raced>::getInstance(); });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(Raced::made.load(), 1);
    for (auto* p : seen)
        EXPECT_EQ(p, seen[0]);
}

#include "LkSema.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Vn;

TEST(LkSema, CountsUnits) {
    LkSema s("test", 2);
    EXPECT_EQ(s.getName(), "test");
    EXPECT_TRUE(s.tryWait());
    EXPECT_TRUE(s.tryWait());
    EXPECT_FALSE(s.tryWait());
    s.post();
    s.post();
    s.wait();
    EXPECT_EQ(s.getCount(), 1);
    EXPECT_TRUE(s.tryWait());
    EXPECT_FALSE(s.tryWait());
    EXPECT_THROW(LkSema("negative", -1), ExAssertionFailed);
}

TEST(LkSema, WaitersTakeEveryPostedUnitOnce) {
    LkSema s("test", 0);
    LkSema done("done", 0);
    constexpr int kThreads = 3, kEach = 200;
    std::thread waiters[kThreads];
    for (auto& t : waiters)
        t = std::thread([&] {
            for (int i = 0; i < kEach; ++i)
                s.wait();
            done.post();
        });
    for (int i = 0; i < kThreads * kEach; ++i)
        s.post();
    for (int i = 0; i < kThreads; ++i)
        done.wait();
    for (auto& t : waiters)
        t.join();
    EXPECT_EQ(s.getCount(), 0);
    EXPECT_FALSE(s.tryWait());
}

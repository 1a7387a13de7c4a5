#include "LkCondVar.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Vn;

TEST(LkCondVar, SignalWakesASleepingWaiter) {
    LkLock lock("test");
    LkCondVar cv("test");
    bool ready = false;
    bool waiting = false;
    bool seen = false;
    std::thread waiter([&] {
        LkGuard g(lock);
        waiting = true;
        while (!ready)
            cv.wait(g);
        seen = true;
    });
    // Once the waiter has released the lock inside wait, the signal below must reach it.
    for (;;) {
        LkGuard g(lock);
        if (waiting) {
            ready = true;
            break;
        }
    }
    cv.signal();
    waiter.join();
    EXPECT_TRUE(seen);
}

TEST(LkCondVar, BroadcastWakesEveryWaiter) {
    LkLock lock("test");
    LkCondVar cv("test");
    int waiting = 0;
    int woken = 0;
    bool go = false;
    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            LkGuard g(lock);
            ++waiting;
            while (!go)
                cv.wait(g);
            ++woken;
        });
    for (;;) {
        LkGuard g(lock);
        if (waiting == kThreads) {
            go = true;
            break;
        }
    }
    cv.broadcast();
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(woken, kThreads);
}

TEST(LkCondVar, WaitRequiresTheLock) {
    LkLock lock("test");
    LkCondVar cv("test");
    LkGuard g(lock);
    lock.unlock();
    EXPECT_THROW(cv.wait(g), ExAssertionFailed);
    lock.lock();
}

#include "LkCondVar.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Vn;

// A signal wakes a sleeping waiter, a broadcast every one: the wake-up comes once every waiter
// has released the lock inside wait, and must reach them there.
TEST(LkCondVar, SignalWakesAWaiterAndBroadcastEveryOne) {
    struct Case {
        char const* name;
        int waiters;
        void (LkCondVar::*wake)();
    };
    for (Case const c :
         {Case{"signal", 1, &LkCondVar::signal}, Case{"broadcast", 4, &LkCondVar::broadcast}}) {
        SCOPED_TRACE(c.name);
        LkLock lock("test");
        LkCondVar cv("test");
        int waiting = 0;
        int woken = 0;
        bool go = false;
        std::vector<std::thread> threads;
        for (int i = 0; i < c.waiters; ++i)
            threads.emplace_back([&] {
                LkGuard g(lock);
                ++waiting;
                while (!go)
                    cv.wait(g);
                ++woken;
            });
        for (;;) {
            LkGuard g(lock);
            if (waiting == c.waiters) {
                go = true;
                break;
            }
        }
        (cv.*c.wake)();
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(woken, c.waiters);
    }
}

TEST(LkCondVar, WaitRequiresTheLock) {
    LkLock lock("test");
    LkCondVar cv("test");
    LkGuard g(lock);
    lock.unlock();
    EXPECT_THROW(cv.wait(g), ExAssertionFailed);
    lock.lock();
}

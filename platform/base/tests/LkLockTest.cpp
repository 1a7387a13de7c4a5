#include "LkLock.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Vn;

TEST(LkLock, NestedGuardsUnlockOnlyWhatTheyTook) {
    LkLock lock("test");
    {
        LkGuard outer(lock);
        EXPECT_TRUE(outer.tookLock());
        {
            LkGuard inner(lock);
            EXPECT_FALSE(inner.tookLock());
        }
        // Still held after the inner guard is gone.
        EXPECT_TRUE(lock.isHeldByCurrentThread());
        bool otherGotIt = true;
        std::thread([&] { otherGotIt = lock.tryLock(); }).join();
        EXPECT_FALSE(otherGotIt);
    }
    EXPECT_FALSE(lock.isHeldByCurrentThread());
    bool otherGotIt = false;
    std::thread([&] {
        otherGotIt = lock.tryLock();
        if (otherGotIt)
            lock.unlock();
    }).join();
    EXPECT_TRUE(otherGotIt);
    EXPECT_THROW(lock.unlock(), ExAssertionFailed);
}

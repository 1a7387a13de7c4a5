#include "ExBase.h"
#include "LkSema.h"
#include "MtThread.h"
#include "MtThreadMgr.h"
#include "MtThreadTimes.h"
#include "PrProcessTimes.h"

#include "WorkThenSleepPool.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

using namespace Vn;

using VnTest::burnCpu;
using VnTest::WorkThenSleepPool;

TEST(MtThread, AnotherThreadsCpuClockReadsThatThread) {
    WorkThenSleepPool pool(3, 0.05);
    MtThreadMgr& mgr = MtThreadMgr::getInstance();
    std::vector<MtThreadTimes::Split> read;
    std::set<MtThread::Id> ids;
    for (int i = 0; i < 3; ++i) {
        MtThread::Id id = pool.getThreadId(i);
        EXPECT_NE(id, 0u);
        EXPECT_EQ(id, pool._ids[i]) << "a pool thread knows its own id";
        ids.insert(id);
        MtThread thread = mgr.findThread(id);
        ASSERT_TRUE(thread.isValid());
        EXPECT_EQ(thread.getId(), id);
        read.push_back(MtThreadTimes::timeSplit(thread));
        // CPU time only grows: read later from outside, it is at least what the thread saw.
        EXPECT_GE(read[i], pool._own[i]) << i;
    }
    EXPECT_EQ(ids.size(), 3u);
    EXPECT_GE(MtThreadTimes::cpuTime(0, read[0]), 0.05);
    // Threads that only started used far less than the one that worked: each reading is of its
    // own thread, not of the reader or the process.
    EXPECT_LT(read[1], read[0]);
    EXPECT_LT(read[2], read[0]);
    EXPECT_THROW(pool.getThreadId(3), ExAssertionFailed);
    EXPECT_THROW(pool.getThreadId(-1), ExAssertionFailed);

    MtThread::Id first = pool.getThreadId(0);
    pool.stop();
    EXPECT_EQ(pool.getThreadId(0), 0u);
    MtThread gone = mgr.findThread(first);
    EXPECT_FALSE(gone.isValid());
    EXPECT_EQ(MtThreadTimes::timeSplit(gone), 0);
    EXPECT_EQ(MtThreadTimes::timeSplit(MtThread()), 0);
}

TEST(MtThread, CurrentThreadOutsideAPoolHasAClockButNoId) {
    MtThread self = MtThread::current();
    ASSERT_TRUE(self.isValid());
    EXPECT_EQ(self.getId(), 0u);
    EXPECT_EQ(MtThreadMgr::getInstance().getCurrentThreadId(), 0u);
    EXPECT_FALSE(MtThreadMgr::getInstance().findThread(0).isValid());
    MtThreadTimes::Split before = MtThreadTimes::timeSplit();
    burnCpu(0.01);
    MtThreadTimes::Split viaHandle = MtThreadTimes::timeSplit(self);
    EXPECT_GE(MtThreadTimes::cpuTime(before, viaHandle), 0.01);
    EXPECT_LE(viaHandle, MtThreadTimes::timeSplit());
}

TEST(PrProcessTimes, CountsTheWorkOfEveryThread) {
    PrProcessTimes::Split before = PrProcessTimes::timeSplit();
    double poolWork = 0;
    {
        WorkThenSleepPool pool(2, 0.05);
        poolWork = MtThreadTimes::cpuTime(
            0,
            MtThreadTimes::timeSplit(MtThreadMgr::getInstance().findThread(pool.getThreadId(0))));
    }
    double process = PrProcessTimes::cpuTime(before, PrProcessTimes::timeSplit());
    EXPECT_GE(poolWork, 0.05);
    // The pool's threads have ended, and their time still counts.
    EXPECT_GE(process, poolWork);
}

// The calling thread's clock counts its own work only: another thread's, done while this one
// sleeps, is not in it.
TEST(MtThreadTimes, CountsOnlyTheCallingThreadsCpuWork) {
    LkSema done("done", 0);
    double otherUsed = 0;
    MtThreadTimes::Split const before = MtThreadTimes::timeSplit();
    std::thread other([&] {
        MtThreadTimes::Split const s = MtThreadTimes::timeSplit();
        burnCpu(0.05);
        otherUsed = MtThreadTimes::cpuTime(s, MtThreadTimes::timeSplit());
        done.post();
    });
    done.wait();
    double const mineWhileWaiting = MtThreadTimes::cpuTime(before, MtThreadTimes::timeSplit());
    other.join();
    EXPECT_GE(otherUsed, 0.05);
    EXPECT_LT(mineWhileWaiting, otherUsed);
}

#include "DtRefTime.h"
#include "ExBase.h"
#include "MtThreadTimes.h"
#include "PrProcessTimes.h"
#include "StatEx.h"
#include "StatInterval.h"
#include "StatList.h"
#include "StatMgr.h"
#include "StatProcessCPUUsage.h"
#include "StatScalar.h"
#include "StatStarted.h"
#include "StatThreadCPUUsage.h"
#include "StatThreadLocal.h"
#include "StatThreadPoolCPUUsage.h"
#include "StatTimeStamp.h"
#include "StatTypes.h"

#include "../../../platform/resmgt/tests/WorkThenSleepPool.h"

#include <vector>

using namespace Vn;

namespace {
using StatValues = StatStarted;

// The samples of a kind in the head data of a store, in recording order.
template <class T>
StatList<T> const& listOf(UPtr<StatThreadLocal> store, StatResourceType type) {
    auto const* list = dynamic_cast<StatList<T> const*>(store->getContainer(type).get());
    if (!list)
        throw ExInternalError(__FILE__, __LINE__, "not a list of this value class");
    return *list;
}

std::vector<long long> scalars(StatList<StatScalar> const& list) {
    std::vector<long long> v;
    for (StatScalar const& s : list)
        v.push_back(s.getScalar());
    return v;
}

} // namespace

using VnTest::burnCpu;
using VnTest::WorkThenSleepPool;

TEST_F(StatValues, CopiesShareAValueUntilOneOfThemIsSet) {
    StatScalar a;
    EXPECT_EQ(a.getScalar(), 0);
    a.setScalar(5);
    StatScalar b(a);
    b.setScalar(7);
    EXPECT_EQ(a.getScalar(), 5);
    EXPECT_EQ(b.getScalar(), 7);
    StatScalar c;
    c = a;
    a.setScalar(9);
    EXPECT_EQ(c.getScalar(), 5);
    EXPECT_EQ(a.getScalar(), 9);

    StatInterval i;
    i.setStart(DtRefTime(100));
    i.setStop(DtRefTime(250));
    StatInterval j = i;
    j.setStop(DtRefTime(900));
    EXPECT_EQ(i.getStop(), DtRefTime(250));
    EXPECT_EQ(j.getStart(), DtRefTime(100));
    EXPECT_EQ(j.getStop(), DtRefTime(900));

    StatTimeStamp t;
    t.setTimeStamp(DtRefTime(42));
    StatTimeStamp u = t;
    u.setTimeStamp(DtRefTime(43));
    EXPECT_EQ(t.getTimeStamp(), DtRefTime(42));
}

TEST_F(StatValues, ARecordedSampleKeepsItsValueWhenTheObjectGoesOn) {
    UPtr<StatThreadLocal> store = StatMgr::getLocalStats();
    StatResourceType waiting = StatTypes::getWaitingRequestsId();
    StatScalar s;
    s.setScalar(1, waiting);
    s.setScalar(2, waiting);
    s.setScalar(3);
    s.recordStat(store, waiting);
    s.setScalar(4);
    EXPECT_EQ(scalars(listOf<StatScalar>(store, waiting)), (std::vector<long long>{1, 2, 3}));
    EXPECT_EQ(s.getScalar(), 4);

    StatResourceType draw = StatTypes::getDrawIntervalId();
    StatInterval i;
    i.setStart(DtRefTime(10));
    i.setStop(DtRefTime(20), draw);
    i.setStart(DtRefTime(30));
    i.setStop(DtRefTime(45), draw);
    i.setStop(DtRefTime(99));
    StatList<StatInterval> const& intervals = listOf<StatInterval>(store, draw);
    ASSERT_EQ(intervals.size(), 2u);
    EXPECT_EQ(intervals.front().getStart(), DtRefTime(10));
    EXPECT_EQ(intervals.front().getStop(), DtRefTime(20));
    EXPECT_EQ(intervals.back().getStart(), DtRefTime(30));
    EXPECT_EQ(intervals.back().getStop(), DtRefTime(45));
    EXPECT_DOUBLE_EQ(intervals.back().getStop().secondsSince(intervals.back().getStart()), 15e-9);

    StatResourceType target = StatTypes::getTargetTimeId();
    StatTimeStamp t;
    t.setTimeStamp(DtRefTime(7), target);
    t.timeStamp();
    t.recordStat(store, target);
    StatList<StatTimeStamp> const& stamps = listOf<StatTimeStamp>(store, target);
    ASSERT_EQ(stamps.size(), 2u);
    EXPECT_EQ(stamps.front().getTimeStamp(), DtRefTime(7));
    EXPECT_GT(stamps.back().getTimeStamp(), DtRefTime(7));
}

TEST_F(StatValues, AKindIsRecordedOnlyWithItsValueClass) {
    StatScalar s;
    s.setScalar(1);
    EXPECT_THROW(s.recordStat(StatTypes::getDrawIntervalId()), StatExInvalid);
    try {
        s.recordStat(StatResourceType());
        FAIL() << "an invalid kind was recorded";
    } catch (StatExInvalid const& e) {
        EXPECT_EQ(e.getReason(), "Resource ID is invalid.");
    }
    // Nothing was recorded under the kind of the other class.
    EXPECT_TRUE(
        listOf<StatInterval>(StatMgr::getLocalStats(), StatTypes::getDrawIntervalId()).empty());
    EXPECT_THROW(s.recordStat(UPtr<StatThreadLocal>(), StatTypes::getWaitingRequestsId()),
                 ExNullPtr);
}

TEST_F(StatValues, CpuSplitsOfTheThreadAndTheProcess) {
    StatResourceType ui = StatTypes::getUIThreadCPUUsageId();
    StatResourceType process = StatTypes::getProcessCPUUsageId();
    StatThreadCPUUsage thread;
    StatProcessCPUUsage whole;
    whole.timeSplit(process);
    thread.timeSplit(ui);
    StatThreadCPUUsage first = thread;
    burnCpu(0.02);
    thread.timeSplit(MtThread::current(), ui);
    whole.timeSplit(process);
    EXPECT_GE(MtThreadTimes::cpuTime(first.getTimeSplit(), thread.getTimeSplit()), 0.02);

    UPtr<StatThreadLocal> store = StatMgr::getLocalStats();
    StatList<StatThreadCPUUsage> const& threadSamples = listOf<StatThreadCPUUsage>(store, ui);
    StatList<StatProcessCPUUsage> const& processSamples =
        listOf<StatProcessCPUUsage>(store, process);
    ASSERT_EQ(threadSamples.size(), 2u);
    ASSERT_EQ(processSamples.size(), 2u);
    EXPECT_EQ(threadSamples.front().getTimeSplit(), first.getTimeSplit());
    double threadUsed = MtThreadTimes::cpuTime(threadSamples.front().getTimeSplit(),
                                               threadSamples.back().getTimeSplit());
    double processUsed = PrProcessTimes::cpuTime(processSamples.front().getTimeSplit(),
                                                 processSamples.back().getTimeSplit());
    EXPECT_GE(threadUsed, 0.02);
    // The process span encloses the thread span.
    EXPECT_GE(processUsed, threadUsed);
}

TEST_F(StatValues, PoolUsageHasOneSplitPerThread) {
    WorkThenSleepPool pool(3, 0.05);
    StatResourceType type = StatTypes::getPxThreadPoolCPUUsageId();
    StatThreadPoolCPUUsage usage;
    EXPECT_EQ(usage.getNbThreads(), 0);
    usage.timeSplit(pool, type);
    ASSERT_EQ(usage.getNbThreads(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_GE(usage.getTimeSplit(i), pool._own[static_cast<std::size_t>(i)]) << i;
    EXPECT_GE(MtThreadTimes::cpuTime(0, usage.getTimeSplit(0)), 0.05);
    EXPECT_LT(usage.getTimeSplit(1), usage.getTimeSplit(0));
    EXPECT_LT(usage.getTimeSplit(2), usage.getTimeSplit(0));
    EXPECT_THROW(usage.getTimeSplit(3), ExAssertionFailed);
    EXPECT_THROW(usage.getTimeSplit(-1), ExAssertionFailed);

    StatList<StatThreadPoolCPUUsage> const& samples =
        listOf<StatThreadPoolCPUUsage>(StatMgr::getLocalStats(), type);
    ASSERT_EQ(samples.size(), 1u);
    MtThreadTimes::Split recorded = samples.front().getTimeSplit(1);

    // A stopped pool's threads read 0; the sample keeps what it saw.
    pool.stop();
    usage.timeSplit(pool);
    EXPECT_EQ(usage.getTimeSplit(1), 0);
    EXPECT_EQ(samples.front().getTimeSplit(1), recorded);
    EXPECT_GT(recorded, 0);
}

TEST_F(StatValues, PoolUsageBeyondOneBlockKeepsEachThreadInItsPlace) {
    int const n = StatThreadPoolCPUUsage::kThreadsPerBlock + 4;
    WorkThenSleepPool pool(n, 0.05);
    StatThreadPoolCPUUsage usage;
    usage.timeSplit(pool);
    ASSERT_EQ(usage.getNbThreads(), n);
    for (int i = 0; i < n; ++i) {
        EXPECT_GE(usage.getTimeSplit(i), pool._own[static_cast<std::size_t>(i)]) << i;
        if (i > 0) {
            EXPECT_LT(usage.getTimeSplit(i), usage.getTimeSplit(0)) << i;
        }
    }
    // A copy keeps every block when the original reads again.
    StatThreadPoolCPUUsage copy = usage;
    std::vector<MtThreadTimes::Split> before;
    for (int i = 0; i < n; ++i)
        before.push_back(copy.getTimeSplit(i));
    pool.stop();
    usage.timeSplit(pool);
    for (int i = 0; i < n; ++i) {
        EXPECT_EQ(copy.getTimeSplit(i), before[static_cast<std::size_t>(i)]) << i;
        EXPECT_EQ(usage.getTimeSplit(i), 0) << i;
    }
}

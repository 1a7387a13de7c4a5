#include "MtThreadPool.h"
#include "ExBase.h"
#include "LkCondVar.h"
#include "LkSema.h"
#include "MtThreadMgr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <vector>

using namespace Vn;

namespace {

// Threads that note who they are and then sleep until the pool stops.
class SleepyPool : public MtThreadPool {
public:
    explicit SleepyPool(char const* name, bool keepOnProcessor = false)
        : MtThreadPool(name, 0, keepOnProcessor, 0), _lock("SleepyPool"), _cv("SleepyPool"),
          _started("SleepyPool", 0) {}
    ~SleepyPool() override { stop(); }

    void waitStarted(int n) {
        for (int i = 0; i < n; ++i)
            _started.wait();
    }

    std::vector<int> _seen = std::vector<int>(64, 0);
    std::vector<int> _infoIndex = std::vector<int>(64, -1);
    std::vector<std::string> _threadNames = std::vector<std::string>(64);
    std::vector<int> _nbAllowedCpus = std::vector<int>(64, 0);
    std::atomic<int> _wrongPool{0};

protected:
    void main(int index) override {
        MtThreadInfo const* info = MtThreadMgr::getInstance().findCurrentThread();
        if (!info || &info->getPool() != this || info->getPoolName() != getName())
            _wrongPool.fetch_add(1);
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        cpu_set_t set;
        CPU_ZERO(&set);
        pthread_getaffinity_np(pthread_self(), sizeof(set), &set);
        {
            LkGuard g(_lock);
            ++_seen[index];
            _infoIndex[index] = info ? info->getIndex() : -1;
            _threadNames[index] = name;
            _nbAllowedCpus[index] = CPU_COUNT(&set);
        }
        _started.post();
        LkGuard g(_lock);
        while (!isStopping())
            _cv.wait(g);
    }
    void notifyStop() override {
        LkGuard g(_lock);
        _cv.broadcast();
    }

private:
    LkLock _lock;
    LkCondVar _cv;
    LkSema _started;
};

class FailingPool : public MtThreadPool {
public:
    FailingPool() : MtThreadPool("failing", 0, false, 0) {}
    ~FailingPool() override = default;

protected:
    void main(int index) override {
        if (index == 1)
            VN_THROW_MSG(ExInternalError, "thread 1 failed");
    }
};

} // namespace

TEST(MtThreadPool, StopWakesSleepingThreadsAndEveryIndexRunsOnce) {
    SleepyPool pool("sleepy");
    EXPECT_FALSE(pool.isRunning());
    EXPECT_EQ(pool.getNbThreads(), 0);
    pool.start(5);
    EXPECT_TRUE(pool.isRunning());
    EXPECT_EQ(pool.getNbThreads(), 5);
    EXPECT_THROW(pool.start(1), ExAssertionFailed);
    pool.waitStarted(5);
    pool.stop();
    EXPECT_FALSE(pool.isRunning());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(pool._seen[i], 1) << i;
        EXPECT_EQ(pool._infoIndex[i], i);
        EXPECT_EQ(pool._threadNames[i], "sleepy#" + std::to_string(i));
    }
    EXPECT_EQ(pool._seen[5], 0);
    EXPECT_EQ(pool._wrongPool.load(), 0);
    EXPECT_EQ(MtThreadMgr::getInstance().findCurrentThread(), nullptr);

    // A stopped pool starts again.
    pool.start(2);
    pool.waitStarted(2);
    pool.stop();
    EXPECT_EQ(pool._seen[0], 2);
    EXPECT_EQ(pool._seen[1], 2);
    EXPECT_EQ(pool._seen[2], 1);
    pool.stop();
}

TEST(MtThreadPool, LongNamesKeepTheIndexAndThreadsCanBePinned) {
    SleepyPool pool("averyveryverylongpoolname", true);
    int n = MtThreadMgr::getInstance().getNbProcessors() + 1;
    ASSERT_GE(n, 2);
    pool.start(n);
    pool.waitStarted(n);
    pool.stop();
    EXPECT_EQ(pool._threadNames[0], "averyveryvery#0");
    for (int i = 0; i < n; ++i)
        EXPECT_EQ(pool._nbAllowedCpus[i], 1) << i;
}

TEST(MtThreadPool, StopRaisesWhatAThreadLetOut) {
    FailingPool pool;
    pool.start(3);
    try {
        pool.stop();
        FAIL();
    } catch (ExInternalError const& e) {
        EXPECT_EQ(e.getReason(), "thread 1 failed");
    }
    EXPECT_FALSE(pool.isRunning());
    EXPECT_THROW(FailingPool().start(0), ExAssertionFailed);
}

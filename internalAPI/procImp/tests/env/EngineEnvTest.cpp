#include "InPackageInit.h"
#include "LgLog.h"
#include "MtThreadMgr.h"
#include "MtThreadPool.h"
#include "PxRequestMgr.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>

using namespace Vn;

// The run's environment sets the engine's variables and, in EXPECT_*, what must come of them.
TEST(EngineEnv, PoolFromVariables) {
    char const* threads = std::getenv("EXPECT_THREADS");
    char const* running = std::getenv("EXPECT_MAX_RUNNING");
    char const* logged = std::getenv("EXPECT_TOO_MANY_LOGGED");
    ASSERT_TRUE(threads && running && logged) << "run through ctest, which sets the expectations";
    std::mutex m;
    int tooMany = 0;
    auto previous = LgLog::setOutput([&](LgEntry const& e) {
        std::lock_guard g(m);
        if (e.format() == "Pp.PxGraph[2]: Requested number of processing threads is too high "
                          "(limit is 128).")
            ++tooMany;
    });
    InInitMgr::getInstance().initialize();
    PxRequestMgr::getInstance().sync();
    EXPECT_EQ(PxRequestMgr::getInstance().getThreadPool().getNbThreads(), std::atoi(threads));
    int wantRunning = std::atoi(running);
    if (wantRunning == 0)
        wantRunning = std::min(MtThreadMgr::getInstance().getNbProcessors(), std::atoi(threads));
    EXPECT_EQ(PxRequestMgr::getInstance().getMaxRunningWorkers(), wantRunning);
    InInitMgr::getInstance().finalize();
    LgLog::setOutput(std::move(previous));
    EXPECT_EQ(tooMany, std::atoi(logged));
}

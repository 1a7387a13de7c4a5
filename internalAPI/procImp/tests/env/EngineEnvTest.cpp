#include "../EngineTestSupport.h"

#include "MtThreadMgr.h"
#include "MtThreadPool.h"

#include <cstdlib>
#include <pthread.h>

using namespace VnTest;
using namespace Vn;

// The run's environment sets the engine's variables and, in EXPECT_*, what must come of them.
TEST(EngineEnv, PoolFromVariables) {
    char const* threads = std::getenv("EXPECT_THREADS");
    char const* running = std::getenv("EXPECT_MAX_RUNNING");
    char const* logged = std::getenv("EXPECT_TOO_MANY_LOGGED");
    ASSERT_TRUE(threads && running && logged) << "run through ctest, which sets the expectations";
    LogCapture log;
    InInitMgr::getInstance().initialize();
    PxRequestMgr::getInstance().sync();
    EXPECT_EQ(PxRequestMgr::getInstance().getThreadPool().getNbThreads(), std::atoi(threads));
    int wantRunning = std::atoi(running);
    if (wantRunning == 0)
        wantRunning = std::min(MtThreadMgr::getInstance().getNbProcessors(), std::atoi(threads));
    EXPECT_EQ(PxRequestMgr::getInstance().getMaxRunningWorkers(), wantRunning);
    if (char const* stack = std::getenv("EXPECT_STACK_MB")) {
        // What a worker really got, not only what the pool was told.
        std::size_t workerStack = 0;
        runAndWait(new FnRequest([&] {
            pthread_attr_t attr;
            ASSERT_EQ(pthread_getattr_np(pthread_self(), &attr), 0);
            ASSERT_EQ(pthread_attr_getstacksize(&attr, &workerStack), 0);
            pthread_attr_destroy(&attr);
        }));
        EXPECT_EQ(workerStack >> 20, static_cast<std::size_t>(std::atoi(stack)));
    }
    InInitMgr::getInstance().finalize();
    EXPECT_EQ(log.count({"Pp.PxGraph[2]: Requested number of processing threads is too high "
                         "(limit is 128)."}),
              std::atoi(logged));
}

// Without cooperation a worker that waits for a running request sleeps: it never runs that
// request's children itself. Two running slots keep the children queued until then.
TEST(EngineEnv, AWaitingWorkerSleepsWithoutCooperation) {
    ASSERT_STREQ(std::getenv("VN_PXREQUEST_THREAD_COOP"), "0") << "run through ctest";
    InInitMgr::getInstance().initialize();
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    mgr.setMaxRunningWorkers(2);
    std::atomic<bool> go{false}, parentRunning{false};
    std::mutex m;
    std::vector<std::thread::id> ranOn;
    std::thread::id waiter;
    PxRequestPtr<PxRequest> root(new FnRequest([&] {
        waiter = std::this_thread::get_id();
        PxRequestPtr<PxRequest> parent(new FnRequest([&] {
            std::vector<PxRequestPtr<PxRequest>> children;
            for (int i = 0; i < 4; ++i) {
                children.emplace_back(new FnRequest([&] {
                    std::lock_guard g(m);
                    ranOn.push_back(std::this_thread::get_id());
                }));
                mgr.executeRequest(children.back().get(), false);
            }
            parentRunning = true;
            while (!go.load())
                std::this_thread::yield();
            for (auto& c : children)
                mgr.waitRequest(c.get());
        }));
        mgr.executeRequest(parent.get(), false);
        while (!parentRunning.load())
            std::this_thread::yield();
        std::thread([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            go = true;
        }).detach();
        mgr.waitRequest(parent.get()); // running, with queued children
    }));
    mgr.executeRequest(root.get(), false);
    mgr.waitRequest(root.get());
    root.reset();
    EXPECT_EQ(ranOn.size(), 4u);
    for (auto const& id : ranOn)
        EXPECT_NE(id, waiter);
    InInitMgr::getInstance().finalize();
}

#include "EngineTestSupport.h"

#include "Assertions.h"
#include "MtThreadMgr.h"
#include "MtThreadPool.h"
#include "PxEx.h"

#include <mutex>
#include <vector>

using namespace VnTest;
using namespace Vn;

namespace {

class ExBadPixel : public ExBase {
public:
    ExBadPixel(char const* file, int line, int x) : ExBase(file, line), _x(x) {
        setReason("bad pixel " + std::to_string(x));
    }
    int x() const { return _x; }
    VN_EX_CLONE_RAISE(ExBadPixel)

private:
    int _x;
};

using RT = PxRequest::RequestType;
constexpr RT kSequential{PxRequest::SEQUENTIAL, PxRequest::REFERENCED, PxRequest::CPU};
constexpr RT kFireAndForget{PxRequest::CONCURRENT, PxRequest::FIRE_AND_FORGET, PxRequest::CPU};
constexpr RT kGfx{PxRequest::CONCURRENT, PxRequest::REFERENCED, PxRequest::GFX};

// Keeps the running slot busy until opened.
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<bool> entered{false};
    void pass() {
        entered = true;
        while (!open.load())
            std::this_thread::yield();
    }
};

} // namespace

using RequestEngine = EngineTest;

TEST_F(RequestEngine, ExternalRequestRunsOnAWorker) {
    std::thread::id ranOn;
    bool sawWorker = false;
    runAndWait(new FnRequest([&] {
        ranOn = std::this_thread::get_id();
        sawWorker = engine().isWorkerThreadCurrent();
    }));
    EXPECT_NE(ranOn, std::this_thread::get_id());
    EXPECT_TRUE(sawWorker);
    EXPECT_FALSE(engine().isWorkerThreadCurrent());
    EXPECT_EQ(engine().getThreadPool().getNbThreads(), 4);
}

TEST_F(RequestEngine, FailureReachesTheWaiterWithItsTypeAtEveryWait) {
    auto* r = new FnRequest([] { throw ExBadPixel(__FILE__, __LINE__, 7); });
    PxRequestPtr<PxRequest> p(r);
    engine().executeRequest(r, false);
    for (int i = 0; i < 2; ++i) {
        try {
            engine().waitRequest(r);
            FAIL() << "the failure must be raised again";
        } catch (ExBadPixel const& e) {
            EXPECT_EQ(e.x(), 7);
        }
    }
}

TEST_F(RequestEngine, FailureOfAChildTravelsUpTheTree) {
    auto* root = new FnRequest([] {
        auto* child = new FnRequest([] {
            auto* grandChild = new FnRequest([] { throw ExBadPixel(__FILE__, __LINE__, 3); });
            runAndWait(grandChild);
        });
        runAndWait(child);
    });
    EXPECT_THROW(runAndWait(root), ExBadPixel);
}

TEST_F(RequestEngine, AnUnreadFailureTripsTheCheckAtRelease) {
    auto* r = new FnRequest([] { throw ExBadPixel(__FILE__, __LINE__, 1); });
    engine().executeRequest(r, false);
    engine().sync(); // the worker has post-executed it
    try {
        engine().releaseRequest(r);
        FAIL() << "a failure nobody read must not be lost silently";
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(),
                  "guard->isResultQueried() || guard->isCancelled() || guard->isUnwinded()");
    }
}

TEST_F(RequestEngine, CancellingAnExternalRequestStopsItsTree) {
    std::atomic<int> started{0};
    std::atomic<int> entered{0};
    auto* root = new FnRequest([&] {
        std::vector<PxRequestPtr<PxRequest>> children;
        for (int i = 0; i < 6; ++i) {
            auto* c = new FnRequest([&] {
                ++entered;
                for (;;) {
                    engine().checkCancelled();
                    std::this_thread::yield();
                }
            });
            children.emplace_back(c);
            engine().executeRequest(c, false);
        }
        ++started;
        for (auto& c : children)
            engine().waitRequest(c.get());
    });
    PxRequestPtr<PxRequest> p(root);
    engine().executeRequest(root, false);
    ASSERT_TRUE(eventually([&] { return started.load() == 1 && entered.load() > 0; }));
    engine().cancelRequest(root);
    EXPECT_THROW(engine().waitRequest(root), PxEx::ExRequestCancelled);
}

TEST_F(RequestEngine, FireAndForgetIsReleasedByTheEngine) {
    std::atomic<int> ran{0};
    for (int i = 0; i < 20; ++i) {
        auto* r = new FnRequest([&] { ++ran; }, kFireAndForget);
        engine().executeRequest(r, false);
        engine().releaseRequest(r);
    }
    engine().sync();
    EXPECT_EQ(ran.load(), 20);
    // The fixture checks that none of them is left alive.
}

TEST_F(RequestEngine, ContractViolationsAtSubmissionAreAssertions) {
    auto* manual = new FnRequest([] {});
    try {
        engine().executeRequest(manual, true);
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "!( isExternal && executeManually )");
    }
    engine().releaseRequest(manual); // never submitted: simply destroyed

    std::string reason;
    runAndWait(new FnRequest([&] {
        auto* fnf = new FnRequest([] {}, kFireAndForget);
        try {
            engine().executeRequest(fnf, false);
        } catch (ExAssertionFailed const& e) {
            reason = e.getReason();
        }
        engine().releaseRequest(fnf);
    }));
    EXPECT_EQ(reason, "!( (request->getReferencingMode() == PxRequest::FIRE_AND_FORGET ) && "
                      "!isExternal )");
}

TEST_F(RequestEngine, ManualAndQueuedChildrenEachRunOnce) {
    std::atomic<int> runs{0};
    auto* root = new FnRequest([&] {
        std::vector<PxRequestPtr<PxRequest>> children;
        for (int i = 0; i < 16; ++i) {
            auto* c = new FnRequest([&] { ++runs; });
            children.emplace_back(c);
            engine().executeRequest(c, i % 2 == 0);
        }
        for (auto& c : children)
            engine().waitRequest(c.get());
    });
    runAndWait(root);
    engine().sync();
    EXPECT_EQ(runs.load(), 16);
}

TEST_F(RequestEngine, SequentialRequestRunsAloneBetweenItsNeighbours) {
    std::mutex m;
    std::vector<std::string> events;
    std::atomic<int> running{0};
    std::atomic<int> maxWhileSequential{0};
    auto log = [&](std::string e) {
        std::lock_guard g(m);
        events.push_back(std::move(e));
    };
    std::vector<PxRequestPtr<PxRequest>> all;
    auto concurrent = [&](std::string name) {
        auto* r = new FnRequest([&, name] {
            ++running;
            log("+" + name);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            log("-" + name);
            --running;
        });
        all.emplace_back(r);
        engine().executeRequest(r, false);
    };
    for (int i = 0; i < 10; ++i)
        concurrent("c" + std::to_string(i));
    auto* seq = new FnRequest(
        [&] {
            maxWhileSequential = running.load() + 1;
            log("+S");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            maxWhileSequential = std::max(maxWhileSequential.load(), running.load() + 1);
            log("-S");
        },
        kSequential);
    all.emplace_back(seq);
    engine().executeRequest(seq, false);
    concurrent("after");
    for (auto& r : all)
        engine().waitRequest(r.get());

    auto pos = [&](std::string const& e) {
        return std::find(events.begin(), events.end(), e) - events.begin();
    };
    for (int i = 0; i < 10; ++i)
        EXPECT_LT(pos("-c" + std::to_string(i)), pos("+S"));
    EXPECT_LT(pos("-S"), pos("+after"));
    EXPECT_EQ(maxWhileSequential.load(), 1);
}

TEST_F(RequestEngine, PriorityOneMovesAheadButNeverPassesASequentialRequest) {
    engine().setMaxRunningWorkers(1);
    Gate gate;
    std::mutex m;
    std::vector<std::string> order;
    auto record = [&](std::string s) {
        return [&, s] {
            std::lock_guard g(m);
            order.push_back(s);
        };
    };
    std::vector<PxRequestPtr<PxRequest>> all;
    auto submit = [&](PxRequest* r) {
        all.emplace_back(r);
        engine().executeRequest(r, false);
    };
    submit(new FnRequest([&] { gate.pass(); }));
    ASSERT_TRUE(eventually([&] { return gate.entered.load(); }));
    submit(new FnRequest(record("low1")));
    submit(new FnRequest(record("high1"), RT(), 1));
    submit(new FnRequest(record("seq"), kSequential));
    submit(new FnRequest(record("low2")));
    submit(new FnRequest(record("high2"), RT(), 1));
    gate.open = true;
    for (auto& r : all)
        engine().waitRequest(r.get());
    EXPECT_EQ(order, (std::vector<std::string>{"high1", "low1", "seq", "high2", "low2"}));
}

TEST_F(RequestEngine, ABlockedWorkerHandsItsSlotOnAndQueuesForIt) {
    engine().setMaxRunningWorkers(1);
    std::atomic<bool> aBlocked{false};
    std::atomic<bool> bRan{false};
    std::atomic<bool> release{false};
    std::atomic<int> ringSeen{0};
    std::atomic<int> maxRunning{0};
    auto* a = new FnRequest([&] {
        {
            PxWorkerBlockingGuard blocked;
            aBlocked = true;
            while (!bRan.load())
                std::this_thread::yield();
        }
        // Back from the wait while B holds the only slot: A sleeps in the ring until B ends.
    });
    auto* b = new FnRequest([&] {
        bRan = true;
        ringSeen = eventually([] { return engineImp().getSnapshot().nbRingWorkers == 1; }) ? 1 : 0;
        maxRunning = engineImp().getSnapshot().nbRunningWorkers;
        while (!release.load())
            std::this_thread::yield();
    });
    PxRequestPtr<PxRequest> pa(a), pb(b);
    engine().executeRequest(a, false);
    ASSERT_TRUE(eventually([&] { return aBlocked.load(); }));
    engine().executeRequest(b, false);
    ASSERT_TRUE(eventually([&] { return ringSeen.load() != 0 || bRan.load(); }));
    release = true;
    engine().waitRequest(b);
    engine().waitRequest(a);
    EXPECT_EQ(ringSeen.load(), 1);
    EXPECT_EQ(maxRunning.load(), 1);
    EXPECT_EQ(engineImp().getSnapshot().nbRingWorkers, 0);
}

TEST_F(RequestEngine, AGfxRequestWakesTheGfxWorkerAtTheLimit) {
    engine().setMaxRunningWorkers(1);
    std::atomic<bool> gfxRan{false};
    std::atomic<bool> observed{false};
    std::atomic<int> runningSeen{0};
    runAndWait(new FnRequest([&] {
        auto* g = new FnRequest(
            [&] {
                gfxRan = true;
                eventually([&] { return observed.load(); });
            },
            kGfx);
        PxRequestPtr<PxRequest> p(g);
        engine().executeRequest(g, false);
        // This worker keeps its slot; the GFX worker runs beside it all the same.
        EXPECT_TRUE(eventually([&] { return gfxRan.load(); }));
        runningSeen = engineImp().getSnapshot().nbRunningWorkers;
        observed = true;
        engine().waitRequest(g);
    }));
    EXPECT_TRUE(gfxRan.load());
    EXPECT_EQ(runningSeen.load(), 2);
}

TEST_F(RequestEngine, GfxRequestsRunBothHalvesOnTheGfxWorker) {
    std::vector<int> performIndex, completeIndex;
    std::mutex m;
    auto index = [] {
        auto const* info = MtThreadMgr::getInstance().findCurrentThread();
        return info ? info->getIndex() : -1;
    };
    runAndWait(new FnRequest([&] {
        std::vector<PxRequestPtr<PxRequest>> gfx;
        for (int i = 0; i < 3; ++i) {
            auto* g = new FnRequest(
                [&] {
                    std::lock_guard l(m);
                    performIndex.push_back(index());
                },
                kGfx);
            g->_complete = [&] {
                std::lock_guard l(m);
                completeIndex.push_back(index());
            };
            gfx.emplace_back(g);
            engine().executeRequest(g, false);
        }
        for (auto& g : gfx)
            engine().waitRequest(g.get());
    }));
    EXPECT_EQ(performIndex, (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(completeIndex, (std::vector<int>{0, 0, 0}));
}

TEST_F(RequestEngine, SyncStartsANeverStartedPool) {
    EXPECT_FALSE(engineImp().areWorkersStarted());
    engine().sync();
    EXPECT_TRUE(engineImp().areWorkersStarted());
    EXPECT_TRUE(eventually([] { return engineImp().getSnapshot().state == RequestMgrImp::IDLE; }));
}

TEST(RequestEngineLife, AnUnusedEngineStopsWithoutStarting) {
    InInitMgr::getInstance().initialize();
    EXPECT_FALSE(engineImp().areWorkersStarted());
    EXPECT_EQ(engineImp().getSnapshot().state, RequestMgrImp::UNINITIALIZED);
    EXPECT_NO_THROW(InInitMgr::getInstance().finalize());
    EXPECT_FALSE(PxRequestMgr::isInitialized());
}

TEST(RequestEngineLife, PoolSizeRules) {
    InInitMgr::getInstance().initialize();
    PxRequestImp::setNbWorkerThreads(1);
    engine().sync();
    EXPECT_EQ(engine().getThreadPool().getNbThreads(), 2);
    engine().setMaxRunningWorkers(0); // the processor count
    EXPECT_EQ(engine().getMaxRunningWorkers(),
              std::min(2, MtThreadMgr::getInstance().getNbProcessors()));
    engine().setMaxRunningWorkers(500); // cut to the pool
    EXPECT_EQ(engine().getMaxRunningWorkers(), 2);
    InInitMgr::getInstance().finalize();
}

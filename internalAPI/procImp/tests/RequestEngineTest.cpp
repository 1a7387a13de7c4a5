#include "EngineTestSupport.h"

#include "Assertions.h"
#include "MtThreadMgr.h"
#include "MtThreadPool.h"
#include "PxEx.h"

#include <mutex>
#include <numeric>
#include <vector>

using namespace VnTest;
using namespace Vn;
using RS = PxRequestState;

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

TEST_F(RequestEngine, SyncStartsThePoolAndExternalRequestsRunOnAWorker) {
    EXPECT_FALSE(engineImp().areWorkersStarted());
    engine().sync();
    EXPECT_TRUE(engineImp().areWorkersStarted());
    EXPECT_TRUE(eventually([] { return engineImp().getSnapshot().state == RequestMgrImp::IDLE; }));
    EXPECT_EQ(engine().getThreadPool().getNbThreads(), 4);
    std::thread::id ranOn;
    bool sawWorker = false;
    runAndWait(new FnRequest([&] {
        ranOn = std::this_thread::get_id();
        sawWorker = engine().isWorkerThreadCurrent();
    }));
    EXPECT_NE(ranOn, std::this_thread::get_id());
    EXPECT_TRUE(sawWorker);
    EXPECT_FALSE(engine().isWorkerThreadCurrent());
}

// A failure reaches the waiter with its class, at every wait, from however deep in the tree.
TEST_F(RequestEngine, FailureReachesTheWaiterWithItsTypeAtEveryWait) {
    for (int depth : {0, 2}) {
        std::function<void()> fail = [] {
            throw ExBadPixel(__FILE__, __LINE__, 7);
        };
        for (int level = 0; level < depth; ++level)
            fail = [fail] {
                runAndWait(new FnRequest(fail));
            };
        auto* r = new FnRequest(fail);
        PxRequestPtr<PxRequest> p(r);
        engine().executeRequest(r, false);
        for (int i = 0; i < 2; ++i) {
            try {
                engine().waitRequest(r);
                FAIL() << "the failure must be raised again, depth " << depth;
            } catch (ExBadPixel const& e) {
                EXPECT_EQ(e.x(), 7);
            }
        }
    }
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
    // Only children that had started by then ran: at most one per CPU worker, never all six.
    EXPECT_LE(entered.load(), engine().getThreadPool().getNbThreads() - 1);
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

// The queued children that their parent's waits ran leave the stack with their parent's end,
// taken by the worker that ran them: with one running worker nobody else could.
TEST_F(RequestEngine, ManualAndQueuedChildrenEachRunOnceAndLeaveTheStackWithTheirParent) {
    engine().setMaxRunningWorkers(1);
    std::atomic<int> runs{0};
    bool stackEmptyAfterParent = false;
    runAndWait(new FnRequest([&] {
        PxRequestPtr<PxRequest> parent(new FnRequest([&] {
            std::vector<PxRequestPtr<PxRequest>> children;
            for (int i = 0; i < 16; ++i) {
                auto* c = new FnRequest([&] { ++runs; });
                children.emplace_back(c);
                engine().executeRequest(c, i % 2 == 0);
            }
            for (auto& c : children)
                engine().waitRequest(c.get());
        }));
        engine().executeRequest(parent.get(), true);
        engine().waitRequest(parent.get());
        stackEmptyAfterParent = engineImp().getSnapshot().internalQueuesEmpty;
    }));
    engine().sync();
    EXPECT_EQ(runs.load(), 16);
    EXPECT_TRUE(stackEmptyAfterParent);
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

// A worker takes a long queue several entries at a time. They run in their order, and when the
// first one waits for a later one, the worker that blocks lets another run those it holds.
TEST_F(RequestEngine, RequestsTakenTogetherRunInOrderAndRunElsewhereWhenTheirWorkerBlocks) {
    struct Case {
        bool firstWaitsForSecond;
        std::vector<int> order;
    };
    std::vector<int> inOrder(21);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    std::vector<int> firstLast(inOrder.begin() + 1, inOrder.end());
    firstLast.push_back(0);
    for (Case const& c : {Case{false, inOrder}, Case{true, firstLast}}) {
        engine().setMaxRunningWorkers(1);
        Gate gate;
        std::mutex m;
        std::vector<int> order;
        std::vector<PxRequestPtr<PxRequest>> all;
        all.emplace_back(new FnRequest([&] { gate.pass(); }));
        engine().executeRequest(all.back().get(), false);
        ASSERT_TRUE(eventually([&] { return gate.entered.load(); }));
        for (int i = 0; i < 21; ++i) {
            all.emplace_back(new FnRequest([&, i] {
                if (i == 0 && c.firstWaitsForSecond)
                    engine().waitRequest(all[2].get());
                std::lock_guard g(m);
                order.push_back(i);
            }));
            engine().executeRequest(all.back().get(), false);
        }
        gate.open = true;
        for (auto& r : all)
            engine().waitRequest(r.get());
        EXPECT_EQ(order, c.order) << "first waits for second: " << c.firstWaitsForSecond;
    }
}

TEST_F(RequestEngine, ABlockedWorkerHandsItsSlotOnAndQueuesForIt) {
    engine().setMaxRunningWorkers(1);
    std::atomic<bool> aBlocked{false};
    std::atomic<bool> bRan{false};
    std::atomic<bool> release{false};
    std::atomic<int> ringSeen{0};
    std::atomic<int> maxRunning{0};
    std::atomic<bool> checked{false};
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
        checked = true;
        while (!release.load())
            std::this_thread::yield();
    });
    PxRequestPtr<PxRequest> pa(a), pb(b);
    engine().executeRequest(a, false);
    ASSERT_TRUE(eventually([&] { return aBlocked.load(); }));
    engine().executeRequest(b, false);
    ASSERT_TRUE(eventually([&] { return checked.load(); }));
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

// ---- trees whose parts outlive each other ----

namespace {

// Tells when it dies.
class MortalRequest : public FnRequest {
public:
    MortalRequest(std::function<void()> fn, std::atomic<bool>& gone, RT type = RT())
        : FnRequest(std::move(fn), type), _gone(gone) {}
    ~MortalRequest() override { _gone = true; }

private:
    std::atomic<bool>& _gone;
};

RS::Status statusOf(PxRequest* r) {
    return r->getStateObj().load().getStatus();
}
bool hasWaiters(PxRequest* r) {
    return r->getStateObj().load()._waiters != nullptr;
}

// A link of a chain: submits the next one and lets it go without a wait. Each link queries
// its own result, as a fire-and-forget request does.
class ChainLink : public PxRequest {
public:
    ChainLink(int left, std::atomic<int>& ran) : _left(left), _ran(ran) {}
    void performExecute() override {
        ++_ran;
        if (_left == 0)
            return;
        auto* next = new ChainLink(_left - 1, _ran);
        engine().executeRequest(next, false);
        engine().releaseRequest(next);
    }
    void postExecute() override { engine().waitRequest(this); }

private:
    int _left;
    std::atomic<int>& _ran;
};

} // namespace

TEST_F(RequestEngine, AChildReleasedWithoutAWaitKeepsItsRootAlive) {
    std::atomic<bool> rootGone{false}, rootReleased{false}, childDone{false};
    std::atomic<bool> goneWhileChildRan{true};
    auto* root = new MortalRequest(
        [&] {
            auto* child = new FnRequest([&] {
                eventually([&] { return rootReleased.load(); });
                goneWhileChildRan = rootGone.load();
                engine().checkCancelled(); // reads the root
                childDone = true;
            });
            engine().executeRequest(child, false);
            engine().releaseRequest(child);
        },
        rootGone);
    runAndWait(root);
    rootReleased = true;
    ASSERT_TRUE(eventually([&] { return childDone.load(); }));
    EXPECT_FALSE(goneWhileChildRan.load());
    EXPECT_TRUE(eventually([&] { return rootGone.load(); }));
}

TEST_F(RequestEngine, ADeepFinishedTreeIsLetGoWithoutRecursion) {
    constexpr int kLinks = 100000;
    std::atomic<int> ran{0};
    // The root keeps its list until every link has run: the whole chain then goes at once.
    runAndWait(new FnRequest([&] {
        auto* first = new ChainLink(kLinks - 1, ran);
        engine().executeRequest(first, false);
        engine().releaseRequest(first);
        eventually([&] { return ran.load() == kLinks; }, 120.0);
    }));
    EXPECT_EQ(ran.load(), kLinks);
}

// A finished child that only its place in its parent's list holds lets its own children go at
// once, whether a worker ran it or its waiter ran it inline.
TEST_F(RequestEngine, AFinishedChildLetsItsChildrenGoBeforeItsParentEnds) {
    engine().setMaxRunningWorkers(2); // the parent and its child at once
    for (bool const inline_ : {false, true}) {
        SCOPED_TRACE(inline_ ? "run inline" : "run by a worker");
        std::atomic<bool> grandChildGone{false}, goneBeforeParentEnd{false}, started{false};
        runAndWait(new FnRequest([&] {
            PxRequestPtr<PxRequest> child(new FnRequest([&] {
                started = true;
                PxRequestPtr<PxRequest> g(new MortalRequest([] {}, grandChildGone));
                engine().executeRequest(g.get(), true);
                engine().waitRequest(g.get());
            }));
            engine().executeRequest(child.get(), inline_);
            if (!inline_) {
                ASSERT_TRUE(eventually([&] { return started.load(); }));
            }
            engine().waitRequest(child.get());
            goneBeforeParentEnd = eventually([&] { return grandChildGone.load(); }, 2.0);
        }));
        EXPECT_TRUE(goneBeforeParentEnd.load());
    }
}

namespace {

// Counts its clean-ups and tells when it dies.
class CleanUpCount final : public FnRequest {
public:
    CleanUpCount(std::function<void()> fn, std::atomic<int>& cleanUps, std::atomic<bool>& gone)
        : FnRequest(std::move(fn)), _cleanUps(cleanUps), _gone(gone) {}
    ~CleanUpCount() override { _gone = true; }
    void performCleanUp() override {
        EXPECT_FALSE(_gone.load());
        ++_cleanUps;
    }

private:
    std::atomic<int>& _cleanUps;
    std::atomic<bool>& _gone;
};

} // namespace

// However the release meets the request, a success is cleaned up once and a failure never, and
// the request is freed afterwards.
TEST_F(RequestEngine, CleanUpRunsOnceOnSuccessWhereverTheReleaseFallsAndNeverOnFailure) {
    enum When { AFTER_POST_EXECUTE, UNWAITED, WHILE_RUNNING, FAILED, CHILD_STILL_LISTED };
    struct Case {
        When when;
        int cleanUps;
    };
    for (Case c : {Case{AFTER_POST_EXECUTE, 1}, Case{UNWAITED, 1}, Case{WHILE_RUNNING, 1},
                   Case{FAILED, 0}, Case{CHILD_STILL_LISTED, 1}}) {
        SCOPED_TRACE(c.when);
        std::atomic<int> cleanUps{0};
        std::atomic<bool> gone{false};
        Gate gate;
        auto body = [&] {
            if (c.when == WHILE_RUNNING)
                gate.pass();
            if (c.when == FAILED)
                throw ExBadPixel(__FILE__, __LINE__, 1);
        };
        if (c.when == CHILD_STILL_LISTED) {
            runAndWait(new FnRequest([&] {
                auto* child = new CleanUpCount(body, cleanUps, gone);
                engine().executeRequest(child, true);
                engine().waitRequest(child);
                engine().releaseRequest(child);
                EXPECT_EQ(cleanUps.load(), 1);
                EXPECT_FALSE(gone.load()); // its place in this request's list holds it
            }));
        } else {
            auto* r = new CleanUpCount(body, cleanUps, gone);
            engine().executeRequest(r, false);
            if (c.when == WHILE_RUNNING) {
                ASSERT_TRUE(eventually([&] { return gate.entered.load(); }));
                engine().releaseRequest(r);
                gate.open = true;
            } else {
                try {
                    if (c.when != UNWAITED)
                        engine().waitRequest(r);
                } catch (ExBadPixel const&) {
                }
                ASSERT_TRUE(eventually([&] {
                    RS::Status const st = statusOf(r);
                    return st == RS::POST_EXECUTED || st == RS::FAILED_POST_EXECUTED;
                }));
                engine().releaseRequest(r);
            }
        }
        EXPECT_TRUE(eventually([&] { return gone.load(); }));
        EXPECT_EQ(cleanUps.load(), c.cleanUps);
    }
}

// The worker that ran a tree may keep holds on its root for the tree's later requests; taking
// another tree's request lets them go, so a stream of work does not keep the root alive.
TEST_F(RequestEngine, AFinishedRootIsFreedWhileItsWorkerGoesOnWithOtherTrees) {
    constexpr int kStream = 400;
    std::atomic<bool> rootGone{false};
    std::atomic<int> ran{0};
    PxRequestPtr<PxRequest> root(new MortalRequest(
        [] {
            PxRequestPtr<PxRequest> child(new FnRequest([] {}));
            engine().executeRequest(child.get(), false);
            engine().waitRequest(child.get());
        },
        rootGone));
    engine().executeRequest(root.get(), false);
    std::vector<PxRequestPtr<PxRequest>> stream;
    for (int i = 0; i < kStream; ++i) {
        stream.emplace_back(new FnRequest([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            ++ran;
        }));
        engine().executeRequest(stream.back().get(), false);
    }
    engine().waitRequest(root.get());
    root.reset();
    ASSERT_TRUE(eventually([&] { return rootGone.load() || ran.load() == kStream; }, 60.0));
    EXPECT_TRUE(rootGone.load());
    EXPECT_LT(ran.load(), kStream);
    for (auto& r : stream)
        engine().waitRequest(r.get());
}

namespace {

// Its death waits, up to a deadline, for the outside waiter of its root to have returned.
class DiesAfterTheWaiter : public PxRequest {
public:
    explicit DiesAfterTheWaiter(std::atomic<bool>& waiterBack, std::atomic<int>& verdict)
        : _waiterBack(waiterBack), _verdict(verdict) {}
    ~DiesAfterTheWaiter() override {
        _verdict = eventually([&] { return _waiterBack.load(); }, 5.0) ? 1 : -1;
    }
    void performExecute() override {}

private:
    std::atomic<bool>& _waiterBack;
    std::atomic<int>& _verdict;
};

} // namespace

// A manual child, waited for and released, stays in its parent's list and dies when the
// finished parent lets its tree go: by then the parent's waiter must be on its way.
TEST_F(RequestEngine, TheWaiterIsWokenBeforeTheFinishedTreeIsLetGo) {
    std::atomic<bool> waiterBack{false};
    std::atomic<int> verdict{0};
    runAndWait(new FnRequest([&] {
        PxRequestPtr<PxRequest> child(new DiesAfterTheWaiter(waiterBack, verdict));
        engine().executeRequest(child.get(), true);
        engine().waitRequest(child.get());
    }));
    waiterBack = true;
    ASSERT_TRUE(eventually([&] { return verdict.load() != 0; }));
    EXPECT_EQ(verdict.load(), 1) << "the tree was let go before its waiter was woken";
}

TEST_F(RequestEngine, AFailureRunInlineIsRaisedAfterItsOwnerLetItGo) {
    std::atomic<bool> entered{false}, released{false}, caught{false};
    runAndWait(new FnRequest([&] {
        auto* failing = new FnRequest([&] {
            entered = true;
            eventually([&] { return released.load(); });
            throw ExBadPixel(__FILE__, __LINE__, 5);
        });
        engine().executeRequest(failing, true); // runs on whoever waits for it
        auto* waiter = new FnRequest([&, failing] {
            try {
                engine().waitRequest(failing);
            } catch (ExBadPixel const& e) {
                caught = e.x() == 5;
            }
        });
        engine().executeRequest(waiter, false);
        engine().releaseRequest(waiter);
        eventually([&] { return entered.load(); });
        // Let go while it runs: once the root ends, no list holds it, and its end deletes it.
        engine().releaseRequest(failing);
    }));
    released = true;
    EXPECT_TRUE(eventually([&] { return caught.load(); }));
}

// A thread-exit destructor that runs after the thread's own live count is gone (the main
// thread's exit handlers do the same when they stop the engine).
TEST_F(RequestEngine, ARequestMadeAsItsThreadEndsIsStillCounted) {
    struct MakesOneAtExit {
        PxRequest** out = nullptr;
        ~MakesOneAtExit() {
            if (out)
                *out = new FnRequest([] {});
        }
    };
    PxRequest* made = nullptr;
    long const before = engineImp().getNbLiveRequests();
    std::thread([&] {
        thread_local MakesOneAtExit atExit; // made before the count, so destroyed after it
        atExit.out = &made;
        PxRequestPtr<PxRequest>(new FnRequest([] {})).reset();
    }).join();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(engineImp().getNbLiveRequests(), before + 1);
    PxRequestPtr<PxRequest>{made}.reset();
    EXPECT_EQ(engineImp().getNbLiveRequests(), before);
}

TEST(RequestEngineLife, ARequestReleasedAfterShutdownIsFreedQuietly) {
    InInitMgr::getInstance().initialize();
    EXPECT_NO_THROW(engine().recordStatistics()); // before the pool starts
    PxRequestPtr<PxRequest> done(new FnRequest([] {}));
    PxRequestPtr<PxRequest> failed(new FnRequest([] { throw ExBadPixel(__FILE__, __LINE__, 2); }));
    for (auto* r : {done.get(), failed.get()})
        engine().executeRequest(r, false);
    engine().waitRequest(done.get());
    EXPECT_THROW(engine().waitRequest(failed.get()), ExBadPixel);
    InInitMgr::getInstance().finalize();
    EXPECT_NO_THROW(done.reset());
    EXPECT_NO_THROW(failed.reset());
}

// A callback on another thread may still be letting its request go as the engine stops: the
// engine waits for it, and does not call it leaked.
TEST(RequestEngineLife, ARequestBeingLetGoAsTheEngineStopsIsWaitedFor) {
    struct SlowToDie : FnRequest {
        std::atomic<bool>* dying;
        explicit SlowToDie(std::atomic<bool>* d) : FnRequest([] {}), dying(d) {}
        ~SlowToDie() override {
            *dying = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    };
    InInitMgr::getInstance().initialize();
    LogCapture log;
    std::atomic<bool> dying{false};
    PxRequestPtr<PxRequest> held(new SlowToDie(&dying));
    engine().executeRequest(held.get(), false);
    engine().waitRequest(held.get());
    std::thread letGo([&] { held.reset(); });
    EXPECT_TRUE(eventually([&] { return dying.load(); })); // the thread is joined either way
    InInitMgr::getInstance().finalize();
    letGo.join();
    EXPECT_EQ(log.count({"never released"}), 0);
}

// ---- the GFX worker ----

namespace {

struct GfxInitCount final : CbHandler<CbEmptyType> {
    std::atomic<int> calls{0};
    std::atomic<int> thread{-2};
    void execute(CbEmptyType const&) override {
        ++calls;
        auto const* info = MtThreadMgr::getInstance().findCurrentThread();
        thread = info ? info->getIndex() : -1;
    }
};

class GfxEngine : public EngineTest {
protected:
    void TearDown() override {
        EngineTest::TearDown();
        PxRequestImp::registerGFXInitialize(nullptr);
        PxRequestImp::registerGFXFinalize(nullptr);
    }
};

} // namespace

TEST_F(GfxEngine, GfxRequestsRunOnTheGfxWorkerWhoeverSubmitsThem) {
    GfxInitCount init, fin;
    PxRequestImp::registerGFXInitialize(&init);
    PxRequestImp::registerGFXFinalize(&fin);
    std::atomic<int> wrongThread{0}, halves{0};
    auto check = [&] {
        ++halves;
        auto const* info = MtThreadMgr::getInstance().findCurrentThread();
        if (!info || info->getIndex() != 0)
            ++wrongThread;
    };
    auto gfx = [&] {
        auto* g = new FnRequest(check, kGfx);
        g->_complete = check;
        return g;
    };
    // From outside threads, several at once, then from a worker, several queued at once.
    std::vector<std::thread> outside;
    for (int t = 0; t < 3; ++t)
        outside.emplace_back([&] {
            for (int i = 0; i < 20; ++i)
                runAndWait(gfx());
        });
    for (auto& t : outside)
        t.join();
    runAndWait(new FnRequest([&] {
        std::vector<PxRequestPtr<PxRequest>> queued;
        for (int i = 0; i < 3; ++i) {
            queued.emplace_back(gfx());
            engine().executeRequest(queued.back().get(), false);
        }
        for (auto& g : queued)
            engine().waitRequest(g.get());
    }));
    EXPECT_EQ(init.calls.load(), 1);
    EXPECT_EQ(init.thread.load(), 0);
    engine().sync();
    // Both halves of every request ran, all on the GFX worker.
    EXPECT_TRUE(eventually([&] { return halves.load() == 2 * (3 * 20 + 3); })) << halves.load();
    EXPECT_EQ(wrongThread.load(), 0);
    InInitMgr::getInstance().finalize(); // the GFX worker ends: its finaliser runs there
    EXPECT_EQ(fin.calls.load(), 1);
    EXPECT_EQ(fin.thread.load(), 0);
    PxRequestImp::registerGFXInitialize(nullptr);
    PxRequestImp::registerGFXFinalize(nullptr);
    InInitMgr::getInstance().initialize();
}

TEST_F(GfxEngine, AnExternalGfxRequestWakesItsWaiterWhileTheWorkerStaysBusy) {
    engine().setMaxRunningWorkers(1);
    auto* g = new FnRequest([] {}, kGfx);
    PxRequestPtr<PxRequest> pg(g);
    std::atomic<bool> sawDone{false};
    PxRequestPtr<PxRequest> busy(
        new FnRequest([&] { sawDone = eventually([&] { return statusOf(g) >= RS::DONE; }, 5.0); }));
    engine().executeRequest(g, false);
    engine().executeRequest(busy.get(), false);
    engine().waitRequest(busy.get());
    engine().waitRequest(g);
    EXPECT_TRUE(sawDone.load());
}

TEST_F(GfxEngine, AThrowingGfxRequestNeverCompletes) {
    std::atomic<int> completed{0};
    auto* g = new FnRequest([] { throw ExBadPixel(__FILE__, __LINE__, 9); }, kGfx);
    g->_complete = [&] {
        ++completed;
    };
    EXPECT_THROW(runAndWait(g), ExBadPixel);
    EXPECT_EQ(completed.load(), 0);
}

// The GFX worker, about to sleep in a wait, first completes what it holds pending; that
// completion may wait too, and neither wait may lose the other waiters of the same request.
TEST_F(GfxEngine, APendingCompletionThatWaitsLosesNoOtherWaiter) {
    engine().setMaxRunningWorkers(4); // x, y and the root run at once, whatever the machine
    std::atomic<bool> releaseX{false}, releaseY{false}, g1Performed{false}, g2Started{false};
    auto spin = [](std::atomic<bool>& until) {
        return [&until] {
            eventually([&] { return until.load(); }, 30.0);
        };
    };
    PxRequestPtr<PxRequest> x(new FnRequest(spin(releaseX)));
    PxRequestPtr<PxRequest> y(new FnRequest(spin(releaseY)));
    engine().executeRequest(x.get(), false);
    engine().executeRequest(y.get(), false);
    ASSERT_TRUE(eventually([&] { return statusOf(x.get()) == RS::EXECUTING; }));
    ASSERT_TRUE(eventually([&] { return statusOf(y.get()) == RS::EXECUTING; }));
    std::atomic<bool> otherWoken{false};
    std::thread other([&] {
        engine().waitRequest(x.get());
        otherWoken = true;
    });
    ASSERT_TRUE(eventually([&] { return hasWaiters(x.get()); }));

    PxRequestPtr<PxRequest> root(new FnRequest([&] {
        // g0 holds the GFX worker until g1 and g2 are both queued: it then runs g1, which stays
        // pending, then g2, which waits.
        std::atomic<bool> queued{false};
        auto* g0 = new FnRequest([&] { eventually([&] { return queued.load(); }); }, kGfx);
        auto* g1 = new FnRequest([&] { g1Performed = true; }, kGfx);
        g1->_complete = [&] {
            engine().waitRequest(y.get());
        };
        auto* g2 = new FnRequest(
            [&] {
                g2Started = true;
                engine().waitRequest(x.get());
            },
            kGfx);
        PxRequestPtr<PxRequest> p0(g0), p1(g1), p2(g2);
        engine().executeRequest(g0, false);
        engine().executeRequest(g2, false);
        engine().executeRequest(g1, false); // taken first: the stack is last in, first out
        queued = true;
        for (auto* g : {g0, g1, g2})
            engine().waitRequest(g);
    }));
    engine().executeRequest(root.get(), false);
    ASSERT_TRUE(eventually([&] { return g2Started.load() && hasWaiters(y.get()); }));
    releaseY = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    releaseX = true;
    EXPECT_TRUE(eventually([&] { return otherWoken.load(); }, 5.0));
    engine().waitRequest(root.get());
    other.join();
}

// ---- what is logged ----

// A failure passed up through waits is logged at each level it passes, with its reason; one
// that only stays in its request, and cancellation, are not.
TEST_F(RequestEngine, FailuresPassedUpThroughWaitsAreLoggedOncePerLevel) {
    struct Case {
        char const* name;
        std::function<void()> fail;
        int logged;
    };
    Case const cases[] = {
        {"a failure", [] { throw ExBadPixel(__FILE__, __LINE__, 4); }, 2},
        {"a cancellation", [] { throw PxEx::ExRequestCancelled(__FILE__, __LINE__); }, 0},
        {"a failure told elsewhere", [] { throw PxEx::ExRequestFailed(__FILE__, __LINE__); }, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        // root waits for child, which waits for the failing grandchild
        EXPECT_ANY_THROW(runAndWait(new FnRequest(
            [&] { runAndWait(new FnRequest([&] { runAndWait(new FnRequest(c.fail)); })); })));
        EXPECT_EQ(log.count({"PxGraph[0]", "Caught exception", "while executing a PxRequest"}),
                  c.logged);
        if (c.logged) {
            EXPECT_EQ(log.count({"PxGraph[0]", "bad pixel 4"}), c.logged);
        }
    }
}

// A successful child let go unwaited and run by a helper is cleaned up unread: when the worker
// that finds it on its stack disposes of it, the check for unread ends fires there too.
TEST_F(RequestEngine, AnUnreadCleanedUpRequestTripsTheCheckWhereverItEnds) {
    // The third CPU worker is kept busy, so the child stays on the stack until the root's worker
    // is free again.
    engine().setMaxRunningWorkers(3);
    std::atomic<bool> releaseBusy{false};
    PxRequestPtr<PxRequest> busy(
        new FnRequest([&] { eventually([&] { return releaseBusy.load(); }, 30.0); }));
    engine().executeRequest(busy.get(), false);
    ASSERT_TRUE(eventually([&] { return statusOf(busy.get()) == RS::EXECUTING; }));
    LogCapture log;
    std::atomic<bool> go{false}, rootRunning{false}, parentRunning{false}, childRan{false};
    std::atomic<PxRequest*> child{nullptr};
    // The parent is external: its end lets its children go at once, before its worker looks at
    // its stack again. It makes its child once the root runs: no running slot is left then.
    PxRequestPtr<PxRequest> parent(new FnRequest([&] {
        eventually([&] { return rootRunning.load(); });
        auto* c = new FnRequest([&] { childRan = true; });
        child = c;
        engine().executeRequest(c, false);
        engine().releaseRequest(c);
        parentRunning = true;
        eventually([&] { return go.load(); });
    }));
    PxRequestPtr<PxRequest> root(new FnRequest([&] {
        rootRunning = true;
        eventually([&] { return parentRunning.load(); });
        // The parent ends once the child is cleaned up: its list keeps the child until then.
        std::thread([&] {
            eventually([&] { return statusOf(child.load()) == RS::CLEANED_UP; });
            go = true;
        }).detach();
        engine().waitRequest(parent.get()); // helps: runs the child here
    }));
    engine().executeRequest(root.get(), false);
    engine().executeRequest(parent.get(), false);
    engine().waitRequest(root.get());
    engine().waitRequest(parent.get());
    EXPECT_TRUE(childRan.load());
    EXPECT_TRUE(eventually([&] {
        return log.count({"guard->isResultQueried() || guard->isCancelled() || "
                          "guard->isUnwinded()"}) == 1;
    }));
    releaseBusy = true;
    engine().waitRequest(busy.get());
}

// An owner unwinding past a running child waits for it, and its failure need not be read.
TEST_F(RequestEngine, ReleaseWhileUnwindingWaitsForTheChild) {
    std::atomic<bool> childEnded{false};
    bool endedBeforeRelease = false;
    auto* root = new FnRequest([&] {
        try {
            PxRequestPtr<PxRequest> child(new FnRequest([&] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                childEnded = true;
                throw ExBadPixel(__FILE__, __LINE__, 1);
            }));
            engine().executeRequest(child.get(), false);
            throw PxEx::ExRequestFailed(__FILE__, __LINE__); // unwinds past the child
        } catch (PxEx::ExRequestFailed const&) {
            endedBeforeRelease = childEnded.load();
            throw;
        }
    });
    EXPECT_THROW(runAndWait(root), PxEx::ExRequestFailed);
    EXPECT_TRUE(endedBeforeRelease);
}

// postExecute must let nothing out; one that does is logged, and its request still ends.
TEST_F(RequestEngine, AThrowingPostExecuteIsLoggedAndItsRequestStillEnds) {
    class Throwing final : public PxRequest {
    public:
        void performExecute() override {}
        void postExecute() override { throw ExBadPixel(__FILE__, __LINE__, 8); }
    };
    LogCapture log;
    runAndWait(new Throwing);
    engine().sync();
    EXPECT_TRUE(eventually([&] {
        return log.count({"PxGraph[0]", "bad pixel 8",
                          "while invoking the PxRequest::postExecute() member function"}) == 1;
    }));
    // The fixture checks that the request was freed.
}

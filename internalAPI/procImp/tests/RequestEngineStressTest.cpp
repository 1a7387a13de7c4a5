// Random request trees from several outside threads, with sequential requests, failures,
// cancellation, blocking waits and changes of the running limit, all at once.
//
// VN_STRESS_SECONDS (default 3) bounds the run; VN_STRESS_REQUESTS, when set, runs until that
// many requests have executed instead.

#include "EngineTestSupport.h"

#include "MtThreadMgr.h"
#include "MtThreadPool.h"
#include "PxEx.h"

#include <cstdio>
#include <cstdlib>
#include <random>

using namespace VnTest;
using namespace Vn;

namespace {

std::atomic<long> g_executed{0};
std::atomic<int> g_active{0};
std::atomic<int> g_sequentialViolations{0};
std::atomic<long> g_progress{0};

class ExStress : public ExBase {
public:
    ExStress(char const* file, int line) : ExBase(file, line) { setReason("planned failure"); }
    VN_EX_CLONE_RAISE(ExStress)
};

// Failures planned and seen within one tree.
struct TreeStats {
    std::atomic<long> thrown{0};
    std::atomic<long> caught{0};
};

// A node of a random tree. Its shape follows from its seed, so the creator knows what to expect.
class TreeRequest : public PxRequest {
public:
    TreeRequest(std::uint32_t seed, int depth, bool gfx, TreeStats* stats)
        : _seed(seed), _depth(depth), _gfx(gfx), _stats(stats) {}
    RequestType getRequestType() const override {
        return RequestType(CONCURRENT, REFERENCED, _gfx ? GFX : CPU);
    }

    void performExecute() override {
        ++g_active;
        ++g_executed;
        ++g_progress;
        ++_runs;
        struct Leave {
            ~Leave() { --g_active; }
        } leave;
        std::minstd_rand rng(_seed);
        _nodes = 1;
        if (rng() % 16 == 0) {
            PxWorkerBlockingGuard blocked;
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        // GFX requests are leaves: the one GFX worker must never wait, through CPU requests, for
        // another GFX request.
        int const fanout = _depth > 0 && !_gfx ? static_cast<int>(rng() % 9) : 0;
        std::vector<PxRequestPtr<TreeRequest>> children;
        children.reserve(static_cast<std::size_t>(fanout));
        std::vector<bool> manual;
        for (int i = 0; i < fanout; ++i) {
            bool const gfx = rng() % 8 == 0;
            bool const byHand = !gfx && rng() % 3 == 0;
            children.emplace_back(
                new TreeRequest(static_cast<std::uint32_t>(rng()), _depth - 1, gfx, _stats));
            engine().executeRequest(children.back().get(), byHand);
            manual.push_back(byHand);
        }
        for (auto& c : children) {
            try {
                engine().waitRequest(c.get());
                if (c->_runs.load() != 1)
                    _badRuns = true;
                _nodes += c->_nodes;
                _badRuns = _badRuns || c->_badRuns;
            } catch (ExStress const&) {
                ++_stats->caught;
                _nodes += c->_nodes;
            }
        }
        engine().checkCancelled();
        if (fanout > 0 && rng() % 11 == 0) {
            ++_stats->thrown;
            throw ExStress(__FILE__, __LINE__);
        }
    }

    // The node count a tree of this seed and depth reaches when nothing is cancelled.
    static long expectedNodes(std::uint32_t seed, int depth, bool gfx = false) {
        std::minstd_rand rng(seed);
        long n = 1;
        (void)(rng() % 16);
        int const fanout = depth > 0 && !gfx ? static_cast<int>(rng() % 9) : 0;
        for (int i = 0; i < fanout; ++i) {
            bool const childGfx = rng() % 8 == 0;
            if (!childGfx)
                (void)(rng() % 3);
            n += expectedNodes(static_cast<std::uint32_t>(rng()), depth - 1, childGfx);
        }
        return n;
    }

    std::atomic<int> _runs{0};
    long _nodes = 0;
    bool _badRuns = false;

private:
    std::uint32_t _seed;
    int _depth;
    bool _gfx;
    TreeStats* _stats;
};

class SequentialCheck : public PxRequest {
public:
    RequestType getRequestType() const override { return RequestType(SEQUENTIAL, REFERENCED, CPU); }
    void performExecute() override {
        if (g_active.load() != 0)
            ++g_sequentialViolations;
        ++g_executed;
        ++g_progress;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        if (g_active.load() != 0)
            ++g_sequentialViolations;
    }
};

double envSeconds() {
    char const* v = std::getenv("VN_STRESS_SECONDS");
    return v ? std::atof(v) : 3.0;
}

long envRequests() {
    char const* v = std::getenv("VN_STRESS_REQUESTS");
    return v ? std::atol(v) : 0;
}

class RequestEngineStress : public EngineTest {
protected:
    int poolSize() const override { return 6; }
};

} // namespace

TEST_F(RequestEngineStress, RandomTreesFromManyThreadsKeepEveryInvariant) {
    unsigned const seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    double const seconds = envSeconds();
    long const requestGoal = envRequests();
    auto const start = std::chrono::steady_clock::now();
    // In the last phase the limit stays at 2: running workers may pass it only by the GFX worker.
    std::atomic<bool> fixedLimit{false};
    std::atomic<int> overLimit{0};
    auto phaseEnd = start + std::chrono::duration<double>(seconds * 2 / 3);
    auto timeUp = [&] {
        if (requestGoal > 0 && !fixedLimit.load())
            return g_executed.load() >= requestGoal;
        return std::chrono::steady_clock::now() > phaseEnd;
    };

    std::atomic<bool> stop{false};
    std::atomic<int> wrongCounts{0};
    std::atomic<int> badRuns{0};
    std::atomic<int> badSnapshots{0};
    std::atomic<int> lostFailures{0};
    std::atomic<bool> hung{false};

    // A hang fails the test with the engine's state, instead of running into a time-out.
    std::thread watchdog([&] {
        long last = -1;
        auto lastChange = std::chrono::steady_clock::now();
        while (!stop.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            auto s = engineImp().getSnapshot();
            if (s.nbRunningWorkers < 0 || s.nbRunningWorkers > poolSize() ||
                s.nbBlockedWorkers < 0 || s.nbRingWorkers < 0 || s.nbRingWorkers > poolSize())
                ++badSnapshots;
            if (fixedLimit.load() && s.nbRunningWorkers > 3)
                ++overLimit;
            long const p = g_progress.load();
            if (p != last) {
                last = p;
                lastChange = std::chrono::steady_clock::now();
            } else if (std::chrono::steady_clock::now() - lastChange > std::chrono::seconds(30)) {
                std::fprintf(stderr,
                             "engine hung: state %d running %d blocked %d ring %d external %d "
                             "max %d\n",
                             s.state, s.nbRunningWorkers, s.nbBlockedWorkers, s.nbRingWorkers,
                             s.nbExternalRequests, s.maxRunningWorkers);
                hung = true;
                std::fflush(stderr);
                std::abort();
            }
        }
    });

    auto runPhase = [&](unsigned phaseSeed) {
        std::vector<std::thread> submitters;
        for (int t = 0; t < 3; ++t) {
            submitters.emplace_back([&, t] {
                std::minstd_rand rng(phaseSeed + static_cast<unsigned>(t) * 7919u);
                while (!timeUp()) {
                    int const kind = static_cast<int>(rng() % 20);
                    if (kind == 0) {
                        runAndWait(new SequentialCheck);
                        continue;
                    }
                    if (kind == 1 && !fixedLimit.load()) {
                        engine().setMaxRunningWorkers(1 + static_cast<int>(rng() % 4));
                        continue;
                    }
                    // Up to six roots at once: workers then take several from the queue.
                    struct Root {
                        std::uint32_t seed;
                        int depth;
                        TreeStats stats;
                        PxRequestPtr<TreeRequest> p;
                    };
                    int const nbRoots = kind < 5 ? 1 + static_cast<int>(rng() % 6) : 1;
                    bool const cancel = kind == 2;
                    std::vector<Root> roots(static_cast<std::size_t>(nbRoots));
                    for (Root& r : roots) {
                        r.seed = static_cast<std::uint32_t>(rng());
                        r.depth = static_cast<int>(rng() % 7);
                        r.p = PxRequestPtr<TreeRequest>(
                            new TreeRequest(r.seed, r.depth, false, &r.stats));
                        engine().executeRequest(r.p.get(), false);
                    }
                    if (cancel) {
                        std::this_thread::sleep_for(std::chrono::microseconds(rng() % 200));
                        for (Root& r : roots)
                            engine().cancelRequest(r.p.get());
                    }
                    for (Root& r : roots) {
                        TreeRequest* const root = r.p.get();
                        try {
                            engine().waitRequest(root);
                            if (!cancel &&
                                root->_nodes != TreeRequest::expectedNodes(r.seed, r.depth))
                                ++wrongCounts;
                            if (root->_badRuns || root->_runs.load() != 1)
                                ++badRuns;
                        } catch (ExStress const&) {
                            ++r.stats.caught;
                            if (root->_runs.load() != 1)
                                ++badRuns;
                        } catch (PxEx::ExRequestCancelled const&) {
                            if (!cancel)
                                ++wrongCounts;
                        }
                        // Every failure reached a waiter, unless cancellation cut the tree short.
                        r.p.reset();
                        if (!cancel && r.stats.thrown.load() != r.stats.caught.load())
                            ++lostFailures;
                    }
                }
            });
        }
        for (auto& th : submitters)
            th.join();
    };
    runPhase(seed);
    // The limit is set while nothing runs, so no worker is left above it.
    engine().setMaxRunningWorkers(2);
    engine().sync();
    fixedLimit = true;
    phaseEnd = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds / 3);
    runPhase(seed + 1);
    engine().sync();
    stop = true;
    watchdog.join();

    std::printf("%ld requests executed\n", g_executed.load());
    EXPECT_FALSE(hung.load());
    EXPECT_EQ(wrongCounts.load(), 0);
    EXPECT_EQ(badRuns.load(), 0);
    EXPECT_EQ(badSnapshots.load(), 0);
    EXPECT_EQ(overLimit.load(), 0);
    EXPECT_EQ(g_sequentialViolations.load(), 0);
    EXPECT_EQ(lostFailures.load(), 0);
    EXPECT_TRUE(eventually([] { return engineImp().getSnapshot().state == RequestMgrImp::IDLE; }));
    auto const s = engineImp().getSnapshot();
    EXPECT_EQ(s.nbRunningWorkers, 0);
    EXPECT_TRUE(s.internalQueuesEmpty);
}

namespace {

std::atomic<long> g_releasedSubmitted{0};
std::atomic<long> g_releasedEnded{0};
std::atomic<int> g_gfxOffWorker{0};

void expectGfxWorker() {
    auto const* info = MtThreadMgr::getInstance().findCurrentThread();
    if (!info || info->getIndex() != 0)
        ++g_gfxOffWorker;
}

// A child its parent lets go without a wait: it reads its root's cancellation while it runs,
// maybe after the root has finished, and queries its own end as nobody else will.
class ReleasedChild final : public PxRequest {
public:
    explicit ReleasedChild(bool gfx) : _gfx(gfx) {}
    RequestType getRequestType() const override {
        return RequestType(CONCURRENT, REFERENCED, _gfx ? GFX : CPU);
    }
    void performExecute() override {
        if (_gfx)
            expectGfxWorker();
        for (int i = 0; i < 20; ++i) {
            engine().checkCancelled();
            std::this_thread::yield();
        }
    }
    void postExecute() override {
        ++g_releasedEnded;
        try {
            engine().waitRequest(this);
        } catch (PxEx::ExRequestCancelled const&) {
        }
    }

private:
    bool _gfx;
};

class ReleasingRoot final : public PxRequest {
public:
    ReleasingRoot(int children, int gfxEvery) : _children(children), _gfxEvery(gfxEvery) {}
    void performExecute() override {
        for (int i = 0; i < _children; ++i) {
            auto* c = new ReleasedChild(_gfxEvery > 0 && i % _gfxEvery == 0);
            ++g_releasedSubmitted;
            engine().executeRequest(c, false);
            engine().releaseRequest(c);
        }
    }

private:
    int _children;
    int _gfxEvery;
};

class ExternalGfx final : public PxRequest {
public:
    RequestType getRequestType() const override { return RequestType(CONCURRENT, REFERENCED, GFX); }
    void performExecute() override { expectGfxWorker(); }
    void completeExecution() override { expectGfxWorker(); }
};

struct InitCount final : CbHandler<CbEmptyType> {
    std::atomic<int> calls{0};
    void execute(CbEmptyType const&) override {
        ++calls;
        expectGfxWorker();
    }
};

} // namespace

// Roots that let their children go unwaited, external GFX requests from several threads at once
// from the engine's start, and cancellations of both.
TEST_F(RequestEngineStress, ReleasedChildrenAndGfxRequestsFromEverywhere) {
    unsigned const seed = std::random_device{}();
    std::printf("seed %u\n", seed);
    InitCount init;
    PxRequestImp::registerGFXInitialize(&init);
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(envSeconds());
    std::vector<std::thread> submitters;
    for (int t = 0; t < 4; ++t)
        submitters.emplace_back([&, t] {
            std::minstd_rand rng(seed + static_cast<unsigned>(t) * 104729u);
            while (std::chrono::steady_clock::now() < end) {
                int const kind = static_cast<int>(rng() % 8);
                PxRequestPtr<PxRequest> r(kind < 3
                                              ? static_cast<PxRequest*>(new ExternalGfx)
                                              : new ReleasingRoot(static_cast<int>(rng() % 7),
                                                                  static_cast<int>(rng() % 4)));
                engine().executeRequest(r.get(), false);
                if (kind == 7)
                    engine().cancelRequest(r.get());
                try {
                    engine().waitRequest(r.get());
                } catch (PxEx::ExRequestCancelled const&) {
                }
            }
        });
    for (auto& th : submitters)
        th.join();
    engine().sync();
    EXPECT_TRUE(eventually([] { return g_releasedEnded.load() == g_releasedSubmitted.load(); }));
    EXPECT_EQ(g_gfxOffWorker.load(), 0);
    EXPECT_EQ(init.calls.load(), 1);
    // The fixture checks that every request, released children included, was freed.
    EXPECT_TRUE(eventually([] { return engineImp().getNbLiveRequests() == 0; }));
    PxRequestImp::registerGFXInitialize(nullptr);
}

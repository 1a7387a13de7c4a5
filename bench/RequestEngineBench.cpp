// The request engine against oneTBB on the same work, both on two worker threads:
//  - a fork-join tree of about 10^6 trivial requests against the same tree of task_group tasks;
//  - the round trip of one external request against task_arena::enqueue and a wait;
//  - 10^5 independent external requests against 10^5 enqueued tasks;
//  - the round trip's shared state alone, without the engine around it: what its shape costs.
// Prints our time over oneTBB's for each (lower is better), wall and CPU. The CPU time is the
// whole process's: the caller mostly sleeps while the workers do the work.

#include "BenchRatio.h"

#include "InPackageInit.h"
#include "PxRequest.h"
#include "PxRequestImp.h"
#include "PxRequestMgr.h"

#include <benchmark/benchmark.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <immintrin.h>
#include <memory>
#include <thread>
#include <vector>

using namespace Vn;

namespace {

constexpr int kFanout = 10;
constexpr int kDepth = 6; // 1 111 111 nodes
constexpr int kIndependent = 100000;

PxRequestMgr& engine() {
    return PxRequestMgr::getInstance();
}

class TreeNode final : public PxRequest {
public:
    explicit TreeNode(int depth) : _depth(depth) {}
    void performExecute() override {
        if (_depth == 0)
            return;
        std::array<PxRequestPtr<TreeNode>, kFanout> children;
        for (auto& c : children) {
            c = PxRequestPtr<TreeNode>(new TreeNode(_depth - 1));
            engine().executeRequest(c.get(), false);
        }
        for (auto& c : children)
            engine().waitRequest(c.get());
    }

private:
    int _depth;
};

class Empty final : public PxRequest {
public:
    void performExecute() override { benchmark::ClobberMemory(); }
};

class EmptySequential final : public PxRequest {
public:
    RequestType getRequestType() const override { return RequestType(SEQUENTIAL, REFERENCED, CPU); }
    void performExecute() override { benchmark::ClobberMemory(); }
};

void tbbNode(int depth) {
    if (depth == 0)
        return;
    tbb::task_group tg;
    for (int i = 0; i < kFanout; ++i)
        tg.run([depth] { tbbNode(depth - 1); });
    tg.wait();
}

// The engine with one GFX and two CPU workers, at most two running.
struct Engine {
    Engine() {
        InInitMgr::getInstance().initialize();
        PxRequestImp::setNbWorkerThreads(3);
        engine().setMaxRunningWorkers(2);
        engine().sync();
    }
    ~Engine() { InInitMgr::getInstance().finalize(); }
};

std::unique_ptr<Engine> g_engine;
tbb::task_arena& arena() {
    static tbb::task_arena a(2);
    return a;
}

void BM_EngineTree(benchmark::State& st) {
    for (auto _ : st) {
        PxRequestPtr<TreeNode> root(new TreeNode(kDepth));
        engine().executeRequest(root.get(), false);
        engine().waitRequest(root.get());
    }
}

void BM_TbbTree(benchmark::State& st) {
    for (auto _ : st)
        arena().execute([] { tbbNode(kDepth); });
}

void BM_EngineRoundTrip(benchmark::State& st) {
    for (auto _ : st) {
        PxRequestPtr<Empty> r(new Empty);
        engine().executeRequest(r.get(), false);
        engine().waitRequest(r.get());
    }
}

void BM_TbbRoundTrip(benchmark::State& st) {
    std::atomic<int> done{0};
    for (auto _ : st) {
        done.store(0, std::memory_order_relaxed);
        arena().enqueue([&] {
            done.store(1, std::memory_order_release);
            done.notify_one();
        });
        done.wait(0, std::memory_order_acquire);
    }
}

// The round trip's shared state alone, in the engine's shape and with nothing else: the caller
// locks the external queue, pushes, and commits the copy-on-write scheduling state; the watching
// worker sees the commit, locks, takes the entry, commits the state, and moves the request
// through executing, done (waking the caller's wait entry) and post-executed; the caller commits
// the release. kCow keeps the request state as the engine does, by copy-on-write commits to a
// block that holds the waiter; without it the state is one line changed in place, a lower bound.
namespace shape {

struct alignas(64) Lock {
    std::atomic<bool> taken{false};
    void lock() {
        while (taken.exchange(true, std::memory_order_acquire))
            while (taken.load(std::memory_order_relaxed))
                _mm_pause();
    }
    void unlock() { taken.store(false, std::memory_order_release); }
};
struct alignas(64) QueueEnds {
    std::uint32_t head = 0, tail = 0;
};
struct alignas(64) QueueSlots {
    std::array<void*, 8> slot{};
};

// A value changed by copy-on-write: a commit copies the current block, changed, into the
// committer's spare one and swaps the versioned index; the old block becomes the spare.
template <class B>
struct alignas(64) Cow {
    std::atomic<std::uint64_t> word{0}; // version << 8 | block index
    std::array<B, 4> blocks{};
    B const& read() const { return blocks[word.load(std::memory_order_acquire) & 0xff]; }
    template <class Change>
    void commit(int& spare, Change change) {
        std::uint64_t w = word.load(std::memory_order_acquire);
        for (;;) {
            change(blocks[w & 0xff], blocks[static_cast<std::size_t>(spare)]);
            std::uint64_t const next = (((w >> 8) + 1) << 8) | static_cast<std::uint64_t>(spare);
            if (word.compare_exchange_weak(w, next, std::memory_order_acq_rel)) {
                spare = static_cast<int>(w & 0xff);
                return;
            }
        }
    }
};

struct alignas(64) Sched {
    std::atomic<std::int64_t> untaken{0};
    std::atomic<std::int64_t> running{0};
};
enum : std::uint32_t { QUEUED = 1, EXECUTING = 2, DONE = 4, POST_EXECUTED = 8, RELEASED = 16 };
struct alignas(64) ReqState {
    std::atomic<std::uint32_t> status{0};
    std::atomic<std::atomic<bool>*> waiter{nullptr};
};

template <class T>
T get(std::atomic<T> const& a) {
    return a.load(std::memory_order_relaxed);
}
template <class T>
void put(std::atomic<T>& a, T v) {
    a.store(v, std::memory_order_relaxed);
}

// Sets bits of a request state, and puts or takes its waiter; gives the waiter held before.
template <bool kCow>
struct Request;
template <>
struct Request<true> {
    Cow<ReqState> cow;
    std::atomic<bool>* change(int& spare, std::uint32_t set, std::uint32_t clear,
                              std::atomic<bool>* const* waiter) {
        std::atomic<bool>* before = nullptr;
        cow.commit(spare, [&](ReqState const& cur, ReqState& next) {
            before = get(cur.waiter);
            put(next.status, (get(cur.status) & ~clear) | set);
            put(next.waiter, waiter ? *waiter : before);
        });
        return before;
    }
    std::uint32_t status() const { return get(cow.read().status); }
};
template <>
struct Request<false> {
    ReqState state;
    std::atomic<bool>* change(int&, std::uint32_t set, std::uint32_t clear,
                              std::atomic<bool>* const* waiter) {
        if (clear)
            state.status.fetch_and(~clear);
        if (set)
            state.status.fetch_or(set);
        return waiter ? state.waiter.exchange(*waiter) : get(state.waiter);
    }
    std::uint32_t status() const { return state.status.load(std::memory_order_acquire); }
};

template <bool kCow>
struct Shape {
    Lock lock;
    QueueEnds ends;
    QueueSlots slots;
    Cow<Sched> sched;
    Request<kCow> request;
    std::atomic<bool> stop{false};

    void push(void* r) {
        lock.lock();
        slots.slot[ends.tail++ % slots.slot.size()] = r;
        lock.unlock();
    }
    void* take() {
        lock.lock();
        void* r = slots.slot[ends.head++ % slots.slot.size()];
        lock.unlock();
        return r;
    }
    void count(int& spare, std::int64_t delta) {
        sched.commit(spare, [&](Sched const& cur, Sched& next) {
            put(next.untaken, get(cur.untaken) + delta);
            put(next.running, get(cur.running));
        });
    }

    void work() {
        int schedSpare = 1, reqSpare = 1;
        std::atomic<bool>* const none = nullptr;
        while (!stop.load(std::memory_order_relaxed)) {
            if (get(sched.read().untaken) == 0) {
                _mm_pause();
                continue;
            }
            (void)take();
            count(schedSpare, -1);
            request.change(reqSpare, EXECUTING, 0, nullptr);
            if (std::atomic<bool>* w = request.change(reqSpare, DONE, 0, &none))
                w->store(true, std::memory_order_release);
            request.change(reqSpare, POST_EXECUTED, 0, nullptr);
        }
    }
};

} // namespace shape

template <bool kCow>
void BM_ShapeRoundTrip(benchmark::State& st) {
    shape::Shape<kCow> s;
    std::thread worker([&] { s.work(); });
    int schedSpare = 2, reqSpare = 2;
    std::atomic<bool> woken{false};
    std::atomic<bool>* const me = &woken;
    std::atomic<bool>* const none = nullptr;
    for (auto _ : st) {
        s.request.change(reqSpare, shape::QUEUED, ~0u, nullptr);
        s.push(&s.request);
        s.count(schedSpare, +1);
        // Listed as a waiter, unless the request is done already; a waiter the worker did not
        // take is taken back.
        bool wait = true;
        s.request.change(reqSpare, 0, 0, &me);
        if (s.request.status() & shape::DONE)
            wait = s.request.change(reqSpare, 0, 0, &none) == nullptr;
        while (wait && !woken.load(std::memory_order_acquire))
            _mm_pause();
        woken.store(false, std::memory_order_relaxed);
        // The release waits for the post-execution, as the request is reused here.
        while (!(s.request.status() & shape::POST_EXECUTED))
            _mm_pause();
        s.request.change(reqSpare, shape::RELEASED, 0, nullptr);
    }
    s.stop = true;
    worker.join();
}
void BM_ShapeRoundTrip(benchmark::State& st) {
    BM_ShapeRoundTrip<false>(st);
}
void BM_ShapeCowRoundTrip(benchmark::State& st) {
    BM_ShapeRoundTrip<true>(st);
}

void BM_EngineThroughput(benchmark::State& st) {
    std::vector<PxRequestPtr<Empty>> requests;
    requests.reserve(kIndependent);
    for (auto _ : st) {
        for (int i = 0; i < kIndependent; ++i) {
            requests.emplace_back(new Empty);
            engine().executeRequest(requests.back().get(), false);
        }
        for (auto& r : requests)
            engine().waitRequest(r.get());
        requests.clear();
    }
}

void BM_TbbThroughput(benchmark::State& st) {
    std::atomic<int> done{0};
    for (auto _ : st) {
        done.store(0, std::memory_order_relaxed);
        for (int i = 0; i < kIndependent; ++i)
            arena().enqueue([&] {
                if (done.fetch_add(1, std::memory_order_acq_rel) + 1 == kIndependent)
                    done.notify_one();
            });
        for (int seen = done.load(); seen != kIndependent; seen = done.load())
            done.wait(seen);
    }
}

// 100 concurrent requests queued behind a sequential one, against the same 101 requests all
// concurrent: the cost of draining and of waking the workers again after it.
template <bool kWithSequential>
void BM_EngineBehindSequential(benchmark::State& st) {
    std::vector<PxRequestPtr<PxRequest>> requests;
    requests.reserve(101);
    for (auto _ : st) {
        if (kWithSequential)
            requests.emplace_back(new EmptySequential);
        else
            requests.emplace_back(new Empty);
        engine().executeRequest(requests.back().get(), false);
        for (int i = 0; i < 100; ++i) {
            requests.emplace_back(new Empty);
            engine().executeRequest(requests.back().get(), false);
        }
        for (auto& r : requests)
            engine().waitRequest(r.get());
        requests.clear();
    }
}
void BM_EngineAfterSequential(benchmark::State& st) {
    BM_EngineBehindSequential<true>(st);
}
void BM_EngineAllConcurrent(benchmark::State& st) {
    BM_EngineBehindSequential<false>(st);
}

// Wall time, and the CPU time of every thread of the process; the median of three runs. Run with
// --benchmark_enable_random_interleaving=true to alternate ours and the reference's runs on a
// shared machine.
#define VN_MEASURED(fn) BENCHMARK(fn)->MeasureProcessCPUTime()->UseRealTime()->Repetitions(3)

VN_MEASURED(BM_EngineAfterSequential);
VN_MEASURED(BM_EngineAllConcurrent);
VN_MEASURED(BM_EngineTree)->Unit(benchmark::kMillisecond)->Iterations(1);
VN_MEASURED(BM_TbbTree)->Unit(benchmark::kMillisecond)->Iterations(1);
VN_MEASURED(BM_EngineRoundTrip);
VN_MEASURED(BM_TbbRoundTrip);
VN_MEASURED(BM_ShapeRoundTrip);
VN_MEASURED(BM_ShapeCowRoundTrip);
VN_MEASURED(BM_EngineThroughput)->Unit(benchmark::kMillisecond)->Iterations(2);
VN_MEASURED(BM_TbbThroughput)->Unit(benchmark::kMillisecond)->Iterations(2);

} // namespace

int main(int argc, char** argv) {
    g_engine = std::make_unique<Engine>();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"fork-join tree of 1.1e6 requests", "BM_EngineTree", "BM_TbbTree"},
         {"round trip of one external request", "BM_EngineRoundTrip", "BM_TbbRoundTrip"},
         {"round trip's shared state alone", "BM_ShapeRoundTrip", "BM_TbbRoundTrip"},
         {"round trip's shared state, request state by copy-on-write", "BM_ShapeCowRoundTrip",
          "BM_TbbRoundTrip"},
         {"round trip against its shared state alone", "BM_EngineRoundTrip",
          "BM_ShapeCowRoundTrip"},
         {"1e5 independent external requests", "BM_EngineThroughput", "BM_TbbThroughput"},
         {"100 requests behind a sequential one (against all concurrent)",
          "BM_EngineAfterSequential", "BM_EngineAllConcurrent"}});
    g_engine.reset();
    return rc;
}

// The request engine against oneTBB on the same work, both on two worker threads:
//  - a fork-join tree of about 10^6 trivial requests against the same tree of task_group tasks;
//  - the round trip of one external request against task_arena::enqueue and a wait;
//  - 10^5 independent external requests against 10^5 enqueued tasks.
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
#include <memory>
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
VN_MEASURED(BM_EngineThroughput)->Unit(benchmark::kMillisecond)->Iterations(2);
VN_MEASURED(BM_TbbThroughput)->Unit(benchmark::kMillisecond)->Iterations(2);

} // namespace

int main(int argc, char** argv) {
    g_engine = std::make_unique<Engine>();
    int const rc = VnBench::runWithRatios(
        argc, argv,
        {{"fork-join tree of 1.1e6 requests", "BM_EngineTree", "BM_TbbTree"},
         {"round trip of one external request", "BM_EngineRoundTrip", "BM_TbbRoundTrip"},
         {"1e5 independent external requests", "BM_EngineThroughput", "BM_TbbThroughput"},
         {"100 requests behind a sequential one (against all concurrent)",
          "BM_EngineAfterSequential", "BM_EngineAllConcurrent"}});
    g_engine.reset();
    return rc;
}

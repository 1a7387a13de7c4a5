// Commits to a 1 KiB state: the copy-on-write atomic value against a mutex-protected copy doing
// the same work. Prints one ratio line per thread count (ours / mutex; lower is better). Then the
// cost of one commit to a state of one and of two cache lines, on one core and passed between two.

#include "LkAtomicObj.h"

#include "BenchRatio.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

using namespace Vn;

namespace {

struct State {
    std::uint64_t counter;
    std::int64_t credit;
    std::int64_t debit;
    std::uint32_t lastThread;
    std::uint32_t flags;
    std::array<std::uint64_t, 123> ring;
};
static_assert(sizeof(State) == 1016);

// A few fields per commit, as a scheduling step does.
inline void change(State& s, std::uint32_t thread) {
    ++s.counter;
    s.credit += 3;
    s.debit -= 3;
    s.lastThread = thread;
    s.flags ^= 1u;
    s.ring[s.counter % s.ring.size()] = s.counter;
}

LkAtomicObj<State>& atomicState() {
    static LkAtomicObj<State> obj(State{});
    return obj;
}

std::mutex s_mutex;
State s_locked{};

void BM_LkAtomicObj(benchmark::State& st) {
    auto thread = static_cast<std::uint32_t>(st.thread_index());
    LkAtomicObj<State>& obj = atomicState();
    for (auto _ : st) {
        LkAtomicWrGuard<State> g(obj);
        do {
            change(*g, thread);
        } while (!g.commit());
    }
    st.SetItemsProcessed(st.iterations());
}

void BM_Mutex(benchmark::State& st) {
    auto thread = static_cast<std::uint32_t>(st.thread_index());
    State copy;
    for (auto _ : st) {
        std::lock_guard<std::mutex> lock(s_mutex);
        copy = s_locked;
        change(copy, thread);
        s_locked = copy;
    }
    benchmark::DoNotOptimize(copy);
    st.SetItemsProcessed(st.iterations());
}

inline void cpuPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

// The engine's own sizes: a request's state is one line, the engine state's head two.
template <std::size_t kLines>
struct Lines {
    std::uint64_t counter;
    std::uint64_t rest[kLines * 8 - 1];
};

template <std::size_t kLines>
LkAtomicObj<Lines<kLines>>& linesState() {
    static LkAtomicObj<Lines<kLines>> obj(Lines<kLines>{});
    return obj;
}

// One commit after another on one thread: the word and the blocks stay in this core's cache.
template <std::size_t kLines>
void BM_CommitLocal(benchmark::State& st) {
    LkAtomicObj<Lines<kLines>>& obj = linesState<kLines>();
    for (auto _ : st) {
        LkAtomicWrGuard<Lines<kLines>> g(obj);
        do {
            ++g->counter;
        } while (!g.commit());
    }
}

// Two threads take turns: each commit follows one made by the other core, as when a submitter
// and a worker hand a request over. An iteration is two commits, one on each side, each seeing
// the other's.
template <std::size_t kLines>
void BM_CommitPingPong(benchmark::State& st) {
    LkAtomicObj<Lines<kLines>>& obj = linesState<kLines>();
    std::uint64_t const me = static_cast<std::uint64_t>(st.thread_index());
    if (me == 0) {
        LkAtomicWrGuard<Lines<kLines>> g(obj);
        do {
            g->counter = 0;
        } while (!g.commit());
    }
    unsigned spins = 0;
    for (auto _ : st) {
        LkAtomicWrGuard<Lines<kLines>> g(obj);
        for (;;) {
            if (g->counter % 2 == me) {
                ++g->counter;
                if (g.commit())
                    break;
            } else {
                // On a shared core the other side runs only when this one gives way.
                if (++spins % 64 == 0)
                    std::this_thread::yield();
                else
                    cpuPause();
                g.refresh();
            }
        }
    }
}

// Two threads on two cores vary much from run to run; the median of several runs is compared.
BENCHMARK(BM_LkAtomicObj)->Threads(1)->Threads(2)->UseRealTime()->Repetitions(5);
BENCHMARK(BM_Mutex)->Threads(1)->Threads(2)->UseRealTime()->Repetitions(5);
BENCHMARK_TEMPLATE(BM_CommitLocal, 1)->UseRealTime()->Repetitions(3);
BENCHMARK_TEMPLATE(BM_CommitLocal, 2)->UseRealTime()->Repetitions(3);
BENCHMARK_TEMPLATE(BM_CommitPingPong, 1)->Threads(2)->UseRealTime()->Repetitions(3);
BENCHMARK_TEMPLATE(BM_CommitPingPong, 2)->Threads(2)->UseRealTime()->Repetitions(3);

} // namespace

int main(int argc, char** argv) {
    return VnBench::runWithRatios(
        argc, argv,
        {{"commit", "BM_LkAtomicObj", "BM_Mutex", 1}, {"commit", "BM_LkAtomicObj", "BM_Mutex", 2}});
}

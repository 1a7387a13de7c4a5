// Commits to a 1 KiB state: the copy-on-write atomic value against a mutex-protected copy doing
// the same work. Prints one ratio line per thread count (ours / mutex; lower is better).

#include "LkAtomicObj.h"

#include "BenchRatio.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
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

// Two threads on two cores vary much from run to run; the median of several runs is compared.
BENCHMARK(BM_LkAtomicObj)->Threads(1)->Threads(2)->UseRealTime()->Repetitions(5);
BENCHMARK(BM_Mutex)->Threads(1)->Threads(2)->UseRealTime()->Repetitions(5);

} // namespace

int main(int argc, char** argv) {
    return VnBench::runWithRatios(
        argc, argv,
        {{"commit", "BM_LkAtomicObj", "BM_Mutex", 1}, {"commit", "BM_LkAtomicObj", "BM_Mutex", 2}});
}

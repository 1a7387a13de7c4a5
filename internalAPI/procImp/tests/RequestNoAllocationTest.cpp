// The road of internal requests allocates nothing but from the engine's pools: a warmed-up run of
// a request tree calls the global operator new zero times.

#include "AllocationCounting.h"
#include "EngineTestSupport.h"

#include <array>
#include <cstdlib>
#include <new>

namespace VnTest {
std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};
// Set once the thread has made requests: its first makes its per-thread pool caches, which is
// once per thread, not per request, and a loaded machine may leave a worker idle through the
// warm-up.
thread_local bool t_madeRequests = false;
} // namespace VnTest

// The replacement pairs malloc with free on purpose.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    using namespace VnTest;
    if (g_counting.load(std::memory_order_relaxed) && t_madeRequests)
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

using namespace VnTest;
using namespace Vn;

namespace {

// A tree of requests built without any container that allocates.
class Node : public PxRequest {
public:
    explicit Node(int depth) : _depth(depth) {}
    void performExecute() override {
        if (_depth == 0)
            return;
        std::array<PxRequestPtr<Node>, 4> children;
        for (std::size_t i = 0; i < children.size(); ++i) {
            children[i] = PxRequestPtr<Node>(new Node(_depth - 1));
            engine().executeRequest(children[i].get(), i % 2 == 0);
        }
        t_madeRequests = true;
        for (auto& c : children)
            engine().waitRequest(c.get());
    }

private:
    int _depth;
};

// Counts allocations while it builds and waits for its tree.
class CountingRoot : public PxRequest {
public:
    void performExecute() override {
        g_counting = true;
        {
            PxRequestPtr<Node> tree(new Node(4));
            engine().executeRequest(tree.get(), false);
            engine().waitRequest(tree.get());
        }
        g_counting = false;
    }
};

// Several CPU workers, all allowed to run: children are taken by other workers, helped with,
// waited for in sleep, and freed on threads other than the one that made them.
class RequestNoAllocation : public EngineTest {
protected:
    int poolSize() const override { return 5; }
    void SetUp() override {
        EngineTest::SetUp();
        engine().setMaxRunningWorkers(4);
    }
};

} // namespace

TEST_F(RequestNoAllocation, InternalRequestsUseOnlyThePools) {
    // Warmed up until the request pool has reached the peak of this tree on these workers.
    DaMemPool const& pool = RequestMgrImp::getMemPool();
    for (int i = 0, still = 0; i < 5000 && still < 200; ++i) {
        std::size_t const before = pool.getReservedBytes();
        runAndWait(new CountingRoot);
        still = pool.getReservedBytes() == before ? still + 1 : 0;
    }
    std::size_t const reserved = pool.getReservedBytes();
    g_allocations = 0;
    for (int i = 0; i < 20; ++i)
        runAndWait(new CountingRoot);
    // Only a pool that had to grow after all may have asked the system, once per chunk.
    auto const chunks =
        static_cast<long>((pool.getReservedBytes() - reserved) / pool.getChunkSize());
    EXPECT_LE(g_allocations.load(), chunks);
}

#include "RequestMgrImp.h"

#include "Assertions.h"
#include "EnvIntVar.h"
#include "ExBase.h"
#include "IxConvertServices.h"
#include "MtThreadMgr.h"
#include "PxEx.h"
#include "PxGraphLog.h"
#include "PxRequestImp.h"
#include "RequestEngine.h"
#include "StatMgr.h"
#include "StatScalar.h"
#include "StatThreadLocal.h"
#include "StatThreadPoolCPUUsage.h"
#include "StatTypes.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

namespace Vn {

namespace {

EnvIntVar s_nbThreadsVar(__FILE__, "VN_NB_PXREQUEST_THREADS", RequestMgrImp::kMaxThreads);
EnvIntVar s_maxConcurrentVar(__FILE__, "VN_MAX_PXREQUEST_CONCURRENT_THREADS", -1);
EnvIntVar s_keepOnProcVar(__FILE__, "VN_NB_PXREQUEST_KEEPONPROC", 0);
EnvIntVar s_delayPoolDeleteVar(__FILE__, "VN_DELAY_PXREQUEST_MEMPOOL_DELETE", 0);
EnvIntVar s_threadCoopVar(__FILE__, "VN_PXREQUEST_THREAD_COOP", 1);
// A chain of requests nests one execution per level on a worker's stack: about 300 bytes in an
// optimised build, so 64 MB carry a chain of 100,000 twice over. Sanitizers widen the frames
// (about 2.5 KB a level under AddressSanitizer).
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kDefaultStackMB = 512;
#else
constexpr int kDefaultStackMB = 64;
#endif
EnvIntVar s_stackSizeVar(__FILE__, "VN_PXREQUEST_STACK_SIZE_MB", kDefaultStackMB, 4, 1024);

constinit thread_local WorkerTLS t_worker{};
bool s_threadCoop = true;
DaMemPool* s_pool = nullptr;

// The memory of a request freed after the engine stopped: the pool is kept while any lives.
void freeOrphan(void* p, std::size_t size) noexcept {
    if (s_pool)
        s_pool->free(p, size);
}

constexpr int CPU = RequestEngine::CPU;
constexpr int GFX = RequestEngine::GFX;

using State = RequestMgrImp::State;
using EngineState = RequestMgrImp::EngineState;
using EngineGuard = LkAtomicWrGuard<EngineState>;
using RS = PxRequestState;

// A scheduling decision of a worker, computed on a state copy inside a commit loop.
struct Decision {
    bool changed = false;
    bool stop = false;
    bool exit = false;
    LkWaitEntry* wake = nullptr;
};

// Takes a worker for a freed running slot: first one that left a blocking wait, else a parked
// CPU worker.
void handOff(EngineState& s, bool cpuWanted, Decision& d) {
    if ((cpuWanted || !s._unBlockedWorkers.isEmpty()) &&
        s._nbRunningWorkers < s._maxRunningWorkers) {
        if (!s._unBlockedWorkers.isEmpty())
            d.wake = s._unBlockedWorkers.popFront();
        else
            d.wake = s._stoppedWorkers[CPU].pop();
        if (d.wake) {
            ++s._nbRunningWorkers;
            d.changed = true;
        }
    }
}

Decision decide(EngineState& s, int res, LkWaitEntry* me) {
    Decision d;
    bool const cpuEmpty = s._internalRequests[CPU].isEmpty();
    bool const gfxEmpty = s._internalRequests[GFX].isEmpty();
    bool const ownEmpty = res == CPU ? cpuEmpty : gfxEmpty;
    bool const ringEmpty = s._unBlockedWorkers.isEmpty();
    bool const last = s._nbRunningWorkers == 1 && s._nbBlockedWorkers == 0 && ringEmpty;
    bool askCpu = false;

    switch (s._state) {
    case RequestMgrImp::UNINITIALIZED:
    case RequestMgrImp::IDLE:
        break;
    case RequestMgrImp::RUNNING:
        if (!cpuEmpty && res == CPU) {
        } else if (!cpuEmpty) {
            d.stop = gfxEmpty;
            askCpu = true;
        } else if (gfxEmpty && ringEmpty && s._nbExternalRequests == 0) {
            d.stop = true;
            if (s._nbRunningWorkers == 1 && s._nbBlockedWorkers == 0)
                s._state = RequestMgrImp::IDLE;
        } else if (res == CPU) {
            d.stop = s._nbExternalRequests == 0;
        } else {
            d.stop = gfxEmpty;
            askCpu = s._nbExternalRequests > 0;
        }
        break;
    case RequestMgrImp::DRAINING:
        if (!ownEmpty) {
        } else if (last) {
            s._state = RequestMgrImp::SEQUENTIAL;
            s._internalRequests[CPU].push(s._pendingSeqRequest);
            s._pendingSeqRequest = nullptr;
            d.changed = true;
            if (res == GFX) {
                d.stop = true;
                askCpu = true;
            }
        } else {
            d.stop = true;
        }
        break;
    case RequestMgrImp::SEQUENTIAL:
        if (cpuEmpty && gfxEmpty) {
            if (last) {
                s._state = RequestMgrImp::RUNNING;
                d.changed = true;
                if (res == GFX) {
                    d.stop = true;
                    askCpu = true;
                }
            } else {
                d.stop = true;
            }
        } else {
            d.stop = ownEmpty;
        }
        break;
    case RequestMgrImp::SHUTTING_DOWN:
        if (ownEmpty) {
            --s._nbRunningWorkers;
            d.exit = true;
            d.changed = true;
        }
        break;
    default:
        VN_ABORT("Unknown state of the processing engine");
    }
    if (d.stop) {
        s._stoppedWorkers[res].push(me);
        --s._nbRunningWorkers;
        d.changed = true;
    }
    if (!d.exit)
        handOff(s, askCpu, d);
    return d;
}

// Requests are counted by each thread on a counter of its own, written with plain stores: no
// locked instruction on the road of a request. A thread's count joins the retired total when
// the thread ends.
struct LiveCounter {
    std::atomic<long> _n{0};
    LiveCounter* _next = nullptr;
};
struct LiveCounters {
    std::mutex _lock;
    LiveCounter* _threads = nullptr;
    long _retired = 0;
    long sum() {
        std::lock_guard<std::mutex> lock(_lock);
        long n = _retired;
        for (LiveCounter* c = _threads; c; c = c->_next)
            n += c->_n.load(std::memory_order_relaxed);
        return n;
    }
};
// Never destroyed: threads may end after the process's static objects are gone.
LiveCounters& liveCounters() {
    static LiveCounters* counters = new LiveCounters;
    return *counters;
}

struct LiveCounterOwner {
    LiveCounter* _counter;
    LiveCounterOwner() : _counter(new LiveCounter) {
        LiveCounters& all = liveCounters();
        std::lock_guard<std::mutex> lock(all._lock);
        _counter->_next = all._threads;
        all._threads = _counter;
    }
    ~LiveCounterOwner();
};
constinit thread_local LiveCounter* t_live = nullptr;
// Set once the thread's counter is gone: a request made by a later thread-exit destructor (or an
// exit handler on the main thread) then counts under the lock.
constinit thread_local bool t_liveGone = false;

LiveCounterOwner::~LiveCounterOwner() {
    LiveCounters& all = liveCounters();
    {
        std::lock_guard<std::mutex> lock(all._lock);
        LiveCounter** link = &all._threads;
        while (*link != _counter)
            link = &(*link)->_next;
        *link = _counter->_next;
        all._retired += _counter->_n.load(std::memory_order_relaxed);
    }
    t_live = nullptr;
    t_liveGone = true;
    delete _counter;
}

void countLive(long delta) {
    LiveCounter* c = t_live;
    if (!c) [[unlikely]] {
        if (t_liveGone) {
            LiveCounters& all = liveCounters();
            std::lock_guard<std::mutex> lock(all._lock);
            all._retired += delta;
            return;
        }
        thread_local LiveCounterOwner owner;
        c = t_live = owner._counter;
    }
    c->_n.store(c->_n.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
}

// A CPU worker that runs out of work watches the state a few microseconds before it parks, still
// counted as running and counted as looking: a stream of short requests, or one request after
// another from one caller, then needs no commit to park it, none to take it out again and no
// wake-up. A worker waiting for a slot is not kept waiting. After the first microsecond the watch
// yields between looks, so that a submitter sharing the core is not held up by it.
constexpr int kIdleSpins = 256;
constexpr int kIdleSpinsPerYield = 32;
bool wouldIdle(EngineState const& s, int res) noexcept {
    return res == CPU && s._state == RequestMgrImp::RUNNING && s._internalRequests[CPU].isEmpty() &&
           s._nbExternalRequests == 0 && s._unBlockedWorkers.isEmpty();
}

// Holds the external queue's lock. It is held for well under a microsecond, by a submitter or a
// worker taking entries: a thread that finds it taken spins for it a little, since sleeping in the
// kernel and being woken would cost many times the hold, on both sides.
class QueueGuard {
public:
    explicit QueueGuard(LkLock& lock) : _lock(lock) {
        for (int i = 0; i < kSpins; ++i) {
            if (lock.tryLock())
                return;
            for (int p = 0; p < kPausesPerTry; ++p)
                spinPause();
        }
        bool const took = lock.lock();
        VN_ASSERT(took);
    }
    QueueGuard(QueueGuard const&) = delete;
    QueueGuard& operator=(QueueGuard const&) = delete;
    ~QueueGuard() { _lock.unlock(); }

private:
    static constexpr int kSpins = 64;
    static constexpr int kPausesPerTry = 4;
    LkLock& _lock;
};

} // namespace

WorkerTLS& workerTLS() noexcept {
    return t_worker;
}

void WorkerTLS::checkExit() const {
    VN_ASSERT(_currentExternalRequest == 0);
    VN_ASSERT(_pendingRequest == 0);
    VN_ASSERT(_blockedCount == 0);
    VN_ASSERT(_nbTaken == 0);
}

RequestMgrImp& RequestEngine::mgr() noexcept {
    return static_cast<RequestMgrImp&>(PxRequestMgr::getInstance());
}

bool RequestEngine::threadCooperation() noexcept {
    return s_threadCoop;
}

DaMemPool& RequestMgrImp::getMemPool() {
    VN_ASSERT(s_pool != nullptr);
    return *s_pool;
}

// ---- start-up and thread counts ----

RequestMgrImp::RequestMgrImp(bool keepOnProcessor, int nbThreads, int maxRunningWorkers)
    : MtThreadPool("PxRequestMgr-", 0, keepOnProcessor, 0), _engine(EngineState{}),
      _nbLiveRequestsBefore(liveCounters().sum()) {
    setStackSize(static_cast<std::size_t>(s_stackSizeVar.getValue()) << 20);
    setNbThreads(nbThreads);
    setMaxRunningWorkers(maxRunningWorkers);
}

void RequestMgrImp::setNbThreads(int n) {
    VN_ASSERT(!isRunning());
    auto const wanted = static_cast<std::uint32_t>(n);
    if (wanted > static_cast<std::uint32_t>(kMaxThreads)) {
        VN_LOG_GROUP(PxGraph, 2,
                     "Requested number of processing threads is too high (limit is " << kMaxThreads
                                                                                     << ").");
        _nbThreads = kMaxThreads;
        return;
    }
    // A pool needs its GFX worker and at least one CPU worker.
    _nbThreads = std::max<std::uint32_t>(wanted, 2);
}

int RequestMgrImp::clampMaxRunning(int n, bool poolRuns) const {
    if (n < 1)
        n = MtThreadMgr::getInstance().getNbProcessors();
    n = std::min(n, kMaxThreads);
    if (poolRuns)
        n = std::min(n, static_cast<int>(_nbThreads));
    return std::max(n, 1);
}

void RequestMgrImp::setMaxRunningWorkers(int n) {
    int const value = clampMaxRunning(n, isRunning());
    EngineGuard g(_engine);
    do {
        g->_maxRunningWorkers = value;
    } while (!g.commit());
}

int RequestMgrImp::getMaxRunningWorkers() const {
    return LkAtomicRdGuard<EngineState>(_engine)->_maxRunningWorkers;
}

void RequestMgrImp::startWorkers() {
    if (_workersStarted.load(std::memory_order_acquire))
        return;
    LkGuard lock(_workerInitLock);
    if (_workersStarted.load(std::memory_order_relaxed))
        return;
    VN_ASSERT(getNbThreadsWanted() >= 2);
    {
        EngineGuard g(_engine);
        do {
            g->_maxRunningWorkers =
                std::min({g->_maxRunningWorkers, kMaxThreads, static_cast<int>(_nbThreads)});
        } while (!g.commit());
    }
    MtThreadPool::start(static_cast<int>(_nbThreads));
    for (std::uint32_t i = 0; i < _nbThreads; ++i)
        _workerInitSema.wait();
    _workersStarted.store(true, std::memory_order_release);
}

// ---- workers ----

void RequestMgrImp::main(int threadIndex) {
    IxConvertServices::configureSSE();
    WorkerTLS& tls = t_worker;
    int const res = threadIndex == 0 ? GFX : CPU;
    tls._isWorker = true;
    tls._resourceType = res;
    RequestEngine::noteWorkerStack();
    if (res == GFX)
        RequestEngine::gfxWorkerStarted();
    LkWaitEntry& me = LkWaitEntry::getEntry();
    {
        EngineGuard g(_engine);
        do {
            if (g->_state != UNINITIALIZED && g->_state != IDLE)
                VN_ABORT("A processing worker started in an engine that already runs");
            g->_state = IDLE;
            g->_stoppedWorkers[res].push(&me);
        } while (!g.commit());
    }
    _workerInitSema.post();
    me.wait();

    bool const looks = res == CPU;
    for (;;) {
        Decision d;
        if (looks)
            _nbLookingWorkers.fetch_add(1);
        {
            EngineGuard g(_engine);
            for (int spins = 1; spins <= kIdleSpins && wouldIdle(*g, res); ++spins) {
                if (spins % kIdleSpinsPerYield == 0)
                    std::this_thread::yield();
                else
                    spinPause();
                g.refresh();
            }
            for (;;) {
                d = decide(*g, res, &me);
                if (!d.changed)
                    break;
                // A submission that commits after this stop must see that nobody looks any more:
                // the count falls before the commit, and rises again if the commit loses.
                bool const leaves = looks && (d.stop || d.exit);
                if (leaves)
                    _nbLookingWorkers.fetch_sub(1);
                if (g.commit())
                    break;
                if (leaves)
                    _nbLookingWorkers.fetch_add(1);
            }
        }
        if (looks && !d.stop && !d.exit)
            _nbLookingWorkers.fetch_sub(1);
        if (d.wake)
            d.wake->signal();
        if (d.stop || d.exit)
            RequestEngine::flushHolds();
        if (d.exit)
            break;
        if (d.stop)
            me.wait();
        for (;;) {
            try {
                while (RequestEngine::runNext(tls))
                    ;
                if (!RequestEngine::completePendingRequest(nullptr))
                    break;
            } catch (ExBase const& e) {
                // A fault of the engine itself; the request concerned is lost, the worker not.
                VN_LOG_GROUP(PxGraph, 0,
                             "Internal failure on a processing worker: " << e.getDetailedReason());
            }
        }
    }

    WorkerTLS* _workerTLS = &tls;
    VN_ASSERT(_workerTLS->getPendingRequest() == 0);
    tls.checkExit();
    if (res == GFX)
        RequestEngine::gfxWorkerEnded();
    RequestEngine::forgetWorkerStack();
    tls = WorkerTLS{};
}

bool RequestEngine::runNext(WorkerTLS& tls) {
    RequestMgrImp& m = mgr();
    int const res = tls._resourceType;
    PxRequest* request = nullptr;
    bool external = false;
    bool taken = false;
    {
        EngineGuard g(m._engine);
        for (;;) {
            request = g->_internalRequests[res].pop();
            external = false;
            if (!request) {
                if (tls._nbTaken > 0) {
                    // Taken before, whatever the state has become since: nothing to commit.
                    request = tls._taken[tls._takenHead];
                    tls._takenHead = (tls._takenHead + 1) % WorkerTLS::kTakeBatch;
                    --tls._nbTaken;
                    external = taken = true;
                    break;
                }
                if (res == GFX)
                    return false;
                if (g->_state != RequestMgrImp::IDLE && g->_state != RequestMgrImp::RUNNING)
                    return false;
                if (g->_nbExternalRequests < 1)
                    return false;
                // Taken below, under the queue's lock, with one commit.
                external = true;
                break;
            }
            if (g.commit())
                break;
        }
    }

    if (external && !taken) {
        QueueGuard lock(m._externalRequestsLock);
        // The front cannot change while the lock is held, nor can the queue be shorter than the
        // count of entries not taken.
        auto& queue = m._externalRequests;
        PxRequest* const front = queue.empty() ? nullptr : queue.front();
        bool const sequential = front && front->getExecutionMode() == PxRequest::SEQUENTIAL;
        // A long queue is taken several concurrent entries at a time, this worker's share of it:
        // one lock and one commit serve them all. A sequential entry is never taken with others.
        int concurrentFront = 0;
        if (!sequential) {
            int const limit = static_cast<int>(std::min<std::size_t>(
                queue.size(), static_cast<std::size_t>(WorkerTLS::kTakeBatch)));
            while (concurrentFront < limit &&
                   queue[static_cast<std::size_t>(concurrentFront)]->getExecutionMode() ==
                       PxRequest::CONCURRENT)
                ++concurrentFront;
        }
        enum { NOTHING, INTERNAL, TAKE, TAKE_SEQUENTIAL } action = NOTHING;
        int nbTake = 0;
        EngineGuard g(m._engine);
        for (;;) {
            action = NOTHING;
            nbTake = 0;
            // A child pushed meanwhile still goes first.
            request = g->_internalRequests[res].pop();
            if (request) {
                action = INTERNAL;
            } else if ((g->_state == RequestMgrImp::IDLE || g->_state == RequestMgrImp::RUNNING) &&
                       g->_nbExternalRequests > 0) {
                VN_ASSERT(front != nullptr);
                int const share = g->_nbExternalRequests / std::max(g->_maxRunningWorkers, 1);
                nbTake = std::max(1, std::min(share, concurrentFront));
                g->_nbExternalRequests -= nbTake;
                action = sequential ? TAKE_SEQUENTIAL : TAKE;
                if (sequential) {
                    g->_state = RequestMgrImp::DRAINING;
                    g->_pendingSeqRequest = front;
                }
            }
            if (action == NOTHING || g.commit())
                break;
        }
        if (action == NOTHING)
            return false;
        if (action != INTERNAL) {
            queue.pop_front();
            if (action == TAKE_SEQUENTIAL)
                return false;
            request = front;
            for (int i = 1; i < nbTake; ++i) {
                tls._taken[(tls._takenHead + tls._nbTaken) % WorkerTLS::kTakeBatch] = queue.front();
                ++tls._nbTaken;
                queue.pop_front();
            }
        }
    }
    // Turning to another tree: the holds kept for the last one go back, so that a worker kept
    // busy by a stream of trees does not keep their roots alive.
    if (external)
        flushHolds();

    if (res == CPU && request->getResourceType() == GFX) {
        // GFX requests run on the GFX worker alone: one taken from the external queue or met at
        // the start of sequential mode is handed over, still queued.
        LkWaitEntry* wake = nullptr;
        EngineGuard g(m._engine);
        do {
            wake = nullptr;
            g->_internalRequests[GFX].push(request);
            if (!g->_stoppedWorkers[GFX].isEmpty()) {
                wake = g->_stoppedWorkers[GFX].pop();
                ++g->_nbRunningWorkers;
            }
        } while (!g.commit());
        if (wake)
            wake->signal();
        return true;
    }

    // The request's own state: a request that a waiter already ran inline is only disposed of.
    bool run = false;
    bool destroy = false;
    bool noticed = true;
    PxRequest* root = nullptr;
    {
        LkAtomicWrGuard<RS> guard(request->getStateObj());
        do {
            run = false;
            destroy = false;
            noticed = true;
            guard->set(RS::DEQUEUED);
            root = guard->has(RS::EXTERNAL) ? request : guard->getRootRequest();
            if (guard->getStatus() == RS::QUEUED) {
                guard->setStatus(RS::EXECUTING);
                run = true;
            } else if (guard->has(RS::RELEASED) && guard->_nbReferences == 0 &&
                       guard->getNbHolds() == 0 &&
                       (guard->getStatus() == RS::CLEANED_UP ||
                        guard->getStatus() == RS::FAILED_POST_EXECUTED)) {
                noticed = guard->isResultQueried() || guard->isCancelled() || guard->isUnwinded();
                guard->setStatus(RS::DESTROYED);
                destroy = true;
            }
        } while (!guard.commit());
    }
    if (destroy)
        delete request;
    if (!noticed)
        failureUnnoticed(__FILE__, __LINE__);
    if (!run)
        return true;

    dropLeftStatistics("Unexpected statistics found before entering PxRequestImp::asyncExecute: "
                       "they will be flushed and lost");
    bool pending = false;
    {
        WorkScope const scope(tls, request, root);
        pending = asyncExecute(request);
    }
    if (pending)
        completePendingRequest(request);
    return true;
}

// A request run by its waiter keeps its stack entry until a worker pops it. The entries of a
// finished request's children are most often the top of the stack: popped here, by the thread
// that ran them and in one commit, they need no other worker to read them cold one by one.
int RequestEngine::popSpentChildren(PxRequest* children, PxRequest** spent) {
    if (!children || !workerTLS()._isWorker)
        return 0;
    // The list holds the children alive. A child neither waiting for a worker nor taken by one
    // stays so: what is read here holds at the commit. Children that no stack holds (run
    // manually, or taken by a worker) are passed over.
    int nbSpent = 0;
    for (PxRequest* c = children; c && nbSpent < kSpentBatch;) {
        LkAtomicRdGuard<RS> s(c->getStateObj());
        if (s->getStatus() == RS::QUEUED)
            break;
        if (!s->has(RS::DEQUEUED))
            spent[nbSpent++] = c;
        c = s->_nextSibling;
    }
    if (nbSpent == 0)
        return 0;
    int n = 0;
    EngineGuard g(mgr()._engine);
    for (;;) {
        n = 0;
        auto& stack = g->_internalRequests[CPU];
        while (n < nbSpent && stack.top() == spent[n]) {
            stack.pop();
            ++n;
        }
        if (n == 0 || g.commit())
            break;
    }
    return n;
}

void RequestMgrImp::notifyStop() {
    for (;;) {
        LkWaitEntry* wake = nullptr;
        bool done = false;
        {
            EngineGuard g(_engine);
            for (;;) {
                wake = nullptr;
                if (g->_stoppedWorkers[CPU].isEmpty() && g->_stoppedWorkers[GFX].isEmpty() &&
                    g->_unBlockedWorkers.isEmpty() && g->_state == SHUTTING_DOWN) {
                    done = true;
                    break;
                }
                g->_state = SHUTTING_DOWN;
                if (g->_nbRunningWorkers < g->_maxRunningWorkers) {
                    if (!g->_unBlockedWorkers.isEmpty())
                        wake = g->_unBlockedWorkers.popFront();
                    else if (!g->_stoppedWorkers[GFX].isEmpty())
                        wake = g->_stoppedWorkers[GFX].pop();
                    else
                        wake = g->_stoppedWorkers[CPU].pop();
                    if (wake)
                        ++g->_nbRunningWorkers;
                }
                if (g.commit())
                    break;
            }
        }
        if (done)
            return;
        if (wake)
            wake->signal();
        else
            std::this_thread::yield(); // the slots are taken by workers on their way out
    }
}

// ---- submission ----

void RequestMgrImp::executeRequest(PxRequest* request, bool executeManually) {
    VN_ASSERT(request != nullptr);
    WorkerTLS& tls = t_worker;
    bool const isExternal = !tls._isWorker;
    // clang-format off
    VN_ASSERT(!( isExternal && executeManually ));
    VN_ASSERT(!( (request->getReferencingMode() == PxRequest::FIRE_AND_FORGET ) && executeManually ));
    VN_ASSERT(!( (request->getReferencingMode() == PxRequest::FIRE_AND_FORGET ) && !isExternal ));
    VN_ASSERT(!( ( request->getResourceType() == GFX ) && executeManually ));
    // clang-format on
    int const res = request->getResourceType();

    PxRequest* const parent = isExternal ? nullptr : tls._currentRequest;
    if (!isExternal && tls._currentExternalRequest)
        RequestEngine::holdRoot(tls._currentExternalRequest);
    {
        // Nobody else sees the request before its parent's commit lists it, so its state is
        // written in one commit that cannot lose, redone only when the parent's commit loses.
        LkAtomicWrGuard<RS> g(request->getStateObj());
        VN_ASSERT(g->getStatus() == RS::NEW);
        if (executeManually)
            g->set(RS::DEQUEUED);
        if (isExternal)
            g->set(RS::EXTERNAL);
        else
            g->_rootRequest = tls._currentExternalRequest;
        g->setStatus(RS::QUEUED);
        bool joined = false;
        if (parent) {
            LkAtomicWrGuard<RS> pg(parent->getStateObj());
            for (;;) {
                RS::Status const st = pg->getStatus();
                if (st != RS::EXECUTING && st != RS::PENDING)
                    break;
                g->_nextSibling = pg->_firstChild;
                g->_nbReferences = 1;
                g->set(RS::IN_CHILD_LIST);
                VN_ASSERT(g.commit());
                pg->_firstChild = request;
                if (pg.commit()) {
                    joined = true;
                    break;
                }
            }
        }
        if (!joined) {
            // No child list holds it: its owner's release alone decides its end.
            g->_nextSibling = nullptr;
            g->_nbReferences = 0;
            g->clear(RS::IN_CHILD_LIST);
            VN_ASSERT(g.commit());
        }
    }

    if (!isExternal) {
        if (executeManually)
            return;
        LkWaitEntry* wake = nullptr;
        EngineGuard g(_engine);
        do {
            wake = nullptr;
            g->_internalRequests[res].push(request);
            if ((g->_nbRunningWorkers < g->_maxRunningWorkers || res == GFX) &&
                !g->_stoppedWorkers[res].isEmpty()) {
                wake = g->_stoppedWorkers[res].pop();
                ++g->_nbRunningWorkers;
            }
        } while (!g.commit());
        if (wake)
            wake->signal();
        return;
    }

    startWorkers();
    {
        QueueGuard lock(_externalRequestsLock);
        _externalRequests.push_back(request);
        if (request->getExecutionMode() == PxRequest::CONCURRENT &&
            request->getPriorityLevel() == 1) {
            auto it = _externalRequests.end() - 1;
            while (it != _externalRequests.begin()) {
                PxRequest* before = *(it - 1);
                if (before->getExecutionMode() != PxRequest::CONCURRENT ||
                    before->getPriorityLevel() != 0)
                    break;
                std::iter_swap(it - 1, it);
                --it;
            }
        }
        ++_nbExternalRequestsTotal;
    }
    LkWaitEntry* wake = nullptr;
    EngineGuard g(_engine);
    do {
        wake = nullptr;
        // Read after the snapshot: a worker that parked before it has left the count, and one
        // that parks after it sees this request and does not park.
        bool const looked = _nbLookingWorkers.load() > g->_nbExternalRequests;
        ++g->_nbExternalRequests;
        bool wanted = false;
        if (g->_state == IDLE) {
            if (!g->_stoppedWorkers[CPU].isEmpty()) {
                g->_state = RUNNING;
                wanted = true;
            }
        } else if (g->_state == RUNNING) {
            wanted = !looked;
        }
        if (wanted && g->_nbRunningWorkers < g->_maxRunningWorkers &&
            !g->_stoppedWorkers[CPU].isEmpty()) {
            wake = g->_stoppedWorkers[CPU].pop();
            ++g->_nbRunningWorkers;
        }
    } while (!g.commit());
    if (wake)
        wake->signal();
}

// ---- blocking ----

void RequestMgrImp::workerBlocked() {
    WorkerTLS& tls = t_worker;
    VN_ASSERT(tls._isWorker);
    if (tls._blockedCount++ != 0)
        return;
    LkWaitEntry* wake = nullptr;
    EngineGuard g(_engine);
    do {
        wake = nullptr;
        // External requests taken with the one this worker runs go to the CPU stack, oldest on
        // top: what blocks may wait for one of them, and another worker runs them meanwhile.
        for (int i = tls._nbTaken - 1; i >= 0; --i)
            g->_internalRequests[CPU].push(
                tls._taken[(tls._takenHead + i) % WorkerTLS::kTakeBatch]);
        ++g->_nbBlockedWorkers;
        // While running, a parked worker with nothing queued for it would only park again and
        // pass the slot on: the slot goes straight to one that has work, or is left free.
        bool const running = g->_state == RUNNING;
        bool const gfxWork = !running || !g->_internalRequests[GFX].isEmpty();
        bool const cpuWork =
            !running || !g->_internalRequests[CPU].isEmpty() || g->_nbExternalRequests > 0;
        if (g->_nbRunningWorkers > g->_maxRunningWorkers) {
            --g->_nbRunningWorkers;
        } else if (!g->_unBlockedWorkers.isEmpty()) {
            wake = g->_unBlockedWorkers.popFront();
        } else if (gfxWork && !g->_stoppedWorkers[GFX].isEmpty()) {
            wake = g->_stoppedWorkers[GFX].pop();
        } else if (cpuWork && !g->_stoppedWorkers[CPU].isEmpty()) {
            wake = g->_stoppedWorkers[CPU].pop();
        } else {
            --g->_nbRunningWorkers;
        }
    } while (!g.commit());
    tls._nbTaken = 0;
    if (wake)
        wake->signal();
}

void RequestMgrImp::workerUnblocked() {
    WorkerTLS& tls = t_worker;
    VN_ASSERT(tls._isWorker && tls._blockedCount > 0);
    if (--tls._blockedCount > 0)
        return;
    LkWaitEntry& me = LkWaitEntry::getEntry();
    bool queued = false;
    EngineGuard g(_engine);
    do {
        queued = false;
        --g->_nbBlockedWorkers;
        if (g->_nbRunningWorkers < g->_maxRunningWorkers) {
            ++g->_nbRunningWorkers;
        } else {
            g->_unBlockedWorkers.pushBack(&me);
            queued = true;
        }
    } while (!g.commit());
    if (queued)
        me.wait();
}

// ---- queries ----

bool RequestMgrImp::isWorkerThreadCurrent() const {
    return t_worker._isWorker;
}

bool RequestMgrImp::isWorkerThreadSequential() const {
    return t_worker._isWorker && LkAtomicRdGuard<EngineState>(_engine)->_state == SEQUENTIAL;
}

bool RequestMgrImp::isWorkerThreadBlocked() const {
    return t_worker._isWorker && t_worker._blockedCount > 0;
}

bool RequestMgrImp::isCancelled() const {
    PxRequest* root = t_worker._currentExternalRequest;
    return root && LkAtomicRdGuard<RS>(root->getStateObj())->isCancelled();
}

void RequestMgrImp::checkCancelled() const {
    if (isCancelled())
        throw PxEx::ExRequestCancelled(__FILE__, __LINE__);
}

RequestMgrImp::Snapshot RequestMgrImp::getSnapshot() const {
    LkAtomicRdGuard<EngineState> g(_engine);
    return Snapshot{State(g->_state),
                    g->_nbRunningWorkers,
                    g->_nbBlockedWorkers,
                    static_cast<int>(g->_unBlockedWorkers._count),
                    g->_nbExternalRequests,
                    g->_maxRunningWorkers,
                    g->_internalRequests[CPU].isEmpty() && g->_internalRequests[GFX].isEmpty(),
                    g->_pendingSeqRequest != nullptr};
}

void RequestMgrImp::recordStatistics() {
    // A pool that never started has no threads to sample.
    if (_workersStarted.load()) {
        StatThreadPoolCPUUsage pool;
        pool.timeSplit(*this, StatTypes::getPxThreadPoolCPUUsageId());
    }
    EngineState const s = _engine.load();
    StatScalar scalar;
    scalar.setScalar(s._nbExternalRequests, StatTypes::getWaitingRequestsId());
    scalar.setScalar(s._nbRunningWorkers, StatTypes::getRunningWorkersId());
    scalar.setScalar(s._nbBlockedWorkers + static_cast<long long>(s._unBlockedWorkers._count),
                     StatTypes::getBlockedWorkersId());
    long long total = 0;
    long long waits = 0;
    {
        LkGuard lock(_externalRequestsLock);
        total = _nbExternalRequestsTotal;
        waits = _nbExternalWaits.load(std::memory_order_relaxed);
    }
    scalar.setScalar(total, StatTypes::getExternalPxRequestsId());
    scalar.setScalar(waits, StatTypes::getExternalPxWaitsId());
}

// ---- memory of requests ----

// A request counts from its memory's allocation to its return: a release finishing on another
// thread (a callback letting its request go) still counts while it frees into the pool, so the
// engine's end can wait for it before the pool goes.
void* RequestMgrImp::allocate(std::size_t size) {
    void* p = getMemPool().alloc(size);
    countLive(1);
    return p;
}
void RequestMgrImp::deallocate(void* p, std::size_t size) {
    getMemPool().free(p, size);
    countLive(-1);
}

// The request's state block comes with its state object, and the live count with its memory.
void RequestMgrImp::initRequest(PxRequest&) {}

long RequestMgrImp::getNbLiveRequests() const noexcept {
    return liveCounters().sum() - _nbLiveRequestsBefore;
}

void RequestMgrImp::destroyRequest(PxRequest& request) {
    RequestEngine::disposeState(request);
}

OPtrRet<StatThreadLocal> RequestMgrImp::takeRequestStats(PxRequest* request) {
    VN_ASSERT(request != nullptr);
    StatThreadLocal* stats = nullptr;
    LkAtomicWrGuard<RS> g(request->getStateObj());
    do {
        stats = g->_stats;
        g->_stats = nullptr;
    } while (stats && !g.commit());
    return OPtrRet<StatThreadLocal>(stats);
}

void RequestMgrImp::cancelRequest(PxRequest* request) {
    VN_ASSERT(request != nullptr);
    LkAtomicWrGuard<RS> g(request->getStateObj());
    do {
        g->set(RS::CANCELLED);
    } while (!g.commit());
}

void RequestMgrImp::sync() {
    PxRequestPtr<PxRequest> request(new SyncRequest);
    executeRequest(request.get(), false);
    waitRequest(request.get());
}

// ---- shutdown ----

void RequestMgrImp::shutdown() {
    if (_shutDown)
        return;
    _shutDown = true;
    bool const ran = _workersStarted.load();
    if (ran) {
        sync();
        MtThreadPool::stop();
    }
    LkAtomicRdGuard<EngineState> guard(_engine);
    // clang-format off
    if (ran)
        VN_ASSERT(guard->_state == SHUTTING_DOWN);
    else
        VN_ASSERT(guard->_state == UNINITIALIZED);
    VN_ASSERT(guard->_internalRequests[CPU].isEmpty());
    VN_ASSERT(guard->_internalRequests[GFX].isEmpty());
    VN_ASSERT(guard->_nbExternalRequests == 0);
    VN_ASSERT(guard->_pendingSeqRequest == 0);
    VN_ASSERT(guard->_stoppedWorkers[CPU].isEmpty());
    VN_ASSERT(guard->_stoppedWorkers[GFX].isEmpty());
    VN_ASSERT(guard->_unBlockedWorkers.isEmpty());
    VN_ASSERT(guard->_nbRunningWorkers == 0);
    VN_ASSERT(guard->_nbBlockedWorkers == 0);
    VN_ASSERT(guard->_maxRunningWorkers > 0);
    VN_ASSERT(_externalRequests.empty());
    // clang-format on
}

RequestMgrImp::~RequestMgrImp() {
    try {
        shutdown();
    } catch (ExBase const& e) {
        ExStdout::printAtomically("Processing engine shut down with a fault: " +
                                  e.getDetailedReason());
    }
    if (isRunning())
        MtThreadPool::stop();
}

// ---- engine start and end, from the processing package ----

void RequestEngine::initializeEngine() {
    s_threadCoop = s_threadCoopVar.getValue() != 0;
    if (!s_pool)
        s_pool = new DaMemPool("PxRequestMgrImp", 16384, 0x20000, 1024);
    PxRequestOrphans::set(&RequestEngine::disposeState, &freeOrphan);
    PxRequestMgr::initialize(new RequestMgrImp(
        s_keepOnProcVar.getValue() != 0, s_nbThreadsVar.getValue(), s_maxConcurrentVar.getValue()));
}

constexpr int kReleaseWaitMs = 1000;

void RequestEngine::finalizeEngine() {
    if (!PxRequestMgr::isInitialized())
        return;
    auto& m = mgr();
    m.shutdown();
    // Releases that other threads are finishing end within moments; a request still held
    // after that was never released.
    long live = m.getNbLiveRequests();
    for (int ms = 0; live != 0 && ms < kReleaseWaitMs; ++ms) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        live = m.getNbLiveRequests();
    }
    PxRequestMgr::finalize();
    // Requests still alive would free their memory into the pool later: keep it then.
    if (live == 0 && s_delayPoolDeleteVar.getValue() == 0) {
        delete s_pool;
        s_pool = nullptr;
    } else if (live != 0) {
        VN_LOG_GROUP(PxGraph, 1,
                     live << " processing requests were never released; their memory is kept");
    }
}

int RequestEngine::configuredNbThreads() noexcept {
    return s_nbThreadsVar.getValue();
}

} // namespace Vn

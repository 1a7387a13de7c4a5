// How one request travels: execution on a worker, completion, waiting, failure and death.

#include "PxRequestImp.h"

#include "Assertions.h"
#include "ExBase.h"
#include "MtThreadTimes.h"
#include "PxEx.h"
#include "PxGraphLog.h"
#include "RequestEngine.h"
#include "StatMgr.h"
#include "StatThreadLocal.h"

#include <algorithm>
#include <pthread.h>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Vn {

namespace {

using RS = PxRequestState;
using StateGuard = LkAtomicWrGuard<RS>;
constexpr int GFX = RequestEngine::GFX;

// ---- the GFX worker's callbacks ----
// Registered from any thread, read by the GFX worker.
std::atomic<CbHandler<CbEmptyType>*> _initCb{nullptr};
std::atomic<CbHandler<CbEmptyType>*> _finalizeCb{nullptr};
std::atomic<bool> _exists{false};
std::atomic<bool> _initialized{false};

struct Guard {
    static bool exists() noexcept { return _exists.load(); }
};

// ---- the cascading timer of each thread ----
std::atomic<bool> s_timerEnabled{false};

struct TimerLevels {
    std::vector<double> stack;
    MtThreadTimes::Split last = 0;
    bool made = false;
};
thread_local TimerLevels t_timer;

TimerLevels& timerLevels() {
    TimerLevels& t = t_timer;
    if (!t.made) {
        t.stack.reserve(32);
        t.stack.push_back(0.0);
        t.last = MtThreadTimes::timeSplit();
        t.made = true;
    }
    return t;
}

// ---- the depth a worker's stack allows ----
// A waiting worker runs its children on its own stack, so a chain of requests nests one
// execution per level. A request that would start with less than this reserve left fails
// instead: the reserve is for the request's own code up to its next child.
constexpr std::size_t kStackReserve = std::size_t(1) << 20;
constinit thread_local char const* t_stackLimit = nullptr;
constinit thread_local std::size_t t_stackSize = 0;

[[noreturn]] void raiseTooDeep() {
    throw PxEx::ExGraphTooDeep(__FILE__, __LINE__,
                               "The processing graph is too deep for the workers' stacks of " +
                                   std::to_string(t_stackSize >> 20) +
                                   " MB: simplify the graph or raise VN_PXREQUEST_STACK_SIZE_MB");
}

bool nearStackEnd() noexcept {
    // The frame, not a local: a sanitizer may move locals off the stack.
    return static_cast<char const*>(__builtin_frame_address(0)) < t_stackLimit;
}

void checkStackDepth() {
    if (nearStackEnd())
        raiseTooDeep();
}

// ---- the functors run inside ExWrapper::execute ----
struct ExecuteFunctor {
    PxRequest* request;
    bool pending;
    void operator()() const {
        checkStackDepth();
        PxRequestMgr::getInstance().checkCancelled();
        request->performExecute();
        if (!pending)
            request->completeExecution();
    }
};

struct CompleteExecutionFunctor {
    PxRequest* request;
    void operator()() const {
        PxRequestMgr::getInstance().checkCancelled();
        request->completeExecution();
    }
};

struct PostExecuteFunctor {
    PxRequest* request;
    void operator()() const { request->postExecute(); }
};

// Neither a child list nor a descendant still reading it as its root holds the request.
bool isUnreferenced(RS const& s) noexcept {
    return s._nbReferences == 0 && s.getNbHolds() == 0;
}

// Spins a few microseconds for a signal on the entry; true when it came.
bool spinForSignal(LkWaitEntry& me) noexcept {
    constexpr int kSpins = 256;
    for (int i = 0; i < kSpins; ++i) {
        if (me.tryWait())
            return true;
        spinPause();
    }
    return me.tryWait();
}

// Whether a request's children may go now. Nobody walks the list of a finished request but a
// helper holding a reference of its own, so a finished request held only by its place in its
// parent's list lets its children go at once: memory then follows the running requests instead
// of the whole tree.
bool childrenMayGo(RS const& s) noexcept {
    if (s._nbReferences == 0)
        return true;
    RS::Status const st = s.getStatus();
    return s._nbReferences == 1 && s.has(RS::IN_CHILD_LIST) && st != RS::QUEUED &&
           st != RS::EXECUTING && st != RS::PENDING;
}

// A graph too deep fails at every level on its way up: the caller alone is told.
bool isSilent(ExBase const* e) {
    return dynamic_cast<PxEx::ExRequestCancelled const*>(e) ||
           dynamic_cast<PxEx::ExRequestFailed const*>(e) ||
           dynamic_cast<PxEx::ExGraphTooDeep const*>(e);
}

} // namespace

// ---- exceptions and statistics left behind ----

namespace {

// The failure this thread last raised again from a wait. Raising again throws the original's
// class, not the wrapper: a request's failure is told to have come up from a wait by being
// that failure.
thread_local OPtr<ExBase> t_raisedFromWait;

bool cameFromWait(ExBase const& e) {
    ExBase const* const raised = t_raisedFromWait.get();
    return raised && typeid(*raised) == typeid(e) &&
           raised->getDetailedReason() == e.getDetailedReason();
}

// Raises a waited request's failure again in the waiter, remembering it.
[[noreturn]] void raiseFromWait(OPtr<ExBase> failure) {
    t_raisedFromWait = failure->clone();
    ExRethrow<ExBase>(__FILE__, __LINE__, std::move(failure)).raise();
}

} // namespace

void RequestEngine::reportException(ExBase const* e) {
    bool const passedUp = e && cameFromWait(*e);
    t_raisedFromWait.reset();
    if (!e || isSilent(e))
        return;
    auto const* rethrow = dynamic_cast<ExRethrow<ExBase> const*>(e);
    if (rethrow && isSilent(rethrow->getOriginal()))
        return;
    if (!rethrow && !passedUp)
        return; // it stays in the request for its waiter
    VN_LOG_GROUP(PxGraph, 0,
                 "Caught exception: \n"
                     << e->getDetailedReason() << "\n"
                     << "while executing a PxRequest \n"
                     << "Call stack:"
                     << "No call stack available with an optimized build."
                     << "\n");
}

void RequestEngine::dropLeftStatistics(char const* message) {
    if (!StatMgr::hasLocalStats())
        return;
    OPtr<StatThreadLocal> left = StatMgr::releaseLocalStats();
    if (message && left && left->hasStatistic())
        VN_LOG_GROUP(PxGraph, 2, message);
}

void RequestEngine::failureUnnoticed(char const* file, int line) {
    Assertions::throwAssertionFailed(
        file, line, "guard->isResultQueried() || guard->isCancelled() || guard->isUnwinded()");
}

void RequestEngine::logFailureUnnoticed(char const* file, int line) noexcept {
    try {
        failureUnnoticed(file, line);
    } catch (ExBase const& e) {
        VN_LOG_GROUP(PxGraph, 0,
                     "Internal failure on a processing worker: " << e.getDetailedReason());
    } catch (...) {
    }
}

void RequestEngine::signalAll(LkWaitEntry* waiters) noexcept {
    while (waiters) {
        // Read the link first: a woken waiter may link its entry elsewhere at once.
        auto* next = static_cast<LkWaitEntry*>(waiters->getNext());
        waiters->signal();
        waiters = next;
    }
}

// ---- roots held by their descendants ----

namespace {

// A worker takes holds on a root in batches and keeps the spare ones, and the holds of the
// descendants it deletes, for the next requests of the same tree: a root's state is then
// committed once per batch instead of twice per descendant. The spares go back when the worker
// turns to another tree or parks.
constexpr std::int32_t kHoldBatch = 64;
struct HoldCache {
    PxRequest* root;
    std::int32_t spare;
};
constinit thread_local HoldCache t_holds{nullptr, 0};

// Takes n holds off the root, deleting it when they were the last thing keeping it.
void releaseHolds(PxRequest* root, std::int32_t n) noexcept {
    bool destroy = false;
    {
        StateGuard g(root->getStateObj());
        do {
            destroy = false;
            g->_nbHolds -= n;
            RS::Status const st = g->getStatus();
            if (isUnreferenced(*g) && g->has(RS::DEQUEUED) && g->has(RS::RELEASED) &&
                (st == RS::CLEANED_UP || st == RS::FAILED_POST_EXECUTED)) {
                g->setStatus(RS::DESTROYED);
                destroy = true;
            }
        } while (!g.commit());
    }
    if (destroy)
        delete root;
}

} // namespace

void RequestEngine::holdRoot(PxRequest* root) {
    HoldCache& c = t_holds;
    if (c.root == root && c.spare > 0) {
        --c.spare;
        return;
    }
    flushHolds();
    StateGuard g(root->getStateObj());
    do {
        g->_nbHolds += kHoldBatch;
    } while (!g.commit());
    c.root = root;
    c.spare = kHoldBatch - 1;
}

void RequestEngine::dropHold(PxRequest* root) noexcept {
    // Only workers keep spares: they give them back when they park.
    HoldCache& c = t_holds;
    if (c.root == root && workerTLS()._isWorker) {
        ++c.spare;
        return;
    }
    releaseHolds(root, 1);
}

void RequestEngine::flushHolds() noexcept {
    HoldCache& c = t_holds;
    std::int32_t const n = std::exchange(c.spare, 0);
    PxRequest* const root = std::exchange(c.root, nullptr);
    if (n > 0)
        releaseHolds(root, n);
}

void RequestEngine::disposeState(PxRequest& request) noexcept {
    // Read in place: a copy of the copy stalls on its own stores.
    LkAtomicRdGuard<RS> const s(request.getStateObj());
    delete s->_exception;
    if (s->_stats)
        OPtr<StatThreadLocal>(s->_stats).reset();
    if (PxRequest* root = s->getRootRequest())
        dropHold(root);
}

// ---- the worker's stack ----

void RequestEngine::noteWorkerStack() noexcept {
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) != 0)
        return;
    void* low = nullptr;
    std::size_t size = 0;
    if (pthread_attr_getstack(&attr, &low, &size) == 0) {
        t_stackLimit = static_cast<char const*>(low) + std::min(kStackReserve, size / 4);
        t_stackSize = size;
    }
    pthread_attr_destroy(&attr);
}

void RequestEngine::forgetWorkerStack() noexcept {
    t_stackLimit = nullptr;
    t_stackSize = 0;
}

// ---- GFX worker ----

void RequestEngine::gfxWorkerStarted() {
    VN_ASSERT(!_exists);
    _exists = true;
}

void RequestEngine::gfxWorkerEnded() {
    _exists = false;
    if (_initialized.exchange(false)) {
        if (CbHandler<CbEmptyType>* cb = _finalizeCb.load())
            cb->execute(CbEmptyType{});
    }
}

// Only the GFX worker runs GFX requests, so only it gets here.
void RequestEngine::gfxInitialize() {
    if (_initialized.load(std::memory_order_acquire))
        return;
    VN_ASSERT(Guard::exists());
    VN_ASSERT(workerTLS()._resourceType == GFX);
    if (CbHandler<CbEmptyType>* cb = _initCb.load())
        cb->execute(CbEmptyType{});
    _initialized.store(true, std::memory_order_release);
}

// clang-format off
void PxRequestImp::registerGFXInitialize(CbHandler<CbEmptyType>* cb) {
    CbHandler<CbEmptyType>* expected = nullptr;
    if (cb == 0) {
        _initCb = nullptr;
        return;
    }
    if (!_initCb.compare_exchange_strong(expected, cb))
        VN_ASSERT(( _initCb == 0 ) || ( cb == 0 ));
}

void PxRequestImp::registerGFXFinalize(CbHandler<CbEmptyType>* cb) {
    CbHandler<CbEmptyType>* expected = nullptr;
    if (cb == 0) {
        _finalizeCb = nullptr;
        return;
    }
    if (!_finalizeCb.compare_exchange_strong(expected, cb))
        VN_ASSERT(( _finalizeCb == 0 ) || ( cb == 0 ));
}
// clang-format on

// ---- timer ----

bool RequestEngine::timerEnabled() noexcept {
    return s_timerEnabled.load(std::memory_order_relaxed);
}

void RequestEngine::timerStartLevel() {
    TimerLevels& t = timerLevels();
    MtThreadTimes::Split const now = MtThreadTimes::timeSplit();
    t.stack.back() += MtThreadTimes::cpuTime(t.last, now);
    t.stack.push_back(0.0);
    t.last = now;
}

double RequestEngine::timerEndLevel() {
    TimerLevels& t = timerLevels();
    MtThreadTimes::Split const now = MtThreadTimes::timeSplit();
    t.stack.back() += MtThreadTimes::cpuTime(t.last, now);
    t.last = now;
    if (t.stack.size() < 2)
        return 0.0; // unbalanced: the timer was enabled inside this scope
    double const v = t.stack.back();
    t.stack.pop_back();
    return v;
}

void RequestEngine::timerAddToTop(double seconds) {
    timerLevels().stack.back() += seconds;
}

PxRequestImp::CascadingTimer::CascadingTimer() {
    if (RequestEngine::timerEnabled()) {
        RequestEngine::timerStartLevel();
        _levelStarted = true;
    }
}

double PxRequestImp::CascadingTimer::stop() {
    if (_running) {
        _running = false;
        if (_levelStarted)
            _elapsed = static_cast<float>(RequestEngine::timerEndLevel());
    }
    return _elapsed;
}

PxRequestImp::CascadingTimer::~CascadingTimer() {
    if (_running)
        stop();
}

bool PxRequestImp::CascadingTimer::isEnabled() {
    return RequestEngine::timerEnabled();
}

void PxRequestImp::CascadingTimer::enable(bool on) {
    VN_ASSERT(PxRequestMgr::getInstance().isWorkerThreadSequential());
    s_timerEnabled.store(on, std::memory_order_relaxed);
    if (on)
        RequestEngine::timerStartLevel();
}

void PxRequestImp::setNbWorkerThreads(int n) {
    RequestMgrImp& m = RequestEngine::mgr();
    if (m.isRunning()) {
        VN_LOG_GROUP(PxGraph, 2,
                     "Could not adjust the number of processing threads because the processing "
                     "engine is already running");
        return;
    }
    m.setNbThreads(std::max(std::min(n, RequestEngine::configuredNbThreads()), 2));
}

// ---- execution ----

namespace {

// Runs one half of a request in a timer level when the timer is on, and reports its failure.
template <class Functor>
OPtr<ExBase> runTimed(Functor& f, double& cpu) {
    bool const timed = RequestEngine::timerEnabled();
    if (timed)
        RequestEngine::timerStartLevel();
    OPtr<ExBase> ex = ExWrapper::execute(f);
    cpu = timed ? RequestEngine::timerEndLevel() : 0.0;
    RequestEngine::reportException(ex.get());
    return ex;
}

// Stores the outcome of an execution and, unless a completion is still pending, wakes the
// waiters and post-executes. The children go when nobody holds the request's list any more.
void finishExecution(PxRequest* request, OPtr<ExBase> ex, double cpu, bool pending, bool addTime) {
    OPtr<StatThreadLocal> stats = StatMgr::releaseLocalStats();
    PxRequest* children = nullptr;
    LkWaitEntry* waiters = nullptr;
    {
        StateGuard g(request->getStateObj());
        do {
            children = nullptr;
            waiters = nullptr;
            g->setStatus(ex ? RS::FAILED : pending ? RS::PENDING : RS::DONE);
            if (childrenMayGo(*g)) {
                children = g->_firstChild;
                g->_firstChild = nullptr;
            }
            g->_stats = stats.get();
            g->_cpuTime = addTime ? g->_cpuTime + cpu : cpu;
            g->_exception = ex.get();
            if (!pending) {
                waiters = g->_waiters;
                g->_waiters = nullptr;
            }
        } while (!g.commit());
    }
    stats.release();
    ex.release();
    // Waiters first: the teardown of a large tree need not delay them.
    RequestEngine::signalAll(waiters);
    PxRequest* spent[RequestEngine::kSpentBatch];
    int const nbSpent = RequestEngine::popSpentChildren(children, spent);
    RequestEngine::detachChildren(children, spent, nbSpent);
    if (!pending)
        RequestEngine::postExecute(request, true);
}

} // namespace

bool RequestEngine::asyncExecute(PxRequest* request) {
    bool pending = request->getResourceType() == GFX;
    if (pending)
        gfxInitialize();
    ExecuteFunctor f{request, pending};
    double cpu = 0.0;
    OPtr<ExBase> ex = runTimed(f, cpu);
    if (ex)
        pending = false;
    finishExecution(request, std::move(ex), cpu, pending, false);
    return pending;
}

bool RequestEngine::completePendingRequest(PxRequest* next) {
    WorkerTLS& tls = workerTLS();
    PxRequest* request = tls._pendingRequest;
    tls._pendingRequest = next;
    if (!request)
        return false;
    dropLeftStatistics("Unexpected statistics found entering PxRequestImp::completePendingRequest: "
                       "they will be flushed and lost");
    RS const first = request->getStateObj().load();
    if (first._stats) {
        // The second half adds to the statistics of the first.
        StateGuard g(request->getStateObj());
        StatThreadLocal* stats = nullptr;
        do {
            stats = g->_stats;
            g->_stats = nullptr;
        } while (!g.commit());
        StatMgr::appendStats(OPtr<StatThreadLocal>(stats));
    }
    WorkScope const scope(tls, request, first.has(RS::EXTERNAL) ? request : first.getRootRequest());
    CompleteExecutionFunctor f{request};
    double cpu = 0.0;
    OPtr<ExBase> ex = runTimed(f, cpu);
    finishExecution(request, std::move(ex), cpu, false, true);
    return true;
}

void RequestEngine::postExecute(PxRequest* request, bool checkStats) {
    PostExecuteFunctor f{request};
    OPtr<ExBase> ex = ExWrapper::execute(f);
    if (ex) {
        VN_LOG_GROUP(PxGraph, 0,
                     "Caught exception: \n"
                         << ex->getDetailedReason() << "\n"
                         << "while invoking the PxRequest::postExecute() member function\n"
                         << "on a request of type : \n"
                         << typeid(*request).name() << "\n"
                         << "Exceptions should never escape from a PxRequest::postExecute() "
                         << "member function.\n"
                         << "Call stack:"
                         << "No call stack available."
                         << "\n");
    }

    enum { KEEP, CLEAN_UP, CLEAN_UP_AND_DESTROY, DESTROY } action = KEEP;
    bool noticed = true;
    {
        StateGuard guard(request->getStateObj());
        do {
            action = KEEP;
            noticed = true;
            bool const released = guard->has(RS::RELEASED);
            bool const free = released && guard->has(RS::DEQUEUED) && isUnreferenced(*guard);
            switch (guard->getStatus()) {
            case RS::DONE:
                if (free) {
                    guard->setStatus(RS::DESTROYED);
                    action = CLEAN_UP_AND_DESTROY;
                } else {
                    guard->setStatus(RS::POST_EXECUTED);
                    action = released ? CLEAN_UP : KEEP;
                }
                break;
            case RS::FAILED:
                if (free) {
                    noticed =
                        guard->isResultQueried() || guard->isCancelled() || guard->isUnwinded();
                    guard->setStatus(RS::DESTROYED);
                    action = DESTROY;
                } else {
                    guard->setStatus(RS::FAILED_POST_EXECUTED);
                }
                break;
            default:
                VN_ABORT("postExecute of a request that has not finished");
            }
        } while (!guard.commit());
    }

    if (checkStats)
        dropLeftStatistics("Unexpected statistics gathered during PxRequestImp::postExecute: they "
                           "will be flushed and lost");
    switch (action) {
    case KEEP:
        break;
    case CLEAN_UP:
        cleanUp(request);
        break;
    case CLEAN_UP_AND_DESTROY:
        request->performCleanUp();
        delete request;
        dropLeftStatistics(nullptr);
        break;
    case DESTROY:
        delete request;
        dropLeftStatistics(nullptr);
        break;
    }
    // Raised only after the request is disposed of, so that nothing leaks on this path.
    if (!noticed)
        failureUnnoticed(__FILE__, __LINE__);
    if (ex)
        ExRethrow<ExBase>(__FILE__, __LINE__, ex->clone()).raise();
}

void RequestEngine::cleanUp(PxRequest* request) {
    request->performCleanUp();
    bool destroy = false;
    bool noticed = true;
    {
        StateGuard guard(request->getStateObj());
        do {
            destroy = false;
            noticed = true;
            if (guard->has(RS::DEQUEUED)) {
                noticed = guard->isResultQueried() || guard->isCancelled() || guard->isUnwinded();
                if (isUnreferenced(*guard)) {
                    guard->setStatus(RS::DESTROYED);
                    destroy = true;
                }
            }
            if (!destroy)
                guard->setStatus(RS::CLEANED_UP);
        } while (!guard.commit());
    }
    if (destroy)
        delete request;
    if (!noticed)
        failureUnnoticed(__FILE__, __LINE__);
}

// Iterative, whatever the depth of the tree: a child's own list, once taken, is spliced in front
// of the siblings still to go. The list's references keep its nodes alive while it is walked.
void RequestEngine::detachChildren(PxRequest* head, PxRequest* const* dequeued, int nbDequeued) {
    while (head) {
        PxRequest* const child = head;
        PxRequest* grandChildren = nullptr;
        bool destroy = false;
        bool noticed = true;
        bool const wasDequeued =
            std::find(dequeued, dequeued + nbDequeued, child) != dequeued + nbDequeued;
        {
            StateGuard g(child->getStateObj());
            do {
                head = g->_nextSibling;
                g->_nextSibling = nullptr;
                grandChildren = nullptr;
                destroy = false;
                noticed = true;
                --g->_nbReferences;
                g->clear(RS::IN_CHILD_LIST);
                if (wasDequeued)
                    g->set(RS::DEQUEUED);
                if (g->_nbReferences == 0) {
                    grandChildren = g->_firstChild;
                    g->_firstChild = nullptr;
                    RS::Status const st = g->getStatus();
                    if ((st == RS::CLEANED_UP || st == RS::FAILED_POST_EXECUTED) &&
                        g->has(RS::DEQUEUED) && g->has(RS::RELEASED) && g->getNbHolds() == 0) {
                        noticed = g->isResultQueried() || g->isCancelled() || g->isUnwinded();
                        g->setStatus(RS::DESTROYED);
                        destroy = true;
                    }
                }
            } while (!g.commit());
        }
        if (destroy)
            delete child;
        // The last holder of a finished child's list lets it go: the check the other ends make.
        if (!noticed)
            logFailureUnnoticed(__FILE__, __LINE__);
        if (grandChildren) {
            if (head) {
                PxRequest* tail = grandChildren;
                while (PxRequest* next = LkAtomicRdGuard<RS>(tail->getStateObj())->_nextSibling)
                    tail = next;
                StateGuard g(tail->getStateObj());
                do {
                    g->_nextSibling = head;
                } while (!g.commit());
            }
            head = grandChildren;
        }
    }
}

bool RequestEngine::helpWithChildren(PxRequest* list) {
    // The walk nests once per level of the tree it helps with; near the end of the stack the
    // worker waits instead.
    if (nearStackEnd())
        return false;
    WorkerTLS& tls = workerTLS();
    bool ran = false;
    // Deep first: the subtrees of children that are running.
    for (PxRequest* c = list; c;) {
        PxRequest* grandChildren = nullptr;
        PxRequest* next = nullptr;
        {
            StateGuard g(c->getStateObj());
            do {
                next = g->_nextSibling;
                grandChildren = nullptr;
                RS::Status const st = g->getStatus();
                if ((st == RS::EXECUTING || st == RS::PENDING) && g->_firstChild) {
                    grandChildren = g->_firstChild;
                    ++g->_nbReferences;
                } else {
                    break;
                }
            } while (!g.commit());
        }
        if (grandChildren) {
            ran |= helpWithChildren(grandChildren);
            PxRequest* detach = nullptr;
            StateGuard g(c->getStateObj());
            do {
                detach = nullptr;
                --g->_nbReferences;
                if (childrenMayGo(*g)) {
                    detach = g->_firstChild;
                    g->_firstChild = nullptr;
                }
            } while (!g.commit());
            detachChildren(detach);
        }
        c = next;
    }

    PxRequest* const savedExternal = tls._currentExternalRequest;
    WorkScope const outside(tls, tls._currentRequest, nullptr);
    for (PxRequest* c = list; c;) {
        bool take = false;
        PxRequest* next = nullptr;
        {
            StateGuard g(c->getStateObj());
            do {
                next = g->_nextSibling;
                take = g->getStatus() == RS::QUEUED &&
                       (c->getResourceType() != GFX || tls._resourceType == GFX);
                if (!take)
                    break;
                g->setStatus(RS::EXECUTING);
            } while (!g.commit());
        }
        if (take) {
            bool pending = false;
            {
                WorkScope const scope(tls, c, savedExternal);
                pending = asyncExecute(c);
            }
            if (pending)
                completePendingRequest(c);
            ran = true;
        }
        c = next;
    }
    return ran;
}

// ---- waiting ----

void RequestEngine::wait(PxRequest* request, bool rethrow) {
    VN_ASSERT(request != nullptr);
    WorkerTLS& tls = workerTLS();
    LkWaitEntry& me = LkWaitEntry::getEntry();
    bool const isWorker = tls._isWorker;
    bool const isGfxWorker = isWorker && tls._resourceType == GFX;
    bool const isGfxRequest = request->getResourceType() == GFX;

    enum { RUN_INLINE, SLEEP, HELP, TAKE, COMPLETE_PENDING } action = SLEEP;
    StatThreadLocal* stats = nullptr;
    double time = 0.0;
    ExBase const* failure = nullptr;
    PxRequest* helpList = nullptr;

    for (;;) {
        {
            StateGuard g(request->getStateObj());
            for (;;) {
                bool commitNeeded = true;
                stats = nullptr;
                time = 0.0;
                failure = nullptr;
                helpList = nullptr;
                switch (g->getStatus()) {
                case RS::QUEUED:
                    if (!g->has(RS::EXTERNAL) && (isGfxWorker || !isGfxRequest)) {
                        g->setStatus(RS::EXECUTING);
                        action = RUN_INLINE;
                    } else if (isGfxWorker && tls._pendingRequest) {
                        action = COMPLETE_PENDING;
                        commitNeeded = false;
                    } else {
                        LkSListNode::push(g->_waiters, &me);
                        action = SLEEP;
                    }
                    break;
                case RS::EXECUTING:
                case RS::PENDING:
                    if (threadCooperation() && isWorker && g->_firstChild) {
                        ++g->_nbReferences;
                        helpList = g->_firstChild;
                        action = HELP;
                    } else if (isGfxWorker && tls._pendingRequest) {
                        action = COMPLETE_PENDING;
                        commitNeeded = false;
                    } else {
                        LkSListNode::push(g->_waiters, &me);
                        action = SLEEP;
                    }
                    break;
                case RS::DONE:
                case RS::POST_EXECUTED:
                case RS::FAILED:
                case RS::FAILED_POST_EXECUTED:
                    action = TAKE;
                    if (!g->has(RS::EXTERNAL)) {
                        stats = g->_stats;
                        g->_stats = nullptr;
                    }
                    time = g->_cpuTime;
                    g->_cpuTime = 0.0;
                    failure = g->_exception;
                    if (!stats && !(time > 0.0) && g->isResultQueried())
                        commitNeeded = false;
                    else
                        g->set(RS::RESULT_QUERIED);
                    break;
                default:
                    VN_ABORT("Waiting for a request that was never submitted or is gone");
                }
                if (!commitNeeded || g.commit())
                    break;
            }
        }

        if (action == RUN_INLINE) {
            WorkScope const scope(tls, request, tls._currentExternalRequest);
            if (isGfxRequest)
                gfxInitialize();
            ExecuteFunctor f{request, false};
            OPtr<ExBase> ex = ExWrapper::execute(f);
            reportException(ex.get());
            PxRequest* children = nullptr;
            LkWaitEntry* waiters = nullptr;
            {
                StateGuard g(request->getStateObj());
                do {
                    children = nullptr;
                    g->setStatus(ex ? RS::FAILED : RS::DONE);
                    g->_exception = ex.get();
                    g->set(RS::RESULT_QUERIED);
                    waiters = g->_waiters;
                    g->_waiters = nullptr;
                    if (childrenMayGo(*g)) {
                        children = g->_firstChild;
                        g->_firstChild = nullptr;
                    }
                } while (!g.commit());
            }
            // The request is the engine's again once post-executed: another owner may have released
            // it, so what is raised is copied now.
            OPtr<ExBase> raised = ex && rethrow ? OPtr<ExBase>(ex->clone()) : OPtr<ExBase>();
            ex.release();
            signalAll(waiters);
            PxRequest* spent[kSpentBatch];
            int const nbSpent = popSpentChildren(children, spent);
            detachChildren(children, spent, nbSpent);
            postExecute(request, false);
            if (raised)
                raiseFromWait(std::move(raised));
            return;
        }

        if (action == HELP) {
            for (;;) {
                bool const ran = helpWithChildren(helpList);
                PxRequest* detach = nullptr;
                bool again = false;
                StateGuard g(request->getStateObj());
                for (;;) {
                    detach = nullptr;
                    again = false;
                    stats = nullptr;
                    time = 0.0;
                    failure = nullptr;
                    RS::Status const st = g->getStatus();
                    if (st == RS::EXECUTING || st == RS::PENDING) {
                        if (ran) {
                            // Something was done: look at the children again.
                            helpList = g->_firstChild;
                            again = true;
                            break;
                        }
                        --g->_nbReferences;
                        if (isGfxWorker && tls._pendingRequest) {
                            action = COMPLETE_PENDING;
                        } else {
                            LkSListNode::push(g->_waiters, &me);
                            action = SLEEP;
                        }
                    } else {
                        --g->_nbReferences;
                        if (childrenMayGo(*g)) {
                            detach = g->_firstChild;
                            g->_firstChild = nullptr;
                        }
                        if (!g->has(RS::EXTERNAL)) {
                            stats = g->_stats;
                            g->_stats = nullptr;
                        }
                        time = g->_cpuTime;
                        g->_cpuTime = 0.0;
                        failure = g->_exception;
                        g->set(RS::RESULT_QUERIED);
                        action = TAKE;
                    }
                    if (g.commit())
                        break;
                }
                if (again)
                    continue;
                detachChildren(detach);
                break;
            }
        }

        if (action == COMPLETE_PENDING) {
            // What the GFX worker holds pending completes only on this thread: finish it before
            // sleeping, or a wait on it, direct or through other workers, would never end. It is
            // done before this wait's entry is listed anywhere, since the completion may wait
            // too, and with the statistics of the request now running set aside.
            OPtr<StatThreadLocal> mine = StatMgr::releaseLocalStats();
            completePendingRequest(nullptr);
            if (mine)
                StatMgr::appendStats(std::move(mine));
            continue;
        }

        if (action == SLEEP) {
            if (isWorker) {
                // A short wait is spent spinning, still counted as running: giving the running
                // slot away and taking it back costs two engine commits and, often, a wake-up.
                if (!spinForSignal(me)) {
                    mgr().workerBlocked();
                    me.wait();
                    mgr().workerUnblocked();
                }
            } else {
                mgr()._nbExternalWaits.fetch_add(1, std::memory_order_relaxed);
                me.wait();
            }
            continue; // take the result
        }
        break; // TAKE
    }

    if (time > 0.0 && timerEnabled())
        timerAddToTop(time);
    if (stats)
        StatMgr::appendStats(OPtr<StatThreadLocal>(stats));
    if (failure && rethrow)
        raiseFromWait(failure->clone());
}

void RequestMgrImp::waitRequest(PxRequest* request) {
    RequestEngine::wait(request, true);
}

// ---- release ----

void RequestMgrImp::releaseRequest(PxRequest* request) {
    VN_ASSERT(request != nullptr);
    bool const unwinding = std::uncaught_exceptions() > 0;
    // A request already post-executed is the owner's alone to clean up: doing it before the
    // release lets one commit both release it and record the clean-up.
    bool cleanedUp = false;
    if (LkAtomicRdGuard<RS>(request->getStateObj())->getStatus() == RS::POST_EXECUTED) {
        request->performCleanUp();
        cleanedUp = true;
    }
    for (;;) {
        enum { NOTHING, WAIT, CLEAN_UP, CLEAN_UP_AND_DESTROY, DESTROY } action = NOTHING;
        bool noticed = true;
        {
            StateGuard guard(request->getStateObj());
            do {
                action = NOTHING;
                noticed = true;
                if (unwinding)
                    guard->set(RS::UNWINDED);
                bool const dequeued = guard->has(RS::DEQUEUED);
                bool const referenced = !isUnreferenced(*guard);
                switch (guard->getStatus()) {
                case RS::NEW:
                    // Never submitted: nobody else knows it.
                    guard->set(RS::RELEASED);
                    guard->setStatus(RS::DESTROYED);
                    action = DESTROY;
                    break;
                case RS::QUEUED:
                case RS::EXECUTING:
                case RS::PENDING:
                    if (guard->isUnwinded() && !guard->has(RS::EXTERNAL))
                        action = WAIT;
                    else
                        guard->set(RS::RELEASED);
                    break;
                case RS::DONE:
                case RS::FAILED:
                    guard->set(RS::RELEASED);
                    break;
                case RS::POST_EXECUTED:
                    guard->set(RS::RELEASED);
                    if (cleanedUp) {
                        // As when the clean-up follows the release: the check only for a
                        // request that something still holds.
                        if (dequeued && !referenced) {
                            guard->setStatus(RS::DESTROYED);
                            action = DESTROY;
                        } else {
                            if (dequeued)
                                noticed = guard->isResultQueried() || guard->isCancelled() ||
                                          guard->isUnwinded();
                            guard->setStatus(RS::CLEANED_UP);
                        }
                    } else if (!dequeued || referenced) {
                        action = CLEAN_UP;
                    } else {
                        guard->setStatus(RS::DESTROYED);
                        action = CLEAN_UP_AND_DESTROY;
                    }
                    break;
                case RS::FAILED_POST_EXECUTED:
                    guard->set(RS::RELEASED);
                    if (dequeued)
                        noticed =
                            guard->isResultQueried() || guard->isCancelled() || guard->isUnwinded();
                    if (!referenced && dequeued) {
                        guard->setStatus(RS::DESTROYED);
                        action = DESTROY;
                    }
                    break;
                default:
                    VN_ABORT("Release of a request that is already released");
                }
            } while (!guard.commit());
        }
        switch (action) {
        case WAIT:
            RequestEngine::wait(request, false);
            continue;
        case CLEAN_UP:
            RequestEngine::cleanUp(request);
            break;
        case CLEAN_UP_AND_DESTROY:
            request->performCleanUp();
            delete request;
            break;
        case DESTROY:
            delete request;
            break;
        case NOTHING:
            break;
        }
        if (!noticed && !unwinding)
            RequestEngine::failureUnnoticed(__FILE__, __LINE__);
        return;
    }
}

} // namespace Vn

#pragma once

// Internals shared by the engine's scheduler (RequestMgrImp.cpp) and the execution of one
// request (PxRequestImp.cpp).

#include "PxRequest.h"
#include "RequestMgrImp.h"

namespace Vn {

class ExBase;

// One step of a short busy wait.
inline void spinPause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

// What the engine knows of the calling thread. All zero on threads outside the pool.
struct WorkerTLS {
    // External requests a CPU worker takes at most with one lock and one commit.
    static constexpr int kTakeBatch = 16;

    bool _isWorker;
    int _resourceType;
    PxRequest* _currentExternalRequest;
    PxRequest* _currentRequest;
    PxRequest* _pendingRequest;
    int _blockedCount;
    // External requests taken off the queue with the one run last and not run yet, oldest
    // first. The worker stays counted as running until it has run them.
    PxRequest* _taken[kTakeBatch];
    int _takenHead;
    int _nbTaken;

    PxRequest* getPendingRequest() const noexcept { return _pendingRequest; }
    // What must hold when a thread leaves the engine.
    void checkExit() const;
};

// Runs alone, after everything submitted before it: sync() waits for it.
class SyncRequest final : public PxRequest {
public:
    RequestType getRequestType() const override { return RequestType(SEQUENTIAL, REFERENCED, CPU); }
    void performExecute() override {}
};

WorkerTLS& workerTLS() noexcept;

// Sets what the calling thread works on and puts back what was there, however the scope ends:
// a post-execution that lets a failure out must not leave the thread pointing at a request.
class WorkScope {
public:
    WorkScope(WorkerTLS& tls, PxRequest* current, PxRequest* external) noexcept
        : _tls(tls), _savedCurrent(tls._currentRequest),
          _savedExternal(tls._currentExternalRequest) {
        tls._currentRequest = current;
        tls._currentExternalRequest = external;
    }
    WorkScope(WorkScope const&) = delete;
    WorkScope& operator=(WorkScope const&) = delete;
    ~WorkScope() {
        _tls._currentRequest = _savedCurrent;
        _tls._currentExternalRequest = _savedExternal;
    }

private:
    WorkerTLS& _tls;
    PxRequest* const _savedCurrent;
    PxRequest* const _savedExternal;
};

struct RequestEngine {
    static constexpr int CPU = PxRequest::CPU;
    static constexpr int GFX = PxRequest::GFX;

    static RequestMgrImp& mgr() noexcept;
    // Made and destroyed by the processing package.
    static void initializeEngine();
    static void finalizeEngine();
    static int configuredNbThreads() noexcept;
    // Takes and runs the next request of the calling worker; false when there was none.
    static bool runNext(WorkerTLS& tls);
    static bool threadCooperation() noexcept;
    // Measures the calling worker's stack once, at its start; forget when it ends.
    static void noteWorkerStack() noexcept;
    static void forgetWorkerStack() noexcept;

    // Execution of one request on a worker; true when its completion is pending (GFX).
    static bool asyncExecute(PxRequest* request);
    // Swaps next in as the GFX worker's pending request and completes the one it replaces;
    // true when something was completed.
    static bool completePendingRequest(PxRequest* next);
    static void postExecute(PxRequest* request, bool checkStats);
    static void cleanUp(PxRequest* request);
    // Lets a finished request's children go. The first nbDequeued of `dequeued` were taken off
    // a stack on the way: they are marked so in the same commit.
    static void detachChildren(PxRequest* head, PxRequest* const* dequeued = nullptr,
                               int nbDequeued = 0);
    static constexpr int kSpentBatch = 32;
    // Takes the entries of a finished request's children that its waits already ran off the top
    // of the CPU stack, in one commit, while its list still holds them; they are the first
    // entries of `children`. Returns how many, at most kSpentBatch, stored in `spent`.
    static int popSpentChildren(PxRequest* children, PxRequest** spent);
    // A descendant's hold keeps its root alive; the last one to go may delete it.
    static void holdRoot(PxRequest* root);
    static void dropHold(PxRequest* root) noexcept;
    // Gives back the holds the calling worker keeps for later descendants; before it parks.
    static void flushHolds() noexcept;
    // Frees what a dying request still owns; also when the engine is already gone.
    static void disposeState(PxRequest& request) noexcept;
    static bool helpWithChildren(PxRequest* list);
    // The wait of waitRequest; with rethrow it raises the request's failure.
    static void wait(PxRequest* request, bool rethrow);
    static void signalAll(LkWaitEntry* waiters) noexcept;
    static void reportException(ExBase const* e);
    // Drops statistics a request's code left behind on this thread, logging `message` if any.
    static void dropLeftStatistics(char const* message);
    // The GFX worker's one-time initialisation before its first GFX request.
    static void gfxInitialize();
    static void gfxWorkerStarted();
    static void gfxWorkerEnded();
    // Timer levels of the calling thread.
    static void timerStartLevel();
    static double timerEndLevel();
    static void timerAddToTop(double seconds);
    static bool timerEnabled() noexcept;
    [[noreturn]] static void failureUnnoticed(char const* file, int line);
    // The same check where raising would leave a teardown half done: it is logged as a worker
    // logs an internal failure.
    static void logFailureUnnoticed(char const* file, int line) noexcept;
};

} // namespace Vn

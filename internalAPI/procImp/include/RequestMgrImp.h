#pragma once

#include "DaMemPool.h"
#include "LkAtomicObj.h"
#include "LkLock.h"
#include "LkSema.h"
#include "LkWaitEntry.h"
#include "MtThreadPool.h"
#include "PxRequest.h"
#include "PxRequestMgr.h"
#include "RtPriorities.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace Vn {

// The processing engine: a fixed pool of workers and the queues that feed them. Scheduling takes
// no lock: every decision is a commit on one copy-on-write EngineState. Only the ordered queue of
// external requests has a lock.
class VN_EXPORT RequestMgrImp final : public PxRequestMgr, public MtThreadPool {
public:
    static constexpr int kMaxThreads = 128;
    enum State : std::int32_t {
        UNINITIALIZED = 0,
        IDLE = 1,
        RUNNING = 2,
        DRAINING = 3,
        SEQUENTIAL = 4,
        SHUTTING_DOWN = 5,
    };

    // A stack linked through its nodes' own LkSListNode; copies of the state share the nodes.
    template <class N>
    struct Stack {
        N* _top;
        bool isEmpty() const noexcept { return _top == nullptr; }
        N* top() const noexcept { return _top; }
        void push(N* n) noexcept { LkSListNode::push(_top, n); }
        N* pop() noexcept { return LkSListNode::pop(_top); }
    };

    // Workers whose blocking wait ended and that wait for a running slot, first in first out.
    // As large as the largest pool, so it cannot overflow.
    struct Ring {
        std::uint32_t _head;
        std::uint32_t _count;
        LkWaitEntry* _entries[kMaxThreads];
        bool isEmpty() const noexcept { return _count == 0; }
        void pushBack(LkWaitEntry* e) noexcept {
            _entries[(_head + _count) % kMaxThreads] = e;
            ++_count;
        }
        LkWaitEntry* popFront() noexcept {
            LkWaitEntry* e = _entries[_head];
            _head = (_head + 1) % kMaxThreads;
            --_count;
            return e;
        }
    };

    // The ring's entries come last: a commit copies them only while the ring holds a worker,
    // which keeps the common commit to two cache lines.
    struct EngineState {
        std::int32_t _state;
        Stack<PxRequest> _internalRequests[2];
        std::int32_t _nbExternalRequests;
        PxRequest* _pendingSeqRequest;
        Stack<LkWaitEntry> _stoppedWorkers[2];
        std::int32_t _nbRunningWorkers;
        std::int32_t _nbBlockedWorkers;
        std::int32_t _maxRunningWorkers;
        Ring _unBlockedWorkers;

        static std::size_t const kHeadBytes;
        static std::size_t getLiveBytes(EngineState const& s) noexcept {
            return s._unBlockedWorkers._count ? sizeof(EngineState) : kHeadBytes;
        }
    };

    // Counts read from one snapshot, for tests and monitors.
    struct Snapshot {
        State state;
        int nbRunningWorkers;
        int nbBlockedWorkers;
        int nbRingWorkers;
        int nbExternalRequests;
        int maxRunningWorkers;
        bool internalQueuesEmpty;
        bool hasPendingSequential;
    };

    // The process-wide memory pool of requests and their states.
    static DaMemPool& getMemPool();

    RequestMgrImp(bool keepOnProcessor, int nbThreads, int maxRunningWorkers);
    // Shuts down if shutdown() was not called; a failed check is then only reported.
    ~RequestMgrImp() override;
    // Runs what is queued, stops the workers and checks that nothing is left behind.
    void shutdown();

    void setMaxRunningWorkers(int n) override;
    int getMaxRunningWorkers() const override;
    bool isWorkerThreadCurrent() const override;
    bool isWorkerThreadSequential() const override;
    bool isWorkerThreadBlocked() const override;
    MtThreadPool& getThreadPool() override { return *this; }
    void sync() override;
    void checkCancelled() const override;
    bool isCancelled() const override;
    void recordStatistics() override;
    void initRequest(PxRequest& request) override;
    void destroyRequest(PxRequest& request) override;
    void releaseRequest(PxRequest* request) override;
    void executeRequest(PxRequest* request, bool executeManually) override;
    void waitRequest(PxRequest* request) override;
    void cancelRequest(PxRequest* request) override;
    OPtrRet<StatThreadLocal> takeRequestStats(PxRequest* request) override;
    void workerBlocked() override;
    void workerUnblocked() override;
    void* allocate(std::size_t size) override;
    void deallocate(void* p, std::size_t size) override;

    // Pool size; only while the pool does not run. Values above 128 are cut with a log line.
    void setNbThreads(int n);
    int getNbThreadsWanted() const noexcept { return static_cast<int>(_nbThreads); }
    bool areWorkersStarted() const noexcept { return _workersStarted.load(); }
    Snapshot getSnapshot() const;
    // Requests allocated and not yet freed.
    long getNbLiveRequests() const noexcept;

protected:
    void main(int threadIndex) override;
    void notifyStop() override;

private:
    friend struct RequestEngine;
    void startWorkers();
    int clampMaxRunning(int n, bool poolRuns) const;

    alignas(64) LkAtomicObj<EngineState> _engine;
    // CPU workers between two requests that will read the state again before they park. A
    // submission leaves the parked workers asleep while there is one of these for each untaken
    // external request. On the state word's line: a submission reads both.
    std::atomic<std::int32_t> _nbLookingWorkers{0};
    LkLock _workerInitLock{"PxRequestMgr::_workerInitLock"};
    LkSema _workerInitSema{"PxRequestMgr::_workerInitSema", 0};
    std::atomic<bool> _workersStarted{false};
    LkLock _externalRequestsLock{"PxRequestMgr::_externalRequestsLock"};
    std::deque<PxRequest*> _externalRequests;
    std::int32_t _nbExternalRequestsTotal = 0;
    // Counted without the lock: an outside thread about to sleep takes no lock for it.
    std::atomic<std::int32_t> _nbExternalWaits{0};
    PriorityRelation _priorityRelation{"PxRequestMgr", 2};
    std::uint32_t _nbThreads = kMaxThreads;
    bool _shutDown = false;
    // The process's count of live requests when this engine was made: requests are counted per
    // thread, for the whole process.
    long _nbLiveRequestsBefore = 0;
};

inline constexpr std::size_t RequestMgrImp::EngineState::kHeadBytes =
    offsetof(RequestMgrImp::EngineState, _unBlockedWorkers) +
    offsetof(RequestMgrImp::Ring, _entries);

} // namespace Vn

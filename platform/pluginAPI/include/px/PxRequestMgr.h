#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <cstddef>

namespace Vn {

class MtThreadPool;
class PxRequest;
class StatThreadLocal;

// The processing engine's public face. The engine library supplies the one instance at start.
class VN_EXPORT PxRequestMgr {
public:
    // Takes ownership.
    static void initialize(PxRequestMgr* mgr);
    // Destroys the instance.
    static void finalize();
    static PxRequestMgr& getInstance();
    static bool isInitialized() noexcept;

    virtual void setMaxRunningWorkers(int n) = 0;
    virtual int getMaxRunningWorkers() const = 0;
    virtual bool isWorkerThreadCurrent() const = 0;
    virtual bool isWorkerThreadSequential() const = 0;
    virtual bool isWorkerThreadBlocked() const = 0;
    virtual MtThreadPool& getThreadPool() = 0;
    // Returns when everything submitted before has run.
    virtual void sync() = 0;
    // Raises PxEx::ExRequestCancelled when the current tree is cancelled.
    virtual void checkCancelled() const = 0;
    virtual bool isCancelled() const = 0;
    virtual void recordStatistics() = 0;
    virtual ~PxRequestMgr();
    virtual void initRequest(PxRequest& request) = 0;
    virtual void destroyRequest(PxRequest& request) = 0;
    virtual void releaseRequest(PxRequest* request) = 0;
    virtual void executeRequest(PxRequest* request, bool executeManually) = 0;
    // Raises what the request raised.
    virtual void waitRequest(PxRequest* request) = 0;
    virtual void cancelRequest(PxRequest* request) = 0;
    virtual OPtrRet<StatThreadLocal> takeRequestStats(PxRequest* request) = 0;
    virtual void workerBlocked() = 0;
    virtual void workerUnblocked() = 0;
    virtual void* allocate(std::size_t size) = 0;
    virtual void deallocate(void* p, std::size_t size) = 0;

protected:
    PxRequestMgr() = default;
};

// Wraps a wait on a lock or on I/O inside a request: the worker's running slot goes to another
// worker while this one sleeps. Does nothing off the pool or when already inside such a wait.
class VN_EXPORT PxWorkerBlockingGuard {
public:
    PxWorkerBlockingGuard();
    PxWorkerBlockingGuard(PxWorkerBlockingGuard const&) = delete;
    PxWorkerBlockingGuard& operator=(PxWorkerBlockingGuard const&) = delete;
    ~PxWorkerBlockingGuard();

private:
    int _blockedCount = 0;
};

} // namespace Vn

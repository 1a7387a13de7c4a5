#include "PxRequest.h"
#include "Assertions.h"
#include "ExBase.h"
#include "PxRequestMgr.h"

#include <atomic>

namespace Vn {

namespace {
std::atomic<PxRequestMgr*> s_instance{nullptr};
std::atomic<PxRequestOrphans::DisposeFn> s_orphanDispose{nullptr};
std::atomic<PxRequestOrphans::FreeFn> s_orphanFree{nullptr};
} // namespace

void PxRequestOrphans::set(DisposeFn dispose, FreeFn free) noexcept {
    s_orphanDispose.store(dispose, std::memory_order_release);
    s_orphanFree.store(free, std::memory_order_release);
}

PxRequest::PxRequest() : _state(PxRequestState{}) {
    PxRequestMgr::getInstance().initRequest(*this);
}

// A request may outlive the engine when its owner lets it go late: it is then freed quietly.
PxRequest::~PxRequest() {
    if (PxRequestMgr* mgr = s_instance.load(std::memory_order_acquire))
        mgr->destroyRequest(*this);
    else if (auto dispose = s_orphanDispose.load(std::memory_order_acquire))
        dispose(*this);
}

PxRequest::RequestType PxRequest::getRequestType() const {
    return RequestType();
}
PxRequest::PriorityLevel PxRequest::getPriorityLevel() const {
    return 0;
}
void PxRequest::completeExecution() {}
void PxRequest::postExecute() {}
void PxRequest::performCleanUp() {}

void* PxRequest::operator new(std::size_t size) {
    return PxRequestMgr::getInstance().allocate(size);
}

void PxRequest::operator delete(void* p, std::size_t size) noexcept {
    if (PxRequestMgr* mgr = s_instance.load(std::memory_order_acquire))
        mgr->deallocate(p, size);
    else if (auto free = s_orphanFree.load(std::memory_order_acquire))
        free(p, size);
}

void PxRequestPtrBase::throwNullPtrException() {
    RCExUtil::throwExNullPtr("PxRequest");
}

void PxRequestPtrBase::release(PxRequest* r) {
    if (PxRequestMgr* mgr = s_instance.load(std::memory_order_acquire)) {
        mgr->releaseRequest(r);
        return;
    }
    // The engine is gone, and with it every party that could still hold the request.
    if (r->getStateObj().load().getStatus() == PxRequestState::POST_EXECUTED) {
        try {
            r->performCleanUp();
        } catch (...) {
        }
    }
    delete r;
}

PxRequestMgr::~PxRequestMgr() = default;

void PxRequestMgr::initialize(PxRequestMgr* mgr) {
    VN_ASSERT(mgr != nullptr);
    VN_ASSERT(s_instance.load() == nullptr);
    s_instance.store(mgr, std::memory_order_release);
}

void PxRequestMgr::finalize() {
    PxRequestMgr* mgr = s_instance.load(std::memory_order_acquire);
    if (!mgr)
        return;
    delete mgr;
    s_instance.store(nullptr, std::memory_order_release);
}

PxRequestMgr& PxRequestMgr::getInstance() {
    PxRequestMgr* mgr = s_instance.load(std::memory_order_acquire);
    if (!mgr) [[unlikely]]
        throw ExInternalError(__FILE__, __LINE__, "The processing engine is not started");
    return *mgr;
}

bool PxRequestMgr::isInitialized() noexcept {
    return s_instance.load(std::memory_order_acquire) != nullptr;
}

PxWorkerBlockingGuard::PxWorkerBlockingGuard() {
    VN_ASSERT(_blockedCount == 0);
    if (!PxRequestMgr::isInitialized())
        return;
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    if (mgr.isWorkerThreadCurrent() && !mgr.isWorkerThreadBlocked()) {
        mgr.workerBlocked();
        _blockedCount = 1;
    }
}

PxWorkerBlockingGuard::~PxWorkerBlockingGuard() {
    if (_blockedCount)
        PxRequestMgr::getInstance().workerUnblocked();
}

} // namespace Vn

#include "PxRequest.h"
#include "Assertions.h"
#include "ExBase.h"
#include "PxRequestMgr.h"

#include <atomic>

namespace Vn {

PxRequest::PxRequest() : _state(PxRequestState{}) {
    PxRequestMgr::getInstance().initRequest(*this);
}

PxRequest::~PxRequest() {
    PxRequestMgr::getInstance().destroyRequest(*this);
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
    PxRequestMgr::getInstance().deallocate(p, size);
}

void PxRequestPtrBase::throwNullPtrException() {
    RCExUtil::throwExNullPtr("PxRequest");
}

void PxRequestPtrBase::release(PxRequest* r) {
    PxRequestMgr::getInstance().releaseRequest(r);
}

namespace {
std::atomic<PxRequestMgr*> s_instance{nullptr};
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

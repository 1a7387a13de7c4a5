#include "PiOnWorker.h"

#include "PxQueryRequest.h"
#include "PxRequestMgr.h"

namespace Vn {

namespace {
class OnWorkerRequest final : public PxQueryRequest<bool> {
public:
    OnWorkerRequest(std::function<void()> fn, bool sequential)
        : _fn(std::move(fn)), _sequential(sequential) {}
    RequestType getRequestType() const override {
        return _sequential ? RequestType(SEQUENTIAL, REFERENCED, CPU)
                           : PxQueryRequest<bool>::getRequestType();
    }
    void performExecute() override {
        _fn();
        setResult(true);
    }
    void wait() const { waitResult(); }

private:
    std::function<void()> _fn;
    bool _sequential;
};
} // namespace

void piRunOnWorker(std::function<void()> const& fn, bool sequential) {
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    if (mgr.isWorkerThreadCurrent()) {
        fn();
        return;
    }
    PxRequestPtr<OnWorkerRequest> r(new OnWorkerRequest(fn, sequential));
    mgr.executeRequest(r.get(), false);
    r->wait();
}

} // namespace Vn

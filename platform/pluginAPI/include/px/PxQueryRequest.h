#pragma once

#include "PxRequest.h"
#include "PxRequestMgr.h"
#include "PxValidityInterval.h"

#include <atomic>
#include <optional>
#include <utility>

namespace Vn {

template <class T>
class RCShdPtr;
template <class T>
class RCWeakPtr;

// The form shared by query requests: performExecute builds the result in the request, and the
// accessor waits for it first, raising the request's failure in the caller's thread at every
// read. A successful read is remembered, so a second read neither waits nor commits.
template <class R>
class VN_EXPORT PxQueryRequest : public PxRequest {
public:
    void performCleanUp() override { _result.reset(); }

protected:
    R const& waitResult() const {
        if (!_read.load(std::memory_order_acquire)) {
            PxRequestMgr::getInstance().waitRequest(const_cast<PxQueryRequest*>(this));
            _read.store(true, std::memory_order_release);
        }
        return *_result;
    }
    void setResult(R r) { _result.emplace(std::move(r)); }

private:
    std::optional<R> _result;
    // Atomic: a handler told on a worker and the request's owner may both read the result.
    mutable std::atomic<bool> _read{false};
};

// A query whose result holds a counted pointer. Clean-up empties the result rather than destroying
// it, so that it stays readable, null and valid at all times, until the request goes.
template <class P>
class VN_EXPORT PxPointerQueryRequest : public PxQueryRequest<PxResult<P>> {
public:
    void performCleanUp() override { this->setResult(PxResult<P>(P(), PxValidityInterval::FULL)); }
};

// Tells a request's result handler, when it still exists. Post-execution must let nothing out:
// a handler's failure is its own, reported on the standard output and stopped here.
struct VN_EXPORT PxResultHandlers {
    template <class H, class R>
    static void tell(RCWeakPtr<H> const& handler, R const& request) noexcept {
        try {
            if (RCShdPtr<H> h = handler.lock())
                h->execute(request);
        } catch (...) {
            reportCurrentFailure();
        }
    }
    static void reportCurrentFailure() noexcept;
};

// Mutations run alone, after everything submitted before them, and nobody waits for them.
class VN_EXPORT PxMutationRequest : public PxRequest {
public:
    RequestType getRequestType() const override {
        return RequestType(SEQUENTIAL, FIRE_AND_FORGET, CPU);
    }
    // Nobody else reads the result: this marks it read, so that its end is clean.
    void postExecute() override;

    // Submits a new mutation and lets it go.
    static void submit(PxMutationRequest* request);
};

} // namespace Vn

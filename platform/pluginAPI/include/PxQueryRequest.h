#pragma once

#include "PxRequest.h"
#include "PxRequestMgr.h"

#include <optional>
#include <utility>

namespace Vn {

// The form shared by query requests: performExecute builds the result in the request, and the
// accessor waits for it first, raising the request's failure in the caller's thread at every
// read. A successful read is remembered, so a second read neither waits nor commits.
template <class R>
class VN_EXPORT PxQueryRequest : public PxRequest {
public:
    void performCleanUp() override { _result.reset(); }

protected:
    R const& waitResult() const {
        if (!_read) {
            PxRequestMgr::getInstance().waitRequest(const_cast<PxQueryRequest*>(this));
            _read = true;
        }
        return *_result;
    }
    void setResult(R r) { _result.emplace(std::move(r)); }

private:
    std::optional<R> _result;
    mutable bool _read = false;
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

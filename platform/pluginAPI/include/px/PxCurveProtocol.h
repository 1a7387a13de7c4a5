#pragma once

#include "GeCurve.h"
#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"

namespace Vn {

using PxCurveResult = PxResult<RCShdPtr<GeCurve>>;

// A node that gives a function curve at a time.
class VN_EXPORT PxCurveProtocol : public virtual PxNode {
public:
    virtual PxCurveResult getCurve(PxTimeContext const& context) const = 0;
};

// Asks a curve node for its curve at a time.
class VN_EXPORT PxCurveRequest final : public PxPointerQueryRequest<RCShdPtr<GeCurve>> {
public:
    PxCurveRequest(PxUPtr<PxCurveProtocol const> const& node, PxTimeContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getCurve(_context)); }
    PxCurveResult const& getCurve() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxCurveProtocol const> _node;
    PxTimeContext _context;
};

} // namespace Vn

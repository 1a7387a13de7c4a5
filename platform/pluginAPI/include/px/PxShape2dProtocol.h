#pragma once

#include "PmShape2d.h"
#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "RCPvtEngPtr.h"

namespace Vn {

using PxShape2dResult = PxResult<RCPvtEngPtr<PmShape2d>>;

// A node that gives a 2D shape at a time.
class VN_EXPORT PxShape2dProtocol : public virtual PxNode {
public:
    virtual PxShape2dResult getShape(PxTimeContext const& context) const = 0;
};

// Asks a 2D shape node for its shape at a time.
class VN_EXPORT PxShape2dRequest final : public PxPointerQueryRequest<RCPvtEngPtr<PmShape2d>> {
public:
    PxShape2dRequest(PxUPtr<PxShape2dProtocol const> const& node, PxTimeContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getShape(_context)); }
    PxShape2dResult const& getShape() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxShape2dProtocol const> _node;
    PxTimeContext _context;
};

} // namespace Vn

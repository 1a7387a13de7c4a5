#pragma once

#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "SdMaterial.h"

namespace Vn {

using PxMaterialResult = PxResult<RCShdPtr<SdMaterial const>>;

// A node that gives a surface material at a time.
class VN_EXPORT PxMaterialProtocol : public virtual PxNode {
public:
    virtual PxMaterialResult getMaterial(PxTimeContext const& context) const = 0;
};

// Asks a material node for its material at a time.
class VN_EXPORT PxMaterialRequest final : public PxPointerQueryRequest<RCShdPtr<SdMaterial const>> {
public:
    PxMaterialRequest(PxUPtr<PxMaterialProtocol const> const& node, PxTimeContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getMaterial(_context)); }
    PxMaterialResult const& getMaterial() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxMaterialProtocol const> _node;
    PxTimeContext _context;
};

} // namespace Vn

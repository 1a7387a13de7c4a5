#pragma once

#include "GeAffineMatrix.h"
#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "RCBase.h"
#include "SdMesh.h"

namespace Vn {

// What a mesh is asked for: a time, and the placement of the object in the scene.
class VN_EXPORT PxGeometryContext : public PxTimeContext {
public:
    explicit PxGeometryContext(double time = 0.0,
                               GeAffineMatrix3<float> const& placement = GeAffineMatrix3<float>())
        : PxTimeContext(time), _placement(placement) {}
    GeAffineMatrix3<float> const& getPlacement() const noexcept { return _placement; }

private:
    GeAffineMatrix3<float> _placement;
};

using PxGeometryResult = PxResult<RCShdPtr<SdMesh const>>;

// A node that makes a mesh.
class VN_EXPORT PxGeometryProtocol : public virtual PxNode {
public:
    virtual PxGeometryResult getGeometry(PxGeometryContext const& context) const = 0;
};

// Asks a geometry node for its mesh at a time.
class VN_EXPORT PxGeometryRequest final : public PxPointerQueryRequest<RCShdPtr<SdMesh const>> {
public:
    PxGeometryRequest(PxUPtr<PxGeometryProtocol const> const& node,
                      PxGeometryContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getGeometry(_context)); }
    PxGeometryResult const& getGeometry() const { return waitResult(); }
    PxGeometryContext const& getContext() const noexcept { return _context; }

private:
    PxUPtr<PxGeometryProtocol const> _node;
    PxGeometryContext _context;
};

} // namespace Vn

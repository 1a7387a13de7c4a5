#pragma once

#include "GeAffineMatrix.h"
#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"
#include "SdScene.h"

namespace Vn {

// What a 3D object is asked for: a time, and where the object stands in the scene.
class VN_EXPORT PxObject3dContext : public PxTimeContext {
public:
    explicit PxObject3dContext(double time = 0.0,
                               GeAffineMatrix3<float> const& placement = GeAffineMatrix3<float>())
        : PxTimeContext(time), _placement(placement) {}
    GeAffineMatrix3<float> const& getPlacement() const noexcept { return _placement; }

private:
    GeAffineMatrix3<float> _placement;
};

using PxObject3dResult = PxResult<RCShdPtr<SdScene>>;

// A node that gives a 3D object as a scene to draw.
class VN_EXPORT PxObject3dProtocol : public virtual PxNode {
public:
    virtual PxObject3dResult getScene(PxObject3dContext const& context) const = 0;
};

// Asks a 3D object node for its scene at a time.
class VN_EXPORT PxObject3dRequest final : public PxPointerQueryRequest<RCShdPtr<SdScene>> {
public:
    PxObject3dRequest(PxUPtr<PxObject3dProtocol const> const& node,
                      PxObject3dContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getScene(_context)); }
    PxObject3dResult const& getScene() const { return waitResult(); }
    PxObject3dContext const& getContext() const noexcept { return _context; }

private:
    PxUPtr<PxObject3dProtocol const> _node;
    PxObject3dContext _context;
};

} // namespace Vn

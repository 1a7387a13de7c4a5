#pragma once

#include "GeAffineMatrix.h"
#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"

namespace Vn {

// A node that gives a 3D transform at a time.
class VN_EXPORT PxAffineMatrixProtocol : public virtual PxNode {
public:
    virtual PxResult<GeAffineMatrix3<float>> getMatrix(PxTimeContext const& context) const = 0;
};

// A node that gives a 2D transform at a time.
class VN_EXPORT PxAffineMatrix2Protocol : public virtual PxNode {
public:
    virtual PxResult<GeAffineMatrix2<float>> getMatrix(PxTimeContext const& context) const = 0;
};

// Asks a 3D matrix node for its matrix at a time.
class VN_EXPORT PxAffineMatrixRequest final
    : public PxQueryRequest<PxResult<GeAffineMatrix3<float>>> {
public:
    PxAffineMatrixRequest(PxUPtr<PxAffineMatrixProtocol const> const& node,
                          PxTimeContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getMatrix(_context)); }
    PxResult<GeAffineMatrix3<float>> const& getMatrix() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxAffineMatrixProtocol const> _node;
    PxTimeContext _context;
};

// Asks a 2D matrix node for its matrix at a time.
class VN_EXPORT PxAffineMatrix2Request final
    : public PxQueryRequest<PxResult<GeAffineMatrix2<float>>> {
public:
    PxAffineMatrix2Request(PxUPtr<PxAffineMatrix2Protocol const> const& node,
                           PxTimeContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { setResult(_node->getMatrix(_context)); }
    PxResult<GeAffineMatrix2<float>> const& getMatrix() const { return waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxAffineMatrix2Protocol const> _node;
    PxTimeContext _context;
};

} // namespace Vn

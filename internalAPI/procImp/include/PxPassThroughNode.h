#pragma once

#include "LkLock.h"
#include "PxAffineMatrixProtocol.h"
#include "PxCameraProtocol.h"
#include "PxGeometryProtocol.h"
#include "PxMaterialProtocol.h"
#include "PxObject3dProtocol.h"
#include "PxPassThroughProtocol.h"
#include "PxShape2dProtocol.h"
#include "PxStreams.h"
#include "PxValueProtocol.h"

#include <memory>
#include <vector>

namespace Vn {

class PxImageProtocol;
class PxImageFormat;
class PxImageContext;
class PxImageResult;
class PxRODResult;
class PxTimeStreamContext;

// Implements Protocol by forwarding to one child of class Child, which may change. Tells
// subscribed handlers of each invalidation that reaches it.
template <class Protocol, class Child = Protocol>
class VN_EXPORT PxPassThroughBaseNode : public PxPassThroughProtocol, public Protocol {
public:
    using InvalidationInfo = PxPassThroughProtocol::InvalidationInfo;
    using InvalidationHandler = PxPassThroughProtocol::InvalidationHandler;

    // The child must not be null.
    PxPassThroughBaseNode(PxNode::Init const& init, PxStrongHndl<Child const> const& child);
    ~PxPassThroughBaseNode() override;

    void setChild(PxUPtr<PxNode const> const& child) override;
    void addInvalidateCb(RCWeakPtr<InvalidationHandler> const& handler) override;
    void removeInvalidateCb(RCWeakPtr<InvalidationHandler> const& handler) override;
    bool acceptsChild(PxNode const& child) const override {
        return dynamic_cast<Child const*>(&child) != nullptr;
    }
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;

    void setChildTyped(PxUPtr<Child const> const& child);
    PxNodePtr<Child const> const& getChild() const noexcept { return _child; }

protected:
    void init() override;

private:
    PxNodePtr<Child const> _child;
    LkLock _lock{"PxInvalidation callback dispatcher lock"};
    std::unique_ptr<std::vector<RCWeakPtr<InvalidationHandler>>> _dispatcher;
};

// The protocol operations, forwarded to the child.
template <class Protocol, class Base>
class PxForwarding;

// The value protocol, forwarded.
template <class T, class Base>
class VN_EXPORT PxForwarding<PxValueProtocol<T>, Base> : public Base {
public:
    using Base::Base;
    PxResult<T> getValue() const override { return this->getChild()->getValue(); }
};

// The animated value protocol, forwarded.
template <class T, class Base>
class VN_EXPORT PxForwarding<PxAnimValueProtocol<T>, Base> : public Base {
public:
    using Base::Base;
    PxResult<T> getValue(PxTimeContext const& context) const override {
        return this->getChild()->getValue(context);
    }
};

// The graph object ids protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxGraphObjIdsProtocol, Base> : public Base {
public:
    using Base::Base;
    int getNodeId() const override { return this->getChild()->getNodeId(); }
    int getOutputSocketId() const override { return this->getChild()->getOutputSocketId(); }
};

// The 2D matrix protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxAffineMatrix2Protocol, Base> : public Base {
public:
    using Base::Base;
    PxResult<GeAffineMatrix2<float>> getMatrix(PxTimeContext const& context) const override {
        return this->getChild()->getMatrix(context);
    }
};

// The geometry protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxGeometryProtocol, Base> : public Base {
public:
    using Base::Base;
    PxGeometryResult getGeometry(PxGeometryContext const& context) const override {
        return this->getChild()->getGeometry(context);
    }
};

// The camera protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxCameraProtocol, Base> : public Base {
public:
    using Base::Base;
    PxCameraResult getCamera(PxTimeContext const& context) const override {
        return this->getChild()->getCamera(context);
    }
};

// The material protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxMaterialProtocol, Base> : public Base {
public:
    using Base::Base;
    PxMaterialResult getMaterial(PxTimeContext const& context) const override {
        return this->getChild()->getMaterial(context);
    }
};

// The 3D object protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxObject3dProtocol, Base> : public Base {
public:
    using Base::Base;
    PxObject3dResult getScene(PxObject3dContext const& context) const override {
        return this->getChild()->getScene(context);
    }
};

// The 2D shape protocol, forwarded.
template <class Base>
class VN_EXPORT PxForwarding<PxShape2dProtocol, Base> : public Base {
public:
    using Base::Base;
    PxShape2dResult getShape(PxTimeContext const& context) const override {
        return this->getChild()->getShape(context);
    }
};

// Defined with the instances, so that this header need not hold the image protocol's.
template <class Base>
class VN_EXPORT PxForwarding<PxImageProtocol, Base> : public Base {
public:
    using Base::Base;
    PxImageFormat getImageFormat() const override;
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    bool isChainConnected() const override;
    bool producesFullFrames() const override;
    int getNbStreams() const override;
};

// A node that stands for its one child: every protocol operation goes to the child.
template <class Protocol, class Child = Protocol>
class VN_EXPORT PxPassThroughNode
    : public PxForwarding<Protocol, PxPassThroughBaseNode<Protocol, Child>> {
public:
    PxPassThroughNode(PxNode::Init const& init, PxStrongHndl<Child const> const& child);
};

// A pass-through that lets one invalidation through per wave, interval and stream, however
// many ways lead to it.
template <class Protocol>
class VN_EXPORT PxCollapsingPassThroughNode : public PxPassThroughNode<Protocol, Protocol> {
public:
    PxCollapsingPassThroughNode(PxNode::Init const& init,
                                PxStrongHndl<Protocol const> const& child);
    bool propagateAndRemapInvalidation(PxValidityInterval* interval,
                                       PxUPtr<PxNode const> const& from,
                                       int* stream) const override;
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override;

protected:
    // Told of each invalidation this node passes on, before its handlers are.
    virtual void reinitialize(PxValidityInterval const& interval);

private:
    bool alreadyPassed(PxValidityInterval const& interval, int stream) const;
    int _lastId = -1;
    PxValidityInterval _lastInterval = PxValidityInterval::EMPTY;
    PxStreams _streams;
};

// The one node that gives the ids of a tool-graph node and output socket.
class VN_EXPORT PxGraphObjIdsNode final : public PxGraphObjIdsProtocol {
public:
    PxGraphObjIdsNode(PxNode::Init const& init, int nodeId, int outputSocketId)
        : PxNode(init), _nodeId(nodeId), _outputSocketId(outputSocketId) {}
    int getNodeId() const override { return _nodeId; }
    int getOutputSocketId() const override { return _outputSocketId; }

private:
    int _nodeId;
    int _outputSocketId;
};

} // namespace Vn

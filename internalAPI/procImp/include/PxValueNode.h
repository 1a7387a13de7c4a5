#pragma once

#include "PxQueryRequest.h"
#include "PxValueProtocol.h"

namespace Vn {

// A node that holds one value with its interval. Instances: int, double, bool, std::string,
// DtTime, CoRgbColorTyped<float>, CoRgbaColorTyped<float>.
template <class T>
class VN_EXPORT PxValueNode : public PxValueProtocol<T> {
public:
    PxValueNode(PxNode::Init const& init, PxResult<T> value);
    PxResult<T> getValue() const override;
    // Sequential requests only: stores the value and invalidates the parents over all time, on
    // every stream, even when the value is the one held.
    void setValue(PxResult<T> const& value);

private:
    PxResult<T> _value;
};

// A node that holds one value, the same at all times. Instances: int, double, bool, std::string,
// GeVector3<double>, CoRgbColorTyped<float>, CoRgbaColorTyped<float>.
template <class T>
class VN_EXPORT PxAnimValueNode : public PxAnimValueProtocol<T> {
public:
    PxAnimValueNode(PxNode::Init const& init, PxResult<T> value);
    PxResult<T> getValue(PxTimeContext const& context) const override;

protected:
    template <class>
    friend class PxAnimValueSetRequest;
    // Sequential requests only; subclasses may do more.
    virtual void setValue(PxResult<T> value);

private:
    PxResult<T> _value;
};

// A value that never changes. Instances: those of PxAnimValueNode and GeVector2<double>.
template <class T>
class VN_EXPORT PxConstantAnimValueNode final : public PxAnimValueProtocol<T> {
public:
    PxConstantAnimValueNode(PxNode::Init const& init, PxResult<T> value);
    PxResult<T> getValue(PxTimeContext const& context) const override;

private:
    PxResult<T> _value;
};

// Sets a value node's value, as a sequential request sent from the interface thread; a node let
// go before the request runs is left alone.
template <class T>
class VN_EXPORT PxValueSetRequest final : public PxMutationRequest {
public:
    PxValueSetRequest(PxUPtr<PxValueNode<T>> const& node, PxResult<T> value);
    void performExecute() override;

private:
    PxNodePtr<PxValueNode<T>> _node;
    PxResult<T> _value;
};

// Sets an animated value node's value, as a sequential request sent from the interface thread.
template <class T>
class VN_EXPORT PxAnimValueSetRequest final : public PxMutationRequest {
public:
    PxAnimValueSetRequest(PxUPtr<PxAnimValueNode<T>> const& node, PxResult<T> value);
    void performExecute() override;

private:
    PxNodePtr<PxAnimValueNode<T>> _node;
    PxResult<T> _value;
};

// Calls a member function of a node with a stored argument, then invalidates the node over the
// stored interval on every stream, unless the member started a wave itself: one change, one wave.
template <class Node, class Arg>
class PxSetRequest final : public PxMutationRequest {
public:
    using Method = void (Node::*)(Arg const&);
    PxSetRequest(PxUPtr<Node> const& node, Method method, Arg arg,
                 PxValidityInterval const& interval = PxValidityInterval::FULL)
        : _node(node), _method(method), _arg(std::move(arg)), _interval(interval) {
        if (!node)
            RCExUtil::throwExNullPtr(typeid(Node).name());
    }
    void performExecute() override {
        if (_node->getStrongCount() == 0)
            return; // let go before the request ran
        int const before = PxNode::getInvalidationId();
        ((*_node).*_method)(_arg);
        if (PxNode::getInvalidationId() == before)
            _node->invalidate(_interval, -2);
    }

private:
    PxNodePtr<Node> _node;
    Method _method;
    Arg _arg;
    PxValidityInterval _interval;
};

} // namespace Vn

#pragma once

#include "PiValueInterface.h"
#include "PxValueProtocol.h"
#include "RCPvtEngPtr.h"
#include "TcTimeCurve.h"
#include "VnExport.h"

namespace Vn {

// What a value controller sends its processing node: the constant value, the curve, and
// whether the curve is in force.
template <class T>
struct VN_EXPORT ValData {
    T value{};
    RCPvtEngPtr<TcTimeCurve> curve;
    bool isAnimated = false;
};

// A parameter on the workers: its constant value, or its curve evaluated at the time asked,
// valid over the span in which the curve cannot change.
template <class T>
class VN_EXPORT PiProcAnimValueNode final : public PxAnimValueProtocol<T> {
public:
    PiProcAnimValueNode(PxNode::Init const& init, ValData<T> data);
    PxResult<T> getValue(PxTimeContext const& context) const override;
    // Sequential requests only.
    void setData(ValData<T> const& data);

private:
    ValData<T> _data;
};

// A value controller's change held back while changes accumulate: the triple for its node.
template <class T>
class VN_EXPORT SetValueFunctor final : public PiAnimInterface::ChangeFunctor {
public:
    SetValueFunctor(PxUPtr<PiProcAnimValueNode<T>> const& node, ValData<T> data)
        : _node(node), _data(std::move(data)) {
        if (!node)
            RCExUtil::throwExNullPtr(typeid(PiProcAnimValueNode<T>).name());
    }
    void run() override { _node->setData(_data); }
    PxNode const* getNode() const override { return _node.get(); }

private:
    PxNodePtr<PiProcAnimValueNode<T>> _node;
    ValData<T> _data;
};

extern template class PiProcAnimValueNode<bool>;
extern template class PiProcAnimValueNode<int>;
extern template class PiProcAnimValueNode<double>;
extern template class PiProcAnimValueNode<std::string>;

} // namespace Vn

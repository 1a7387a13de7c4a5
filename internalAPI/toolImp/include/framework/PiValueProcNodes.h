#pragma once

#include "PiInputPolicy.h"
#include "PxPassThroughNode.h"
#include "PxValueProtocol.h"

namespace Vn {

// The value of T when nothing feeds an input: T's default, valid for all time.
template <class T>
class VN_EXPORT AnimValueGeneratorNode final : public PxAnimValueProtocol<T> {
public:
    explicit AnimValueGeneratorNode(PxNode::Init const& init) : PxNode(init) {}
    PxResult<T> getValue(PxTimeContext const&) const override { return PxResult<T>(T()); }
};

// The same for values that do not animate.
template <class T>
class VN_EXPORT NonAnimValueGeneratorNode final : public PxValueProtocol<T> {
public:
    explicit NonAnimValueGeneratorNode(PxNode::Init const& init) : PxNode(init) {}
    PxResult<T> getValue() const override { return PxResult<T>(T()); }
};

// An input's value on its way to the tool: filtered by the input's policy, and read at time 0
// when the policy does not let it animate, with the full interval then, since the value is
// the same at every time asked.
template <class T>
class VN_EXPORT AnimValueInputNode final
    : public PxPassThroughBaseNode<PxAnimValueProtocol<T>, PxAnimValueProtocol<T>> {
public:
    using Base = PxPassThroughBaseNode<PxAnimValueProtocol<T>, PxAnimValueProtocol<T>>;
    AnimValueInputNode(PxNode::Init const& init,
                       PxStrongHndl<PxAnimValueProtocol<T> const> const& child,
                       RCShdPtr<PiTypedInputPolicy<T> const> policy);
    PxResult<T> getValue(PxTimeContext const& context) const override;
    PiTypedInputPolicy<T> const& getPolicy() const noexcept { return *_policy; }

private:
    RCShdPtr<PiTypedInputPolicy<T> const> _policy;
};

// The same for an input whose values do not animate: the child's value, filtered.
template <class T>
class VN_EXPORT NonAnimValueInputNode final
    : public PxPassThroughBaseNode<PxValueProtocol<T>, PxValueProtocol<T>> {
public:
    using Base = PxPassThroughBaseNode<PxValueProtocol<T>, PxValueProtocol<T>>;
    NonAnimValueInputNode(PxNode::Init const& init,
                          PxStrongHndl<PxValueProtocol<T> const> const& child,
                          RCShdPtr<PiTypedInputPolicy<T> const> policy);
    PxResult<T> getValue() const override;
    PiTypedInputPolicy<T> const& getPolicy() const noexcept { return *_policy; }

private:
    RCShdPtr<PiTypedInputPolicy<T> const> _policy;
};

extern template class AnimValueInputNode<bool>;
extern template class AnimValueInputNode<double>;
extern template class AnimValueInputNode<int>;
extern template class AnimValueInputNode<std::string>;
extern template class NonAnimValueInputNode<DtTime>;

} // namespace Vn

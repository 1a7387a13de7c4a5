#include "PxValueNode.h"

#include "CoRgbaColor.h"
#include "DtTime.h"
#include "GeVector.h"
#include "PxEx.h"

#include <string>

namespace Vn {

template <class T>
PxValueNode<T>::PxValueNode(PxNode::Init const& init, PxResult<T> value)
    : PxNode(init), _value(std::move(value)) {}

template <class T>
PxResult<T> PxValueNode<T>::getValue() const {
    return _value;
}

template <class T>
void PxValueNode<T>::setValue(PxResult<T> const& value) {
    _value = value;
    this->invalidate(PxValidityInterval::getFull(), -2);
}

template <class T>
PxAnimValueNode<T>::PxAnimValueNode(PxNode::Init const& init, PxResult<T> value)
    : PxNode(init), _value(std::move(value)) {}

template <class T>
PxResult<T> PxAnimValueNode<T>::getValue(PxTimeContext const&) const {
    return PxResult<T>(_value.getValue(), PxValidityInterval::FULL);
}

template <class T>
void PxAnimValueNode<T>::setValue(PxResult<T> value) {
    _value = std::move(value);
    this->invalidate(PxValidityInterval::getFull(), -2);
}

template <class T>
PxConstantAnimValueNode<T>::PxConstantAnimValueNode(PxNode::Init const& init, PxResult<T> value)
    : PxNode(init), _value(std::move(value)) {}

template <class T>
PxResult<T> PxConstantAnimValueNode<T>::getValue(PxTimeContext const&) const {
    return PxResult<T>(_value.getValue(), PxValidityInterval::FULL);
}

template <class T>
PxValueSetRequest<T>::PxValueSetRequest(PxUPtr<PxValueNode<T>> const& node, PxResult<T> value)
    : _node(node), _value(std::move(value)) {
    if (!node)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__, "A value change needs a node");
}

template <class T>
void PxValueSetRequest<T>::performExecute() {
    if (_node->getStrongCount() > 0)
        _node->setValue(_value);
}

template <class T>
PxAnimValueSetRequest<T>::PxAnimValueSetRequest(PxUPtr<PxAnimValueNode<T>> const& node,
                                                PxResult<T> value)
    : _node(node), _value(std::move(value)) {
    if (!node)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__, "A value change needs a node");
}

template <class T>
void PxAnimValueSetRequest<T>::performExecute() {
    if (_node->getStrongCount() > 0)
        _node->setValue(_value);
}

template class PxValueNode<int>;
template class PxValueNode<double>;
template class PxValueNode<bool>;
template class PxValueNode<std::string>;
template class PxValueNode<DtTime>;
template class PxValueNode<CoRgbColorTyped<float>>;
template class PxValueNode<CoRgbaColorTyped<float>>;
template class PxValueSetRequest<int>;
template class PxValueSetRequest<double>;
template class PxValueSetRequest<bool>;
template class PxValueSetRequest<std::string>;
template class PxValueSetRequest<DtTime>;
template class PxValueSetRequest<CoRgbColorTyped<float>>;
template class PxValueSetRequest<CoRgbaColorTyped<float>>;

template class PxAnimValueNode<int>;
template class PxAnimValueNode<double>;
template class PxAnimValueNode<bool>;
template class PxAnimValueNode<std::string>;
template class PxAnimValueNode<GeVector3<double>>;
template class PxAnimValueNode<CoRgbColorTyped<float>>;
template class PxAnimValueNode<CoRgbaColorTyped<float>>;
template class PxAnimValueSetRequest<int>;
template class PxAnimValueSetRequest<double>;
template class PxAnimValueSetRequest<bool>;
template class PxAnimValueSetRequest<std::string>;
template class PxAnimValueSetRequest<GeVector3<double>>;
template class PxAnimValueSetRequest<CoRgbColorTyped<float>>;
template class PxAnimValueSetRequest<CoRgbaColorTyped<float>>;

template class PxConstantAnimValueNode<int>;
template class PxConstantAnimValueNode<double>;
template class PxConstantAnimValueNode<bool>;
template class PxConstantAnimValueNode<GeVector2<double>>;
template class PxConstantAnimValueNode<GeVector3<double>>;
template class PxConstantAnimValueNode<CoRgbColorTyped<float>>;
template class PxConstantAnimValueNode<CoRgbaColorTyped<float>>;

} // namespace Vn

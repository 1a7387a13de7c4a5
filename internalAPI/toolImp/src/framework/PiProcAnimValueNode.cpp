#include "PiProcAnimValueNode.h"

#include "PiValueInterface.h"

#include <cmath>
#include <limits>

namespace Vn {

template <class T>
PiProcAnimValueNode<T>::PiProcAnimValueNode(PxNode::Init const& init, ValData<T> data)
    : PxNode(init), _data(std::move(data)) {}

template <class T>
PxResult<T> PiProcAnimValueNode<T>::getValue(PxTimeContext const& context) const {
    if (!_data.isAnimated || !_data.curve || _data.curve->isEmpty())
        return PxResult<T>(_data.value);
    double const t = context.getTime();
    GeInterval<double> const span = _data.curve->getValidity(t);
    // Workers read denormals as zero: an instant at 0 must end at a normal number.
    double const end = span.second > 0 && span.second < std::numeric_limits<double>::min()
                           ? std::numeric_limits<double>::min()
                           : span.second;
    T const value = PiAnimValueInterface<T>::fromDouble(_data.curve->evaluate(t));
    return PxResult<T>(value, PxValidityInterval(span.first, end));
}

template <class T>
void PiProcAnimValueNode<T>::setData(ValData<T> const& data) {
    _data = data;
}

template class PiProcAnimValueNode<bool>;
template class PiProcAnimValueNode<int>;
template class PiProcAnimValueNode<double>;
template class PiProcAnimValueNode<std::string>;

} // namespace Vn

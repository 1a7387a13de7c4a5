#include "PiValueInterface.h"

#include "ExBase.h"

#include <cmath>
#include <limits>

namespace Vn {

PiAnimInterface::~PiAnimInterface() = default;

template <class T>
double PiAnimValueInterface<T>::toDouble(T const& value) {
    if constexpr (std::is_same_v<T, std::string>)
        VN_THROW_MSG(ExBase, "a text value does not animate");
    else
        return static_cast<double>(value);
}

template <class T>
T PiAnimValueInterface<T>::fromDouble(double value) {
    if constexpr (std::is_same_v<T, std::string>) {
        VN_THROW_MSG(ExBase, "a text value does not animate");
    } else if constexpr (std::is_same_v<T, bool>) {
        return value >= 0.5;
    } else if constexpr (std::is_same_v<T, int>) {
        // Rounded to the nearest, and held within int.
        double const r = std::nearbyint(value);
        if (!(r > std::numeric_limits<int>::min()))
            return std::numeric_limits<int>::min();
        if (!(r < std::numeric_limits<int>::max()))
            return std::numeric_limits<int>::max();
        return static_cast<int>(r);
    } else {
        return value;
    }
}

template class PiValueInterface<bool>;
template class PiValueInterface<int>;
template class PiValueInterface<double>;
template class PiValueInterface<std::string>;
template class PiValueInterface<DtTime>;
template class PiAnimValueInterface<bool>;
template class PiAnimValueInterface<int>;
template class PiAnimValueInterface<double>;
template class PiAnimValueInterface<std::string>;

} // namespace Vn

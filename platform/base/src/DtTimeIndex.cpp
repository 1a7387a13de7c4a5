#include "DtTimeIndex.h"

#include "ExBase.h"

namespace Vn {

double DtTimeIndex::toSeconds(Rational const& rate) const {
    if (rate.getNumerator() <= 0)
        VN_THROW_MSG(ExBase, "a frame rate must be positive, not " + rate.toString());
    return static_cast<double>(_index) * static_cast<double>(rate.getDenominator()) /
           static_cast<double>(rate.getNumerator());
}

} // namespace Vn

#include "PmShape2d.h"

#include "ExBase.h"

#include <string>

namespace Vn {

RCPvtEngPtr<PmShape2d> PmShape2d::clone() const {
    return RCPvtEngPtr<PmShape2d>(new PmShape2d(*this));
}

int PmShape2d::getNbSegments() const noexcept {
    int const n = getNbCtrlPoints();
    if (n < 2)
        return 0;
    return _closed ? n : n - 1;
}

void PmShape2d::checkIndex(unsigned index) const {
    if (index >= _points.size())
        VN_THROW_MSG(ExBase, "Shape control point " + std::to_string(index) + " out of " +
                                 std::to_string(_points.size()));
}

GePoint<float> const& PmShape2d::getCtrlPoint(unsigned index) const {
    checkIndex(index);
    return _points[index];
}

void PmShape2d::setCtrlPoint(unsigned index, GePoint<float> const& point) {
    checkIndex(index);
    _points[index] = point;
}

} // namespace Vn

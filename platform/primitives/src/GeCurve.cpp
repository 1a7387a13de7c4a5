#include "GeCurve.h"

#include "ExBase.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace Vn {

GeCurve::GeCurve(Vector<GePoint<float>> keys) : _keys(std::move(keys)) {
    if (_keys.empty())
        VN_THROW_MSG(ExBase, "A curve needs at least one key");
    for (std::size_t i = 0; i < _keys.size(); ++i) {
        if (!std::isfinite(_keys[i].x) || !std::isfinite(_keys[i].y))
            VN_THROW_MSG(ExBase, "Curve key " + std::to_string(i) + " is not finite");
        if (i > 0 && !(_keys[i - 1].x < _keys[i].x))
            VN_THROW_MSG(ExBase, "Curve keys must have increasing x: key " + std::to_string(i) +
                                     " does not follow key " + std::to_string(i - 1));
    }
}

float GeCurve::evaluate(float x) const noexcept {
    if (!(x > _keys.front().x))
        return _keys.front().y;
    if (!(x < _keys.back().x))
        return _keys.back().y;
    auto const hi = std::upper_bound(_keys.begin(), _keys.end(), x,
                                     [](float v, GePoint<float> const& k) { return v < k.x; });
    auto const lo = hi - 1;
    float const t = (x - lo->x) / (hi->x - lo->x);
    return lo->y + t * (hi->y - lo->y);
}

} // namespace Vn

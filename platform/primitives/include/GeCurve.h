#pragma once

#include "GeRectangle.h"
#include "LkCounter.h"
#include "RCBase.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

// A function curve y = f(x), straight between its keys and level beyond the first and the last.
// Made whole and then only read, so it can be shared between threads.
class VN_EXPORT GeCurve : public RCBase<LkCounter<int>> {
public:
    // The keys' x must be finite and strictly increasing, their y finite; at least one key.
    explicit GeCurve(Vector<GePoint<float>> keys);

    Vector<GePoint<float>> const& getKeys() const noexcept { return _keys; }
    float evaluate(float x) const noexcept;

private:
    Vector<GePoint<float>> _keys;
};

} // namespace Vn

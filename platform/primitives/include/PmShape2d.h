#pragma once

#include "GeRectangle.h"
#include "LkCounter.h"
#include "RCPvtEngPtr.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

// A 2D shape through its control points, joined by straight segments, and closed or open. Shared
// copy-on-write: a holder that wants to change a shared shape changes a clone.
class VN_EXPORT PmShape2d : public RCBase<LkCounter<int>> {
public:
    PmShape2d() = default;
    PmShape2d(Vector<GePoint<float>> points, bool closed)
        : _points(std::move(points)), _closed(closed) {}

    virtual RCPvtEngPtr<PmShape2d> clone() const;
    // A closed shape has a segment back to its first point; one point alone has none.
    int getNbSegments() const noexcept;
    int getNbCtrlPoints() const noexcept { return static_cast<int>(_points.size()); }
    // An index beyond the points raises.
    GePoint<float> const& getCtrlPoint(unsigned index) const;
    void setCtrlPoint(unsigned index, GePoint<float> const& point);
    Vector<GePoint<float>> const& getCtrlPoints() const noexcept { return _points; }
    bool getClosure() const noexcept { return _closed; }

private:
    void checkIndex(unsigned index) const;
    Vector<GePoint<float>> _points;
    bool _closed = false;
};

} // namespace Vn

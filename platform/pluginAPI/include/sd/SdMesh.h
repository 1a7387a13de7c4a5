#pragma once

#include "GeVector.h"
#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <utility>
#include <vector>

namespace Vn {

// A triangle mesh: points, and three point indices per triangle. Shared between threads once
// made, so it is counted atomically and read only.
class VN_EXPORT SdMesh : public RCBase<LkCounter<int>> {
public:
    SdMesh() = default;
    SdMesh(std::vector<GeVector3<float>> points, std::vector<int> triangles)
        : _points(std::move(points)), _triangles(std::move(triangles)) {}

    std::vector<GeVector3<float>> const& getPoints() const noexcept { return _points; }
    std::vector<int> const& getTriangles() const noexcept { return _triangles; }
    int getNbTriangles() const noexcept { return static_cast<int>(_triangles.size() / 3); }

private:
    std::vector<GeVector3<float>> _points;
    std::vector<int> _triangles;
};

} // namespace Vn

#pragma once

#include "GeVector.h"
#include "VnExport.h"

namespace Vn {

// A viewpoint, as plain data: where the camera stands, how it is turned (degrees about x, then y,
// then z, as the matrix nodes turn), and its vertical field of view in degrees.
struct VN_EXPORT VwCamera {
    GeVector3<double> position{};
    GeVector3<double> rotation{};
    double fieldOfView = 45.0;

    bool operator==(VwCamera const&) const = default;
};

} // namespace Vn

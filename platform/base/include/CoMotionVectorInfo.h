#pragma once

#include "VnExport.h"

#include <string>

namespace Vn {

// Whether an image file carries motion vectors, and where and how: the layer that holds the
// horizontal and vertical motion, and the pixels of motion per stored unit.
struct VN_EXPORT CoMotionVectorInfo {
    bool present = false;
    std::string layer;
    float scale = 1.0f;
    bool operator==(CoMotionVectorInfo const&) const = default;
};

} // namespace Vn

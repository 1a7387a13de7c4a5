#pragma once

#include "VnExport.h"

namespace VnInit {
// Tag of the plug-in API package.
struct pluginAPI {};
} // namespace VnInit

namespace Vn {

// Process-wide processing configuration, set once when the processing package starts.
class VN_EXPORT PxConfig {
public:
    static constexpr int kMinTileSizeExp = 5;
    static constexpr int kMaxTileSizeExp = 12;
    static constexpr int kDefaultTileSizeExp = 9;

    // Exponents outside [kMinTileSizeExp, kMaxTileSizeExp] are an assertion failure.
    static void initialize(int expX, int expY);
    static int getTileSizeExpX() noexcept;
    static int getTileSizeExpY() noexcept;
    static int getTileSizeX() noexcept { return 1 << getTileSizeExpX(); }
    static int getTileSizeY() noexcept { return 1 << getTileSizeExpY(); }
    // A reserved tile index and scale: a context carrying them asks for what lies outside a
    // node's region of definition.
    static int getOutsideTile() noexcept;
    static int getOutsideScale() noexcept;
};

} // namespace Vn

#pragma once

#include "VnExport.h"

namespace VnInit {
// Tag of the image-primitives package.
struct primitives {};
} // namespace VnInit

namespace Vn {

// The floating-point mode of the pixel code, per thread.
class VN_EXPORT IxConvertServices {
public:
    // Puts the calling thread's floating-point unit in the mode the pixel code expects:
    // denormal results flush to zero and denormal inputs read as zero.
    static void configureSSE();
    // True when the calling thread is in that mode.
    static bool isSSEConfigured();
};

} // namespace Vn

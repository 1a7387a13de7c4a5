#pragma once

#include "GeRectangle.h"
#include "IpDilate.h"
#include "VnExport.h"

#include <cstdint>

namespace Vn {

class IxReadGuard;
class IxWriteGuard;

// One alpha operation of the scanline pipes (or, for comparison, of the older tile filter) from
// one tile into another, as the "ScanlinePerf" measurement program runs it.
class VN_EXPORT TestScanlinePipeUtils {
public:
    enum Operations : std::int32_t {
        PASS_THROUGH = 0,
        BLUR = 1,
        BLUR_ORIGINAL = 2, // the tile filter, not a pipe
        DILATE = 3,
        DETECT_EDGE = 4,
        CONTROL_EDGE = 5,
        FILL = 6,
        DISTANCE_TRANSFORM = 7,
    };

    static char const* getOperationName(Operations op);

    // Writes op of src's alpha into region of dst (its whole region when null), x and y being
    // the operation's sizes. For colour tiles the colour is kept and the alpha replaced.
    static void performOperation(IxWriteGuard& dst, IxReadGuard const& src, Operations op,
                                 IpDilate::StructuringElements element, float x, float y,
                                 GeRectangle<int>* region);
};

} // namespace Vn

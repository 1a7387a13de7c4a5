#include "ImPixelFormat.h"
#include "Assertions.h"

namespace Vn {

ImPixelFormat::ImPixelFormat(int comps, int depth) : _comps(comps), _depth(Depth(depth)) {
    VN_ASSERT(comps >= 1 && comps <= 4);
    VN_ASSERT(isValidDepth(depth));
}

} // namespace Vn

#include "IxPixelFormat.h"
#include "Assertions.h"

namespace Vn {

IxPixelFormat const IxPixelFormat::INVALID_FORMAT;

IxPixelFormat::IxPixelFormat(int comps, int depth, Rational const& aspect)
    : _comps(Comps(comps)), _depth(Depth(depth)), _aspect(aspect) {
    VN_ASSERT(_comps == ALPHA || _comps == RGB || _comps == RGBA);
    VN_ASSERT(_depth == UINT8 || _depth == FLOAT16 || _depth == FLOAT32 || _depth == COMPLEX);
    VN_ASSERT(_aspect > Rational(0));
}

} // namespace Vn

#include "ImLayout.h"
#include "Assertions.h"
#include "MbAlignment.h"

namespace Vn {

std::int32_t ImLayout::computeLineStride(ImPixelFormat const& format, int width,
                                         unsigned lineAlign) {
    VN_ASSERT(MbAlignment::isPowerOfTwo(lineAlign));
    if (width <= 0)
        return 0;
    std::size_t const bytes = static_cast<std::size_t>(width) * format.getPixelSize();
    std::size_t const stride = MbAlignment::roundUp(bytes, lineAlign);
    VN_ASSERT(stride <= INT32_MAX);
    return static_cast<std::int32_t>(stride);
}

ImLayout::ImLayout(ImPixelFormat const& format, GeRectangle<int> const& region, unsigned lineAlign)
    : ImLayout(format, region, lineAlign, computeLineStride(format, region.width(), lineAlign), 0) {
}

ImLayout::ImLayout(ImPixelFormat const& format, GeRectangle<int> const& region, unsigned lineAlign,
                   std::int32_t stride, std::size_t offset)
    : _format(format), _region(region.isEmpty() ? GeRectangle<int>() : region),
      _lineAlign(lineAlign), _stride(stride), _offset(offset) {
    VN_ASSERT(format.isValid());
    VN_ASSERT(MbAlignment::isPowerOfTwo(lineAlign));
    VN_ASSERT(stride >= 0 && static_cast<std::size_t>(stride) >=
                                 static_cast<std::size_t>(_region.width()) * format.getPixelSize());
    VN_ASSERT(stride % lineAlign == 0 && offset % format.getComponentSize() == 0);
}

std::size_t ImLayout::getRequiredSize() const noexcept {
    if (_region.isEmpty())
        return 0;
    return _offset + static_cast<std::size_t>(_region.height() - 1) * _stride +
           static_cast<std::size_t>(_region.width()) * _format.getPixelSize();
}

std::size_t ImLayout::getBufferSize() const noexcept {
    return _offset + static_cast<std::size_t>(_region.height()) * _stride;
}

} // namespace Vn

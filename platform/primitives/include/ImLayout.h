#pragma once

#include "GeRectangle.h"
#include "ImPixelFormat.h"
#include "VnExport.h"

#include <cstddef>
#include <cstdint>

namespace Vn {

// Where the pixels of an image lie in its buffer: pixel (x, y) of the region, in absolute
// coordinates, starts at offset + (y - ymin) * stride + (x - xmin) * pixel size.
class VN_EXPORT ImLayout {
public:
    static constexpr unsigned kDefaultLineAlign = 64;

    ImLayout() noexcept = default;
    // Lines packed one after the other, each starting at a multiple of lineAlign (a power of
    // two), from offset 0.
    ImLayout(ImPixelFormat const& format, GeRectangle<int> const& region,
             unsigned lineAlign = kDefaultLineAlign);
    // Any placement: stride holds a line and is a multiple of lineAlign.
    ImLayout(ImPixelFormat const& format, GeRectangle<int> const& region, unsigned lineAlign,
             std::int32_t stride, std::size_t offset);

    static std::int32_t computeLineStride(ImPixelFormat const& format, int width,
                                          unsigned lineAlign);

    ImPixelFormat const& getPixelFormat() const noexcept { return _format; }
    GeRectangle<int> const& getRegion() const noexcept { return _region; }
    unsigned getLineAlign() const noexcept { return _lineAlign; }
    std::int32_t getLineStride() const noexcept { return _stride; }
    std::size_t getOffset() const noexcept { return _offset; }
    // Bytes from the buffer's start to the end of the last pixel: what a buffer must hold.
    std::size_t getRequiredSize() const noexcept;
    // Bytes to allocate for the layout: every line at its full stride.
    std::size_t getBufferSize() const noexcept;
    std::size_t getByteOffset(int x, int y) const noexcept {
        return _offset + static_cast<std::size_t>(y - _region.ymin) * _stride +
               static_cast<std::size_t>(x - _region.xmin) * _format.getPixelSize();
    }
    bool operator==(ImLayout const&) const noexcept = default;

private:
    ImPixelFormat _format;
    GeRectangle<int> _region;
    unsigned _lineAlign = kDefaultLineAlign;
    std::int32_t _stride = 0;
    std::size_t _offset = 0;
};

} // namespace Vn

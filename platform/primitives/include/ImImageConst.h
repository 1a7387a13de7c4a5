#pragma once

#include "ImLayout.h"
#include "MbBuffer.h"
#include "VnExport.h"

#include <cstddef>

namespace Vn {

// The memory of an image: a shared buffer.
class VN_EXPORT ImMemoryBuffer {
public:
    ImMemoryBuffer() noexcept = default;
    explicit ImMemoryBuffer(MbBuffer buffer) noexcept : _buffer(std::move(buffer)) {}
    MbBuffer const& getBuffer() const noexcept { return _buffer; }
    std::size_t getSize() const noexcept { return _buffer.getSize(); }

private:
    MbBuffer _buffer;
};

// An image that is only read: a layout over a memory buffer. Copies share the buffer.
class VN_EXPORT ImImageConst {
public:
    ImImageConst() noexcept = default;
    // The buffer must hold the layout.
    ImImageConst(ImLayout const& layout, ImMemoryBuffer memory);

    ImLayout const& getLayout() const noexcept { return _layout; }
    ImMemoryBuffer const& getMemory() const noexcept { return _memory; }
    MbBuffer const& getBuffer() const noexcept { return _memory.getBuffer(); }
    bool isValid() const noexcept { return !_memory.getBuffer().isNull(); }

private:
    ImLayout _layout;
    ImMemoryBuffer _memory;
};

// An image that may be written.
class VN_EXPORT ImImage : public ImImageConst {
public:
    ImImage() noexcept = default;
    ImImage(ImLayout const& layout, ImMemoryBuffer memory)
        : ImImageConst(layout, std::move(memory)) {}
    // A new image with a buffer of its own from the default buffer factory; the pixels are not
    // cleared. name must be a static text.
    static ImImage create(ImLayout const& layout, char const* name = "ImImage");
};

// Holds an image's pixels in memory for reading. Pixel coordinates are absolute.
class VN_EXPORT ImReadGuard {
public:
    explicit ImReadGuard(ImImageConst const& image);
    ImReadGuard(ImReadGuard const&) = delete;
    ImReadGuard& operator=(ImReadGuard const&) = delete;

    ImImageConst const& getImage() const noexcept { return _image; }
    ImLayout const& getLayout() const noexcept { return _image.getLayout(); }
    // The first pixel of the region.
    std::byte const* getFirst() const noexcept { return _first; }
    std::byte const* getAddress(int x, int y) const noexcept {
        GeRectangle<int> const& r = getLayout().getRegion();
        return _first + static_cast<std::ptrdiff_t>(y - r.ymin) * getLayout().getLineStride() +
               static_cast<std::ptrdiff_t>(x - r.xmin) *
                   getLayout().getPixelFormat().getPixelSize();
    }

private:
    ImImageConst _image;
    MbBufferRdGuardImp _guard;
    std::byte const* _first;
};

// Holds an image's pixels in memory for writing. Pixel coordinates are absolute.
class VN_EXPORT ImWriteGuard {
public:
    explicit ImWriteGuard(ImImage const& image);
    ImWriteGuard(ImWriteGuard const&) = delete;
    ImWriteGuard& operator=(ImWriteGuard const&) = delete;

    ImImage const& getImage() const noexcept { return _image; }
    ImLayout const& getLayout() const noexcept { return _image.getLayout(); }
    std::byte* getFirst() const noexcept { return _first; }
    std::byte* getAddress(int x, int y) const noexcept {
        GeRectangle<int> const& r = getLayout().getRegion();
        return _first + static_cast<std::ptrdiff_t>(y - r.ymin) * getLayout().getLineStride() +
               static_cast<std::ptrdiff_t>(x - r.xmin) *
                   getLayout().getPixelFormat().getPixelSize();
    }

private:
    ImImage _image;
    MbBufferWrGuardImp _guard;
    std::byte* _first;
};

} // namespace Vn

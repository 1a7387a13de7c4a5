#pragma once

#include "VnExport.h"

#include <cstddef>

namespace Vn {

// An owned, zero-filled byte buffer with a chosen alignment.
class VN_EXPORT MbBuffer {
public:
    MbBuffer() noexcept = default;
    // alignment must be a power of two.
    explicit MbBuffer(std::size_t size, std::size_t alignment = 64);
    MbBuffer(MbBuffer&& o) noexcept;
    MbBuffer& operator=(MbBuffer&& o) noexcept;
    MbBuffer(MbBuffer const&) = delete;
    MbBuffer& operator=(MbBuffer const&) = delete;
    ~MbBuffer();

    std::byte* getData() noexcept { return _data; }
    std::byte const* getData() const noexcept { return _data; }
    std::size_t getSize() const noexcept { return _size; }
    std::size_t getAlignment() const noexcept { return _alignment; }
    bool isEmpty() const noexcept { return _size == 0; }

private:
    void release() noexcept;

    std::byte* _data = nullptr;
    std::size_t _size = 0;
    std::size_t _alignment = 0;
};

} // namespace Vn

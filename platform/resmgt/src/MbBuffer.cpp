#include "MbBuffer.h"
#include "Assertions.h"
#include "MbAlignment.h"

#include <cstring>
#include <new>
#include <utility>

namespace Vn {

MbBuffer::MbBuffer(std::size_t size, std::size_t alignment) {
    VN_ASSERT(MbAlignment::isPowerOfTwo(alignment));
    if (size == 0)
        return;
    _data = static_cast<std::byte*>(::operator new(size, std::align_val_t(alignment)));
    std::memset(_data, 0, size);
    _size = size;
    _alignment = alignment;
}

MbBuffer::MbBuffer(MbBuffer&& o) noexcept
    : _data(std::exchange(o._data, nullptr)), _size(std::exchange(o._size, 0)),
      _alignment(std::exchange(o._alignment, 0)) {}

MbBuffer& MbBuffer::operator=(MbBuffer&& o) noexcept {
    if (this != &o) {
        release();
        _data = std::exchange(o._data, nullptr);
        _size = std::exchange(o._size, 0);
        _alignment = std::exchange(o._alignment, 0);
    }
    return *this;
}

MbBuffer::~MbBuffer() {
    release();
}

void MbBuffer::release() noexcept {
    if (_data)
        ::operator delete(_data, std::align_val_t(_alignment));
    _data = nullptr;
    _size = 0;
    _alignment = 0;
}

} // namespace Vn

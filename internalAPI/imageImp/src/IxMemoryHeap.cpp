#include "IxMemoryHeap.h"
#include "IxTile.h"
#include "MbAlignment.h"

#include <utility>

namespace Vn {

IxMemoryHeap::IxMemoryHeap(unsigned int size)
    : _array(new std::byte[std::size_t(size) + IxTile::MIN_LINE_ALIGN]),
      _aligned(MbAlignment::alignUp(_array, IxTile::MIN_LINE_ALIGN)), _size(size) {}

IxMemoryHeap::IxMemoryHeap(IxMemoryHeap& o) noexcept
    : IxMemory(), _array(std::exchange(o._array, nullptr)), _aligned(o._aligned), _size(o._size) {}

IxMemoryHeap& IxMemoryHeap::operator=(IxMemoryHeap& o) noexcept {
    if (this != &o) {
        delete[] _array;
        _array = std::exchange(o._array, nullptr);
        _aligned = o._aligned;
        _size = o._size;
    }
    return *this;
}

IxMemoryHeap::~IxMemoryHeap() {
    delete[] _array;
}

RCShdPtr<IxMemory> IxMemoryHeap::allocate(unsigned int size) const {
    return RCShdPtr<IxMemory>(new IxMemoryHeap(size == 0 ? _size : size));
}

unsigned int IxMemoryHeap::getSize() const {
    return _size;
}

unsigned int IxMemoryHeap::getAlign() const {
    return IxTile::MIN_LINE_ALIGN;
}

std::byte* IxMemoryHeap::acquire(IxWriteGuard&) {
    return _aligned;
}

std::byte const* IxMemoryHeap::acquire(IxReadGuard&) const {
    return _aligned;
}

void IxMemoryHeap::release(IxWriteGuard&) {}

void IxMemoryHeap::release(IxReadGuard&) const {}

} // namespace Vn

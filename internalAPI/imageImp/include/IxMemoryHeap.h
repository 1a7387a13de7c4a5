#pragma once

#include "IxMemory.h"
#include "VnExport.h"

namespace Vn {

// Memory in an array of the heap, aligned to IxTile::MIN_LINE_ALIGN inside it. Always resident:
// acquiring it costs nothing.
//
// Copying moves: the copy takes the array, and the source keeps its size and aligned pointer
// without owning the array any more.
class VN_EXPORT IxMemoryHeap : public IxMemory {
public:
    explicit IxMemoryHeap(unsigned int size);
    IxMemoryHeap(IxMemoryHeap& o) noexcept;
    IxMemoryHeap& operator=(IxMemoryHeap& o) noexcept;
    ~IxMemoryHeap() override;

    // Size 0 gives a block of this block's size.
    RCShdPtr<IxMemory> allocate(unsigned int size) const override;
    unsigned int getSize() const override;
    unsigned int getAlign() const override;
    std::byte* acquire(IxWriteGuard& guard) override;
    std::byte const* acquire(IxReadGuard& guard) const override;
    void release(IxWriteGuard& guard) override;
    void release(IxReadGuard& guard) const override;

    bool ownsArray() const noexcept { return _array != nullptr; }

private:
    std::byte* _array;
    std::byte* _aligned;
    unsigned int _size;
};

} // namespace Vn

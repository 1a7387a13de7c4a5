#pragma once

#include "IxMemory.h"
#include "VnExport.h"

namespace Vn {

// Memory without storage, for tiles that have no pixels: acquiring it gives a null pointer.
class VN_EXPORT IxMemoryNone : public IxMemory {
public:
    IxMemoryNone() noexcept = default;
    ~IxMemoryNone() override;

    // Only size 0: any other is a program stop.
    RCShdPtr<IxMemory> allocate(unsigned int size) const override;
    unsigned int getSize() const override;
    unsigned int getAlign() const override;
    std::byte* acquire(IxWriteGuard& guard) override;
    std::byte const* acquire(IxReadGuard& guard) const override;
    void release(IxWriteGuard& guard) override;
    void release(IxReadGuard& guard) const override;
};

} // namespace Vn

#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <cstddef>

namespace Vn {

class IxReadGuard;
class IxWriteGuard;

// A block of tile memory, counted by the tiles and guards that use it. Its pixels are reached
// only between acquire and release, which the guards call.
class VN_EXPORT IxMemory : public RCBase<LkCounter<int>> {
public:
    // Hands out blocks.
    class VN_EXPORT Factory {
    public:
        virtual ~Factory();
        virtual RCShdPtr<IxMemory> allocate(unsigned int size) = 0;
    };

    ~IxMemory() override;
    // The reference count's release, beside the guards' release below.
    using RCBase<LkCounter<int>>::release;
    // A new block of the same kind; size 0 asks for one of this block's size, where the kind
    // allows it.
    virtual RCShdPtr<IxMemory> allocate(unsigned int size) const = 0;
    virtual unsigned int getSize() const = 0;
    virtual unsigned int getAlign() const = 0;
    virtual std::byte* acquire(IxWriteGuard& guard) = 0;
    virtual std::byte const* acquire(IxReadGuard& guard) const = 0;
    virtual void release(IxWriteGuard& guard) = 0;
    virtual void release(IxReadGuard& guard) const = 0;

protected:
    IxMemory() noexcept = default;
};

} // namespace Vn

#include "IxMemoryNone.h"
#include "Assertions.h"
#include "IxTile.h"

namespace Vn {

IxMemoryNone::~IxMemoryNone() = default;

RCShdPtr<IxMemory> IxMemoryNone::allocate(unsigned int size) const {
    if (size != 0)
        VN_ABORT("IxMemoryNone has no storage to allocate");
    return RCShdPtr<IxMemory>(new IxMemoryNone);
}

unsigned int IxMemoryNone::getSize() const {
    return 0;
}

unsigned int IxMemoryNone::getAlign() const {
    return IxTile::MIN_LINE_ALIGN;
}

std::byte* IxMemoryNone::acquire(IxWriteGuard&) {
    return nullptr;
}

std::byte const* IxMemoryNone::acquire(IxReadGuard&) const {
    return nullptr;
}

void IxMemoryNone::release(IxWriteGuard&) {}

void IxMemoryNone::release(IxReadGuard&) const {}

} // namespace Vn

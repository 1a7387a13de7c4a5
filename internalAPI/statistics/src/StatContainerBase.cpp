#include "StatContainerBase.h"
#include "StatMemPool.h"

namespace Vn {

StatContainerBase::~StatContainerBase() = default;

void* StatContainerBase::operator new(std::size_t size) {
    return StatMemPool::alloc(size);
}

void StatContainerBase::operator delete(void* block, std::size_t size) noexcept {
    StatMemPool::free(block, size);
}

} // namespace Vn

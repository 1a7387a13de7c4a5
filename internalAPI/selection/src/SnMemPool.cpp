#include "SnMemPool.h"

#include "DaMemPool.h"

namespace Vn::SnMemPool {

namespace {
DaMemPool& pool() {
    // Never destroyed: items held by statics may go after it would.
    static DaMemPool* const s_pool = new DaMemPool("SnMemPool", 65536, 0x800000, 256);
    return *s_pool;
}
} // namespace

void* alloc(std::size_t size) {
    return pool().alloc(size);
}

void free(void* block, std::size_t size) noexcept {
    if (block)
        pool().free(block, size);
}

} // namespace Vn::SnMemPool

#include "LkAtomicObj.h"
#include "Assertions.h"
#include "DaMemPool.h"
#include "MbAlignment.h"

namespace Vn {

namespace {
// Created on first use and kept for the life of the process: a reader may still be copying a
// block that went back to the pool, so the memory must never be handed back to the system.
DaMemPool& blockPool() {
    static DaMemPool* pool =
        new DaMemPool("LkAtomicObj", 0x10000, 0x4000, LkAtomicBlocks::kLargestBlock);
    return *pool;
}
} // namespace

void* LkAtomicBlocks::alloc(std::size_t size) {
    VN_ASSERT(size <= kLargestBlock);
    void* block = blockPool().alloc(size);
    // The word that holds a block keeps only 48 bits of its address.
    VN_ASSERT(reinterpret_cast<std::uintptr_t>(block) >> 48 == 0);
    VN_ASSERT(MbAlignment::isAligned(block, DaMemPool::getAlignment(size)));
    return block;
}

void LkAtomicBlocks::free(void* block, std::size_t size) noexcept {
    blockPool().free(block, size);
}

} // namespace Vn

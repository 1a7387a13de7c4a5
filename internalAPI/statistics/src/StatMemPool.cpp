#include "StatMemPool.h"
#include "Assertions.h"
#include "DaMemPool.h"

#include <atomic>

namespace Vn {

namespace {
// Never destroyed: see the class comment.
DaMemPool* s_pool = nullptr;
std::atomic<bool> s_initialized{false};
} // namespace

void StatMemPool::initialize() {
    VN_ASSERT(!isInitialized());
    if (!s_pool)
        s_pool = new DaMemPool("StatMemPool", 8192, 0x20000, 1024);
    s_initialized.store(true, std::memory_order_release);
}

void StatMemPool::finalize() {
    VN_ASSERT(isInitialized());
    s_initialized.store(false, std::memory_order_release);
}

bool StatMemPool::isInitialized() noexcept {
    return s_initialized.load(std::memory_order_acquire);
}

void* StatMemPool::alloc(std::size_t size) {
    VN_ASSERT(isInitialized());
    return s_pool->alloc(size);
}

void StatMemPool::free(void* block, std::size_t size) noexcept {
    if (block)
        s_pool->free(block, size);
}

} // namespace Vn

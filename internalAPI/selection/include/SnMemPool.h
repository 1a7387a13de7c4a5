#pragma once

#include "VnExport.h"

#include <cstddef>

namespace Vn {

// The memory of items, their snapshots and the nodes of selections' lists: a user's large pick,
// its undo snapshot and each restore make and drop them by the thousand. The pool is made on
// first use and lives as long as the process, so they may go at any time, even after static
// destruction.
namespace SnMemPool {
VN_EXPORT void* alloc(std::size_t size);
// size must be the one given to alloc.
VN_EXPORT void free(void* block, std::size_t size) noexcept;
} // namespace SnMemPool

// A standard allocator over SnMemPool.
template <class T>
struct SnPoolAllocator {
    using value_type = T;
    SnPoolAllocator() noexcept = default;
    template <class U>
    SnPoolAllocator(SnPoolAllocator<U> const&) noexcept {}
    T* allocate(std::size_t n) { return static_cast<T*>(SnMemPool::alloc(n * sizeof(T))); }
    void deallocate(T* p, std::size_t n) noexcept { SnMemPool::free(p, n * sizeof(T)); }
    template <class U>
    bool operator==(SnPoolAllocator<U> const&) const noexcept {
        return true;
    }
};

} // namespace Vn

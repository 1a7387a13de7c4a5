#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <cstddef>
#include <string>

namespace Vn {

// A thread-safe pool of memory blocks in size classes. Each thread keeps a cache of free blocks
// per class and refills it in batches from shared lists, so the common alloc and free take no
// lock. A block may be freed on any thread. Memory taken from the system is kept until the pool
// is destroyed, which frees it all.
//
// chunkSize:   bytes taken from the system at a time; a chunk is carved into blocks of one class.
// cacheBytes:  the most bytes one thread keeps cached per size class; 0 disables the caches.
// largestSize: the largest request served from the classes; larger ones go to operator new.
//
// A block is aligned to the largest power of two dividing its requested size, at least 16 and
// at most 4096 (getAlignment).
class VN_EXPORT DaMemPool {
public:
    DaMemPool(char const* name, std::size_t chunkSize, std::size_t cacheBytes,
              std::size_t largestSize);
    DaMemPool(DaMemPool const&) = delete;
    DaMemPool& operator=(DaMemPool const&) = delete;
    ~DaMemPool();

    void* alloc(std::size_t size);
    // size must be the one given to alloc.
    void free(void* block, std::size_t size) noexcept;

    static std::size_t getAlignment(std::size_t size) noexcept;

    std::string const& getName() const noexcept;
    std::size_t getChunkSize() const noexcept;
    std::size_t getCacheBytes() const noexcept;
    std::size_t getLargestSize() const noexcept;
    // Bytes of the chunks taken from the system so far.
    std::size_t getReservedBytes() const noexcept;

private:
    class Impl;
    OPtr<Impl> _impl;
};

} // namespace Vn

#pragma once

#include "VnExport.h"

#include <cstddef>

namespace Vn {

// The memory of everything statistics record: stores, sample lists and values. Safe from any
// thread.
//
// The pool is made by the first initialize and lives as long as the process. Blocks may be held
// past finalize, by stores in other threads' slots, in requests or with a viewer, and by value
// objects; they are given back whenever those go, even from a thread that ends after static
// destruction. A later initialize takes the same pool again.
class VN_EXPORT StatMemPool {
public:
    static void initialize();
    static void finalize();
    static bool isInitialized() noexcept;

    // Only between initialize and finalize.
    static void* alloc(std::size_t size);
    // At any time; size must be the one given to alloc.
    static void free(void* block, std::size_t size) noexcept;
};

} // namespace Vn

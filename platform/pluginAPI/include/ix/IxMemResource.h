#pragma once

#include "IxMemory.h"
#include "VnExport.h"

namespace Vn {

// The process-wide source of tile memory, supplied by the engine library at start.
class VN_EXPORT IxMemResource {
public:
    // Takes ownership; a second one while one is installed is an assertion failure.
    static void initialize(IxMemResource* resource);
    // Destroys the instance.
    static void finalize();
    static IxMemResource& getInstance();
    static bool isInitialized() noexcept;

    virtual ~IxMemResource();
    // A block of size bytes; size 0 gives a block without storage.
    virtual RCShdPtr<IxMemory> allocate(unsigned int size) = 0;

protected:
    IxMemResource() noexcept = default;
};

} // namespace Vn

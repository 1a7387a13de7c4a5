#pragma once

#include "IxMemResource.h"
#include "IxMemory.h"
#include "LkPtr.h"
#include "MbBuffer.h"
#include "VnExport.h"

#include <cstdint>
#include <new>
#include <set>

namespace Vn {

class IxGuardBase;

// The engine's tile memory: blocks of the default buffer factory.
class VN_EXPORT IxMemResourceImp : public IxMemResource, public IxMemory::Factory {
public:
    // Tile memory over an MbBuffer. Acquiring it loads and pins the buffer, and counts a guard
    // on the calling thread; a worker of the engine that has to wait for the load hands its
    // running slot on meanwhile. The blocks the resource makes live inside their buffer's own
    // allocation when the buffer factory gives room for them.
    class VN_EXPORT TileMemoryBuffer final : public IxMemory {
    public:
        using BufferSet = std::set<TileMemoryBuffer const*>;
        using GuardSet = std::set<IxGuardBase const*>;

        // Wraps a buffer that exists already; the creator is the thread's tile owner name.
        explicit TileMemoryBuffer(MbBuffer const& buffer);
        explicit TileMemoryBuffer(MbBuffer&& buffer) noexcept;
        ~TileMemoryBuffer() override = default;

        // Size 0 gives a block of this block's size, with a buffer of its own.
        RCShdPtr<IxMemory> allocate(unsigned int size) const override;
        unsigned int getSize() const override;
        unsigned int getAlign() const override;
        std::byte* acquire(IxWriteGuard& guard) override;
        std::byte const* acquire(IxReadGuard& guard) const override;
        void release(IxWriteGuard& guard) override;
        void release(IxReadGuard& guard) const override;

        MbBuffer const& getBuffer() const noexcept { return _buffer; }
        char const* getCreatorName() const noexcept { return _creatorName; }
        void const* getCreationPoint() const noexcept { return _creationPoint; }

        // Guards open on the calling thread over tile memory buffers.
        static std::int32_t getNbGuardedByThread();
        // The calling thread's set of guards, kept for diagnostics.
        static GuardSet& getThreadGuards();
        // The process-wide registries, each held under its lock while the pointer lives.
        static LkPtr<BufferSet> getAllTileBuffers();
        static LkPtr<GuardSet> getAllTileGuards();

        static void* operator new(std::size_t size);
        // Frees a block whose constructor raised.
        static void operator delete(void* p, std::size_t size) noexcept;
        // Frees a block, in the pool or in its buffer's allocation.
        static void operator delete(TileMemoryBuffer* p, std::destroying_delete_t) noexcept;

    private:
        friend class IxMemResourceImp;
        friend class IxTileManip;
        static std::int32_t& threadGuardCount();
        // A new block of size bytes from the default buffer factory.
        static RCShdPtr<IxMemory> create(unsigned int size);
        struct InBufferBlock {};
        TileMemoryBuffer(MbBuffer&& buffer, InBufferBlock) noexcept;

        // First, so that it fills the count's padding.
        bool _inBufferBlock = false;
        MbBuffer _buffer;
        char const* _creatorName;
        void const* _creationPoint = nullptr;
    };

    IxMemResourceImp() noexcept = default;
    ~IxMemResourceImp() override;

    // Size 0 gives an IxMemoryNone, any other a TileMemoryBuffer.
    RCShdPtr<IxMemory> allocate(unsigned int size) override;
};

} // namespace Vn

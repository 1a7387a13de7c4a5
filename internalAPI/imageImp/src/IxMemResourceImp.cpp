#include "IxMemResourceImp.h"
#include "Assertions.h"
#include "DaMemPool.h"
#include "IxGuardBase.h"
#include "IxMemoryNone.h"
#include "IxTile.h"
#include "LkThreadOpaqueData.h"
#include "PxRequestMgr.h"

#include <new>

namespace Vn {

namespace {

using TileMemoryBuffer = IxMemResourceImp::TileMemoryBuffer;

// The thread's record of the guards it holds over tile memory.
struct GuardCheckData {
    std::int32_t _nbGuards = 0;
    TileMemoryBuffer::GuardSet _guards;
};

void* makeCheckData(void*) {
    return new GuardCheckData;
}
void freeCheckData(void* pointee, void*) {
    delete static_cast<GuardCheckData*>(pointee);
}

// Made when the library loads and destroyed when it unloads, in reverse order.
OPtr<LkThreadOpaqueData> const s_checkData =
    LkThreadOpaqueDataFactory::create("IxTileGuard check data", &makeCheckData, &freeCheckData);
LkLock s_allBuffersLock("All IxTiles");
TileMemoryBuffer::BufferSet s_allBuffers;
LkLock s_allGuardsLock("All IxRead/WriteGuards");
TileMemoryBuffer::GuardSet s_allGuards;

GuardCheckData& checkData() {
    return *static_cast<GuardCheckData*>(s_checkData->getPointee());
}

// Blocks that have no room in their buffer's allocation (over a buffer shared with an image, or
// from a factory that gives none) come from a pool. Never destroyed, as tiles may outlive static
// destruction.
DaMemPool& objectPool() {
    static DaMemPool* pool = new DaMemPool("TileMemoryBuffer", 64 * 1024, 16 * 1024, 256);
    return *pool;
}

MbAlignment const& tileAlignment() {
    static MbAlignment const alignment(IxTile::MIN_LINE_ALIGN - 1);
    return alignment;
}

// Pins the buffer inside the guard's memory state. A worker waiting for a load lets another
// worker run meanwhile.
template <class BufferGuard>
BufferGuard* pin(IxGuardBase& guard, MbBuffer const& buffer) {
    static_assert(sizeof(BufferGuard) <= IxGuardBase::kMemoryStateSize);
    void* state = guard.getMemoryState();
    BufferGuard* pinned;
    if (!buffer.isLoaded()) [[unlikely]] {
        PxWorkerBlockingGuard blocking;
        pinned = ::new (state) BufferGuard(buffer);
    } else {
        pinned = ::new (state) BufferGuard(buffer);
    }
    ++checkData()._nbGuards;
    return pinned;
}

template <class BufferGuard>
void unpin(IxGuardBase& guard) noexcept {
    --checkData()._nbGuards;
    static_cast<BufferGuard*>(guard.getMemoryState())->~BufferGuard();
}

} // namespace

TileMemoryBuffer::TileMemoryBuffer(MbBuffer const& buffer)
    : _buffer(buffer), _creatorName(IxTile::getCurrentTileOwnerName()) {}

TileMemoryBuffer::TileMemoryBuffer(MbBuffer&& buffer) noexcept
    : _buffer(std::move(buffer)), _creatorName(IxTile::getCurrentTileOwnerName()) {}

// Inline, with create(): both are only used here, and calls within the library to its exported
// functions would otherwise go through its symbol table.
inline TileMemoryBuffer::TileMemoryBuffer(MbBuffer&& buffer, InBufferBlock) noexcept
    : _inBufferBlock(true), _buffer(std::move(buffer)),
      _creatorName(IxTile::getCurrentTileOwnerName()) {}

inline RCShdPtr<IxMemory> TileMemoryBuffer::create(unsigned int size) {
    void* room;
    MbBuffer buffer = MbBufferFactoryRegistry::getFactory(0).createWithRoom(
        "TileMemoryBuffer", size, tileAlignment(), sizeof(TileMemoryBuffer), room);
    if (room) [[likely]]
        return RCShdPtr<IxMemory>::adoptNew(
            ::new (room) TileMemoryBuffer(std::move(buffer), InBufferBlock{}));
    return RCShdPtr<IxMemory>::adoptNew(new TileMemoryBuffer(std::move(buffer)));
}

void* TileMemoryBuffer::operator new(std::size_t size) {
    return objectPool().alloc(size);
}

void TileMemoryBuffer::operator delete(void* p, std::size_t size) noexcept {
    objectPool().free(p, size);
}

void TileMemoryBuffer::operator delete(TileMemoryBuffer* p, std::destroying_delete_t) noexcept {
    if (p->_inBufferBlock) {
        // The block goes with the buffer's last handle, which must outlive the destructor.
        MbBuffer const buffer = std::move(p->_buffer);
        p->~TileMemoryBuffer();
        return;
    }
    p->~TileMemoryBuffer();
    objectPool().free(p, sizeof(TileMemoryBuffer));
}

RCShdPtr<IxMemory> TileMemoryBuffer::allocate(unsigned int size) const {
    return create(size == 0 ? getSize() : size);
}

unsigned int TileMemoryBuffer::getSize() const {
    return static_cast<unsigned int>(_buffer.getSize());
}

unsigned int TileMemoryBuffer::getAlign() const {
    return static_cast<unsigned int>(_buffer.getAlignmentSpec().getMask() + 1);
}

std::byte* TileMemoryBuffer::acquire(IxWriteGuard& guard) {
    return pin<MbBufferWrGuardImp>(guard, _buffer)->getData();
}

std::byte const* TileMemoryBuffer::acquire(IxReadGuard& guard) const {
    return pin<MbBufferRdGuardImp>(guard, _buffer)->getData();
}

void TileMemoryBuffer::release(IxWriteGuard& guard) {
    unpin<MbBufferWrGuardImp>(guard);
}

void TileMemoryBuffer::release(IxReadGuard& guard) const {
    unpin<MbBufferRdGuardImp>(guard);
}

std::int32_t TileMemoryBuffer::getNbGuardedByThread() {
    return checkData()._nbGuards;
}

std::int32_t& TileMemoryBuffer::threadGuardCount() {
    return checkData()._nbGuards;
}

TileMemoryBuffer::GuardSet& TileMemoryBuffer::getThreadGuards() {
    return checkData()._guards;
}

LkPtr<TileMemoryBuffer::BufferSet> TileMemoryBuffer::getAllTileBuffers() {
    return LkPtr<BufferSet>(s_allBuffers, s_allBuffersLock);
}

LkPtr<TileMemoryBuffer::GuardSet> TileMemoryBuffer::getAllTileGuards() {
    return LkPtr<GuardSet>(s_allGuards, s_allGuardsLock);
}

IxMemResourceImp::~IxMemResourceImp() = default;

RCShdPtr<IxMemory> IxMemResourceImp::allocate(unsigned int size) {
    if (size == 0)
        return RCShdPtr<IxMemory>(new IxMemoryNone);
    return TileMemoryBuffer::create(size);
}

} // namespace Vn

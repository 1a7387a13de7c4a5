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

// The objects are small and made per tile: a pool keeps them off the general heap. Never
// destroyed, as tiles may outlive static destruction.
DaMemPool& objectPool() {
    static DaMemPool* pool = new DaMemPool("TileMemoryBuffer", 64 * 1024, 16 * 1024, 256);
    return *pool;
}

// The thread's last freed objects, linked through their first word, in front of the pool: a
// tile made after one was dropped reuses its object with a thread-local pop, not a trip through
// the pool's size classes and thread lookup. Found through a plain thread-local pointer, cleared
// when the thread ends and hands the objects back to the pool.
struct ObjectCache {
    static constexpr unsigned kMax = 32;
    void* _head = nullptr;
    unsigned _count = 0;
};
constinit thread_local ObjectCache* t_objects = nullptr;

void* makeObjectCache(void*) {
    return new ObjectCache;
}
void freeObjectCache(void* pointee, void*) {
    auto* cache = static_cast<ObjectCache*>(pointee);
    if (t_objects == cache)
        t_objects = nullptr;
    while (void* block = cache->_head) {
        cache->_head = *static_cast<void**>(block);
        objectPool().free(block, sizeof(TileMemoryBuffer));
    }
    delete cache;
}

// Never destroyed, for the same reason as the pool.
ObjectCache* objectCache() {
    if (ObjectCache* cache = t_objects) [[likely]]
        return cache;
    static LkThreadOpaqueData* caches =
        LkThreadOpaqueDataFactory::create("TileMemoryBuffer objects", &makeObjectCache,
                                          &freeObjectCache)
            .release();
    t_objects = static_cast<ObjectCache*>(caches->tryGetPointee());
    return t_objects;
}

MbAlignment const& tileAlignment() {
    static MbAlignment const alignment(IxTile::MIN_LINE_ALIGN - 1);
    return alignment;
}

MbBuffer newBuffer(unsigned int size) {
    return MbBufferFactoryRegistry::getFactory(0).create("TileMemoryBuffer", size, tileAlignment());
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

TileMemoryBuffer::~TileMemoryBuffer() = default;

void* TileMemoryBuffer::operator new(std::size_t size) {
    if (size == sizeof(TileMemoryBuffer)) [[likely]] {
        ObjectCache* cache = objectCache();
        if (void* block = cache ? cache->_head : nullptr) {
            cache->_head = *static_cast<void**>(block);
            --cache->_count;
            return block;
        }
    }
    return objectPool().alloc(size);
}

void TileMemoryBuffer::operator delete(void* p, std::size_t size) noexcept {
    if (size == sizeof(TileMemoryBuffer)) [[likely]] {
        ObjectCache* cache = nullptr;
        try {
            cache = objectCache();
        } catch (...) {
            // No cache could be made for this thread: the pool takes the object.
        }
        if (cache) {
            // Full: the pool takes half, so the object freed last is still the next one made.
            if (cache->_count == ObjectCache::kMax) {
                for (unsigned i = 0; i < ObjectCache::kMax / 2; ++i) {
                    void* block = cache->_head;
                    cache->_head = *static_cast<void**>(block);
                    objectPool().free(block, size);
                }
                cache->_count -= ObjectCache::kMax / 2;
            }
            *static_cast<void**>(p) = cache->_head;
            cache->_head = p;
            ++cache->_count;
            return;
        }
    }
    objectPool().free(p, size);
}

RCShdPtr<IxMemory> TileMemoryBuffer::allocate(unsigned int size) const {
    return RCShdPtr<IxMemory>::adoptNew(
        new TileMemoryBuffer(newBuffer(size == 0 ? getSize() : size)));
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
    return RCShdPtr<IxMemory>::adoptNew(new TileMemoryBuffer(newBuffer(size)));
}

} // namespace Vn

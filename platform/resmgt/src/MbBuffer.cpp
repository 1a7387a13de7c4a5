#include "MbBuffer.h"
#include "Assertions.h"
#include "DaMemPool.h"
#include "EnvIntVar.h"
#include "LkThreadOpaqueData.h"
#include "MbAlignment.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace Vn {

bool MbBufferImp::isLoaded() const noexcept {
    return _data != nullptr;
}

std::byte* MbBufferImp::pin() {
    return _data;
}

void MbBufferImp::unpin() noexcept {}

MbExOutOfMemory::MbExOutOfMemory(char const* file, int line, char const* name, std::size_t size)
    : ExBase(file, line) {
    setReason("out of memory: " + std::to_string(size) + " bytes for buffer '" +
              (name ? name : "") + "'");
}

MbExOutOfMemory::~MbExOutOfMemory() = default;

MbBufferFactory::~MbBufferFactory() = default;

namespace {

constexpr std::size_t kPage = 4096;
// Blocks up to this size come from the small-block pool.
constexpr std::size_t kSmallLimit = 64 * 1024;
// A thread keeps at most this many large blocks, and none larger than kThreadBlockLimit.
constexpr std::size_t kThreadBlocks = 4;
constexpr std::size_t kThreadBlockLimit = 32 * 1024 * 1024;

EnvIntVar const& cacheMegabytes() {
    static EnvIntVar const v(__FILE__, "VN_MB_BUFFER_CACHE_MB", 256, 0, 1 << 20);
    return v;
}

// Both stores are never destroyed: buffers may die after static destruction.
DaMemPool& smallPool() {
    static DaMemPool* pool = new DaMemPool("MbBuffer", 1 << 20, 256 * 1024, kSmallLimit);
    return *pool;
}

// Whole-image buffers are walked by column as often as by row; with small pages such a walk
// misses the translation cache on nearly every row. Blocks this large are aligned to the large
// page and offered to the kernel for it.
constexpr std::size_t kHugePage = 2 * 1024 * 1024;
constexpr std::size_t kHugeFrom = 4 * kHugePage;

std::size_t systemAlignment(std::size_t size) noexcept {
    return size >= kHugeFrom ? kHugePage : kPage;
}

void* systemAlloc(std::size_t size) {
    void* p = ::operator new(size, std::align_val_t(systemAlignment(size)), std::nothrow);
#ifdef MADV_HUGEPAGE
    if (p && size >= kHugeFrom)
        (void)::madvise(p, size / kHugePage * kHugePage, MADV_HUGEPAGE); // a hint only
#endif
    return p;
}
void systemFree(void* p, std::size_t size) noexcept {
    ::operator delete(p, size, std::align_val_t(systemAlignment(size)));
}

// Large blocks, recycled by exact size (a multiple of the page). The shared side takes a lock;
// the per-thread side in front of it does not.
class LargeBlockCache {
public:
    struct Block {
        void* p;
        std::size_t size;
    };
    struct ThreadCache {
        Block blocks[kThreadBlocks];
        std::size_t count = 0;
    };

    LargeBlockCache()
        : _capacity(static_cast<std::size_t>(cacheMegabytes().getValue()) << 20),
          _threads(LkThreadOpaqueDataFactory::create("MbBuffer large blocks", &makeThread,
                                                     &freeThread, this)) {}

    void* alloc(std::size_t size) {
        if (ThreadCache* tc = threadCache()) {
            for (std::size_t i = tc->count; i-- > 0;) {
                if (tc->blocks[i].size == size) {
                    void* p = tc->blocks[i].p;
                    tc->blocks[i] = tc->blocks[--tc->count];
                    return p;
                }
            }
        }
        if (_cached.load(std::memory_order_relaxed) != 0) {
            std::lock_guard<std::mutex> lock(_lock);
            auto it = _free.find(size);
            if (it != _free.end() && !it->second.empty()) {
                void* p = it->second.back();
                it->second.pop_back();
                _cached.fetch_sub(size, std::memory_order_relaxed);
                return p;
            }
        }
        return systemAlloc(size);
    }

    void free(void* p, std::size_t size) noexcept {
        if (_capacity == 0) {
            systemFree(p, size);
            return;
        }
        ThreadCache* tc = nullptr;
        if (size <= kThreadBlockLimit) {
            try {
                tc = threadCache();
            } catch (...) {
                // No cache for this thread: the shared side takes the block.
            }
        }
        if (tc) {
            if (tc->count == kThreadBlocks) {
                // The oldest block moves to the shared side.
                Block oldest = tc->blocks[0];
                std::move(tc->blocks + 1, tc->blocks + kThreadBlocks, tc->blocks);
                --tc->count;
                freeShared(oldest.p, oldest.size);
            }
            tc->blocks[tc->count++] = Block{p, size};
            return;
        }
        freeShared(p, size);
    }

    void trim() {
        std::unordered_map<std::size_t, std::vector<void*>> all;
        {
            std::lock_guard<std::mutex> lock(_lock);
            all.swap(_free);
            _cached.store(0, std::memory_order_relaxed);
        }
        for (auto& [size, blocks] : all)
            for (void* p : blocks)
                systemFree(p, size);
    }

    std::size_t getCachedBytes() const noexcept { return _cached.load(std::memory_order_relaxed); }

private:
    // The thread's cache is remembered in a plain thread-local pointer: the per-thread lookup of
    // the registry is paid once per thread, not twice per buffer.
    ThreadCache* threadCache() {
        if (ThreadCache* tc = t_threadCache) [[likely]]
            return tc;
        auto* tc = static_cast<ThreadCache*>(_threads->tryGetPointee());
        t_threadCache = tc;
        return tc;
    }

    void freeShared(void* p, std::size_t size) noexcept {
        {
            std::lock_guard<std::mutex> lock(_lock);
            if (_cached.load(std::memory_order_relaxed) + size <= _capacity) {
                try {
                    _free[size].push_back(p);
                    _cached.fetch_add(size, std::memory_order_relaxed);
                    return;
                } catch (...) {
                    // No room to remember the block: it goes back to the system.
                }
            }
        }
        systemFree(p, size);
    }

    static void* makeThread(void*) { return new ThreadCache; }
    static void freeThread(void* pointee, void* context) {
        auto* tc = static_cast<ThreadCache*>(pointee);
        auto* self = static_cast<LargeBlockCache*>(context);
        // Called on the ending thread, after which its registry lookups find nothing.
        if (t_threadCache == tc)
            t_threadCache = nullptr;
        for (std::size_t i = 0; i < tc->count; ++i)
            self->freeShared(tc->blocks[i].p, tc->blocks[i].size);
        delete tc;
    }

    static constinit thread_local ThreadCache* t_threadCache;

    std::size_t _capacity;
    std::mutex _lock;
    std::unordered_map<std::size_t, std::vector<void*>> _free;
    std::atomic<std::size_t> _cached{0};
    OPtr<LkThreadOpaqueData> _threads;
};

constinit thread_local LargeBlockCache::ThreadCache* LargeBlockCache::t_threadCache = nullptr;

LargeBlockCache& largeCache() {
    static LargeBlockCache* cache = new LargeBlockCache;
    return *cache;
}

// Live buffers and bytes. Each thread counts what it makes and frees in a record of its own,
// written without a locked instruction; a query sums the records. Records outlive their
// threads, which may have made buffers that others free.
struct alignas(64) LiveCounter {
    std::atomic<std::int64_t> buffers{0};
    std::atomic<std::int64_t> bytes{0};
    LiveCounter* next = nullptr;
};
std::mutex& liveLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}
LiveCounter* s_liveCounters = nullptr;
constinit thread_local LiveCounter* t_liveCounter = nullptr;

// The thread's first count enters its record in the list.
[[gnu::noinline]] LiveCounter* newLiveCounter() noexcept {
    auto* c = new (std::nothrow) LiveCounter;
    if (!c)
        std::terminate();
    std::lock_guard<std::mutex> lock(liveLock());
    c->next = s_liveCounters;
    s_liveCounters = c;
    t_liveCounter = c;
    return c;
}

void countLive(std::int64_t buffers, std::int64_t bytes) noexcept {
    LiveCounter* c = t_liveCounter;
    if (!c) [[unlikely]]
        c = newLiveCounter();
    c->buffers.store(c->buffers.load(std::memory_order_relaxed) + buffers,
                     std::memory_order_relaxed);
    c->bytes.store(c->bytes.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
}

template <class Field>
std::int64_t sumLive(Field field) {
    std::lock_guard<std::mutex> lock(liveLock());
    std::int64_t n = 0;
    for (LiveCounter const* c = s_liveCounters; c; c = c->next)
        n += field(*c).load(std::memory_order_relaxed);
    return n;
}

// A heap buffer: this header and the data share one block.
class HeapBufferImp final : public MbBufferImp {
public:
    static constexpr std::size_t roomOffset() noexcept {
        return MbAlignment::roundUp(sizeof(HeapBufferImp), 16);
    }

    // roomSize bytes at roomOffset() are left to the caller.
    static HeapBufferImp* create(char const* name, std::size_t size, MbAlignment const& alignment,
                                 std::size_t roomSize = 0) {
        std::size_t const header = roomOffset() + MbAlignment::roundUp(roomSize, 16);
        std::size_t total = header + alignment.getMask() + size;
        if (total < size || header < roomSize) // overflow
            throw MbExOutOfMemory(__FILE__, __LINE__, name, size);
        void* block;
        if (total <= kSmallLimit) {
            try {
                block = smallPool().alloc(total);
            } catch (std::bad_alloc const&) {
                block = nullptr;
            }
        } else {
            total = MbAlignment::roundUp(total, kPage);
            block = largeCache().alloc(total);
        }
        if (!block)
            throw MbExOutOfMemory(__FILE__, __LINE__, name, size);
        std::byte* data = alignment.apply(static_cast<std::byte*>(block) + header);
        countLive(1, static_cast<std::int64_t>(size));
        return ::new (block) HeapBufferImp(name, size, alignment, data, total);
    }

    // The block is freed after the header's destructor has run, with what the header knew.
    void operator delete(HeapBufferImp* p, std::destroying_delete_t) {
        std::size_t const blockSize = p->_blockSize;
        std::size_t const size = p->getSize();
        p->~HeapBufferImp();
        if (blockSize <= kSmallLimit)
            smallPool().free(p, blockSize);
        else
            largeCache().free(p, blockSize);
        countLive(-1, -static_cast<std::int64_t>(size));
    }

private:
    HeapBufferImp(char const* name, std::size_t size, MbAlignment const& alignment, std::byte* data,
                  std::size_t blockSize) noexcept
        : MbBufferImp(name, size, alignment, data, true), _blockSize(blockSize) {}
    ~HeapBufferImp() override = default;

    std::size_t _blockSize;
};

std::atomic<MbBufferFactory*> s_factories[MbBufferFactoryRegistry::kNbFactories];

} // namespace

MbBuffer::MbBuffer(std::size_t size, std::size_t alignment) {
    VN_ASSERT(MbAlignment::isPowerOfTwo(alignment));
    *this = MbBufferFactoryRegistry::getDefaultFactory().create("MbBuffer", size,
                                                                MbAlignment(alignment - 1));
    if (std::byte* data = getData())
        std::memset(data, 0, size);
}

MbBuffer MbBufferFactory::createWithRoom(char const* name, std::size_t size,
                                         MbAlignment const& alignment, std::size_t, void*& room) {
    room = nullptr;
    return create(name, size, alignment);
}

MbBuffer MbHeapBufferFactory::create(char const* name, std::size_t size,
                                     MbAlignment const& alignment) {
    if (size == 0)
        return MbBuffer();
    return MbBuffer(RCShdPtr<MbBufferImp>::adoptNew(HeapBufferImp::create(name, size, alignment)));
}

MbBuffer MbHeapBufferFactory::createWithRoom(char const* name, std::size_t size,
                                             MbAlignment const& alignment, std::size_t roomSize,
                                             void*& room) {
    room = nullptr;
    if (size == 0)
        return MbBuffer();
    HeapBufferImp* imp = HeapBufferImp::create(name, size, alignment, roomSize);
    room = reinterpret_cast<std::byte*>(imp) + HeapBufferImp::roomOffset();
    return MbBuffer(RCShdPtr<MbBufferImp>::adoptNew(imp));
}

std::int64_t MbHeapBufferFactory::getNbLiveBuffers() {
    return sumLive([](LiveCounter const& c) -> auto& { return c.buffers; });
}

std::int64_t MbHeapBufferFactory::getLiveBytes() {
    return sumLive([](LiveCounter const& c) -> auto& { return c.bytes; });
}

std::size_t MbHeapBufferFactory::getCachedBytes() noexcept {
    return largeCache().getCachedBytes();
}

void MbHeapBufferFactory::trim() {
    largeCache().trim();
}

MbHeapBufferFactory& MbBufferFactoryRegistry::getDefaultFactory() {
    static MbHeapBufferFactory* factory = new MbHeapBufferFactory;
    return *factory;
}

MbBufferFactory& MbBufferFactoryRegistry::getFactory(int id) {
    VN_ASSERT(id >= 0 && id < kNbFactories);
    MbBufferFactory* factory = s_factories[id].load(std::memory_order_acquire);
    if (!factory && id == 0)
        return getDefaultFactory();
    VN_ASSERT(factory != nullptr);
    return *factory;
}

MbBufferFactory* MbBufferFactoryRegistry::setFactory(int id, MbBufferFactory* factory) {
    VN_ASSERT(id >= 0 && id < kNbFactories);
    MbBufferFactory* previous = s_factories[id].exchange(factory, std::memory_order_acq_rel);
    if (!previous && id == 0)
        previous = &getDefaultFactory();
    return previous;
}

} // namespace Vn

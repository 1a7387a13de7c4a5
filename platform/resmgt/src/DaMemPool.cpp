#include "DaMemPool.h"
#include "Assertions.h"
#include "LkThreadOpaqueData.h"
#include "MbAlignment.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

namespace Vn {

namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kChunkAlignment = 4096;
constexpr std::uint32_t kMaxBatch = 64;

// Free blocks are linked through their first word. The link is accessed atomically because a
// block may have been the value block of an LkAtomicObj that a stale reader still copies.
void* loadLink(void* block) noexcept {
    return std::atomic_ref<void*>(*static_cast<void**>(block)).load(std::memory_order_relaxed);
}
void storeLink(void* block, void* next) noexcept {
    std::atomic_ref<void*>(*static_cast<void**>(block)).store(next, std::memory_order_relaxed);
}

} // namespace

class DaMemPool::Impl {
public:
    struct Bin {
        void* _head = nullptr;
        std::uint32_t _count = 0;
    };
    struct ThreadCache {
        Impl* _pool;
        std::unique_ptr<Bin[]> _bins;
    };
    // One size class: its free list and the chunk being carved for it.
    struct alignas(64) SharedClass {
        std::mutex _lock;
        void* _head = nullptr;
        char* _bumpCur = nullptr;
        char* _bumpEnd = nullptr;
        std::size_t _size = 0;
        std::uint32_t _cap = 0;   // most blocks a thread caches
        std::uint32_t _batch = 1; // blocks moved per refill
    };

    Impl(char const* name, std::size_t chunkSize, std::size_t cacheBytes, std::size_t largestSize)
        : _name(name ? name : ""), _chunkSize(chunkSize), _cacheBytes(cacheBytes),
          _largest(largestSize) {
        VN_ASSERT(largestSize >= 1);
        std::vector<std::size_t> sizes;
        for (std::size_t s = kGranule; s <= 128; s += kGranule)
            sizes.push_back(s);
        // Four classes per doubling above 128 bytes: at most a quarter is lost to rounding, and a
        // size that is a multiple of 2^k always lands on a class that is one too.
        for (std::size_t base = 128; sizes.back() < largestSize; base *= 2)
            for (std::size_t step = 1; step <= 4; ++step)
                sizes.push_back(base + step * base / 4);
        while (sizes.size() > 1 && sizes[sizes.size() - 2] >= largestSize)
            sizes.pop_back();
        VN_ASSERT(chunkSize >= sizes.back());
        _nbClasses = static_cast<unsigned>(sizes.size());
        _classes = std::make_unique<SharedClass[]>(_nbClasses);
        for (unsigned i = 0; i < _nbClasses; ++i) {
            SharedClass& sc = _classes[i];
            sc._size = sizes[i];
            std::size_t cap = std::min<std::size_t>(cacheBytes / sizes[i], UINT32_MAX / 2);
            sc._cap = static_cast<std::uint32_t>(cap);
            sc._batch = std::clamp<std::uint32_t>(sc._cap / 2, 1, kMaxBatch);
        }
        _classOf.resize(largestSize / kGranule + 2);
        unsigned cls = 0;
        for (std::size_t g = 0; g < _classOf.size(); ++g) {
            while (cls + 1 < _nbClasses && _classes[cls]._size < g * kGranule)
                ++cls;
            _classOf[g] = static_cast<std::uint16_t>(cls);
        }
        if (cacheBytes > 0)
            _caches =
                LkThreadOpaqueDataFactory::create(_name.c_str(), &makeCache, &freeCache, this);
    }

    ~Impl() {
        // Caches first: they hand their blocks back to classes that are about to go.
        _caches.reset();
        for (void* chunk : _chunks)
            ::operator delete(chunk, std::align_val_t(kChunkAlignment));
    }

    unsigned classOf(std::size_t size) const noexcept {
        return _classOf[(size + kGranule - 1) / kGranule];
    }

    ThreadCache* cache() {
        return _caches ? static_cast<ThreadCache*>(_caches->tryGetPointee()) : nullptr;
    }

    void* refill(ThreadCache& c, unsigned cls) {
        SharedClass& sc = _classes[cls];
        Bin& bin = c._bins[cls];
        {
            std::lock_guard<std::mutex> lock(sc._lock);
            while (bin._count < sc._batch && sc._head) {
                void* block = sc._head;
                sc._head = loadLink(block);
                storeLink(block, bin._head);
                bin._head = block;
                ++bin._count;
            }
            while (bin._count < sc._batch) {
                if (sc._bumpCur == sc._bumpEnd) {
                    if (bin._count > 0)
                        break;
                    newChunk(sc);
                }
                void* block = sc._bumpCur;
                sc._bumpCur += sc._size;
                storeLink(block, bin._head);
                bin._head = block;
                ++bin._count;
            }
        }
        void* block = bin._head;
        bin._head = loadLink(block);
        --bin._count;
        return block;
    }

    // Hands the n blocks at the head of bin back to the shared list.
    void flush(Bin& bin, SharedClass& sc, std::uint32_t n) noexcept {
        void* first = bin._head;
        void* last = first;
        for (std::uint32_t i = 1; i < n; ++i)
            last = loadLink(last);
        bin._head = loadLink(last);
        bin._count -= n;
        std::lock_guard<std::mutex> lock(sc._lock);
        storeLink(last, sc._head);
        sc._head = first;
    }

    void* allocShared(unsigned cls) {
        SharedClass& sc = _classes[cls];
        std::lock_guard<std::mutex> lock(sc._lock);
        if (void* block = sc._head) {
            sc._head = loadLink(block);
            return block;
        }
        if (sc._bumpCur == sc._bumpEnd)
            newChunk(sc);
        void* block = sc._bumpCur;
        sc._bumpCur += sc._size;
        return block;
    }

    void freeShared(void* block, unsigned cls) noexcept {
        SharedClass& sc = _classes[cls];
        std::lock_guard<std::mutex> lock(sc._lock);
        storeLink(block, sc._head);
        sc._head = block;
    }

    // Called with sc._lock held.
    void newChunk(SharedClass& sc) {
        char* chunk =
            static_cast<char*>(::operator new(_chunkSize, std::align_val_t(kChunkAlignment)));
        {
            std::lock_guard<std::mutex> lock(_chunkLock);
            try {
                _chunks.push_back(chunk);
            } catch (...) {
                ::operator delete(chunk, std::align_val_t(kChunkAlignment));
                throw;
            }
        }
        _reserved.fetch_add(_chunkSize, std::memory_order_relaxed);
        sc._bumpCur = chunk;
        sc._bumpEnd = chunk + _chunkSize / sc._size * sc._size;
    }

    static void* makeCache(void* context) {
        auto* pool = static_cast<Impl*>(context);
        auto* c = new ThreadCache{pool, std::make_unique<Bin[]>(pool->_nbClasses)};
        return c;
    }
    static void freeCache(void* pointee, void* context) {
        auto* c = static_cast<ThreadCache*>(pointee);
        auto* pool = static_cast<Impl*>(context);
        for (unsigned i = 0; i < pool->_nbClasses; ++i)
            if (c->_bins[i]._count > 0)
                pool->flush(c->_bins[i], pool->_classes[i], c->_bins[i]._count);
        delete c;
    }

    std::string _name;
    std::size_t _chunkSize;
    std::size_t _cacheBytes;
    std::size_t _largest;
    unsigned _nbClasses = 0;
    std::unique_ptr<SharedClass[]> _classes;
    std::vector<std::uint16_t> _classOf; // by size rounded up to the granule
    std::mutex _chunkLock;
    std::vector<void*> _chunks;
    std::atomic<std::size_t> _reserved{0};
    OPtr<LkThreadOpaqueData> _caches;
};

DaMemPool::DaMemPool(char const* name, std::size_t chunkSize, std::size_t cacheBytes,
                     std::size_t largestSize)
    : _impl(new Impl(name, chunkSize, cacheBytes, largestSize)) {}

DaMemPool::~DaMemPool() = default;

void* DaMemPool::alloc(std::size_t size) {
    Impl& im = *_impl.get();
    if (size > im._largest) [[unlikely]]
        return ::operator new(size, std::align_val_t(getAlignment(size)));
    unsigned cls = im.classOf(size);
    if (Impl::ThreadCache* c = im.cache()) [[likely]] {
        Impl::Bin& bin = c->_bins[cls];
        if (void* block = bin._head) [[likely]] {
            bin._head = loadLink(block);
            --bin._count;
            return block;
        }
        return im.refill(*c, cls);
    }
    return im.allocShared(cls);
}

void DaMemPool::free(void* block, std::size_t size) noexcept {
    if (!block)
        return;
    Impl& im = *_impl.get();
    if (size > im._largest) [[unlikely]] {
        ::operator delete(block, size, std::align_val_t(getAlignment(size)));
        return;
    }
    unsigned cls = im.classOf(size);
    Impl::ThreadCache* c = nullptr;
    try {
        c = im.cache();
    } catch (...) {
        // No cache could be made for this thread; the shared list takes the block.
    }
    if (c) [[likely]] {
        Impl::Bin& bin = c->_bins[cls];
        storeLink(block, bin._head);
        bin._head = block;
        std::uint32_t cap = im._classes[cls]._cap;
        if (++bin._count > cap) [[unlikely]]
            im.flush(bin, im._classes[cls], bin._count - cap / 2);
        return;
    }
    im.freeShared(block, cls);
}

std::size_t DaMemPool::getAlignment(std::size_t size) noexcept {
    return MbAlignment::naturalAlignment(size, kGranule, kChunkAlignment);
}

std::string const& DaMemPool::getName() const noexcept {
    return _impl.get()->_name;
}
std::size_t DaMemPool::getChunkSize() const noexcept {
    return _impl.get()->_chunkSize;
}
std::size_t DaMemPool::getCacheBytes() const noexcept {
    return _impl.get()->_cacheBytes;
}
std::size_t DaMemPool::getLargestSize() const noexcept {
    return _impl.get()->_largest;
}
std::size_t DaMemPool::getReservedBytes() const noexcept {
    return _impl.get()->_reserved.load(std::memory_order_relaxed);
}

} // namespace Vn

#pragma once

#include "VnExport.h"

#include <atomic>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

// ThreadSanitizer does not model fences, so under it the block copies carry the orderings the
// fences would otherwise give.
#if defined(__SANITIZE_THREAD__)
#define VN_LK_ATOMIC_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VN_LK_ATOMIC_TSAN 1
#endif
#endif

namespace Vn {

// Blocks of every LkAtomicObj come from one process-wide pool that is never destroyed, so a
// retired block stays mapped for readers that still copy it. Blocks are aligned to the largest
// power of two dividing their size, up to 4096.
class VN_EXPORT LkAtomicBlocks {
public:
    static void* alloc(std::size_t size);
    static void free(void* block, std::size_t size) noexcept;
    static constexpr std::size_t kLargestBlock = 16384;
};

template <class T>
class LkAtomicRdGuard;
template <class T>
class LkAtomicWrGuard;

// A value type may tell that only a prefix of it is in use: kHeadBytes leading bytes always are,
// and getLiveBytes(value), read from that head, says how many are in all. Bytes past them are
// neither copied nor read.
template <class T>
concept LkAtomicPartialCopy = requires(T const& v) {
    { T::kHeadBytes } -> std::convertible_to<std::size_t>;
    { T::getLiveBytes(v) } -> std::convertible_to<std::size_t>;
};

namespace LkAtomicDetail {

#ifdef VN_LK_ATOMIC_TSAN
inline constexpr std::memory_order kWordLoad = std::memory_order_acquire;
inline constexpr std::memory_order kWordStore = std::memory_order_release;
inline void fenceAfterCopyIn() noexcept {}
inline void fenceBeforeCopyOut() noexcept {}
#else
inline constexpr std::memory_order kWordLoad = std::memory_order_relaxed;
inline constexpr std::memory_order kWordStore = std::memory_order_relaxed;
// Seqlock pairing: the loads of a copy happen before the re-check of the word, and the stores
// into a reused block after the compare-and-swap that retired it, so a reader that saw any of
// those stores also sees the word move on.
inline void fenceAfterCopyIn() noexcept {
    std::atomic_thread_fence(std::memory_order_acquire);
}
inline void fenceBeforeCopyOut() noexcept {
    std::atomic_thread_fence(std::memory_order_release);
}
#endif

template <class T>
struct Layout {
    static constexpr std::size_t kWords = (sizeof(T) + 7) / 8;
    static constexpr std::size_t kBytes = kWords * 8;
    static constexpr std::size_t kAlign = std::bit_ceil(sizeof(T)) < 64 ? 64
                                          : std::bit_ceil(sizeof(T)) > 4096
                                              ? 4096
                                              : std::bit_ceil(sizeof(T));
    static constexpr std::size_t kBlockSize = (kBytes + kAlign - 1) / kAlign * kAlign;
    // The version tag takes the 16 high bits of the word and the low bits that block alignment
    // leaves zero: 16 + log2(kAlign) bits, 22 to 28 (26 for a 1 KiB state). Wrapping it back to a
    // value a reader saw would take millions of commits during one copy.
    static constexpr unsigned kLowTagBits = std::countr_zero(kAlign);
    static constexpr unsigned kTagBits = 16 + kLowTagBits;
    static constexpr std::uint64_t kLowMask = kAlign - 1;
    static constexpr std::uint64_t kAddrMask = ((std::uint64_t(1) << 48) - 1) & ~kLowMask;
    static constexpr std::uint64_t kTagMask = (std::uint64_t(1) << kTagBits) - 1;

    static void* blockOf(std::uint64_t word) noexcept {
        return reinterpret_cast<void*>(static_cast<std::uintptr_t>(word & kAddrMask));
    }
    static std::uint64_t tagOf(std::uint64_t word) noexcept {
        return ((word >> 48) << kLowTagBits) | (word & kLowMask);
    }
    static std::uint64_t pack(void* block, std::uint64_t tag) noexcept {
        tag &= kTagMask;
        return ((tag >> kLowTagBits) << 48) | reinterpret_cast<std::uintptr_t>(block) |
               (tag & kLowMask);
    }

    // Words [from, to) of a block into dst.
    static void copyWordsIn(unsigned char* dst, void* block, std::size_t from,
                            std::size_t to) noexcept {
        auto* words = static_cast<std::uint64_t*>(block);
#pragma GCC unroll 8
        for (std::size_t i = from; i < to; ++i) {
            std::uint64_t w = std::atomic_ref<std::uint64_t>(words[i]).load(kWordLoad);
            std::memcpy(dst + 8 * i, &w, 8);
        }
    }

    // Words in use in a value: all of them, unless T says how many bytes of it carry information
    // (LkAtomicPartialCopy), so that the unused tail of a large value is never copied.
    static std::size_t liveWords(unsigned char const* value) noexcept {
        if constexpr (LkAtomicPartialCopy<T>) {
            std::size_t const n = (T::getLiveBytes(*reinterpret_cast<T const*>(value)) + 7) / 8;
            return n < kWords ? n : kWords;
        } else {
            return kWords;
        }
    }

    static void copyIn(unsigned char* dst, void* block) noexcept {
        if constexpr (LkAtomicPartialCopy<T>) {
            // The head tells how much follows; a torn head is caught by the caller's re-check.
            constexpr std::size_t head =
                (T::kHeadBytes + 7) / 8 < kWords ? (T::kHeadBytes + 7) / 8 : kWords;
            copyWordsIn(dst, block, 0, head);
            std::size_t const n = liveWords(dst);
            if (n > head)
                copyWordsIn(dst, block, head, n);
        } else {
            copyWordsIn(dst, block, 0, kWords);
        }
    }
    static void copyOut(void* block, unsigned char const* src) noexcept {
        auto* words = static_cast<std::uint64_t*>(block);
        std::size_t const n = liveWords(src);
#pragma GCC unroll 8
        for (std::size_t i = 0; i < n; ++i) {
            std::uint64_t w;
            std::memcpy(&w, src + 8 * i, 8);
            std::atomic_ref<std::uint64_t>(words[i]).store(w, kWordStore);
        }
    }
};

// A private, word-padded copy of a T.
template <class T>
struct alignas(alignof(T) > alignof(std::uint64_t) ? alignof(T) : alignof(std::uint64_t)) Buffer {
    unsigned char _bytes[Layout<T>::kBytes];
    T* get() noexcept { return std::launder(reinterpret_cast<T*>(_bytes)); }
    T const* get() const noexcept { return std::launder(reinterpret_cast<T const*>(_bytes)); }
};

// The calling thread's spare block for values of type T: the block its next commit publishes.
// Made at the first commit, given back to the pool when the thread ends.
template <class T>
class Spare {
public:
    static void*& slot() noexcept {
        thread_local Holder holder;
        return holder._block;
    }

private:
    struct Holder {
        void* _block = nullptr;
        ~Holder() {
            if (_block)
                LkAtomicBlocks::free(_block, Layout<T>::kBlockSize);
        }
    };
};

} // namespace LkAtomicDetail

// A value of type T changed by copy-on-write and one compare-and-swap. The object is one 64-bit
// word: the address of the block holding the current value and a version tag. Readers copy the
// block and keep the copy if the word did not move meanwhile; writers edit a private copy, write
// it into their thread's spare block and swap that block in. Nothing ever writes the current
// block, so no reader needs a lock.
template <class T>
class LkAtomicObj {
    static_assert(std::is_trivially_copyable_v<T>, "LkAtomicObj holds trivially copyable values");
    using L = LkAtomicDetail::Layout<T>;
    static_assert(L::kBlockSize <= LkAtomicBlocks::kLargestBlock, "value too large");

public:
    explicit LkAtomicObj(T const& initial = T{}) {
        void* block = LkAtomicBlocks::alloc(L::kBlockSize);
        LkAtomicDetail::Buffer<T> buf;
        std::memcpy(buf._bytes, &initial, sizeof(T));
        L::copyOut(block, buf._bytes);
        _word.store(L::pack(block, 0), std::memory_order_release);
    }
    LkAtomicObj(LkAtomicObj const&) = delete;
    LkAtomicObj& operator=(LkAtomicObj const&) = delete;
    ~LkAtomicObj() {
        LkAtomicBlocks::free(L::blockOf(_word.load(std::memory_order_acquire)), L::kBlockSize);
    }

    // A consistent snapshot by value.
    T load() const {
        LkAtomicDetail::Buffer<T> buf;
        snapshot(buf._bytes);
        return *buf.get();
    }

    // Bits of the version tag; it counts commits modulo 2^kTagBits.
    static constexpr unsigned kTagBits = L::kTagBits;

private:
    friend class LkAtomicRdGuard<T>;
    friend class LkAtomicWrGuard<T>;

    // Copies the current value into dst; returns the word the copy belongs to.
    std::uint64_t snapshot(unsigned char* dst) const noexcept {
        std::uint64_t word = _word.load(std::memory_order_acquire);
        for (;;) {
            L::copyIn(dst, L::blockOf(word));
            LkAtomicDetail::fenceAfterCopyIn();
            std::uint64_t again = _word.load(std::memory_order_acquire);
            if (again == word)
                return word;
            word = again;
        }
    }

    std::atomic<std::uint64_t> _word;
};

// A consistent private snapshot of an LkAtomicObj.
template <class T>
class LkAtomicRdGuard {
public:
    explicit LkAtomicRdGuard(LkAtomicObj<T> const& obj) : _obj(obj) { refresh(); }
    LkAtomicRdGuard(LkAtomicRdGuard const&) = delete;
    LkAtomicRdGuard& operator=(LkAtomicRdGuard const&) = delete;

    T const* operator->() const noexcept { return _buf.get(); }
    T const& operator*() const noexcept { return *_buf.get(); }
    // Takes a new snapshot.
    void refresh() noexcept { _word = _obj.snapshot(_buf._bytes); }

private:
    LkAtomicObj<T> const& _obj;
    std::uint64_t _word;
    LkAtomicDetail::Buffer<T> _buf;
};

// A private, editable snapshot of an LkAtomicObj. commit() publishes the edited copy if no other
// commit came in between; otherwise it takes a new snapshot and answers false, and the caller
// decides again from *this, as in
// `LkAtomicWrGuard<S> g(obj); do { g->x++; } while (!g.commit());`.
// The loop body must have no effect outside the guard: it may run several times.
template <class T>
class LkAtomicWrGuard {
    using L = LkAtomicDetail::Layout<T>;

public:
    explicit LkAtomicWrGuard(LkAtomicObj<T>& obj) : _obj(obj) { refresh(); }
    LkAtomicWrGuard(LkAtomicWrGuard const&) = delete;
    LkAtomicWrGuard& operator=(LkAtomicWrGuard const&) = delete;

    T* operator->() noexcept { return _buf.get(); }
    T& operator*() noexcept { return *_buf.get(); }
    T const* operator->() const noexcept { return _buf.get(); }
    T const& operator*() const noexcept { return *_buf.get(); }

    // Drops the edits and takes a new snapshot.
    void refresh() noexcept { _word = _obj.snapshot(_buf._bytes); }

    // True when the copy became the object's value; the guard then holds that value and may be
    // edited and committed again. False when another commit came first: the guard now holds the
    // newer value, without the edits.
    bool commit() {
        void*& spare = LkAtomicDetail::Spare<T>::slot();
        if (!spare)
            spare = LkAtomicBlocks::alloc(L::kBlockSize);
        LkAtomicDetail::fenceBeforeCopyOut();
        L::copyOut(spare, _buf._bytes);
        std::uint64_t expected = _word;
        std::uint64_t desired = L::pack(spare, L::tagOf(expected) + 1);
        if (_obj._word.compare_exchange_strong(expected, desired, std::memory_order_acq_rel,
                                               std::memory_order_acquire)) {
            spare = L::blockOf(_word);
            _word = desired;
            return true;
        }
        refresh();
        return false;
    }

private:
    LkAtomicObj<T>& _obj;
    std::uint64_t _word;
    LkAtomicDetail::Buffer<T> _buf;
};

} // namespace Vn

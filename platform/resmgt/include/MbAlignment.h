#pragma once

#include "Assertions.h"

#include <bit>
#include <cstddef>
#include <cstdint>

namespace Vn {

// Alignment arithmetic, and the alignment a buffer is asked for: a mask (a power of two minus
// one) and an offset. A data pointer p satisfies it when (p + offset) & mask is 0, so a buffer
// with a header of `offset` bytes in front of its pixels can still have aligned pixels.
class MbAlignment {
public:
    static constexpr bool isPowerOfTwo(std::size_t v) noexcept { return std::has_single_bit(v); }
    // True for 0, 1, 3, 7, ...: the masks of the powers of two.
    static constexpr bool checkPow2Minus1(std::size_t v) noexcept { return (v & (v + 1)) == 0; }
    static constexpr std::size_t roundUp(std::size_t v, std::size_t alignment) noexcept {
        return (v + alignment - 1) & ~(alignment - 1);
    }
    static constexpr std::size_t roundDown(std::size_t v, std::size_t alignment) noexcept {
        return v & ~(alignment - 1);
    }
    static bool isAligned(void const* p, std::size_t alignment) noexcept {
        return (reinterpret_cast<std::uintptr_t>(p) & (alignment - 1)) == 0;
    }
    template <class T>
    static T* alignUp(T* p, std::size_t alignment) noexcept {
        return reinterpret_cast<T*>(roundUp(reinterpret_cast<std::uintptr_t>(p), alignment));
    }
    // The largest power of two that divides size, kept within [minimum, maximum]; size 0 gives
    // the minimum. A block of a given size can always have this alignment without padding.
    static constexpr std::size_t naturalAlignment(std::size_t size, std::size_t minimum = 16,
                                                  std::size_t maximum = 4096) noexcept {
        if (size == 0)
            return minimum;
        std::size_t low = size & (~size + 1);
        return low < minimum ? minimum : (low > maximum ? maximum : low);
    }

    // Byte alignment, no offset.
    constexpr MbAlignment() noexcept = default;
    explicit MbAlignment(std::size_t mask, std::size_t offset = 0) : _mask(mask), _offset(offset) {
        VN_ASSERT(checkPow2Minus1(mask));
        VN_ASSERT(offset <= mask);
    }

    constexpr std::size_t getMask() const noexcept { return _mask; }
    constexpr std::size_t getOffset() const noexcept { return _offset; }
    // The power of two the data is aligned to.
    constexpr std::size_t getAlignment() const noexcept { return _mask + 1; }
    bool isSatisfiedBy(void const* p) const noexcept {
        return ((reinterpret_cast<std::uintptr_t>(p) + _offset) & _mask) == 0;
    }
    // The first address at or after p that satisfies this alignment.
    template <class T>
    T* apply(T* p) const noexcept {
        std::uintptr_t v = reinterpret_cast<std::uintptr_t>(p) + _offset;
        v = (v + _mask) & ~static_cast<std::uintptr_t>(_mask);
        return reinterpret_cast<T*>(v - _offset);
    }
    constexpr bool operator==(MbAlignment const&) const noexcept = default;

private:
    std::size_t _mask = 0;
    std::size_t _offset = 0;
};

} // namespace Vn

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace Vn {

// Alignment arithmetic. Every alignment is a power of two.
class MbAlignment {
public:
    static constexpr bool isPowerOfTwo(std::size_t v) noexcept { return std::has_single_bit(v); }
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
};

} // namespace Vn

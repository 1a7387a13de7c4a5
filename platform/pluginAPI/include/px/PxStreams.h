#pragma once

#include "VnExport.h"

#include <cstdint>

namespace Vn {

// A set of streams. A stream is -1 (the single stream of a mono image) or 0 to kMaxStream
// (views of a multi-view image); -2, kAllStreams, stands for every stream at once.
class VN_EXPORT PxStreams {
public:
    static constexpr int kAllStreams = -2;
    static constexpr int kMaxStream = 62;

    // Raises an assertion failure unless -2 <= stream <= kMaxStream.
    static void validateStream(int stream);

    constexpr PxStreams() noexcept = default;
    void add(int stream);
    bool contains(int stream) const noexcept;
    void clear() noexcept { _bits = 0; }
    bool isEmpty() const noexcept { return _bits == 0; }

private:
    static constexpr std::uint64_t kAllBit = std::uint64_t(1) << 63;
    std::uint64_t _bits = 0;
};

} // namespace Vn

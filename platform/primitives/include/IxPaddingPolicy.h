#pragma once

#include <cstdint>

namespace Vn {

// What a line holds where it reaches beyond the pixels it is read from. The modes are those of
// the texture sampler's wrap modes.
template <class T>
class IxPaddingPolicy {
public:
    enum Mode : std::int32_t {
        CONSTANT = 0, // the policy's value
        EDGE = 1,     // the nearest edge pixel
        REPEAT = 2,   // the region repeated
        MIRROR = 3,   // the region repeated, every second period reversed
        NOOP = 4,     // nothing: the source must cover all that is read
    };

    IxPaddingPolicy() noexcept = default;
    IxPaddingPolicy(int mode, T const& value) noexcept : _mode(Mode(mode)), _value(value) {}

    Mode getMode() const noexcept { return _mode; }
    T const& getValue() const noexcept { return _value; }

private:
    Mode _mode = NOOP;
    T _value{};
};

} // namespace Vn

#pragma once

#include "VnExport.h"

#include <string>
#include <utility>
#include <vector>

namespace Vn {

// What a tool input accepts: a choice among labelled values.
class VN_EXPORT PiEnumPolicy {
public:
    using Entry = std::pair<int, std::string>;
    // The default must be one of the values; labels and values must be unique.
    PiEnumPolicy(std::vector<Entry> entries, bool animatable, int defaultValue);
    virtual ~PiEnumPolicy();

    std::vector<Entry> const& getEntries() const noexcept { return _entries; }
    bool isAnimatable() const noexcept { return _animatable; }
    int getDefaultValue() const noexcept { return _default; }
    bool isValid(int value) const noexcept;
    // Raise ExBase for a value or label the policy does not have.
    std::string const& getLabel(int value) const;
    int getValue(std::string const& label) const;

private:
    std::vector<Entry> _entries;
    bool _animatable;
    int _default;
};

// What a tool input accepts: a value in [min, max].
template <class T>
class VN_EXPORT PiRangeInputPolicy {
public:
    // min must not exceed max, and the default must lie between them.
    PiRangeInputPolicy(T min, T max, T defaultValue, bool hidden = false);
    virtual ~PiRangeInputPolicy();

    T getMin() const noexcept { return _min; }
    T getMax() const noexcept { return _max; }
    T getDefaultValue() const noexcept { return _default; }
    bool isHidden() const noexcept { return _hidden; }
    bool isValid(T v) const noexcept { return _min <= v && v <= _max; }
    T clamp(T v) const noexcept { return v < _min ? _min : _max < v ? _max : v; }

private:
    T _min;
    T _max;
    T _default;
    bool _hidden;
};

// A time offset in frames, over the whole time axis.
class VN_EXPORT PiTimeOffsetInputPolicy {
public:
    static PiRangeInputPolicy<int> const& getInstance();
};

// The same, for inputs not shown to the user.
class VN_EXPORT PiHiddenTimeOffsetInputPolicy {
public:
    static PiRangeInputPolicy<int> const& getInstance();
};

// The shared policies of the tools: made at the package's start, gone at its end.
class VN_EXPORT PiInputPolicies {
public:
    static void initialize();
    static void finalize();
};

} // namespace Vn

#pragma once

#include "DtTime.h"
#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Vn {

class PiInput;
class PiValueNode;

// What an input of a tool accepts: whether its value may change over time, which values pass,
// and what it goes back to on reset. One object may serve many inputs and tools.
class VN_EXPORT PiInputPolicy : public RCBase<LkCounter<int>> {
public:
    ~PiInputPolicy() override;
    // An input that cannot animate is read at time 0, whatever time is asked.
    virtual bool canAnimate() const { return true; }
    // True when every value goes through unchanged, so no filtering node is needed.
    virtual bool isPassAll() const { return true; }
    // Hidden inputs are not offered to the user.
    virtual bool isHidden() const { return false; }
    // The type of the values the policy rules; policies agree when it is the same.
    virtual std::type_info const& getValueType() const = 0;
    bool hasSameType(PiInputPolicy const& other) const {
        return getValueType() == other.getValueType();
    }
    bool hasSameType(RCShdPtr<PiInputPolicy const> const& other) const {
        return other && hasSameType(*other);
    }
    // Brings the input back to the policy's default. Nothing by default.
    virtual void resetValue(PiInput& input) const;

    // The value node that feeds the input; null when none does.
    static RCShdPtr<PiValueNode> getValueNode(PiInput const& input);
};

// Any value of T, through unchanged; the default is T's own.
template <class T>
class VN_EXPORT PiTypedInputPolicy : public PiInputPolicy {
public:
    explicit PiTypedInputPolicy(T defaultValue = T(), bool animatable = true, bool hidden = false);
    ~PiTypedInputPolicy() override;

    // The shared policy of the type: the default for inputs that declare none.
    static RCShdPtr<PiTypedInputPolicy const> const& getInstance();

    bool canAnimate() const override { return _animatable; }
    bool isHidden() const override { return _hidden; }
    std::type_info const& getValueType() const override { return typeid(T); }
    T const& getDefaultValue() const noexcept { return _default; }
    // The value the input passes on when it holds v.
    virtual T filterValue(T const& v) const { return v; }
    // Whether a user may set v.
    virtual bool canSetValue(T const& /*v*/) const { return true; }
    // Writes the default into the stored value of the input's value node.
    void resetValue(PiInput& input) const override;

private:
    T _default;
    bool _animatable;
    bool _hidden;
};

// A value in [min, max]; others are clamped on their way through.
template <class T>
class VN_EXPORT PiRangeInputPolicy : public PiTypedInputPolicy<T> {
public:
    // min must not exceed max, and the default must lie between them.
    PiRangeInputPolicy(T min, T max, T defaultValue, bool hidden = false, bool animatable = true);
    ~PiRangeInputPolicy() override;
    static RCShdPtr<PiRangeInputPolicy const> create(T min, T max, T defaultValue,
                                                     bool hidden = false, bool animatable = true);

    T getMin() const noexcept { return _min; }
    T getMax() const noexcept { return _max; }
    bool isValid(T v) const noexcept { return _min <= v && v <= _max; }
    T clamp(T v) const noexcept { return v < _min ? _min : _max < v ? _max : v; }

    bool isPassAll() const override { return false; }
    T filterValue(T const& v) const override;
    bool canSetValue(T const& v) const override { return isValid(v); }

private:
    T _min;
    T _max;
};

// A choice among labelled values; a value that is not a choice becomes the default.
class VN_EXPORT PiEnumPolicy : public PiTypedInputPolicy<int> {
public:
    using Entry = std::pair<int, std::string>;
    // The default must be one of the values; labels and values must be unique.
    PiEnumPolicy(std::vector<Entry> entries, bool animatable, int defaultValue);
    ~PiEnumPolicy() override;

    std::vector<Entry> const& getEntries() const noexcept { return _entries; }
    bool isAnimatable() const noexcept { return canAnimate(); }
    bool isValid(int value) const noexcept;
    // Raise ExBase for a value or label the policy does not have.
    std::string const& getLabel(int value) const;
    int getValue(std::string const& label) const;

    bool isPassAll() const override { return false; }
    int filterValue(int const& v) const override;
    bool canSetValue(int const& v) const override { return isValid(v); }

private:
    std::vector<Entry> _entries;
};

// What a 2D shape input accepts: shapes of one curve type (any when negative), with or without
// per-point activation and pressure.
class VN_EXPORT PiShape2dInputPolicy : public PiInputPolicy {
public:
    PiShape2dInputPolicy(int curveType, bool withPointActivation, bool withPressure);
    ~PiShape2dInputPolicy() override;
    static RCShdPtr<PiShape2dInputPolicy const> create(int curveType, bool withPointActivation,
                                                       bool withPressure);
    // Any shape.
    static RCShdPtr<PiShape2dInputPolicy const> const& getDefault();

    int getCurveType() const noexcept { return _curveType; }
    bool hasPointActivation() const noexcept { return _withPointActivation; }
    bool hasPressure() const noexcept { return _withPressure; }
    bool accepts(int curveType) const noexcept { return _curveType < 0 || curveType == _curveType; }
    // Shapes pass as they are; the curve type is checked where shapes are made.
    std::type_info const& getValueType() const override;

private:
    int _curveType;
    bool _withPointActivation;
    bool _withPressure;
};

extern template class PiTypedInputPolicy<bool>;
extern template class PiTypedInputPolicy<double>;
extern template class PiTypedInputPolicy<int>;
extern template class PiTypedInputPolicy<std::string>;
extern template class PiTypedInputPolicy<DtTime>;
extern template class PiRangeInputPolicy<int>;
extern template class PiRangeInputPolicy<double>;

} // namespace Vn

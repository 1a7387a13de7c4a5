#pragma once

#include "Rational.h"
#include "VnExport.h"

#include <utility>

namespace Vn {

// The time span, in seconds, over which a result stays true: [low, high), high exclusive. An
// interval is empty when high is below low. The bounds -31536000 and 31536000 stand for the two
// infinities and are never shifted.
class VN_EXPORT PxValidityInterval {
public:
    static constexpr double kNegInfinity = -31536000.0;
    static constexpr double kPosInfinity = 31536000.0;
    static PxValidityInterval const FULL;
    static PxValidityInterval const EMPTY;

    constexpr PxValidityInterval() noexcept = default;
    constexpr PxValidityInterval(double low, double high) noexcept : _low(low), _high(high) {}
    static PxValidityInterval const& getFull() noexcept { return FULL; }

    double getLow() const noexcept { return _low; }
    double getHigh() const noexcept { return _high; }
    bool isEmpty() const noexcept { return _high < _low; }
    bool isNonEmpty() const noexcept { return !isEmpty(); }
    bool isFull() const noexcept { return _low <= kNegInfinity && _high >= kPosInfinity; }
    bool contains(double t) const noexcept { return _low <= t && t < _high; }
    // The greater start and the lesser end.
    PxValidityInterval intersect(PxValidityInterval const& o) const noexcept;
    PxValidityInterval& operator&=(PxValidityInterval const& o) noexcept {
        return *this = intersect(o);
    }
    // Both bounds moved by dt, except infinite ones.
    PxValidityInterval shifted(double dt) const noexcept;
    // The interval in whole frame indices at a frame rate: the first frame that starts inside
    // it and the first frame after it; infinite bounds stay infinite.
    PxValidityInterval getDiscreteInterval(Rational const& rate) const;

    bool operator==(PxValidityInterval const& o) const noexcept {
        return (_low == o._low && _high == o._high) || (isEmpty() && o.isEmpty());
    }

private:
    double _low = kNegInfinity;
    double _high = kPosInfinity;
};

// What every result carries: the interval over which it holds.
class VN_EXPORT PxBaseResult {
public:
    PxBaseResult() noexcept = default;
    explicit PxBaseResult(PxValidityInterval const& vi) noexcept : _vi(vi) {}
    PxValidityInterval const& getValidityInterval() const noexcept { return _vi; }
    void setValidityInterval(PxValidityInterval const& vi) noexcept { _vi = vi; }
    // Narrows vi to the result's own interval.
    void reduceVI(PxValidityInterval& vi) const noexcept { vi &= _vi; }

private:
    PxValidityInterval _vi;
};

// A value with the interval over which it holds.
template <class T>
class VN_EXPORT PxResult : public PxBaseResult {
public:
    PxResult() = default;
    PxResult(T value, PxValidityInterval const& vi = PxValidityInterval::FULL)
        : PxBaseResult(vi), _value(std::move(value)) {}
    T const& getValue() const noexcept { return _value; }
    T& getValue() noexcept { return _value; }
    void setValue(T value) { _value = std::move(value); }
    bool operator==(PxResult const& o) const {
        return _value == o._value && getValidityInterval() == o.getValidityInterval();
    }

private:
    T _value{};
};

} // namespace Vn

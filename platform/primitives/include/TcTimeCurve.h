#pragma once

#include "GeInterval.h"
#include "LkCounter.h"
#include "RCPvtEngPtr.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

// The animation of one value: keys at times, each with its handles, interpolation and constraint,
// and an extrapolation beyond the first and the last key. Its three data arrays are what files
// hold, so their codes and layout never change. Shared copy-on-write: whoever changes a shared
// curve changes a clone, so evaluation on workers needs no lock.
class VN_EXPORT TcTimeCurve : public RCBase<LkCounter<int>> {
public:
    enum InterpolationType {
        INTERP_CONSTANT = 0,
        INTERP_LINEAR = 1,
        INTERP_SMOOTH = 2,
        INTERP_BEZIER = 3
    };
    enum ExtrapolationType {
        EXTRAP_CONSTANT = 0,
        EXTRAP_LINEAR = 1,
        EXTRAP_CYCLE = 2,
        EXTRAP_CYCLE_OFFSET = 3
    };
    enum ConstraintType { CONSTRAINT_BROKEN = 0, CONSTRAINT_UNIFIED = 1, CONSTRAINT_FLAT = 2 };
    static constexpr int DEFAULT_EXTRAPOLATION = EXTRAP_CONSTANT;
    static constexpr int DEFAULT_INTERPOLATION = INTERP_SMOOTH;
    // Doubles per key in the keyframe data: time, value, in dt, in dv, out dt, out dv.
    static constexpr int KEY_DATA_SIZE = 6;

    // An offset from its key: the in handle lies at (time - dt, value - dv), the out handle at
    // (time + dt, value + dv). A dt of 0 is an automatic handle.
    struct Handle {
        double dt = 0.0;
        double dv = 0.0;
        bool operator==(Handle const&) const = default;
    };
    struct Key {
        double time = 0.0;
        double value = 0.0;
        Handle in;
        Handle out;
        int interpolation = DEFAULT_INTERPOLATION;
        int constraint = CONSTRAINT_UNIFIED;
        bool operator==(Key const&) const = default;
    };

    TcTimeCurve() = default;
    // Unknown codes raise ExBase.
    TcTimeCurve(int extrapolation, int interpolation);
    // Loads stored data. Anything malformed raises ExBase naming the first fault; nothing of it
    // is kept.
    TcTimeCurve(Vector<double> const& keyframes, Vector<int> const& interpolations,
                Vector<int> const& constraints, int extrapolation, int interpolation);
    ~TcTimeCurve() override;

    virtual RCPvtEngPtr<TcTimeCurve> clone() const;
    // O(log n). Never NaN or infinite.
    virtual double evaluate(double seconds) const noexcept;
    // Replaces the value of a key at exactly that time, else adds a unified key with automatic
    // handles and the curve's interpolation type. A non-finite time or value raises ExBase.
    virtual void setKey(double seconds, double value);
    virtual bool hasKey(double seconds) const noexcept;
    virtual int getNbKeys() const noexcept { return static_cast<int>(_keys.size()); }
    virtual bool isEmpty() const noexcept { return _keys.empty(); }
    virtual int getExtrapolationType() const noexcept { return _extrapolation; }
    virtual void setExtrapolationType(int type);
    // The type new keys take.
    virtual int getInterpolationType() const noexcept { return _interpolation; }
    virtual void setInterpolationType(int type);
    virtual bool hasTimeTransform() const noexcept { return false; }

    Vector<double> getKeyframeData() const;
    Vector<int> getInterpolationData() const;
    Vector<int> getConstraintData() const;

    // An index beyond the keys raises ExBase, as do non-finite handles, a negative dt or an
    // unknown code. Edits apply the key's constraint.
    Key const& getKey(int index) const;
    void setKeyHandles(int index, Handle in, Handle out);
    void setKeyInterpolation(int index, int type);
    void setKeyConstraint(int index, int type);
    // False when no key is at exactly that time.
    bool removeKey(double seconds);

    // The nearest key strictly after (before) the time; false when there is none.
    bool getNextKeyTime(double seconds, double& out) const noexcept;
    bool getPreviousKeyTime(double seconds, double& out) const noexcept;
    bool getFirstKeyTime(double& out) const noexcept;
    bool getLastKeyTime(double& out) const noexcept;

    // A half-open span holding the time over which the value cannot change; the smallest one
    // that holds it where the value moves.
    GeInterval<double> getValidity(double seconds) const noexcept;

private:
    void checkIndex(int index) const;
    void applyConstraint(Key& key) const noexcept;
    double secant(int i) const noexcept;
    double smoothSlope(int i) const noexcept;
    double endSlope(bool atStart) const noexcept;
    double evaluateSegment(int i, double t) const noexcept;
    double evaluateWithin(double t) const noexcept;
    double evaluateClamped(double t) const noexcept;

    // Times apart from the keys, so that the search walks one dense array.
    Vector<double> _times;
    Vector<Key> _keys;
    int _extrapolation = DEFAULT_EXTRAPOLATION;
    int _interpolation = DEFAULT_INTERPOLATION;
};

} // namespace Vn

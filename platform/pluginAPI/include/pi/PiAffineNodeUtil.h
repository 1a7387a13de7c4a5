#pragma once

#include "GeAffineMatrix.h"
#include "PiInputPolicy.h"
#include "PiToolTopologyInterface.h"
#include "PxValueProtocol.h"

#include <string>

namespace Vn {

class PiStructuredPolicyDescriptor;
class PiToolPolicyDescriptor;
class PxValidityInterval;

// A range that keeps its values away from zero by epsilon: a scale of 0 would make a transform
// that cannot be undone.
template <class T>
class VN_EXPORT PiRangeAvoidZeroInputPolicy : public PiRangeInputPolicy<T> {
public:
    // Neither bound may lie within [-epsilon, epsilon]; ExBase otherwise.
    PiRangeAvoidZeroInputPolicy(T min, T max, T defaultValue, T epsilon, bool hidden = false,
                                bool animatable = true);
    ~PiRangeAvoidZeroInputPolicy() override;
    static RCShdPtr<PiRangeAvoidZeroInputPolicy const>
    create(T min, T max, T defaultValue, T epsilon, bool hidden = false, bool animatable = true);

    T getEpsilon() const noexcept { return _epsilon; }
    // The range's value, then one in [-epsilon, 0) becomes -epsilon and one in [0, epsilon]
    // becomes epsilon.
    T filterValue(T const& v) const override;
    bool canSetValue(T const& v) const override;

private:
    T _epsilon;
};

extern template class PiRangeAvoidZeroInputPolicy<double>;

// The eight inputs of a 2D transform ("Translation", "Rotation", "Scale" and "Pivot" groups)
// and the matrices they make.
class VN_EXPORT PiAffineNodeUtil {
public:
    static std::string getXTransSocketName();
    static std::string getYTransSocketName();
    static std::string getRotationSocketName();
    static std::string getXScaleSocketName();
    static std::string getYScaleSocketName();
    static std::string getPivotXTransSocketName();
    static std::string getPivotYTransSocketName();
    static std::string getPivotRotationSocketName();

    // Declares the eight inputs on a tool.
    static void describe(PiToolPolicyDescriptor& descriptor);
    // The same four groups as a structure of their own.
    static PiStructuredPolicyDescriptor describe();

    // The value nodes behind a tool's eight inputs, read at a time into a matrix.
    class VN_EXPORT Params {
    public:
        using Publisher = PiToolTopologyInterface::OutputPublisher;
        using Input = PxNodePtr<PxAnimValueProtocol<double> const>;

        // The eight value nodes, none null, in the order of the members.
        struct Inputs {
            Input pivotX, pivotY, pivotRotation, transX, transY, rotation, scaleX, scaleY;
        };

        // Raises ExBase when an input does not give doubles.
        explicit Params(Publisher& publisher);
        // The inputs' names start with prefix.
        Params(Publisher& publisher, std::string const& prefix);
        // For nodes built without a tool; a null node raises the null-pointer exception.
        explicit Params(Inputs const& inputs);

        void registerChildren(PxNode& node) const;
        void unregisterChildren(PxNode& node) const;

        // Source to result: T(p) R(a) T(q) R(b) S(s) R(-a) T(-p), angles in degrees.
        GeAffineMatrix2<double> computeForward(PxTimeContext const& context,
                                               PxValidityInterval& vi) const;
        // Result to source: the inverse of the forward matrix.
        GeAffineMatrix2<double> computeBackward(PxTimeContext const& context,
                                                PxValidityInterval& vi) const;

    private:
        struct Values {
            double pivotX, pivotY, pivotRotation, transX, transY, rotation, scaleX, scaleY;
        };
        Values read(PxTimeContext const& context, PxValidityInterval& vi) const;

        Input _pivotX, _pivotY, _pivotRotation, _transX, _transY, _rotation, _scaleX, _scaleY;
    };
};

} // namespace Vn

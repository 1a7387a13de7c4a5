#pragma once

#include "DtTime.h"
#include "PiNodeController.h"
#include "PxValidityInterval.h"
#include "RCPvtEngPtr.h"
#include "TcTimeCurve.h"
#include "VnExport.h"

#include <memory>
#include <string>

namespace Vn {

class PxNode;

// The mix-in of a value node's controller that holds a value without time.
template <class T>
class VN_EXPORT PiValueInterface : public virtual PiNodeController {
public:
    ~PiValueInterface() override = default;
    // An animated value loses its animation.
    virtual void setValue(T const& value) = 0;
    virtual T getValue() const = 0;
};

// The mix-in of a value node's controller whose value may animate: keys on a curve, and a
// tried-out change at a time without a key ("diddling") that waits in a backup until kept or
// reset.
class VN_EXPORT PiAnimInterface : public virtual PiNodeController {
public:
    // A change held back for a processing node while changes accumulate. It runs on a worker,
    // alone, in the batch's one request; the node is then invalidated over its interval.
    class VN_EXPORT ChangeFunctor {
    public:
        virtual ~ChangeFunctor();
        virtual void run() = 0;
        // The node the change lands on; a node let go before the batch runs is skipped.
        virtual PxNode const* getNode() const = 0;
    };
    // While one is open on this thread, changes for processing nodes wait; the outermost scope
    // sends them together when it ends, so many edits make one request.
    class VN_EXPORT AccumulateChanges {
    public:
        AccumulateChanges() noexcept;
        AccumulateChanges(AccumulateChanges const&) = delete;
        AccumulateChanges& operator=(AccumulateChanges const&) = delete;
        ~AccumulateChanges();
    };
    static bool isAccumulatingChanges() noexcept;
    // Outside a scope the change is sent at once.
    static void addChangeFunctor(std::unique_ptr<ChangeFunctor> functor,
                                 PxValidityInterval const& interval);

    ~PiAnimInterface() override;
    virtual bool isAnimated() const = 0;
    // On the curve as the user last keyed it.
    virtual bool hasKey(double seconds) const = 0;
    virtual bool hasKeys() const = 0;
    virtual bool isDiddling() const = 0;
    // The curve as the user last keyed it; the values evaluate the master curve.
    virtual RCPvtEngPtr<TcTimeCurve> getCurve() const = 0;
    virtual RCPvtEngPtr<TcTimeCurve> getMasterTimeCurve() const = 0;
    // Brings back the curve a tried-out change replaced; nothing without one.
    virtual void resetValue() = 0;
    // A key at that time with the value the curve has there.
    virtual void setKey(double seconds) = 0;
    // The value at that time, without animation.
    virtual void makeConstant(double seconds) = 0;
    // Animates with that curve, or with an empty one of the default types for null.
    virtual void setCurve(RCPvtEngPtr<TcTimeCurve> const& curve) = 0;
    // The types a new curve of this value takes: stored on the node only when not the
    // curve's own defaults.
    virtual void setDefaultExtrapolationType(int type) = 0;
    virtual int getDefaultExtrapolationType() const = 0;
    virtual void setDefaultInterpolationType(int type) = 0;
    virtual int getDefaultInterpolationType() const = 0;
};

// Typed access to an animatable value. T travels on the curve as a double; text values do not
// animate.
template <class T>
class VN_EXPORT PiAnimValueInterface : public PiAnimInterface {
public:
    ~PiAnimValueInterface() override = default;
    // Keys with auto-key on or where a key is; tries the change out elsewhere on an animated
    // value; sets a constant value otherwise.
    virtual void setValue(double seconds, T const& value) = 0;
    virtual void setKey(double seconds, T const& value) = 0;
    virtual T getValue(double seconds) const = 0;
    // Removes the animation.
    virtual void setValue(T const& value) = 0;
    using PiAnimInterface::setKey;

    static double toDouble(T const& value);
    static T fromDouble(double value);
};

extern template class PiValueInterface<bool>;
extern template class PiValueInterface<int>;
extern template class PiValueInterface<double>;
extern template class PiValueInterface<std::string>;
extern template class PiValueInterface<DtTime>;
extern template class PiAnimValueInterface<bool>;
extern template class PiAnimValueInterface<int>;
extern template class PiAnimValueInterface<double>;
extern template class PiAnimValueInterface<std::string>;

} // namespace Vn

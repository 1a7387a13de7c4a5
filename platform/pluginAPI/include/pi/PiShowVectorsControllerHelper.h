#pragma once

#include "PiNodeController.h"
#include "PiSockets.h"

namespace Vn {

class PiToolPolicyDescriptor;

// The two stored values of a tool that draws vectors: "Interval", the spacing of the vectors in
// pixels, and "Display Scale", their length factor. A controller owns one and adds it as a life
// hook; a new node starts from the reset values, a loaded one keeps its own.
class VN_EXPORT PiShowVectorsControllerHelper : public PiNodeController::LifeHook {
public:
    static constexpr int kResetInterval = 16;
    static constexpr double kResetDisplayScale = 1.0;

    explicit PiShowVectorsControllerHelper(PiNodeController const& controller)
        : _controller(controller) {}

    // Stores the two values on a tool.
    static void describe(PiToolPolicyDescriptor& descriptor);

    void nodeCreated() override;
    void nodeLoaded() override;
    // Writes the reset values.
    void reset();

    // Empty until the node is created or loaded.
    PiConstTypedValueUtil<int> const& getInterval() const noexcept { return _interval; }
    PiConstTypedValueUtil<double> const& getDisplayScale() const noexcept { return _displayScale; }
    // Raise ExNullPtr before the node is created or loaded.
    int getIntervalValue() const { return _interval.get(); }
    double getDisplayScaleValue() const { return _displayScale.get(); }

private:
    void bind();

    PiNodeController const& _controller;
    PiConstTypedValueUtil<int> _interval;
    PiConstTypedValueUtil<double> _displayScale;
};

} // namespace Vn

#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The mix-in of a controller that follows the node's stored values. Each change arrives at
// once, from the edit, its undo or its redo.
class VN_EXPORT PiValueChangeInterface : public virtual PiNodeController {
public:
    PiValueChangeInterface() { _valueChange = this; }
    ~PiValueChangeInterface() override;

private:
    friend class PiValueChangeInterfaceManip;
    virtual void valueChanged(RCShdPtr<PiValue> const&) {}
    virtual void dynamicValueAdded(RCShdPtr<PiValue> const&) {}
    virtual void dynamicValueRemoved(std::string const& /*name*/, int /*id*/) {}
};

// How the graph tells a value-change interface of its stored values.
class VN_EXPORT PiValueChangeInterfaceManip {
public:
    // Each requires the value to belong to the controller's node.
    static void valueChanged(PiValueChangeInterface& v, RCShdPtr<PiValue> const& value);
    static void dynamicValueAdded(PiValueChangeInterface& v, RCShdPtr<PiValue> const& value);
    static void dynamicValueRemoved(PiValueChangeInterface& v, RCShdPtr<PiValue> const& value);
};

} // namespace Vn

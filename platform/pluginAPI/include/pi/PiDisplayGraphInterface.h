#pragma once

#include "PiGraphAnimInterface.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiTool;

// The mix-in of the controller of a viewer's display graph, and the tests of which tools such
// a graph takes.
class VN_EXPORT PiDisplayGraphInterface : public PiGraphAnimInterface {
public:
    static constexpr char const* DisplayGraphRole = "DisplayGraph";
    static constexpr char const* ComparisonReference = "Reference";

    ~PiDisplayGraphInterface() override;
    // A display graph is not animated, unless the application says otherwise.
    bool canAnimate() const override { return false; }
    std::string getReferenceInputName() const { return ComparisonReference; }

    // An image modifier whose protocol says it serves viewers. False for a null tool.
    static bool isADisplayModifierTool(RCShdPtr<PiTool const> const& tool);
    // An image modifier with exactly two image inputs, one named "Reference".
    static bool isAComparisonTool(RCShdPtr<PiTool const> const& tool);
};

} // namespace Vn

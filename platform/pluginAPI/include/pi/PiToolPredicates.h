#pragma once

#include "PiSocketType.h"
#include "PiTool.h"
#include "PrdPredicate.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// Tests over registered tools, for the registry's selections and the tools' browsers.
class VN_EXPORT PiToolPredicates {
public:
    using ToolPtr = RCShdPtr<PiTool const>;
    using Predicate = PrdPredicate<ToolPtr>;

    // A socket of the tool, at any depth of its structures, has the type code.
    static Predicate hasInputOfType(PiSocketType const& type);
    static Predicate hasOutputOfType(PiSocketType const& type);
    static Predicate isActive();
    static Predicate isInternal();
    static Predicate isCategory(std::string const& category);

    // The index of the first top-level socket of the type code; -1 for a null tool or none.
    static int findFirstInputSocketOfType(ToolPtr const& tool, PiSocketType const& type);
    static int findFirstOutputSocketOfType(ToolPtr const& tool, PiSocketType const& type);
};

} // namespace Vn

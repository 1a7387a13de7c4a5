#pragma once

#include "OPtr.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiTool;

// What the graph verbs need to know of expressions; the expression package installs it at its
// start. Without it no tool counts as an expression tool.
class VN_EXPORT PiExpressionServices {
public:
    virtual ~PiExpressionServices();
    // Whether nodes of the tool are expressions, which may be wired across groups.
    virtual bool isExpressionTool(RCShdPtr<PiTool const> const& tool) const = 0;
    // The text that opens an expression typed into a value field.
    virtual std::string getExpressoToken() const = 0;

    static bool isInitialized() noexcept;
    // Raises ExBase when none is installed.
    static PiExpressionServices& getInstance();
    // Takes ownership; null uninstalls.
    static void setInstance(OPtr<PiExpressionServices> services);
};

} // namespace Vn

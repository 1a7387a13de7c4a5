#pragma once

#include "PiTool.h"
#include "PrdPredicate.h"
#include "VnExport.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace Vn {

// The tools the application knows. The application supplies the instance.
class VN_EXPORT PiToolRegistry {
public:
    enum SelectionEnum : int { ALL_TOOLS = 0, INTERNAL_TOOLS = 1, PUBLIC_TOOLS = 2 };
    enum ToolVersions : int { LATEST_VERSIONS = 0, ALL_VERSIONS = 1 };
    using ToolPtr = RCShdPtr<PiTool const>;

    virtual ~PiToolRegistry();
    static PiToolRegistry& getInstance();
    static bool isInitialized() noexcept;

    std::vector<ToolPtr> getTools(SelectionEnum selection, ToolVersions versions) const;
    virtual std::vector<ToolPtr> getTools(PrdPredicate<ToolPtr> const& predicate,
                                          ToolVersions versions) const = 0;
    // The latest version of the tool of that name; null when none.
    virtual ToolPtr findTool(std::string const& name) const = 0;
    // That version of the tool of that full name; null when none.
    virtual ToolPtr findTool(std::string const& fullName, std::string const& version) const = 0;
    virtual void print(std::ostream& os) const = 0;

    // Orders dotted decimal versions: -1, 0 or 1.
    static int compareVersions(std::string const& a, std::string const& b);

protected:
    // Not owned; null clears.
    static void setInstance(PiToolRegistry* registry);
};

VN_EXPORT std::ostream& operator<<(std::ostream& os, PiToolRegistry const& registry);

} // namespace Vn

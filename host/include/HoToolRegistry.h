#pragma once

#include "PiToolRegistry.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

// The application's tool registry: tools in order of registration, several versions each.
class VN_EXPORT HoToolRegistry final : public PiToolRegistry {
public:
    // Makes the process's registry, or gives the one already made.
    static HoToolRegistry& initialize();
    static void finalize();

    // Raises ExBase when that version of the tool is already registered.
    void registerTool(ToolPtr const& tool);
    // False when it was not registered.
    bool unregisterTool(std::string const& fullName, std::string const& version);

    std::vector<ToolPtr> getTools(PrdPredicate<ToolPtr> const& predicate,
                                  ToolVersions versions) const override;
    using PiToolRegistry::getTools;
    // By name or full name.
    ToolPtr findTool(std::string const& name) const override;
    ToolPtr findTool(std::string const& fullName, std::string const& version) const override;
    void print(std::ostream& os) const override;

private:
    HoToolRegistry() = default;
    bool isLatest(PiTool const& tool) const;
    std::vector<ToolPtr> _tools;
};

} // namespace Vn

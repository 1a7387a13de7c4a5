#include "HoToolRegistry.h"

#include "ExBase.h"
#include "OPtr.h"

#include <ostream>

namespace Vn {

namespace {
OPtr<HoToolRegistry>& instance() {
    static OPtr<HoToolRegistry> r;
    return r;
}
} // namespace

HoToolRegistry& HoToolRegistry::initialize() {
    OPtr<HoToolRegistry>& r = instance();
    if (!r) {
        r.reset(new HoToolRegistry);
        setInstance(r.get());
    }
    return *r;
}

void HoToolRegistry::finalize() {
    setInstance(nullptr);
    instance().reset();
}

void HoToolRegistry::registerTool(ToolPtr const& tool) {
    if (!tool)
        RCExUtil::throwExNullPtr("PiTool");
    if (findTool(tool->getFullName(), tool->getVersion()))
        VN_THROW_MSG(ExBase, "the tool \"" + tool->getFullName() + "\" version \"" +
                                 tool->getVersion() + "\" is already registered");
    _tools.push_back(tool);
}

bool HoToolRegistry::unregisterTool(std::string const& fullName, std::string const& version) {
    return std::erase_if(_tools, [&](ToolPtr const& t) {
               return t->getFullName() == fullName && t->getVersion() == version;
           }) > 0;
}

bool HoToolRegistry::isLatest(PiTool const& tool) const {
    for (ToolPtr const& t : _tools)
        if (t->getFullName() == tool.getFullName() &&
            compareVersions(t->getVersion(), tool.getVersion()) > 0)
            return false;
    return true;
}

std::vector<PiToolRegistry::ToolPtr> HoToolRegistry::getTools(PrdPredicate<ToolPtr> const& p,
                                                              ToolVersions versions) const {
    std::vector<ToolPtr> result;
    for (ToolPtr const& t : _tools)
        if ((versions == ALL_VERSIONS || isLatest(*t)) && p.evaluate(t))
            result.push_back(t);
    return result;
}

PiToolRegistry::ToolPtr HoToolRegistry::findTool(std::string const& name) const {
    ToolPtr best;
    for (ToolPtr const& t : _tools)
        if ((t->getName() == name || t->getFullName() == name) &&
            (!best || compareVersions(t->getVersion(), best->getVersion()) > 0))
            best = t;
    return best;
}

PiToolRegistry::ToolPtr HoToolRegistry::findTool(std::string const& fullName,
                                                 std::string const& version) const {
    for (ToolPtr const& t : _tools)
        if (t->getFullName() == fullName && t->getVersion() == version)
            return t;
    return {};
}

void HoToolRegistry::print(std::ostream& os) const {
    for (ToolPtr const& t : _tools)
        os << t->getFullName() << " " << t->getVersion() << "\n";
}

} // namespace Vn

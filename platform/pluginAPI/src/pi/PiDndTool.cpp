#include "PiDndTool.h"

#include "ExBase.h"
#include "PiDisplayGraphInterface.h"
#include "PiGraphUtils.h"
#include "PiNode.h"
#include "PiTool.h"
#include "PiToolRegistry.h"
#include "RCExUtil.h"

namespace Vn {

PiNodeDndInterface::~PiNodeDndInterface() = default;

PiDndTool::PiDndTool(RCShdPtr<PiTool const> tool) : _tool(std::move(tool)) {}
PiDndTool::~PiDndTool() = default;

RCShdPtr<PiDndTool const> PiDndTool::create(RCShdPtr<PiTool const> const& tool) {
    if (!tool)
        RCExUtil::throwExNullPtr("PiTool");
    return RCShdPtr<PiDndTool const>(new PiDndTool(tool));
}

std::string PiDndTool::getName() const {
    return _tool->getName();
}

std::string PiDndTool::getPath() const {
    return _tool->getProtocol().getCategory() + "/" + _tool->getName();
}

bool PiDndTool::isADisplayModifierTool() const {
    return PiDisplayGraphInterface::isADisplayModifierTool(_tool);
}

RCShdPtr<PiNode> PiDndTool::addNode(RCShdPtr<PiGroupNode> const& group,
                                    std::string const& name) const {
    std::string const unique =
        PiGraphUtils::findUniqueNodeName(group, name, PiGraphUtils::BASE_IS_FIRST);
    // The registry's tool, which may have been registered anew since the drag began; the same
    // version, so that a drop makes what was dragged.
    RCShdPtr<PiTool const> tool =
        PiToolRegistry::getInstance().findTool(_tool->getFullName(), _tool->getVersion());
    if (!tool)
        VN_THROW_MSG(ExBase, "the tool \"" + _tool->getFullName() + "\" version " +
                                 _tool->getVersion() + " is not registered");
    RCShdPtr<PiNode> node = group->createToolNode(tool, unique);
    return node;
}

} // namespace Vn

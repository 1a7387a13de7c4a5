#include "PiToolProtocols.h"

#include "Assertions.h"
#include "InBuildInfo.h"
#include "PiNode.h"

#include <array>

namespace Vn {

PiBrannockToolProtocol::PiBrannockToolProtocol(std::string const& name, std::string const& category,
                                               int schemaNb, std::string description,
                                               ToolVisibility visibility, ToolStructure structure)
    : PiToolProtocolImp(getBrannockToolName(name), category, getBrannockVersionString(),
                        getBrannockManufacturer()),
      _schemaNb(schemaNb), _description(std::move(description)), _visibility(visibility),
      _structure(structure) {}

std::string PiBrannockToolProtocol::getBrannockManufacturer() {
    return "Brannock, Inc.";
}

std::string PiBrannockToolProtocol::getBrannockProductName() {
    return {};
}

std::string PiBrannockToolProtocol::getBrannockToolName(std::string const& name) {
    return name;
}

std::string PiBrannockToolProtocol::getBrannockVersionString() {
    InBuildInfo const* info = InBuildInfoUtil::getLastRegisteredInfo();
    if (!info)
        return "0.0-0";
    return std::to_string(info->getMajorVersion()) + "." + std::to_string(info->getMinorVersion()) +
           "-" + std::to_string(info->getBuildNumber());
}

std::string const& PiReactionToolTypes::getToolTypeName(int type) {
    static std::array<std::string, 10> const names = {"Axes",   "Locators",  "Layers",   "Cameras",
                                                      "Lights", "Materials", "Surfaces", "Sources",
                                                      "Render", "Others"};
    VN_ASSERT(type >= 0 && type < static_cast<int>(names.size()));
    return names[static_cast<std::size_t>(type)];
}

PiReactionToolProtocolBase::PiReactionToolProtocolBase(PiReactionToolTypes::ToolType toolType)
    : _toolType(toolType) {
    VN_ASSERT(toolType >= PiReactionToolTypes::FIRST_TOOL_TYPE);
    VN_ASSERT(toolType < PiReactionToolTypes::NB_KNOWN_TOOL_TYPES);
}

PiReactionToolProtocolBase::~PiReactionToolProtocolBase() = default;

PiReactionToolTypes::ToolType PiReactionToolProtocolBase::getToolType(PiNode const& node) {
    if (auto const* toolNode = dynamic_cast<PiToolNode const*>(&node)) {
        RCShdPtr<PiTool const> tool = toolNode->getTool();
        auto const* base =
            tool ? dynamic_cast<PiReactionToolProtocolBase const*>(&tool->getProtocol()) : nullptr;
        if (base)
            return base->getToolType();
    }
    if (auto const* boundary = dynamic_cast<PiBoundaryNode const*>(&node))
        if (boundary->getBoundaryKind() == 2)
            return PiReactionToolTypes::SOURCES;
    return PiReactionToolTypes::OTHERS;
}

} // namespace Vn

#pragma once

#include "PiTool.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiNode;

// The base of the system's own tools: the manufacturer and version come from the library's
// build.
class VN_EXPORT PiBrannockToolProtocol : public PiToolProtocolImp {
public:
    enum ToolVisibility : int { PUBLIC_TOOL = 0, INTERNAL_TOOL = 1 };
    enum ToolStructure : int { SIMPLE_TOOL = 0, GROUP_TOOL = 1 };

    static std::string getBrannockManufacturer();
    static std::string getBrannockProductName();
    static std::string getBrannockToolName(std::string const& name);
    // "<major>.<minor>-<build>" of the last registered build information; "0.0-0" without one.
    static std::string getBrannockVersionString();

    int getSchemaNumber() const noexcept { return _schemaNb; }
    std::string const& getDescription() const noexcept { return _description; }
    ToolStructure getToolStructure() const noexcept { return _structure; }
    bool isInternal() const override { return _visibility == INTERNAL_TOOL; }

protected:
    PiBrannockToolProtocol(std::string const& name, std::string const& category, int schemaNb,
                           std::string description, ToolVisibility visibility,
                           ToolStructure structure);

private:
    int _schemaNb;
    std::string _description;
    ToolVisibility _visibility;
    ToolStructure _structure;
};

// The kinds of the three-dimensional tools, as the scene browser groups them.
class VN_EXPORT PiReactionToolTypes {
public:
    enum ToolType : int {
        FIRST_TOOL_TYPE = 0,
        AXES = 0,
        LOCATORS = 1,
        LAYERS = 2,
        CAMERAS = 3,
        LIGHTS = 4,
        MATERIALS = 5,
        SURFACES = 6,
        SOURCES = 7,
        RENDER = 8,
        // Has a name, but no tool may declare it.
        OTHERS = 9,
        NB_KNOWN_TOOL_TYPES = 9,
    };
    // The name of each of the ten values; another value is an assertion failure.
    static std::string const& getToolTypeName(int type);
};

// The base of the three-dimensional tools' protocols: the kind of each.
class VN_EXPORT PiReactionToolProtocolBase {
public:
    explicit PiReactionToolProtocolBase(PiReactionToolTypes::ToolType toolType);
    virtual ~PiReactionToolProtocolBase();
    PiReactionToolTypes::ToolType getToolType() const noexcept { return _toolType; }
    // The kind of a node's tool; SOURCES for the input boundary of a three-dimensional group,
    // OTHERS for everything else.
    static PiReactionToolTypes::ToolType getToolType(PiNode const& node);

private:
    PiReactionToolTypes::ToolType _toolType;
};

} // namespace Vn

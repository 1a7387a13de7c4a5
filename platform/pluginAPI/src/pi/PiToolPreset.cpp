#include "PiToolPreset.h"

#include "Assertions.h"
#include "ExBase.h"
#include "InBuildInfo.h"
#include "LiStringUtil.h"
#include "OsFile.h"
#include "OsFilePath.h"
#include "PiCommandStack.h"
#include "PiDisplayGraphInterface.h"
#include "PiExpressionInterface.h"
#include "PiGraph.h"
#include "PiGraphUtils.h"
#include "PiNode.h"
#include "PiTool.h"
#include "PiToolInterface.h"
#include "PiToolRegistry.h"
#include "RCExUtil.h"
#include "XmlDocument.h"

#include <cctype>
#include <unistd.h>
#include <unordered_set>
#include <vector>

namespace Vn {

namespace {

// Nested group nodes must pass the rule themselves, nodes without a tool are passed over.
bool allDisplayModifiers(PiGroupNode const& group) {
    for (auto it = group.getNodes(); !it.atEnd(); it.next()) {
        RCShdPtr<PiNode> const& node = it.item();
        if (auto const* inner = dynamic_cast<PiGroupNode const*>(node.get())) {
            if (!allDisplayModifiers(*inner))
                return false;
            continue;
        }
        RCShdPtr<PiTool const> tool = PiGraphUtils::getTool(node);
        if (tool && !PiDisplayGraphInterface::isADisplayModifierTool(tool))
            return false;
    }
    return true;
}

// The schema of a tool is the first number of its version.
// The leading number of the tool's version, 0 when it has none; digits past what a number
// holds are not read.
std::string schemaOf(PiTool const& tool) {
    std::string const& v = tool.getVersion();
    long long n = 0;
    for (std::size_t i = 0;
         i < v.size() && std::isdigit(static_cast<unsigned char>(v[i])) && n < (1LL << 58); ++i)
        n = n * 10 + (v[i] - '0');
    return LiStringUtil::convertNb(n);
}

void textElement(XmlWriter& w, std::string const& name, std::string const& text) {
    w.openTag(name);
    if (!text.empty())
        w.writeText(text);
    w.closeTag();
}

// "true" and "1" are true, "false" and "0" false, in any case; anything else is no value.
int parseFlag(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (text == "true" || text == "1")
        return 1;
    if (text == "false" || text == "0")
        return 0;
    return -1;
}

XmlElement childNamed(XmlElement const& parent, std::string const& name) {
    for (XmlElement c = parent.getFirstChild(); !c.isNull(); c = c.getNextSibling())
        if (c.getName() == name)
            return c;
    return {};
}

void collectExpressions(Iterator<RCShdPtr<PiNode>> nodes,
                        std::unordered_set<PiExpressionInterface*>& seen,
                        std::vector<RCWeakPtr<PiExpressionInterface>>& found) {
    for (; !nodes.atEnd(); nodes.next()) {
        RCShdPtr<PiNode> const& node = nodes.item();
        RCShdPtr<PiNodeController> c = node->getController().lock();
        if (auto* e = dynamic_cast<PiExpressionInterface*>(c.get())) {
            if (seen.insert(e).second)
                found.emplace_back(e);
        } else if (auto* g = dynamic_cast<PiGroupNode*>(node.get())) {
            collectExpressions(g->getNodes(), seen, found);
        }
    }
}

} // namespace

PiToolPreset::PiToolPreset(std::string path) : _presetPath(std::move(path)) {}
PiToolPreset::~PiToolPreset() = default;

RCShdPtr<PiToolPreset> PiToolPreset::create(std::string const& path) {
    return RCShdPtr<PiToolPreset>(new PiToolPreset(path));
}

RCShdPtr<PiToolPreset> PiToolPreset::save(RCShdPtr<PiNode const> const& node,
                                          OsFilePath const& path, std::string const& creator) {
    RCShdPtr<PiTool const> tool = PiGraphUtils::getTool(node);
    if (!tool)
        return {};
    bool flag = false;
    if (auto const* group = dynamic_cast<PiGroupNode const*>(node.get()))
        flag = allDisplayModifiers(*group);
    else
        flag = PiDisplayGraphInterface::isADisplayModifierTool(tool);

    // The whole document is built before the file is opened: a node that cannot be written
    // leaves an older preset of that path as it was.
    InBuildInfo const* app = InBuildInfoMgr::getAppInfo();
    XmlWriter w;
    w.openTag("Root");
    w.openTag("PresetsHeader");
    w.writeAttrib("DisplayGraphModifier", flag ? "true" : "false");
    textElement(w, "Creator", creator);
    textElement(w, "ProductName", app ? app->getProductName() : std::string());
    textElement(w, "Version", app ? app->getVersionText() : std::string());
    textElement(w, "Build", InBuildInfo::getBuildInformationString());
    textElement(w, "Description", {});
    textElement(w, "ToolCategory", tool->getProtocol().getCategory());
    textElement(w, "ToolName", tool->getName());
    textElement(w, "ToolSchema", schemaOf(*tool));
    w.closeTag();
    PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>::overValues({node}), w);
    w.closeTag();
    std::string const text = w.toString();

    OsFsUtils::createFilePath(path, path.getRoot(), OsFileTypes::Permissions(3, 3, 3));
    // A target that could not be opened for writing (a folder, a read-only file) is refused
    // as such, although the save itself would replace it.
    bool const openable =
        !OsFsUtils::isFolder(path) &&
        (!OsFsUtils::fileExists(path) || ::access(path.getString().c_str(), W_OK) == 0);
    if (!openable)
        Assertions::throwAssertionFailed(__FILE__, __LINE__, "streamer.is_open()");
    try {
        OsFsUtils::saveAtomically(path, text);
    } catch (OsFileError const& e) {
        if (e.getOperation() == "open")
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "streamer.is_open()");
        throw;
    }
    return create(path.getString());
}

bool PiToolPreset::areEqual(RCShdPtr<PiToolPreset const> const& a,
                            RCShdPtr<PiToolPreset const> const& b) {
    if (!a || !b)
        return !a && !b;
    return a->_presetPath == b->_presetPath;
}

std::string PiToolPreset::getQnPresetExtension() {
    return "qnpreset";
}

std::wstring PiToolPreset::getQnPresetExtensionW() {
    return L"qnpreset";
}

std::string PiToolPreset::getName() const {
    return OsFilePath(_presetPath).getBaseName(OsFilePath::WITHOUT_EXTENSION);
}

void PiToolPreset::readHeader() const {
    XmlDocument doc = XmlDocument::load(_presetPath);
    XmlElement header = childNamed(doc.getRoot(), "PresetsHeader");
    if (header.isNull())
        return;
    // The flag describes the tool: a header that names none leaves it false.
    XmlElement toolName = childNamed(header, "ToolName");
    if (toolName.isNull())
        return;
    if (header.hasAttribute("DisplayGraphModifier")) {
        int const flag = parseFlag(header.getAttribute("DisplayGraphModifier"));
        if (flag >= 0)
            _displayGraphModifier = flag == 1;
    }
    if (!PiToolRegistry::isInitialized())
        return;
    _tool = PiToolRegistry::getInstance().findTool(toolName.getText());
}

RCShdPtr<PiTool const> const& PiToolPreset::getTool() const {
    if (!_tool)
        readHeader();
    return _tool;
}

bool PiToolPreset::isADisplayModifierTool() const {
    if (!_tool)
        readHeader();
    return _displayGraphModifier;
}

RCShdPtr<PiNode> PiToolPreset::addNode(RCShdPtr<PiGroupNode> const& group,
                                       std::string const& name) const {
    XmlDocument doc = XmlDocument::load(_presetPath);
    XmlElement graphElement = childNamed(doc.getRoot(), "Graph");
    RCShdPtr<PiGraph> graph = group->getGraph();
    if (!graph)
        VN_THROW_MSG(ExBase, "the group \"" + group->getNodeName() + "\" is in no graph");

    // One undo step; a failure takes the loaded nodes out again.
    PiUndoGuard guard(*graph, "Load Preset");
    std::vector<RCShdPtr<PiNode>> made = graph->unarchiveNodes(graphElement, group);
    Iterator<RCShdPtr<PiNode>> newNodes = Iterator<RCShdPtr<PiNode>>::overValues(made);
    VN_ASSERT(newNodes.getCardinality() > 0);
    RCShdPtr<PiNode> first = newNodes.item();
    first->setNodeName(name);

    std::unordered_set<PiExpressionInterface*> seen;
    std::vector<RCWeakPtr<PiExpressionInterface>> expressions;
    collectExpressions(newNodes, seen, expressions);
    for (auto const& weak : expressions) {
        RCShdPtr<PiExpressionInterface> e = weak.lock();
        if (e && !e->isResolved() && e->canResolve())
            e->resolve();
    }

    RCShdPtr<PiToolInterface> toolIf = rcCast<PiToolInterface>(first->getController().lock());
    toolIf->setCurrentPreset(_presetPath);
    return first;
}

} // namespace Vn

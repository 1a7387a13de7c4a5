#include "PiNodeAnchorUtils.h"

#include "ExBase.h"
#include "PiCommandStack.h"
#include "PiGraph.h"
#include "PiNode.h"
#include "PiNodeUtils.h"
#include "XmlDocument.h"

#include <algorithm>

namespace Vn {

namespace {

constexpr char const* kRoot = "Anchors";
constexpr char const* kAnchor = "Anchor";

PiGraph& graphOf(PiNode const& node) {
    RCShdPtr<PiGraph> graph = node.getGraph();
    if (!graph)
        VN_THROW_MSG(ExBase, "the node \"" + node.getNodeName() + "\" is in no graph");
    return *graph;
}

std::vector<PiNodeAnchor> readAnchors(PiNode const& node) {
    std::string text;
    if (!PiNodeUtils::hasStoredValue(PiNodeAnchorUtils::ANCHORS_VALUE, node, &text) || text.empty())
        return {};
    std::vector<PiNodeAnchor> anchors;
    try {
        XmlDocument anchorsXmlDoc = XmlDocument::parse(text);
        XmlElement root = anchorsXmlDoc.getRoot();
        if (root.isNull() || root.getName() != kRoot)
            VN_THROW_MSG(ExBase, std::string("the root element is not \"") + kRoot + "\"");
        for (XmlElement const& e : root.getChildren(kAnchor))
            anchors.push_back({e.getAttribute("type"), e.getAttribute("name")});
    } catch (ExBase const& e) {
        VN_THROW_MSG(ExBase, "the anchors of the node \"" + node.getNodeName() +
                                 "\" cannot be read: " + e.what());
    }
    return anchors;
}

void writeAnchors(PiNode& node, std::vector<PiNodeAnchor> const& anchors) {
    std::string text;
    {
        XmlDocument anchorsXmlDoc;
        XmlElement root = anchorsXmlDoc.createRoot(kRoot);
        for (PiNodeAnchor const& a : anchors) {
            XmlElement e = root.appendChild(kAnchor);
            e.setAttribute("type", a.type);
            e.setAttribute("name", a.name);
        }
        text = anchorsXmlDoc.toString();
    }
    PiNodeUtils::setStoredValue(PiNodeAnchorUtils::ANCHORS_VALUE, node, text);
}

} // namespace

void PiNodeAnchorUtils::addAnchor(PiNode& node, PiNodeAnchor const& anchor) {
    PiUndoGuard guard(graphOf(node), "Add Anchor");
    std::vector<PiNodeAnchor> anchors = readAnchors(node);
    anchors.push_back(anchor);
    writeAnchors(node, anchors);
}

void PiNodeAnchorUtils::removeAnchor(PiNode& node, PiNodeAnchor const& anchor) {
    PiUndoGuard guard(graphOf(node), "Remove Anchor");
    std::vector<PiNodeAnchor> anchors = readAnchors(node);
    auto const kept = std::remove(anchors.begin(), anchors.end(), anchor);
    if (kept == anchors.end())
        return;
    anchors.erase(kept, anchors.end());
    writeAnchors(node, anchors);
}

bool PiNodeAnchorUtils::hasAnchor(PiNode const& node, PiNodeAnchor const& anchor) {
    std::vector<PiNodeAnchor> const anchors = readAnchors(node);
    return std::find(anchors.begin(), anchors.end(), anchor) != anchors.end();
}

bool PiNodeAnchorUtils::hasAnchors(PiNode const& node) {
    return PiNodeUtils::hasStoredValue(ANCHORS_VALUE, node);
}

std::vector<PiNodeAnchor> PiNodeAnchorUtils::getAnchors(PiNode const& node,
                                                        std::string const& type) {
    std::vector<PiNodeAnchor> anchors = readAnchors(node);
    if (!type.empty())
        std::erase_if(anchors, [&](PiNodeAnchor const& a) { return a.type != type; });
    return anchors;
}

void PiNodeAnchorUtils::setAnchors(PiNode& node, std::vector<PiNodeAnchor> const& anchors) {
    PiUndoGuard guard(graphOf(node), "Set Anchors");
    writeAnchors(node, anchors);
}

void PiNodeAnchorUtils::removeAnchors(PiNode& node) {
    PiUndoGuard guard(graphOf(node), "Remove Anchors");
    node.removeValue(ANCHORS_VALUE);
}

PiNodeAnchorRegistry::~PiNodeAnchorRegistry() = default;

PiNodeAnchorRegistry& PiNodeAnchorRegistry::getInstance() {
    // Never destroyed: static destructors of other libraries may still register or read.
    static PiNodeAnchorRegistry* const registry = new PiNodeAnchorRegistryImp;
    return *registry;
}

void PiNodeAnchorRegistryImp::registerAnchorType(std::string const& name) {
    _types.push_back(name);
}

ConstIterator<std::string> PiNodeAnchorRegistryImp::getAnchorTypes() const {
    // A copy: a type registered while a caller walks the list must not pull it from under the walk.
    return Iterator<std::string>::overValues(_types);
}

} // namespace Vn

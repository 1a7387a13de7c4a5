// Arbitrary bytes to the XML reader and the graph unarchiver. A malformed archive must raise
// ExBase and leave the graph exactly as it was; a good one must read into a sound graph.
#include "ExBase.h"
#include "FuzzCheck.h"
#include "HoGraph.h"
#include "HoToolRegistry.h"
#include "PiCommandStack.h"
#include "PiTool.h"
#include "XmlDocument.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace Vn;

namespace {

class Filter final : public PiToolProtocolImp {
public:
    Filter() : PiToolProtocolImp("Filter", "Fuzz", "1.0", "Fuzz") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Amount", PiSocketType::DOUBLE);
        d.require("Layers", PiSocketType::IMAGE, {}, PiSocketType::COMPOSITE);
        d.require("Points", PiSocketType::INT, {}, PiSocketType::MULTIVALUED);
        d.requireStructured("Pos").require("x", PiSocketType::DOUBLE);
        auto& knots = d.requireStructured("Knots", PiSocketType::MULTIVALUED);
        knots.require("t", PiSocketType::DOUBLE);
        knots.require("src", PiSocketType::IMAGE);
        d.produces("Output", PiSocketType::IMAGE);
        d.stores("Mode", PiValueType::Int);
        d.stores("Curve", PiValueType::DoubleArray);
        d.stores("Names", PiValueType::StringArray);
    }
};

class GroupTool final : public PiToolProtocolImp {
public:
    GroupTool() : PiToolProtocolImp("Group", "Fuzz", "1.0", "Fuzz") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("In", PiSocketType::IMAGE);
        d.produces("Out", PiSocketType::IMAGE);
    }
};

RCShdPtr<PiGraph> const& graph() {
    static RCShdPtr<PiGraph> g = [] {
        HoToolRegistry& r = HoToolRegistry::initialize();
        r.registerTool(
            RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(new Filter))));
        r.registerTool(
            RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(new GroupTool))));
        RCShdPtr<PiGraph> graph = HoGraph::create("fuzz");
        graph->getRootNode()->createToolNode(r.findTool("Filter"), "Existing");
        graph->getCommandStack().clear();
        return graph;
    }();
    return g;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RCShdPtr<PiGraph> const& g = graph();
    RCShdPtr<PiGroupNode> root = g->getRootNode();
    std::string const before = HoGraphUtil::dump(*root, true);
    XmlDocument doc;
    try {
        doc = XmlDocument::parse(std::string_view(reinterpret_cast<char const*>(data), size));
    } catch (ExBase const&) {
        return 0;
    }
    try {
        g->unarchiveNodes(doc.getRoot(), root);
    } catch (ExBase const&) {
        fuzzCheck(HoGraphUtil::dump(*root, true) == before);
        fuzzCheck(g->getCommandStack().getUndoCount() == 0);
        return 0;
    }
    fuzzCheck(HoGraphUtil::checkInvariants(*g).empty());
    // What was read writes out again, and undo takes it away.
    XmlWriter w;
    std::vector<RCShdPtr<PiNode>> all;
    for (auto it = root->getNodes(); !it.atEnd(); it.next())
        all.push_back(it.item());
    g->archiveNodes(all, w);
    (void)w.toString();
    if (g->getCommandStack().canUndo())
        g->getCommandStack().undo();
    fuzzCheck(HoGraphUtil::dump(*root, true) == before);
    g->getCommandStack().clear();
    return 0;
}

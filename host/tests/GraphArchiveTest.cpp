#include "GraphTestSupport.h"

#include "ExBase.h"
#include "XmlDocument.h"

using namespace Vn;
using namespace Vn::GraphTest;

namespace {

class GraphArchive : public GraphFixture {
public:
    std::vector<RCShdPtr<PiNode>> rootNodes() const {
        std::vector<RCShdPtr<PiNode>> v;
        for (auto it = root->getNodes(); !it.atEnd(); it.next())
            v.push_back(it.item());
        return v;
    }
    std::string archive(std::vector<RCShdPtr<PiNode>> const& nodes) const {
        XmlWriter w;
        graph->archiveNodes(nodes, w);
        return w.toString();
    }
};

} // namespace

// Written and read back, the nodes are the same up to their ids, into another graph too.
TEST_F(GraphArchive, RoundTripGivesTheSameGraph) {
    value<PiTypedValueArray<double>>(A, "Curve")->setArray({0.5, -1e-300, 3});
    value<PiTypedValue<double>>(valueNode(A, "Radius"), "Value")->set(0.1);
    A->addValue("Note", PiValueType::String);
    value<PiTypedValue<std::string>>(A, "Note")->set("  two <words> & \"more\" ");
    A->addValue("Names", PiValueType::StringArray);
    value<PiTypedValueArray<std::string>>(A, "Names")->setArray({"a b", "", "<\"&\\>"});
    B->addValue("Blank", PiValueType::String);
    value<PiTypedValue<std::string>>(B, "Blank")->set("   ");
    A->addDynamicInput("Extra", PiSocketType::IMAGE)->connect(out(N));
    rcCast<PiMultivaluedInput>(in(A, "Points"))->appendInput();
    out(C)->setResultState(1);
    std::string const text = archive(rootNodes());
    EXPECT_NE(text.find(">0.1</Value>"), std::string::npos) << "the shortest exact text";

    RCShdPtr<PiGraph> other = HoGraph::create("other");
    XmlDocument doc = XmlDocument::parse(text);
    auto made = other->unarchiveNodes(doc.getRoot(), other->getRootNode());
    EXPECT_EQ(made.size(), rootNodes().size());
    EXPECT_EQ(HoGraphUtil::dump(*other->getRootNode(), false), dump(false));
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*other).empty());
    EXPECT_EQ(other->getCommandStack().getUndoCount(), 1);
    EXPECT_NE(made[0]->getId(), N->getId());

    // Only connections among the written nodes are kept.
    RCShdPtr<PiGroupNode> box = root->createGroupNode("box", {});
    XmlDocument justB = XmlDocument::parse(archive({B}));
    auto b2 = graph->unarchiveNodes(justB.getRoot(), box);
    ASSERT_EQ(b2.size(), 1u);
    EXPECT_FALSE(b2[0]->findInput("Source")->isConnected());
    EXPECT_EQ(b2[0]->findInput("Layers")->isStructured(), false);
    EXPECT_EQ(rcCast<PiCompositeInput>(b2[0]->findInput("Layers"))->getCardinality(), 3);
}

// Malformed or hostile archives raise ExBase with a reason, and change nothing.
TEST_F(GraphArchive, BadArchivesAreRefusedWithoutChange) {
    std::string const tool = "kind=\"tool\" tool=\"Acme Blur\" version=\"1.0\"";
    std::string deep = "<Graph version=\"1\">";
    for (int i = 0; i < 70; ++i)
        deep += "<Node kind=\"group\" id=\"" + std::to_string(i + 1) + "\" name=\"g\">";
    for (int i = 0; i < 70; ++i)
        deep += "</Node>";
    deep += "</Graph>";
    struct Bad {
        std::string xml;
        std::string reason;
    };
    std::vector<Bad> const bad = {
        {"<Graph version=\"1\"><Node kind=\"tool\" tool=\"Acme Nope\" version=\"1.0\" id=\"1\" "
         "name=\"x\"/></Graph>",
         "unknown tool"},
        {"<Graph version=\"1\"><Node " + tool +
             " id=\"1\" name=\"x\"/><Connection inputNode=\"1\" input=\"Source\" "
             "outputNode=\"9\" output=\"Output\"/></Graph>",
         "node id 9"},
        {"<Graph version=\"1\"><Node " + tool + " id=\"one\" name=\"x\"/></Graph>", "\"id\""},
        {"<Graph version=\"1\"><Node " + tool + " id=\"1\" name=\"x\"/><Node " + tool +
             " id=\"1\" name=\"y\"/></Graph>",
         "used twice"},
        {"<Graph version=\"1\"><Node " + tool + " id=\"1\" name=\"a\"/><Node " + tool +
             " id=\"2\" name=\"b\"/>"
             "<Connection inputNode=\"1\" input=\"Source\" outputNode=\"2\" output=\"Output\"/>"
             "<Connection inputNode=\"2\" input=\"Source\" outputNode=\"1\" output=\"Output\"/>"
             "</Graph>",
         "cycle"},
        {deep, "deeper than 64"},
        {"<Graph version=\"1\"><Node " + tool + " id=\"1\" name=\"" + std::string(5000, 'x') +
             "\"/></Graph>",
         "longer than 4096"},
        {"<Graph version=\"1\"><Node " + tool +
             " id=\"1\" name=\"x\"><Value name=\"Mode\" type=\"2\">3.5</Value></Node></Graph>",
         "not a int"},
        {"<Graph version=\"1\"><Node " + tool +
             " id=\"1\" name=\"x\"><Value name=\"Mode\" type=\"1\">3</Value></Node></Graph>",
         "another type"},
        {"<Graph version=\"1\"><Node " + tool +
             " id=\"1\" name=\"x\"><Element input=\"Source\" name=\"e\"/></Node></Graph>",
         "no list input"},
        {"<Graph version=\"2\"/>", "version"},
        {"<Graph version=\"1\"><Script/></Graph>", "unexpected element"},
        {"<Graph version=\"1\"><Node " + tool + " id=\"1\" name=\"x\"/><Node " + tool +
             " id=\"2\" name=\"y\"/><Connection inputNode=\"1\" input=\"Radius\" "
             "outputNode=\"2\" output=\"Output\"/></Graph>",
         "types differ"},
    };
    std::string const before = dump();
    for (Bad const& b : bad) {
        SCOPED_TRACE(b.reason);
        XmlDocument doc = XmlDocument::parse(b.xml);
        try {
            graph->unarchiveNodes(doc.getRoot(), root);
            ADD_FAILURE() << "accepted";
        } catch (ExBase const& e) {
            EXPECT_NE(e.getReason().find(b.reason), std::string::npos) << e.getReason();
        }
        EXPECT_EQ(dump(), before);
        EXPECT_EQ(graph->getCommandStack().getUndoCount(), 0);
    }
    EXPECT_THROW(XmlDocument::parse("<Graph><Node></Graph>"), ExBase);
    EXPECT_THROW(XmlDocument::parse(""), ExBase);
}

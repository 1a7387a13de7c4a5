#include "ExBase.h"
#include "HoGraph.h"
#include "HoToolRegistry.h"
#include "InBuildInfo.h"
#include "InPackageInit.h"
#include "OsFile.h"
#include "OsFilePath.h"
#include "PiCommandStack.h"
#include "PiDndTool.h"
#include "PiDndToolPreset.h"
#include "PiExpressionInterface.h"
#include "PiGraph.h"
#include "PiGraphUtils.h"
#include "PiImageModifierProtocol.h"
#include "PiToolInterface.h"
#include "PiToolPreset.h"
#include "PiTopologyInterface.h"
#include "XmlDocument.h"

#include "../../platform/resmgt/tests/TempFolderTest.h"
#include "ToolGraphFixture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using namespace Vn;
namespace fs = std::filesystem;

namespace {

// Serves viewers: a display modifier.
class GradeProtocol final : public PiImageModifierProtocol {
public:
    GradeProtocol() : PiImageModifierProtocol("Grade", "Color", "3.1", "Acme") {}
    bool isDisplayModifier() const override { return true; }
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Gain", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::IMAGE);
    }
};

using ToolPtr = RCShdPtr<PiTool const>;
ToolPtr makeTool(PiToolProtocol* p) {
    return ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}

ToolPtr softenTool(std::string version = "1.0") {
    return testTool({"Soften", "Filter", std::move(version), "Acme"}, [](auto& d) {
        imageSockets({"Source"})(d);
        d.require("Radius", PiSocketType::DOUBLE);
    });
}

// An expression that binds to the graph it stands in.
int s_resolves = 0;
bool s_canResolve = true;
class ExprController final : public PiExpressionInterface,
                             public PiToolInterface,
                             public PiTopologyInterface {
public:
    bool isResolved() const override {
        RCShdPtr<PiNode> n = getNode();
        return n && _bound == n->getGraph().get();
    }
    bool canResolve() const override { return s_canResolve; }
    void resolve() override {
        ++s_resolves;
        _bound = getNode()->getGraph().get();
    }

private:
    PiGraph* _bound = nullptr;
};
// Its controller is no tool interface.
class Plain final : public PiTopologyInterface {};

class AppInfo final : public InBuildInfo {
public:
    std::string getProductName() const override { return "Compositor"; }
    std::string getLibraryName() const override { return "compositor"; }
    int getYear() const override { return 2024; }
    std::string getVersionText() const override { return "5.2"; }
    std::string getSuffix() const override { return ""; }
    int getMajorVersion() const override { return 5; }
    int getMinorVersion() const override { return 2; }
    int getReleaseStage() const override { return 0; }
    int getBuildNumber() const override { return 1; }
    std::string getBuildDate() const override { return "2024-03-04"; }
    std::string getBuildConfiguration() const override { return "Release"; }
};

class ToolPresetTest : public VnTest::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        InInitMgr::getInstance().initialize();
        HoToolRegistry& reg = HoToolRegistry::initialize();
        grade = makeTool(new GradeProtocol);
        soften = softenTool();
        look = testTool({"Look", "Color", "2.0", "Acme"}, imageSockets({"Source"})); // of groups
        expr = testTool(
            {"Expr", "Math", "1.0", "Acme"},
            [](auto& d) { d.produces("Value", PiSocketType::DOUBLE); },
            [] { return new ExprController; });
        raw =
            testTool({"Raw", "Filter", "1.0", "Acme"}, imageSockets({}), [] { return new Plain; });
        for (ToolPtr const& t : {grade, soften, look, expr, raw})
            reg.registerTool(t);
        graph = HoGraph::create("comp");
        root = graph->getRootNode();
        s_resolves = 0;
        s_canResolve = true;
    }
    void TearDown() override {
        graph.reset();
        HoToolRegistry::finalize();
        InBuildInfoMgr::setAppInfo(nullptr);
        InInitMgr::getInstance().finalize();
        TempFolderTest::TearDown();
    }

    // A reader of the preset file in the test's folder.
    RCShdPtr<PiToolPreset> preset(std::string const& rel) const {
        return PiToolPreset::create(at(rel).getString());
    }
    static RCShdPtr<PiNode> valueNode(RCShdPtr<PiNode> const& n, std::string const& input) {
        return n->findInput(input)->getConnectedOutput()->retrieveNode();
    }
    static double valueOf(RCShdPtr<PiNode> const& n, std::string const& input) {
        return rcCast<PiTypedValue<double>>(valueNode(n, input)->findValue("Value"))->get();
    }
    static void setValue(RCShdPtr<PiNode> const& n, std::string const& input, double v) {
        rcCast<PiTypedValue<double>>(valueNode(n, input)->findValue("Value"))->set(v);
    }
    static std::string currentPreset(RCShdPtr<PiNode> const& n) {
        return rcCast<PiToolInterface>(n->getController().lock())->getCurrentPresetName();
    }
    // A group of the Look tool holding a group of two Grade nodes.
    RCShdPtr<PiGroupNode> nestedLook(RCShdPtr<PiGroupNode>* inner = nullptr) {
        RCShdPtr<PiGroupNode> outer = root->createGroupNode("look", look);
        RCShdPtr<PiGroupNode> in = outer->createGroupNode("inner");
        in->createToolNode(grade, "g1");
        in->createToolNode(grade, "g2");
        if (inner)
            *inner = in;
        return outer;
    }

    ToolPtr grade, soften, look, expr, raw;
    RCShdPtr<PiGraph> graph;
    RCShdPtr<PiGroupNode> root;
};

std::vector<std::string> childNames(XmlElement const& e) {
    std::vector<std::string> names;
    for (XmlElement const& c : e.getChildren())
        names.push_back(c.getName());
    return names;
}

} // namespace

// The file holds a header naming the tool and the node with its values; read back, it gives
// the tool, the flag and the node again.
TEST_F(ToolPresetTest, SavedPresetReadsBack) {
    InBuildInfoMgr::setAppInfo(OPtr<InBuildInfo>(new AppInfo));
    RCShdPtr<PiNode> a = root->createToolNode(soften, "A");
    setValue(a, "Radius", 0.25);
    OsFilePath const file = at("Filters/deep/soft.qnpreset");
    auto saved = PiToolPreset::save(a, file, "ann");
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->getPresetPath(), file.getString());
    EXPECT_EQ(saved->getName(), "soft");
    EXPECT_EQ(saved->getTool().get(), soften.get());
    EXPECT_FALSE(saved->isADisplayModifierTool());

    XmlDocument doc = XmlDocument::load(file.getString());
    XmlElement r = doc.getRoot();
    EXPECT_EQ(r.getName(), "Root");
    EXPECT_EQ(childNames(r), (std::vector<std::string>{"PresetsHeader", "Graph"}));
    XmlElement h = r.getChildren("PresetsHeader")[0];
    EXPECT_EQ(h.getAttribute("DisplayGraphModifier"), "false");
    EXPECT_EQ(childNames(h),
              (std::vector<std::string>{"Creator", "ProductName", "Version", "Build", "Description",
                                        "ToolCategory", "ToolName", "ToolSchema"}));
    auto text = [&](char const* name) {
        return h.getChildren(name)[0].getText();
    };
    EXPECT_EQ(text("Creator"), "ann");
    EXPECT_EQ(text("ProductName"), "Compositor");
    EXPECT_EQ(text("Version"), "5.2");
    EXPECT_EQ(text("Build"), InBuildInfo::getBuildInformationString());
    EXPECT_EQ(text("Description"), "");
    EXPECT_EQ(text("ToolCategory"), "Filter");
    EXPECT_EQ(text("ToolName"), "Soften");
    EXPECT_EQ(text("ToolSchema"), "1");

    // Into another graph: the node, its value, and the preset it came from.
    RCShdPtr<PiGraph> other = HoGraph::create("other");
    auto fresh = PiToolPreset::create(file.getString());
    RCShdPtr<PiNode> b = fresh->addNode(other->getRootNode(), "Soft");
    EXPECT_EQ(b->getNodeName(), "Soft");
    EXPECT_EQ(PiGraphUtils::getTool(b).get(), soften.get());
    EXPECT_EQ(valueOf(b, "Radius"), 0.25);
    EXPECT_EQ(currentPreset(b), file.getString());
    EXPECT_EQ(fresh->getTool().get(), soften.get());
    // One undo step takes the whole drop away.
    EXPECT_EQ(other->getCommandStack().getUndoCount(), 1);
    other->getCommandStack().undo();
    EXPECT_EQ(other->getRootNode()->getNodeCount(), 0);
    EXPECT_TRUE(HoGraphUtil::checkInvariants(*other).empty());
}

TEST_F(ToolPresetTest, DisplayModifierFlagFollowsTheGroupRule) {
    RCShdPtr<PiNode> g = root->createToolNode(grade, "G");
    EXPECT_TRUE(PiToolPreset::save(g, at("g.qnpreset"), "")->isADisplayModifierTool());
    EXPECT_EQ(preset("g.qnpreset")->getTool().get(), grade.get());

    RCShdPtr<PiGroupNode> inner;
    RCShdPtr<PiGroupNode> outer = nestedLook(&inner);
    PiToolPreset::save(outer, at("look.qnpreset"), "");
    auto readBack = preset("look.qnpreset");
    EXPECT_TRUE(readBack->isADisplayModifierTool());
    EXPECT_EQ(readBack->getTool().get(), look.get());

    inner->createToolNode(soften, "s");
    PiToolPreset::save(outer, at("look2.qnpreset"), "");
    EXPECT_FALSE(preset("look2.qnpreset")->isADisplayModifierTool());
    // A group of no nodes at all passes.
    RCShdPtr<PiGroupNode> empty = root->createGroupNode("empty", look);
    EXPECT_TRUE(PiToolPreset::save(empty, at("empty.qnpreset"), "")->isADisplayModifierTool());
    // A node or group without a tool makes no preset.
    EXPECT_TRUE(PiToolPreset::save(inner, at("none.qnpreset"), "").isNull());
    EXPECT_TRUE(PiToolPreset::save(valueNode(g, "Gain"), at("v.qnpreset"), "").isNull());
    EXPECT_FALSE(exists("none.qnpreset"));
    EXPECT_FALSE(exists("v.qnpreset"));
}

// The tool and the flag are read once: saving over the file changes what new readers see,
// not what a reader already holds.
TEST_F(ToolPresetTest, SavingOverAPresetKeepsWhatWasRead) {
    OsFilePath const file = at("p.qnpreset");
    auto first = PiToolPreset::save(root->createToolNode(grade, "G"), file, "");
    EXPECT_EQ(first->getTool().get(), grade.get());
    auto second = PiToolPreset::save(root->createToolNode(soften, "S"), file, "");
    EXPECT_EQ(first->getTool().get(), grade.get());
    EXPECT_TRUE(first->isADisplayModifierTool());
    EXPECT_EQ(second->getTool().get(), soften.get());
    EXPECT_FALSE(second->isADisplayModifierTool());
    EXPECT_TRUE(PiToolPreset::areEqual(first, second));
    RCShdPtr<PiNode> n = first->addNode(root, "again");
    EXPECT_EQ(PiGraphUtils::getTool(n).get(), soften.get());
}

TEST_F(ToolPresetTest, PresetsAreEqualByPath) {
    auto a = PiToolPreset::create("/x/a.qnpreset");
    EXPECT_TRUE(PiToolPreset::areEqual(a, PiToolPreset::create("/x/a.qnpreset")));
    EXPECT_FALSE(PiToolPreset::areEqual(a, PiToolPreset::create("/x/b.qnpreset")));
    EXPECT_TRUE(PiToolPreset::areEqual(nullptr, nullptr));
    EXPECT_FALSE(PiToolPreset::areEqual(a, nullptr));
    EXPECT_FALSE(PiToolPreset::areEqual(nullptr, a));
    EXPECT_EQ(PiToolPreset::getQnPresetExtension(), "qnpreset");
    EXPECT_EQ(PiToolPreset::getQnPresetExtensionW(), L"qnpreset");
}

// A header without a tool name names no tool and no display modifier; an unknown tool still
// gives its flag; a file that is not there or not XML is an error naming it.
TEST_F(ToolPresetTest, IncompleteHeaders) {
    put("noheader.qnpreset", "<Root><Graph version=\"1\"/></Root>");
    put("noname.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"true\">"
                           "<ToolCategory>Color</ToolCategory></PresetsHeader></Root>");
    put("unknown.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"true\">"
                            "<ToolName>Nope</ToolName></PresetsHeader></Root>");
    put("odd.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"maybe\">"
                        "<ToolName>Grade</ToolName></PresetsHeader></Root>");
    for (char const* name : {"noheader", "noname"}) {
        auto p = preset(std::string(name) + ".qnpreset");
        EXPECT_TRUE(p->getTool().isNull()) << name;
        EXPECT_FALSE(p->isADisplayModifierTool()) << name;
    }
    auto unknown = preset("unknown.qnpreset");
    EXPECT_TRUE(unknown->getTool().isNull());
    EXPECT_TRUE(unknown->isADisplayModifierTool());
    auto odd = preset("odd.qnpreset");
    EXPECT_EQ(odd->getTool().get(), grade.get());
    EXPECT_FALSE(odd->isADisplayModifierTool());

    // The header is read again while no tool is found: a tool registered later is found.
    HoToolRegistry::initialize().registerTool(testTool({"Nope", "Misc"}, [](auto&) {}));
    EXPECT_EQ(unknown->getTool()->getName(), "Nope");

    put("broken.qnpreset", "<Root><PresetsHeader>");
    for (char const* name : {"broken.qnpreset", "missing.qnpreset"}) {
        auto p = preset(name);
        try {
            p->getTool();
            FAIL() << name;
        } catch (ExBase const& e) {
            EXPECT_NE(e.getReason().find(name), std::string::npos) << e.getReason();
        }
    }
}

// Loaded directly, a preset's node takes the name as given; dragged, the name is made unique.
TEST_F(ToolPresetTest, NamesOfDroppedPresets) {
    PiToolPreset::save(root->createToolNode(grade, "warm"), at("warm.qnpreset"), "");
    auto loaded = preset("warm.qnpreset");
    RCShdPtr<PiNode> same = loaded->addNode(root, "warm");
    EXPECT_EQ(same->getNodeName(), "warm");
    EXPECT_NE(same.get(), root->findNode("warm").get());

    auto dnd = PiDndToolPreset::create(at("warm.qnpreset").getString());
    EXPECT_EQ(dnd->getName(), "warm");
    EXPECT_EQ(dnd->getPath(), at("warm.qnpreset").getString());
    EXPECT_EQ(dnd->getTool().get(), grade.get());
    EXPECT_TRUE(dnd->isADisplayModifierTool());
    EXPECT_EQ(dnd->addNode(root, "warm")->getNodeName(), "warm (2)");
    EXPECT_EQ(dnd->addNode(root, "warm")->getNodeName(), "warm (3)");
    EXPECT_EQ(dnd->addNode(root, "cool")->getNodeName(), "cool");
    EXPECT_EQ(currentPreset(root->findNode("cool")), at("warm.qnpreset").getString());
}

// A preset whose graph holds no node is refused, and the graph stays as it was.
TEST_F(ToolPresetTest, APresetWithoutNodesIsRefused) {
    put("hollow.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"false\">"
                           "<ToolName>Grade</ToolName></PresetsHeader>"
                           "<Graph version=\"1\"/></Root>");
    auto p = preset("hollow.qnpreset");
    EXPECT_EQ(p->getTool().get(), grade.get());
    try {
        p->addNode(root, "x");
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "newNodes.getCardinality() > 0");
    }
    EXPECT_EQ(root->getNodeCount(), 0);
    EXPECT_EQ(graph->getCommandStack().getUndoCount(), 0);
}

// A node whose controller is no tool interface cannot remember its preset: the drop fails
// with the cast error and takes the loaded node out again.
TEST_F(ToolPresetTest, ANodeThatCannotRememberItsPresetIsRefused) {
    PiToolPreset::save(root->createToolNode(raw, "r"), at("raw.qnpreset"), "");
    int const before = root->getNodeCount();
    EXPECT_THROW(preset("raw.qnpreset")->addNode(root, "r2"), ExCastFailed);
    EXPECT_EQ(root->getNodeCount(), before);
    EXPECT_TRUE(root->findNode("r2").isNull());
}

// The expressions that drive a node's values travel with it and bind to the graph they land in,
// inside groups too; one that cannot bind there is left alone.
TEST_F(ToolPresetTest, ExpressionsBindToTheirNewGraph) {
    RCShdPtr<PiNode> a = root->createToolNode(soften, "A");
    RCShdPtr<PiNode> e = root->createToolNode(expr, "E");
    rcCast<PiValueNode>(valueNode(a, "Radius"))->getInput()->connect(e->findOutput("Value"));
    rcCast<PiExpressionInterface>(e->getController().lock())->resolve();
    ASSERT_EQ(s_resolves, 1);
    PiToolPreset::save(a, at("a.qnpreset"), "");

    RCShdPtr<PiGroupNode> outer = nestedLook();
    outer->createToolNode(expr, "E2");
    PiToolPreset::save(outer, at("look.qnpreset"), "");

    RCShdPtr<PiGraph> other = HoGraph::create("other");
    RCShdPtr<PiNode> a2 = preset("a.qnpreset")->addNode(other->getRootNode(), "A");
    EXPECT_EQ(s_resolves, 2);
    RCShdPtr<PiNode> driver = rcCast<PiValueNode>(valueNode(a2, "Radius"))
                                  ->getInput()
                                  ->getConnectedOutput()
                                  ->retrieveNode();
    ASSERT_TRUE(driver);
    EXPECT_TRUE(rcCast<PiExpressionInterface>(driver->getController().lock())->isResolved());

    preset("look.qnpreset")->addNode(other->getRootNode(), "L");
    EXPECT_EQ(s_resolves, 3);
    s_canResolve = false;
    preset("look.qnpreset")->addNode(other->getRootNode(), "L");
    EXPECT_EQ(s_resolves, 3);
}

// A file that cannot be opened for writing is the assertion; a file standing where a folder
// must be made is an error; neither leaves a file behind.
TEST_F(ToolPresetTest, UnwritablePaths) {
    RCShdPtr<PiNode> g = root->createToolNode(grade, "G");
    fs::create_directories(_dir / "taken.qnpreset");
    try {
        PiToolPreset::save(g, at("taken.qnpreset"), "");
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "streamer.is_open()");
    }
    put("file", "x");
    EXPECT_THROW(PiToolPreset::save(g, at("file/p.qnpreset"), ""), ExBase);
    EXPECT_TRUE(fs::is_directory(_dir / "taken.qnpreset"));
}

// Saving over a preset with each step of the save failing in turn: the folder holds the old
// preset whole and loadable, or the new one, and nothing else.
TEST_F(ToolPresetTest, AFailedSaveKeepsTheOldPreset) {
    OsFilePath const file = at("over.qnpreset");
    RCShdPtr<PiNode> g = root->createToolNode(grade, "G");
    RCShdPtr<PiNode> s = root->createToolNode(soften, "S");
    OsFaultInjector::arm();
    PiToolPreset::save(s, file, "");
    std::vector<int> counts;
    for (int op = 0; op < OsFaultInjector::NB_OPERATIONS; ++op)
        counts.push_back(OsFaultInjector::getCount(OsFaultInjector::Operation(op)));
    OsFaultInjector::disarm();
    for (int op = 0; op < OsFaultInjector::NB_OPERATIONS; ++op)
        for (int nth = 1; nth <= counts[op]; ++nth) {
            auto const o = OsFaultInjector::Operation(op);
            SCOPED_TRACE(std::string(OsFaultInjector::getName(o)) + " #" + std::to_string(nth));
            PiToolPreset::save(g, file, "");
            OsFaultInjector::failNth(o, nth, EIO);
            bool failed = false;
            try {
                PiToolPreset::save(s, file, "");
            } catch (ExBase const&) {
                failed = true;
            }
            OsFaultInjector::disarm();
            // Only the folder's sync comes after the new preset took the name.
            bool const late = o == OsFaultInjector::FSYNC && nth == counts[op];
            EXPECT_TRUE(failed);
            EXPECT_EQ(PiToolPreset::create(file.getString())->getTool().get(),
                      late ? soften.get() : grade.get());
            EXPECT_EQ(names().size(), 1u);
        }
}

// A dragged tool makes a node of the very tool and version dragged, under a unique name.
TEST_F(ToolPresetTest, DraggedToolsMakeNodes) {
    HoToolRegistry::initialize().registerTool(softenTool("2.0"));
    auto dnd = PiDndTool::create(soften);
    RCShdPtr<PiNode> n1 = dnd->addNode(root, "Soften");
    EXPECT_EQ(n1->getNodeName(), "Soften");
    EXPECT_EQ(PiGraphUtils::getTool(n1).get(), soften.get());
    EXPECT_EQ(dnd->addNode(root, "Soften")->getNodeName(), "Soften (2)");
    root->createToolNode(grade, "Soften (7)");
    EXPECT_EQ(dnd->addNode(root, "Soften")->getNodeName(), "Soften (8)");
    EXPECT_EQ(PiGraphUtils::findUniqueNodeName(root, "Soften", PiGraphUtils::ALWAYS_NUMBERED),
              "Soften (9)");
    EXPECT_EQ(PiGraphUtils::findUniqueNodeName(root, "Other", PiGraphUtils::ALWAYS_NUMBERED),
              "Other (1)");
    EXPECT_EQ(PiGraphUtils::findUniqueNodeName(root, "Other", PiGraphUtils::BASE_IS_FIRST),
              "Other");

    HoToolRegistry::initialize().unregisterTool(soften->getFullName(), "1.0");
    int const before = root->getNodeCount();
    EXPECT_THROW(dnd->addNode(root, "Soften"), ExBase);
    EXPECT_EQ(root->getNodeCount(), before);
}

// Archiving a node takes the value nodes that feed it, and nothing for no nodes.
TEST_F(ToolPresetTest, ArchivingNodesTakesTheirValues) {
    RCShdPtr<PiNode> a = root->createToolNode(soften, "A");
    XmlWriter none;
    PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>(), none);
    EXPECT_TRUE(none.toString().empty());
    XmlWriter w;
    PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>::overValues({a}), w);
    XmlDocument d = XmlDocument::parse(w.toString());
    EXPECT_EQ(d.getRoot().getName(), "Graph");
    EXPECT_EQ(d.getRoot().getChildren("Node").size(), 2u);
    EXPECT_THROW(
        PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>::overValues({nullptr}), w),
        ExNullPtr);
}

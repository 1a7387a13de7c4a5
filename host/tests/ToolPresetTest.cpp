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

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
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

class SoftenProtocol final : public PiToolProtocolImp {
public:
    explicit SoftenProtocol(std::string version = "1.0")
        : PiToolProtocolImp("Soften", "Filter", std::move(version), "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Radius", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::IMAGE);
    }
};

// A group tool.
class LookProtocol final : public PiToolProtocolImp {
public:
    LookProtocol() : PiToolProtocolImp("Look", "Color", "2.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.produces("Output", PiSocketType::IMAGE);
    }
};

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
class ExprProtocol final : public PiToolProtocolImp {
public:
    ExprProtocol() : PiToolProtocolImp("Expr", "Math", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.produces("Value", PiSocketType::DOUBLE);
    }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new ExprController);
    }
};

// Its controller is no tool interface.
class RawProtocol final : public PiToolProtocolImp {
public:
    RawProtocol() : PiToolProtocolImp("Raw", "Filter", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.produces("Output", PiSocketType::IMAGE);
    }
    RCShdPtr<PiNodeController> createController() const override {
        class Plain final : public PiTopologyInterface {};
        return RCShdPtr<PiNodeController>(new Plain);
    }
};

// Not registered at first.
class NopeProtocol final : public PiToolProtocolImp {
public:
    NopeProtocol() : PiToolProtocolImp("Nope", "Misc", "1.0") {}
    void describe(PiToolPolicyDescriptor&) const override {}
};

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

using ToolPtr = RCShdPtr<PiTool const>;
ToolPtr makeTool(PiToolProtocol* p) {
    return ToolPtr(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}

class ToolPresetTest : public ::testing::Test {
protected:
    void SetUp() override {
        InInitMgr::getInstance().initialize();
        HoToolRegistry& reg = HoToolRegistry::initialize();
        grade = makeTool(new GradeProtocol);
        soften = makeTool(new SoftenProtocol);
        look = makeTool(new LookProtocol);
        expr = makeTool(new ExprProtocol);
        raw = makeTool(new RawProtocol);
        for (ToolPtr const& t : {grade, soften, look, expr, raw})
            reg.registerTool(t);
        graph = HoGraph::create("comp");
        root = graph->getRootNode();
        s_resolves = 0;
        s_canResolve = true;
        dir = fs::temp_directory_path() /
              ("vn_presets_" + std::to_string(::getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
    }
    void TearDown() override {
        graph.reset();
        HoToolRegistry::finalize();
        InBuildInfoMgr::setAppInfo(nullptr);
        fs::remove_all(dir);
        InInitMgr::getInstance().finalize();
    }

    OsFilePath path(std::string const& rel) const { return OsFilePath((dir / rel).string()); }
    void write(std::string const& rel, std::string const& text) const {
        fs::create_directories((dir / rel).parent_path());
        std::ofstream(path(rel).getString()) << text;
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
    fs::path dir;
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
    OsFilePath const file = path("Filters/deep/soft.qnpreset");
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
    EXPECT_TRUE(PiToolPreset::save(g, path("g.qnpreset"), "")->isADisplayModifierTool());
    EXPECT_EQ(PiToolPreset::create(path("g.qnpreset").getString())->getTool().get(), grade.get());

    RCShdPtr<PiGroupNode> inner;
    RCShdPtr<PiGroupNode> outer = nestedLook(&inner);
    PiToolPreset::save(outer, path("look.qnpreset"), "");
    auto readBack = PiToolPreset::create(path("look.qnpreset").getString());
    EXPECT_TRUE(readBack->isADisplayModifierTool());
    EXPECT_EQ(readBack->getTool().get(), look.get());

    inner->createToolNode(soften, "s");
    PiToolPreset::save(outer, path("look2.qnpreset"), "");
    EXPECT_FALSE(
        PiToolPreset::create(path("look2.qnpreset").getString())->isADisplayModifierTool());
    // A group of no nodes at all passes.
    RCShdPtr<PiGroupNode> empty = root->createGroupNode("empty", look);
    EXPECT_TRUE(PiToolPreset::save(empty, path("empty.qnpreset"), "")->isADisplayModifierTool());
    // A node or group without a tool makes no preset.
    EXPECT_TRUE(PiToolPreset::save(inner, path("none.qnpreset"), "").isNull());
    EXPECT_TRUE(PiToolPreset::save(valueNode(g, "Gain"), path("v.qnpreset"), "").isNull());
    EXPECT_FALSE(fs::exists(dir / "none.qnpreset"));
    EXPECT_FALSE(fs::exists(dir / "v.qnpreset"));
}

// The tool and the flag are read once: saving over the file changes what new readers see,
// not what a reader already holds.
TEST_F(ToolPresetTest, SavingOverAPresetKeepsWhatWasRead) {
    OsFilePath const file = path("p.qnpreset");
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
    write("noheader.qnpreset", "<Root><Graph version=\"1\"/></Root>");
    write("noname.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"true\">"
                             "<ToolCategory>Color</ToolCategory></PresetsHeader></Root>");
    write("unknown.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"true\">"
                              "<ToolName>Nope</ToolName></PresetsHeader></Root>");
    write("odd.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"maybe\">"
                          "<ToolName>Grade</ToolName></PresetsHeader></Root>");
    for (char const* name : {"noheader", "noname"}) {
        auto p = PiToolPreset::create(path(std::string(name) + ".qnpreset").getString());
        EXPECT_TRUE(p->getTool().isNull()) << name;
        EXPECT_FALSE(p->isADisplayModifierTool()) << name;
    }
    auto unknown = PiToolPreset::create(path("unknown.qnpreset").getString());
    EXPECT_TRUE(unknown->getTool().isNull());
    EXPECT_TRUE(unknown->isADisplayModifierTool());
    auto odd = PiToolPreset::create(path("odd.qnpreset").getString());
    EXPECT_EQ(odd->getTool().get(), grade.get());
    EXPECT_FALSE(odd->isADisplayModifierTool());

    // The header is read again while no tool is found: a tool registered later is found.
    HoToolRegistry::initialize().registerTool(makeTool(new NopeProtocol));
    EXPECT_EQ(unknown->getTool()->getName(), "Nope");

    write("broken.qnpreset", "<Root><PresetsHeader>");
    for (char const* name : {"broken.qnpreset", "missing.qnpreset"}) {
        auto p = PiToolPreset::create(path(name).getString());
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
    PiToolPreset::save(root->createToolNode(grade, "warm"), path("warm.qnpreset"), "");
    auto preset = PiToolPreset::create(path("warm.qnpreset").getString());
    RCShdPtr<PiNode> same = preset->addNode(root, "warm");
    EXPECT_EQ(same->getNodeName(), "warm");
    EXPECT_NE(same.get(), root->findNode("warm").get());

    auto dnd = PiDndToolPreset::create(path("warm.qnpreset").getString());
    EXPECT_EQ(dnd->getName(), "warm");
    EXPECT_EQ(dnd->getPath(), path("warm.qnpreset").getString());
    EXPECT_EQ(dnd->getTool().get(), grade.get());
    EXPECT_TRUE(dnd->isADisplayModifierTool());
    EXPECT_EQ(dnd->addNode(root, "warm")->getNodeName(), "warm (2)");
    EXPECT_EQ(dnd->addNode(root, "warm")->getNodeName(), "warm (3)");
    EXPECT_EQ(dnd->addNode(root, "cool")->getNodeName(), "cool");
    EXPECT_EQ(currentPreset(root->findNode("cool")), path("warm.qnpreset").getString());
}

// A preset whose graph holds no node is refused, and the graph stays as it was.
TEST_F(ToolPresetTest, APresetWithoutNodesIsRefused) {
    write("hollow.qnpreset", "<Root><PresetsHeader DisplayGraphModifier=\"false\">"
                             "<ToolName>Grade</ToolName></PresetsHeader>"
                             "<Graph version=\"1\"/></Root>");
    auto p = PiToolPreset::create(path("hollow.qnpreset").getString());
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
    PiToolPreset::save(root->createToolNode(raw, "r"), path("raw.qnpreset"), "");
    int const before = root->getNodeCount();
    EXPECT_THROW(PiToolPreset::create(path("raw.qnpreset").getString())->addNode(root, "r2"),
                 ExCastFailed);
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
    PiToolPreset::save(a, path("a.qnpreset"), "");

    RCShdPtr<PiGroupNode> outer = nestedLook();
    outer->createToolNode(expr, "E2");
    PiToolPreset::save(outer, path("look.qnpreset"), "");

    RCShdPtr<PiGraph> other = HoGraph::create("other");
    RCShdPtr<PiNode> a2 =
        PiToolPreset::create(path("a.qnpreset").getString())->addNode(other->getRootNode(), "A");
    EXPECT_EQ(s_resolves, 2);
    RCShdPtr<PiNode> driver = rcCast<PiValueNode>(valueNode(a2, "Radius"))
                                  ->getInput()
                                  ->getConnectedOutput()
                                  ->retrieveNode();
    ASSERT_TRUE(driver);
    EXPECT_TRUE(rcCast<PiExpressionInterface>(driver->getController().lock())->isResolved());

    PiToolPreset::create(path("look.qnpreset").getString())->addNode(other->getRootNode(), "L");
    EXPECT_EQ(s_resolves, 3);
    s_canResolve = false;
    PiToolPreset::create(path("look.qnpreset").getString())->addNode(other->getRootNode(), "L");
    EXPECT_EQ(s_resolves, 3);
}

// A file that cannot be opened for writing is the assertion; a file standing where a folder
// must be made is an error; neither leaves a file behind.
TEST_F(ToolPresetTest, UnwritablePaths) {
    RCShdPtr<PiNode> g = root->createToolNode(grade, "G");
    fs::create_directories(dir / "taken.qnpreset");
    try {
        PiToolPreset::save(g, path("taken.qnpreset"), "");
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "streamer.is_open()");
    }
    write("file", "x");
    EXPECT_THROW(PiToolPreset::save(g, path("file/p.qnpreset"), ""), ExBase);
    EXPECT_TRUE(fs::is_directory(dir / "taken.qnpreset"));
}

// Saving over a preset with each step of the save failing in turn: the folder holds the old
// preset whole and loadable, or the new one, and nothing else.
TEST_F(ToolPresetTest, AFailedSaveKeepsTheOldPreset) {
    OsFilePath const file = path("over.qnpreset");
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
            EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
        }
}

// A dragged tool makes a node of the very tool and version dragged, under a unique name.
TEST_F(ToolPresetTest, DraggedToolsMakeNodes) {
    HoToolRegistry::initialize().registerTool(makeTool(new SoftenProtocol("2.0")));
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
    EXPECT_TRUE(none.getCurrentElement().isNull());
    XmlWriter w;
    PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>::overValues({a}), w);
    XmlDocument d = XmlDocument::parse(w.toString());
    EXPECT_EQ(d.getRoot().getName(), "Graph");
    EXPECT_EQ(d.getRoot().getChildren("Node").size(), 2u);
    EXPECT_THROW(
        PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>>::overValues({nullptr}), w),
        ExNullPtr);
}

#include "EngineTestSupport.h"

#include "EvEventManager.h"
#include "ExBase.h"
#include "PxDAGMonitorImp.h"
#include "PxImageSourceNodes.h"
#include "PxPassThroughNode.h"
#include "PxValueNode.h"
#include "Trace.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace VnTest;
using namespace Vn;
namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

class TestNode : public PxAnimValueProtocol<int> {
public:
    TestNode() : PxNode(PxNode::Init{"TestNode"}) {}
    PxResult<int> getValue(PxTimeContext const&) const override { return PxResult<int>(0); }
};
// An image node that can stand below a value pass-through.
class ImageNode final : public TestNode, public PxImageFormatProtocol {
public:
    PxImageFormat getImageFormat() const override { return PxImageFormat::INVALID_FORMAT; }
};

void link(PxStrongHndl<PxNode> const& parent, PxStrongHndl<PxNode> const& child) {
    parent->registerChild(PxNodePtr<PxNode const>(child));
}

template <class N>
std::string address(PxStrongHndl<N> const& n) {
    std::ostringstream s;
    s << static_cast<void const*>(static_cast<PxNode const*>(n.get()));
    return s.str();
}

// The two label lines as the tree shows them, and joined as DOT shows them.
template <class N>
std::string treeLabel(PxStrongHndl<N> const& n, std::string const& cls = "TestNode") {
    return cls + " (" + address(n) + ")";
}
template <class N>
std::string dot(PxStrongHndl<N> const& n, std::string const& cls = "TestNode") {
    return "\"" + cls + "\\n(" + address(n) + ")\"";
}

std::vector<std::string> splitLines(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream s(text);
    for (std::string l; std::getline(s, l);)
        lines.push_back(l);
    return lines;
}

void writeLines(fs::path const& p, std::vector<std::string> const& lines) {
    std::ofstream out(p);
    for (auto const& l : lines)
        out << l << "\n";
}

std::string readFile(fs::path const& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> dotFiles() {
    std::vector<std::string> names;
    for (auto const& e : fs::directory_iterator(fs::current_path()))
        if (e.is_regular_file() && e.path().extension() == ".dot")
            names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool hasDot() {
    return std::system("command -v dot >/dev/null 2>&1") == 0;
}

std::ptrdiff_t indexOf(std::vector<std::string> const& lines, std::string const& line) {
    auto it = std::find(lines.begin(), lines.end(), line);
    return it == lines.end() ? -1 : it - lines.begin();
}

// Runs each test in a directory of its own, with the monitor's trace captured and the dump
// unpruned unless a test says otherwise.
class DAGMonitor : public EngineTest {
protected:
    void SetUp() override {
        EngineTest::SetUp();
        _home = fs::current_path();
        _dir = fs::temp_directory_path() /
               ("vn_dag_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(_dir);
        fs::create_directories(_dir);
        fs::current_path(_dir);
        PxDAGMonitorImp::restartFileRun();
        PxDAGMonitorImp::setPruning(false);
        Trace& trace = PxDAGMonitorImp::getTrace();
        _savedLevel = trace.getLevel();
        trace.setLevel(Trace::MainTraceLevel);
        _savedOutput = TraceManager::getInstance().setOutput([this](std::string const& line) {
            std::string const tag = "PxDAGMonitor: ";
            auto const at = line.find(tag);
            if (at == std::string::npos)
                return;
            std::lock_guard g(_m);
            _trace.push_back(line.substr(at + tag.size()));
        });
    }
    void TearDown() override {
        TraceManager::getInstance().setOutput(std::move(_savedOutput));
        PxDAGMonitorImp::getTrace().setLevel(_savedLevel);
        PxDAGMonitorImp::setPruning(true);
        fs::current_path(_home);
        fs::remove_all(_dir);
        EngineTest::TearDown();
    }

    // Trace lines since the last call, without the channel's prefix.
    std::vector<std::string> takeTrace() {
        std::lock_guard g(_m);
        return std::exchange(_trace, {});
    }
    // The tree lines of a dump: those that begin with the indentation.
    static std::vector<std::string> treeOf(std::vector<std::string> const& trace) {
        std::vector<std::string> tree;
        for (auto const& l : trace)
            if (l.rfind("    ", 0) == 0)
                tree.push_back(l);
        return tree;
    }
    std::vector<std::string> treeLines() { return treeOf(takeTrace()); }
    std::string dotFromTrace() {
        for (auto const& l : takeTrace())
            if (l.rfind("digraph G {", 0) == 0)
                return l;
        return {};
    }
    // Every DOT file written here must be accepted by Graphviz.
    void expectGraphvizAcceptsAll() {
        if (!hasDot())
            GTEST_SKIP() << "Graphviz dot is not installed";
        for (auto const& f : dotFiles()) {
            std::string const cmd = "dot -Tsvg '" + f + "' -o /dev/null 2>dot_errors.txt";
            EXPECT_EQ(std::system(cmd.c_str()), 0) << f << ": " << readFile("dot_errors.txt");
        }
    }

    fs::path _home;
    fs::path _dir;
    int _savedLevel = 0;
    TraceManager::Output _savedOutput;
    std::mutex _m;
    std::vector<std::string> _trace;
};

PxDAGMonitor& monitor() {
    return PxDAGMonitor::getInstance();
}

// top over left and right, both over bottom; top and left made in the groups named, if any.
struct Diamond {
    PxStrongHndl<TestNode> top, left, right, bottom;
    std::uint32_t topGroup = 0, leftGroup = 0;
};
Diamond diamond(char const* topGroup, char const* leftGroup) {
    Diamond d;
    auto inGroup = [](char const* group, std::uint32_t& id) {
        std::optional<PxDAGMonitorGroupGuard> guard;
        if (group)
            guard.emplace(group);
        id = PxDAGMonitorImp::getCurrentGroup();
        return makeNode<TestNode>();
    };
    d.top = inGroup(topGroup, d.topGroup);
    d.left = inGroup(leftGroup, d.leftGroup);
    d.right = makeNode<TestNode>();
    d.bottom = makeNode<TestNode>();
    link(d.top, d.left);
    link(d.top, d.right);
    link(d.left, d.bottom);
    link(d.right, d.bottom);
    return d;
}

} // namespace

TEST_F(DAGMonitor, NodesJoinTheCurrentGroupAndLeaveWhenTheyDie) {
    std::size_t const before = PxDAGMonitorImp::getNbNodes();
    auto top = makeNode<TestNode>();
    std::uint32_t g = 99;
    ASSERT_TRUE(PxDAGMonitorImp::findNodeGroup(top.get(), &g));
    EXPECT_EQ(g, 1u);
    EXPECT_EQ(PxDAGMonitorImp::getGroupName(0), "Unknown");
    EXPECT_EQ(PxDAGMonitorImp::getGroupName(1), "Top Level");

    PxStrongHndl<TestNode> blurred, inner, again;
    std::uint32_t blur = 0, second = 0;
    {
        PxDAGMonitorGroupGuard group("Blur");
        blur = PxDAGMonitorImp::getCurrentGroup();
        EXPECT_GE(blur, 2u);
        EXPECT_EQ(PxDAGMonitorImp::getGroupName(blur), "Blur");
        blurred = makeNode<TestNode>();
        {
            PxDAGMonitorGroupGuard topLevel{PxDAGMonitorGroupGuard::TopLevel{}};
            inner = makeNode<TestNode>();
        }
        PxDAGMonitorGroupGuard same("Blur");
        second = PxDAGMonitorImp::getCurrentGroup();
        again = makeNode<TestNode>();
    }
    EXPECT_EQ(PxDAGMonitorImp::getCurrentGroup(), 1u);
    // Ids only grow, even for a name seen before; names stay.
    EXPECT_GT(second, blur);
    EXPECT_EQ(PxDAGMonitorImp::getGroupName(second), "Blur");
    ASSERT_TRUE(PxDAGMonitorImp::findNodeGroup(blurred.get(), &g));
    EXPECT_EQ(g, blur);
    ASSERT_TRUE(PxDAGMonitorImp::findNodeGroup(inner.get(), &g));
    EXPECT_EQ(g, 1u);
    ASSERT_TRUE(PxDAGMonitorImp::findNodeGroup(again.get(), &g));
    EXPECT_EQ(g, second);
    EXPECT_EQ(PxDAGMonitorImp::getNbNodes(), before + 4);

    PxNode const* gone = blurred.get();
    blurred.reset();
    EXPECT_FALSE(PxDAGMonitorImp::findNodeGroup(gone, nullptr));
    EXPECT_EQ(PxDAGMonitorImp::getNbNodes(), before + 3);
    {
        PxDAGMonitorGroupGuard later("Later");
        EXPECT_GT(PxDAGMonitorImp::getCurrentGroup(), second);
    }
}

TEST_F(DAGMonitor, TheTreeOfADiamondShowsTheSharedNodeOnceAndThenByItsNumber) {
    auto const [top, left, right, bottom, topGroup, leftGroup] = diamond(nullptr, "Blur");

    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE);
    auto const all = takeTrace();
    EXPECT_NE(indexOf(all, "4 nodes."), -1);
    auto const tree = treeOf(all);
    ASSERT_EQ(tree.size(), 5u) << ::testing::PrintToString(all);
    EXPECT_EQ(tree[0], "    Node 1: " + treeLabel(top));
    // The first child met is whichever the walk reached first; the other comes after.
    bool const leftFirst = tree[1].find(address(left)) != std::string::npos;
    std::string const leftLine = "Blur- " + treeLabel(left);
    std::string const rightLine = treeLabel(right);
    EXPECT_EQ(tree[1], "        Node 2: " + (leftFirst ? leftLine : rightLine));
    EXPECT_EQ(tree[2], "            Node 3: " + treeLabel(bottom));
    EXPECT_EQ(tree[3], "        Node 4: " + (leftFirst ? rightLine : leftLine));
    EXPECT_EQ(tree[4], "            <Node 3: " + treeLabel(bottom) + " 0 children>");

    // Each dump numbers from 1 again.
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE);
    auto const second = treeLines();
    ASSERT_EQ(second.size(), 5u);
    EXPECT_EQ(second[0], tree[0]);
}

TEST_F(DAGMonitor, TheDOTTextOfADiamondPutsGroupsInClustersAndParentGroupsFirst) {
    auto const [top, left, right, bottom, merge, blur] = diamond("Merge", "Blur \"soft\"");

    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_IN_TRACE);
    std::string const text = dotFromTrace();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '}');
    auto const lines = splitLines(text);
    // Two clusters of four lines, the right node, the bottom with its two parents.
    ASSERT_EQ(lines.size(), 2u + 4u + 4u + 1u + 4u + 1u) << text;
    EXPECT_EQ(lines[0], "digraph G {");
    EXPECT_EQ(lines[1], "\trankdir=LR;");
    EXPECT_EQ(lines.back(), "}");

    // Every walk reaches the top first: its group leads.
    EXPECT_EQ(lines[2], "\tsubgraph cluster_" + std::to_string(merge) + " {");
    EXPECT_EQ(lines[3], "\t\tlabel = \"Merge\";");
    EXPECT_EQ(lines[4], "\t\t" + dot(top));
    EXPECT_EQ(lines[5], "\t}");

    auto const cluster = indexOf(lines, "\tsubgraph cluster_" + std::to_string(blur) + " {");
    ASSERT_NE(cluster, -1) << text;
    EXPECT_EQ(lines[cluster + 1], "\t\tlabel = \"Blur \\\"soft\\\"\";");
    EXPECT_EQ(lines[cluster + 2], "\t\t" + dot(left) + "->" + dot(top));
    EXPECT_EQ(lines[cluster + 3], "\t}");

    EXPECT_NE(indexOf(lines, "\t" + dot(right) + "->" + dot(top)), -1) << text;
    auto const bottomLine = indexOf(lines, "\t" + dot(bottom) + "->{");
    ASSERT_NE(bottomLine, -1) << text;
    std::vector<std::string> parents{lines[bottomLine + 1], lines[bottomLine + 2]};
    std::sort(parents.begin(), parents.end());
    std::vector<std::string> expected{"\t\t" + dot(left), "\t\t" + dot(right)};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(parents, expected);
    EXPECT_EQ(lines[bottomLine + 3], "\t}");

    std::ofstream("diamond.dot") << text;
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, APassThroughChainIsDumpedWholeUnprunedAndVanishesPruned) {
    using Pass = PxPassThroughNode<PxAnimValueProtocol<int>>;
    std::string const passClass =
        "PxPassThroughNode<Vn::PxAnimValueProtocol<int>, Vn::PxAnimValueProtocol<int> >";
    auto source = makeNode<ImageNode>();
    auto value = PxStrongHndl<PxAnimValueNode<int>>(
        new PxAnimValueNode<int>(PxNode::Init{"v"}, PxResult<int>(3)));
    PxNode::init(PxStrongHndl<PxNode>(value));
    link(source, value);
    std::vector<PxStrongHndl<Pass>> chain;
    PxStrongHndl<PxAnimValueProtocol<int> const> below(source);
    for (int i = 0; i < 3; ++i) {
        chain.emplace_back(new Pass(PxNode::Init{"pass"}, below));
        PxNode::init(PxStrongHndl<PxNode>(chain.back()));
        below = PxStrongHndl<PxAnimValueProtocol<int> const>(chain.back());
    }
    auto sink = makeNode<ImageNode>();
    link(sink, chain.back());

    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_IN_TRACE);
    auto lines = splitLines(dotFromTrace());
    EXPECT_NE(indexOf(lines, "\t" + dot(chain[0], passClass) + "->" + dot(chain[1], passClass)), -1)
        << ::testing::PrintToString(lines);
    EXPECT_NE(indexOf(lines, "\t" + dot(chain[2], passClass) + "->" + dot(sink, "ImageNode")), -1);
    EXPECT_NE(indexOf(lines, "\t" + dot(source, "ImageNode") + "->" + dot(chain[0], passClass)),
              -1);
    EXPECT_NE(
        indexOf(lines, "\t" + dot(value, "PxAnimValueNode<int>") + "->" + dot(source, "ImageNode")),
        -1);
    EXPECT_EQ(lines.size(), 2u + 6u + 1u);
    writeLines("whole.dot", lines);

    // Pruned, the chain between the two image nodes goes, and so does the value leaf.
    PxDAGMonitorImp::setPruning(true);
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_IN_TRACE);
    lines = splitLines(dotFromTrace());
    ASSERT_EQ(lines.size(), 5u) << ::testing::PrintToString(lines);
    EXPECT_EQ(lines[0], "digraph G {");
    EXPECT_EQ(lines[4], "}");
    std::vector<std::string> nodes{lines[2], lines[3]};
    std::sort(nodes.begin(), nodes.end());
    std::vector<std::string> expected{"\t" + dot(sink, "ImageNode"),
                                      "\t" + dot(source, "ImageNode") + "->" +
                                          dot(sink, "ImageNode")};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(nodes, expected);
    writeLines("pruned.dot", lines);
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, PruningKeepsForksAndJoinsAndDropsTheBlackSource) {
    PxDAGMonitorImp::setPruning(true);
    // top -> a -> join, top -> b -> join, join -> black; a and b go, the black source goes
    // although two nodes use it.
    auto top = makeNode<TestNode>();
    auto a = makeNode<TestNode>();
    auto b = makeNode<TestNode>();
    auto join = makeNode<TestNode>();
    auto black = makeNode(new PxBlackSourceNode(PxNode::Init{"black"}));
    auto other = makeNode<TestNode>();
    link(top, a);
    link(top, b);
    link(a, join);
    link(b, join);
    link(join, black);
    link(other, black);
    // Removing a node with several parents bridges nothing: its child is left alone, and goes.
    auto leaf = makeNode<TestNode>();
    link(black, leaf);

    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE);
    auto const all = takeTrace();
    // top, join; "other" lost its only child and stands alone, so it goes too.
    EXPECT_NE(indexOf(all, "2 nodes."), -1) << ::testing::PrintToString(all);
    EXPECT_EQ(treeOf(all), (std::vector<std::string>{
                               "    Node 1: " + treeLabel(top),
                               "        Node 2: " + treeLabel(join),
                               "        <Node 2: " + treeLabel(join) + " 0 children>",
                           }));
}

TEST_F(DAGMonitor, AParentThatNeverRegisteredStandsInTheUnknownGroup) {
    auto child = makeNode<TestNode>();
    // Made while no monitor listed it.
    auto* raw = new TestNode;
    PxStrongHndl<TestNode> unlisted(raw);
    ASSERT_FALSE(PxDAGMonitorImp::findNodeGroup(raw, nullptr));
    link(unlisted, child);
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE);
    EXPECT_EQ(treeLines(), (std::vector<std::string>{
                               "    Node 1: Unknown- " + treeLabel(unlisted),
                               "        Node 2: " + treeLabel(child),
                           }));
}

TEST_F(DAGMonitor, DOTFilesAreNumberedAndAnUnchangedGraphWritesNone) {
    // An empty graph, as far as this test's nodes go: the process may hold others.
    ASSERT_EQ(PxDAGMonitorImp::getNbNodes(), 0u);
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
    EXPECT_EQ(dotFiles(), std::vector<std::string>{"PxDAG_A_000000.dot"});
    EXPECT_EQ(readFile("PxDAG_A_000000.dot"), "digraph G {\n\trankdir=LR;\n}");
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
    EXPECT_EQ(dotFiles().size(), 1u);

    auto node = makeNode<TestNode>();
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE_AND_DOT_FILE);
    ASSERT_EQ(dotFiles(), (std::vector<std::string>{"PxDAG_A_000000.dot", "PxDAG_A_000001.dot"}));
    // The tree marked the node; the DOT file still holds it.
    EXPECT_EQ(readFile("PxDAG_A_000001.dot"), "digraph G {\n\trankdir=LR;\n\t" + dot(node) + "\n}");
    EXPECT_EQ(treeLines(), std::vector<std::string>{"    Node 1: " + treeLabel(node)});
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, ARunLetterInUseMovesTheNextProcessToTheNextLetters) {
    std::ofstream("PxDAG_A_000000.dot") << "old";
    // Runs 2 to 25 are B to Z; 26 is "A@" (a digit 0), 27 "AA".
    for (char c = 'B'; c <= 'Z'; ++c)
        std::ofstream(std::string("PxDAG_") + c + "_000000.dot") << "old";
    std::ofstream("PxDAG_A@_000000.dot") << "old";
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
    EXPECT_TRUE(fs::exists("PxDAG_AA_000000.dot"));
    EXPECT_EQ(readFile("PxDAG_A@_000000.dot"), "old");

    PxDAGMonitorImp::restartFileRun();
    for (auto const& f : dotFiles())
        fs::remove(f);
    std::ofstream("PxDAG_A_000000.dot") << "old";
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
    EXPECT_EQ(dotFiles(), (std::vector<std::string>{"PxDAG_A_000000.dot", "PxDAG_B_000000.dot"}));
    EXPECT_EQ(readFile("PxDAG_A_000000.dot"), "old");
}

TEST_F(DAGMonitor, AFileThatCannotBeOpenedFailsTheDumpAndTheNextOneTriesAgain) {
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
    ASSERT_TRUE(fs::exists("PxDAG_A_000000.dot"));
    // The next name is taken by a directory, which cannot be opened for writing.
    fs::create_directory("PxDAG_A_000001.dot");
    auto node = makeNode<TestNode>();
    try {
        monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
        ADD_FAILURE() << "the dump did not fail";
    } catch (ExBase const& e) {
        EXPECT_THAT(e.getReason(), HasSubstr("f != 0"));
    }

    // Asynchronous: the failure ends in the log, nothing else happens.
    {
        LogCapture log;
        monitor().dump(PxDAGMonitor::ASYNCHRONOUS, PxDAGMonitor::DOT_FILE);
        EvEventManager::getInstance().flush();
        engine().sync();
        EXPECT_TRUE(eventually([&] { return log.count({"The DAG dump failed", "f != 0"}) > 0; }));
    }

    fs::remove("PxDAG_A_000001.dot");
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::DOT_FILE);
    EXPECT_EQ(readFile("PxDAG_A_000001.dot"), "digraph G {\n\trankdir=LR;\n\t" + dot(node) + "\n}");

    // The named file of writeDOTFile raises with its name.
    try {
        PxDAGMonitorImp::writeDOTFile(node, "no/such/dir/graph.dot");
        ADD_FAILURE() << "writeDOTFile did not fail";
    } catch (ExBase const& e) {
        EXPECT_THAT(e.getReason(), HasSubstr("no/such/dir/graph.dot"));
    }
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, AnAsynchronousDumpFromAnotherThreadRunsOnTheApplicationThread) {
    auto node = makeNode<TestNode>();
    std::thread other([] { monitor().dump(PxDAGMonitor::ASYNCHRONOUS, PxDAGMonitor::DOT_FILE); });
    other.join();
    EvEventManager::getInstance().flush();
    engine().sync();
    EXPECT_TRUE(eventually([] { return fs::exists("PxDAG_A_000000.dot"); }));
    EXPECT_TRUE(eventually(
        [] { return readFile("PxDAG_A_000000.dot").size() > std::string("digraph G {").size(); }));
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, WriteDOTFileShowsOnlyTheGraphUnderItsNode) {
    auto top = makeNode<TestNode>();
    auto mid = makeNode<TestNode>();
    auto leafA = makeNode<TestNode>();
    auto leafB = makeNode<TestNode>();
    auto elsewhere = makeNode<TestNode>();
    link(top, mid);
    link(mid, leafA);
    link(mid, leafB);
    link(elsewhere, leafB);
    PxDAGMonitorImp::writeDOTFile(mid, "render.dot");
    auto const lines = splitLines(readFile("render.dot"));
    EXPECT_EQ(lines.size(), 2u + 3u + 1u) << ::testing::PrintToString(lines);
    EXPECT_NE(indexOf(lines, "\t" + dot(mid)), -1);
    EXPECT_NE(indexOf(lines, "\t" + dot(leafA) + "->" + dot(mid)), -1);
    EXPECT_NE(indexOf(lines, "\t" + dot(leafB) + "->" + dot(mid)), -1);
    // Nothing above or beside it; and the numbered files are left alone.
    EXPECT_EQ(readFile("render.dot").find(address(top)), std::string::npos);
    EXPECT_EQ(readFile("render.dot").find(address(elsewhere)), std::string::npos);
    EXPECT_EQ(dotFiles(), std::vector<std::string>{"render.dot"});
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, AChainOfAHundredThousandNodesIsDumpedWithoutOverflowingAWorker) {
    constexpr int kLength = 100000;
    std::vector<PxStrongHndl<TestNode>> chain;
    chain.reserve(kLength);
    for (int i = 0; i < kLength; ++i) {
        chain.push_back(makeNode<TestNode>());
        if (i)
            link(chain[i - 1], chain[i]);
    }
    PxDAGMonitorImp::writeDOTFile(chain.front(), "chain.dot");
    auto const lines = splitLines(readFile("chain.dot"));
    EXPECT_EQ(lines.size(), 3u + kLength);
    EXPECT_NE(indexOf(lines, "\t" + dot(chain[kLength - 1]) + "->" + dot(chain[kLength - 2])), -1);
    // Graphviz itself cannot lay out a chain that long: it checks the same text on a shorter one.
    fs::remove("chain.dot");
    PxDAGMonitorImp::writeDOTFile(chain[kLength - 1000], "tail.dot");
    EXPECT_EQ(splitLines(readFile("tail.dot")).size(), 3u + 1000u);

    // The tree's lines grow with depth, so its text is kept to a deep but shorter chain.
    constexpr std::size_t kTreeLength = 10000;
    chain.resize(kTreeLength);
    std::size_t count = 0;
    std::size_t last = 0;
    auto previous = TraceManager::getInstance().setOutput([&](std::string const& line) {
        if (line.find("Node ") != std::string::npos) {
            ++count;
            last = line.size();
        }
    });
    monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE);
    TraceManager::getInstance().setOutput(std::move(previous));
    // The first node cut off is still its parent's child: it stays in the graph, below it.
    EXPECT_EQ(count, kTreeLength + 1);
    EXPECT_GT(last, 4u * kTreeLength);
    chain.clear();
    expectGraphvizAcceptsAll();
}

TEST_F(DAGMonitor, EvaluationNamesStackPerThread) {
    auto& m = monitor();
    EXPECT_EQ(m.getCurrentEvaluationName(), "External thread");
    {
        PxDAGMonitorImp::PxNodeEvaluationGuard outer("Blur");
        EXPECT_EQ(m.getCurrentEvaluationName(), "Blur");
        {
            PxDAGMonitorImp::PxNodeEvaluationGuard inner("Blur/Kernel");
            EXPECT_EQ(m.getCurrentEvaluationName(), "Blur/Kernel");
            std::string onWorker, nested;
            runAndWait(new FnRequest([&] {
                onWorker = m.getCurrentEvaluationName();
                PxDAGMonitorImp::PxNodeEvaluationGuard g("Merge");
                nested = m.getCurrentEvaluationName();
            }));
            EXPECT_EQ(onWorker, "Top-level PxRequest");
            EXPECT_EQ(nested, "Merge");
        }
        EXPECT_EQ(m.getCurrentEvaluationName(), "Blur");
    }
    EXPECT_EQ(m.getCurrentEvaluationName(), "External thread");
    std::string onEvents;
    EvEventManager::getInstance().post([&] { onEvents = m.getCurrentEvaluationName(); });
    EvEventManager::getInstance().flush();
    EXPECT_EQ(onEvents, "Application thread");
}

namespace {
std::atomic<int> g_diedOnWorker{0};
class Mortal final : public TestNode {
public:
    ~Mortal() override {
        if (PxRequestMgr::getInstance().isWorkerThreadCurrent())
            ++g_diedOnWorker;
    }
};
} // namespace

// A node whose last handle goes while a dump walks the graph is shown whole, and goes after.
TEST_F(DAGMonitor, ANodeLetGoDuringADumpIsShownWholeAndGoesAfter) {
    g_diedOnWorker = 0;
    auto top = makeNode<Mortal>();
    auto bottom = makeNode<TestNode>();
    link(top, bottom);
    std::string const topLine = "Node 1: " + treeLabel(top, "Mortal");
    PxWeakHndl<Mortal> const weak(top);
    std::atomic<bool> walking{false}, letGo{false};
    std::vector<std::string> lines;
    std::mutex m;
    auto saved = TraceManager::getInstance().setOutput([&](std::string const& line) {
        {
            std::lock_guard g(m);
            lines.push_back(line);
        }
        // The walk is over, the labels are still to come: let the test drop the top now.
        if (line.find(" nodes.") != std::string::npos && !walking.exchange(true))
            eventually([&] { return letGo.load(); }, 5.0);
    });
    std::thread dumper(
        [] { monitor().dump(PxDAGMonitor::SYNCHRONOUS, PxDAGMonitor::TREE_IN_TRACE); });
    ASSERT_TRUE(eventually([&] { return walking.load(); }));
    top.reset(); // the last handle of the tool side
    letGo = true;
    dumper.join();
    TraceManager::getInstance().setOutput(std::move(saved));
    bool shown = false;
    for (auto const& l : lines)
        shown = shown || l.find(topLine) != std::string::npos;
    EXPECT_TRUE(shown) << ::testing::PrintToString(lines);
    EXPECT_TRUE(weak.isExpired());
    EXPECT_TRUE(eventually([&] { return bottom->getNbParents() == 0; }));
    EXPECT_EQ(g_diedOnWorker.load(), 1); // the dump held it last
}

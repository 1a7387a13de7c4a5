#include "GraphTestSupport.h"

#include "ExBase.h"

#include <random>

using namespace Vn;
using namespace Vn::GraphTest;

namespace {

class GraphRandomEdits : public GraphFixture {
public:
    // Everything under the root, boundary nodes apart.
    void collect(RCShdPtr<PiGroupNode> const& g, std::vector<RCShdPtr<PiNode>>& nodes,
                 std::vector<RCShdPtr<PiGroupNode>>& groups) {
        groups.push_back(g);
        for (auto it = g->getNodes(); !it.atEnd(); it.next()) {
            RCShdPtr<PiNode> n = it.item();
            if (n->getNodeKind() == PiNode::BOUNDARY)
                continue;
            nodes.push_back(n);
            if (n->getNodeKind() == PiNode::GROUP)
                collect(rcCast<PiGroupNode>(n), nodes, groups);
        }
    }

    template <class T>
    T const& pick(std::vector<T> const& v) {
        return v[std::uniform_int_distribution<std::size_t>(0, v.size() - 1)(_rng)];
    }

    // One random edit; refusals (cycles, types, names) are part of the game.
    void step() {
        std::vector<RCShdPtr<PiNode>> nodes;
        std::vector<RCShdPtr<PiGroupNode>> groups;
        collect(root, nodes, groups);
        std::vector<RCShdPtr<PiInput>> ins;
        std::vector<RCShdPtr<PiOutput>> outs;
        for (auto const& n : nodes) {
            for (auto it = n->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next())
                ins.push_back(it.item());
            for (auto it = n->getOutputs(); !it.atEnd(); it.next())
                outs.push_back(it.item());
        }
        PiCommandStack& stack = graph->getCommandStack();
        std::string const name = "n" + std::to_string(_count++);
        int const op = std::uniform_int_distribution<int>(0, 14)(_rng);
        ++_tried;
        try {
            switch (op) {
            case 0:
                pick(groups)->createToolNode(_count % 3 ? blur : gen, name);
                break;
            case 1:
                if (nodes.size() > 3) {
                    RCShdPtr<PiNode> n = pick(nodes);
                    n->retrieveGroupNode()->removeNode(n);
                }
                break;
            case 2:
            case 3:
                if (!ins.empty() && !outs.empty())
                    pick(ins)->connect(pick(outs));
                break;
            case 4:
                if (!ins.empty())
                    pick(ins)->disconnect();
                break;
            case 5:
                pick(groups)->createGroupNode(name, {});
                break;
            case 6:
                if (groups.size() > 1) {
                    RCShdPtr<PiGroupNode> g = pick(groups);
                    if (_count % 2)
                        g->addDynamicInput(name, PiSocketType::IMAGE);
                    else
                        g->addDynamicOutput(name, PiSocketType::IMAGE);
                }
                break;
            case 7: {
                RCShdPtr<PiGroupNode> g = pick(groups);
                if (RCShdPtr<PiInput> in = g->getInputs(PiNode::DYNAMIC).getCardinality() > 0
                                               ? g->getInputs(PiNode::DYNAMIC).item()
                                               : RCShdPtr<PiInput>())
                    g->removeDynamicInput(in);
                else if (g->getOutputs(PiNode::DYNAMIC).getCardinality() > 0)
                    g->removeDynamicOutput(g->getOutputs(PiNode::DYNAMIC).item());
                break;
            }
            case 8: {
                RCShdPtr<PiNode> n = pick(nodes);
                if (RCShdPtr<PiInput> l = n->findInput("Layers")) {
                    auto c = rcCast<PiCompositeInput>(l);
                    int const k = c->getCardinality();
                    if (k > 1 && _count % 3 == 0)
                        c->moveBefore(c->getInput(k - 1), c->getInput(0));
                    else if (k > 0 && _count % 3 == 1)
                        c->removeInput(c->getInput(0));
                    else
                        c->insertInput(k, name);
                }
                break;
            }
            case 9: {
                RCShdPtr<PiNode> n = pick(nodes);
                if (auto v = n->findValue("Mode"))
                    rcCast<PiTypedValue<int>>(v)->set(_count % 4);
                else if (auto p = n->findInput("Points")) {
                    auto m = rcCast<PiMultivaluedInput>(p);
                    int const at = int(_count % (m->getCardinality() + 1));
                    if (_count % 3 == 0 && m->getCardinality() > 0)
                        m->removeInput(at % m->getCardinality());
                    else
                        m->insertInput(at);
                }
                break;
            }
            case 10:
                if (groups.size() > 1)
                    pick(groups)->moveNodes({pick(nodes)});
                break;
            case 11:
                pick(groups)->cloneNodes({pick(nodes), pick(nodes)});
                break;
            case 12:
                if (stack.canUndo())
                    stack.undo();
                break;
            case 13:
                if (stack.canRedo())
                    stack.redo();
                break;
            case 14: {
                RCShdPtr<PiGroupNode> g = pick(groups);
                if (g->getInputs(PiNode::DYNAMIC).getCardinality() > 0)
                    g->renameDynamicInput(g->getInputs(PiNode::DYNAMIC).item(), name);
                break;
            }
            }
        } catch (ExBase const&) {
            ++_refused;
        }
    }

    std::mt19937 _rng;
    int _count = 0;
    int _tried = 0;
    int _refused = 0;
};

} // namespace

// Random edits, undos and redos keep the graph sound, and the whole history unwinds to the
// start and replays to the end.
TEST_F(GraphRandomEdits, KeepTheGraphSound) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        TearDown();
        SetUp();
        _rng.seed(seed);
        _tried = _refused = 0;
        std::string const start = dump();
        for (int i = 0; i < 250; ++i) {
            step();
            std::vector<std::string> problems = HoGraphUtil::checkInvariants(*graph);
            ASSERT_TRUE(problems.empty())
                << "after step " << i << ": " << ::testing::PrintToString(problems);
        }
        // Refusals are part of the game, but a run where most edits are refused tests little.
        EXPECT_LT(_refused * 2, _tried) << _refused << " of " << _tried << " edits refused";
        PiCommandStack& stack = graph->getCommandStack();
        while (stack.canRedo())
            stack.redo();
        std::string const end = dump();
        int const steps = stack.getUndoCount();
        EXPECT_GT(steps, 50);
        while (stack.canUndo())
            stack.undo();
        EXPECT_EQ(dump(), start);
        expectSound();
        while (stack.canRedo())
            stack.redo();
        EXPECT_EQ(dump(), end);
        expectSound();
    }
}

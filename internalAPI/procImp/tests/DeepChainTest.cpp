// Chains of 100,000 nodes evaluate end to end on a worker's stack, and a graph deeper than the
// stack allows fails with a clear error instead of overflowing it.

#include "ImageTestGraph.h"

#include "PxEx.h"
#include "PxPassThroughNode.h"

#include <chrono>
#include <functional>
#include <string>

using namespace VnTest;
using namespace Vn;

namespace {

using IntNode = PxAnimValueProtocol<int>;

// Adds one to its child's value, asked through a child request as a tool's node would: each
// level nests one request execution on the worker that waits for it.
class AddOne final : public IntNode {
public:
    explicit AddOne(PxStrongHndl<IntNode const> const& child)
        : PxNode(PxNode::Init{"add one"}), _child(child) {}
    PxResult<int> getValue(PxTimeContext const& context) const override {
        PxRequestPtr<PxAnimValueRequest<int>> r(
            new PxAnimValueRequest<int>(PxUPtr<IntNode const>(_child), context));
        PxRequestMgr::getInstance().executeRequest(r.get(), false);
        return PxResult<int>(r->getValue().getValue() + 1);
    }

private:
    PxNodePtr<IntNode const> _child;
};

PxStrongHndl<IntNode const> passThrough(PxStrongHndl<IntNode const> const& child) {
    return makeNode(new PxPassThroughNode<IntNode>(PxNode::Init{"pass"}, child));
}
PxStrongHndl<IntNode const> addOne(PxStrongHndl<IntNode const> const& child) {
    return makeNode(new AddOne(child));
}

// Builds `levels` nodes over `bottom`; all are kept, so that the chain is let go from the top
// by the test rather than by one recursive release.
template <class Node>
std::vector<PxStrongHndl<Node const>>
chain(PxStrongHndl<Node const> bottom, int levels,
      std::function<PxStrongHndl<Node const>(PxStrongHndl<Node const> const&)> const& level) {
    std::vector<PxStrongHndl<Node const>> nodes{bottom};
    nodes.reserve(static_cast<std::size_t>(levels) + 1);
    for (int i = 0; i < levels; ++i)
        nodes.push_back(level(nodes.back()));
    return nodes;
}

template <class Node>
void releaseFromTop(std::vector<PxStrongHndl<Node const>>& nodes) {
    while (!nodes.empty())
        nodes.pop_back();
}

int valueOf(PxStrongHndl<IntNode const> const& top) {
    PxRequestPtr<PxAnimValueRequest<int>> r(
        new PxAnimValueRequest<int>(PxUPtr<IntNode const>(top), PxTimeContext(0.0)));
    engine().executeRequest(r.get(), false);
    return r->getValue().getValue();
}

constexpr int kLevels = 100000;

// ThreadSanitizer keeps a call stack of its own of 65,536 frames, fewer than these chains nest.
#if defined(__SANITIZE_THREAD__)
#define VN_SKIP_DEEP_CHAINS() GTEST_SKIP() << "deeper than ThreadSanitizer's own call stack"
#else
#define VN_SKIP_DEEP_CHAINS() (void)0
#endif

} // namespace

using DeepChains = EngineTest;

TEST_F(DeepChains, AHundredThousandLevelsEvaluateEndToEnd) {
    VN_SKIP_DEEP_CHAINS();
    struct Case {
        char const* name;
        std::function<PxStrongHndl<IntNode const>(PxStrongHndl<IntNode const> const&)> level;
        int expected;
    };
    Case const cases[] = {
        {"pass-through nodes", passThrough, 7},
        {"nodes asking their child through a request", addOne, 7 + kLevels},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto nodes = chain<IntNode>(animValue(7), kLevels, c.level);
        EXPECT_EQ(valueOf(nodes.back()), c.expected);
        releaseFromTop(nodes);
    }
}

TEST_F(DeepChains, AHundredThousandImagePassThroughsRenderTheSource) {
    VN_SKIP_DEEP_CHAINS();
    auto nodes = chain<PxImageProtocol>(
        colorSource(), kLevels, [](PxStrongHndl<PxImageProtocol const> const& c) {
            return makeNode(new PxPassThroughNode<PxImageProtocol>(PxNode::Init{"pass"}, c));
        });
    PxImageResult const r = tileOf(nodes.back(), PxImageContext(0.0, {0, 0}, 0, 0));
    EXPECT_EQ(pixelAt(r.getTile(), 39, 29), (CoRgbaColorTyped<float>{0.25f, 0.5f, 0.75f, 1.0f}));
    releaseFromTop(nodes);
}

// With stacks of 4 MB a chain of 30,000 requests cannot run: the request that would start too
// deep fails, its failure comes up to the caller, and the engine goes on serving.
TEST_F(DeepChains, AGraphDeeperThanTheStackFailsWithItsReason) {
    engineImp().setStackSize(std::size_t(4) << 20);
    auto nodes = chain<IntNode>(animValue(0), 30000, addOne);
    try {
        valueOf(nodes.back());
        FAIL() << "no failure";
    } catch (PxEx::ExGraphTooDeep const& e) {
        EXPECT_NE(e.getReason().find("too deep for the workers' stacks of 4 MB"), std::string::npos)
            << e.getReason();
        EXPECT_NE(e.getReason().find("VN_PXREQUEST_STACK_SIZE_MB"), std::string::npos);
    }
    auto shallow = chain<IntNode>(animValue(0), 100, addOne);
    EXPECT_EQ(valueOf(shallow.back()), 100);
    releaseFromTop(shallow);
    releaseFromTop(nodes);
}

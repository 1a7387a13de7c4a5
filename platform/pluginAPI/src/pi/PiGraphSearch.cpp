#include "PiGraphSearch.h"

#include "LgLog.h"
#include "PiNode.h"
#include "RCExUtil.h"

#include <unordered_set>

namespace Vn {

namespace {

LgMinorGroup& searchLog() {
    // Never destroyed, like every log group.
    static LgMinorGroup* const group =
        new LgMinorGroup(LgMajorGroup::getInstanceForName("Pi"), "PiGraphSearch");
    return *group;
}

struct Edge {
    RCShdPtr<PiInput> input;
    RCShdPtr<PiOutput> output;
    RCShdPtr<PiNode> next;
};

// One node of the route being walked, and the connections still to try from it.
struct Frame {
    RCShdPtr<PiNode> node;
    std::vector<Edge> edges;
    std::size_t taken = 0;
};

class Walk {
public:
    Walk(PiGraphSearch::SocketFilter const& filter, bool upstream)
        : _filter(filter), _upstream(upstream) {}

    Frame frame(RCShdPtr<PiNode> node) const {
        Frame f{std::move(node), {}, 0};
        if (_upstream) {
            for (auto in = _filter.getInputs(RCShdPtr<PiNode const>(f.node)); !in.atEnd();
                 in.next()) {
                RCShdPtr<PiOutput> out = _filter.getOutput(RCShdPtr<PiInput const>(in.item()));
                if (out)
                    f.edges.push_back({in.item(), out, out->retrieveNode()});
            }
        } else {
            for (auto out = _filter.getOutputs(RCShdPtr<PiNode const>(f.node)); !out.atEnd();
                 out.next())
                for (auto in = _filter.getInputs(RCShdPtr<PiOutput const>(out.item())); !in.atEnd();
                     in.next())
                    f.edges.push_back({in.item(), out.item(), in.item()->retrieveNode()});
        }
        return f;
    }

    static PiPathPtr route(std::vector<Frame> const& stack, RCShdPtr<PiNode> const& last) {
        PiPathPtr path = PiPath::create();
        for (Frame const& f : stack) {
            Edge const& e = f.edges[f.taken - 1];
            path->addStep({f.node, e.input, e.output});
        }
        path->addStep({last, nullptr, nullptr});
        return path;
    }

    PiPathPtr first(RCShdPtr<PiNode> const& start, PiGraphSearch::NodePredicate const& accept) {
        if (accept(start))
            return route({}, start);
        std::unordered_set<int> visited{start->getId()};
        std::vector<Frame> stack;
        stack.push_back(frame(start));
        while (!stack.empty()) {
            Frame& top = stack.back();
            if (top.taken == top.edges.size()) {
                stack.pop_back();
                continue;
            }
            RCShdPtr<PiNode> next = top.edges[top.taken++].next;
            if (!next || visited.count(next->getId()))
                continue;
            if (accept(next))
                return route(stack, next);
            visited.insert(next->getId());
            stack.push_back(frame(std::move(next)));
        }
        return {};
    }

    std::vector<PiPathPtr> all(RCShdPtr<PiNode> const& start,
                               PiGraphSearch::NodePredicate const& accept) {
        if (accept(start))
            return {route({}, start)};
        std::vector<PiPathPtr> paths;
        std::unordered_set<int> onRoute{start->getId()};
        std::vector<Frame> stack;
        stack.push_back(frame(start));
        long steps = 0;
        while (!stack.empty()) {
            Frame& top = stack.back();
            if (top.taken == top.edges.size()) {
                onRoute.erase(top.node->getId());
                stack.pop_back();
                continue;
            }
            RCShdPtr<PiNode> next = top.edges[top.taken++].next;
            if (!next || onRoute.count(next->getId()))
                continue;
            if (++steps > PiGraphSearch::MAX_PATH_STEPS) {
                VN_LOG(searchLog(), 0,
                       "Path search from \"" << start->getNodeName() << "\" stopped after "
                                             << PiGraphSearch::MAX_PATH_STEPS << " steps with "
                                             << paths.size() << " paths");
                break;
            }
            if (accept(next)) {
                paths.push_back(route(stack, next));
                if (paths.size() >= static_cast<std::size_t>(PiGraphSearch::MAX_PATHS)) {
                    VN_LOG(searchLog(), 0,
                           "Path search from \"" << start->getNodeName() << "\" stopped at "
                                                 << PiGraphSearch::MAX_PATHS << " paths");
                    break;
                }
                continue;
            }
            onRoute.insert(next->getId());
            stack.push_back(frame(std::move(next)));
        }
        return paths;
    }

private:
    PiGraphSearch::SocketFilter const& _filter;
    bool _upstream;
};

PiGraphSearch::SocketFilter const& defaultFilter() {
    static PiGraphSearch::SocketFilter const filter;
    return filter;
}

void requireNode(RCShdPtr<PiNode> const& node) {
    if (!node)
        RCExUtil::throwExNullPtr("PiNode");
}

} // namespace

PiGraphSearch::SocketFilter::~SocketFilter() = default;

Iterator<RCShdPtr<PiInput>>
PiGraphSearch::SocketFilter::getInputs(RCShdPtr<PiNode const> const& node) const {
    return node->getInputs(PiNode::ALL, 1);
}

RCShdPtr<PiOutput>
PiGraphSearch::SocketFilter::getOutput(RCShdPtr<PiInput const> const& input) const {
    return input->getConnectedOutput();
}

Iterator<RCShdPtr<PiOutput>>
PiGraphSearch::SocketFilter::getOutputs(RCShdPtr<PiNode const> const& node) const {
    return node->getOutputs(PiNode::ALL);
}

Iterator<RCShdPtr<PiInput>>
PiGraphSearch::SocketFilter::getInputs(RCShdPtr<PiOutput const> const& output) const {
    return output->getConnectedInputs();
}

PiPathPtr PiGraphSearch::depthFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate) {
    return depthFirst(node, predicate, defaultFilter());
}

PiPathPtr PiGraphSearch::depthFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate,
                                    SocketFilter const& filter) {
    requireNode(node);
    return Walk(filter, true).first(node, predicate);
}

PiPathPtr PiGraphSearch::heightFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate) {
    return heightFirst(node, predicate, defaultFilter());
}

PiPathPtr PiGraphSearch::heightFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate,
                                     SocketFilter const& filter) {
    requireNode(node);
    return Walk(filter, false).first(node, predicate);
}

std::vector<PiPathPtr> PiGraphSearch::findPaths(RCShdPtr<PiNode> const& node,
                                                NodePredicate const& predicate) {
    return findPaths(node, predicate, defaultFilter());
}

std::vector<PiPathPtr> PiGraphSearch::findPaths(RCShdPtr<PiNode> const& node,
                                                NodePredicate const& predicate,
                                                SocketFilter const& filter) {
    requireNode(node);
    return Walk(filter, true).all(node, predicate);
}

} // namespace Vn

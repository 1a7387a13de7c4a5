#pragma once

#include "Iterator.h"
#include "PiPath.h"
#include "PrdPredicate.h"
#include "RCBase.h"
#include "VnExport.h"

#include <vector>

namespace Vn {

class PiInput;
class PiNode;
class PiOutput;

// Searches along connections: upstream (depthFirst, findPaths) from inputs to the outputs that
// feed them, downstream (heightFirst) the other way.
class VN_EXPORT PiGraphSearch {
public:
    using NodePredicate = PrdPredicate<RCShdPtr<PiNode const>>;
    // Routes findPaths gives at most; more are dropped with a log line.
    static constexpr int MAX_PATHS = 10000;
    // Nodes findPaths steps onto at most, for graphs whose routes are too many to walk.
    static constexpr long MAX_PATH_STEPS = 1'000'000;

    // Which sockets a search follows; the defaults follow every connection. A subclass narrows
    // the walk.
    class VN_EXPORT SocketFilter {
    public:
        virtual ~SocketFilter();
        virtual Iterator<RCShdPtr<PiInput>> getInputs(RCShdPtr<PiNode const> const& node) const;
        virtual RCShdPtr<PiOutput> getOutput(RCShdPtr<PiInput const> const& input) const;
        virtual Iterator<RCShdPtr<PiOutput>> getOutputs(RCShdPtr<PiNode const> const& node) const;
        virtual Iterator<RCShdPtr<PiInput>> getInputs(RCShdPtr<PiOutput const> const& output) const;
    };

    // The first route, depth first in input order, from the node to one the predicate accepts:
    // one step per node, with the input it was left by and the output that feeds it; the
    // accepted node last, alone. Each node is visited once. Null when none is found.
    static PiPathPtr depthFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate);
    static PiPathPtr depthFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate,
                                SocketFilter const& filter);
    // The same downstream: each step holds the node's output and the consumer's input.
    static PiPathPtr heightFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate);
    static PiPathPtr heightFirst(RCShdPtr<PiNode> const& node, NodePredicate const& predicate,
                                 SocketFilter const& filter);
    // Every upstream route to an accepted node, not going past it; a route never passes a
    // node twice. Capped by MAX_PATHS and MAX_PATH_STEPS.
    static std::vector<PiPathPtr> findPaths(RCShdPtr<PiNode> const& node,
                                            NodePredicate const& predicate);
    static std::vector<PiPathPtr> findPaths(RCShdPtr<PiNode> const& node,
                                            NodePredicate const& predicate,
                                            SocketFilter const& filter);
};

} // namespace Vn

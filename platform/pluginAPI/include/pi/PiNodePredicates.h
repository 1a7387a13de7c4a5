#pragma once

#include "PrdPredicate.h"
#include "RCBase.h"
#include "VnExport.h"

namespace Vn {

class PiGroupNode;
class PiNode;

// A test on nodes; every one of the tests below is false for a null node.
using PiNodePredicate = PrdPredicate<RCShdPtr<PiNode const>>;

// A boundary node.
class VN_EXPORT PiIsBoundaryNode : public PiNodePredicate {
public:
    PiIsBoundaryNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A group node.
class VN_EXPORT PiIsGroupNode : public PiNodePredicate {
public:
    PiIsGroupNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A tool node.
class VN_EXPORT PiIsToolNode : public PiNodePredicate {
public:
    PiIsToolNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A value node.
class VN_EXPORT PiIsValueNode : public PiNodePredicate {
public:
    PiIsValueNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A link node.
class VN_EXPORT PiIsLinkNode : public PiNodePredicate {
public:
    PiIsLinkNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// The boundary node of a socket added to its group after creation.
class VN_EXPORT PiIsDynamicBoundaryNode : public PiNodePredicate {
public:
    PiIsDynamicBoundaryNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A group node that stands for a tool.
class VN_EXPORT PiIsSuperToolNode : public PiNodePredicate {
public:
    PiIsSuperToolNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A node whose controller is an expression.
class VN_EXPORT PiIsExpressionNode : public PiNodePredicate {
public:
    PiIsExpressionNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A node whose controller holds an animated value.
class VN_EXPORT PiIsAnimatedNode : public PiNodePredicate {
public:
    PiIsAnimatedNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// Where an upstream walk ends: a value node, or a node fed by nothing but value nodes.
class VN_EXPORT PiIsLeafNode : public PiNodePredicate {
public:
    PiIsLeafNode();
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// That very node.
class VN_EXPORT PiIsNode : public PiNodePredicate {
public:
    explicit PiIsNode(RCShdPtr<PiNode const> const& node);
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// The node with that id.
class VN_EXPORT PiIsNodeId : public PiNodePredicate {
public:
    explicit PiIsNodeId(int id);
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

// A node inside the group: directly with DIRECT, at any depth with NESTED. Raises ExNullPtr for
// a null group.
class VN_EXPORT PiIsNodeInGroupNode : public PiNodePredicate {
public:
    enum Recursion : int { DIRECT = 1, NESTED = 2 };
    explicit PiIsNodeInGroupNode(RCShdPtr<PiGroupNode const> const& group,
                                 Recursion recursion = DIRECT);
    PiNodePredicate const& getPredicate() const noexcept { return *this; }
};

} // namespace Vn

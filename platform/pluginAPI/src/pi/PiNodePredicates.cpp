#include "PiNodePredicates.h"

#include "PiExpressionInterface.h"
#include "PiNode.h"
#include "PiTool.h"
#include "PiValueInterface.h"
#include "RCExUtil.h"

namespace Vn {

namespace {

using NodePtr = RCShdPtr<PiNode const>;

template <class F>
PiNodePredicate nonNull(F f) {
    return PiNodePredicate::fromFunction([f](NodePtr const& n) { return n && f(*n); });
}

template <class T>
PiNodePredicate isA() {
    return nonNull([](PiNode const& n) { return dynamic_cast<T const*>(&n) != nullptr; });
}

template <class I>
bool controllerIs(PiNode const& n) {
    RCShdPtr<PiNodeController> c = n.getController().lock();
    return dynamic_cast<I const*>(c.get()) != nullptr;
}

bool isLeaf(PiNode const& n) {
    if (n.getNodeKind() == PiNode::VALUE)
        return true;
    for (auto in = n.getInputs(PiNode::ALL, 1); !in.atEnd(); in.next()) {
        RCShdPtr<PiOutput> source = in.item()->getConnectedOutput();
        RCShdPtr<PiNode> sourceNode = source ? source->retrieveNode() : nullptr;
        if (sourceNode && sourceNode->getNodeKind() != PiNode::VALUE)
            return false;
    }
    return true;
}

} // namespace

PiIsBoundaryNode::PiIsBoundaryNode() : PiNodePredicate(isA<PiBoundaryNode>()) {}
PiIsGroupNode::PiIsGroupNode() : PiNodePredicate(isA<PiGroupNode>()) {}
PiIsToolNode::PiIsToolNode() : PiNodePredicate(isA<PiToolNode>()) {}
PiIsValueNode::PiIsValueNode() : PiNodePredicate(isA<PiValueNode>()) {}
PiIsLinkNode::PiIsLinkNode() : PiNodePredicate(isA<PiLinkNode>()) {}

PiIsDynamicBoundaryNode::PiIsDynamicBoundaryNode()
    : PiNodePredicate(nonNull([](PiNode const& n) {
          auto const* b = dynamic_cast<PiBoundaryNode const*>(&n);
          return b && b->getBoundaryKind() == PiSocket::DYNAMIC;
      })) {}

PiIsSuperToolNode::PiIsSuperToolNode()
    : PiNodePredicate(nonNull([](PiNode const& n) {
          auto const* g = dynamic_cast<PiGroupNode const*>(&n);
          return g && g->getTool();
      })) {}

PiIsExpressionNode::PiIsExpressionNode()
    : PiNodePredicate(nonNull(controllerIs<PiExpressionInterface>)) {}

PiIsAnimatedNode::PiIsAnimatedNode()
    : PiNodePredicate(nonNull([](PiNode const& n) {
          RCShdPtr<PiNodeController> c = n.getController().lock();
          auto const* anim = dynamic_cast<PiAnimInterface const*>(c.get());
          return anim && anim->isAnimated();
      })) {}

PiIsLeafNode::PiIsLeafNode() : PiNodePredicate(nonNull(isLeaf)) {}

PiIsNode::PiIsNode(RCShdPtr<PiNode const> const& node)
    : PiNodePredicate(PiNodePredicate::fromFunction(
          [node](NodePtr const& n) { return n && PiGraphObject::areEqual(n, node); })) {}

PiIsNodeId::PiIsNodeId(int id)
    : PiNodePredicate(nonNull([id](PiNode const& n) { return n.getId() == id; })) {}

namespace {
PiNodePredicate inGroup(RCShdPtr<PiGroupNode const> const& group, bool nested) {
    if (!group)
        RCExUtil::throwExNullPtr("PiGroupNode");
    return nonNull([group, nested](PiNode const& n) {
        for (RCShdPtr<PiGroupNode> g = n.retrieveGroupNode(); g;
             g = nested ? g->retrieveGroupNode() : nullptr)
            if (PiGraphObject::areEqual(g, group))
                return true;
        return false;
    });
}
} // namespace

PiIsNodeInGroupNode::PiIsNodeInGroupNode(RCShdPtr<PiGroupNode const> const& group,
                                         Recursion recursion)
    : PiNodePredicate(inGroup(group, recursion != DIRECT)) {}

} // namespace Vn

#include "PiGroupUtils.h"

#include "PiNode.h"

namespace Vn {

namespace {
// Which boundary carries the socket on the group's outer face depends on the socket's side.
RCShdPtr<PiGroupNode> wiredIn(PiSocket const& socket, bool inputBoundaryFacesOut) {
    RCShdPtr<PiNode> node = socket.retrieveNode();
    if (!node)
        return {};
    RCShdPtr<PiGroupNode> group = node->retrieveGroupNode();
    auto const* b = dynamic_cast<PiBoundaryNode const*>(node.get());
    if (b && b->isInputNode() == inputBoundaryFacesOut && group)
        return group->retrieveGroupNode();
    return group;
}
} // namespace

RCShdPtr<PiGroupNode> PiGroupUtils::getGroupNode(PiInput const& input) {
    return wiredIn(input, true);
}

RCShdPtr<PiGroupNode> PiGroupUtils::getGroupNode(PiOutput const& output) {
    return wiredIn(output, false);
}

RCShdPtr<PiNode> PiGroupUtils::getNode(PiSocket const& socket) {
    RCShdPtr<PiNode> node = socket.retrieveNode();
    if (node && node->getNodeKind() == PiNode::BOUNDARY)
        return node->retrieveGroupNode();
    return node;
}

} // namespace Vn

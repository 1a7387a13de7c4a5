#pragma once

#include "RCBase.h"
#include "VnExport.h"

namespace Vn {

class PiGroupNode;
class PiInput;
class PiNode;
class PiOutput;
class PiSocket;

// Where sockets are wired: a group's socket is the socket of a boundary node inside the group,
// yet faces the group's parent.
class VN_EXPORT PiGroupUtils {
public:
    // The group in which the input takes its connection: for the outer input of an input
    // boundary, the group's parent. Null for a socket out of its graph.
    static RCShdPtr<PiGroupNode> getGroupNode(PiInput const& input);
    static RCShdPtr<PiGroupNode> getGroupNode(PiOutput const& output);
    // The socket's node, or for a boundary node's socket its group.
    static RCShdPtr<PiNode> getNode(PiSocket const& socket);
};

} // namespace Vn

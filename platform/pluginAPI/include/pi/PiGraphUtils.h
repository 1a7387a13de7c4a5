#pragma once

#include "Iterator.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiGroupNode;
class PiNode;
class PiTool;
class XmlWriter;

// Graph verbs that span nodes.
class VN_EXPORT PiGraphUtils {
public:
    // How names are numbered: "Blur (2)". With BASE_IS_FIRST the bare base counts as number 1
    // and may itself be the result; with ALWAYS_NUMBERED a name always gets a number.
    enum NamingMode : int { ALWAYS_NUMBERED = 0, BASE_IS_FIRST = 1 };

    // The number of a name made from the base, or -1 when the name is not one of them.
    static int parseNodeName(std::string const& name, std::string const& base, NamingMode mode);
    // The base numbered one above the highest number among the group's node names; numbers are
    // not reused. A null group raises ExNullPtr.
    static std::string findUniqueNodeName(RCShdPtr<PiGroupNode const> const& group,
                                          std::string const& base, NamingMode mode);
    // The tool of a tool node, or of a group node that has one; else null.
    static RCShdPtr<PiTool const> getTool(RCShdPtr<PiNode const> const& node);
    // Writes the nodes as one element "Graph", with the value nodes feeding their inputs and
    // the expression nodes driving those; boundary nodes are left out. Nothing is written for
    // no nodes. The nodes must lie in one graph.
    static void archiveNodes(Iterator<RCShdPtr<PiNode const>> nodes, XmlWriter& writer);
};

} // namespace Vn

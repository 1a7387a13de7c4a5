#pragma once

#include "RCBase.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

class PiInput;
class PiNode;
class PiOutput;

// Node verbs for editors: result marks, named text values and the folding of upstream trees
// in the schematic.
class VN_EXPORT PiNodeUtils {
public:
    // How the consumers of a node's outputs stand, as getCollapseType gives it.
    enum CollapseType : int { UNCOLLAPSED = 1, COLLAPSED = 2, UNKNOWN = 3 };
    // Whether collapseNodeTree looks at the consumers before marking a node.
    enum CheckOutputType : int { CHECK_OUTPUTS = 0, IGNORE_OUTPUTS = 1 };
    // Whether collapseNodeTree goes on upstream.
    enum CheckType : int { WHOLE_TREE = 0, NODE_ONLY = 1 };

    // The stored value that holds a node's collapse state, and its values.
    static constexpr char const* COLLAPSED_VALUE = "CollapsedValue";
    static constexpr char const* STATE_COLLAPSED = "Collapsed";
    static constexpr char const* STATE_UNCOLLAPSED = "Uncollapsed";
    static constexpr char const* STATE_HIDDEN = "Hidden";
    static constexpr char const* STATE_UNKNOWN = "Unknown";

    // 1 when an output of the node is marked as a result, else 0.
    static int getResultState(PiNode const& node);
    // Marks every output, or clears every mark when one is set, as one undo step; gives the
    // new state, or the old one when no output took it.
    static int toggleResultState(PiNode& node);

    // Writes a text value of the node, adding it when missing; raises ExBase when a value of
    // that name holds another type.
    static void setStoredValue(std::string const& name, PiNode& node, std::string const& text);
    // False when the node has no text value of that name; else copies it to `text`, when given.
    static bool hasStoredValue(std::string const& name, PiNode const& node,
                               std::string* text = nullptr);

    // The node that stands for the socket's side in the schematic: a group for its boundaries.
    static RCShdPtr<PiNode> getCollapseNode(PiOutput const& output);
    static RCShdPtr<PiNode> getCollapseNode(PiInput const& input);
    static CollapseType getCollapseType(PiNode const& node);
    // Sets `state` on the node and, with WHOLE_TREE, on what feeds it, once each, where the node
    // has a collapse value. A node whose consumers are not all folded is marked "Unknown" and
    // added to `stopNodes`. Left out of the undo history: folding is a view of the graph.
    static void collapseNodeTree(RCShdPtr<PiNode> const& node, CheckOutputType checkOutput,
                                 CheckType checkType, std::string const& state,
                                 std::vector<RCShdPtr<PiNode>>* stopNodes = nullptr);
};

} // namespace Vn

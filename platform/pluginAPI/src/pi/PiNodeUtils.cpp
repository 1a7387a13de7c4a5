#include "PiNodeUtils.h"

#include "ExBase.h"
#include "PiCommandStack.h"
#include "PiGraph.h"
#include "PiNode.h"
#include "RCExUtil.h"

#include <unordered_set>

namespace Vn {

namespace {

PiGraph& graphOf(PiNode const& node) {
    RCShdPtr<PiGraph> graph = node.getGraph();
    if (!graph)
        VN_THROW_MSG(ExBase, "the node \"" + node.getNodeName() + "\" is in no graph");
    return *graph;
}

RCShdPtr<PiTypedValue<std::string>> textValue(PiNode const& node, std::string const& name) {
    RCShdPtr<PiValue> v = node.findValue(name);
    if (!v)
        return {};
    auto* text = dynamic_cast<PiTypedValue<std::string>*>(v.get());
    if (!text)
        VN_THROW_MSG(ExBase, "the value \"" + name + "\" of the node \"" + node.getNodeName() +
                                 "\" holds no text");
    return RCShdPtr<PiTypedValue<std::string>>(text);
}

// The group stands in for the boundary that carries its socket.
RCShdPtr<PiNode> collapseNodeOf(RCShdPtr<PiNode> node, bool inputSide) {
    auto const* b = dynamic_cast<PiBoundaryNode const*>(node.get());
    if (b && b->isInputNode() == inputSide)
        return node->retrieveGroupNode();
    return node;
}

} // namespace

int PiNodeUtils::getResultState(PiNode const& node) {
    for (auto it = node.getOutputs(PiNode::ALL); !it.atEnd(); it.next())
        if (it.item()->getResultState() == 1)
            return 1;
    return 0;
}

int PiNodeUtils::toggleResultState(PiNode& node) {
    int const old = getResultState(node);
    int const state = old == 1 ? 0 : 1;
    bool taken = false;
    PiUndoGuard guard(graphOf(node), "Toggle Result");
    for (auto it = node.getOutputs(PiNode::ALL); !it.atEnd(); it.next()) {
        it.item()->setResultState(state);
        taken = taken || it.item()->getResultState() == state;
    }
    return taken ? state : old;
}

void PiNodeUtils::setStoredValue(std::string const& name, PiNode& node, std::string const& text) {
    RCShdPtr<PiTypedValue<std::string>> v = textValue(node, name);
    if (!v)
        v = rcCast<PiTypedValue<std::string>>(node.addValue(name, PiValueType::String));
    v->set(text);
}

bool PiNodeUtils::hasStoredValue(std::string const& name, PiNode const& node, std::string* text) {
    RCShdPtr<PiValue> v = node.findValue(name);
    auto const* typed = dynamic_cast<PiTypedValue<std::string> const*>(v.get());
    if (!typed)
        return false;
    if (text)
        *text = typed->get();
    return true;
}

RCShdPtr<PiNode> PiNodeUtils::getCollapseNode(PiOutput const& output) {
    return collapseNodeOf(output.retrieveNode(), false);
}

RCShdPtr<PiNode> PiNodeUtils::getCollapseNode(PiInput const& input) {
    return collapseNodeOf(input.retrieveNode(), true);
}

PiNodeUtils::CollapseType PiNodeUtils::getCollapseType(PiNode const& node) {
    for (auto out = node.getOutputs(PiNode::ALL); !out.atEnd(); out.next())
        for (auto in = out.item()->getConnectedInputs(); !in.atEnd(); in.next()) {
            RCShdPtr<PiNode> consumer = getCollapseNode(*in.item());
            std::string value;
            if (!consumer || !hasStoredValue(COLLAPSED_VALUE, *consumer, &value))
                return UNCOLLAPSED;
            if (value == STATE_UNKNOWN)
                return UNKNOWN;
            if (value == STATE_UNCOLLAPSED)
                return UNCOLLAPSED;
        }
    return COLLAPSED;
}

void PiNodeUtils::collapseNodeTree(RCShdPtr<PiNode> const& node, CheckOutputType checkOutput,
                                   CheckType checkType, std::string const& state,
                                   std::vector<RCShdPtr<PiNode>>* stopNodes) {
    if (!node)
        RCExUtil::throwExNullPtr("PiNode");
    PiUndoGuardNoLog guard(graphOf(*node));
    // A shared upstream node is reached once per route: the visited set keeps diamonds
    // linear, and the explicit stack keeps long chains off the call stack.
    std::unordered_set<int> visited;
    std::vector<RCShdPtr<PiNode>> stack{node};
    while (!stack.empty()) {
        RCShdPtr<PiNode> n = std::move(stack.back());
        stack.pop_back();
        if (!visited.insert(n->getId()).second)
            continue;
        std::string current;
        bool const hasValue = hasStoredValue(COLLAPSED_VALUE, *n, &current);
        if (hasValue && (current == state || current == STATE_UNKNOWN))
            continue;
        std::string mark = state;
        if (checkOutput == CHECK_OUTPUTS) {
            CollapseType const type = getCollapseType(*n);
            if (type == UNCOLLAPSED || type == UNKNOWN) {
                if (stopNodes)
                    stopNodes->push_back(n);
                mark = STATE_UNKNOWN;
            }
        }
        if (hasValue)
            setStoredValue(COLLAPSED_VALUE, *n, mark);
        if (checkType != WHOLE_TREE)
            continue;
        std::vector<RCShdPtr<PiNode>> sources;
        for (auto in = n->getInputs(PiNode::ALL, 1); !in.atEnd(); in.next()) {
            RCShdPtr<PiOutput> source = in.item()->getConnectedOutput();
            if (!source || source->getType().isValueType())
                continue;
            if (RCShdPtr<PiNode> s = getCollapseNode(*source))
                sources.push_back(std::move(s));
        }
        // Pushed in reverse, so the first input's tree is walked first.
        stack.insert(stack.end(), sources.rbegin(), sources.rend());
    }
}

} // namespace Vn

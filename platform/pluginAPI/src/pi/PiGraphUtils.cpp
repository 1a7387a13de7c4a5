#include "PiGraphUtils.h"

#include "ExBase.h"
#include "PiExpressionInterface.h"
#include "PiGraph.h"
#include "PiNode.h"
#include "PiTool.h"
#include "RCExUtil.h"
#include "XmlDocument.h"

#include <algorithm>
#include <climits>
#include <unordered_set>
#include <vector>

namespace Vn {

int PiGraphUtils::parseNodeName(std::string const& name, std::string const& base, NamingMode mode) {
    if (name.compare(0, base.size(), base) != 0 || name.size() < base.size())
        return -1;
    std::string const rest = name.substr(base.size());
    if (rest.empty())
        return mode == BASE_IS_FIRST ? 1 : -1;
    if (rest.size() < 4 || rest[0] != ' ' || rest[1] != '(' || rest.back() != ')')
        return -1;
    long long n = 0;
    for (std::size_t i = 2; i + 1 < rest.size(); ++i) {
        if (rest[i] < '0' || rest[i] > '9')
            return -1;
        n = n * 10 + (rest[i] - '0');
        // Beyond that no successor could be numbered: such a name is not one of ours.
        if (n >= INT_MAX)
            return -1;
    }
    return static_cast<int>(n);
}

std::string PiGraphUtils::findUniqueNodeName(RCShdPtr<PiGroupNode const> const& group,
                                             std::string const& base, NamingMode mode) {
    int largest = 0;
    for (auto it = group->getNodes(); !it.atEnd(); it.next())
        largest = std::max(largest, parseNodeName(it.item()->getNodeName(), base, mode));
    if (mode == BASE_IS_FIRST && largest == 0)
        return base;
    return base + " (" + std::to_string(largest + 1) + ")";
}

RCShdPtr<PiTool const> PiGraphUtils::getTool(RCShdPtr<PiNode const> const& node) {
    if (auto const* t = dynamic_cast<PiToolNode const*>(node.get()))
        return t->getTool();
    if (auto const* g = dynamic_cast<PiGroupNode const*>(node.get()))
        return g->getTool();
    return {};
}

namespace {
bool isExpressionNode(PiNode const& node) {
    RCShdPtr<PiNodeController> c = node.getController().lock();
    return dynamic_cast<PiExpressionInterface*>(c.get()) != nullptr;
}
} // namespace

void PiGraphUtils::archiveNodes(Iterator<RCShdPtr<PiNode const>> nodes, XmlWriter& writer) {
    std::vector<RCShdPtr<PiNode>> list;
    std::unordered_set<PiNode const*> listed;
    // The graph only reads the nodes it archives.
    auto add = [&](RCShdPtr<PiNode const> const& n) {
        if (listed.insert(n.get()).second)
            list.emplace_back(const_cast<PiNode*>(n.get()));
    };
    for (; !nodes.atEnd(); nodes.next()) {
        RCShdPtr<PiNode const> const& node = nodes.item();
        if (!node)
            RCExUtil::throwExNullPtr("PiNode");
        if (node->getNodeKind() == PiNode::BOUNDARY)
            continue;
        add(node);
        if (node->getNodeKind() == PiNode::VALUE)
            continue;
        for (auto in = node->getInputs(PiNode::ALL, 1); !in.atEnd(); in.next()) {
            RCShdPtr<PiOutput> source = in.item()->getConnectedOutput();
            RCShdPtr<PiNode> sourceNode = source ? source->retrieveNode() : nullptr;
            auto* value = dynamic_cast<PiValueNode*>(sourceNode.get());
            if (!value)
                continue;
            add(sourceNode);
            RCShdPtr<PiOutput> driver = value->getInput()->getConnectedOutput();
            RCShdPtr<PiNode> driverNode = driver ? driver->retrieveNode() : nullptr;
            if (driverNode && isExpressionNode(*driverNode))
                add(driverNode);
        }
    }
    if (list.empty())
        return;
    RCShdPtr<PiGraph> graph = list.front()->getGraph();
    if (!graph)
        VN_THROW_MSG(ExBase, "the node \"" + list.front()->getNodeName() + "\" is in no graph");
    graph->archiveNodes(list, writer);
}

} // namespace Vn

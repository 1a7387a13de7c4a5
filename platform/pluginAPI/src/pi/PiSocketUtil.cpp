#include "PiSocketUtil.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiCommandStack.h"
#include "PiExpressionInterface.h"
#include "PiExpressionServices.h"
#include "PiGraph.h"
#include "PiGraphAnimInterface.h"
#include "PiGroupInterface.h"
#include "PiGroupUtils.h"
#include "PiNode.h"
#include "PiPath.h"
#include "PiTool.h"
#include "PiToolInterface.h"
#include "PiValueInterface.h"
#include "RCExUtil.h"

#include <algorithm>
#include <vector>

namespace Vn {

namespace {

template <class I>
I* controllerAs(PiNode const& node, RCShdPtr<PiNodeController>& hold) {
    hold = node.getController().lock();
    return dynamic_cast<I*>(hold.get());
}

std::vector<std::string> splitName(std::string const& dotted) {
    std::vector<std::string> tokens;
    std::string const& sep = PiSocketUtil::getSocketSeparator();
    std::size_t pos = 0;
    while (pos <= dotted.size()) {
        std::size_t end = dotted.find(sep, pos);
        if (end == std::string::npos)
            end = dotted.size();
        if (end > pos)
            tokens.push_back(dotted.substr(pos, end - pos));
        pos = end + sep.size();
    }
    return tokens;
}

RCShdPtr<PiInput> subInput(PiInputList const& list, std::string const& name) {
    for (int i = 0; i < list.getCardinality(); ++i)
        if (RCShdPtr<PiInput> in = list.getInput(i); in && in->getName() == name)
            return in;
    return {};
}

RCShdPtr<PiInput> walkDown(RCShdPtr<PiInput> current, std::vector<std::string> const& tokens) {
    for (std::size_t i = 1; i < tokens.size() && current; ++i) {
        auto const* list = dynamic_cast<PiInputList const*>(current.get());
        current = list ? subInput(*list, tokens[i]) : nullptr;
    }
    return current;
}

void collect(PiInput const& input, bool allLevels, std::vector<RCShdPtr<PiInput>>& out) {
    auto const* list = dynamic_cast<PiInputList const*>(&input);
    if (!list)
        return;
    for (int i = 0; i < list->getCardinality(); ++i) {
        out.push_back(list->getInput(i));
        if (allLevels)
            collect(*out.back(), true, out);
    }
}

PiValueNode* valueNodeOf(PiInput const& input, RCShdPtr<PiNode>& hold) {
    RCShdPtr<PiOutput> source = input.getConnectedOutput();
    hold = source ? source->retrieveNode() : nullptr;
    return dynamic_cast<PiValueNode*>(hold.get());
}

bool drivenByExpression(PiValueNode const& value) {
    RCShdPtr<PiInput> in = value.getInput();
    RCShdPtr<PiOutput> driver = in ? in->getConnectedOutput() : nullptr;
    RCShdPtr<PiNode> node = driver ? driver->retrieveNode() : nullptr;
    RCShdPtr<PiNodeController> hold;
    return node && controllerAs<PiExpressionInterface>(*node, hold);
}

PiAnimInterface* animOf(RCShdPtr<PiInput const> const& input, RCShdPtr<PiNode>& node,
                        RCShdPtr<PiNodeController>& hold) {
    if (!input || !input->isConnected())
        return nullptr;
    PiValueNode* value = valueNodeOf(*input, node);
    return value ? controllerAs<PiAnimInterface>(*value, hold) : nullptr;
}

bool groupAllows(RCShdPtr<PiGroupNode> const& group, RCShdPtr<PiInput> const& input,
                 RCShdPtr<PiOutput> const& output) {
    if (!group)
        return true;
    RCShdPtr<PiNodeController> hold;
    auto* g = controllerAs<PiGroupInterface>(*group, hold);
    return !g || g->canConnectSockets(input, output);
}

PiGraph& graphOf(PiInput const& input) {
    RCShdPtr<PiNode> node = input.retrieveNode();
    RCShdPtr<PiGraph> graph = node ? node->getGraph() : nullptr;
    if (!graph)
        VN_THROW_MSG(ExBase, "the input \"" + input.getDottedName() + "\" is in no graph");
    // The node keeps its graph alive for as long as the caller holds the input.
    return *graph;
}

struct Place {
    PiCompositeInput* list;
    int index;
    int last;
};

Place placeOf(RCShdPtr<PiInput> const& input) {
    if (!input)
        RCExUtil::throwExNullPtr("PiInput");
    RCShdPtr<PiInput> owner = input->getOwnerInput();
    auto* list = dynamic_cast<PiCompositeInput*>(owner.get());
    if (!list)
        VN_THROW_MSG(ExBase, "the input \"" + input->getDottedName() +
                                 "\" is not an element of a composite input");
    return {list, list->indexOf(*input), list->getCardinality() - 1};
}

bool moveBefore(Place const& p, RCShdPtr<PiInput> const& input, RCShdPtr<PiInput> const& before) {
    PiUndoGuard guard(graphOf(*input), "Move Input");
    p.list->moveBefore(input, before);
    return true;
}

void copyOne(PiInput const& from, RCShdPtr<PiInput> const& to) {
    if (from.isMultivalued() && to->isMultivalued()) {
        auto const& src = dynamic_cast<PiMultivaluedInput const&>(from);
        auto& dst = dynamic_cast<PiMultivaluedInput&>(*to);
        while (dst.getCardinality() < src.getCardinality())
            dst.appendInput();
        while (dst.getCardinality() > src.getCardinality())
            dst.removeLastInput();
        VN_ASSERT(src.getCardinality() == dst.getCardinality());
        for (int i = 0; i < src.getCardinality(); ++i)
            copyOne(*src.getInput(i), dst.getInput(i));
        return;
    }
    if (from.isStructured() && to->isStructured()) {
        auto const& src = dynamic_cast<PiStructuredInput const&>(from);
        auto const& dst = dynamic_cast<PiStructuredInput const&>(*to);
        for (int i = 0; i < src.getCardinality(); ++i) {
            RCShdPtr<PiInput> s = src.getInput(i);
            RCShdPtr<PiInput> d = dst.getInput(s->getName());
            if (d && s->getType() == d->getType())
                copyOne(*s, d);
        }
        return;
    }
    if (from.isMultivalued() || to->isMultivalued() || from.isStructured() || to->isStructured())
        return;
    RCShdPtr<PiNode> valueHold, oldHold;
    PiValueNode const* value = valueNodeOf(from, valueHold);
    if (!value)
        return;
    PiValueNode* old = valueNodeOf(*to, oldHold);
    if (old && old == value)
        return;
    RCShdPtr<PiGroupNode> group = PiGroupUtils::getGroupNode(*to);
    if (!group)
        VN_THROW_MSG(ExBase, "the input \"" + to->getDottedName() + "\" is in no group");
    std::vector<RCShdPtr<PiNode>> clonedNodes = group->cloneNodes({valueHold});
    VN_ASSERT(clonedNodes.size() == 1);
    auto* copy = dynamic_cast<PiValueNode*>(clonedNodes.front().get());
    VN_ASSERT(copy);
    to->connect(copy->getOutput());
    // What fed `to` alone would be left feeding nothing.
    if (old && old->getOutput()->getConnectedInputCount() == 0)
        if (RCShdPtr<PiGroupNode> oldGroup = old->retrieveGroupNode())
            oldGroup->removeNode(oldHold);
}

} // namespace

std::string const& PiSocketUtil::getSocketSeparator() {
    static std::string const separator = ".";
    return separator;
}

std::string PiSocketUtil::getName(PiInput const& input, MultivaluedIndexMode mode,
                                  InputPredicate const& stop) {
    RCShdPtr<PiInput const> current(&input);
    RCShdPtr<PiInput const> owner = input.getOwnerInput();
    if (!owner)
        return input.getName();
    bool const skip = mode == SKIP_ELEMENT;
    if (skip && owner->isMultivalued())
        current = owner;
    std::string name = current->getName();
    for (RCShdPtr<PiInput const> o = current->getOwnerInput(); o; o = o->getOwnerInput()) {
        if (!stop.isNull() && !stop(o))
            break;
        RCShdPtr<PiInput const> outer = o->getOwnerInput();
        if (skip && outer && outer->isMultivalued())
            continue;
        name = o->getName() + getSocketSeparator() + name;
    }
    return name;
}

RCShdPtr<PiInput> PiSocketUtil::findSiblingInput(PiInput const& input,
                                                 std::string const& dottedName) {
    for (RCShdPtr<PiInput> owner = input.getOwnerInput(); owner; owner = owner->getOwnerInput())
        if (auto const* list = dynamic_cast<PiInputList const*>(owner.get()))
            if (RCShdPtr<PiInput> found = getInput(*list, dottedName))
                return found;
    return {};
}

RCShdPtr<PiInput> PiSocketUtil::getRootOwnerInput(RCShdPtr<PiInput> const& input) {
    RCShdPtr<PiInput> root = input;
    while (root)
        if (RCShdPtr<PiInput> owner = root->getOwnerInput())
            root = owner;
        else
            break;
    return root;
}

RCShdPtr<PiInput> PiSocketUtil::getInput(PiNode const& node, std::string const& dottedName) {
    std::vector<std::string> const tokens = splitName(dottedName);
    if (tokens.empty())
        return {};
    RCShdPtr<PiInput> first;
    for (auto it = node.getInputs(PiNode::ALL); !it.atEnd() && !first; it.next())
        if (it.item()->getName() == tokens.front())
            first = it.item();
    return walkDown(first, tokens);
}

RCShdPtr<PiInput> PiSocketUtil::getInput(PiInputList const& list, std::string const& dottedName) {
    std::vector<std::string> const tokens = splitName(dottedName);
    return tokens.empty() ? nullptr : walkDown(subInput(list, tokens.front()), tokens);
}

RCShdPtr<PiInput> PiSocketUtil::getFirstInput(PiNode const& node, PiSocketType const& type) {
    for (auto it = node.getInputs(PiNode::ALL); !it.atEnd(); it.next())
        if (it.item()->getType().getType() == type.getType())
            return it.item();
    return {};
}

RCShdPtr<PiOutput> PiSocketUtil::getFirstOutput(PiNode const& node, PiSocketType const& type) {
    for (auto it = node.getOutputs(PiNode::ALL); !it.atEnd(); it.next())
        if (it.item()->getType().getType() == type.getType())
            return it.item();
    return {};
}

RCShdPtr<PiInput> PiSocketUtil::getPrimaryInput(PiNode const& node) {
    RCShdPtr<PiNodeController> hold;
    if (auto* tool = controllerAs<PiToolInterface>(node, hold))
        return tool->getPrimaryInput();
    if (auto const* toolNode = dynamic_cast<PiToolNode const*>(&node))
        if (RCShdPtr<PiTool const> tool = toolNode->getTool())
            if (std::string name = tool->getProtocol().getPrimaryInput(); !name.empty())
                return node.findInput(name);
    return {};
}

RCShdPtr<PiOutput> PiSocketUtil::getPrimaryOutput(PiNode const& node) {
    RCShdPtr<PiNodeController> hold;
    if (auto* tool = controllerAs<PiToolInterface>(node, hold))
        return tool->getPrimaryOutput();
    if (auto const* toolNode = dynamic_cast<PiToolNode const*>(&node))
        if (RCShdPtr<PiTool const> tool = toolNode->getTool())
            if (std::string name = tool->getProtocol().getPrimaryOutput(); !name.empty())
                return node.findOutput(name);
    return {};
}

RCShdPtr<PiInput> PiSocketUtil::getPrimaryInput(PiNode const& node, PiSocketType const& type) {
    RCShdPtr<PiInput> primary = getPrimaryInput(node);
    if (primary && primary->getType().getType() == type.getType())
        return primary;
    return getFirstInput(node, type);
}

RCShdPtr<PiOutput> PiSocketUtil::getPrimaryOutput(PiNode const& node, PiSocketType const& type) {
    RCShdPtr<PiOutput> primary = getPrimaryOutput(node);
    if (primary && primary->getType().getType() == type.getType())
        return primary;
    return getFirstOutput(node, type);
}

RCShdPtr<PiInput> PiSocketUtil::getPrimaryImageInput(PiNode const& node) {
    return getPrimaryInput(node, PiSocketType(PiSocketType::IMAGE));
}

RCShdPtr<PiOutput> PiSocketUtil::getPrimaryImageOutput(PiNode const& node) {
    return getPrimaryOutput(node, PiSocketType(PiSocketType::IMAGE));
}

Iterator<RCShdPtr<PiInput>> PiSocketUtil::retrieveInputs(RCShdPtr<PiInput> const& input) {
    std::vector<RCShdPtr<PiInput>> inputs;
    if (input)
        collect(*input, false, inputs);
    return Iterator<RCShdPtr<PiInput>>::overValues(std::move(inputs));
}

Iterator<RCShdPtr<PiInput>> PiSocketUtil::retrieveAllInputs(RCShdPtr<PiInput> const& input) {
    std::vector<RCShdPtr<PiInput>> inputs;
    if (input)
        collect(*input, true, inputs);
    return Iterator<RCShdPtr<PiInput>>::overValues(std::move(inputs));
}

bool PiSocketUtil::isDynamic(PiSocket const& socket) {
    RCShdPtr<PiNode> node = socket.retrieveNode();
    if (auto const* b = dynamic_cast<PiBoundaryNode const*>(node.get()))
        return b->getBoundaryKind() == PiSocket::DYNAMIC;
    return socket.getKind() == PiSocket::DYNAMIC;
}

RCShdPtr<PiGroupNode> PiSocketUtil::getGroupNodeFromInput(PiInput const& input) {
    RCShdPtr<PiNode> node = input.retrieveNode();
    if (!node || node->getNodeKind() != PiNode::BOUNDARY)
        return {};
    return node->retrieveGroupNode();
}

bool PiSocketUtil::hasExpression(RCShdPtr<PiInput const> const& input) {
    if (!input || !input->isConnected())
        return false;
    RCShdPtr<PiNode> hold;
    PiValueNode const* value = valueNodeOf(*input, hold);
    return value && drivenByExpression(*value);
}

bool PiSocketUtil::hasAnimation(RCShdPtr<PiInput const> const& input) {
    if (hasExpression(input))
        return false;
    RCShdPtr<PiNode> node;
    RCShdPtr<PiNodeController> hold;
    PiAnimInterface const* anim = animOf(input, node, hold);
    return anim && anim->isAnimated();
}

bool PiSocketUtil::isAnimatable(RCShdPtr<PiInput const> const& input) {
    RCShdPtr<PiNode> valueNode;
    RCShdPtr<PiNodeController> valueHold;
    if (!animOf(input, valueNode, valueHold))
        return false;
    RCShdPtr<PiNode> owner = PiGroupUtils::getNode(*input);
    if (!owner)
        return false;
    RCShdPtr<PiNodeController> hold;
    if (auto const* tool = controllerAs<PiToolInterface>(*owner, hold)) {
        RCShdPtr<PiInputPolicy const> policy = tool->getInputPolicy(*input);
        if (!policy || !policy->canAnimate())
            return false;
    }
    RCShdPtr<PiGraph> graph = owner->getGraph();
    RCShdPtr<PiNodeController> graphController = graph ? graph->getController() : nullptr;
    auto const* graphAnim = dynamic_cast<PiGraphAnimInterface const*>(graphController.get());
    return !graphAnim || graphAnim->canAnimate();
}

bool PiSocketUtil::hasAnimationKey(RCShdPtr<PiInput const> const& input,
                                   PiTimePath const& timePath) {
    if (!isAnimatable(input))
        return false;
    RCShdPtr<PiNode> node;
    RCShdPtr<PiNodeController> hold;
    return animOf(input, node, hold)->hasKey(timePath.getTime());
}

std::string PiSocketUtil::removeExpressionToken(std::string const& text) {
    std::size_t const n = PiExpressionServices::getInstance().getExpressoToken().size();
    return text.substr(std::min(n, text.size()));
}

void PiSocketUtil::resetInput(RCShdPtr<PiInput> const& input) {
    if (!input)
        RCExUtil::throwExNullPtr("PiInput");
    RCShdPtr<PiNode> node = input->retrieveNode();
    RCShdPtr<PiNodeController> hold;
    if (auto* tool = node ? controllerAs<PiToolInterface>(*node, hold) : nullptr) {
        tool->reset(input);
        return;
    }
    RCShdPtr<PiNode> valueNode;
    RCShdPtr<PiNodeController> valueHold;
    if (PiAnimInterface* anim = animOf(input, valueNode, valueHold))
        anim->resetValue();
}

bool PiSocketUtil::canConnect(RCShdPtr<PiInput> const& input, RCShdPtr<PiOutput> const& output) {
    if (!input)
        RCExUtil::throwExNullPtr("PiInput");
    if (!output)
        return true;
    if (PiExpressionServices::isInitialized()) {
        PiExpressionServices const& services = PiExpressionServices::getInstance();
        for (RCShdPtr<PiNode> const& n : {input->retrieveNode(), output->retrieveNode()})
            if (auto const* toolNode = dynamic_cast<PiToolNode const*>(n.get()))
                if (services.isExpressionTool(toolNode->getTool()))
                    return true;
    }
    RCShdPtr<PiGroupNode> inGroup = PiGroupUtils::getGroupNode(*input);
    RCShdPtr<PiGroupNode> outGroup = PiGroupUtils::getGroupNode(*output);
    if (!groupAllows(inGroup, input, output))
        return false;
    if (PiGraphObject::areEqual(inGroup, outGroup))
        return true;
    return groupAllows(outGroup, input, output);
}

bool PiSocketUtil::moveNext(RCShdPtr<PiInput> const& input) {
    Place const p = placeOf(input);
    if (p.index >= p.last)
        return false;
    if (p.index + 1 == p.last)
        return moveBefore(p, input, nullptr);
    VN_ASSERT(p.index + 2 <= p.last);
    return moveBefore(p, input, p.list->getInput(p.index + 2));
}

bool PiSocketUtil::movePrevious(RCShdPtr<PiInput> const& input) {
    Place const p = placeOf(input);
    if (p.index <= 0)
        return false;
    return moveBefore(p, input, p.list->getInput(p.index - 1));
}

bool PiSocketUtil::moveFirst(RCShdPtr<PiInput> const& input) {
    Place const p = placeOf(input);
    if (p.list->getInput(0)->isSame(*input))
        return false;
    return moveBefore(p, input, p.list->getInput(0));
}

bool PiSocketUtil::moveLast(RCShdPtr<PiInput> const& input) {
    Place const p = placeOf(input);
    if (p.list->getInput(p.last)->isSame(*input))
        return false;
    return moveBefore(p, input, nullptr);
}

void PiSocketUtil::copyInput(RCShdPtr<PiInput const> const& from, RCShdPtr<PiInput> const& to) {
    if (!from || !to)
        RCExUtil::throwExNullPtr("PiInput");
    if (!(from->getType() == to->getType()))
        return;
    PiUndoGuard guard(graphOf(*to), "Copy Input");
    copyOne(*from, to);
}

} // namespace Vn

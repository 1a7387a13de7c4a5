#include "HoGraphImp.h"

#include "HoAddressMap.h"

#include "ExBase.h"
#include "PiGroupInterface.h"
#include "PiTopologyInterface.h"
#include "PiValueChangeInterface.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <optional>
#include <unordered_set>

namespace Vn {

namespace {

void requireName(std::string const& name) {
    if (name.empty() || name.find('.') != std::string::npos)
        VN_THROW_MSG(ExBase, "\"" + name + "\" is no socket name: it is empty or holds \".\"");
}

PiCommandStack& stackOf(HoNode const& n) {
    return n.graph().stack();
}

std::vector<std::string> splitDotted(std::string const& name) {
    std::vector<std::string> parts;
    std::size_t pos = 0;
    while (pos <= name.size()) {
        std::size_t dot = name.find('.', pos);
        if (dot == std::string::npos)
            dot = name.size();
        if (dot > pos)
            parts.push_back(name.substr(pos, dot - pos));
        pos = dot + 1;
    }
    return parts;
}

bool inScope(PiSocket::Kind kind, PiNode::LifeScope scope) {
    return (static_cast<int>(kind) & static_cast<int>(scope)) != 0;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Casts from the plug-in API's classes to ours.

HoNode& hoNode(PiNode const& n) {
    HoNode const* h = nullptr;
    switch (n.getNodeKind()) {
    case PiNode::TOOL:
        h = exactCast<HoToolNode>(&n);
        break;
    case PiNode::VALUE:
        h = exactCast<HoValueNode>(&n);
        break;
    case PiNode::GROUP:
        h = exactCast<HoGroupNode>(&n);
        break;
    case PiNode::LINK:
        h = exactCast<HoLinkNode>(&n);
        break;
    case PiNode::BOUNDARY:
        h = exactCast<HoBoundaryNode>(&n);
        break;
    }
    if (!h)
        h = dynamic_cast<HoNode const*>(&n);
    if (!h)
        RCExUtil::throwExCastFailed(typeid(n).name(), "HoNode");
    return const_cast<HoNode&>(*h);
}

HoInput& hoInput(PiInput const& in) {
    HoInput const* h = exactCast<HoInput>(&in);
    if (!h)
        h = dynamic_cast<HoInput const*>(&in);
    if (!h)
        RCExUtil::throwExCastFailed(typeid(in).name(), "HoInput");
    return const_cast<HoInput&>(*h);
}

HoOutput& hoOutput(PiOutput const& out) {
    HoOutput const* h = exactCast<HoOutput>(&out);
    if (!h)
        h = dynamic_cast<HoOutput const*>(&out);
    if (!h)
        RCExUtil::throwExCastFailed(typeid(out).name(), "HoOutput");
    return const_cast<HoOutput&>(*h);
}

HoGroupNode* wiringGroup(HoInput const& in) {
    HoNode* n = in.node();
    if (!n)
        return nullptr;
    if (n->getNodeKind() == PiNode::BOUNDARY && static_cast<HoBoundaryNode*>(n)->isInput())
        return n->group() ? n->group()->group() : nullptr;
    return n->group();
}

HoGroupNode* wiringGroup(HoOutput const& out) {
    HoNode* n = out.node();
    if (!n)
        return nullptr;
    if (n->getNodeKind() == PiNode::BOUNDARY && !static_cast<HoBoundaryNode*>(n)->isInput())
        return n->group() ? n->group()->group() : nullptr;
    return n->group();
}

// Links that exist anywhere: without any, a graph's connections are all there is upstream.
std::atomic<int> gLinkNodes{0};

HoNode const* nodeOf(PiSocket const* socket) {
    if (auto const* in = dynamic_cast<HoInput const*>(socket))
        return in->node();
    if (auto const* out = dynamic_cast<HoOutput const*>(socket))
        return out->node();
    return nullptr;
}

// The nodes a search has met: the first few in place, a table past them.
class SeenNodes {
public:
    // Whether `n` was new.
    bool insert(HoNode const* n) {
        if (!_table) {
            if (std::find(_few.begin(), _few.begin() + _count, n) != _few.begin() + _count)
                return false;
            if (_count < _few.size()) {
                _few[_count++] = n;
                return true;
            }
            _table.emplace(_few.begin(), _few.end());
        }
        return _table->insert(n);
    }

private:
    std::array<HoNode const*, 8> _few{};
    std::size_t _count = 0;
    std::optional<HoAddressSet<HoNode const*>> _table;
};

// Whether `goal` is upstream of `start`, through connections and through links to what they
// stand for, in any graph. A walk with its own stack: chains may be very long.
bool reachesUpstream(HoNode const* start, HoNode const* goal) {
    std::vector<HoNode const*> todo{start};
    SeenNodes seen;
    seen.insert(start);
    std::vector<HoInput*> leaves;
    auto visit = [&](HoNode const* n) {
        if (n && seen.insert(n))
            todo.push_back(n);
        return n == goal;
    };
    if (start == goal)
        return true;
    while (!todo.empty()) {
        HoNode const* n = todo.back();
        todo.pop_back();
        if (n->getNodeKind() == PiNode::LINK) {
            if (visit(nodeOf(static_cast<HoLinkNode const*>(n)->target())))
                return true;
            continue;
        }
        leaves.clear();
        n->leafInputs(leaves);
        for (HoInput* l : leaves)
            if (l->source() && visit(l->source()->node()))
                return true;
    }
    return false;
}

// The new edge closes a cycle when its input's node already reaches its output's node. Two
// searches run by turns, upstream from the output and downstream from the input; the first to
// run dry proves there is none, so the cost is that of the smaller side.
void checkNoCycle(HoInput const& in, HoOutput const& out) {
    HoNode const* from = in.node();
    HoNode const* to = out.node();
    // Kept by the thread: the check runs once per connection made, and most searches end
    // after a node or two.
    thread_local std::vector<HoNode const*> up, down;
    thread_local std::vector<HoInput*> leaves;
    up.assign(1, to);
    down.assign(1, from);
    SeenNodes seenUp, seenDown;
    seenUp.insert(to);
    seenDown.insert(from);
    bool cycle = from == to;
    while (!cycle && !up.empty() && !down.empty()) {
        HoNode const* u = up.back();
        up.pop_back();
        leaves.clear();
        u->leafInputs(leaves);
        for (HoInput* l : leaves)
            if (l->source() && seenUp.insert(l->source()->node())) {
                cycle = cycle || l->source()->node() == from;
                up.push_back(l->source()->node());
            }
        HoNode const* d = down.back();
        down.pop_back();
        for (auto const& o : d->outputs())
            for (HoInput* t : o->targets())
                if (seenDown.insert(t->node())) {
                    cycle = cycle || t->node() == to;
                    down.push_back(t->node());
                }
    }
    // Links lead upstream where the downstream search cannot follow: search again through them.
    if (!cycle && gLinkNodes.load(std::memory_order_relaxed) > 0)
        cycle = reachesUpstream(to, from);
    if (cycle)
        VN_THROW_MSG(ExBase, "connecting \"" + in.name() + "\" of \"" + from->name() + "\" to \"" +
                                 out.name() + "\" of \"" + to->name() + "\" would close a cycle");
}

// ---------------------------------------------------------------------------------------------
// Inputs

HoInput::HoInput(HoNode* node, HoInput* owner, std::string name, PiSocketType type, Kind kind)
    : _node(node), _owner(owner), _name(std::move(name)), _type(type), _kind(kind) {}

HoInput::~HoInput() {
    if (_source)
        _source->_targets.erase(
            std::find(_source->_targets.begin(), _source->_targets.end(), this));
    for (auto const& e : elements())
        if (e->_owner == this)
            e->_owner = nullptr;
}

std::vector<RCShdPtr<HoInput>>& HoInput::editElements() {
    if (!_list)
        _list = std::make_unique<List>();
    return _list->elements;
}

bool HoInput::inGraph() const {
    if (!isValid())
        return false;
    auto const is = [&](auto const& i) {
        return i.get() == this;
    };
    if (_owner)
        return std::any_of(_owner->elements().begin(), _owner->elements().end(), is);
    return std::any_of(_node->inputs().begin(), _node->inputs().end(), is);
}

void HoInput::buildElementStructure(std::shared_ptr<PiStructuredPolicyDescriptor const> d) {
    VN_ASSERT(!inGraph() && "only an input out of any graph is built");
    if (!d && !_list)
        return;
    if (!_list)
        _list = std::make_unique<List>();
    _list->structure = std::move(d);
}

void HoInput::buildElement(RCShdPtr<HoInput> el) {
    VN_ASSERT(!inGraph() && "only an input out of any graph is built");
    VN_ASSERT(el->owner() == this);
    editElements().push_back(std::move(el));
}

bool HoInput::isValid() const {
    if (!_attached)
        return false;
    return _owner ? _owner->isValid() : (_node && _node->isValid());
}

RCShdPtr<PiNode> HoInput::retrieveNode() const {
    return RCShdPtr<PiNode>(_node);
}

RCShdPtr<PiOutput> HoInput::getConnectedOutput() const {
    return RCShdPtr<PiOutput>(_source);
}

RCShdPtr<PiInput> HoInput::getOwnerInput() const {
    return RCShdPtr<PiInput>(_owner);
}

void HoInput::collectLeaves(std::vector<HoInput*>& out) const {
    if (isLeaf())
        out.push_back(const_cast<HoInput*>(this));
    else
        for (auto const& e : elements())
            e->collectLeaves(out);
}

void HoInput::collect(std::vector<RCShdPtr<PiInput>>& out, bool leaves) const {
    if (leaves && !isLeaf())
        for (auto const& e : elements())
            e->collect(out, true);
    else
        out.emplace_back(const_cast<HoInput*>(this));
}

RCShdPtr<PiInput> HoInput::listInput(int i) const {
    VN_ASSERT(i >= 0 && i < listCardinality());
    return elements()[static_cast<std::size_t>(i)];
}

int HoInput::listIndexOf(PiInput const& in) const {
    auto const& els = elements();
    for (std::size_t i = 0; i < els.size(); ++i)
        if (els[i]->isSame(in))
            return static_cast<int>(i);
    return -1;
}

void HoInput::connect(RCShdPtr<PiOutput> const& output) {
    HoOutput& out = hoOutput(*output);
    if (!_node || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + _name + "\" is not in a graph");
    if (!out.node() || !out.isValid())
        VN_THROW_MSG(ExBase, "the output \"" + out.name() + "\" is not in a graph");
    if (!isLeaf())
        VN_THROW_MSG(ExBase, "the input \"" + getDottedName() +
                                 "\" holds sub-inputs and takes no connection");
    if (_node->graphIfAny() != out.node()->graphIfAny())
        VN_THROW_MSG(ExBase, "\"" + getDottedName() + "\" and \"" + out.name() +
                                 "\" are not in the same graph");
    if (out.type().getType() != _type.getType())
        VN_THROW_MSG(ExBase, "the output \"" + out.name() + "\" of type " +
                                 std::to_string(out.type().getType()) +
                                 " cannot feed the input \"" + getDottedName() + "\" of type " +
                                 std::to_string(_type.getType()));
    if (_source == &out)
        return;
    // Whether the groups allow the connection is the editing verbs' question (their
    // canConnect), asked once before they connect; the model checks only what would break it.
    checkNoCycle(*this, out);
    PiUndoGuard guard(stackOf(*_node), "Connect");
    if (_source)
        HoEdit::unlink(*this);
    HoEdit::link(*this, out);
}

void HoInput::disconnect() {
    if (!_source)
        return;
    if (!_node || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + _name + "\" is not in a graph");
    RCShdPtr<PiInput> self(this);
    if (PiGroupInterface* g = groupIf(wiringGroup(*this));
        g && !g->canDisconnectSockets(self, getConnectedOutput()))
        VN_THROW_MSG(ExBase, "the group refuses to disconnect \"" + getDottedName() + "\"");
    PiUndoGuard guard(stackOf(*_node), "Disconnect");
    HoEdit::unlink(*this);
}

RCShdPtr<HoInput> makeInput(HoNode* node, HoInput* owner, std::string const& name,
                            PiSocketType type, PiSocket::Kind kind) {
    if (type.getType() == PiSocketType::NONE && type.getCardinality() == PiSocketType::SINGLE)
        return RCShdPtr<HoInput>(new HoStructuredInput(node, owner, name, type, kind));
    switch (type.getCardinality()) {
    case PiSocketType::COMPOSITE:
        return RCShdPtr<HoInput>(new HoCompositeInput(node, owner, name, type, kind));
    case PiSocketType::MULTIVALUED:
        return RCShdPtr<HoInput>(new HoMultivaluedInput(node, owner, name, type, kind));
    case PiSocketType::SINGLE:
        break;
    }
    return RCShdPtr<HoInput>(new HoInput(node, owner, name, type, kind));
}

RCShdPtr<PiInput> HoCompositeInput::insertInput(int index, std::string const& name) {
    VN_ASSERT(index >= 0 && index <= getCardinality());
    if (!node() || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + HoInput::name() + "\" is not in a graph");
    requireName(name);
    for (auto const& e : elements())
        if (e->name() == name)
            VN_THROW_MSG(ExBase, "\"" + getDottedName() + "\" already holds \"" + name + "\"");
    RCShdPtr<PiCompositeInput> self(this);
    if (PiTopologyInterface* t = topoIf(node()); t && !t->canAddInputToComposite(self))
        VN_THROW_MSG(ExBase, "the node refuses a new input in \"" + getDottedName() + "\"");
    PiUndoGuard guard(stackOf(*node()), "Insert Input");
    RCShdPtr<HoInput> el =
        makeInput(node(), this, name, PiSocketType(type().getType()), PiSocket::DYNAMIC);
    HoEdit::attachElement(*this, el, index);
    if (node()->getNodeKind() == PiNode::TOOL && node()->group())
        HoEdit::feedValueNodes(*node()->group(), *node(), *el);
    return el;
}

void HoCompositeInput::removeInput(RCShdPtr<PiInput> const& input) {
    HoInput& el = hoInput(*input);
    VN_ASSERT(el.owner() == this);
    if (!node() || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + name() + "\" is not in a graph");
    RCShdPtr<PiCompositeInput> self(this);
    if (PiTopologyInterface* t = topoIf(node()); t && !t->canRemoveInputFromComposite(self, input))
        VN_THROW_MSG(ExBase, "the node refuses to remove \"" + el.getDottedName() + "\"");
    PiUndoGuard guard(stackOf(*node()), "Remove Input");
    std::vector<HoInput*> leaves;
    el.collectLeaves(leaves);
    for (HoInput* l : leaves)
        HoEdit::removeFeedingValueNodes(*l, *node());
    HoEdit::detachElement(*this, el);
}

void HoCompositeInput::moveBefore(RCShdPtr<PiInput> const& input, RCShdPtr<PiInput> const& before) {
    int const from = indexOf(*input);
    VN_ASSERT(from >= 0);
    int to = getCardinality() - 1;
    if (before) {
        int const b = indexOf(*before);
        VN_ASSERT(b >= 0);
        to = b > from ? b - 1 : b;
    }
    if (from == to)
        return;
    if (!node() || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + name() + "\" is not in a graph");
    RCShdPtr<PiCompositeInput> self(this);
    if (PiTopologyInterface* t = topoIf(node()); t && !t->canMoveInputInComposite(self, input))
        VN_THROW_MSG(ExBase, "the node refuses to move \"" + input->getDottedName() + "\"");
    PiUndoGuard guard(stackOf(*node()), "Move Input");
    HoEdit::moveElement(*this, from, to);
}

namespace {
RCShdPtr<HoInput> buildInput(HoNode* node, HoInput* owner,
                             PiStructuredPolicyDescriptor::Input const& d, PiSocket::Kind kind);
} // namespace

RCShdPtr<HoInput> makeElement(HoInput& list, std::string const& name) {
    if (!list.elementStructure())
        return makeInput(list.node(), &list, name, PiSocketType(list.type().getType()),
                         PiSocket::DYNAMIC);
    auto el =
        makeInput(list.node(), &list, name, PiSocketType(PiSocketType::NONE), PiSocket::DYNAMIC);
    for (auto const& sub : list.elementStructure()->getInputs())
        el->buildElement(buildInput(list.node(), el.get(), sub, PiSocket::DYNAMIC));
    return el;
}

std::string nextElementName(HoInput const& list) {
    long next = 0;
    for (auto const& e : list.elements()) {
        char* end = nullptr;
        long const n = std::strtol(e->name().c_str(), &end, 10);
        if (end && *end == '\0' && !e->name().empty() && n >= next)
            next = n + 1;
    }
    return std::to_string(next);
}

RCShdPtr<PiInput> HoMultivaluedInput::insertInput(int index) {
    if (index < 0 || index > getCardinality())
        VN_THROW_MSG(ExBase, "\"" + getDottedName() + "\" has no place " + std::to_string(index) +
                                 " for a new element");
    if (!node() || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + name() + "\" is not in a graph");
    PiUndoGuard guard(stackOf(*node()), "Insert Input");
    RCShdPtr<HoInput> el = makeElement(*this, nextElementName(*this));
    HoEdit::attachElement(*this, el, index);
    if (node()->getNodeKind() == PiNode::TOOL && node()->group())
        HoEdit::feedValueNodes(*node()->group(), *node(), *el);
    return el;
}

void HoMultivaluedInput::removeInput(int index) {
    if (index < 0 || index >= getCardinality())
        VN_THROW_MSG(ExBase, "\"" + getDottedName() + "\" has no element " + std::to_string(index));
    if (!node() || !isValid())
        VN_THROW_MSG(ExBase, "the input \"" + name() + "\" is not in a graph");
    PiUndoGuard guard(stackOf(*node()), "Remove Input");
    HoInput& el = *elements()[static_cast<std::size_t>(index)];
    std::vector<HoInput*> leaves;
    el.collectLeaves(leaves);
    for (HoInput* l : leaves)
        HoEdit::removeFeedingValueNodes(*l, *node());
    HoEdit::detachElement(*this, el);
}

RCShdPtr<PiInput> HoStructuredInput::getInput(std::string const& name) const {
    for (auto const& e : elements())
        if (e->name() == name)
            return e;
    return {};
}

// ---------------------------------------------------------------------------------------------
// Outputs

HoOutput::HoOutput(HoNode* node, std::string name, PiSocketType type, Kind kind)
    : _node(node), _name(std::move(name)), _type(type), _kind(kind) {}

HoOutput::~HoOutput() {
    for (HoInput* t : _targets)
        t->_source = nullptr;
}

void HoOutput::buildResultState(int state) {
    VN_ASSERT(!isValid() && "only an output out of any graph is built");
    _resultState = state;
}

bool HoOutput::isValid() const {
    return _attached && _node && _node->isValid();
}

RCShdPtr<PiNode> HoOutput::retrieveNode() const {
    return RCShdPtr<PiNode>(_node);
}

Iterator<RCShdPtr<PiInput>> HoOutput::getConnectedInputs() const {
    std::vector<RCShdPtr<PiInput>> v;
    v.reserve(_targets.size());
    for (HoInput* t : _targets)
        v.emplace_back(t);
    return Iterator<RCShdPtr<PiInput>>::overValues(std::move(v));
}

void HoOutput::setResultState(int state) {
    VN_ASSERT(state == 0 || state == 1);
    if (!isValid())
        VN_THROW_MSG(ExBase, "the output \"" + _name + "\" is not in a graph");
    if (state == _resultState)
        return;
    PiUndoGuard guard(stackOf(*_node), "Set Result State");
    HoEdit::setResultState(*this, state);
}

// ---------------------------------------------------------------------------------------------
// Nodes

HoNode::HoNode(HoGraphImp* graph, std::string name) : _graph(graph), _name(std::move(name)) {
    _nextInGraph = _graph->_firstNode;
    if (_nextInGraph)
        _nextInGraph->_prevInGraph = this;
    _graph->_firstNode = this;
}

HoNode::~HoNode() {
    if (_graph) {
        (_prevInGraph ? _prevInGraph->_nextInGraph : _graph->_firstNode) = _nextInGraph;
        if (_nextInGraph)
            _nextInGraph->_prevInGraph = _prevInGraph;
    }
    for (auto& in : _inputs) {
        std::vector<HoInput*> all{in.get()};
        while (!all.empty()) {
            HoInput* i = all.back();
            all.pop_back();
            i->_node = nullptr;
            for (auto const& e : i->elements())
                all.push_back(e.get());
        }
    }
    for (auto& out : _outputs)
        out->_node = nullptr;
    for (auto& v : _values)
        valueState(*v)._node = nullptr;
}

void HoNode::addRemovedHandler(CbHandler<RCShdPtr<PiNode>>* h) const {
    if (!_removed)
        _removed = std::make_unique<CbDispatcher<RCShdPtr<PiNode>>>();
    _removed->addHandler(h);
}

void HoNode::removeRemovedHandler(CbHandler<RCShdPtr<PiNode>>* h) const {
    if (_removed)
        _removed->removeHandler(h);
}

void HoNode::setController(RCShdPtr<PiNodeController> c) {
    if (!c)
        VN_THROW_MSG(ExBase, "the node \"" + _name + "\" was given no controller");
    if (RCShdPtr<PiNode> other = c->getNode(); other && other.get() != this)
        VN_THROW_MSG(ExBase, "the controller given to \"" + _name + "\" already controls \"" +
                                 other->getNodeName() + "\"");
    _controller = std::move(c);
    PiNodeControllerManip::setNode(*_controller, this);
}

void HoNode::assertBuilding() const {
    VN_ASSERT(!isValid() && "only a node out of any graph is built");
}

void HoNode::buildName(std::string name) {
    assertBuilding();
    _name = std::move(name);
}

void HoNode::buildReserve(std::size_t inputs, std::size_t outputs, std::size_t values) {
    assertBuilding();
    _inputs.reserve(inputs);
    _outputs.reserve(outputs);
    _values.reserve(values);
}

void HoNode::buildInput(RCShdPtr<HoInput> in) {
    assertBuilding();
    VN_ASSERT(in->node() == this && !in->owner());
    _inputs.push_back(std::move(in));
}

void HoNode::buildOutput(RCShdPtr<HoOutput> out) {
    assertBuilding();
    VN_ASSERT(out->node() == this);
    _outputs.push_back(std::move(out));
}

void HoNode::buildValue(RCShdPtr<PiValue> v) {
    assertBuilding();
    VN_ASSERT(valueState(*v).node() == this);
    _values.push_back(std::move(v));
}

void HoLinkNode::buildTarget(RCShdPtr<PiSocket> target, HoSocketRef unresolved) {
    assertBuilding();
    _target = std::move(target);
    _unresolved = std::move(unresolved);
}

void HoGroupNode::buildChild(RCShdPtr<HoNode> child) {
    assertBuilding();
    VN_ASSERT(!child->_group);
    child->_group = this;
    child->_attached = true;
    _children.push_back(std::move(child));
}

void HoGroupNode::buildBoundary(HoBoundaryNode& b) {
    assertBuilding();
    VN_ASSERT(b.group() == this);
    (b.isInput() ? _inBounds : _outBounds).push_back(&b);
}

HoGraphImp& HoNode::graph() const {
    if (!_graph)
        VN_THROW_MSG(ExBase, "the graph of \"" + _name + "\" is gone");
    return *_graph;
}

bool HoNode::isValid() const {
    if (!_graph)
        return false;
    HoNode const* n = this;
    for (; n->group(); n = n->group())
        if (!n->attached())
            return false;
    return n->attached() && n == _graph->_root.get();
}

void HoNode::requireValid(char const* what) const {
    if (!isValid())
        VN_THROW_MSG(ExBase, std::string("cannot ") + what + ": the node \"" + _name +
                                 "\" is not in a graph");
}

void HoNode::setNodeName(std::string const& name) {
    requireValid("rename");
    if (name == _name)
        return;
    PiUndoGuard guard(stackOf(*this), "Rename");
    HoEdit::rename(*this, name);
}

RCShdPtr<PiGraph> HoNode::getGraph() const {
    return RCShdPtr<PiGraph>(_graph);
}

RCShdPtr<PiGroupNode> HoNode::retrieveGroupNode() const {
    return RCShdPtr<PiGroupNode>(_group);
}

void HoNode::listInputs(std::vector<HoInput*>& out) const {
    for (auto const& i : _inputs)
        if (i->attached())
            out.push_back(i.get());
}

void HoNode::listOutputs(std::vector<HoOutput*>& out) const {
    for (auto const& o : _outputs)
        if (o->attached())
            out.push_back(o.get());
}

void HoNode::leafInputs(std::vector<HoInput*>& out) const {
    for (auto const& i : _inputs)
        i->collectLeaves(out);
}

Iterator<RCShdPtr<PiInput>> HoNode::getInputs(LifeScope scope, int enterComposites) const {
    std::vector<HoInput*> ins;
    listInputs(ins);
    std::vector<RCShdPtr<PiInput>> result;
    for (HoInput* i : ins)
        if (inScope(i->kind(), scope))
            i->collect(result, enterComposites == 1);
    return Iterator<RCShdPtr<PiInput>>::overValues(std::move(result));
}

Iterator<RCShdPtr<PiOutput>> HoNode::getOutputs(LifeScope scope) const {
    std::vector<HoOutput*> outs;
    listOutputs(outs);
    std::vector<RCShdPtr<PiOutput>> result;
    for (HoOutput* o : outs)
        if (inScope(o->kind(), scope))
            result.emplace_back(o);
    return Iterator<RCShdPtr<PiOutput>>::overValues(std::move(result));
}

RCShdPtr<PiInput> HoNode::findInput(std::string const& name, LifeScope scope) const {
    std::vector<std::string> parts = splitDotted(name);
    if (parts.empty())
        return {};
    std::vector<HoInput*> ins;
    listInputs(ins);
    HoInput* cur = nullptr;
    for (HoInput* i : ins)
        if (i->name() == parts[0] && inScope(i->kind(), scope)) {
            cur = i;
            break;
        }
    for (std::size_t p = 1; cur && p < parts.size(); ++p) {
        HoInput* next = nullptr;
        for (auto const& e : cur->elements())
            if (e->name() == parts[p]) {
                next = e.get();
                break;
            }
        cur = next;
    }
    return RCShdPtr<PiInput>(cur);
}

RCShdPtr<PiOutput> HoNode::findOutput(std::string const& name, LifeScope scope) const {
    std::vector<HoOutput*> outs;
    listOutputs(outs);
    for (HoOutput* o : outs)
        if (o->name() == name && inScope(o->kind(), scope))
            return RCShdPtr<PiOutput>(o);
    return {};
}

namespace {
void requireDynamicSockets(HoNode const& n) {
    if (n.getNodeKind() != PiNode::TOOL && n.getNodeKind() != PiNode::GROUP)
        VN_THROW_MSG(ExBase, "the node \"" + n.name() + "\" takes no dynamic sockets");
}
void requireSocketType(PiSocketType type, std::string const& name) {
    if (!PiSocketType::isKnownType(type.getType()) || type.getType() == PiSocketType::NONE)
        VN_THROW_MSG(ExBase, "the socket \"" + name + "\" has the unknown type " +
                                 std::to_string(type.getType()));
}
// Raises ExBase when the node's topology refuses.
template <class Ask>
void requireConsent(HoNode& n, Ask const& ask, std::string const& what) {
    if (PiTopologyInterface* t = topoIf(&n); t && !ask(*t))
        VN_THROW_MSG(ExBase, "the node \"" + n.name() + "\" refuses to " + what);
}
} // namespace

RCShdPtr<PiInput> HoNode::addDynamicInput(std::string const& name, PiSocketType type) {
    requireValid("add an input");
    requireDynamicSockets(*this);
    requireName(name);
    requireSocketType(type, name);
    if (findInput(name, ALL))
        VN_THROW_MSG(ExBase, "the node \"" + _name + "\" already has an input \"" + name + "\"");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canAddDynamicInput(name, type); },
        "add the input \"" + name + "\"");
    PiUndoGuard guard(stackOf(*this), "Add Input");
    RCShdPtr<HoInput> in = makeInput(this, nullptr, name, type, PiSocket::DYNAMIC);
    HoEdit::attachSocket(*this, in);
    if (_group)
        HoEdit::feedValueNodes(*_group, *this, *in);
    return in;
}

RCShdPtr<PiOutput> HoNode::addDynamicOutput(std::string const& name, PiSocketType type) {
    requireValid("add an output");
    requireDynamicSockets(*this);
    requireName(name);
    requireSocketType(type, name);
    if (type.getCardinality() != PiSocketType::SINGLE)
        VN_THROW_MSG(ExBase, "the output \"" + name + "\" must be single");
    if (findOutput(name, ALL))
        VN_THROW_MSG(ExBase, "the node \"" + _name + "\" already has an output \"" + name + "\"");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canAddDynamicOutput(name, type); },
        "add the output \"" + name + "\"");
    PiUndoGuard guard(stackOf(*this), "Add Output");
    RCShdPtr<HoOutput> out(new HoOutput(this, name, type, PiSocket::DYNAMIC));
    HoEdit::attachSocket(*this, out);
    return out;
}

void HoNode::removeDynamicInput(RCShdPtr<PiInput> const& input) {
    HoInput& in = hoInput(*input);
    VN_ASSERT(in.node() == this && in.owner() == nullptr);
    requireValid("remove an input");
    if (in.kind() != PiSocket::DYNAMIC)
        VN_THROW_MSG(ExBase, "the input \"" + in.name() + "\" is static and stays");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canRemoveDynamicInput(input); },
        "remove the input \"" + in.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Remove Input");
    std::vector<HoInput*> leaves;
    in.collectLeaves(leaves);
    for (HoInput* l : leaves)
        HoEdit::removeFeedingValueNodes(*l, *this);
    HoEdit::detachSocket(*this, RCShdPtr<HoInput>(&in));
}

void HoNode::removeDynamicOutput(RCShdPtr<PiOutput> const& output) {
    HoOutput& out = hoOutput(*output);
    VN_ASSERT(out.node() == this);
    requireValid("remove an output");
    if (out.kind() != PiSocket::DYNAMIC)
        VN_THROW_MSG(ExBase, "the output \"" + out.name() + "\" is static and stays");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canRemoveDynamicOutput(output); },
        "remove the output \"" + out.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Remove Output");
    while (!out.targets().empty())
        HoEdit::unlink(*out.targets().back());
    HoEdit::detachSocket(*this, RCShdPtr<HoOutput>(&out));
}

void HoNode::renameDynamicInput(RCShdPtr<PiInput> const& input, std::string const& name) {
    HoInput& in = hoInput(*input);
    requireValid("rename an input");
    HoNode* carrier = in.node();
    bool const mine = carrier == this && !in.owner();
    bool const bound = getNodeKind() == GROUP && carrier && carrier->group() == this &&
                       carrier->getNodeKind() == BOUNDARY &&
                       static_cast<HoBoundaryNode*>(carrier)->isInput();
    if (!mine && !bound)
        VN_THROW_MSG(ExBase, "\"" + in.name() + "\" is no input of \"" + _name + "\"");
    if (in.kind() != PiSocket::DYNAMIC)
        VN_THROW_MSG(ExBase, "the input \"" + in.name() + "\" is static and keeps its name");
    requireName(name);
    if (name == in.name())
        return;
    if (findInput(name, ALL))
        VN_THROW_MSG(ExBase, "the node \"" + _name + "\" already has an input \"" + name + "\"");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canRenameDynamicInput(input, name); },
        "rename the input \"" + in.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Rename Input");
    HoEdit::renameSocket(*this, &in, nullptr, name);
}

void HoNode::renameDynamicOutput(RCShdPtr<PiOutput> const& output, std::string const& name) {
    HoOutput& out = hoOutput(*output);
    requireValid("rename an output");
    HoNode* carrier = out.node();
    bool const mine = carrier == this;
    bool const bound = getNodeKind() == GROUP && carrier && carrier->group() == this &&
                       carrier->getNodeKind() == BOUNDARY &&
                       !static_cast<HoBoundaryNode*>(carrier)->isInput();
    if (!mine && !bound)
        VN_THROW_MSG(ExBase, "\"" + out.name() + "\" is no output of \"" + _name + "\"");
    if (out.kind() != PiSocket::DYNAMIC)
        VN_THROW_MSG(ExBase, "the output \"" + out.name() + "\" is static and keeps its name");
    requireName(name);
    if (name == out.name())
        return;
    if (findOutput(name, ALL))
        VN_THROW_MSG(ExBase, "the node \"" + _name + "\" already has an output \"" + name + "\"");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canRenameDynamicOutput(output, name); },
        "rename the output \"" + out.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Rename Output");
    HoEdit::renameSocket(*this, nullptr, &out, name);
}

RCShdPtr<PiValue> HoNode::getValue(std::string const& name, PiValueType type) const {
    for (auto const& v : _values)
        if (v->getName() == name && v->getType() == type)
            return v;
    return {};
}

RCShdPtr<PiValue> HoNode::findValue(std::string const& name) const {
    for (auto const& v : _values)
        if (v->getName() == name)
            return v;
    return {};
}

Iterator<RCShdPtr<PiValue>> HoNode::getValues() const {
    return Iterator<RCShdPtr<PiValue>>::overValues({_values.begin(), _values.end()});
}

RCShdPtr<PiValue> HoNode::addValue(std::string const& name, PiValueType type) {
    requireValid("add a stored value");
    if (name.empty())
        VN_THROW_MSG(ExBase, "a stored value needs a name");
    if (!PiValue::isKnownType(static_cast<int>(type)))
        VN_THROW_MSG(ExBase, "the stored value \"" + name + "\" has an unknown type");
    if (findValue(name))
        VN_THROW_MSG(ExBase, "the node \"" + _name + "\" already stores \"" + name + "\"");
    PiUndoGuard guard(stackOf(*this), "Add Value");
    RCShdPtr<PiValue> v = makeValue(this, name, type);
    HoEdit::attachValue(*this, v);
    return v;
}

bool HoNode::removeValue(std::string const& name) {
    RCShdPtr<PiValue> v = findValue(name);
    if (!v)
        return false;
    requireValid("remove a stored value");
    PiUndoGuard guard(stackOf(*this), "Remove Value");
    HoEdit::detachValue(*this, *v);
    return true;
}

// ---------------------------------------------------------------------------------------------
// The kinds of node

HoToolNode::HoToolNode(HoGraphImp* graph, std::string name, RCShdPtr<PiTool const> tool)
    : HoNode(graph, std::move(name)), _tool(std::move(tool)) {
    setController(_tool->getProtocol().createController());
}

HoBoundaryNode::HoBoundaryNode(HoGraphImp* graph, std::string const& name, PiSocketType type,
                               bool isInput, PiSocket::Kind kind)
    : HoNode(graph, name), _isInput(isInput), _kind(kind) {
    buildInput(makeInput(this, nullptr, name, type, kind));
    buildOutput(RCShdPtr<HoOutput>(new HoOutput(this, name, type, kind)));
    setController(PiNodeControllerFactory::getInstance().createBoundaryController());
}

RCShdPtr<PiSocket> HoBoundaryNode::getMatchingSocket(PiSocket const& socket) const {
    if (inputs()[0]->isSame(socket))
        return RCShdPtr<PiSocket>(outputs()[0].get());
    if (outputs()[0]->isSame(socket))
        return RCShdPtr<PiSocket>(static_cast<PiInput*>(inputs()[0].get()));
    return {};
}

HoLinkNode::HoLinkNode(HoGraphImp* graph, std::string name, PiSocketType type,
                       RCShdPtr<PiSocket> target)
    : HoNode(graph, std::move(name)), _target(std::move(target)) {
    buildOutput(RCShdPtr<HoOutput>(new HoOutput(this, "Output", type, PiSocket::STATIC)));
    setController(PiNodeControllerFactory::getInstance().createLinkController());
    ++gLinkNodes;
}

HoLinkNode::~HoLinkNode() {
    --gLinkNodes;
}

RCShdPtr<PiGraph> HoLinkNode::getLinkedGraph() const {
    if (!_target)
        return {};
    RCShdPtr<PiNode> n = _target->retrieveNode();
    return n ? n->getGraph() : RCShdPtr<PiGraph>();
}

void HoLinkNode::setTargetSocket(RCShdPtr<PiSocket> const& target) {
    requireValid("change a link");
    if (target && target->getType().getType() != outputs()[0]->type().getType())
        VN_THROW_MSG(ExBase, "the link \"" + name() + "\" cannot stand for a socket of type " +
                                 std::to_string(target->getType().getType()));
    if (target == _target && _unresolved.empty())
        return;
    if (target && reachesUpstream(nodeOf(target.get()), this))
        VN_THROW_MSG(ExBase, "the link \"" + name() + "\" cannot stand for \"" + target->getName() +
                                 "\": that socket reads the link itself");
    PiUndoGuard guard(stackOf(*this), "Set Link Target");
    HoEdit::setTarget(*this, target);
}

HoValueNode::HoValueNode(HoGraphImp* graph, std::string name, PiSocketType type)
    : HoNode(graph, std::move(name)) {
    buildInput(makeInput(this, nullptr, "in", type, PiSocket::STATIC));
    buildOutput(RCShdPtr<HoOutput>(new HoOutput(this, "out", type, PiSocket::STATIC)));
    setController(PiNodeControllerFactory::getInstance().createValueController(type));
}

HoGroupNode::HoGroupNode(HoGraphImp* graph, std::string name, RCShdPtr<PiTool const> tool)
    : HoNode(graph, std::move(name)), _tool(std::move(tool)) {
    setController(PiNodeControllerFactory::getInstance().createGroupController(_tool.get()));
}

HoGroupNode::~HoGroupNode() {
    for (auto& c : _children)
        if (c->group() == this)
            c->_group = nullptr;
}

Iterator<RCShdPtr<PiNode>> HoGroupNode::getNodes() const {
    std::vector<RCShdPtr<PiNode>> v;
    v.reserve(_children.size());
    for (auto const& c : _children)
        v.emplace_back(c.get());
    return Iterator<RCShdPtr<PiNode>>::overValues(std::move(v));
}

RCShdPtr<PiNode> HoGroupNode::findNode(std::string const& name) const {
    for (auto const& c : _children)
        if (c->name() == name)
            return RCShdPtr<PiNode>(c.get());
    return {};
}

void HoGroupNode::listInputs(std::vector<HoInput*>& out) const {
    for (HoBoundaryNode* b : _inBounds)
        out.push_back(b->inputs()[0].get());
}

void HoGroupNode::listOutputs(std::vector<HoOutput*>& out) const {
    for (HoBoundaryNode* b : _outBounds)
        out.push_back(b->outputs()[0].get());
}

bool HoGroupNode::isAncestorOf(HoNode const* n) const {
    for (; n; n = n->group())
        if (n == this)
            return true;
    return false;
}

RCShdPtr<PiToolNode> HoGroupNode::createToolNode(RCShdPtr<PiTool const> const& tool,
                                                 std::string const& name) {
    requireValid("create a node");
    if (!tool)
        RCExUtil::throwExNullPtr("PiTool");
    if (PiGroupInterface* g = groupIf(this); g && !g->canAddToolNode(tool))
        VN_THROW_MSG(ExBase,
                     "the group \"" + _name + "\" refuses a node of \"" + tool->getName() + "\"");
    PiUndoGuard guard(stackOf(*this), "Create Node");
    RCShdPtr<HoToolNode> node = buildToolNode(graph(), tool, name);
    HoEdit::attachNode(*this, node, false, false);
    for (auto const& in : node->inputs())
        HoEdit::feedValueNodes(*this, *node, *in);
    HoEdit::announceNode(*this, node, false);
    return node;
}

RCShdPtr<PiGroupNode> HoGroupNode::createGroupNode(std::string const& name,
                                                   RCShdPtr<PiTool const> const& tool) {
    requireValid("create a group");
    if (PiGroupInterface* g = groupIf(this); g && !g->canAddGroupNode())
        VN_THROW_MSG(ExBase, "the group \"" + _name + "\" refuses a new group");
    PiUndoGuard guard(stackOf(*this), "Create Group");
    RCShdPtr<HoGroupNode> node = buildGroupNode(graph(), name, tool);
    HoEdit::attachNode(*this, node);
    return node;
}

RCShdPtr<PiLinkNode> HoGroupNode::createLinkNode(std::string const& name, PiSocketType type,
                                                 RCShdPtr<PiSocket> const& target) {
    requireValid("create a link");
    requireSocketType(type, name);
    if (type.getCardinality() != PiSocketType::SINGLE)
        VN_THROW_MSG(ExBase, "the link \"" + name + "\" must be single");
    if (target && target->getType().getType() != type.getType())
        VN_THROW_MSG(ExBase, "the link \"" + name + "\" and its target differ in type");
    if (PiGroupInterface* g = groupIf(this); g && !g->canAddLinkNode(target))
        VN_THROW_MSG(ExBase, "the group \"" + _name + "\" refuses a link");
    PiUndoGuard guard(stackOf(*this), "Create Link");
    RCShdPtr<HoLinkNode> node(new HoLinkNode(&graph(), name, type, target));
    HoEdit::attachNode(*this, node);
    return RCShdPtr<PiLinkNode>(node.get());
}

void HoGroupNode::removeNode(RCShdPtr<PiNode> const& node) {
    HoNode& n = hoNode(*node);
    requireValid("remove a node");
    if (n.group() != this || !n.attached())
        VN_THROW_MSG(ExBase, "the node \"" + n.name() + "\" is not in the group \"" + _name + "\"");
    if (n.getNodeKind() == BOUNDARY)
        VN_THROW_MSG(ExBase, "the boundary node \"" + n.name() +
                                 "\" goes with its group socket, not on its own");
    if (PiGroupInterface* g = groupIf(this); g && !g->canRemoveNode(node))
        VN_THROW_MSG(ExBase, "the group \"" + _name + "\" refuses to remove \"" + n.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Remove Node");
    HoEdit::removeNode(RCShdPtr<HoNode>(&n));
}

PiGroupCrossings HoGroupNode::moveNodes(std::vector<RCShdPtr<PiNode>> const& nodes) {
    requireValid("move nodes");
    std::vector<HoNode*> moving;
    for (auto const& p : nodes) {
        HoNode& n = hoNode(*p);
        n.requireValid("move a node");
        if (n.graphIfAny() != _graph)
            VN_THROW_MSG(ExBase, "the node \"" + n.name() + "\" is in another graph");
        if (!n.group())
            VN_THROW_MSG(ExBase, "the root group does not move");
        if (n.getNodeKind() == BOUNDARY)
            VN_THROW_MSG(ExBase, "the boundary node \"" + n.name() + "\" does not move");
        if (n.getNodeKind() == GROUP && static_cast<HoGroupNode&>(n).isAncestorOf(this))
            VN_THROW_MSG(ExBase, "the group \"" + n.name() + "\" cannot move into itself");
        if (PiGroupInterface* g = groupIf(n.group()); g && !g->canMoveNode(p))
            VN_THROW_MSG(ExBase,
                         "the group \"" + n.group()->name() + "\" keeps \"" + n.name() + "\"");
        if (n.group() != this && std::find(moving.begin(), moving.end(), &n) == moving.end())
            moving.push_back(&n);
    }
    // Value nodes go with the only node they feed.
    std::unordered_set<HoNode*> movingSet(moving.begin(), moving.end());
    std::vector<HoNode*> all = moving;
    std::vector<HoInput*> leaves;
    for (HoNode* n : moving) {
        leaves.clear();
        n->leafInputs(leaves);
        for (HoInput* l : leaves) {
            HoOutput* src = l->source();
            if (!src || src->node()->getNodeKind() != VALUE || movingSet.count(src->node()) ||
                src->node()->group() != n->group())
                continue;
            bool onlyMoved = std::all_of(src->targets().begin(), src->targets().end(),
                                         [&](HoInput* t) { return movingSet.count(t->node()); });
            if (onlyMoved) {
                movingSet.insert(src->node());
                all.push_back(src->node());
            }
        }
    }
    PiUndoGuard guard(stackOf(*this), "Move Nodes");
    for (HoNode* n : all)
        HoEdit::moveNode(RCShdPtr<HoNode>(n), *this);
    PiGroupCrossings crossings;
    for (HoNode* n : all) {
        std::vector<HoInput*> ins;
        n->listInputs(ins);
        leaves.clear();
        for (HoInput* i : ins)
            i->collectLeaves(leaves);
        for (HoInput* l : leaves)
            if (l->source() && wiringGroup(*l->source()) != this)
                crossings.inward.emplace_back(l, l->source());
        std::vector<HoOutput*> outs;
        n->listOutputs(outs);
        for (HoOutput* o : outs)
            for (HoInput* t : o->targets())
                if (wiringGroup(*t) != this)
                    crossings.outward.emplace_back(t, o);
    }
    return crossings;
}

RCShdPtr<PiInput> HoGroupNode::addDynamicInput(std::string const& name, PiSocketType type) {
    requireValid("add an input");
    requireName(name);
    requireSocketType(type, name);
    if (type.getCardinality() != PiSocketType::SINGLE)
        VN_THROW_MSG(ExBase, "the group input \"" + name + "\" must be single");
    if (findInput(name, ALL))
        VN_THROW_MSG(ExBase, "the group \"" + _name + "\" already has an input \"" + name + "\"");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canAddDynamicInput(name, type); },
        "add the input \"" + name + "\"");
    PiUndoGuard guard(stackOf(*this), "Add Input");
    RCShdPtr<HoBoundaryNode> b(new HoBoundaryNode(_graph, name, type, true, PiSocket::DYNAMIC));
    HoEdit::attachBoundary(*this, b);
    return b->getInput();
}

RCShdPtr<PiOutput> HoGroupNode::addDynamicOutput(std::string const& name, PiSocketType type) {
    requireValid("add an output");
    requireName(name);
    requireSocketType(type, name);
    if (type.getCardinality() != PiSocketType::SINGLE)
        VN_THROW_MSG(ExBase, "the group output \"" + name + "\" must be single");
    if (findOutput(name, ALL))
        VN_THROW_MSG(ExBase, "the group \"" + _name + "\" already has an output \"" + name + "\"");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canAddDynamicOutput(name, type); },
        "add the output \"" + name + "\"");
    PiUndoGuard guard(stackOf(*this), "Add Output");
    RCShdPtr<HoBoundaryNode> b(new HoBoundaryNode(_graph, name, type, false, PiSocket::DYNAMIC));
    HoEdit::attachBoundary(*this, b);
    return b->getOutput();
}

void HoGroupNode::removeDynamicInput(RCShdPtr<PiInput> const& input) {
    HoInput& in = hoInput(*input);
    auto it = std::find_if(_inBounds.begin(), _inBounds.end(),
                           [&](HoBoundaryNode* b) { return b->inputs()[0].get() == &in; });
    VN_ASSERT(it != _inBounds.end());
    requireValid("remove an input");
    if ((*it)->kind() != PiSocket::DYNAMIC)
        VN_THROW_MSG(ExBase, "the group input \"" + in.name() + "\" is static and stays");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canRemoveDynamicInput(input); },
        "remove the input \"" + in.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Remove Input");
    HoBoundaryNode& b = **it;
    HoEdit::cutAround(b);
    HoEdit::detachBoundary(*this, b);
}

void HoGroupNode::removeDynamicOutput(RCShdPtr<PiOutput> const& output) {
    HoOutput& out = hoOutput(*output);
    auto it = std::find_if(_outBounds.begin(), _outBounds.end(),
                           [&](HoBoundaryNode* b) { return b->outputs()[0].get() == &out; });
    VN_ASSERT(it != _outBounds.end());
    requireValid("remove an output");
    if ((*it)->kind() != PiSocket::DYNAMIC)
        VN_THROW_MSG(ExBase, "the group output \"" + out.name() + "\" is static and stays");
    requireConsent(
        *this, [&](PiTopologyInterface& t) { return t.canRemoveDynamicOutput(output); },
        "remove the output \"" + out.name() + "\"");
    PiUndoGuard guard(stackOf(*this), "Remove Output");
    HoBoundaryNode& b = **it;
    HoEdit::cutAround(b);
    HoEdit::detachBoundary(*this, b);
}

// ---------------------------------------------------------------------------------------------
// Building nodes from descriptions

namespace {
RCShdPtr<HoInput> buildInput(HoNode* node, HoInput* owner,
                             PiStructuredPolicyDescriptor::Input const& d, PiSocket::Kind kind) {
    RCShdPtr<HoInput> in = makeInput(node, owner, d.name, d.type, kind);
    if (d.structure && d.type.getCardinality() == PiSocketType::MULTIVALUED)
        in->buildElementStructure(d.structure);
    else if (d.structure)
        for (auto const& sub : d.structure->getInputs())
            in->buildElement(buildInput(node, in.get(), sub, kind));
    return in;
}
} // namespace

RCShdPtr<HoToolNode> buildToolNode(HoGraphImp& g, RCShdPtr<PiTool const> const& tool,
                                   std::string const& name) {
    RCShdPtr<HoToolNode> node(new HoToolNode(&g, name, tool));
    PiToolPolicyDescriptor const& d = tool->getDescriptor();
    node->buildReserve(d.getInputs().size(), d.getOutputs().size(), d.getValues().size());
    for (auto const& in : d.getInputs())
        node->buildInput(buildInput(node.get(), nullptr, in, PiSocket::STATIC));
    for (auto const& out : d.getOutputs())
        node->buildOutput(
            RCShdPtr<HoOutput>(new HoOutput(node.get(), out.name, out.type, PiSocket::STATIC)));
    for (auto const& v : d.getValues())
        node->buildValue(makeValue(node.get(), v.name, v.type));
    return node;
}

RCShdPtr<HoValueNode> buildValueNode(HoGraphImp& g, std::string const& name, PiSocketType type) {
    RCShdPtr<HoValueNode> node(new HoValueNode(&g, name, type));
    int const vt = valueTypeFor(type);
    if (vt >= 0)
        node->buildValue(
            makeValue(node.get(), PiValueNode::VALUE_NAME, static_cast<PiValueType>(vt)));
    return node;
}

RCShdPtr<HoGroupNode> buildGroupNode(HoGraphImp& g, std::string const& name,
                                     RCShdPtr<PiTool const> const& tool) {
    RCShdPtr<HoGroupNode> group(new HoGroupNode(&g, name, tool));
    if (!tool)
        return group;
    PiToolPolicyDescriptor const& d = tool->getDescriptor();
    auto addBoundary = [&](std::string const& n, PiSocketType type, bool isInput) {
        RCShdPtr<HoBoundaryNode> b(new HoBoundaryNode(&g, n, type, isInput, PiSocket::STATIC));
        group->buildChild(b);
        group->buildBoundary(*b);
    };
    for (auto const& in : d.getInputs()) {
        if (in.structure || in.type.getCardinality() != PiSocketType::SINGLE)
            VN_THROW_MSG(ExBase, "the group tool \"" + tool->getName() + "\" has the input \"" +
                                     in.name + "\", which a group cannot carry");
        addBoundary(in.name, in.type, true);
    }
    for (auto const& out : d.getOutputs())
        addBoundary(out.name, out.type, false);
    for (auto const& v : d.getValues())
        group->buildValue(makeValue(group.get(), v.name, v.type));
    return group;
}

int valueTypeFor(PiSocketType type) {
    switch (type.getType()) {
    case PiSocketType::BOOL:
        return static_cast<int>(PiValueType::Bool);
    case PiSocketType::DOUBLE:
        return static_cast<int>(PiValueType::Double);
    case PiSocketType::INT:
        return static_cast<int>(PiValueType::Int);
    case PiSocketType::STRING:
        return static_cast<int>(PiValueType::String);
    case PiSocketType::TIME:
        return static_cast<int>(PiValueType::Time);
    default:
        return -1;
    }
}

} // namespace Vn

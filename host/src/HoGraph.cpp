#include "HoGraphImp.h"

#include "ExBase.h"

#include <set>
#include <sstream>

namespace Vn {

HoGraphImp::HoGraphImp(std::string name, std::string role)
    : _name(std::move(name)), _role(std::move(role)), _stackOwner(new PiCommandStack),
      _stack(*_stackOwner), _processed(this, &HoGraphImp::commandProcessed) {
    _root = RCShdPtr<HoGroupNode>(new HoGroupNode(this, _name, {}));
    liveGraphs().push_back(this);
    _root->_attached = true;
    _stack.addProcessedHandler(&_processed);
}

std::vector<HoGraphImp*>& HoGraphImp::liveGraphs() {
    static std::vector<HoGraphImp*> graphs;
    return graphs;
}

HoGraphImp::~HoGraphImp() {
    std::erase(liveGraphs(), this);
    // A stack shared beyond the graph must not replay edits of nodes whose graph is gone.
    if (!_stack.isOpen())
        _stack.clear();
    for (HoNode* n = _firstNode; n;) {
        HoNode* next = n->_nextInGraph;
        n->_graph = nullptr;
        n->_prevInGraph = n->_nextInGraph = nullptr;
        n = next;
    }
    _firstNode = nullptr;
}

void HoGraphImp::close() {
    _valid = false;
    _events.call(PiGraphEvent{PiGraphEvent::CloseGraph});
}

void HoGraphImp::refresh() {
    _valid = true;
    _events.call(PiGraphEvent{PiGraphEvent::GraphRefreshed});
}

void HoGraphImp::commandProcessed(CbEmptyType const&) {
    _events.call(PiGraphEvent{PiGraphEvent::CommandProcessed});
}

HoSocketRef HoSocketRef::describe(PiSocket const* socket) {
    HoSocketRef ref;
    if (!socket || !socket->isValid())
        return ref;
    auto const* in = dynamic_cast<HoInput const*>(socket);
    auto const* out = dynamic_cast<HoOutput const*>(socket);
    HoNode const* n = in ? in->_node : out ? out->_node : nullptr;
    if (!n || !n->_graph)
        return ref;
    ref.isInput = in != nullptr;
    ref.socket = in ? in->getDottedName() : out->_name;
    for (; n && n->_group; n = n->_group)
        ref.nodePath.insert(ref.nodePath.begin(), n->_name);
    ref.graph = n->_graph->_name;
    return ref;
}

RCShdPtr<PiSocket> HoSocketRef::resolve() const {
    for (HoGraphImp* g : HoGraphImp::liveGraphs()) {
        if (g->_name != graph)
            continue;
        RCShdPtr<PiNode> n(g->_root.get());
        for (std::size_t i = 0; n && i < nodePath.size(); ++i) {
            auto* group = dynamic_cast<PiGroupNode*>(n.get());
            n = group ? group->findNode(nodePath[i]) : RCShdPtr<PiNode>();
        }
        if (!n || nodePath.empty())
            continue;
        if (isInput) {
            if (RCShdPtr<PiInput> in = n->findInput(socket))
                return RCShdPtr<PiSocket>(in.get());
        } else if (RCShdPtr<PiOutput> out = n->findOutput(socket)) {
            return RCShdPtr<PiSocket>(out.get());
        }
    }
    return {};
}

RCShdPtr<PiGraph> HoGraph::create(std::string const& name, std::string const& role,
                                  PiGraphControllerFactory const& controller) {
    RCShdPtr<HoGraphImp> graph(new HoGraphImp(name, role));
    // The factory sees a counted graph, so it may hold and drop references to it.
    if (controller) {
        RCShdPtr<PiNodeController> c = controller(*graph);
        if (!c)
            VN_THROW_MSG(ExBase, "the graph \"" + name + "\" was given no controller");
        graph->_root->setController(std::move(c));
    }
    return RCShdPtr<PiGraph>(graph.get());
}

// ---------------------------------------------------------------------------------------------

namespace {

char const* kindName(PiNode::NodeKind k) {
    switch (k) {
    case PiNode::TOOL:
        return "tool";
    case PiNode::GROUP:
        return "group";
    case PiNode::BOUNDARY:
        return "boundary";
    case PiNode::LINK:
        return "link";
    case PiNode::VALUE:
        return "value";
    }
    return "?";
}

class Dumper {
public:
    Dumper(HoGroupNode const& top, bool withIds) : _top(top), _ids(withIds) {}

    std::string run() {
        for (auto const& c : _top._children)
            node(*c, 0);
        return _os.str();
    }

private:
    std::string id(PiGraphObject const& o) const {
        return _ids ? " #" + std::to_string(o.getId()) : std::string();
    }
    // The node's names from below the dumped group, joined by "/".
    std::string path(HoNode const* n) const {
        std::string p;
        for (; n && n != &_top; n = n->_group)
            p = p.empty() ? n->_name : n->_name + "/" + p;
        return n ? p : "<outside>/" + p;
    }
    void input(HoInput const& in, int depth) {
        _os << std::string(depth * 2, ' ') << "in " << in.getDottedName()
            << " type=" << in._type.getType() << "/" << in._type.getCardinality()
            << " kind=" << in._kind << id(in);
        if (in._source)
            _os << " <- " << path(in._source->_node) << ":" << in._source->_name << id(*in._source);
        _os << "\n";
        for (auto const& e : in._elements)
            input(*e, depth + 1);
    }
    void node(HoNode const& n, int depth) {
        std::string ind(depth * 2, ' ');
        _os << ind << kindName(n.getNodeKind()) << " \"" << n._name << "\"" << id(n);
        if (n.getNodeKind() == PiNode::TOOL) {
            auto const& t = static_cast<HoToolNode const&>(n)._tool;
            _os << " tool=" << t->getFullName() << "@" << t->getVersion();
        }
        if (n.getNodeKind() == PiNode::BOUNDARY) {
            auto const& b = static_cast<HoBoundaryNode const&>(n);
            _os << (b._isInput ? " side=in" : " side=out") << " kind=" << b._kind;
        }
        if (n.getNodeKind() == PiNode::LINK) {
            auto const& l = static_cast<HoLinkNode const&>(n);
            HoSocketRef const r =
                l._target ? HoSocketRef::describe(l._target.get()) : l._unresolved;
            if (!r.empty()) {
                _os << " target=" << r.graph;
                for (auto const& step : r.nodePath)
                    _os << "/" << step;
                _os << (r.isInput ? ":in:" : ":out:") << r.socket
                    << (l._target ? "" : " (unresolved)");
            }
        }
        _os << "\n";
        for (auto const& in : n._inputs)
            input(*in, depth + 1);
        for (auto const& o : n._outputs) {
            _os << ind << "  out " << o->_name << " type=" << o->_type.getType()
                << " kind=" << o->_kind << " result=" << o->_resultState << id(*o) << " ->";
            for (HoInput const* t : o->_targets)
                _os << " " << path(t->_node) << ":" << t->getDottedName();
            _os << "\n";
        }
        for (auto const& v : n._values)
            _os << ind << "  val " << v->getName() << " " << PiValue::getTypeName(v->getType())
                << " = \"" << v->toString() << "\"" << id(*v) << "\n";
        if (n.getNodeKind() == PiNode::GROUP) {
            auto const& g = static_cast<HoGroupNode const&>(n);
            _os << ind << "  sockets in:";
            for (HoBoundaryNode const* b : g._inBounds)
                _os << " " << b->_name;
            _os << " out:";
            for (HoBoundaryNode const* b : g._outBounds)
                _os << " " << b->_name;
            _os << "\n";
            for (auto const& c : g._children)
                node(*c, depth + 1);
        }
    }

    HoGroupNode const& _top;
    bool _ids;
    std::ostringstream _os;
};

class Checker {
public:
    explicit Checker(HoGraphImp const& g) : _g(g) {}

    std::vector<std::string> run() {
        if (_g._root->_group || !_g._root->_attached)
            fail("the root group is not the root");
        node(*_g._root, nullptr);
        return std::move(_problems);
    }

private:
    void fail(std::string p) { _problems.push_back(std::move(p)); }
    void id(PiGraphObject const& o, std::string const& what) {
        if (!_ids.insert(o.getId()).second)
            fail("the id " + std::to_string(o.getId()) + " is used twice (" + what + ")");
    }
    void input(HoInput const& in, HoNode const& n, HoInput const* owner) {
        std::string name = n._name + ":" + in.getDottedName();
        id(in, name);
        if (in._node != &n || in._owner != owner || !in._attached)
            fail(name + " does not know its node or owner");
        if (in._source) {
            if (!in.isLeaf())
                fail(name + " holds sub-inputs and is connected");
            auto const& t = in._source->_targets;
            if (std::count(t.begin(), t.end(), &in) != 1)
                fail(name + " is not listed once by its source");
            if (!in._source->_node || in._source->_node->_graph != &_g || !in._source->isValid())
                fail(name + " is fed by an output not in the graph");
        }
        for (auto const& e : in._elements)
            input(*e, n, &in);
    }
    void node(HoNode const& n, HoGroupNode const* parent) {
        id(n, n._name);
        if (n._group != parent || !n._attached || n._graph != &_g)
            fail("the node \"" + n._name + "\" does not know its group or graph");
        for (auto const& in : n._inputs)
            input(*in, n, nullptr);
        for (auto const& o : n._outputs) {
            id(*o, n._name + ":" + o->_name);
            if (o->_node != &n || !o->_attached)
                fail("the output \"" + o->_name + "\" does not know its node");
            for (HoInput const* t : o->_targets)
                if (t->_source != o.get() || !t->isValid())
                    fail("the output \"" + o->_name + "\" of \"" + n._name +
                         "\" lists an input it does not feed");
            if (o->_resultState != 0 && o->_resultState != 1)
                fail("the output \"" + o->_name + "\" has result state " +
                     std::to_string(o->_resultState));
        }
        for (auto const& v : n._values) {
            id(*v, n._name + ":" + v->getName());
            if (valueState(*v)._node != &n || !valueState(*v)._attached)
                fail("the value \"" + v->getName() + "\" does not know its node");
        }
        if (n.getNodeKind() != PiNode::GROUP)
            return;
        auto const& g = static_cast<HoGroupNode const&>(n);
        std::size_t boundaries = 0;
        for (auto const& c : g._children) {
            node(*c, &g);
            if (c->getNodeKind() == PiNode::BOUNDARY)
                ++boundaries;
        }
        std::set<HoBoundaryNode const*> seen;
        for (auto const* list : {&g._inBounds, &g._outBounds})
            for (HoBoundaryNode const* b : *list) {
                bool inChildren = std::any_of(g._children.begin(), g._children.end(),
                                              [&](auto const& c) { return c.get() == b; });
                if (!inChildren || !seen.insert(b).second || b->_isInput != (list == &g._inBounds))
                    fail("the group \"" + g._name + "\" has a socket without its own boundary");
            }
        if (seen.size() != boundaries)
            fail("the group \"" + g._name + "\" has " + std::to_string(boundaries) +
                 " boundary nodes for " + std::to_string(seen.size()) + " sockets");
    }

    HoGraphImp const& _g;
    std::set<int> _ids;
    std::vector<std::string> _problems;
};

} // namespace

std::string HoGraphUtil::dump(PiGroupNode const& group, bool withIds) {
    return Dumper(static_cast<HoGroupNode const&>(hoNode(group)), withIds).run();
}

std::vector<std::string> HoGraphUtil::checkInvariants(PiGraph const& graph) {
    auto const* g = dynamic_cast<HoGraphImp const*>(&graph);
    if (!g)
        RCExUtil::throwExCastFailed(typeid(graph).name(), "HoGraphImp");
    return Checker(*g).run();
}

} // namespace Vn

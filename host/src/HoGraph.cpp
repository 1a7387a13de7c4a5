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
    HoNode const* n = in ? in->node() : out ? out->node() : nullptr;
    if (!n || !n->graphIfAny())
        return ref;
    ref.isInput = in != nullptr;
    ref.socket = in ? in->getDottedName() : out->name();
    for (; n && n->group(); n = n->group())
        ref.nodePath.insert(ref.nodePath.begin(), n->name());
    ref.graph = n->graphIfAny()->name();
    return ref;
}

RCShdPtr<PiSocket> HoSocketRef::resolve() const {
    for (HoGraphImp* g : HoGraphImp::liveGraphs()) {
        if (g->name() != graph)
            continue;
        RCShdPtr<PiNode> n(&g->root());
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
        graph->root().setController(std::move(c));
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
        for (auto const& c : _top.children())
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
        for (; n && n != &_top; n = n->group())
            p = p.empty() ? n->name() : n->name() + "/" + p;
        return n ? p : "<outside>/" + p;
    }
    void input(HoInput const& in, int depth) {
        _os << std::string(depth * 2, ' ') << "in " << in.getDottedName()
            << " type=" << in.type().getType() << "/" << in.type().getCardinality()
            << " kind=" << in.kind() << id(in);
        if (in.source())
            _os << " <- " << path(in.source()->node()) << ":" << in.source()->name()
                << id(*in.source());
        _os << "\n";
        for (auto const& e : in.elements())
            input(*e, depth + 1);
    }
    void node(HoNode const& n, int depth) {
        std::string ind(depth * 2, ' ');
        _os << ind << kindName(n.getNodeKind()) << " \"" << n.name() << "\"" << id(n);
        if (n.getNodeKind() == PiNode::TOOL) {
            auto const& t = static_cast<HoToolNode const&>(n).getTool();
            _os << " tool=" << t->getFullName() << "@" << t->getVersion();
        }
        if (n.getNodeKind() == PiNode::BOUNDARY) {
            auto const& b = static_cast<HoBoundaryNode const&>(n);
            _os << (b.isInput() ? " side=in" : " side=out") << " kind=" << b.kind();
        }
        if (n.getNodeKind() == PiNode::LINK) {
            auto const& l = static_cast<HoLinkNode const&>(n);
            HoSocketRef const r = l.target() ? HoSocketRef::describe(l.target()) : l.unresolved();
            if (!r.empty()) {
                _os << " target=" << r.graph;
                for (auto const& step : r.nodePath)
                    _os << "/" << step;
                _os << (r.isInput ? ":in:" : ":out:") << r.socket
                    << (l.target() ? "" : " (unresolved)");
            }
        }
        _os << "\n";
        for (auto const& in : n.inputs())
            input(*in, depth + 1);
        for (auto const& o : n.outputs()) {
            _os << ind << "  out " << o->name() << " type=" << o->type().getType()
                << " kind=" << o->kind() << " result=" << o->resultState() << id(*o) << " ->";
            for (HoInput const* t : o->targets())
                _os << " " << path(t->node()) << ":" << t->getDottedName();
            _os << "\n";
        }
        for (auto const& v : n.values())
            _os << ind << "  val " << v->getName() << " " << PiValue::getTypeName(v->getType())
                << " = \"" << v->toString() << "\"" << id(*v) << "\n";
        if (n.getNodeKind() == PiNode::GROUP) {
            auto const& g = static_cast<HoGroupNode const&>(n);
            _os << ind << "  sockets in:";
            for (HoBoundaryNode const* b : g.inBounds())
                _os << " " << b->name();
            _os << " out:";
            for (HoBoundaryNode const* b : g.outBounds())
                _os << " " << b->name();
            _os << "\n";
            for (auto const& c : g.children())
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
        if (_g.root().group() || !_g.root().attached())
            fail("the root group is not the root");
        node(_g.root(), nullptr);
        return std::move(_problems);
    }

private:
    void fail(std::string p) { _problems.push_back(std::move(p)); }
    void id(PiGraphObject const& o, std::string const& what) {
        if (!_ids.insert(o.getId()).second)
            fail("the id " + std::to_string(o.getId()) + " is used twice (" + what + ")");
    }
    void input(HoInput const& in, HoNode const& n, HoInput const* owner) {
        std::string name = n.name() + ":" + in.getDottedName();
        id(in, name);
        if (in.node() != &n || in.owner() != owner || !in.attached())
            fail(name + " does not know its node or owner");
        if (in.source()) {
            if (!in.isLeaf())
                fail(name + " holds sub-inputs and is connected");
            auto const& t = in.source()->targets();
            if (std::count(t.begin(), t.end(), &in) != 1)
                fail(name + " is not listed once by its source");
            if (!in.source()->node() || in.source()->node()->graphIfAny() != &_g ||
                !in.source()->isValid())
                fail(name + " is fed by an output not in the graph");
        }
        for (auto const& e : in.elements())
            input(*e, n, &in);
    }
    void node(HoNode const& n, HoGroupNode const* parent) {
        id(n, n.name());
        if (n.group() != parent || !n.attached() || n.graphIfAny() != &_g)
            fail("the node \"" + n.name() + "\" does not know its group or graph");
        for (auto const& in : n.inputs())
            input(*in, n, nullptr);
        for (auto const& o : n.outputs()) {
            id(*o, n.name() + ":" + o->name());
            if (o->node() != &n || !o->attached())
                fail("the output \"" + o->name() + "\" does not know its node");
            for (HoInput const* t : o->targets())
                if (t->source() != o.get() || !t->isValid())
                    fail("the output \"" + o->name() + "\" of \"" + n.name() +
                         "\" lists an input it does not feed");
            if (o->resultState() != 0 && o->resultState() != 1)
                fail("the output \"" + o->name() + "\" has result state " +
                     std::to_string(o->resultState()));
        }
        for (auto const& v : n.values()) {
            id(*v, n.name() + ":" + v->getName());
            if (valueState(*v).node() != &n || !valueState(*v).attached())
                fail("the value \"" + v->getName() + "\" does not know its node");
        }
        if (n.getNodeKind() != PiNode::GROUP)
            return;
        auto const& g = static_cast<HoGroupNode const&>(n);
        std::size_t boundaries = 0;
        for (auto const& c : g.children()) {
            node(*c, &g);
            if (c->getNodeKind() == PiNode::BOUNDARY)
                ++boundaries;
        }
        std::set<HoBoundaryNode const*> seen;
        for (auto const* list : {&g.inBounds(), &g.outBounds()})
            for (HoBoundaryNode const* b : *list) {
                bool inChildren = std::any_of(g.children().begin(), g.children().end(),
                                              [&](auto const& c) { return c.get() == b; });
                if (!inChildren || !seen.insert(b).second ||
                    b->isInput() != (list == &g.inBounds()))
                    fail("the group \"" + g.name() + "\" has a socket without its own boundary");
            }
        if (seen.size() != boundaries)
            fail("the group \"" + g.name() + "\" has " + std::to_string(boundaries) +
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

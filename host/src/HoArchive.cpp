#include "HoGraphImp.h"

#include "HoAddressMap.h"

#include "ExBase.h"
#include "PiToolInterface.h"
#include "PiToolRegistry.h"
#include "XmlDocument.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <unordered_map>

namespace Vn {

// The archive of a node list:
//   <Graph version="1">
//     <Node kind="tool|group|value|link" id="7" name="..." [tool="..." version="..."] [type="5"]>
//       <DynamicInput name type cardinality/> <DynamicOutput name type/>
//       <Element input="dotted list input" name="..."/>   elements of lists, in order
//       <Result output="..." state="1"/>
//       <Value name="..." type="1">text</Value>
//       <Boundary side="in|out" socket="..." type static="0|1" id name> (Value, Result) </Boundary>
//       <Target graph="..." socket="dotted" side="in|out"> <Step name="..."/>... </Target>
//                                                            a link's target, node names from the
//                                                            root
//       <Node .../>                                          the interior of a group
//     </Node>
//     <Connection inputNode="7" input="dotted" outputNode="9" output="..."/>
//   </Graph>
// Ids are those of the archived nodes; reading gives the new nodes ids of their own.

namespace {

constexpr int kMaxDepth = 64;
constexpr std::size_t kMaxAttribute = 4096;
constexpr std::size_t kMaxText = std::size_t(16) << 20;

[[noreturn]] void fail(std::string const& why) {
    VN_THROW_MSG(ExBase, "archive: " + why);
}

// ---------------------------------------------------------------------------------------------

class Writer {
public:
    explicit Writer(XmlWriter& w) : _w(w) {}

    void node(HoNode const& n) {
        _written.push_back(&n);
        noteConsumers(n);
        _w.openTag("Node");
        _w.writeAttrib("kind", kind(n));
        _w.writeAttrib("id", std::to_string(n.getId()));
        _w.writeAttrib("name", n.name());
        switch (n.getNodeKind()) {
        case PiNode::TOOL:
            tool(*static_cast<HoToolNode const&>(n).getTool());
            break;
        case PiNode::GROUP:
            if (auto const& t = static_cast<HoGroupNode const&>(n).getTool())
                tool(*t);
            break;
        case PiNode::VALUE:
            _w.writeAttrib("type", std::to_string(n.inputs()[0]->type().getType()));
            break;
        case PiNode::LINK:
            _w.writeAttrib("type", std::to_string(n.outputs()[0]->type().getType()));
            break;
        case PiNode::BOUNDARY:
            break;
        }
        if (n.getNodeKind() == PiNode::TOOL)
            sockets(n);
        if (n.getNodeKind() == PiNode::LINK)
            target(static_cast<HoLinkNode const&>(n));
        content(n);
        if (n.getNodeKind() == PiNode::GROUP)
            for (auto const& c : static_cast<HoGroupNode const&>(n).children())
                c->getNodeKind() == PiNode::BOUNDARY
                    ? boundary(static_cast<HoBoundaryNode const&>(*c))
                    : node(*c);
        _w.closeTag();
    }

    // By outputs, so that each output's consumers come back in their order.
    void connections() {
        HoAddressSet<HoNode const*> in(_written.begin(), _written.end());
        for (Consumer const& c : _consumers) {
            if (!in.contains(c.node))
                continue;
            _w.openTag("Connection");
            _w.writeAttrib("inputNode", std::to_string(c.nodeId));
            _w.writeAttrib("input", c.input);
            _w.writeAttrib("outputNode", std::to_string(c.outputNodeId));
            _w.writeAttrib("output", c.output);
            _w.closeTag();
        }
    }

private:
    static char const* kind(HoNode const& n) {
        switch (n.getNodeKind()) {
        case PiNode::TOOL:
            return "tool";
        case PiNode::GROUP:
            return "group";
        case PiNode::VALUE:
            return "value";
        case PiNode::LINK:
            return "link";
        case PiNode::BOUNDARY:
            return "boundary";
        }
        return "";
    }
    void tool(PiTool const& t) {
        _w.writeAttrib("tool", t.getFullName());
        _w.writeAttrib("version", t.getVersion());
    }
    void sockets(HoNode const& n) {
        for (auto const& in : n.inputs())
            if (in->kind() == PiSocket::DYNAMIC) {
                _w.openTag("DynamicInput");
                _w.writeAttrib("name", in->name());
                _w.writeAttrib("type", std::to_string(in->type().getType()));
                _w.writeAttrib("cardinality", std::to_string(in->type().getCardinality()));
                _w.closeTag();
            }
        for (auto const& o : n.outputs())
            if (o->kind() == PiSocket::DYNAMIC) {
                _w.openTag("DynamicOutput");
                _w.writeAttrib("name", o->name());
                _w.writeAttrib("type", std::to_string(o->type().getType()));
                _w.closeTag();
            }
        for (auto const& in : n.inputs())
            elements(*in);
    }
    void elements(HoInput const& in) {
        bool const list = in.type().getCardinality() != PiSocketType::SINGLE;
        for (auto const& e : in.elements()) {
            if (list) {
                _w.openTag("Element");
                _w.writeAttrib("input", in.getDottedName());
                _w.writeAttrib("name", e->name());
                _w.closeTag();
            }
            elements(*e);
        }
    }
    void content(HoNode const& n) {
        for (auto const& o : n.outputs())
            if (o->resultState() != 0) {
                _w.openTag("Result");
                _w.writeAttrib("output", o->name());
                _w.writeAttrib("state", std::to_string(o->resultState()));
                _w.closeTag();
            }
        for (auto const& v : n.values()) {
            _w.openTag("Value");
            _w.writeAttrib("name", v->getName());
            _w.writeAttrib("type", std::to_string(static_cast<int>(v->getType())));
            _w.writeText(v->toString());
            _w.closeTag();
        }
    }
    void target(HoLinkNode const& l) {
        HoSocketRef ref = l.target() ? HoSocketRef::describe(l.target()) : l.unresolved();
        if (ref.empty())
            return;
        _w.openTag("Target");
        _w.writeAttrib("graph", ref.graph);
        _w.writeAttrib("socket", ref.socket);
        _w.writeAttrib("side", ref.isInput ? "in" : "out");
        for (std::string const& step : ref.nodePath) {
            _w.openTag("Step");
            _w.writeAttrib("name", step);
            _w.closeTag();
        }
        _w.closeTag();
    }
    // Every consumer of the node's outputs, noted while the node and its neighbours are in the
    // cache: a walk over them all once the nodes are written would miss on each.
    void noteConsumers(HoNode const& n) {
        for (auto const& o : n.outputs())
            for (HoInput const* t : o->targets())
                _consumers.push_back(
                    {t->node(), t->node()->getId(), t->getDottedName(), n.getId(), o->name()});
    }
    void boundary(HoBoundaryNode const& b) {
        _written.push_back(&b);
        noteConsumers(b);
        _w.openTag("Boundary");
        _w.writeAttrib("side", b.isInput() ? "in" : "out");
        _w.writeAttrib("socket", b.inputs()[0]->name());
        _w.writeAttrib("type", std::to_string(b.inputs()[0]->type().getType()));
        _w.writeAttrib("static", b.kind() == PiSocket::STATIC ? "1" : "0");
        _w.writeAttrib("id", std::to_string(b.getId()));
        _w.writeAttrib("name", b.name());
        content(b);
        _w.closeTag();
    }

    // A consumer of a written node's output; written as a connection when its own node is
    // written too.
    struct Consumer {
        HoNode const* node;
        int nodeId;
        std::string input;
        int outputNodeId;
        std::string output;
    };

    XmlWriter& _w;
    std::vector<HoNode const*> _written;
    std::vector<Consumer> _consumers;
};

// ---------------------------------------------------------------------------------------------

class Reader {
public:
    explicit Reader(HoGraphImp& g) : _g(g) {}

    // Builds every node out of the graph and checks the whole archive; nothing in the graph
    // changes here.
    void read(XmlElement const& graph) {
        checkAttributes(graph);
        if (graph.getName() != "Graph")
            fail("the element is \"" + graph.getName() + "\", not \"Graph\"");
        if (graph.getAttribute("version") != "1")
            fail("unknown version \"" + graph.getAttribute("version") + "\"");
        for (XmlElement const& e : graph.getChildren()) {
            if (e.getName() == "Node") {
                _tops.push_back(node(e, 1));
            } else if (e.getName() == "Connection")
                connection(e);
            else
                fail("unexpected element \"" + e.getName() + "\" in \"Graph\"");
        }
        checkAcyclic();
    }

    std::vector<RCShdPtr<HoNode>> const& tops() const { return _tops; }
    std::vector<std::pair<HoInput*, HoOutput*>> const& later() const { return _later; }

private:
    static void checkAttributes(XmlElement const& e) {
        for (XmlAttribute a = e.getFirstAttribute(); !a.isNull(); a = a.getNext())
            if (a.getValue().size() > kMaxAttribute)
                fail("the attribute \"" + std::string(a.getName().substr(0, 64)) + "\" of \"" +
                     e.getName() + "\" is longer than " + std::to_string(kMaxAttribute) +
                     " characters");
    }
    static std::string need(XmlElement const& e, char const* attr) {
        char const* value = e.findAttribute(attr);
        if (!value)
            fail("\"" + e.getName() + "\" lacks the attribute \"" + attr + "\"");
        return value;
    }
    static long number(XmlElement const& e, char const* attr, long lo, long hi) {
        std::string const t = need(e, attr);
        char* end = nullptr;
        errno = 0;
        long v = std::strtol(t.c_str(), &end, 10);
        if (t.empty() || end != t.c_str() + t.size() || errno == ERANGE || v < lo || v > hi)
            fail("the attribute \"" + std::string(attr) + "\" of \"" + e.getName() + "\" is \"" +
                 t + "\", not a number from " + std::to_string(lo) + " to " + std::to_string(hi));
        return v;
    }
    static PiSocketType socketType(XmlElement const& e, bool withCardinality) {
        int const type = static_cast<int>(number(e, "type", 0, PiSocketType::CAMERA));
        if (!PiSocketType::isKnownType(type))
            fail("unknown socket type " + std::to_string(type));
        long const card = withCardinality ? number(e, "cardinality", 0, 2) : 0;
        return PiSocketType(type, static_cast<PiSocketType::Cardinality>(card));
    }
    static void checkName(std::string const& name) {
        if (name.empty() || name.find('.') != std::string::npos)
            fail("\"" + name + "\" is no socket name");
    }
    void registerId(XmlElement const& e, HoNode* n) {
        long const id = number(e, "id", 1, std::numeric_limits<int>::max());
        if (!_byId.emplace(static_cast<int>(id), n).second)
            fail("the node id " + std::to_string(id) + " is used twice");
    }
    RCShdPtr<PiTool const> tool(XmlElement const& e) {
        if (!PiToolRegistry::isInitialized())
            fail("no tool registry to find \"" + e.getAttribute("tool") + "\"");
        std::string const name = need(e, "tool");
        std::string const version = need(e, "version");
        RCShdPtr<PiTool const> t = PiToolRegistry::getInstance().findTool(name, version);
        if (!t)
            fail("unknown tool \"" + name + "\" version \"" + version + "\"");
        return t;
    }

    RCShdPtr<HoNode> node(XmlElement const& e, int depth) {
        checkAttributes(e);
        if (depth > kMaxDepth)
            fail("groups nested deeper than " + std::to_string(kMaxDepth));
        std::string const kind = need(e, "kind");
        std::string const name = need(e, "name");
        RCShdPtr<HoNode> n;
        if (kind == "tool") {
            n = buildToolNode(_g, tool(e), name);
        } else if (kind == "group") {
            n = buildGroupNode(_g, name, e.hasAttribute("tool") ? tool(e) : nullptr);
        } else if (kind == "value") {
            PiSocketType const t = socketType(e, false);
            if (!t.isValueType())
                fail("the value node \"" + name + "\" has the type " + std::to_string(t.getType()) +
                     ", which holds no value");
            n = buildValueNode(_g, name, t);
        } else if (kind == "link") {
            n = RCShdPtr<HoNode>(new HoLinkNode(&_g, name, socketType(e, false), {}));
        } else {
            fail("unknown node kind \"" + kind + "\"");
        }
        registerId(e, n.get());
        for (XmlElement const& c : e.getChildren()) {
            checkAttributes(c);
            std::string const what = c.getName();
            if (what == "Value")
                value(c, *n);
            else if (what == "Result")
                result(c, *n);
            else if (what == "DynamicInput" && kind == "tool")
                dynamicInput(c, *n);
            else if (what == "DynamicOutput" && kind == "tool")
                dynamicOutput(c, *n);
            else if (what == "Element" && kind == "tool")
                element(c, *n);
            else if (what == "Node" && kind == "group")
                child(static_cast<HoGroupNode&>(*n), node(c, depth + 1));
            else if (what == "Boundary" && kind == "group")
                boundary(c, static_cast<HoGroupNode&>(*n));
            else if (what == "Target" && kind == "link")
                target(c, static_cast<HoLinkNode&>(*n));
            else
                fail("unexpected element \"" + what + "\" in a " + kind + " node");
        }
        return n;
    }
    static void child(HoGroupNode& g, RCShdPtr<HoNode> const& c) { g.buildChild(c); }
    void value(XmlElement const& e, HoNode& n) {
        std::string const name = need(e, "name");
        if (name.empty())
            fail("a stored value without a name");
        long const type = number(e, "type", 0, 255);
        if (!PiValue::isKnownType(static_cast<int>(type)))
            fail("the stored value \"" + name + "\" has the unknown type " + std::to_string(type));
        std::string const text = e.getText();
        if (text.size() > kMaxText)
            fail("the stored value \"" + name + "\" is longer than " + std::to_string(kMaxText));
        RCShdPtr<PiValue> v = n.findValue(name);
        if (v && static_cast<long>(v->getType()) != type)
            fail("the stored value \"" + name + "\" has another type on its node");
        if (!v) {
            v = makeValue(&n, name, static_cast<PiValueType>(type));
            n.buildValue(v);
        } else if (_loadedValues.contains(v.get())) {
            fail("the stored value \"" + name + "\" is given twice");
        }
        _loadedValues.insert(v.get());
        try {
            valueState(*v).load(text);
        } catch (ExBase const& x) {
            fail("the stored value \"" + name + "\": " + x.getReason());
        }
    }
    static void result(XmlElement const& e, HoNode& n) {
        std::string const name = need(e, "output");
        long const state = number(e, "state", 0, 1);
        for (auto const& o : n.outputs())
            if (o->name() == name) {
                o->buildResultState(static_cast<int>(state));
                return;
            }
        fail("the node \"" + n.name() + "\" has no output \"" + name + "\"");
    }
    // A target that is not found leaves the link unresolved, keeping where it pointed.
    static void target(XmlElement const& e, HoLinkNode& l) {
        if (!l.unresolved().empty() || l.target())
            fail("the link \"" + l.name() + "\" has two targets");
        HoSocketRef ref;
        ref.graph = need(e, "graph");
        ref.socket = need(e, "socket");
        std::string const side = need(e, "side");
        if (side != "in" && side != "out")
            fail("the side of a link's target is \"" + side + "\", not \"in\" or \"out\"");
        ref.isInput = side == "in";
        for (XmlElement const& step : e.getChildren()) {
            checkAttributes(step);
            if (step.getName() != "Step" || ref.nodePath.size() >= kMaxDepth)
                fail("unexpected element \"" + step.getName() + "\" in a link's target");
            ref.nodePath.push_back(need(step, "name"));
        }
        if (ref.graph.empty() || ref.nodePath.empty())
            fail("the link \"" + l.name() + "\" has a target without a graph or a node");
        RCShdPtr<PiSocket> found = ref.resolve();
        if (found && found->getType().getType() == l.outputs()[0]->type().getType())
            l.buildTarget(found, {});
        else
            l.buildTarget({}, std::move(ref));
    }
    static void dynamicInput(XmlElement const& e, HoNode& n) {
        std::string const name = need(e, "name");
        checkName(name);
        PiSocketType const t = socketType(e, true);
        if (n.findInput(name, PiNode::ALL))
            fail("the node \"" + n.name() + "\" has the input \"" + name + "\" twice");
        n.buildInput(makeInput(&n, nullptr, name, t, PiSocket::DYNAMIC));
    }
    static void dynamicOutput(XmlElement const& e, HoNode& n) {
        std::string const name = need(e, "name");
        checkName(name);
        PiSocketType const t = socketType(e, false);
        if (n.findOutput(name, PiNode::ALL))
            fail("the node \"" + n.name() + "\" has the output \"" + name + "\" twice");
        n.buildOutput(RCShdPtr<HoOutput>(new HoOutput(&n, name, t, PiSocket::DYNAMIC)));
    }
    static void element(XmlElement const& e, HoNode& n) {
        std::string const listName = need(e, "input");
        std::string const name = need(e, "name");
        checkName(name);
        RCShdPtr<PiInput> list = n.findInput(listName, PiNode::ALL);
        if (!list || !(list->isComposite() || list->isMultivalued()))
            fail("the node \"" + n.name() + "\" has no list input \"" + listName + "\"");
        HoInput& l = hoInput(*list);
        for (auto const& x : l.elements())
            if (x->name() == name)
                fail("the input \"" + listName + "\" holds \"" + name + "\" twice");
        l.buildElement(makeElement(l, name));
    }
    void boundary(XmlElement const& e, HoGroupNode& g) {
        std::string const side = need(e, "side");
        if (side != "in" && side != "out")
            fail("a boundary side is \"" + side + "\"");
        bool const isInput = side == "in";
        std::string const socket = need(e, "socket");
        checkName(socket);
        PiSocketType const t = socketType(e, false);
        bool const isStatic = number(e, "static", 0, 1) == 1;
        auto const& bounds = isInput ? g.inBounds() : g.outBounds();
        HoBoundaryNode* b = nullptr;
        for (HoBoundaryNode* x : bounds)
            if (x->inputs()[0]->name() == socket)
                b = x;
        if (isStatic) {
            if (!b || b->kind() != PiSocket::STATIC ||
                b->inputs()[0]->type().getType() != t.getType())
                fail("the group \"" + g.name() + "\" has no static socket \"" + socket + "\"");
            if (_byNode.contains(b))
                fail("the socket \"" + socket + "\" is given twice");
        } else {
            if (b)
                fail("the group \"" + g.name() + "\" has the socket \"" + socket + "\" twice");
            RCShdPtr<HoBoundaryNode> nb(
                new HoBoundaryNode(&_g, socket, t, isInput, PiSocket::DYNAMIC));
            child(g, nb);
            g.buildBoundary(*nb);
            b = nb.get();
        }
        _byNode.insert(b);
        b->buildName(need(e, "name"));
        registerId(e, b);
        for (XmlElement const& c : e.getChildren()) {
            checkAttributes(c);
            if (c.getName() == "Value")
                value(c, *b);
            else if (c.getName() == "Result")
                result(c, *b);
            else
                fail("unexpected element \"" + c.getName() + "\" in a boundary");
        }
    }
    HoNode* byId(XmlElement const& e, char const* attr) {
        long const id = number(e, attr, 1, std::numeric_limits<int>::max());
        auto it = _byId.find(static_cast<int>(id));
        if (it == _byId.end())
            fail("a connection names the node id " + std::to_string(id) +
                 ", which no node before it has");
        return it->second;
    }
    void connection(XmlElement const& e) {
        checkAttributes(e);
        HoNode* inNode = byId(e, "inputNode");
        HoNode* outNode = byId(e, "outputNode");
        std::string const inName = need(e, "input");
        std::string const outName = need(e, "output");
        RCShdPtr<PiInput> pin = inNode->findInput(inName, PiNode::ALL);
        if (!pin)
            fail("the node \"" + inNode->name() + "\" has no input \"" + inName + "\"");
        RCShdPtr<PiOutput> pout = outNode->findOutput(outName, PiNode::ALL);
        if (!pout)
            fail("the node \"" + outNode->name() + "\" has no output \"" + outName + "\"");
        HoOutput* out = &hoOutput(*pout);
        HoInput& in = hoInput(*pin);
        // A group's sockets belong to its boundary nodes.
        inNode = in.node();
        outNode = out->node();
        if (!in.isLeaf())
            fail("the input \"" + inName + "\" holds sub-inputs and takes no connection");
        if (in.type().getType() != out->type().getType())
            fail("the output \"" + outName + "\" cannot feed \"" + inName + "\": types differ");
        if (_laterInputs.contains(&in))
            fail("the input \"" + inName + "\" of \"" + inNode->name() + "\" is fed twice");
        _edges.emplace_back(inNode, outNode);
        // Every connection is recorded once the nodes are in, in the archive's order.
        _later.emplace_back(&in, out);
        _laterInputs.insert(&in);
    }
    // Kahn's walk over the connected nodes, numbered as met, with each node's consumers in
    // one flat array.
    void checkAcyclic() {
        HoAddressMap<HoNode*, int> number(2 * _edges.size());
        std::vector<std::pair<int, int>> edges;
        edges.reserve(_edges.size());
        for (auto const& [in, out] : _edges) {
            int const o = *number.insert(out, static_cast<int>(number.size())).first;
            int const i = *number.insert(in, static_cast<int>(number.size())).first;
            edges.emplace_back(o, i);
        }
        std::size_t const n = number.size();
        std::vector<int> first(n + 1, 0);
        std::vector<int> pending(n, 0);
        for (auto const& [o, i] : edges) {
            ++first[static_cast<std::size_t>(o) + 1];
            ++pending[static_cast<std::size_t>(i)];
        }
        for (std::size_t k = 0; k < n; ++k)
            first[k + 1] += first[k];
        std::vector<int> next(edges.size());
        std::vector<int> fill(first.begin(), first.end() - 1);
        for (auto const& [o, i] : edges)
            next[static_cast<std::size_t>(fill[static_cast<std::size_t>(o)]++)] = i;
        std::vector<int> ready;
        for (std::size_t k = 0; k < n; ++k)
            if (pending[k] == 0)
                ready.push_back(static_cast<int>(k));
        std::size_t done = 0;
        while (!ready.empty()) {
            auto const k = static_cast<std::size_t>(ready.back());
            ready.pop_back();
            ++done;
            for (int j = first[k]; j < first[k + 1]; ++j)
                if (--pending[static_cast<std::size_t>(next[static_cast<std::size_t>(j)])] == 0)
                    ready.push_back(next[static_cast<std::size_t>(j)]);
        }
        if (done != n)
            fail("the connections form a cycle");
    }

    HoGraphImp& _g;
    std::vector<RCShdPtr<HoNode>> _tops;
    std::unordered_map<int, HoNode*> _byId;
    HoAddressSet<HoNode*> _byNode;
    HoAddressSet<PiValue*> _loadedValues;
    std::vector<std::pair<HoNode*, HoNode*>> _edges;
    std::vector<std::pair<HoInput*, HoOutput*>> _later;
    HoAddressSet<HoInput*> _laterInputs;
};

} // namespace

void HoGraphImp::archiveNodes(std::vector<RCShdPtr<PiNode>> const& nodes, XmlWriter& writer) const {
    std::vector<HoNode const*> list;
    HoAddressSet<HoNode const*> listed(nodes.size());
    list.reserve(nodes.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (i + 8 < nodes.size())
            prefetchNode(nodes[i + 8].get());
        HoNode const& n = hoNode(*nodes[i]);
        if (n.graphIfAny() != this || !n.isValid())
            VN_THROW_MSG(ExBase,
                         "the node \"" + n.name() + "\" is not in the graph \"" + _name + "\"");
        if (n.getNodeKind() != PiNode::BOUNDARY && listed.insert(&n))
            list.push_back(&n);
    }
    writer.openTag("Graph");
    writer.writeAttrib("version", "1");
    Writer w(writer);
    for (HoNode const* n : list) {
        bool inner = false;
        for (HoNode const* a = n->group(); a && !inner; a = a->group())
            inner = listed.contains(a);
        if (!inner)
            w.node(*n);
    }
    w.connections();
    writer.closeTag();
}

// A tool may have gained value inputs since its nodes were archived: they get value nodes, and
// their controllers reset them to their defaults once the nodes are loaded.
void HoGraphImp::feedInputsAddedSince(HoNode& top) {
    for (HoNode* n : subtree(top)) {
        if (n->getNodeKind() != PiNode::TOOL || !n->group())
            continue;
        std::vector<HoInput*> leaves;
        n->leafInputs(leaves);
        std::vector<RCShdPtr<PiInput>> added;
        for (HoInput* l : leaves)
            if (l->type().isValueType() && !l->source()) {
                HoEdit::feedValueNodes(*n->group(), *n, *l);
                added.emplace_back(l);
            }
        auto* tool = dynamic_cast<PiToolInterface*>(n->controller());
        if (tool && !added.empty())
            tool->setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>>::overValues(added));
    }
}

std::vector<RCShdPtr<PiNode>> HoGraphImp::unarchiveNodes(XmlElement const& graphElement,
                                                         RCShdPtr<PiGroupNode> const& group) {
    HoNode& gn = hoNode(*group);
    if (gn.getNodeKind() != PiNode::GROUP || gn.graphIfAny() != this)
        VN_THROW_MSG(ExBase, "nodes are read into a group of their graph");
    gn.requireValid("read nodes");
    if (graphElement.isNull())
        fail("no \"Graph\" element");
    Reader r(*this);
    r.read(graphElement);
    auto& g = static_cast<HoGroupNode&>(gn);
    PiUndoGuard guard(_stack, "Load Nodes");
    std::vector<RCShdPtr<PiNode>> result;
    for (auto const& n : r.tops()) {
        HoEdit::attachNode(g, n, true, false);
        result.emplace_back(n.get());
    }
    for (auto const& [in, out] : r.later())
        HoEdit::link(*in, *out);
    for (auto const& n : r.tops())
        feedInputsAddedSince(*n);
    for (auto const& n : r.tops())
        HoEdit::announceNode(g, n, true);
    return result;
}

} // namespace Vn

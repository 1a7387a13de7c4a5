#include "HoGraphImp.h"

#include "HoAddressMap.h"

#include "ExBase.h"

namespace Vn {

namespace {

// Copies nodes with everything inside them, out of any graph. The nodes to copy are listed
// first, a group's inside with it, and each copy takes its original's place in a second list:
// a copy is found by its original's position, and a socket's copy by its place on the node.
class Cloner {
public:
    // `src` lists every node to copy, a group before its inside, and `index` finds them in it.
    Cloner(HoGraphImp& g, std::vector<HoNode const*> src, HoIdIndex index,
           std::map<int, int>* idMap)
        : _g(g), _idMap(idMap), _src(std::move(src)), _index(std::move(index)), _dst(_src.size()) {
        _links.reserve(_src.size());
    }

    RCShdPtr<HoNode> copy(HoNode const& src) {
        RCShdPtr<HoNode> dst = make(src);
        int const at = _index.find(&src);
        _dst[static_cast<std::size_t>(at)] = dst.get();
        map(src, *dst);
        for (auto const& v : src.values()) {
            RCShdPtr<PiValue> nv = valueState(*v).copyFor(dst.get());
            map(*v, *nv);
            dst->buildValue(nv);
        }
        for (std::size_t i = 0; i < src.outputs().size(); ++i)
            dst->outputs()[i]->buildResultState(src.outputs()[i]->resultState());
        noteLinks(src, *dst, at);
        if (src.getNodeKind() == PiNode::GROUP)
            copyChildren(static_cast<HoGroupNode const&>(src), static_cast<HoGroupNode&>(*dst));
        return dst;
    }

    // Connections among the copies, to be recorded once the copies are in, so that their
    // controllers hear of each; in the order of the source list.
    std::vector<std::pair<HoInput*, HoOutput*>> connections() {
        auto const byPosition = [](Link const& a, Link const& b) {
            return a.at < b.at;
        };
        if (!std::is_sorted(_links.begin(), _links.end(), byPosition))
            std::stable_sort(_links.begin(), _links.end(), byPosition);
        std::vector<std::pair<HoInput*, HoOutput*>> result;
        result.reserve(_links.size());
        for (Link const& l : _links)
            result.emplace_back(l.in,
                                _dst[static_cast<std::size_t>(l.from)]->outputs()[l.slot].get());
        return result;
    }

    // The listed nodes with the inside of their groups.
    static std::vector<HoNode const*> all(HoGraphImp& g, std::vector<HoNode*> const& tops) {
        std::vector<HoNode const*> result;
        result.reserve(tops.size());
        for (HoNode* t : tops)
            if (t->getNodeKind() != PiNode::GROUP)
                result.push_back(t);
            else
                for (HoNode* m : g.subtree(*t))
                    result.push_back(m);
        return result;
    }

private:
    // A connection of the copy's input `in` to output `slot` of the node at `from`; noted
    // while the source node and the one feeding it are still in the cache.
    struct Link {
        int at;
        HoInput* in;
        int from;
        std::size_t slot;
    };

    void noteLinks(HoNode const& src, HoNode& dst, int at) {
        _from.clear();
        _to.clear();
        src.leafInputs(_from);
        dst.leafInputs(_to);
        for (std::size_t k = 0; k < _from.size(); ++k) {
            HoOutput const* out = _from[k]->source();
            int const i = out ? _index.find(out->node()) : -1;
            if (i < 0)
                continue;
            auto const& outs = _src[static_cast<std::size_t>(i)]->outputs();
            for (std::size_t slot = 0; slot < outs.size(); ++slot)
                if (outs[slot].get() == out) {
                    _links.push_back({at, _to[k], i, slot});
                    break;
                }
        }
    }

    void map(PiGraphObject const& a, PiGraphObject const& b) {
        if (_idMap)
            (*_idMap)[a.getId()] = b.getId();
    }
    void mapSockets(HoNode const& src, HoNode& dst) {
        if (!_idMap)
            return;
        for (std::size_t i = 0; i < src.inputs().size(); ++i)
            mapInput(*src.inputs()[i], *dst.inputs()[i]);
        for (std::size_t i = 0; i < src.outputs().size(); ++i)
            map(*src.outputs()[i], *dst.outputs()[i]);
    }
    void mapInput(HoInput const& a, HoInput& b) {
        map(a, b);
        for (std::size_t i = 0; i < a.elements().size(); ++i)
            mapInput(*a.elements()[i], *b.elements()[i]);
    }
    RCShdPtr<HoInput> copyInput(HoInput const& s, HoNode* node, HoInput* owner) {
        RCShdPtr<HoInput> in = makeInput(node, owner, s.name(), s.type(), s.kind());
        in->buildElementStructure(s.elementStructure());
        for (auto const& e : s.elements())
            in->buildElement(copyInput(*e, node, in.get()));
        return in;
    }
    RCShdPtr<HoNode> make(HoNode const& src) {
        RCShdPtr<HoNode> dst;
        switch (src.getNodeKind()) {
        case PiNode::TOOL: {
            auto const& t = static_cast<HoToolNode const&>(src);
            dst = RCShdPtr<HoNode>(new HoToolNode(&_g, src.name(), t.getTool()));
            dst->buildReserve(src.inputs().size(), src.outputs().size(), src.values().size());
            for (auto const& in : src.inputs())
                dst->buildInput(copyInput(*in, dst.get(), nullptr));
            for (auto const& o : src.outputs())
                dst->buildOutput(
                    RCShdPtr<HoOutput>(new HoOutput(dst.get(), o->name(), o->type(), o->kind())));
            break;
        }
        case PiNode::VALUE:
            dst = RCShdPtr<HoNode>(new HoValueNode(&_g, src.name(), src.inputs()[0]->type()));
            break;
        case PiNode::LINK: {
            auto const& l = static_cast<HoLinkNode const&>(src);
            auto link = RCShdPtr<HoLinkNode>(
                new HoLinkNode(&_g, src.name(), src.outputs()[0]->type(), l.target()));
            link->buildTarget(RCShdPtr<PiSocket>(l.target()), l.unresolved());
            dst = link;
            break;
        }
        case PiNode::BOUNDARY: {
            auto const& b = static_cast<HoBoundaryNode const&>(src);
            dst = RCShdPtr<HoNode>(new HoBoundaryNode(&_g, src.name(), src.inputs()[0]->type(),
                                                      b.isInput(), b.kind()));
            break;
        }
        case PiNode::GROUP:
            dst = RCShdPtr<HoNode>(
                new HoGroupNode(&_g, src.name(), static_cast<HoGroupNode const&>(src).getTool()));
            break;
        }
        mapSockets(src, *dst);
        return dst;
    }
    void copyChildren(HoGroupNode const& src, HoGroupNode& dst) {
        for (auto const& c : src.children())
            dst.buildChild(copy(*c));
        for (auto const* bounds : {&src.inBounds(), &src.outBounds()})
            for (HoBoundaryNode const* b : *bounds)
                dst.buildBoundary(
                    *static_cast<HoBoundaryNode*>(_dst[static_cast<std::size_t>(_index.find(b))]));
    }

    HoGraphImp& _g;
    std::map<int, int>* _idMap;
    std::vector<HoNode const*> _src;
    HoIdIndex _index;
    std::vector<HoNode*> _dst;
    std::vector<Link> _links;
    std::vector<HoInput*> _from;
    std::vector<HoInput*> _to;
};

} // namespace

std::vector<RCShdPtr<PiNode>> HoGroupNode::cloneNodes(std::vector<RCShdPtr<PiNode>> const& nodes,
                                                      std::map<int, int>* idMap) {
    requireValid("clone nodes");
    // One walk over the listed nodes reads all that is asked of them before the copy: on a
    // large graph each walk over cold nodes costs a cache miss per node.
    std::vector<HoNode*> listed;
    std::vector<int> ids;
    std::vector<HoNode const*> groups;
    listed.reserve(nodes.size());
    ids.reserve(nodes.size());
    groups.reserve(nodes.size());
    bool anyGroup = false;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (i + 8 < nodes.size())
            prefetchNode(nodes[i + 8].get());
        HoNode& n = hoNode(*nodes[i]);
        n.requireValid("clone a node");
        if (!n.group())
            VN_THROW_MSG(ExBase, "the root group is not cloned");
        NodeKind const kind = n.getNodeKind();
        if (kind == BOUNDARY)
            VN_THROW_MSG(ExBase, "the boundary node \"" + n.name() + "\" is not cloned alone");
        anyGroup = anyGroup || kind == GROUP;
        listed.push_back(&n);
        ids.push_back(n.getId());
        groups.push_back(n.group());
    }
    // A node inside a listed group comes with it; a node listed twice is copied once.
    HoIdIndex index(listed, ids);
    std::vector<HoNode*> tops;
    tops.reserve(listed.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
        bool inner = index.find(listed[i], ids[i]) != static_cast<int>(i);
        for (HoNode const* a = groups[i]; a && !inner; a = a->group())
            inner = index.contains(a);
        if (!inner)
            tops.push_back(listed[i]);
    }
    PiUndoGuard guard(_graph->stack(), "Clone");
    std::vector<HoNode const*> src;
    if (!anyGroup && tops.size() == listed.size()) {
        src.assign(listed.begin(), listed.end());
    } else {
        src = Cloner::all(*_graph, tops);
        index = HoIdIndex(src);
    }
    Cloner cloner(*_graph, std::move(src), std::move(index), idMap);
    // Every list of the copies is filled while each copy is in the cache: a later walk over
    // them all would miss on each to count its reference.
    std::vector<RCShdPtr<HoNode>> attached;
    std::vector<RCShdPtr<HoNode>> announced;
    std::vector<RCShdPtr<PiNode>> copies;
    attached.reserve(tops.size());
    announced.reserve(tops.size());
    copies.reserve(tops.size());
    for (std::size_t i = 0; i < tops.size(); ++i) {
        if (i + 4 < tops.size())
            prefetchNode(tops[i + 4]);
        RCShdPtr<HoNode> copy = cloner.copy(*tops[i]);
        copies.emplace_back(copy);
        announced.push_back(copy);
        attached.push_back(std::move(copy));
    }
    HoEdit::attachNodes(*this, std::move(attached));
    for (auto const& [in, out] : cloner.connections())
        HoEdit::link(*in, *out);
    HoEdit::announceNodes(*this, std::move(announced), true);
    return copies;
}

} // namespace Vn

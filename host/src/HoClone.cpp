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
    Cloner(HoGraphImp& g, std::vector<HoNode*> const& tops, std::map<int, int>* idMap)
        : _g(g), _idMap(idMap), _src(all(g, tops)), _index(_src), _dst(_src.size()) {}

    RCShdPtr<HoNode> copy(HoNode const& src) {
        RCShdPtr<HoNode> dst = make(src);
        _dst[static_cast<std::size_t>(_index.find(&src))] = dst.get();
        map(src, *dst);
        for (auto const& v : src.values()) {
            RCShdPtr<PiValue> nv = valueState(*v).copyFor(dst.get());
            map(*v, *nv);
            dst->buildValue(nv);
        }
        for (std::size_t i = 0; i < src.outputs().size(); ++i)
            dst->outputs()[i]->buildResultState(src.outputs()[i]->resultState());
        if (src.getNodeKind() == PiNode::GROUP)
            copyChildren(static_cast<HoGroupNode const&>(src), static_cast<HoGroupNode&>(*dst));
        return dst;
    }

    // Connections among the copies, to be recorded once the copies are in, so that their
    // controllers hear of each.
    std::vector<std::pair<HoInput*, HoOutput*>> connections() const {
        std::vector<std::pair<HoInput*, HoOutput*>> result;
        result.reserve(_src.size());
        std::vector<HoInput*> from;
        std::vector<HoInput*> to;
        for (std::size_t i = 0; i < _src.size(); ++i) {
            from.clear();
            to.clear();
            _src[i]->leafInputs(from);
            _dst[i]->leafInputs(to);
            for (std::size_t k = 0; k < from.size(); ++k)
                if (HoOutput* out = copyOf(from[k]->source()))
                    result.emplace_back(to[k], out);
        }
        return result;
    }

private:
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

    // The copy of an output of a copied node, else null.
    HoOutput* copyOf(HoOutput const* out) const {
        int const i = out ? _index.find(out->node()) : -1;
        if (i < 0)
            return nullptr;
        auto const& outs = _src[static_cast<std::size_t>(i)]->outputs();
        for (std::size_t k = 0; k < outs.size(); ++k)
            if (outs[k].get() == out)
                return _dst[static_cast<std::size_t>(i)]->outputs()[k].get();
        return nullptr;
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
};

} // namespace

std::vector<RCShdPtr<PiNode>> HoGroupNode::cloneNodes(std::vector<RCShdPtr<PiNode>> const& nodes,
                                                      std::map<int, int>* idMap) {
    requireValid("clone nodes");
    std::vector<HoNode*> listed;
    listed.reserve(nodes.size());
    for (auto const& p : nodes) {
        HoNode& n = hoNode(*p);
        n.requireValid("clone a node");
        if (!n.group())
            VN_THROW_MSG(ExBase, "the root group is not cloned");
        if (n.getNodeKind() == BOUNDARY)
            VN_THROW_MSG(ExBase, "the boundary node \"" + n.name() + "\" is not cloned alone");
        listed.push_back(&n);
    }
    // A node inside a listed group comes with it; a node listed twice is copied once.
    HoIdIndex const index(listed);
    std::vector<HoNode*> tops;
    for (std::size_t i = 0; i < listed.size(); ++i) {
        HoNode* n = listed[i];
        bool inner = index.find(n) != static_cast<int>(i);
        for (HoNode const* a = n->group(); a && !inner; a = a->group())
            inner = index.contains(a);
        if (!inner)
            tops.push_back(n);
    }
    PiUndoGuard guard(_graph->stack(), "Clone");
    Cloner cloner(*_graph, tops, idMap);
    std::vector<RCShdPtr<HoNode>> copies;
    copies.reserve(tops.size());
    for (HoNode* t : tops)
        copies.push_back(cloner.copy(*t));
    HoEdit::attachNodes(*this, copies);
    for (auto const& [in, out] : cloner.connections())
        HoEdit::link(*in, *out);
    HoEdit::announceNodes(*this, copies, true);
    return {copies.begin(), copies.end()};
}

} // namespace Vn

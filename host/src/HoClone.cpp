#include "HoGraphImp.h"

#include "HoAddressMap.h"

#include "ExBase.h"

namespace Vn {

namespace {

// Copies nodes with everything inside them, out of any graph, and remembers what became what.
class Cloner {
public:
    Cloner(HoGraphImp& g, std::map<int, int>* idMap) : _g(g), _idMap(idMap) {}

    RCShdPtr<HoNode> copy(HoNode const& src) {
        RCShdPtr<HoNode> dst = make(src);
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
    std::vector<std::pair<HoInput*, HoOutput*>> connections(std::vector<HoNode*> const& tops) {
        std::vector<std::pair<HoInput*, HoOutput*>> result;
        std::vector<HoInput*> leaves;
        auto visit = [&](HoNode* m) {
            leaves.clear();
            m->leafInputs(leaves);
            for (HoInput* l : leaves)
                if (HoOutput* const* o = l->source() ? _outputs.find(l->source()) : nullptr)
                    result.emplace_back(*_inputs.find(l), *o);
        };
        for (HoNode* t : tops)
            if (t->getNodeKind() != PiNode::GROUP)
                visit(t);
            else
                for (HoNode* m : t->graph().subtree(*t))
                    visit(m);
        return result;
    }

private:
    void map(PiGraphObject const& a, PiGraphObject const& b) {
        if (_idMap)
            (*_idMap)[a.getId()] = b.getId();
    }
    void mapSockets(HoNode const& src, HoNode& dst) {
        for (std::size_t i = 0; i < src.inputs().size(); ++i)
            mapInput(*src.inputs()[i], *dst.inputs()[i]);
        for (std::size_t i = 0; i < src.outputs().size(); ++i) {
            _outputs.insert(src.outputs()[i].get(), dst.outputs()[i].get());
            map(*src.outputs()[i], *dst.outputs()[i]);
        }
    }
    void mapInput(HoInput const& a, HoInput& b) {
        _inputs.insert(&a, &b);
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
        HoAddressMap<HoNode const*, HoNode*> made(src.children().size());
        for (auto const& c : src.children()) {
            RCShdPtr<HoNode> cc = copy(*c);
            made.insert(c.get(), cc.get());
            dst.buildChild(std::move(cc));
        }
        for (auto const* bounds : {&src.inBounds(), &src.outBounds()})
            for (HoBoundaryNode const* b : *bounds)
                dst.buildBoundary(*static_cast<HoBoundaryNode*>(*made.find(b)));
    }

    HoGraphImp& _g;
    std::map<int, int>* _idMap;
    HoAddressMap<HoInput const*, HoInput*> _inputs;
    HoAddressMap<HoOutput const*, HoOutput*> _outputs;
};

} // namespace

std::vector<RCShdPtr<PiNode>> HoGroupNode::cloneNodes(std::vector<RCShdPtr<PiNode>> const& nodes,
                                                      std::map<int, int>* idMap) {
    requireValid("clone nodes");
    std::vector<HoNode*> list;
    HoAddressSet<HoNode const*> listed(nodes.size());
    list.reserve(nodes.size());
    for (auto const& p : nodes) {
        HoNode& n = hoNode(*p);
        n.requireValid("clone a node");
        if (!n.group())
            VN_THROW_MSG(ExBase, "the root group is not cloned");
        if (n.getNodeKind() == BOUNDARY)
            VN_THROW_MSG(ExBase, "the boundary node \"" + n.name() + "\" is not cloned alone");
        if (listed.insert(&n))
            list.push_back(&n);
    }
    // A node inside a listed group comes with it.
    std::vector<HoNode*> tops;
    for (HoNode* n : list) {
        bool inner = false;
        for (HoNode const* a = n->group(); a && !inner; a = a->group())
            inner = listed.contains(a);
        if (!inner)
            tops.push_back(n);
    }
    PiUndoGuard guard(_graph->stack(), "Clone");
    Cloner cloner(*_graph, idMap);
    std::vector<RCShdPtr<HoNode>> copies;
    copies.reserve(tops.size());
    for (HoNode* t : tops)
        copies.push_back(cloner.copy(*t));
    std::vector<RCShdPtr<PiNode>> result;
    result.reserve(copies.size());
    for (auto const& c : copies) {
        HoEdit::attachNode(*this, c, true, false);
        result.emplace_back(c.get());
    }
    for (auto const& [in, out] : cloner.connections(tops))
        HoEdit::link(*in, *out);
    for (auto const& c : copies)
        HoEdit::announceNode(*this, c, true);
    return result;
}

} // namespace Vn

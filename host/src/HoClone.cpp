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
        for (auto const& v : src._values) {
            RCShdPtr<PiValue> nv = valueState(*v).copyFor(dst.get());
            map(*v, *nv);
            dst->_values.push_back(nv);
        }
        for (std::size_t i = 0; i < src._outputs.size(); ++i)
            dst->_outputs[i]->_resultState = src._outputs[i]->_resultState;
        if (src.getNodeKind() == PiNode::GROUP)
            copyChildren(static_cast<HoGroupNode const&>(src), static_cast<HoGroupNode&>(*dst));
        return dst;
    }

    // Connections among the copies, to be recorded once the copies are in, so that their
    // controllers hear of each.
    std::vector<std::pair<HoInput*, HoOutput*>> connections(std::vector<HoNode*> const& tops) {
        std::vector<std::pair<HoInput*, HoOutput*>> result;
        std::vector<HoInput*> leaves;
        for (HoNode* t : tops)
            for (HoNode* m : t->graph().subtree(*t)) {
                leaves.clear();
                m->leafInputs(leaves);
                for (HoInput* l : leaves) {
                    if (!l->_source)
                        continue;
                    if (HoOutput* const* o = _outputs.find(l->_source))
                        result.emplace_back(*_inputs.find(l), *o);
                }
            }
        return result;
    }

private:
    void map(PiGraphObject const& a, PiGraphObject const& b) {
        if (_idMap)
            (*_idMap)[a.getId()] = b.getId();
    }
    void mapSockets(HoNode const& src, HoNode& dst) {
        for (std::size_t i = 0; i < src._inputs.size(); ++i)
            mapInput(*src._inputs[i], *dst._inputs[i]);
        for (std::size_t i = 0; i < src._outputs.size(); ++i) {
            _outputs.insert(src._outputs[i].get(), dst._outputs[i].get());
            map(*src._outputs[i], *dst._outputs[i]);
        }
    }
    void mapInput(HoInput const& a, HoInput& b) {
        _inputs.insert(&a, &b);
        map(a, b);
        for (std::size_t i = 0; i < a._elements.size(); ++i)
            mapInput(*a._elements[i], *b._elements[i]);
    }
    RCShdPtr<HoInput> copyInput(HoInput const& s, HoNode* node, HoInput* owner) {
        RCShdPtr<HoInput> in = makeInput(node, owner, s._name, s._type, s._kind);
        in->_elementStructure = s._elementStructure;
        for (auto const& e : s._elements)
            in->_elements.push_back(copyInput(*e, node, in.get()));
        return in;
    }
    RCShdPtr<HoNode> make(HoNode const& src) {
        RCShdPtr<HoNode> dst;
        switch (src.getNodeKind()) {
        case PiNode::TOOL: {
            auto const& t = static_cast<HoToolNode const&>(src);
            dst = RCShdPtr<HoNode>(new HoToolNode(&_g, src._name, t._tool));
            for (auto const& in : src._inputs)
                dst->_inputs.push_back(copyInput(*in, dst.get(), nullptr));
            for (auto const& o : src._outputs)
                dst->_outputs.emplace_back(new HoOutput(dst.get(), o->_name, o->_type, o->_kind));
            break;
        }
        case PiNode::VALUE:
            dst = RCShdPtr<HoNode>(new HoValueNode(&_g, src._name, src._inputs[0]->_type));
            break;
        case PiNode::LINK: {
            auto const& l = static_cast<HoLinkNode const&>(src);
            auto link = RCShdPtr<HoLinkNode>(
                new HoLinkNode(&_g, src._name, src._outputs[0]->_type, l._target));
            link->_unresolved = l._unresolved;
            dst = link;
            break;
        }
        case PiNode::BOUNDARY: {
            auto const& b = static_cast<HoBoundaryNode const&>(src);
            dst = RCShdPtr<HoNode>(
                new HoBoundaryNode(&_g, src._name, src._inputs[0]->_type, b._isInput, b._kind));
            break;
        }
        case PiNode::GROUP:
            dst = RCShdPtr<HoNode>(
                new HoGroupNode(&_g, src._name, static_cast<HoGroupNode const&>(src)._tool));
            break;
        }
        mapSockets(src, *dst);
        return dst;
    }
    void copyChildren(HoGroupNode const& src, HoGroupNode& dst) {
        HoAddressMap<HoNode const*, HoNode*> made(src._children.size());
        for (auto const& c : src._children) {
            RCShdPtr<HoNode> cc = copy(*c);
            cc->_group = &dst;
            cc->_attached = true;
            made.insert(c.get(), cc.get());
            dst._children.push_back(cc);
        }
        for (HoBoundaryNode const* b : src._inBounds)
            dst._inBounds.push_back(static_cast<HoBoundaryNode*>(*made.find(b)));
        for (HoBoundaryNode const* b : src._outBounds)
            dst._outBounds.push_back(static_cast<HoBoundaryNode*>(*made.find(b)));
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
        if (!n._group)
            VN_THROW_MSG(ExBase, "the root group is not cloned");
        if (n.getNodeKind() == BOUNDARY)
            VN_THROW_MSG(ExBase, "the boundary node \"" + n._name + "\" is not cloned alone");
        if (listed.insert(&n))
            list.push_back(&n);
    }
    // A node inside a listed group comes with it.
    std::vector<HoNode*> tops;
    for (HoNode* n : list) {
        bool inner = false;
        for (HoNode const* a = n->_group; a && !inner; a = a->_group)
            inner = listed.contains(a);
        if (!inner)
            tops.push_back(n);
    }
    PiUndoGuard guard(_graph->_stack, "Clone");
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

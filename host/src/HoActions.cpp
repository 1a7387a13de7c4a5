#include "HoGraphImp.h"

#include "ExBase.h"
#include "PiGroupInterface.h"
#include "PiTopologyInterface.h"
#include "PiValueChangeInterface.h"

#include <algorithm>
#include <exception>
#include <unordered_set>

namespace Vn {

// Each action changes state in apply/revert and tells controllers in notifyApplied and
// notifyReverted; an edit, its undo and its redo go through the same code.

namespace {

void signal(HoNode* n, PiNodeEvent::Type type, HoInput* in, HoOutput* out, int index = 0) {
    if (!n || !n->controller())
        return;
    PiNodeEvent e;
    e.type = type;
    e.input = RCShdPtr<PiInput>(in);
    e.output = RCShdPtr<PiOutput>(out);
    e.index = index;
    PiNodeControllerManip::signalEvent(*n->controller(), e);
}

template <class List>
int indexIn(List const& v, void const* p) {
    for (std::size_t i = 0; i < v.size(); ++i)
        if (static_cast<void const*>(&*v[i]) == p)
            return static_cast<int>(i);
    return -1;
}

template <class List, class U>
void insertAt(List& v, int& index, U&& item) {
    if (index < 0 || index > static_cast<int>(v.size()))
        index = static_cast<int>(v.size());
    v.insert(v.begin() + index, std::forward<U>(item));
}

template <class List>
void eraseItem(List& v, int& index, void const* p) {
    if (index < 0 || index >= static_cast<int>(v.size()) ||
        static_cast<void const*>(&*v[static_cast<std::size_t>(index)]) != p)
        index = indexIn(v, p);
    VN_ASSERT(index >= 0);
    v.erase(v.begin() + index);
}

// Tells a node that entered a group, with everything inside it, and the group. A node that
// comes back (undo of its removal, redo of its creation) or arrives with stored values from
// elsewhere is loaded; only a node made by this edit is created.
void announceEntered(HoGroupNode& group, HoNode& node, bool loaded) {
    auto tell = [loaded](HoNode* n) {
        if (PiNodeController* c = n->controller())
            loaded ? PiNodeControllerManip::nodeLoaded(*c) : PiNodeControllerManip::nodeCreated(*c);
    };
    // Most nodes hold none: they are told without listing a subtree.
    if (node.getNodeKind() != PiNode::GROUP)
        tell(&node);
    else
        for (HoNode* n : node.graph().subtree(node))
            tell(n);
    if (PiGroupInterface* g = groupIf(&group))
        PiGroupInterfaceManip::nodeAdded(*g, RCShdPtr<PiNode>(&node));
}

} // namespace

void HoEdit::announceLeft(HoGroupNode& group, HoNode& node) {
    if (PiGroupInterface* g = groupIf(&group))
        PiGroupInterfaceManip::nodeRemovedFromGraph(*g, node.getId());
    std::vector<HoNode*> nodes = node.graph().subtree(node);
    for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) {
        if (PiNodeController* c = (*it)->controller())
            PiNodeControllerManip::nodeRemoved(*c);
        if ((*it)->_removed && !(*it)->_removed->isEmpty())
            (*it)->_removed->call(RCShdPtr<PiNode>(*it));
    }
}

// A node entering or leaving a group, with everything inside it. Without `announce` entering
// tells nothing: a NodeAnnounce tells it once the node's connections are made.
class HoEdit::NodeAttach final : public PiAction {
public:
    NodeAttach(RCShdPtr<HoGroupNode> group, RCShdPtr<HoNode> node, bool attach, bool loaded,
               bool announce)
        : _group(std::move(group)), _node(std::move(node)), _attach(attach), _loaded(loaded),
          _announce(announce) {}
    void apply() override { _attach ? in() : out(); }
    void revert() override { _attach ? out() : in(); }
    void notifyApplied() override { _attach ? entered() : left(); }
    void notifyReverted() override { _attach ? left() : entered(); }
    void prefetch() const noexcept override { prefetchNode(_node.get()); }

private:
    void in() {
        insertAt(_group->_children, _index, _node);
        _node->_group = _group.get();
        _node->_attached = true;
    }
    void out() {
        eraseItem(_group->_children, _index, _node.get());
        _node->_group = nullptr;
        _node->_attached = false;
    }
    void entered() {
        bool const again = _entries++ > 0 || !_attach;
        if (_announce)
            announceEntered(*_group, *_node, _loaded || again);
    }
    void left() { announceLeft(*_group, *_node); }
    RCShdPtr<HoGroupNode> _group;
    RCShdPtr<HoNode> _node;
    bool _attach;
    bool _loaded;
    bool _announce;
    int _entries = 0;
    int _index = -1;
};

// Tells of a node's entry once its connections are made: after them when an edit makes the
// node (`onApply`), and before them when an edit removes it, so that its undo tells of the
// node after restoring them.
class HoEdit::NodeAnnounce final : public PiAction {
public:
    NodeAnnounce(RCShdPtr<HoGroupNode> group, RCShdPtr<HoNode> node, bool loaded, bool onApply)
        : _group(std::move(group)), _node(std::move(node)), _loaded(loaded), _onApply(onApply) {}
    void apply() override {}
    void revert() override {}
    void notifyApplied() override {
        if (_onApply)
            announceEntered(*_group, *_node, _loaded || _entries++ > 0);
    }
    void notifyReverted() override {
        if (!_onApply)
            announceEntered(*_group, *_node, true);
    }
    void prefetch() const noexcept override { prefetchNode(_node.get()); }

private:
    RCShdPtr<HoGroupNode> _group;
    RCShdPtr<HoNode> _node;
    bool _loaded;
    bool _onApply;
    int _entries = 0;
};

// Made nodes entering one group together (a clone's copies), in one action and one block: each
// is put in as by NodeAttach without announcing, in order, and taken out and told it left in
// reverse order. A failing handler does not stop the others; the first failure is raised once
// all are out.
class HoEdit::NodesAttach final : public PiAction {
public:
    NodesAttach(RCShdPtr<HoGroupNode> group, std::vector<RCShdPtr<HoNode>> nodes)
        : _group(std::move(group)) {
        _items.reserve(nodes.size());
        for (auto& n : nodes)
            _items.push_back({std::move(n), -1});
    }
    void apply() override {
        _group->_children.reserve(_group->_children.size() + _items.size());
        for (std::size_t k = 0; k < _items.size(); ++k) {
            if (k + 8 < _items.size())
                prefetchNode(_items[k + 8].node.get());
            Item& i = _items[k];
            insertAt(_group->_children, i.index, i.node);
            i.node->_group = _group.get();
            i.node->_attached = true;
        }
    }
    void revert() override {
        _failure = nullptr;
        for (auto i = _items.rbegin(); i != _items.rend(); ++i) {
            if (_items.rend() - i > 8)
                prefetchNode(i[8].node.get());
            eraseItem(_group->_children, i->index, i->node.get());
            i->node->_group = nullptr;
            i->node->_attached = false;
            try {
                announceLeft(*_group, *i->node);
            } catch (...) {
                if (!_failure)
                    _failure = std::current_exception();
            }
        }
    }
    void notifyApplied() override {}
    void notifyReverted() override {
        if (std::exception_ptr f = std::exchange(_failure, nullptr))
            std::rethrow_exception(f);
    }

private:
    struct Item {
        RCShdPtr<HoNode> node;
        int index;
    };
    RCShdPtr<HoGroupNode> _group;
    std::vector<Item> _items;
    std::exception_ptr _failure;
};

// Tells of nodes' entry once their connections are made, as NodeAnnounce does for one, in
// order; a failing handler does not stop the others, and the first failure is raised at the
// end.
class HoEdit::NodesAnnounce final : public PiAction {
public:
    NodesAnnounce(RCShdPtr<HoGroupNode> group, std::vector<RCShdPtr<HoNode>> nodes, bool loaded)
        : _group(std::move(group)), _nodes(std::move(nodes)), _loaded(loaded) {}
    void apply() override {}
    void revert() override {}
    void notifyApplied() override {
        bool const loaded = _loaded || _entries++ > 0;
        std::exception_ptr failure;
        for (std::size_t i = 0; i < _nodes.size(); ++i) {
            if (i + 8 < _nodes.size())
                prefetchNode(_nodes[i + 8].get());
            try {
                announceEntered(*_group, *_nodes[i], loaded);
            } catch (...) {
                if (!failure)
                    failure = std::current_exception();
            }
        }
        if (failure)
            std::rethrow_exception(failure);
    }
    void notifyReverted() override {}

private:
    RCShdPtr<HoGroupNode> _group;
    std::vector<RCShdPtr<HoNode>> _nodes;
    bool _loaded;
    int _entries = 0;
};

class HoEdit::Link final : public PiAction {
public:
    Link(RCShdPtr<HoInput> in, RCShdPtr<HoOutput> out, bool connect)
        : _in(std::move(in)), _out(std::move(out)), _connect(connect) {}
    void apply() override { _connect ? join() : cut(); }
    void revert() override { _connect ? cut() : join(); }
    void notifyApplied() override { tell(_connect); }
    void notifyReverted() override { tell(!_connect); }
    void prefetch() const noexcept override {
        prefetchObject(_in.get(), sizeof(HoInput));
        prefetchObject(_out.get(), sizeof(HoOutput));
    }

private:
    void join() {
        _in->_source = _out.get();
        insertAt(_out->_targets, _index, _in.get());
    }
    void cut() {
        eraseItem(_out->_targets, _index, _in.get());
        _in->_source = nullptr;
    }
    void tell(bool connected) {
        RCShdPtr<PiInput> in(_in.get());
        RCShdPtr<PiOutput> out(_out.get());
        HoNode* inNode = _in->_node;
        HoNode* outNode = _out->_node;
        PiTopologyInterface* ti = topoIf(inNode);
        PiTopologyInterface* to = topoIf(outNode);
        PiGroupInterface* g = groupIf(wiringGroup(*_in));
        if (connected) {
            if (ti)
                PiTopologyInterfaceManip::inputConnected(*ti, in, out);
            if (to)
                PiTopologyInterfaceManip::outputConnected(*to, out, in);
            if (g)
                PiGroupInterfaceManip::socketsConnected(*g, in, out);
        } else {
            if (ti)
                PiTopologyInterfaceManip::inputDisconnected(*ti, in, out);
            if (to)
                PiTopologyInterfaceManip::outputDisconnected(*to, out, in);
            if (g)
                PiGroupInterfaceManip::socketsDisconnected(*g, in, out, RCShdPtr<PiNode>(inNode));
        }
        auto type = connected ? PiNodeEvent::SocketConnected : PiNodeEvent::SocketDisconnected;
        signal(inNode, type, _in.get(), _out.get());
        if (outNode != inNode)
            signal(outNode, type, _in.get(), _out.get());
    }
    RCShdPtr<HoInput> _in;
    RCShdPtr<HoOutput> _out;
    bool _connect;
    int _index = -1;
};

class HoEdit::Rename final : public PiAction {
public:
    Rename(RCShdPtr<HoNode> node, std::string name)
        : _node(std::move(node)), _old(_node->_name), _new(std::move(name)) {}
    void apply() override { _node->_name = _new; }
    void revert() override { _node->_name = _old; }
    void notifyApplied() override { tell(); }
    void notifyReverted() override { tell(); }

private:
    void tell() {
        if (PiNodeController* c = _node->controller())
            PiNodeControllerManip::nameChanged(*c);
        if (PiGroupInterface* g = groupIf(_node->_group))
            PiGroupInterfaceManip::internalNodeNameChanged(*g, RCShdPtr<PiNode>(_node.get()));
    }
    RCShdPtr<HoNode> _node;
    std::string _old, _new;
};

class HoEdit::ResultState final : public PiAction {
public:
    ResultState(RCShdPtr<HoOutput> out, int state)
        : _out(std::move(out)), _old(_out->_resultState), _new(state) {}
    void apply() override { _out->_resultState = _new; }
    void revert() override { _out->_resultState = _old; }
    void notifyApplied() override { tell(); }
    void notifyReverted() override { tell(); }

private:
    void tell() {
        if (PiTopologyInterface* t = topoIf(_out->_node))
            PiTopologyInterfaceManip::resultStateChanged(*t, RCShdPtr<PiOutput>(_out.get()));
        signal(_out->_node, PiNodeEvent::ResultStateChanged, nullptr, _out.get());
    }
    RCShdPtr<HoOutput> _out;
    int _old, _new;
};

namespace {

// A dynamic socket of a node that is not a group; what differs between inputs and outputs is
// the list that holds them and what is told.
void tellSocket(HoNode* node, HoInput& in, bool added) {
    RCShdPtr<PiInput> p(&in);
    PiTopologyInterface* t = topoIf(node);
    if (added) {
        if (t)
            PiTopologyInterfaceManip::dynamicInputAdded(*t, p);
        signal(node, PiNodeEvent::InputAdded, &in, nullptr, -1);
    } else {
        if (t)
            PiTopologyInterfaceManip::dynamicInputRemoved(*t, p, in.type().getCardinality());
        signal(node, PiNodeEvent::InputRemoved, &in, nullptr);
    }
}

void tellSocket(HoNode* node, HoOutput& out, bool added) {
    RCShdPtr<PiOutput> p(&out);
    if (PiTopologyInterface* t = topoIf(node)) {
        if (added)
            PiTopologyInterfaceManip::dynamicOutputAdded(*t, p);
        else
            PiTopologyInterfaceManip::dynamicOutputRemoved(*t, p);
    }
}

} // namespace

template <class Socket>
class HoEdit::SocketAttach final : public PiAction {
public:
    SocketAttach(RCShdPtr<HoNode> node, RCShdPtr<Socket> socket, bool attach)
        : _node(std::move(node)), _socket(std::move(socket)), _attach(attach) {}
    void apply() override { _attach ? put() : take(); }
    void revert() override { _attach ? take() : put(); }
    void notifyApplied() override { tellSocket(_node.get(), *_socket, _attach); }
    void notifyReverted() override { tellSocket(_node.get(), *_socket, !_attach); }

private:
    static auto& socketsOf(HoNode& n, HoInput*) { return n._inputs; }
    static auto& socketsOf(HoNode& n, HoOutput*) { return n._outputs; }
    void put() {
        insertAt(socketsOf(*_node, _socket.get()), _index, _socket);
        _socket->_attached = true;
    }
    void take() {
        eraseItem(socketsOf(*_node, _socket.get()), _index, _socket.get());
        _socket->_attached = false;
    }
    RCShdPtr<HoNode> _node;
    RCShdPtr<Socket> _socket;
    bool _attach;
    int _index = -1;
};

// A group socket: its boundary node enters or leaves the group.
class HoEdit::BoundaryAttach final : public PiAction {
public:
    BoundaryAttach(RCShdPtr<HoGroupNode> group, RCShdPtr<HoBoundaryNode> b, bool attach)
        : _group(std::move(group)), _b(std::move(b)), _attach(attach) {}
    void apply() override { _attach ? put() : take(); }
    void revert() override { _attach ? take() : put(); }
    void notifyApplied() override { tell(_attach); }
    void notifyReverted() override { tell(!_attach); }

private:
    std::vector<HoBoundaryNode*>& bounds() {
        return _b->isInput() ? _group->_inBounds : _group->_outBounds;
    }
    void put() {
        insertAt(_group->_children, _childIndex, RCShdPtr<HoNode>(_b.get()));
        insertAt(bounds(), _boundIndex, _b.get());
        _b->_group = _group.get();
        _b->_attached = true;
    }
    void take() {
        eraseItem(_group->_children, _childIndex, static_cast<HoNode*>(_b.get()));
        eraseItem(bounds(), _boundIndex, _b.get());
        _b->_group = nullptr;
        _b->_attached = false;
    }
    void tell(bool added) {
        PiGroupInterface* g = groupIf(_group.get());
        PiTopologyInterface* t = topoIf(_group.get());
        PiNodeController* bc = _b->controller();
        RCShdPtr<PiInput> in = _b->getInput();
        RCShdPtr<PiOutput> out = _b->getOutput();
        if (added) {
            if (bc && (_entries++ > 0 || !_attach))
                PiNodeControllerManip::nodeLoaded(*bc);
            else if (bc)
                PiNodeControllerManip::nodeCreated(*bc);
            if (g)
                PiGroupInterfaceManip::nodeAdded(*g, RCShdPtr<PiNode>(_b.get()));
            if (t && _b->isInput())
                PiTopologyInterfaceManip::dynamicInputAdded(*t, in);
            if (t && !_b->isInput())
                PiTopologyInterfaceManip::dynamicOutputAdded(*t, out);
            if (_b->isInput())
                signal(_group.get(), PiNodeEvent::InputAdded, _b->_inputs[0].get(), nullptr, -1);
        } else {
            if (t && _b->isInput())
                PiTopologyInterfaceManip::dynamicInputRemoved(*t, in, PiSocketType::SINGLE);
            if (t && !_b->isInput())
                PiTopologyInterfaceManip::dynamicOutputRemoved(*t, out);
            if (_b->isInput())
                signal(_group.get(), PiNodeEvent::InputRemoved, _b->_inputs[0].get(), nullptr);
            if (g)
                PiGroupInterfaceManip::nodeRemovedFromGraph(*g, _b->getId());
            if (bc)
                PiNodeControllerManip::nodeRemoved(*bc);
        }
    }
    RCShdPtr<HoGroupNode> _group;
    RCShdPtr<HoBoundaryNode> _b;
    bool _attach;
    int _entries = 0;
    int _childIndex = -1;
    int _boundIndex = -1;
};

// An element of a composite or multi-valued input.
class HoEdit::ElementAttach final : public PiAction {
public:
    ElementAttach(RCShdPtr<HoInput> list, RCShdPtr<HoInput> el, int index, bool attach)
        : _list(std::move(list)), _el(std::move(el)), _attach(attach), _index(index) {}
    void apply() override { _attach ? put() : take(); }
    void revert() override { _attach ? take() : put(); }
    void notifyApplied() override { tell(_attach); }
    void notifyReverted() override { tell(!_attach); }

private:
    void put() {
        insertAt(_list->editElements(), _index, _el);
        _el->_attached = true;
    }
    void take() {
        eraseItem(_list->editElements(), _index, _el.get());
        _el->_attached = false;
    }
    void tell(bool added) {
        HoNode* node = _list->_node;
        PiTopologyInterface* t = topoIf(node);
        RCShdPtr<PiInput> el(_el.get());
        auto* composite = dynamic_cast<PiCompositeInput*>(static_cast<PiInput*>(_list.get()));
        if (added) {
            if (t && composite)
                PiTopologyInterfaceManip::inputAddedToComposite(
                    *t, RCShdPtr<PiCompositeInput>(composite), el);
            else if (t)
                PiTopologyInterfaceManip::dynamicInputAdded(*t, el);
            signal(node, PiNodeEvent::InputAdded, _el.get(), nullptr, _index);
        } else {
            if (t && composite)
                PiTopologyInterfaceManip::inputRemovedFromComposite(
                    *t, RCShdPtr<PiCompositeInput>(composite), el);
            else if (t)
                PiTopologyInterfaceManip::dynamicInputRemoved(*t, el, PiSocketType::SINGLE);
            signal(node, PiNodeEvent::InputRemoved, _el.get(), nullptr, _index);
        }
    }
    RCShdPtr<HoInput> _list;
    RCShdPtr<HoInput> _el;
    bool _attach;
    int _index;
};

class HoEdit::ElementMove final : public PiAction {
public:
    ElementMove(RCShdPtr<HoInput> list, int from, int to)
        : _list(std::move(list)), _from(from), _to(to) {}
    void apply() override { move(_from, _to); }
    void revert() override { move(_to, _from); }
    void notifyApplied() override { tell(_from, _to); }
    void notifyReverted() override { tell(_to, _from); }

private:
    void move(int from, int to) {
        auto& v = _list->editElements();
        RCShdPtr<HoInput> el = v[static_cast<std::size_t>(from)];
        v.erase(v.begin() + from);
        v.insert(v.begin() + to, el);
    }
    void tell(int from, int to) {
        auto* composite = dynamic_cast<PiCompositeInput*>(static_cast<PiInput*>(_list.get()));
        if (PiTopologyInterface* t = topoIf(_list->_node); t && composite)
            PiTopologyInterfaceManip::inputMovedInComposite(
                *t, RCShdPtr<PiCompositeInput>(composite), from, to);
    }
    RCShdPtr<HoInput> _list;
    int _from, _to;
};

class HoEdit::ValueAttach final : public PiAction {
public:
    ValueAttach(RCShdPtr<HoNode> node, RCShdPtr<PiValue> v, bool attach)
        : _node(std::move(node)), _v(std::move(v)), _attach(attach) {}
    void apply() override { _attach ? put() : take(); }
    void revert() override { _attach ? take() : put(); }
    void notifyApplied() override { tell(_attach); }
    void notifyReverted() override { tell(!_attach); }

private:
    void put() {
        insertAt(_node->_values, _index, _v);
        valueState(*_v)._attached = true;
    }
    void take() {
        eraseItem(_node->_values, _index, _v.get());
        valueState(*_v)._attached = false;
    }
    void tell(bool added) {
        PiValueChangeInterface* c = _node->valueInterface();
        if (!c)
            return;
        if (added)
            PiValueChangeInterfaceManip::dynamicValueAdded(*c, _v);
        else
            PiValueChangeInterfaceManip::dynamicValueRemoved(*c, _v);
    }
    RCShdPtr<HoNode> _node;
    RCShdPtr<PiValue> _v;
    bool _attach;
    int _index = -1;
};

class HoEdit::NodeMove final : public PiAction {
public:
    NodeMove(RCShdPtr<HoNode> node, RCShdPtr<HoGroupNode> to)
        : _node(std::move(node)), _from(_node->_group), _to(std::move(to)) {}
    void apply() override { move(*_from, _fromIndex, *_to, _toIndex); }
    void revert() override { move(*_to, _toIndex, *_from, _fromIndex); }
    void notifyApplied() override { tell(_to.get()); }
    void notifyReverted() override { tell(_from.get()); }

private:
    void move(HoGroupNode& a, int& aIndex, HoGroupNode& b, int& bIndex) {
        eraseItem(a._children, aIndex, _node.get());
        insertAt(b._children, bIndex, _node);
        _node->_group = &b;
    }
    void tell(HoGroupNode* now) {
        if (PiGroupInterface* g = groupIf(now))
            PiGroupInterfaceManip::nodeMoved(*g, RCShdPtr<PiNode>(_node.get()));
    }
    RCShdPtr<HoNode> _node;
    RCShdPtr<HoGroupNode> _from, _to;
    int _fromIndex = -1, _toIndex = -1;
};

class HoEdit::SetTarget final : public PiAction {
public:
    SetTarget(RCShdPtr<HoLinkNode> link, RCShdPtr<PiSocket> target)
        : _link(std::move(link)), _old(_link->_target), _new(std::move(target)),
          _oldRef(_link->_unresolved) {}
    void apply() override {
        _link->_target = _new;
        _link->_unresolved = {};
    }
    void revert() override {
        _link->_target = _old;
        _link->_unresolved = _oldRef;
    }
    void notifyApplied() override { tell(); }
    void notifyReverted() override { tell(); }

private:
    void tell() {
        if (auto* t = dynamic_cast<PiLinkTopologyInterface*>(_link->controller()))
            PiLinkTopologyInterfaceManip::linkChanged(*t);
    }
    RCShdPtr<HoLinkNode> _link;
    RCShdPtr<PiSocket> _old, _new;
    HoSocketRef _oldRef;
};

// A dynamic socket's new name; a group's socket renames its boundary node with it.
class HoEdit::SocketRename final : public PiAction {
public:
    SocketRename(RCShdPtr<HoNode> owner, RCShdPtr<HoInput> in, RCShdPtr<HoOutput> out,
                 std::string name)
        : _owner(std::move(owner)), _in(std::move(in)), _out(std::move(out)),
          _old(_in ? _in->_name : _out->_name), _new(std::move(name)) {}
    void apply() override { set(_new); }
    void revert() override { set(_old); }
    void notifyApplied() override { tell(); }
    void notifyReverted() override { tell(); }

private:
    HoBoundaryNode* boundary() const {
        HoNode* n = _in ? _in->_node : _out->_node;
        return n && n->getNodeKind() == PiNode::BOUNDARY ? static_cast<HoBoundaryNode*>(n)
                                                         : nullptr;
    }
    void set(std::string const& name) {
        if (HoBoundaryNode* b = boundary()) {
            b->_name = name;
            b->_inputs[0]->_name = name;
            b->_outputs[0]->_name = name;
        } else if (_in) {
            _in->_name = name;
        } else {
            _out->_name = name;
        }
    }
    void tell() {
        if (PiTopologyInterface* t = topoIf(_owner.get())) {
            if (_in)
                PiTopologyInterfaceManip::dynamicInputRenamed(*t, RCShdPtr<PiInput>(_in.get()));
            else
                PiTopologyInterfaceManip::dynamicOutputRenamed(*t, RCShdPtr<PiOutput>(_out.get()));
        }
    }
    RCShdPtr<HoNode> _owner;
    RCShdPtr<HoInput> _in;
    RCShdPtr<HoOutput> _out;
    std::string _old, _new;
};

namespace {
HoGraphImp& graphOf(HoNode& n) {
    return n.graph();
}
} // namespace

void HoEdit::attachNode(HoGroupNode& group, RCShdPtr<HoNode> const& node, bool loaded,
                        bool announce) {
    graphOf(group).record(OPtr<PiAction>(
        new NodeAttach(RCShdPtr<HoGroupNode>(&group), node, true, loaded, announce)));
}

void HoEdit::announceNode(HoGroupNode& group, RCShdPtr<HoNode> const& node, bool loaded) {
    graphOf(group).record(
        OPtr<PiAction>(new NodeAnnounce(RCShdPtr<HoGroupNode>(&group), node, loaded, true)));
}

void HoEdit::attachNodes(HoGroupNode& group, std::vector<RCShdPtr<HoNode>> nodes) {
    if (!nodes.empty())
        graphOf(group).record(
            OPtr<PiAction>(new NodesAttach(RCShdPtr<HoGroupNode>(&group), std::move(nodes))));
}

void HoEdit::announceNodes(HoGroupNode& group, std::vector<RCShdPtr<HoNode>> nodes, bool loaded) {
    if (!nodes.empty())
        graphOf(group).record(OPtr<PiAction>(
            new NodesAnnounce(RCShdPtr<HoGroupNode>(&group), std::move(nodes), loaded)));
}

void HoEdit::removeNode(RCShdPtr<HoNode> const& node) {
    VN_ASSERT(node->_group);
    RCShdPtr<HoGroupNode> group(node->_group);
    HoGraphImp& g = graphOf(*node);
    g.record(OPtr<PiAction>(new NodeAnnounce(group, node, true, false)));
    std::vector<HoInput*> leaves;
    node->leafInputs(leaves);
    for (HoInput* l : leaves)
        removeFeedingValueNodes(*l, *node);
    cutAround(*node);
    g.record(OPtr<PiAction>(new NodeAttach(group, node, false, false, false)));
}

void HoEdit::moveNode(RCShdPtr<HoNode> const& node, HoGroupNode& to) {
    graphOf(to).record(OPtr<PiAction>(new NodeMove(node, RCShdPtr<HoGroupNode>(&to))));
}

void HoEdit::link(HoInput& in, HoOutput& out) {
    graphOf(*in._node).record(
        OPtr<PiAction>(new Link(RCShdPtr<HoInput>(&in), RCShdPtr<HoOutput>(&out), true)));
}

void HoEdit::unlink(HoInput& in) {
    VN_ASSERT(in._source);
    graphOf(*in._node).record(
        OPtr<PiAction>(new Link(RCShdPtr<HoInput>(&in), RCShdPtr<HoOutput>(in._source), false)));
}

void HoEdit::rename(HoNode& node, std::string const& name) {
    graphOf(node).record(OPtr<PiAction>(new Rename(RCShdPtr<HoNode>(&node), name)));
}

void HoEdit::setResultState(HoOutput& out, int state) {
    graphOf(*out._node).record(OPtr<PiAction>(new ResultState(RCShdPtr<HoOutput>(&out), state)));
}

template <class Socket>
void HoEdit::attachSocket(HoNode& node, RCShdPtr<Socket> const& socket) {
    graphOf(node).record(
        OPtr<PiAction>(new SocketAttach<Socket>(RCShdPtr<HoNode>(&node), socket, true)));
}

template <class Socket>
void HoEdit::detachSocket(HoNode& node, RCShdPtr<Socket> const& socket) {
    graphOf(node).record(
        OPtr<PiAction>(new SocketAttach<Socket>(RCShdPtr<HoNode>(&node), socket, false)));
}

template void HoEdit::attachSocket(HoNode&, RCShdPtr<HoInput> const&);
template void HoEdit::attachSocket(HoNode&, RCShdPtr<HoOutput> const&);
template void HoEdit::detachSocket(HoNode&, RCShdPtr<HoInput> const&);
template void HoEdit::detachSocket(HoNode&, RCShdPtr<HoOutput> const&);

void HoEdit::attachBoundary(HoGroupNode& group, RCShdPtr<HoBoundaryNode> const& b) {
    graphOf(group).record(
        OPtr<PiAction>(new BoundaryAttach(RCShdPtr<HoGroupNode>(&group), b, true)));
}

void HoEdit::detachBoundary(HoGroupNode& group, HoBoundaryNode& b) {
    graphOf(group).record(OPtr<PiAction>(
        new BoundaryAttach(RCShdPtr<HoGroupNode>(&group), RCShdPtr<HoBoundaryNode>(&b), false)));
}

void HoEdit::attachElement(HoInput& list, RCShdPtr<HoInput> const& el, int index) {
    graphOf(*list._node)
        .record(OPtr<PiAction>(new ElementAttach(RCShdPtr<HoInput>(&list), el, index, true)));
}

void HoEdit::detachElement(HoInput& list, HoInput& el) {
    int const index = indexIn(list.elements(), &el);
    VN_ASSERT(index >= 0);
    graphOf(*list._node)
        .record(OPtr<PiAction>(
            new ElementAttach(RCShdPtr<HoInput>(&list), RCShdPtr<HoInput>(&el), index, false)));
}

void HoEdit::moveElement(HoInput& list, int from, int to) {
    graphOf(*list._node)
        .record(OPtr<PiAction>(new ElementMove(RCShdPtr<HoInput>(&list), from, to)));
}

void HoEdit::attachValue(HoNode& node, RCShdPtr<PiValue> const& v) {
    graphOf(node).record(OPtr<PiAction>(new ValueAttach(RCShdPtr<HoNode>(&node), v, true)));
}

void HoEdit::detachValue(HoNode& node, PiValue& v) {
    graphOf(node).record(
        OPtr<PiAction>(new ValueAttach(RCShdPtr<HoNode>(&node), RCShdPtr<PiValue>(&v), false)));
}

void HoEdit::renameSocket(HoNode& owner, HoInput* in, HoOutput* out, std::string const& name) {
    VN_ASSERT((in == nullptr) != (out == nullptr));
    graphOf(owner).record(OPtr<PiAction>(new SocketRename(
        RCShdPtr<HoNode>(&owner), RCShdPtr<HoInput>(in), RCShdPtr<HoOutput>(out), name)));
}

void HoEdit::setTarget(HoLinkNode& link, RCShdPtr<PiSocket> const& target) {
    graphOf(link).record(OPtr<PiAction>(new SetTarget(RCShdPtr<HoLinkNode>(&link), target)));
}

void HoEdit::cutAround(HoNode& node) {
    std::vector<HoNode*> nodes = graphOf(node).subtree(node);
    std::unordered_set<HoNode const*> inside(nodes.begin(), nodes.end());
    std::vector<HoInput*> leaves;
    for (HoNode* n : nodes) {
        leaves.clear();
        n->leafInputs(leaves);
        for (HoInput* l : leaves)
            if (l->_source && !inside.count(l->_source->_node))
                unlink(*l);
        for (auto const& o : n->_outputs) {
            std::vector<HoInput*> targets(o->_targets.begin(), o->_targets.end());
            for (HoInput* t : targets)
                if (!inside.count(t->_node))
                    unlink(*t);
        }
    }
}

void HoEdit::removeFeedingValueNodes(HoInput& in, HoNode& consumer) {
    HoOutput* src = in._source;
    if (!src)
        return;
    HoNode* v = src->_node;
    bool const onlyHere = v->getNodeKind() == PiNode::VALUE && v->_group &&
                          std::all_of(src->_targets.begin(), src->_targets.end(), [&](HoInput* t) {
                              return t->_node == &consumer && t == &in;
                          });
    unlink(in);
    if (onlyHere)
        removeNode(RCShdPtr<HoNode>(v));
}

void HoEdit::feedValueNodes(HoGroupNode& group, HoNode& node, HoInput& in) {
    if (node.getNodeKind() != PiNode::TOOL)
        return;
    std::vector<HoInput*> leaves;
    in.collectLeaves(leaves);
    for (HoInput* l : leaves) {
        if (!l->_type.isValueType() || l->_source)
            continue;
        RCShdPtr<HoValueNode> v =
            buildValueNode(graphOf(group), node._name + "." + l->getDottedName(), l->_type);
        attachNode(group, v);
        link(*l, *v->_outputs[0]);
    }
}

std::vector<HoNode*> HoGraphImp::subtree(HoNode& top) const {
    std::vector<HoNode*> result{&top};
    for (std::size_t i = 0; i < result.size(); ++i)
        if (result[i]->getNodeKind() == PiNode::GROUP)
            for (auto const& c : static_cast<HoGroupNode*>(result[i])->children())
                result.push_back(c.get());
    return result;
}

} // namespace Vn

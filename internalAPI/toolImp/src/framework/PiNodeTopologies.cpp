#include "PiNodeTopologies.h"

#include "Assertions.h"
#include "PiGraph.h"
#include "PiGroupTopology.h"
#include "PiNode.h"
#include "PiProcNodeFactory.h"
#include "PiToolTopologyInterfaceImp.h"
#include "PiTopologyInterface.h"
#include "PiValue.h"
#include "PiValueChangeInterface.h"
#include "PiValueTopologyInterface.h"
#include "PxPassThroughProtocol.h"
#include "PxValueNode.h"

#include <string>

namespace Vn {

namespace {

using Node = PiTopologyInterface::Imp::Node;
using WeakNode = PiTopologyInterface::Imp::WeakNode;

// The processing side of a value node: one pass-through facing its consumers, over the
// controller's processing node, or over what drives the node's input while it is connected.
class ValueImp final : public PiTopologyInterface::Imp {
public:
    explicit ValueImp(PiValueTopologyInterface& owner) : _owner(owner) {}
    ~ValueImp() noexcept override {}

    WeakNode getInputProcNode(std::string const&) override { return face(); }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const&) override { return face(); }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const&) override { return face(); }
    void createProcNodes() override {
        if (_created)
            return;
        RCShdPtr<PiValueNode> node = rcDynamicCast<PiValueNode>(_owner.getNode());
        if (!node)
            return;
        PiDeferredInvalidation::Scope deferred;
        _created = true;
        PiSocketType const type = node->getOutput()->getType();
        // Faces first: consumers that come back here during the build find the face.
        Node const face = PiProcNodeFactory::createPassThroughNode(
            type, PiProcNodeFactory::createGeneratorNode(type));
        _node = asPassThrough(face);
        RCShdPtr<PiInput> const in = node->getInput();
        Node const source =
            in->isConnected() ? sourceOf(in) : (_valueNode = _owner.createValueProcNode());
        setChild(_node, source);
    }
    void forceCreateProcNodes() override { createProcNodes(); }
    bool isRecreateProcNodesDisabled() const override { return false; }
    Node createInputProcNode(RCShdPtr<PiInput> const&, Node const& child) override { return child; }
    Node createOutputProcNode(RCShdPtr<PiOutput> const&, Node const& child) override {
        return child;
    }
    void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const&) override {
        if (!_created)
            return; // the first build sees the connection
        _valueNode = {};
        setChild(_node, sourceOf(in));
    }
    void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const&) override {
        if (!in->retrieveNode()->isSame(*_owner.getNode()))
            Assertions::throwAssertionFailed(
                __FILE__, __LINE__, "in->retrieveNode()->isSame( *( _interface.getNode() ) )");
        if (!_created)
            return;
        // Straight to a fresh value node: no reader sees the type's null value in between.
        _valueNode = _owner.createValueProcNode();
        setChild(_node, _valueNode);
    }
    void resultStateChanged(RCShdPtr<PiOutput> const&) override {}

    // The controller's processing node while it drives the value; null otherwise.
    Node const& getValueNode() const noexcept { return _valueNode; }

private:
    WeakNode face() {
        createProcNodes();
        if (_node.isNull())
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "!_node.isNull()");
        return WeakNode(Node(_node));
    }
    static PxStrongHndl<PxPassThroughProtocol> asPassThrough(Node const& n) {
        auto const* p = dynamic_cast<PxPassThroughProtocol const*>(n.get());
        VN_ASSERT(p);
        return PxStrongHndl<PxPassThroughProtocol>(const_cast<PxPassThroughProtocol*>(p));
    }
    static void setChild(PxStrongHndl<PxPassThroughProtocol> const& node, Node const& child) {
        PxMutationRequest::submit(new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(node),
                                                        PxUPtr<PxNode const>(child)));
    }
    static Node sourceOf(RCShdPtr<PiInput> const& in) {
        RCShdPtr<PiOutput> out = in->getConnectedOutput();
        auto topo =
            out ? rcDynamicCast<PiTopologyInterface>(out->retrieveNode()->getController().lock())
                : RCShdPtr<PiTopologyInterface>();
        Node n = topo ? topo->getOutputProcNode(out).lock() : Node();
        return n ? n : PiProcNodeFactory::createGeneratorNode(in->getType());
    }

    PiValueTopologyInterface& _owner;
    PxStrongHndl<PxPassThroughProtocol> _node;
    Node _valueNode;
    bool _created = false;
};

// A value node's controller until values animate: its processing node holds the stored value
// and follows every edit of it (undo and redo too). Time values do not animate.
template <class T>
class ValueController final : public PiValueTopologyInterface, public PiValueChangeInterface {
public:
    using ProcNode =
        std::conditional_t<std::is_same_v<T, DtTime>, PxValueNode<T>, PxAnimValueNode<T>>;
    using SetRequest = std::conditional_t<std::is_same_v<T, DtTime>, PxValueSetRequest<T>,
                                          PxAnimValueSetRequest<T>>;

    ValueController() : _imp(*this) {}
    ~ValueController() noexcept override {}
    Imp* getImp() override { return &_imp; }
    PxStrongHndl<PxNode const> createValueProcNode() override {
        PxStrongHndl<ProcNode> n(new ProcNode(PxNode::Init{"ValueNode"}, PxResult<T>(current())));
        PxNode::init(PxStrongHndl<PxNode>(n));
        return PxStrongHndl<PxNode const>(n);
    }

private:
    void valueChanged(RCShdPtr<PiValue> const& value) override {
        auto const* node = dynamic_cast<ProcNode const*>(_imp.getValueNode().get());
        if (!node || value->getName() != PiValueNode::VALUE_NAME)
            return;
        if (auto typed = rcDynamicCast<PiTypedValue<T>>(value))
            PxMutationRequest::submit(new SetRequest(
                PxUPtr<ProcNode>(PxStrongHndl<ProcNode>(const_cast<ProcNode*>(node))),
                PxResult<T>(typed->get())));
    }
    T current() const {
        RCShdPtr<PiNode> node = getNode();
        auto value = node ? rcDynamicCast<PiTypedValue<T>>(node->findValue(PiValueNode::VALUE_NAME))
                          : RCShdPtr<PiTypedValue<T>>();
        return value ? value->get() : T();
    }

    ValueImp _imp;
};

// The processing side of a link node: one pass-through over the target socket's node in the
// linked graph, over a generator while that graph is closed or the link has no target.
class LinkImp final : public PiTopologyInterface::Imp {
public:
    explicit LinkImp(PiNodeController& owner) : _owner(owner), _close(*this), _refresh(*this) {}
    ~LinkImp() noexcept override { detach(); }

    WeakNode getInputProcNode(std::string const&) override { noInputs(); }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const&) override { noInputs(); }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const& out) override {
        if (!PiGraphObject::areEqual(out->retrieveNode(), _owner.getNode()))
            Assertions::throwAssertionFailed(
                __FILE__, __LINE__,
                "PiGraphObject::areEqual( out->retrieveNode(), _interface.getNode() )");
        createProcNodes();
        if (_node.isNull())
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "!_node.isNull()");
        return WeakNode(Node(_node));
    }
    void createProcNodes() override {
        if (_created)
            return;
        RCShdPtr<PiLinkNode> link = linkNode();
        if (!link)
            return;
        PiDeferredInvalidation::Scope deferred;
        _created = true;
        PiSocketType const type = link->getOutput()->getType();
        Node const face = PiProcNodeFactory::createPassThroughNode(
            type, PiProcNodeFactory::createGeneratorNode(type));
        _node = asPassThrough(face);
        try {
            attach(link);
            if (Node source = targetSource(link))
                setChild(_node, source);
        } catch (...) {
            _created = false;
            throw;
        }
    }
    void forceCreateProcNodes() override { createProcNodes(); }
    bool isRecreateProcNodesDisabled() const override { return false; }
    Node createInputProcNode(RCShdPtr<PiInput> const&, Node const& child) override { return child; }
    Node createOutputProcNode(RCShdPtr<PiOutput> const&, Node const& child) override {
        return child;
    }
    void inputConnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) override {}
    void inputDisconnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) override {}
    void resultStateChanged(RCShdPtr<PiOutput> const&) override {}

    void linkChanged() {
        if (_node.isNull()) {
            createProcNodes();
            if (_node.isNull())
                Assertions::throwAssertionFailed(__FILE__, __LINE__, "!_node.isNull()");
            PiDeferredInvalidation::invalidate(Node(_node), PxValidityInterval::FULL);
            return;
        }
        closed();
        detach();
        RCShdPtr<PiLinkNode> link = linkNode();
        attach(link);
        if (Node source = targetSource(link))
            setChild(_node, source);
    }

private:
    struct CloseHandler final : CbHandler<PiGraphEvent> {
        explicit CloseHandler(LinkImp& imp) : _imp(imp) {}
        void execute(PiGraphEvent const& e) override {
            if (e.type == PiGraphEvent::CloseGraph)
                _imp.closed();
        }
        LinkImp& _imp;
    };
    struct RefreshHandler final : CbHandler<PiGraphEvent> {
        explicit RefreshHandler(LinkImp& imp) : _imp(imp) {}
        void execute(PiGraphEvent const& e) override {
            if (e.type == PiGraphEvent::GraphRefreshed)
                _imp.refreshed();
        }
        LinkImp& _imp;
    };

    [[noreturn]] static void noInputs() {
        Assertions::throwProgramAborted(
            __FILE__, __LINE__,
            "Link nodes don't have inputs: calling getInputProcNode is an error.");
    }
    RCShdPtr<PiLinkNode> linkNode() const { return rcDynamicCast<PiLinkNode>(_owner.getNode()); }
    // Listens to the linked graph and holds it open.
    void attach(RCShdPtr<PiLinkNode> const& link) {
        RCShdPtr<PiGraph> graph = link ? link->getLinkedGraph() : RCShdPtr<PiGraph>();
        if (!graph)
            return;
        _graph = graph;
        graph->addCallback(&_close);
        graph->addCallback(&_refresh);
        if (graph->isValid())
            _guard = graph->open();
    }
    void detach() {
        if (_graph) {
            _graph->removeCallback(&_close);
            _graph->removeCallback(&_refresh);
        }
        _graph = {};
        _guard = {};
    }
    // The target socket's node in the linked graph; null without a valid target.
    Node targetSource(RCShdPtr<PiLinkNode> const& link) const {
        RCShdPtr<PiSocket> target = link ? link->getTargetSocket() : RCShdPtr<PiSocket>();
        if (!target || !_graph || !_graph->isValid())
            return {};
        auto topo =
            rcDynamicCast<PiTopologyInterface>(target->retrieveNode()->getController().lock());
        if (!topo)
            return {};
        if (auto in = rcDynamicCast<PiInput>(target))
            return topo->getInputProcNode(in).lock();
        return topo->getOutputProcNode(rcDynamicCast<PiOutput>(target)).lock();
    }
    void closed() {
        if (_node.isNull())
            return;
        RCShdPtr<PiLinkNode> link = linkNode();
        PiSocketType const type = link ? link->getOutput()->getType() : PiSocketType();
        setChild(_node, PiProcNodeFactory::createGeneratorNode(type));
        _guard = {};
    }
    void refreshed() {
        // A refresh without a close before it is tolerated.
        if (_graph && _graph->isValid() && !_guard)
            _guard = _graph->open();
        if (_node.isNull())
            return;
        if (Node source = targetSource(linkNode()))
            setChild(_node, source);
    }
    static PxStrongHndl<PxPassThroughProtocol> asPassThrough(Node const& n) {
        auto const* p = dynamic_cast<PxPassThroughProtocol const*>(n.get());
        VN_ASSERT(p);
        return PxStrongHndl<PxPassThroughProtocol>(const_cast<PxPassThroughProtocol*>(p));
    }
    static void setChild(PxStrongHndl<PxPassThroughProtocol> const& node, Node const& child) {
        PxMutationRequest::submit(new PxSetChildRequest(PxUPtr<PxPassThroughProtocol>(node),
                                                        PxUPtr<PxNode const>(child)));
    }

    PiNodeController& _owner;
    PxStrongHndl<PxPassThroughProtocol> _node;
    RCShdPtr<PiGraph> _graph;
    RCShdPtr<PiGraphOpenGuard> _guard;
    CloseHandler _close;
    RefreshHandler _refresh;
    bool _created = false;
};

class LinkController final : public PiLinkTopologyInterface {
public:
    LinkController() : _imp(*this) {}
    ~LinkController() noexcept override {}
    Imp* getImp() override { return &_imp; }

private:
    void linkChanged() override { _imp.linkChanged(); }
    LinkImp _imp;
};

// The controllers of the nodes no tool describes, with their processing sides.
class Factory final : public PiNodeControllerFactory {
public:
    RCShdPtr<PiNodeController> createGroupController(PiTool const* tool) override {
        return PiGroupTopology::createGroupController(tool);
    }
    RCShdPtr<PiNodeController> createBoundaryController() override {
        return PiGroupTopology::createBoundaryController();
    }
    RCShdPtr<PiNodeController> createLinkController() override {
        return RCShdPtr<PiNodeController>(new LinkController);
    }
    RCShdPtr<PiNodeController> createValueController(PiSocketType type) override {
        RCShdPtr<PiNodeController> c = PiNodeTopologies::createController(type);
        return c ? c : PiNodeControllerFactory::createValueController(type);
    }
};

} // namespace

RCShdPtr<PiNodeController> PiNodeTopologies::createController(PiSocketType type) {
    switch (type.getType()) {
    case PiSocketType::BOOL:
        return RCShdPtr<PiNodeController>(new ValueController<bool>);
    case PiSocketType::DOUBLE:
        return RCShdPtr<PiNodeController>(new ValueController<double>);
    case PiSocketType::INT:
        return RCShdPtr<PiNodeController>(new ValueController<int>);
    case PiSocketType::STRING:
        return RCShdPtr<PiNodeController>(new ValueController<std::string>);
    case PiSocketType::TIME:
        return RCShdPtr<PiNodeController>(new ValueController<DtTime>);
    default:
        return {};
    }
}

void PiNodeTopologies::initialize() {
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new Factory));
}

void PiNodeTopologies::finalize() {
    PiNodeControllerFactory::setInstance(nullptr);
}

} // namespace Vn

#include "PiGroupTopology.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiGroupInterface.h"
#include "PiGroupTopologyInterface.h"
#include "PiNode.h"
#include "PiProcNodeFactory.h"
#include "PiToolInterface.h"
#include "PiToolTopologyInterfaceImp.h"
#include "PiTopologyUtil.h"
#include "PxPassThroughProtocol.h"
#include "PxResultProtocol.h"

#include <map>
#include <string>
#include <vector>

namespace Vn {

namespace {

using Node = PiTopologyInterface::Imp::Node;
using WeakNode = PiTopologyInterface::Imp::WeakNode;

[[noreturn]] void violated(char const* file, int line, char const* text) {
    Assertions::throwAssertionFailed(file, line, text);
}

template <class T>
RCShdPtr<T> controllerAs(RCShdPtr<PiNode> const& node) {
    return node ? rcDynamicCast<T>(node->getController().lock()) : RCShdPtr<T>();
}

using PiTopologyUtil::asPassThrough;
using PiTopologyUtil::setChild;
using PiTopologyUtil::sourceOf;

// ---- boundary ----

class BoundaryImp final : public PiTopologyInterface::Imp {
public:
    using NodeMap = std::map<int, PxStrongHndl<PxPassThroughProtocol>>;
    explicit BoundaryImp(PiNodeController& owner) : _owner(owner) {}
    ~BoundaryImp() noexcept override {}

    WeakNode getInputProcNode(std::string const& name) override {
        RCShdPtr<PiNode> node = _owner.getNode();
        RCShdPtr<PiInput> in = node ? node->findInput(name) : RCShdPtr<PiInput>();
        if (!in)
            VN_THROW_MSG(ExBase, "the boundary has no input \"" + name + "\"");
        return getInputProcNode(in);
    }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const& in) override {
        if (!in->retrieveNode()->isSame(*_owner.getNode()))
            violated(__FILE__, __LINE__, "in->retrieveNode()->isSame( *( _interface.getNode() ) )");
        createProcNodes();
        auto it = _nodes.find(in->getId());
        if (!((it != _nodes.end()) && (!it->second.isNull())))
            violated(__FILE__, __LINE__, "( it != _nodes.end() ) && ( !it->second.isNull() )");
        return WeakNode(Node(it->second));
    }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const& out) override {
        RCShdPtr<PiNode> node = _owner.getNode();
        if (!out->retrieveNode()->isSame(*node))
            violated(__FILE__, __LINE__, "out->retrieveNode()->isSame( *node )");
        createProcNodes();
        auto outIt = _nodes.find(out->getId());
        if (outIt != _nodes.end()) {
            if (outIt->second.isNull())
                violated(__FILE__, __LINE__, "!outIt->second.isNull()");
            return WeakNode(Node(outIt->second));
        }
        // An input boundary's inner output is its outer input's node.
        auto boundary = rcDynamicCast<PiBoundaryNode>(node);
        auto inIt = _nodes.find(boundary->getInput()->getId());
        if (!(inIt != _nodes.end() && !inIt->second.isNull()))
            violated(__FILE__, __LINE__, "inIt != _nodes.end() && !inIt->second.isNull()");
        return WeakNode(Node(inIt->second));
    }
    void createProcNodes() override {
        if (!_nodes.empty() || _building)
            return;
        RCShdPtr<PiNode> node = _owner.getNode();
        if (!node)
            return;
        PiDeferredInvalidation::Scope deferred;
        _building = true;
        try {
            for (auto it = node->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next())
                socketStep(it.item());
        } catch (...) {
            _building = false;
            throw;
        }
        _building = false;
    }
    void forceCreateProcNodes() override { createProcNodes(); }
    bool isRecreateProcNodesDisabled() const override { return false; }
    Node createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child) override {
        auto group = groupTopology();
        return group ? group->createInputProcNode(in, child)
                     : PiProcNodeFactory::createInputNode(in, child);
    }
    Node createOutputProcNode(RCShdPtr<PiOutput> const& out, Node const& child) override {
        return PiProcNodeFactory::createOutputNode(out, child);
    }
    void dynamicInputAdded(RCShdPtr<PiInput> const& in) override {
        if (!in->retrieveNode()->isSame(*_owner.getNode()))
            violated(__FILE__, __LINE__, "in->retrieveNode()->isSame( *( _interface.getNode() ) )");
        if (!_nodes.empty())
            socketStep(in);
    }
    void dynamicInputRemoved(RCShdPtr<PiInput> const& in) override {
        if (_nodes.empty())
            return;
        auto it = _nodes.find(in->getId());
        if (!((it != _nodes.end()) && (!it->second.isNull())))
            violated(__FILE__, __LINE__, "( it != _nodes.end() ) && ( !it->second.isNull() )");
        _nodes.erase(it);
        _built.erase(in->getId());
    }
    void dynamicOutputAdded(RCShdPtr<PiOutput> const&) override {}
    void dynamicOutputRemoved(RCShdPtr<PiOutput> const& out) override {
        _nodes.erase(out->getId());
        _built.erase(out->getId());
    }
    void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const&) override {
        Node const face = getInputProcNode(in).lock();
        setChild(asPassThrough(face), sourceOf(in));
    }
    void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const&) override {
        Node const face = getInputProcNode(in).lock();
        setChild(asPassThrough(face), PiProcNodeFactory::createGeneratorNode(in->getType()));
    }
    void resultStateChanged(RCShdPtr<PiOutput> const& out) override {
        Node const node = getOutputProcNode(out).lock();
        if (auto const* result = dynamic_cast<PxResultProtocol const*>(node.get()))
            PxMutationRequest::submit(
                new PxResultRequest(PxUPtr<PxResultProtocol>(PxStrongHndl<PxResultProtocol>(
                                        const_cast<PxResultProtocol*>(result))),
                                    out->getResultState()));
    }

private:
    class Publisher final : public PiBoundaryPublisher {
    public:
        ~Publisher() noexcept override {}
        void publish(Node const& node) override { outNode = node; }
        void publish(Node const& in, Node const& out) override {
            inNode = in;
            outNode = out;
        }
        Node inNode, outNode;
    };

    RCShdPtr<PiGroupTopologyInterface> groupTopology() const {
        RCShdPtr<PiNode> node = _owner.getNode();
        return node ? controllerAs<PiGroupTopologyInterface>(node->retrieveGroupNode())
                    : RCShdPtr<PiGroupTopologyInterface>();
    }

    // Faces first: the socket's node stands over a generator before its source is asked for,
    // so a build that comes back here finds it, and the source is attached after.
    void socketStep(RCShdPtr<PiInput> const& in) {
        auto boundary = rcDynamicCast<PiBoundaryNode>(_owner.getNode());
        Node const generator = PiProcNodeFactory::createGeneratorNode(in->getType());
        if (boundary->isInputNode()) {
            if (_nodes.count(in->getId()))
                violated(__FILE__, __LINE__, "inNode.isNull()");
            PxNodeCollector collector; // the group's own nodes live as long as the socket's
            auto face = asPassThrough(createInputProcNode(in, generator));
            _nodes[in->getId()] = face;
            _built[in->getId()] = collector.take();
            if (in->isConnected())
                setChild(face, sourceOf(in));
            return;
        }
        auto out = rcDynamicCast<PiOutput>(boundary->getMatchingSocket(*in));
        if (!out)
            out = boundary->getOutput();
        if (_nodes.count(out->getId()))
            violated(__FILE__, __LINE__, "outNode.isNull()");
        Publisher p;
        PxNodeCollector collector; // the chain between the two faces too
        if (auto group = groupTopology())
            group->createOutputProcNode(p, out, generator);
        else
            p.publish(createOutputProcNode(out, generator));
        _built[out->getId()] = collector.take();
        if (!p.outNode)
            VN_THROW_MSG(ExBase, "the group published no node for \"" + out->getName() + "\"");
        auto outFace = asPassThrough(p.outNode);
        _nodes[out->getId()] = outFace;
        PxStrongHndl<PxPassThroughProtocol> inFace = p.inNode ? asPassThrough(p.inNode) : outFace;
        _nodes[in->getId()] = inFace;
        if (p.inNode)
            PiToolTopologyInterfaceImp::assertChainConnected(p.inNode, p.outNode);
        if (in->isConnected())
            setChild(inFace, sourceOf(in));
    }

    PiNodeController& _owner;
    NodeMap _nodes;
    // Per socket, every node its build finished.
    std::map<int, std::vector<Node>> _built;
    bool _building = false;
};

// The boundary's hooks reach the group's topology, and the group's users hear of them.
class BoundaryController final : public PiTopologyInterface {
public:
    BoundaryController() : _imp(*this) {}
    ~BoundaryController() noexcept override {}
    Imp* getImp() override { return &_imp; }

private:
    RCShdPtr<PiTopologyInterface> group() const {
        RCShdPtr<PiNode> node = getNode();
        return node ? controllerAs<PiTopologyInterface>(node->retrieveGroupNode())
                    : RCShdPtr<PiTopologyInterface>();
    }
    bool isInputBoundary() const {
        auto b = rcDynamicCast<PiBoundaryNode>(getNode());
        return b && b->isInputNode();
    }
    void tell(PiNodeEvent const& e) {
        if (auto g = group())
            PiNodeControllerManip::signalEvent(*g, e);
    }
    // A group's list inputs live on its boundary nodes: the group decides whether they change.
    bool canAddInputToComposite(RCShdPtr<PiCompositeInput> const& composite) override {
        auto g = group();
        return !g || g->canAddInputToComposite(composite);
    }
    bool canMoveInputInComposite(RCShdPtr<PiCompositeInput> const& composite,
                                 RCShdPtr<PiInput> const& in) override {
        auto g = group();
        return !g || g->canMoveInputInComposite(composite, in);
    }
    bool canRemoveInputFromComposite(RCShdPtr<PiCompositeInput> const& composite,
                                     RCShdPtr<PiInput> const& in) override {
        auto g = group();
        return !g || g->canRemoveInputFromComposite(composite, in);
    }
    void inputAddedToComposite(RCShdPtr<PiCompositeInput> const& composite,
                               RCShdPtr<PiInput> const& in) override {
        if (auto g = group())
            PiTopologyInterfaceManip::forwardInputAddedToComposite(*g, composite, in);
        tell(PiNodeEvent(PiNodeEvent::InputAdded, in, {}, -1));
    }
    void inputMovedInComposite(RCShdPtr<PiCompositeInput> const& composite,
                               RCShdPtr<PiInput> const& in, int from, int to) override {
        if (auto g = group())
            PiTopologyInterfaceManip::forwardInputMovedInComposite(*g, composite, in, from, to);
    }
    void inputRemovedFromComposite(RCShdPtr<PiCompositeInput> const& composite, int id) override {
        if (auto g = group())
            PiTopologyInterfaceManip::forwardInputRemovedFromComposite(*g, composite, id);
        PiNodeEvent e(PiNodeEvent::InputRemoved);
        e.index = id;
        tell(e);
    }
    void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) override {
        if (!isInputBoundary())
            return;
        if (auto g = group())
            PiTopologyInterfaceManip::inputConnected(*g, in, out);
        tell(PiNodeEvent(PiNodeEvent::SocketConnected, in, out, 0));
    }
    void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) override {
        if (!isInputBoundary())
            return;
        if (auto g = group())
            PiTopologyInterfaceManip::inputDisconnected(*g, in, out);
        tell(PiNodeEvent(PiNodeEvent::SocketDisconnected, in, out));
    }
    void outputConnected(RCShdPtr<PiOutput> const& out, RCShdPtr<PiInput> const& in) override {
        if (isInputBoundary())
            return;
        if (auto g = group())
            PiTopologyInterfaceManip::outputConnected(*g, out, in);
        tell(PiNodeEvent(PiNodeEvent::SocketConnected, in, out));
    }
    void outputDisconnected(RCShdPtr<PiOutput> const& out, RCShdPtr<PiInput> const& in) override {
        if (isInputBoundary())
            return;
        if (auto g = group())
            PiTopologyInterfaceManip::outputDisconnected(*g, out, in);
        tell(PiNodeEvent(PiNodeEvent::SocketDisconnected, in, out));
    }
    void resultStateChanged(RCShdPtr<PiOutput> const& out) override {
        if (auto g = group())
            PiTopologyInterfaceManip::resultStateChanged(*g, out);
        tell(PiNodeEvent(PiNodeEvent::ResultStateChanged, {}, out));
    }

    BoundaryImp _imp;
};

// ---- group ----

// A group's sockets are its boundary nodes': every demand goes to the boundary's topology.
class GroupImp final : public PiTopologyInterface::Imp {
public:
    explicit GroupImp(PiNodeController& owner) : _owner(owner) {}

    WeakNode getInputProcNode(std::string const& name) override {
        RCShdPtr<PiNode> node = _owner.getNode();
        RCShdPtr<PiInput> in = node ? node->findInput(name) : RCShdPtr<PiInput>();
        if (!in)
            VN_THROW_MSG(ExBase, "the group has no input \"" + name + "\"");
        return getInputProcNode(in);
    }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const& in) override {
        return boundaryOf(*in)->getInputProcNode(in);
    }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const& out) override {
        return boundaryOf(*out)->getOutputProcNode(out);
    }
    void createProcNodes() override {}
    void forceCreateProcNodes() override {}
    bool isRecreateProcNodesDisabled() const override { return false; }
    Node createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child) override {
        return PiProcNodeFactory::createInputNode(in, child);
    }
    Node createOutputProcNode(RCShdPtr<PiOutput> const& out, Node const& child) override {
        return PiProcNodeFactory::createOutputNode(out, child);
    }
    void dynamicInputAdded(RCShdPtr<PiInput> const&) override {}
    void dynamicInputRemoved(RCShdPtr<PiInput> const&) override {}
    void dynamicOutputAdded(RCShdPtr<PiOutput> const&) override {}
    void dynamicOutputRemoved(RCShdPtr<PiOutput> const&) override {}
    void inputConnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) override {}
    void inputDisconnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) override {}
    void resultStateChanged(RCShdPtr<PiOutput> const&) override {}

private:
    PiTopologyInterface::Imp* boundaryOf(PiSocket const& socket) const {
        auto boundary = rcDynamicCast<PiBoundaryNode>(socket.retrieveNode());
        if (!boundary || !boundary->retrieveGroupNode()->isSame(*_owner.getNode()))
            violated(__FILE__, __LINE__,
                     "node->retrieveGroupNode()->isSame( *( _interface.getNode() ) )");
        auto topo = controllerAs<PiTopologyInterface>(boundary);
        PiTopologyInterface::Imp* imp = topo ? topo->getImp() : nullptr;
        if (!imp)
            RCExUtil::throwExNullPtr("PiTopologyInterface::Imp");
        return imp;
    }
    PiNodeController& _owner;
};

class GroupController final : public PiGroupInterface, public PiGroupTopologyInterface {
public:
    GroupController() : _imp(*this) {}
    PiTopologyInterface::Imp* getImp() override { return &_imp; }

private:
    GroupImp _imp;
};

class ToolGroupController final : public PiGroupInterface,
                                  public PiGroupTopologyInterface,
                                  public PiToolInterface {
public:
    ToolGroupController() : _imp(*this) {}
    PiTopologyInterface::Imp* getImp() override { return &_imp; }

private:
    GroupImp _imp;
};

} // namespace

RCShdPtr<PiNodeController> PiGroupTopology::createGroupController(PiTool const* tool) {
    if (tool)
        return RCShdPtr<PiNodeController>(new ToolGroupController);
    return RCShdPtr<PiNodeController>(new GroupController);
}

std::unique_ptr<PiTopologyInterface::Imp> PiGroupTopology::createGroupImp(PiNodeController& owner) {
    return std::make_unique<GroupImp>(owner);
}

RCShdPtr<PiNodeController> PiGroupTopology::createBoundaryController() {
    return RCShdPtr<PiNodeController>(new BoundaryController);
}

} // namespace Vn

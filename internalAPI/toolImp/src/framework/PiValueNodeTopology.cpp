#include "PiValueNodeTopology.h"

#include "Assertions.h"
#include "PiGroupTopology.h"
#include "PiNode.h"
#include "PiTopologyInterface.h"
#include "PiValue.h"
#include "PiValueChangeInterface.h"
#include "PxValueNode.h"

#include <string>

namespace Vn {

namespace {

using Node = PiTopologyInterface::Imp::Node;
using WeakNode = PiTopologyInterface::Imp::WeakNode;

// The processing side of one value node, for values of T; time values do not animate.
template <class T>
class ValueImp final : public PiTopologyInterface::Imp {
public:
    using ProcNode =
        std::conditional_t<std::is_same_v<T, DtTime>, PxValueNode<T>, PxAnimValueNode<T>>;
    using SetRequest = std::conditional_t<std::is_same_v<T, DtTime>, PxValueSetRequest<T>,
                                          PxAnimValueSetRequest<T>>;

    explicit ValueImp(PiNodeController& owner) : _owner(owner) {}
    // The controller goes on the interface thread, where the handle may go.
    ~ValueImp() noexcept override {}

    WeakNode getInputProcNode(std::string const&) override { return {}; }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const&) override { return {}; }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const&) override {
        createProcNodes();
        return WeakNode(Node(_node));
    }
    void createProcNodes() override {
        if (_node)
            return;
        PxStrongHndl<ProcNode> n(new ProcNode(PxNode::Init{"ValueNode"}, PxResult<T>(current())));
        PxNode::init(PxStrongHndl<PxNode>(n));
        _node = n;
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

    void valueChanged(RCShdPtr<PiValue> const& value) {
        if (!_node || value->getName() != PiValueNode::VALUE_NAME)
            return;
        if (auto typed = rcDynamicCast<PiTypedValue<T>>(value))
            PxMutationRequest::submit(
                new SetRequest(PxUPtr<ProcNode>(_node), PxResult<T>(typed->get())));
    }

private:
    T current() const {
        RCShdPtr<PiNode> node = _owner.getNode();
        auto value = node ? rcCast<PiTypedValue<T>>(node->findValue(PiValueNode::VALUE_NAME))
                          : RCShdPtr<PiTypedValue<T>>();
        return value ? value->get() : T();
    }

    PiNodeController& _owner;
    PxStrongHndl<ProcNode> _node;
};

template <class T>
class ValueController final : public PiTopologyInterface, public PiValueChangeInterface {
public:
    ValueController() : _imp(*this) {}
    ~ValueController() noexcept override {}
    Imp* getImp() override { return &_imp; }

private:
    void valueChanged(RCShdPtr<PiValue> const& value) override { _imp.valueChanged(value); }
    ValueImp<T> _imp;
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
    RCShdPtr<PiNodeController> createValueController(PiSocketType type) override {
        RCShdPtr<PiNodeController> c = PiValueNodeTopology::createController(type);
        return c ? c : PiNodeControllerFactory::createValueController(type);
    }
};

} // namespace

RCShdPtr<PiNodeController> PiValueNodeTopology::createController(PiSocketType type) {
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

void PiValueNodeTopology::initialize() {
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new Factory));
}

void PiValueNodeTopology::finalize() {
    PiNodeControllerFactory::setInstance(nullptr);
}

} // namespace Vn

#include "PiToolTopologyInterface.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiGroupTopologyInterface.h"
#include "PiNode.h"
#include "PiValueTopologyInterface.h"

#include <atomic>

namespace Vn {

namespace {
std::atomic<PiToolTopologyInterface::ImpFactory> s_factory{nullptr};
std::atomic<PiToolTopologyInterface::InputNodeMaker> s_inputMaker{nullptr};
std::atomic<PiToolTopologyInterface::OutputNodeMaker> s_outputMaker{nullptr};

template <class S>
RCShdPtr<S> named(RCShdPtr<S> s, char const* what, std::string const& name) {
    if (!s)
        VN_THROW_MSG(ExBase, std::string("the tool has no ") + what + " \"" + name + "\"");
    return s;
}
} // namespace

// Apart from the graph model: these need the engine's handles.
PxWeakHndl<PxNode const> PiTopologyInterface::getInputProcNode(RCShdPtr<PiInput> const& in) {
    Imp* imp = getImp();
    return imp ? imp->getInputProcNode(in) : PxWeakHndl<PxNode const>();
}

PxWeakHndl<PxNode const> PiTopologyInterface::getOutputProcNode(RCShdPtr<PiOutput> const& out) {
    Imp* imp = getImp();
    return imp ? imp->getOutputProcNode(out) : PxWeakHndl<PxNode const>();
}

PiToolTopologyInterface::OutputPublisher::~OutputPublisher() = default;
PiToolTopologyInterface::ToolImp::~ToolImp() = default;

void PiToolTopologyInterface::setImplementationFactory(ImpFactory factory, InputNodeMaker input,
                                                       OutputNodeMaker output) {
    s_inputMaker.store(input);
    s_outputMaker.store(output);
    s_factory.store(factory);
}

bool PiToolTopologyInterface::hasImplementationFactory() noexcept {
    return s_factory.load() != nullptr;
}

PiToolTopologyInterface::PiToolTopologyInterface() {
    ImpFactory const factory = s_factory.load();
    if (!factory)
        VN_THROW_MSG(ExBase, "a tool topology needs the tool framework: it has not started");
    _imp = factory(*this);
    VN_ASSERT(_imp);
    addLifeHook(_imp.get());
}

PiToolTopologyInterface::~PiToolTopologyInterface() = default;

PiToolTopologyInterface::Node
PiToolTopologyInterface::createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child) {
    InputNodeMaker const make = s_inputMaker.load();
    VN_ASSERT(make);
    return make(in, child);
}

PiToolTopologyInterface::Node
PiToolTopologyInterface::createOutputProcNode(RCShdPtr<PiOutput> const& out, Node const& child) {
    OutputNodeMaker const make = s_outputMaker.load();
    VN_ASSERT(make);
    return make(out, child);
}

PiCreateProcGuard::PiCreateProcGuard(PiToolTopologyInterface& topology) : _topology(topology) {
    _topology.getToolImp().openGuard();
}

PiCreateProcGuard::~PiCreateProcGuard() {
    _topology.getToolImp().closeGuard();
}

PxStrongHndl<PxNode const> PiCreateProcGuard::getInputNode(std::string const& name) const {
    RCShdPtr<PiNode> node = _topology.getNode();
    return getInputNode(named(node ? node->findInput(name) : nullptr, "input", name));
}

PxStrongHndl<PxNode const> PiCreateProcGuard::getInputNode(RCShdPtr<PiInput> const& in) const {
    return _topology.getToolImp().getInputNode(in);
}

void PiCreateProcGuard::releaseOutputNode(std::string const& name) {
    RCShdPtr<PiNode> node = _topology.getNode();
    releaseOutputNode(named(node ? node->findOutput(name) : nullptr, "output", name));
}

void PiCreateProcGuard::releaseOutputNode(RCShdPtr<PiOutput> const& out) {
    _topology.getToolImp().releaseOutputNode(out);
}

PiBoundaryPublisher::~PiBoundaryPublisher() = default;
PiGroupTopologyInterface::~PiGroupTopologyInterface() = default;

PiGroupTopologyInterface::Node
PiGroupTopologyInterface::createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child) {
    PiToolTopologyInterface::InputNodeMaker const make = s_inputMaker.load();
    VN_ASSERT(make);
    return make(in, child);
}

void PiGroupTopologyInterface::createOutputProcNode(PiBoundaryPublisher& publisher,
                                                    RCShdPtr<PiOutput> const& out,
                                                    Node const& child) {
    PiToolTopologyInterface::OutputNodeMaker const make = s_outputMaker.load();
    VN_ASSERT(make);
    publisher.publish(make(out, child));
}

PiValueTopologyInterface::~PiValueTopologyInterface() = default;

} // namespace Vn

#include "PiToolTopologyInterfaceImp.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiCommandStack.h"
#include "PiNode.h"
#include "PiProcNodeFactory.h"
#include "PiTopologyUtil.h"
#include "PxGraphLog.h"
#include "PxRequest.h"
#include "PxRequestMgr.h"
#include "PxResultProtocol.h"

#include <set>
#include <string>
#include <unordered_set>
#include <utility>

namespace Vn {

namespace {

using Node = PiTopologyInterface::Imp::Node;
using WeakNode = PiTopologyInterface::Imp::WeakNode;

void onInterfaceThread() {
    if (PxRequestMgr::isInitialized())
        VN_ASSERT(!PxRequestMgr::getInstance().isWorkerThreadCurrent());
}

[[noreturn]] void violated(char const* file, int line, std::string const& text) {
    Assertions::throwAssertionFailed(file, line, text.c_str());
}

RCShdPtr<PiTopologyInterface> topologyOf(RCShdPtr<PiNode> const& node) {
    if (!node)
        return {};
    return rcDynamicCast<PiTopologyInterface>(node->getController().lock());
}

// The sockets that take connections under an input: itself, or the leaves of its lists and
// structures.
void collectLeaves(RCShdPtr<PiInput> const& in, std::vector<RCShdPtr<PiInput>>& out) {
    std::vector<RCShdPtr<PiInput>> stack{in};
    std::vector<RCShdPtr<PiInput>> found;
    while (!stack.empty()) {
        RCShdPtr<PiInput> i = std::move(stack.back());
        stack.pop_back();
        if (i->isComposite() || i->isMultivalued() || i->isStructured()) {
            auto list = rcCast<PiInputList>(i);
            for (int k = list->getCardinality() - 1; k >= 0; --k)
                stack.push_back(list->getInput(k));
        } else {
            found.push_back(std::move(i));
        }
    }
    out.insert(out.end(), found.begin(), found.end());
}

using PiTopologyUtil::asPassThrough;
using PiTopologyUtil::setChild;

// The checks run on the engine's side, after the child changes submitted before them, and the
// caller waits: a failure reaches the tool's caller as an assertion.
class CheckRequest : public PxRequest {
public:
    RequestType getRequestType() const override { return RequestType(SEQUENTIAL, REFERENCED, CPU); }
    static void run(CheckRequest* request) {
        PxRequestPtr<CheckRequest> held(request);
        PxRequestMgr::getInstance().executeRequest(request, false);
        PxRequestMgr::getInstance().waitRequest(request);
    }
};

class AssertParentsRequest final : public CheckRequest {
public:
    explicit AssertParentsRequest(std::vector<PxNodePtr<PxNode const>> nodes)
        : _nodes(std::move(nodes)) {}
    void performExecute() override {
        for (auto it = _nodes.begin(); it != _nodes.end(); ++it)
            if ((*it)->getNbParents() <= 0)
                violated(__FILE__, __LINE__, "( *it )->getNbParents() > 0");
    }

private:
    std::vector<PxNodePtr<PxNode const>> _nodes;
};

class AssertNoParentRequest final : public CheckRequest {
public:
    AssertNoParentRequest(std::vector<PxNodePtr<PxNode const>> nodes, int line)
        : _nodes(std::move(nodes)), _line(line) {}
    void performExecute() override {
        for (auto const& n : _nodes)
            if (int const parents = n->getNbParents(); parents > 0)
                violated(__FILE__, __LINE__,
                         "Check at line " + std::to_string(_line) + " failed.  Node still has " +
                             std::to_string(parents) + " parents and should have none.");
    }

private:
    std::vector<PxNodePtr<PxNode const>> _nodes;
    int _line;
};

class AssertChainConnectedRequest final : public CheckRequest {
public:
    AssertChainConnectedRequest(Node const& inNode, Node const& outNode)
        : _in(inNode), _out(outNode) {
        if (inNode.isNull())
            violated(__FILE__, __LINE__, "!inNode.isNull()");
        if (outNode.isNull())
            violated(__FILE__, __LINE__, "!outNode.isNull()");
        if (inNode.get() == outNode.get())
            violated(__FILE__, __LINE__, "inNode != outNode");
    }
    void performExecute() override {
        PxNode const* child = _in.get();
        while (child != _out.get()) {
            if (child->getNbParents() != 1)
                violated(__FILE__, __LINE__, "child->getNbParents() == 1");
            child = child->getParent(0);
        }
    }

private:
    PxNodePtr<PxNode const> _in;
    PxNodePtr<PxNode const> _out;
};

std::vector<PxNodePtr<PxNode const>> nodesOf(PiToolTopologyInterfaceImp::NodeMap const& map) {
    std::vector<PxNodePtr<PxNode const>> nodes;
    for (auto const& [id, n] : map)
        nodes.emplace_back(PxStrongHndl<PxNode const>(n));
    return nodes;
}

OPtr<PiToolTopologyInterface::ToolImp> makeImp(PiToolTopologyInterface& owner) {
    return OPtr<PiToolTopologyInterface::ToolImp>(new PiToolTopologyInterfaceImp(owner));
}

Node defaultInputNode(RCShdPtr<PiInput> const& in, Node const& child) {
    return PiProcNodeFactory::createInputNode(in, child);
}

Node defaultOutputNode(RCShdPtr<PiOutput> const& out, Node const& child) {
    return PiProcNodeFactory::createOutputNode(out, child);
}

// The interface thread's deferred invalidations.
int s_deferDepth = 0;
std::vector<std::pair<Node, PxValidityInterval>> s_deferred;

} // namespace

// ---- the publisher ----

class PiToolTopologyInterfaceImp::Publisher final
    : public PiToolTopologyInterface::OutputPublisher {
public:
    Publisher(PiToolTopologyInterfaceImp& imp, RCShdPtr<PiNode> node)
        : _imp(imp), _node(std::move(node)) {
        for (auto it = _node->getOutputs(PiNode::ALL); !it.atEnd(); it.next())
            _outputsToVisit.insert(it.item()->getId());
    }
    void publish(RCShdPtr<PiOutput> const& out, Node const& node) override {
        if (!out || !out->retrieveNode()->isSame(*_node))
            violated(__FILE__, __LINE__, "out->retrieveNode()->isSame( *_node )");
        auto outSetIt = _outputsToVisit.find(out->getId());
        if (outSetIt == _outputsToVisit.end())
            violated(__FILE__, __LINE__, "outSetIt != _outputsToVisit.end()");
        if (!node)
            VN_THROW_MSG(ExBase, "the tool published no node for \"" + out->getName() + "\"");
        _outputsToVisit.erase(outSetIt);
        auto existing = _imp._outputNodes.find(out->getId());
        if (existing != _imp._outputNodes.end())
            setChild(existing->second, node);
        else
            _imp._outputNodes.emplace(out->getId(),
                                      asPassThrough(_imp.createOutputProcNode(out, node)));
    }
    void publish(std::string const& outputName, Node const& node) override {
        RCShdPtr<PiOutput> out = _node->findOutput(outputName);
        if (!out)
            VN_THROW_MSG(ExBase, "the tool has no output \"" + outputName + "\"");
        publish(out, node);
    }
    Node getInputNode(std::string const& name) const override {
        RCShdPtr<PiInput> in = _node->findInput(name);
        if (!in)
            VN_THROW_MSG(ExBase, "the tool has no input \"" + name + "\"");
        return getInputNode(in);
    }
    Node getInputNode(RCShdPtr<PiInput> const& in) const override { return _imp.getInputNode(in); }
    void disableParentCheck() override { _checkParents = false; }

    bool allVisited() const noexcept { return _outputsToVisit.empty(); }
    bool checksParents() const noexcept { return _checkParents; }

private:
    PiToolTopologyInterfaceImp& _imp;
    RCShdPtr<PiNode> _node;
    std::set<int> _outputsToVisit;
    bool _checkParents = true;
};

// ---- the implementation ----

PiToolTopologyInterfaceImp::PiToolTopologyInterfaceImp(PiToolTopologyInterface& owner)
    : _interface(owner) {}

PiToolTopologyInterfaceImp::~PiToolTopologyInterfaceImp() = default;

void PiToolTopologyInterfaceImp::initialize() {
    PiToolTopologyInterface::setImplementationFactory(&makeImp, &defaultInputNode,
                                                      &defaultOutputNode);
}

void PiToolTopologyInterfaceImp::finalize() {
    PiToolTopologyInterface::setImplementationFactory(nullptr);
}

bool PiToolTopologyInterfaceImp::isRecreateProcNodesDisabled() const {
    return _interface.isRecreateProcNodesDisabled();
}

Node PiToolTopologyInterfaceImp::createInputProcNode(RCShdPtr<PiInput> const& in,
                                                     Node const& child) {
    return _interface.createInputProcNode(in, child);
}

Node PiToolTopologyInterfaceImp::createOutputProcNode(RCShdPtr<PiOutput> const& out,
                                                      Node const& child) {
    return _interface.createOutputProcNode(out, child);
}

Node PiToolTopologyInterfaceImp::passThroughFor(NodeMap const& map, int id,
                                                char const* text) const {
    auto inIt = map.find(id);
    if (!((inIt != map.end()) && !inIt->second.isNull()))
        violated(__FILE__, __LINE__, text);
    return Node(inIt->second);
}

WeakNode PiToolTopologyInterfaceImp::getInputProcNode(std::string const& name) {
    RCShdPtr<PiNode> node = _interface.getNode();
    RCShdPtr<PiInput> in = node ? node->findInput(name) : RCShdPtr<PiInput>();
    if (!in)
        VN_THROW_MSG(ExBase, "the tool has no input \"" + name + "\"");
    return getInputProcNode(in);
}

WeakNode PiToolTopologyInterfaceImp::getInputProcNode(RCShdPtr<PiInput> const& in) {
    onInterfaceThread();
    createProcNodes();
    return WeakNode(passThroughFor(_inputNodes, in->getId(),
                                   "( inIt != _inputNodes.end() ) && !inIt->second.isNull()"));
}

Node PiToolTopologyInterfaceImp::getInputNode(RCShdPtr<PiInput> const& in) {
    // Inside a build the input nodes exist already; outside, this builds them.
    if (_inputNodes.empty())
        createProcNodes();
    return passThroughFor(_inputNodes, in->getId(),
                          "( inIt != _inputNodes.end() ) && !inIt->second.isNull()");
}

WeakNode PiToolTopologyInterfaceImp::getOutputProcNode(RCShdPtr<PiOutput> const& out) {
    onInterfaceThread();
    RCShdPtr<PiNode> self = _interface.getNode();
    if (!out || !self || !out->retrieveNode()->isSame(*self))
        violated(__FILE__, __LINE__, "out->retrieveNode()->isSame( *( _interface.getNode() ) )");
    createProcNodes();
    auto it = _outputNodes.find(out->getId());
    if (it != _outputNodes.end())
        return WeakNode(Node(it->second));
    // Asked while this node is still being built: a placeholder that publish re-childs.
    Node tempOut = asPassThrough(
        createOutputProcNode(out, PiProcNodeFactory::createGeneratorNode(out->getType())));
    if (!_outputNodes.insert(NodeMap::value_type(out->getId(), asPassThrough(tempOut))).second)
        violated(__FILE__, __LINE__,
                 "_outputNodes.insert( NodeMap::value_type( out->getId(), tempOut ) ).second");
    return WeakNode(tempOut);
}

void PiToolTopologyInterfaceImp::createProcNodes() {
    if (_state != State::NONE)
        return;
    buildProducers();
    if (_state == State::NONE)
        forceCreateProcNodes();
}

void PiToolTopologyInterfaceImp::buildProducers() {
    // Depth first over the producers, with an explicit stack, building each after its own
    // producers: a long chain of tools builds without recursion, and each build finds what it
    // asks for already there.
    struct Frame {
        RCShdPtr<PiNode> node;
        std::vector<RCShdPtr<PiNode>> producers;
        std::size_t next = 0;
    };
    auto producersOf = [](RCShdPtr<PiNode> const& node) {
        std::vector<RCShdPtr<PiNode>> result;
        for (auto it = node->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next())
            if (RCShdPtr<PiOutput> out = it.item()->getConnectedOutput())
                result.push_back(out->retrieveNode());
        return result;
    };
    RCShdPtr<PiNode> self = _interface.getNode();
    if (!self)
        return;
    std::unordered_set<int> seen{self->getId()};
    std::vector<Frame> stack;
    stack.push_back({self, producersOf(self)});
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next < f.producers.size()) {
            RCShdPtr<PiNode> p = f.producers[f.next++];
            if (!p || !seen.insert(p->getId()).second)
                continue;
            RCShdPtr<PiTopologyInterface> topo = topologyOf(p);
            PiTopologyInterface::Imp* imp = topo ? topo->getImp() : nullptr;
            auto* tool = dynamic_cast<PiToolTopologyInterfaceImp*>(imp);
            if (tool && tool->_state == State::NONE)
                stack.push_back({p, producersOf(p)});
            else if (imp && !tool)
                imp->createProcNodes();
            continue;
        }
        RCShdPtr<PiNode> done = std::move(f.node);
        stack.pop_back();
        if (stack.empty())
            break; // this node: the caller builds it
        auto* tool = dynamic_cast<PiToolTopologyInterfaceImp*>(topologyOf(done)->getImp());
        if (tool->_state == State::NONE)
            tool->forceCreateProcNodes();
    }
}

Node PiToolTopologyInterfaceImp::childOf(RCShdPtr<PiInput> const& in) const {
    return PiTopologyUtil::sourceOf(in);
}

void PiToolTopologyInterfaceImp::buildInputs() {
    RCShdPtr<PiNode> self = _interface.getNode();
    for (auto it = self->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next()) {
        RCShdPtr<PiInput> const& in = it.item();
        _inputNodes[in->getId()] = asPassThrough(createInputProcNode(in, childOf(in)));
    }
}

void PiToolTopologyInterfaceImp::forceCreateProcNodes() {
    onInterfaceThread();
    RCShdPtr<PiNode> self = _interface.getNode();
    if (!self)
        VN_THROW_MSG(ExBase, "a tool builds its processing nodes once it is in a graph");
    PiDeferredInvalidation::Scope deferred;
    _state = State::BUILDING;
    try {
        if (_inputNodes.empty())
            buildInputs();
        if (_guardCount > 0) {
            _recreatePending = true;
            _state = State::BUILT;
            return;
        }
        PxNodeCollector collector;
        Publisher publisher(*this, self);
        {
            PiCommandStack::ToolBuildScope building;
            _interface.createProcNodes(publisher);
        }
        if (!publisher.allVisited())
            violated(__FILE__, __LINE__, "_outputsToVisit.empty()");
        _built = collector.take();
        if (publisher.checksParents() && !_inputNodes.empty())
            CheckRequest::run(new AssertParentsRequest(nodesOf(_inputNodes)));
        _state = State::BUILT;
    } catch (...) {
        // Every output keeps a node, so consumers can be built; the next demand retries.
        for (auto it = self->getOutputs(PiNode::ALL); !it.atEnd(); it.next())
            if (_outputNodes.find(it.item()->getId()) == _outputNodes.end())
                _outputNodes.emplace(
                    it.item()->getId(),
                    asPassThrough(createOutputProcNode(
                        it.item(), PiProcNodeFactory::createGeneratorNode(it.item()->getType()))));
        _state = State::NONE;
        throw;
    }
}

void PiToolTopologyInterfaceImp::dynamicInputAdded(RCShdPtr<PiInput> const& in) {
    RCShdPtr<PiNode> self = _interface.getNode();
    if (!self || !in->retrieveNode()->isSame(*self))
        violated(__FILE__, __LINE__, "in->retrieveNode()->isSame( *( _interface.getNode() ) )");
    if (_inputNodes.empty() && _outputNodes.empty())
        return; // the first build will see it
    std::vector<RCShdPtr<PiInput>> leaves;
    collectLeaves(in, leaves);
    for (RCShdPtr<PiInput> const& leaf : leaves) {
        auto res = _inputNodes.insert(NodeMap::value_type(
            leaf->getId(), asPassThrough(createInputProcNode(
                               leaf, PiProcNodeFactory::createGeneratorNode(leaf->getType())))));
        if (!res.second)
            violated(__FILE__, __LINE__, "res.second");
    }
    if (!isRecreateProcNodesDisabled())
        forceCreateProcNodes();
}

void PiToolTopologyInterfaceImp::dynamicInputRemoved(RCShdPtr<PiInput> const& in) {
    if (_inputNodes.empty() && _outputNodes.empty())
        return;
    std::vector<RCShdPtr<PiInput>> leaves;
    collectLeaves(in, leaves);
    if (leaves.empty())
        return;
    std::vector<PxNodePtr<PxNode const>> removed;
    for (RCShdPtr<PiInput> const& leaf : leaves) {
        auto inIt = _inputNodes.find(leaf->getId());
        if (!((inIt != _inputNodes.end()) && (!inIt->second.isNull())))
            violated(__FILE__, __LINE__,
                     "( inIt != _inputNodes.end() ) && ( !inIt->second.isNull() )");
        removed.emplace_back(PxStrongHndl<PxNode const>(inIt->second));
        _inputNodes.erase(inIt);
    }
    if (!isRecreateProcNodesDisabled())
        forceCreateProcNodes();
    if (!_recreatePending)
        CheckRequest::run(new AssertNoParentRequest(std::move(removed), __LINE__));
}

void PiToolTopologyInterfaceImp::dynamicOutputAdded(RCShdPtr<PiOutput> const&) {
    if (_state == State::BUILT && !isRecreateProcNodesDisabled())
        forceCreateProcNodes();
}

void PiToolTopologyInterfaceImp::dynamicOutputRemoved(RCShdPtr<PiOutput> const& out) {
    _outputNodes.erase(out->getId());
    if (_state == State::BUILT && !isRecreateProcNodesDisabled())
        forceCreateProcNodes();
}

void PiToolTopologyInterfaceImp::inputConnected(RCShdPtr<PiInput> const& in,
                                                RCShdPtr<PiOutput> const& out) {
    onInterfaceThread();
    Node const inNode = getInputProcNode(in).lock();
    RCShdPtr<PiTopologyInterface> producer = topologyOf(out->retrieveNode());
    Node outNode = producer ? producer->getOutputProcNode(out).lock() : Node();
    if (!outNode)
        outNode = PiProcNodeFactory::createGeneratorNode(in->getType());
    setChild(asPassThrough(inNode), outNode);
}

void PiToolTopologyInterfaceImp::inputDisconnected(RCShdPtr<PiInput> const& in,
                                                   RCShdPtr<PiOutput> const&) {
    onInterfaceThread();
    Node const inNode = getInputProcNode(in).lock();
    setChild(asPassThrough(inNode), PiProcNodeFactory::createGeneratorNode(in->getType()));
}

void PiToolTopologyInterfaceImp::resultStateChanged(RCShdPtr<PiOutput> const& out) {
    Node const node = getOutputProcNode(out).lock();
    auto const* result = dynamic_cast<PxResultProtocol const*>(node.get());
    if (!result)
        return;
    PxStrongHndl<PxResultProtocol> typed(const_cast<PxResultProtocol*>(result));
    PxMutationRequest::submit(
        new PxResultRequest(PxUPtr<PxResultProtocol>(typed), out->getResultState()));
}

void PiToolTopologyInterfaceImp::openGuard() {
    ++_guardCount;
}

void PiToolTopologyInterfaceImp::closeGuard() {
    VN_ASSERT(_guardCount > 0);
    if (--_guardCount > 0 || !_recreatePending)
        return;
    _recreatePending = false;
    try {
        forceCreateProcNodes();
    } catch (std::exception const& e) {
        _recreatePending = true;
        VN_LOG_GROUP(PxGraph, 0, "A tool's processing nodes could not be rebuilt: " << e.what());
    }
}

void PiToolTopologyInterfaceImp::releaseOutputNode(RCShdPtr<PiOutput> const& out) {
    RCShdPtr<PiNode> self = _interface.getNode();
    if (!out || !self || !out->retrieveNode()->isSame(*self))
        violated(__FILE__, __LINE__, "out->retrieveNode()->isSame( *( _interface.getNode() ) )");
    if (_outputNodes.empty())
        return;
    auto it = _outputNodes.find(out->getId());
    if (it == _outputNodes.end())
        return;
    setChild(it->second, PiProcNodeFactory::createGeneratorNode(out->getType()));
    _recreatePending = true;
}

void PiToolTopologyInterfaceImp::assertChainConnected(Node const& inNode, Node const& outNode) {
    CheckRequest::run(new AssertChainConnectedRequest(inNode, outNode));
}

// ---- deferred invalidation ----

PiDeferredInvalidation::Scope::Scope() noexcept {
    ++s_deferDepth;
}

PiDeferredInvalidation::Scope::~Scope() {
    if (--s_deferDepth > 0)
        return;
    std::vector<std::pair<Node, PxValidityInterval>> pending = std::exchange(s_deferred, {});
    for (auto const& [node, interval] : pending) {
        try {
            PxMutationRequest::submit(
                new PxInvalidationRequest(PxUPtr<PxNode const>(node), interval, -2));
        } catch (std::exception const& e) {
            VN_LOG_GROUP(PxGraph, 0, "A deferred invalidation failed: " << e.what());
        }
    }
}

void PiDeferredInvalidation::invalidate(PxStrongHndl<PxNode const> const& node,
                                        PxValidityInterval const& interval) {
    if (s_deferDepth > 0) {
        s_deferred.emplace_back(node, interval);
        return;
    }
    PxMutationRequest::submit(new PxInvalidationRequest(PxUPtr<PxNode const>(node), interval, -2));
}

int PiDeferredInvalidation::getDepth() noexcept {
    return s_deferDepth;
}

} // namespace Vn

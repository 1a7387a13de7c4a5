#pragma once

#include "PiToolTopologyInterface.h"
#include "PxPassThroughProtocol.h"
#include "VnExport.h"

#include <map>
#include <vector>

namespace Vn {

// Keeps a tool's processing nodes in step with its tool node: one pass-through per leaf input
// and per output, stable across rebuilds, and behind them what the tool's build made.
class VN_EXPORT PiToolTopologyInterfaceImp final : public PiToolTopologyInterface::ToolImp {
public:
    using NodeMap = std::map<int, PxStrongHndl<PxPassThroughProtocol>>;
    enum class State { NONE, BUILDING, BUILT };

    explicit PiToolTopologyInterfaceImp(PiToolTopologyInterface& owner);
    ~PiToolTopologyInterfaceImp() override;

    // Installs the factory of implementations and the default socket nodes.
    static void initialize();
    static void finalize();

    WeakNode getInputProcNode(std::string const& name) override;
    WeakNode getInputProcNode(RCShdPtr<PiInput> const& in) override;
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const& out) override;
    void createProcNodes() override;
    void forceCreateProcNodes() override;
    bool isRecreateProcNodesDisabled() const override;
    Node createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child) override;
    Node createOutputProcNode(RCShdPtr<PiOutput> const& out, Node const& child) override;
    void dynamicInputAdded(RCShdPtr<PiInput> const& in) override;
    void dynamicInputRemoved(RCShdPtr<PiInput> const& in) override;
    void dynamicOutputAdded(RCShdPtr<PiOutput> const& out) override;
    void dynamicOutputRemoved(RCShdPtr<PiOutput> const& out) override;
    void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) override;
    void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) override;
    void resultStateChanged(RCShdPtr<PiOutput> const& out) override;
    void openGuard() override;
    void closeGuard() override;
    Node getInputNode(RCShdPtr<PiInput> const& in) override;
    void releaseOutputNode(RCShdPtr<PiOutput> const& out) override;
    bool isBuilt() const override { return _state == State::BUILT; }

    // Checks on the engine's side that a single line of nodes leads from inNode up to outNode,
    // each with one parent; raises an assertion otherwise.
    static void assertChainConnected(Node const& inNode, Node const& outNode);

    State getState() const noexcept { return _state; }
    bool isRecreatePending() const noexcept { return _recreatePending; }
    NodeMap const& getInputNodes() const noexcept { return _inputNodes; }
    NodeMap const& getOutputNodes() const noexcept { return _outputNodes; }

private:
    class Publisher;
    // What feeds the input: the connected output's node, else the type's generator.
    Node childOf(RCShdPtr<PiInput> const& in) const;
    // This node's unbuilt producers, and theirs, built first without recursion.
    void buildProducers();
    void buildInputs();
    Node passThroughFor(NodeMap const& map, int id, char const* what) const;

    PiToolTopologyInterface& _interface;
    NodeMap _inputNodes;
    NodeMap _outputNodes;
    // Every node the last build made: a node no handle holds would leave its children's parent
    // lists, and invalidation would stop below it.
    std::vector<PxStrongHndl<PxNode const>> _built;
    int _guardCount = 0;
    bool _recreatePending = false;
    State _state = State::NONE;
};

// Invalidations the topology layer issues while a build runs wait for the outermost build's
// end, then run in order: consumers never see a half-built tool change.
class VN_EXPORT PiDeferredInvalidation {
public:
    class VN_EXPORT Scope {
    public:
        Scope() noexcept;
        Scope(Scope const&) = delete;
        Scope& operator=(Scope const&) = delete;
        // Never throws: a failed invalidation is logged.
        ~Scope();
    };
    static void invalidate(PxStrongHndl<PxNode const> const& node,
                           PxValidityInterval const& interval);
    static int getDepth() noexcept;
};

} // namespace Vn

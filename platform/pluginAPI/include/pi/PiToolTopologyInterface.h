#pragma once

#include "OPtr.h"
#include "PiTopologyInterface.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The mix-in of a tool's controller that turns the tool's description into processing nodes
// and keeps them in step with the graph's edits. A tool builds its own nodes in
// createProcNodes; the framework gives every socket a pass-through that stays the same node
// while connections and rebuilds change what stands behind it.
//
// Builds run on the interface thread, inside the graph's notifications (undo and redo too): a
// tool must not edit the tool graph from createProcNodes.
class VN_EXPORT PiToolTopologyInterface : public PiTopologyInterface {
public:
    using Node = PxStrongHndl<PxNode const>;

    // What a tool's build gets: the nodes of its inputs, and where it publishes the one node
    // that makes each of its outputs.
    class VN_EXPORT OutputPublisher {
    public:
        virtual ~OutputPublisher();
        virtual void publish(RCShdPtr<PiOutput> const& out, Node const& node) = 0;
        virtual void publish(std::string const& outputName, Node const& node) = 0;
        virtual Node getInputNode(std::string const& name) const = 0;
        virtual Node getInputNode(RCShdPtr<PiInput> const& in) const = 0;
        // For a tool that may leave inputs unused: no check that each has a parent.
        virtual void disableParentCheck() = 0;
    };

    // What the framework's implementation offers beyond a plain topology's.
    class VN_EXPORT ToolImp : public PiTopologyInterface::Imp {
    public:
        ~ToolImp() override;
        virtual void openGuard() = 0;
        virtual void closeGuard() = 0;
        virtual Node getInputNode(RCShdPtr<PiInput> const& in) = 0;
        virtual void releaseOutputNode(RCShdPtr<PiOutput> const& out) = 0;
        // Whether the tool's nodes have been built (and not failed since).
        virtual bool isBuilt() const = 0;
    };
    using ImpFactory = OPtr<ToolImp> (*)(PiToolTopologyInterface& owner);
    using InputNodeMaker = Node (*)(RCShdPtr<PiInput> const& in, Node const& child);
    using OutputNodeMaker = Node (*)(RCShdPtr<PiOutput> const& out, Node const& child);

    // Installed by the tool framework at its start, with the makers of the default socket
    // nodes; nulls at its end.
    static void setImplementationFactory(ImpFactory factory, InputNodeMaker input = nullptr,
                                         OutputNodeMaker output = nullptr);
    static bool hasImplementationFactory() noexcept;

    // Raises ExBase when the tool framework has not started.
    PiToolTopologyInterface();
    ~PiToolTopologyInterface() override;
    Imp* getImp() override { return _imp.get(); }
    ToolImp& getToolImp() const { return *_imp; }

    // True keeps dynamic input changes from rebuilding the tool at once.
    virtual bool isRecreateProcNodesDisabled() const { return false; }
    // The node behind an input fed by `child`, and behind an output made by `child`: the
    // socket type's factory nodes by default.
    virtual Node createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child);
    virtual Node createOutputProcNode(RCShdPtr<PiOutput> const& out, Node const& child);
    // Builds the tool's own processing nodes from its input nodes and publishes one node per
    // output.
    virtual void createProcNodes(OutputPublisher& publisher) = 0;

private:
    OPtr<ToolImp> _imp;
};

// The side door to a tool topology's implementation.
class VN_EXPORT PiToolTopologyInterfaceManip {
public:
    static PiToolTopologyInterface::ToolImp& getImp(PiToolTopologyInterface& t) {
        return t.getToolImp();
    }
};

// Groups changes of a tool's inputs into one rebuild: while any guard on the tool lives, builds
// stop after the input nodes, and the outermost guard's end rebuilds once if needed.
class VN_EXPORT PiCreateProcGuard {
public:
    explicit PiCreateProcGuard(PiToolTopologyInterface& topology);
    PiCreateProcGuard(PiCreateProcGuard const&) = delete;
    PiCreateProcGuard& operator=(PiCreateProcGuard const&) = delete;
    // A failed rebuild is logged, never thrown: the next demand retries.
    ~PiCreateProcGuard();

    PxStrongHndl<PxNode const> getInputNode(std::string const& name) const;
    PxStrongHndl<PxNode const> getInputNode(RCShdPtr<PiInput> const& in) const;
    // Cuts the output from the tool's internals until the rebuild at the guard's end.
    void releaseOutputNode(std::string const& name);
    void releaseOutputNode(RCShdPtr<PiOutput> const& out);

private:
    PiToolTopologyInterface& _topology;
};

} // namespace Vn

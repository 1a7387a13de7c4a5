#pragma once

#include "PiNodeController.h"
#include "PxNode.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The mix-in of a controller that follows the node's sockets: connections, composite and
// dynamic inputs, result states. The hooks are empty by default.
class VN_EXPORT PiTopologyInterface : public virtual PiNodeController {
public:
    // The processing side of the topology; the tool framework supplies it.
    class Imp;

    PiTopologyInterface() { _topology = this; }
    ~PiTopologyInterface() override;
    virtual bool canAddInputToComposite(RCShdPtr<PiCompositeInput> const& composite);
    virtual bool canMoveInputInComposite(RCShdPtr<PiCompositeInput> const& composite,
                                         RCShdPtr<PiInput> const& input);
    virtual bool canRemoveInputFromComposite(RCShdPtr<PiCompositeInput> const& composite,
                                             RCShdPtr<PiInput> const& input);
    virtual Imp* getImp() { return nullptr; }

    // The processing nodes that stand for the node's sockets, built on first demand. Null
    // handles from a controller without a processing side.
    PxWeakHndl<PxNode const> getInputProcNode(RCShdPtr<PiInput> const& in);
    PxWeakHndl<PxNode const> getOutputProcNode(RCShdPtr<PiOutput> const& out);

    // Dynamic sockets: the graph asks before adding, renaming or removing one of this node's
    // (a group's through its boundary nodes), and refuses the edit on a false answer.
    virtual bool canAddDynamicInput(std::string const& name, PiSocketType type);
    virtual bool canAddDynamicOutput(std::string const& name, PiSocketType type);
    virtual bool canRenameDynamicInput(RCShdPtr<PiInput> const& in, std::string const& name);
    virtual bool canRenameDynamicOutput(RCShdPtr<PiOutput> const& out, std::string const& name);
    virtual bool canRemoveDynamicInput(RCShdPtr<PiInput> const& in);
    virtual bool canRemoveDynamicOutput(RCShdPtr<PiOutput> const& out);

private:
    friend class PiTopologyInterfaceManip;
    virtual void inputAddedToComposite(RCShdPtr<PiCompositeInput> const&,
                                       RCShdPtr<PiInput> const&) {}
    virtual void inputMovedInComposite(RCShdPtr<PiCompositeInput> const&, RCShdPtr<PiInput> const&,
                                       int /*from*/, int /*to*/) {}
    virtual void inputRemovedFromComposite(RCShdPtr<PiCompositeInput> const&, int /*id*/) {}
    virtual void inputConnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) {}
    virtual void inputDisconnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) {}
    virtual void outputConnected(RCShdPtr<PiOutput> const&, RCShdPtr<PiInput> const&) {}
    virtual void outputDisconnected(RCShdPtr<PiOutput> const&, RCShdPtr<PiInput> const&) {}
    virtual void resultStateChanged(RCShdPtr<PiOutput> const&) {}
    virtual void dynamicInputAdded(RCShdPtr<PiInput> const&) {}
    virtual void dynamicInputRemoved(int /*id*/) {}
    virtual void dynamicOutputAdded(RCShdPtr<PiOutput> const&) {}
    virtual void dynamicOutputRemoved(int /*id*/) {}
    virtual void dynamicInputRenamed(RCShdPtr<PiInput> const&) {}
    virtual void dynamicOutputRenamed(RCShdPtr<PiOutput> const&) {}
};

// The processing side of a topology: for each socket a pass-through node, the socket's stable
// face to the processing graph, and behind them what the node builds. Runs on the interface
// thread only; the graph's edits reach it through PiTopologyInterfaceManip.
class VN_EXPORT PiTopologyInterface::Imp : public PiNodeController::LifeHook {
public:
    using Node = PxStrongHndl<PxNode const>;
    using WeakNode = PxWeakHndl<PxNode const>;

    ~Imp() override;
    virtual WeakNode getInputProcNode(std::string const& name) = 0;
    virtual WeakNode getInputProcNode(RCShdPtr<PiInput> const& in) = 0;
    virtual WeakNode getOutputProcNode(RCShdPtr<PiOutput> const& out) = 0;
    // Builds once; forceCreateProcNodes builds again, keeping every socket's node.
    virtual void createProcNodes() = 0;
    virtual void forceCreateProcNodes() = 0;
    virtual bool isRecreateProcNodesDisabled() const = 0;
    virtual Node createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child) = 0;
    virtual Node createOutputProcNode(RCShdPtr<PiOutput> const& out, Node const& child) = 0;
    virtual void dynamicInputAdded(RCShdPtr<PiInput> const& in);
    virtual void dynamicInputRemoved(RCShdPtr<PiInput> const& in);
    virtual void dynamicOutputAdded(RCShdPtr<PiOutput> const& out);
    virtual void dynamicOutputRemoved(RCShdPtr<PiOutput> const& out);

    // The processing half of the graph's edits.
    virtual void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) = 0;
    virtual void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out) = 0;
    virtual void resultStateChanged(RCShdPtr<PiOutput> const& out) = 0;
};

// The topology of a link node, told when the socket it stands for changes (by an edit, its
// undo or its redo).
class VN_EXPORT PiLinkTopologyInterface : public PiTopologyInterface {
public:
    ~PiLinkTopologyInterface() override;

private:
    friend class PiLinkTopologyInterfaceManip;
    virtual void linkChanged() {}
};

// How the graph tells a link's topology that its target changed.
class VN_EXPORT PiLinkTopologyInterfaceManip {
public:
    static void linkChanged(PiLinkTopologyInterface& t) { t.linkChanged(); }
};

// How the graph tells a topology of an edit.
class VN_EXPORT PiTopologyInterfaceManip {
public:
    static void inputConnected(PiTopologyInterface& t, RCShdPtr<PiInput> const& in,
                               RCShdPtr<PiOutput> const& out);
    static void inputDisconnected(PiTopologyInterface& t, RCShdPtr<PiInput> const& in,
                                  RCShdPtr<PiOutput> const& out);
    static void outputConnected(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out,
                                RCShdPtr<PiInput> const& in);
    static void outputDisconnected(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out,
                                   RCShdPtr<PiInput> const& in);
    static void resultStateChanged(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out);
    static void inputAddedToComposite(PiTopologyInterface& t,
                                      RCShdPtr<PiCompositeInput> const& composite,
                                      RCShdPtr<PiInput> const& in);
    static void inputMovedInComposite(PiTopologyInterface& t,
                                      RCShdPtr<PiCompositeInput> const& composite, int from,
                                      int to);
    static void inputRemovedFromComposite(PiTopologyInterface& t,
                                          RCShdPtr<PiCompositeInput> const& composite,
                                          RCShdPtr<PiInput> const& in);
    // A boundary node speaks for its group: the group's hook alone, with the boundary's list.
    static void forwardInputAddedToComposite(PiTopologyInterface& t,
                                             RCShdPtr<PiCompositeInput> const& composite,
                                             RCShdPtr<PiInput> const& in) {
        t.inputAddedToComposite(composite, in);
    }
    static void forwardInputMovedInComposite(PiTopologyInterface& t,
                                             RCShdPtr<PiCompositeInput> const& composite,
                                             RCShdPtr<PiInput> const& in, int from, int to) {
        t.inputMovedInComposite(composite, in, from, to);
    }
    static void forwardInputRemovedFromComposite(PiTopologyInterface& t,
                                                 RCShdPtr<PiCompositeInput> const& composite,
                                                 int id) {
        t.inputRemovedFromComposite(composite, id);
    }
    static void dynamicInputAdded(PiTopologyInterface& t, RCShdPtr<PiInput> const& in);
    static void dynamicInputRemoved(PiTopologyInterface& t, RCShdPtr<PiInput> const& in,
                                    PiSocketType::Cardinality cardinality);
    static void dynamicOutputAdded(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out);
    static void dynamicOutputRemoved(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out);
    static void dynamicInputRenamed(PiTopologyInterface& t, RCShdPtr<PiInput> const& in);
    static void dynamicOutputRenamed(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out);
};

} // namespace Vn

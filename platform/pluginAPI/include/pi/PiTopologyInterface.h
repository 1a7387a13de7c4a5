#pragma once

#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

// The mix-in of a controller that follows the node's sockets: connections, composite and
// dynamic inputs, result states. The hooks are empty by default.
class VN_EXPORT PiTopologyInterface : public virtual PiNodeController {
public:
    // The processing side of the topology; the tool framework supplies it.
    class Imp;

    ~PiTopologyInterface() override;
    virtual bool canAddInputToComposite(RCShdPtr<PiCompositeInput> const& composite);
    virtual bool canMoveInputInComposite(RCShdPtr<PiCompositeInput> const& composite,
                                         RCShdPtr<PiInput> const& input);
    virtual bool canRemoveInputFromComposite(RCShdPtr<PiCompositeInput> const& composite,
                                             RCShdPtr<PiInput> const& input);
    virtual Imp* getImp() { return nullptr; }

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
    static void dynamicInputAdded(PiTopologyInterface& t, RCShdPtr<PiInput> const& in);
    static void dynamicInputRemoved(PiTopologyInterface& t, RCShdPtr<PiInput> const& in,
                                    PiSocketType::Cardinality cardinality);
    static void dynamicOutputAdded(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out);
    static void dynamicOutputRemoved(PiTopologyInterface& t, RCShdPtr<PiOutput> const& out);
};

} // namespace Vn

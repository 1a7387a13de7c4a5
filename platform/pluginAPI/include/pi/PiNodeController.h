#pragma once

#include "Cb.h"
#include "OPtr.h"
#include "PiNode.h"
#include "PiSocketType.h"
#include "VnExport.h"

namespace Vn {

class PiTool;

// Gives a node its behaviour. Mix-in interfaces derive virtually from it; the graph calls their
// private hooks through the Manip classes, on every edit, its undo and its redo alike.
class VN_EXPORT PiNodeController : public RCSWBase<LkCounter<int>> {
public:
    PiNodeController() = default;
    PiNodeController(PiNodeController const&) = delete;
    PiNodeController& operator=(PiNodeController const&) = delete;
    ~PiNodeController() override;

    // Null before the node is made and after it is gone.
    RCShdPtr<PiNode> getNode() const { return _node.lock(); }
    void addEventHandler(CbHandler<PiNodeEvent>* handler) { _events.addHandler(handler); }
    void removeEventHandler(CbHandler<PiNodeEvent>* handler) { _events.removeHandler(handler); }
    void addCallback(CbHandler<PiNodeEvent>* handler) { _events.addHandler(handler); }
    void removeCallback(CbHandler<PiNodeEvent>* handler) { _events.removeHandler(handler); }

protected:
    // Handlers get the event itself, whatever its class.
    void signalEvent(PiNodeEvent const& event) { _events.call(event); }

private:
    friend class PiNodeControllerManip;
    // The node entered its graph: made, or put back by undo or redo.
    virtual void nodeCreated() {}
    // The node entered its graph from an archive.
    virtual void nodeLoaded() {}
    // The node left its graph: removed, or taken out by undo or redo.
    virtual void nodeRemoved() {}
    virtual void nodeUnloaded() {}
    virtual void nameChanged() {}

    RCWeakPtr<PiNode> _node;
    CbDispatcher<PiNodeEvent> _events;
};

// The side door through which the graph reaches a controller's private operations.
class VN_EXPORT PiNodeControllerManip {
public:
    static void setNode(PiNodeController& c, PiNode* node) { c._node = RCWeakPtr<PiNode>(node); }
    static void nodeCreated(PiNodeController& c) { c.nodeCreated(); }
    static void nodeLoaded(PiNodeController& c) { c.nodeLoaded(); }
    static void nodeRemoved(PiNodeController& c) { c.nodeRemoved(); }
    static void nodeUnloaded(PiNodeController& c) { c.nodeUnloaded(); }
    static void nameChanged(PiNodeController& c) { c.nameChanged(); }
    static void signalEvent(PiNodeController& c, PiNodeEvent const& e) { c.signalEvent(e); }
};

// Makes the controllers of the nodes that no tool describes. The tool framework installs its
// own; the default one makes plain controllers and group controllers.
class VN_EXPORT PiNodeControllerFactory {
public:
    virtual ~PiNodeControllerFactory();
    virtual RCShdPtr<PiNodeController> createGroupController(PiTool const* tool);
    virtual RCShdPtr<PiNodeController> createBoundaryController();
    virtual RCShdPtr<PiNodeController> createLinkController();
    virtual RCShdPtr<PiNodeController> createValueController(PiSocketType type);

    static PiNodeControllerFactory& getInstance();
    // Takes ownership; null puts the default back.
    static void setInstance(OPtr<PiNodeControllerFactory> factory);
};

} // namespace Vn

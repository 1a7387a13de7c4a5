#pragma once

#include "Cb.h"
#include "OPtr.h"
#include "PiNode.h"
#include "PiSocketType.h"
#include "VnExport.h"

#include <memory>
#include <vector>

namespace Vn {

class PiGroupInterface;
class PiTool;
class PiTopologyInterface;
class PiValueChangeInterface;

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
    void addEventHandler(CbHandler<PiNodeEvent>* handler) { extras().events.addHandler(handler); }
    void removeEventHandler(CbHandler<PiNodeEvent>* handler) {
        if (_extras)
            _extras->events.removeHandler(handler);
    }
    void addCallback(CbHandler<PiNodeEvent>* handler) { addEventHandler(handler); }
    void removeCallback(CbHandler<PiNodeEvent>* handler) { removeEventHandler(handler); }

    // What the implementation of a mix-in hears of the node's life, before the controller
    // does; a hook leaves a tool's own overrides free of calls to their bases.
    class VN_EXPORT LifeHook {
    public:
        virtual ~LifeHook();
        virtual void nodeCreated() {}
        virtual void nodeLoaded() {}
        virtual void nodeRemoved() {}
        virtual void nodeUnloaded() {}
    };

protected:
    // Handlers get the event itself, whatever its class.
    void signalEvent(PiNodeEvent const& event) {
        if (_extras)
            _extras->events.call(event);
    }
    // Not owned: the hook lives as long as the controller.
    void addLifeHook(LifeHook* hook) { extras().hooks.push_back(hook); }

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

    // The mix-ins the graph tells of every edit: each constructor records itself, so that the
    // graph finds them without a cast through the class hierarchy for each node it makes.
    friend class PiGroupInterface;
    friend class PiTopologyInterface;
    friend class PiValueChangeInterface;
    PiTopologyInterface* _topology = nullptr;
    PiGroupInterface* _group = nullptr;
    PiValueChangeInterface* _valueChange = nullptr;

    // What few controllers use, made on first use: a graph makes controllers by the thousand.
    struct Extras {
        CbDispatcher<PiNodeEvent> events;
        std::vector<LifeHook*> hooks;
    };
    Extras& extras() {
        if (!_extras)
            _extras = std::make_unique<Extras>();
        return *_extras;
    }
    std::vector<LifeHook*> const& hooks() const {
        static std::vector<LifeHook*> const none;
        return _extras ? _extras->hooks : none;
    }

    RCWeakPtr<PiNode> _node;
    std::unique_ptr<Extras> _extras;
};

// The side door through which the graph reaches a controller's private operations.
class VN_EXPORT PiNodeControllerManip {
public:
    static void setNode(PiNodeController& c, PiNode* node) { c._node = RCWeakPtr<PiNode>(node); }
    static void nodeCreated(PiNodeController& c) {
        for (PiNodeController::LifeHook* h : c.hooks())
            h->nodeCreated();
        c.nodeCreated();
    }
    static void nodeLoaded(PiNodeController& c) {
        for (PiNodeController::LifeHook* h : c.hooks())
            h->nodeLoaded();
        c.nodeLoaded();
    }
    static void nodeRemoved(PiNodeController& c) {
        c.nodeRemoved();
        for (PiNodeController::LifeHook* h : c.hooks())
            h->nodeRemoved();
    }
    static void nodeUnloaded(PiNodeController& c) {
        c.nodeUnloaded();
        for (PiNodeController::LifeHook* h : c.hooks())
            h->nodeUnloaded();
    }
    static void nameChanged(PiNodeController& c) { c.nameChanged(); }
    // The controller's mix-ins, null where it has none.
    static PiTopologyInterface* topology(PiNodeController const& c) { return c._topology; }
    static PiGroupInterface* group(PiNodeController const& c) { return c._group; }
    static PiValueChangeInterface* valueChange(PiNodeController const& c) { return c._valueChange; }
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

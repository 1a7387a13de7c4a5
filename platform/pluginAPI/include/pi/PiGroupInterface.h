#pragma once

#include "Iterator.h"
#include "PiNodeController.h"
#include "VnExport.h"

namespace Vn {

// The controller of a group node; its answers rule the edits inside the group.
class VN_EXPORT PiGroupInterface : public virtual PiNodeController {
public:
    PiGroupInterface() { _group = this; }
    ~PiGroupInterface() override;

    virtual bool canAddNode(RCShdPtr<PiNode> const& node);
    virtual bool canAddToolNode(RCShdPtr<PiTool const> const& tool);
    virtual bool canAddGroupNode();
    virtual bool canPaste();
    virtual bool canAddLinkNode(RCShdPtr<PiSocket> const& socket);
    virtual bool canAddLinkNode(PiSocketType const& type);
    virtual bool canRemoveNode(RCShdPtr<PiNode> const& node);
    virtual bool canMoveNode(RCShdPtr<PiNode> const& node);
    virtual bool canConnectSockets(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out);
    virtual bool canDisconnectSockets(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out);
    virtual bool canDisconnectSockets(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const& out,
                                      RCShdPtr<PiNode> const& node);
    virtual bool canChangeInternalNodeName(RCShdPtr<PiNode> const& node);
    virtual bool overridesUserInterface(RCShdPtr<PiNode> const& node);
    virtual bool overridesEventHandlingInterface(RCShdPtr<PiNode> const& node);
    virtual RCShdPtr<PiOutput> overridePlaybackTarget(RCShdPtr<PiOutput> const& output);
    virtual RCShdPtr<PiInput> overridePlaybackTarget(RCShdPtr<PiInput> const& input);
    virtual Iterator<RCShdPtr<PiNode>> overrideKeyframesDisplay(RCShdPtr<PiNode> const& node);

    RCShdPtr<PiGroupNode> getGroupNode() const;

    // While enabled, every group accepts the changes its controller would refuse
    // (`canChangeGroupNode`): the application's own rebuilding of a locked group, for one.
    static void enableChangeGroupNodeOverride(bool enable);
    static bool isChangeGroupNodeOverrideEnabled();

protected:
    // What the `can` defaults answer: the override, or `canChangeGroupNode`.
    bool changeAllowed();

private:
    friend class PiGroupInterfaceManip;
    virtual bool canChangeGroupNode() { return true; }
    virtual void nodeAdded(RCShdPtr<PiNode> const&) {}
    virtual void nodeRemovedFromGraph(int /*id*/) {}
    virtual void nodeMoved(RCShdPtr<PiNode> const&) {}
    virtual void socketsConnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) {}
    virtual void socketsDisconnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&,
                                     RCShdPtr<PiNode> const&) {}
    virtual void internalNodeNameChanged(RCShdPtr<PiNode> const&) {}
};

// How the graph tells a group's controller of edits inside the group.
class VN_EXPORT PiGroupInterfaceManip {
public:
    static void nodeAdded(PiGroupInterface& g, RCShdPtr<PiNode> const& n) { g.nodeAdded(n); }
    static void nodeRemovedFromGraph(PiGroupInterface& g, int id) { g.nodeRemovedFromGraph(id); }
    static void nodeMoved(PiGroupInterface& g, RCShdPtr<PiNode> const& n) { g.nodeMoved(n); }
    static void socketsConnected(PiGroupInterface& g, RCShdPtr<PiInput> const& in,
                                 RCShdPtr<PiOutput> const& out) {
        g.socketsConnected(in, out);
    }
    static void socketsDisconnected(PiGroupInterface& g, RCShdPtr<PiInput> const& in,
                                    RCShdPtr<PiOutput> const& out, RCShdPtr<PiNode> const& n) {
        g.socketsDisconnected(in, out, n);
    }
    static void internalNodeNameChanged(PiGroupInterface& g, RCShdPtr<PiNode> const& n) {
        g.internalNodeNameChanged(n);
    }
};

} // namespace Vn

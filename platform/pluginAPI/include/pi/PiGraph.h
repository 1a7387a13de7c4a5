#pragma once

#include "Cb.h"
#include "PiNode.h"
#include "RCBase.h"
#include "VnExport.h"

#include <functional>
#include <string>
#include <vector>

namespace Vn {

class PiCommandStack;
class PiNodeController;
class XmlElement;
class XmlWriter;

// What a graph tells its subscribers: closed, refreshed, a command done.
struct VN_EXPORT PiGraphEvent {
    enum Type : int { CloseGraph, GraphRefreshed, CommandProcessed };
    Type type = CommandProcessed;
};

// Makes the controller of a graph's root group, which is the graph's controller: the
// application gives a composition's or a display graph's interface this way.
using PiGraphControllerFactory = std::function<RCShdPtr<PiNodeController>(PiGraph& graph)>;

// Keeps a graph open while it lives.
class VN_EXPORT PiGraphOpenGuard : public RCBase<LkCounter<int>> {
public:
    explicit PiGraphOpenGuard(RCShdPtr<PiGraph> graph);
    ~PiGraphOpenGuard() override;
    RCShdPtr<PiGraph> const& getGraph() const noexcept { return _graph; }

private:
    RCShdPtr<PiGraph> _graph;
};

// A tool graph: a root group, its undo history and its events.
class VN_EXPORT PiGraph : public RCSWBase<LkCounter<int>> {
public:
    ~PiGraph() override;

    virtual RCShdPtr<PiGroupNode> getRootNode() const = 0;
    virtual std::string const& getName() const = 0;
    virtual void setName(std::string const& name) = 0;
    // What the graph is to the application: "Composition", "Footage", "DisplayGraph", or
    // empty for a plain graph.
    virtual std::string const& getRole() const = 0;
    virtual void setRole(std::string const& role) = 0;
    // The controller of the root group; the application supplies it at creation, so that it
    // can be cast to the interfaces it implements. Null only once the graph is gone.
    RCShdPtr<PiNodeController> getController() const;
    // An implementation holds its stack through an RCShdPtr, so that it can be shared.
    virtual PiCommandStack& getCommandStack() = 0;
    // The same stack as a shared object.
    RCShdPtr<PiCommandStack> shareCommandStack();

    virtual void addCallback(CbHandler<PiGraphEvent>* handler) = 0;
    virtual void removeCallback(CbHandler<PiGraphEvent>* handler) = 0;

    // False between close() and refresh().
    virtual bool isValid() const = 0;
    // Tells everyone (CloseGraph) and marks the graph not valid.
    virtual void close() = 0;
    // Valid again; tells everyone (GraphRefreshed).
    virtual void refresh() = 0;
    // The graph stays open while a guard lives.
    RCShdPtr<PiGraphOpenGuard> open();
    virtual int getOpenCount() const = 0;

    // Writes the nodes, their stored values, the connections among them and the interiors of
    // groups as one element "Graph". The nodes must belong to this graph.
    virtual void archiveNodes(std::vector<RCShdPtr<PiNode>> const& nodes,
                              XmlWriter& writer) const = 0;
    // Makes the nodes of a "Graph" element in `group`, under one undo guard, and gives them.
    // Raises ExBase for a malformed archive; the graph is then left as it was.
    virtual std::vector<RCShdPtr<PiNode>> unarchiveNodes(XmlElement const& graphElement,
                                                         RCShdPtr<PiGroupNode> const& group) = 0;

private:
    friend class PiGraphOpenGuard;
    virtual void openCountChanged(int delta) = 0;
};

} // namespace Vn

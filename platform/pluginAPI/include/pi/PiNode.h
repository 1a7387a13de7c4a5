#pragma once

#include "Cb.h"
#include "Iterator.h"
#include "PiGraphObject.h"
#include "PiSocket.h"
#include "PiValue.h"
#include "PxValidityInterval.h"
#include "VnExport.h"

#include <map>
#include <string>
#include <vector>

namespace Vn {

class PiGraph;
class PiGroupNode;
class PiNodeController;
class PiTool;

// What a node's controller signals to those who watch the node. Events are open classes:
// subsystems derive their own (kind `Custom`), and handlers receive them by reference, so a
// receiver finds the class it knows with dynamic_cast.
class VN_EXPORT PiNodeEvent {
public:
    enum Type : int {
        InputAdded,
        InputRemoved,
        SocketConnected,
        SocketDisconnected,
        PresetChanged,
        Invalidation,
        ResultStateChanged,
        AnimValueChanged,
        AnimRemoved,
        ValueChanged,
        Custom,
    };
    PiNodeEvent() = default;
    explicit PiNodeEvent(Type t, RCShdPtr<PiInput> in = {}, RCShdPtr<PiOutput> out = {},
                         int idx = 0)
        : type(t), input(std::move(in)), output(std::move(out)), index(idx) {}
    PiNodeEvent(PiNodeEvent const&) = default;
    PiNodeEvent& operator=(PiNodeEvent const&) = default;
    virtual ~PiNodeEvent();

    Type type = Invalidation;
    RCShdPtr<PiInput> input;
    RCShdPtr<PiOutput> output;
    int index = 0;
    PxValidityInterval interval = PxValidityInterval::FULL;
    // The stored value of a ValueChanged event.
    RCShdPtr<PiValue> value;
};

// A node of a tool graph. Edits join the graph's current undo command.
class VN_EXPORT PiNode : public PiGraphObject {
public:
    // Which sockets a walk visits, by their kind.
    enum LifeScope : int { STATIC = 1, DYNAMIC = 2, ALL = 3 };
    enum NodeKind : int { TOOL, GROUP, BOUNDARY, LINK, VALUE };

    virtual NodeKind getNodeKind() const = 0;
    virtual std::string const& getNodeName() const = 0;
    virtual void setNodeName(std::string const& name) = 0;
    // Null once the graph is gone.
    virtual RCShdPtr<PiGraph> getGraph() const = 0;
    // The enclosing group; null for the root and for a node out of its graph.
    virtual RCShdPtr<PiGroupNode> retrieveGroupNode() const = 0;
    virtual RCWeakPtr<PiNodeController> getController() const = 0;

    // With `enterComposites` 1 an input holding sub-inputs (composite, multi-valued or
    // structured) is replaced by the leaf inputs under it, depth first: the sockets that take
    // connections, each of a real type.
    virtual Iterator<RCShdPtr<PiInput>> getInputs(LifeScope scope = ALL,
                                                  int enterComposites = 0) const = 0;
    virtual Iterator<RCShdPtr<PiOutput>> getOutputs(LifeScope scope = ALL) const = 0;
    // By name, or by dotted name for sub-inputs; null when there is none.
    virtual RCShdPtr<PiInput> findInput(std::string const& name, LifeScope scope = ALL) const = 0;
    virtual RCShdPtr<PiOutput> findOutput(std::string const& name, LifeScope scope = ALL) const = 0;

    // Dynamic sockets; names must be new on the node. On a group each comes with its boundary
    // node; a value-typed input of a tool node comes with its value node.
    virtual RCShdPtr<PiInput> addDynamicInput(std::string const& name, PiSocketType type) = 0;
    virtual RCShdPtr<PiOutput> addDynamicOutput(std::string const& name, PiSocketType type) = 0;
    virtual void removeDynamicInput(RCShdPtr<PiInput> const& input) = 0;
    virtual void removeDynamicOutput(RCShdPtr<PiOutput> const& output) = 0;
    // The new name must be new on the node; a group's socket renames its boundary node too.
    virtual void renameDynamicInput(RCShdPtr<PiInput> const& input, std::string const& name) = 0;
    virtual void renameDynamicOutput(RCShdPtr<PiOutput> const& output, std::string const& name) = 0;

    // Stored values. getValue gives null when there is no value of that name and type.
    virtual RCShdPtr<PiValue> getValue(std::string const& name, PiValueType type) const = 0;
    virtual RCShdPtr<PiValue> findValue(std::string const& name) const = 0;
    virtual Iterator<RCShdPtr<PiValue>> getValues() const = 0;
    // Raises ExBase when the name is taken.
    virtual RCShdPtr<PiValue> addValue(std::string const& name, PiValueType type) = 0;
    // False when there was no value of that name.
    virtual bool removeValue(std::string const& name) = 0;

    // Node events reach subscribers through the controller.
    void addEventHandler(CbHandler<PiNodeEvent>* handler) const;
    void removeEventHandler(CbHandler<PiNodeEvent>* handler) const;
    // Called with the node when it, or a group around it, leaves the graph.
    virtual void addRemovedHandler(CbHandler<RCShdPtr<PiNode>>* handler) const = 0;
    virtual void removeRemovedHandler(CbHandler<RCShdPtr<PiNode>>* handler) const = 0;
};

// A node made from a tool's description.
class VN_EXPORT PiToolNode : public virtual PiNode {
public:
    virtual RCShdPtr<PiTool const> getTool() const = 0;
};

// Connections that crossed a group's boundary after nodes moved into it: `inward` holds inner
// inputs fed from outside, `outward` inner outputs with consumers outside.
struct VN_EXPORT PiGroupCrossings {
    std::vector<std::pair<RCShdPtr<PiInput>, RCShdPtr<PiOutput>>> inward;
    std::vector<std::pair<RCShdPtr<PiInput>, RCShdPtr<PiOutput>>> outward;
};

// Holds a sub-graph. Its sockets are those of its boundary nodes.
class VN_EXPORT PiGroupNode : public virtual PiNode {
public:
    // The tool the group stands for, if any.
    virtual RCShdPtr<PiTool const> getTool() const = 0;
    // In order of creation; boundary nodes included.
    virtual Iterator<RCShdPtr<PiNode>> getNodes() const = 0;
    virtual int getNodeCount() const = 0;
    virtual RCShdPtr<PiNode> findNode(std::string const& name) const = 0;

    // A node with the tool's sockets, stored values and controller, and one value node feeding
    // each value-typed input that holds no sub-inputs.
    virtual RCShdPtr<PiToolNode> createToolNode(RCShdPtr<PiTool const> const& tool,
                                                std::string const& name) = 0;
    // With a tool, the group gets the tool's sockets as static boundary nodes.
    virtual RCShdPtr<PiGroupNode> createGroupNode(std::string const& name,
                                                  RCShdPtr<PiTool const> const& tool = {}) = 0;
    // A node standing for a socket of another graph; its one output has the target's type.
    virtual RCShdPtr<class PiLinkNode> createLinkNode(std::string const& name, PiSocketType type,
                                                      RCShdPtr<PiSocket> const& target) = 0;
    // Disconnects the node, and removes the value nodes that fed only it.
    virtual void removeNode(RCShdPtr<PiNode> const& node) = 0;
    // Moves nodes of any group of the graph into this one and gives the connections that now
    // cross this group's boundary.
    virtual PiGroupCrossings moveNodes(std::vector<RCShdPtr<PiNode>> const& nodes) = 0;
    // Copies the nodes into this group, with the connections among them only. `idMap`, when
    // given, receives old id to new id for each node, socket and stored value copied.
    virtual std::vector<RCShdPtr<PiNode>> cloneNodes(std::vector<RCShdPtr<PiNode>> const& nodes,
                                                     std::map<int, int>* idMap = nullptr) = 0;
};

// Stands inside a group and carries one socket of the group: an input boundary has the group's
// input (facing out) and an output (facing in); an output boundary the reverse.
class VN_EXPORT PiBoundaryNode : public virtual PiNode {
public:
    virtual bool isInputNode() const = 0;
    bool isOutputNode() const { return !isInputNode(); }
    // PiSocket::STATIC for a socket of the group's tool, DYNAMIC for one added later.
    virtual int getBoundaryKind() const = 0;
    virtual RCShdPtr<PiInput> getInput() const = 0;
    virtual RCShdPtr<PiOutput> getOutput() const = 0;
    // The other socket of this boundary node; null for a socket not of this node.
    virtual RCShdPtr<PiSocket> getMatchingSocket(PiSocket const& socket) const = 0;
};

// Stands for a socket of another graph.
class VN_EXPORT PiLinkNode : public virtual PiNode {
public:
    virtual RCShdPtr<PiSocket> getTargetSocket() const = 0;
    virtual RCShdPtr<PiGraph> getLinkedGraph() const = 0;
    virtual void setTargetSocket(RCShdPtr<PiSocket> const& target) = 0;
    virtual RCShdPtr<PiOutput> getOutput() const = 0;
};

// A parameter: one input and one output of the same type, and its value as the first stored
// value.
class VN_EXPORT PiValueNode : public virtual PiNode {
public:
    // The name of the stored value that holds the parameter.
    static constexpr char const* VALUE_NAME = "Value";
    virtual RCShdPtr<PiInput> getInput() const = 0;
    virtual RCShdPtr<PiOutput> getOutput() const = 0;
};

} // namespace Vn

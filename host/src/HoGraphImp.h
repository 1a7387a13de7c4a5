#pragma once

// The concrete tool graph. Objects point up and across with plain pointers; each destructor
// clears the pointers others hold on it, so none ever dangles. Edits go through actions
// (HoActions.cpp) recorded on the graph's command stack.

#include "HoGraph.h"
#include "HoSmallList.h"
#include "PiCommandStack.h"
#include "PiGraph.h"
#include "PiNode.h"
#include "PiNodeController.h"
#include "PiTool.h"

#include <memory>
#include <string>
#include <typeinfo>
#include <unordered_set>
#include <vector>

namespace Vn {

class HoGraphImp;
class HoGroupNode;
class PiGroupInterface;
class PiTopologyInterface;
class PiValueChangeInterface;
class HoNode;
class HoOutput;

// ---------------------------------------------------------------------------------------------
// Sockets

class HoInput : public virtual PiInput {
public:
    HoInput(HoNode* node, HoInput* owner, std::string name, PiSocketType type, Kind kind);
    ~HoInput() override;

    bool isValid() const override;
    std::string const& getName() const override { return _name; }
    PiSocketType getType() const override { return _type; }
    Kind getKind() const override { return _kind; }
    RCShdPtr<PiNode> retrieveNode() const override;
    bool isConnected() const override { return _source != nullptr; }
    RCShdPtr<PiOutput> getConnectedOutput() const override;
    RCShdPtr<PiInput> getOwnerInput() const override;
    void connect(RCShdPtr<PiOutput> const& output) override;
    void disconnect() override;

    HoNode* node() const noexcept { return _node; }
    HoInput* owner() const noexcept { return _owner; }
    std::string const& name() const noexcept { return _name; }
    PiSocketType type() const noexcept { return _type; }
    Kind kind() const noexcept { return _kind; }
    HoOutput* source() const noexcept { return _source; }
    bool attached() const noexcept { return _attached; }
    std::vector<RCShdPtr<HoInput>> const& elements() const noexcept {
        static std::vector<RCShdPtr<HoInput>> const none;
        return _list ? _list->elements : none;
    }
    // For a list of structures, the description of each element.
    std::shared_ptr<PiStructuredPolicyDescriptor const> const& elementStructure() const noexcept {
        static std::shared_ptr<PiStructuredPolicyDescriptor const> const none;
        return _list ? _list->structure : none;
    }
    // Building an input that is in no graph yet: its elements' description and its elements.
    void buildElementStructure(std::shared_ptr<PiStructuredPolicyDescriptor const> d);
    void buildElement(RCShdPtr<HoInput> el);

    // Inputs that hold sub-inputs never connect.
    bool isLeaf() const noexcept {
        return _type.getType() != PiSocketType::NONE &&
               _type.getCardinality() == PiSocketType::SINGLE;
    }
    // The leaves under this input (or itself), depth first.
    void collectLeaves(std::vector<HoInput*>& out) const;
    // This input, or with `leaves` the leaves under it.
    void collect(std::vector<RCShdPtr<PiInput>>& out, bool leaves) const;

protected:
    int listCardinality() const { return static_cast<int>(elements().size()); }
    RCShdPtr<PiInput> listInput(int i) const;
    int listIndexOf(PiInput const& in) const;

private:
    // Whether the input is reached from its graph's root: one being made is not, even when it
    // already knows its node and its list.
    bool inGraph() const;
    // The elements to change, made on first use.
    std::vector<RCShdPtr<HoInput>>& editElements();

    // The edits change the state; the other end of a connection and the node clear the
    // pointers they hold on it when they go.
    friend class HoEdit;
    friend class HoOutput;
    friend class HoNode;

    HoNode* _node;
    HoInput* _owner;
    std::string _name;
    PiSocketType _type;
    Kind _kind;
    HoOutput* _source = nullptr;
    bool _attached = true;
    // What only a list of inputs holds, apart: most inputs are leaves, and a clone or an
    // archive walks them by the thousand.
    struct List {
        std::vector<RCShdPtr<HoInput>> elements;
        std::shared_ptr<PiStructuredPolicyDescriptor const> structure;
    };
    std::unique_ptr<List> _list;
};

class HoCompositeInput final : public PiCompositeInput, public HoInput {
public:
    using HoInput::HoInput;
    int getCardinality() const override { return listCardinality(); }
    RCShdPtr<PiInput> getInput(int i) const override { return listInput(i); }
    int indexOf(PiInput const& in) const override { return listIndexOf(in); }
    RCShdPtr<PiInput> insertInput(int index, std::string const& name) override;
    void removeInput(RCShdPtr<PiInput> const& input) override;
    void moveBefore(RCShdPtr<PiInput> const& input, RCShdPtr<PiInput> const& before) override;
};

class HoMultivaluedInput final : public PiMultivaluedInput, public HoInput {
public:
    using HoInput::HoInput;
    int getCardinality() const override { return listCardinality(); }
    RCShdPtr<PiInput> getInput(int i) const override { return listInput(i); }
    int indexOf(PiInput const& in) const override { return listIndexOf(in); }
    RCShdPtr<PiInput> insertInput(int index) override;
    void removeInput(int index) override;
};

class HoStructuredInput final : public PiStructuredInput, public HoInput {
public:
    using HoInput::HoInput;
    int getCardinality() const override { return listCardinality(); }
    RCShdPtr<PiInput> getInput(int i) const override { return listInput(i); }
    RCShdPtr<PiInput> getInput(std::string const& name) const override;
    int indexOf(PiInput const& in) const override { return listIndexOf(in); }
};

class HoOutput final : public PiOutput {
public:
    HoOutput(HoNode* node, std::string name, PiSocketType type, Kind kind);
    ~HoOutput() override;

    bool isValid() const override;
    std::string const& getName() const override { return _name; }
    PiSocketType getType() const override { return _type; }
    Kind getKind() const override { return _kind; }
    RCShdPtr<PiNode> retrieveNode() const override;
    bool isConnected() const override { return !_targets.empty(); }
    Iterator<RCShdPtr<PiInput>> getConnectedInputs() const override;
    int getConnectedInputCount() const override { return static_cast<int>(_targets.size()); }
    int getResultState() const override { return _resultState; }
    void setResultState(int state) override;

    HoNode* node() const noexcept { return _node; }
    std::string const& name() const noexcept { return _name; }
    PiSocketType type() const noexcept { return _type; }
    Kind kind() const noexcept { return _kind; }
    int resultState() const noexcept { return _resultState; }
    bool attached() const noexcept { return _attached; }
    HoSmallList<HoInput*, 1> const& targets() const noexcept { return _targets; }
    // The state an archive or a copy gives an output that is in no graph yet.
    void buildResultState(int state);

private:
    // The edits change the state; the inputs it feeds and its node clear the pointers they
    // hold on it when they go.
    friend class HoEdit;
    friend class HoInput;
    friend class HoNode;

    HoNode* _node;
    std::string _name;
    PiSocketType _type;
    Kind _kind;
    int _resultState = 0;
    bool _attached = true;
    HoSmallList<HoInput*, 1> _targets;
};

// Makes the input object that fits the type: composite, multi-valued, structured or plain.
RCShdPtr<HoInput> makeInput(HoNode* node, HoInput* owner, std::string const& name,
                            PiSocketType type, PiSocket::Kind kind);
// A new element of a list input, not attached yet: an input of the list's type, or a structure
// built from the list's element description.
RCShdPtr<HoInput> makeElement(HoInput& list, std::string const& name);
// The name of a new element of a multi-valued input: one past the highest number in use, so
// no element ever takes a name another still holds.
std::string nextElementName(HoInput const& list);

// ---------------------------------------------------------------------------------------------
// Stored values

// What the node needs of each of its values, whatever their type.
class HoValueState {
public:
    virtual ~HoValueState();
    virtual PiValue& value() = 0;
    // A value of the same name, type and content on another node, not in any graph.
    virtual RCShdPtr<PiValue> copyFor(HoNode* node) const = 0;
    // Sets the content from its archived text without any undo; for values not in a graph yet.
    virtual void load(std::string const& text) = 0;
    HoNode* node() const noexcept { return _node; }
    std::string const& name() const noexcept { return _name; }
    bool attached() const noexcept { return _attached; }

protected:
    HoValueState(HoNode* node, std::string name) : _node(node), _name(std::move(name)) {}

private:
    // The edits attach and detach the value; its node clears the pointer when it goes.
    friend class HoEdit;
    friend class HoNode;

    HoNode* _node = nullptr;
    std::string _name;
    bool _attached = true;
};

RCShdPtr<PiValue> makeValue(HoNode* node, std::string const& name, PiValueType type);
HoValueState& valueState(PiValue const& v);

// ---------------------------------------------------------------------------------------------
// Nodes

class HoNode : public virtual PiNode {
public:
    HoNode(HoGraphImp* graph, std::string name);
    ~HoNode() override;

    bool isValid() const override;
    std::string const& getNodeName() const override { return _name; }
    void setNodeName(std::string const& name) override;
    RCShdPtr<PiGraph> getGraph() const override;
    RCShdPtr<PiGroupNode> retrieveGroupNode() const override;
    RCWeakPtr<PiNodeController> getController() const override { return _controller; }

    Iterator<RCShdPtr<PiInput>> getInputs(LifeScope scope, int enterComposites) const override;
    Iterator<RCShdPtr<PiOutput>> getOutputs(LifeScope scope) const override;
    RCShdPtr<PiInput> findInput(std::string const& name, LifeScope scope) const override;
    RCShdPtr<PiOutput> findOutput(std::string const& name, LifeScope scope) const override;

    RCShdPtr<PiInput> addDynamicInput(std::string const& name, PiSocketType type) override;
    RCShdPtr<PiOutput> addDynamicOutput(std::string const& name, PiSocketType type) override;
    void removeDynamicInput(RCShdPtr<PiInput> const& input) override;
    void removeDynamicOutput(RCShdPtr<PiOutput> const& output) override;
    void renameDynamicInput(RCShdPtr<PiInput> const& input, std::string const& name) override;
    void renameDynamicOutput(RCShdPtr<PiOutput> const& output, std::string const& name) override;

    RCShdPtr<PiValue> getValue(std::string const& name, PiValueType type) const override;
    RCShdPtr<PiValue> findValue(std::string const& name) const override;
    Iterator<RCShdPtr<PiValue>> getValues() const override;
    RCShdPtr<PiValue> addValue(std::string const& name, PiValueType type) override;
    bool removeValue(std::string const& name) override;

    void addRemovedHandler(CbHandler<RCShdPtr<PiNode>>* h) const override;
    void removeRemovedHandler(CbHandler<RCShdPtr<PiNode>>* h) const override;

    // The sockets the node shows; a group shows those of its boundary nodes.
    virtual void listInputs(std::vector<HoInput*>& out) const;
    virtual void listOutputs(std::vector<HoOutput*>& out) const;
    // Every leaf input and output of the node itself (not of a group's interior).
    void leafInputs(std::vector<HoInput*>& out) const;
    HoGraphImp& graph() const;
    // Raises ExBase unless the node is in its graph.
    void requireValid(char const* what) const;
    PiNodeController* controller() const noexcept { return _controller.get(); }
    void setController(RCShdPtr<PiNodeController> c);
    // The controller's mix-ins: every edit tells them.
    PiTopologyInterface* topology() const noexcept {
        return _controller ? PiNodeControllerManip::topology(*_controller) : nullptr;
    }
    PiGroupInterface* groupInterface() const noexcept {
        return _controller ? PiNodeControllerManip::group(*_controller) : nullptr;
    }
    PiValueChangeInterface* valueInterface() const noexcept {
        return _controller ? PiNodeControllerManip::valueChange(*_controller) : nullptr;
    }

    // Null once the graph is gone.
    HoGraphImp* graphIfAny() const noexcept { return _graph; }
    HoGroupNode* group() const noexcept { return _group; }
    bool attached() const noexcept { return _attached; }
    std::string const& name() const noexcept { return _name; }
    HoSmallList<RCShdPtr<HoInput>, 2> const& inputs() const noexcept { return _inputs; }
    HoSmallList<RCShdPtr<HoOutput>, 1> const& outputs() const noexcept { return _outputs; }
    HoSmallList<RCShdPtr<PiValue>, 1> const& values() const noexcept { return _values; }

    // Building a node that is in no graph yet (made from a description, an archive or a copy):
    // its name, sockets and stored values.
    void buildName(std::string name);
    // Room for the sockets and values about to be built, so that each list is allocated once.
    void buildReserve(std::size_t inputs, std::size_t outputs, std::size_t values);
    void buildInput(RCShdPtr<HoInput> in);
    void buildOutput(RCShdPtr<HoOutput> out);
    void buildValue(RCShdPtr<PiValue> v);

protected:
    // Only a node that is in no graph yet is built; the edits change the others.
    void assertBuilding() const;

private:
    // The edits change the state; the graph keeps its list of nodes and the root's place, and
    // a group its children's place.
    friend class HoEdit;
    friend class HoGraphImp;
    friend class HoGroupNode;

    HoGraphImp* _graph;
    HoNode* _prevInGraph = nullptr;
    HoNode* _nextInGraph = nullptr;
    HoGroupNode* _group = nullptr;
    bool _attached = false;
    std::string _name;
    RCShdPtr<PiNodeController> _controller;
    HoSmallList<RCShdPtr<HoInput>, 2> _inputs;
    HoSmallList<RCShdPtr<HoOutput>, 1> _outputs;
    HoSmallList<RCShdPtr<PiValue>, 1> _values;
    // Made for the first handler: few nodes have one.
    mutable std::unique_ptr<CbDispatcher<RCShdPtr<PiNode>>> _removed;
};

class HoToolNode final : public PiToolNode, public HoNode {
public:
    HoToolNode(HoGraphImp* graph, std::string name, RCShdPtr<PiTool const> tool);
    NodeKind getNodeKind() const override { return TOOL; }
    RCShdPtr<PiTool const> getTool() const override { return _tool; }

private:
    RCShdPtr<PiTool const> _tool;
};

class HoBoundaryNode final : public PiBoundaryNode, public HoNode {
public:
    HoBoundaryNode(HoGraphImp* graph, std::string const& name, PiSocketType type, bool isInput,
                   PiSocket::Kind kind);
    NodeKind getNodeKind() const override { return BOUNDARY; }
    bool isInputNode() const override { return _isInput; }
    int getBoundaryKind() const override { return _kind; }
    RCShdPtr<PiInput> getInput() const override { return inputs()[0]; }
    RCShdPtr<PiOutput> getOutput() const override { return outputs()[0]; }
    RCShdPtr<PiSocket> getMatchingSocket(PiSocket const& socket) const override;
    bool isInput() const noexcept { return _isInput; }
    PiSocket::Kind kind() const noexcept { return _kind; }

private:
    bool _isInput;
    PiSocket::Kind _kind;
};

// Where a link's target stands, as an archive keeps it: the graph's name, the node's names from
// below the root, and the socket. Kept on a link whose target could not be found, so that the
// link is written back as it was read.
struct HoSocketRef {
    std::string graph;
    std::vector<std::string> nodePath;
    std::string socket;
    bool isInput = false;
    bool empty() const noexcept { return graph.empty(); }
    // Empty for a null socket or one out of its graph.
    static HoSocketRef describe(PiSocket const* socket);
    // The socket among the live graphs of the process, or null.
    RCShdPtr<PiSocket> resolve() const;
};

class HoLinkNode final : public PiLinkNode, public HoNode {
public:
    HoLinkNode(HoGraphImp* graph, std::string name, PiSocketType type, RCShdPtr<PiSocket> target);
    ~HoLinkNode() override;
    NodeKind getNodeKind() const override { return LINK; }
    RCShdPtr<PiSocket> getTargetSocket() const override { return _target; }
    RCShdPtr<PiGraph> getLinkedGraph() const override;
    void setTargetSocket(RCShdPtr<PiSocket> const& target) override;
    RCShdPtr<PiOutput> getOutput() const override { return outputs()[0]; }
    PiSocket* target() const noexcept { return _target.get(); }
    // Where the target stood when it could not be found.
    HoSocketRef const& unresolved() const noexcept { return _unresolved; }
    // For a link that is in no graph yet: its target, or where the target stood when it could
    // not be found.
    void buildTarget(RCShdPtr<PiSocket> target, HoSocketRef unresolved);

private:
    friend class HoEdit;

    RCShdPtr<PiSocket> _target;
    HoSocketRef _unresolved;
};

class HoValueNode final : public PiValueNode, public HoNode {
public:
    // The stored value "Value" has the type that matches the socket type, if one does.
    HoValueNode(HoGraphImp* graph, std::string name, PiSocketType type);
    NodeKind getNodeKind() const override { return VALUE; }
    RCShdPtr<PiInput> getInput() const override { return inputs()[0]; }
    RCShdPtr<PiOutput> getOutput() const override { return outputs()[0]; }
};

class HoGroupNode final : public PiGroupNode, public HoNode {
public:
    HoGroupNode(HoGraphImp* graph, std::string name, RCShdPtr<PiTool const> tool);
    ~HoGroupNode() override;

    NodeKind getNodeKind() const override { return GROUP; }
    RCShdPtr<PiTool const> getTool() const override { return _tool; }
    Iterator<RCShdPtr<PiNode>> getNodes() const override;
    int getNodeCount() const override { return static_cast<int>(_children.size()); }
    RCShdPtr<PiNode> findNode(std::string const& name) const override;

    RCShdPtr<PiToolNode> createToolNode(RCShdPtr<PiTool const> const& tool,
                                        std::string const& name) override;
    RCShdPtr<PiGroupNode> createGroupNode(std::string const& name,
                                          RCShdPtr<PiTool const> const& tool) override;
    RCShdPtr<PiLinkNode> createLinkNode(std::string const& name, PiSocketType type,
                                        RCShdPtr<PiSocket> const& target) override;
    void removeNode(RCShdPtr<PiNode> const& node) override;
    PiGroupCrossings moveNodes(std::vector<RCShdPtr<PiNode>> const& nodes) override;
    std::vector<RCShdPtr<PiNode>> cloneNodes(std::vector<RCShdPtr<PiNode>> const& nodes,
                                             std::map<int, int>* idMap) override;

    RCShdPtr<PiInput> addDynamicInput(std::string const& name, PiSocketType type) override;
    RCShdPtr<PiOutput> addDynamicOutput(std::string const& name, PiSocketType type) override;
    void removeDynamicInput(RCShdPtr<PiInput> const& input) override;
    void removeDynamicOutput(RCShdPtr<PiOutput> const& output) override;

    void listInputs(std::vector<HoInput*>& out) const override;
    void listOutputs(std::vector<HoOutput*>& out) const override;
    bool isAncestorOf(HoNode const* n) const;

    std::vector<RCShdPtr<HoNode>> const& children() const noexcept { return _children; }
    std::vector<HoBoundaryNode*> const& inBounds() const noexcept { return _inBounds; }
    std::vector<HoBoundaryNode*> const& outBounds() const noexcept { return _outBounds; }
    // Building a group that is in no graph yet: a node inside it, and a boundary node (already
    // inside) as its next socket.
    void buildChild(RCShdPtr<HoNode> child);
    void buildBoundary(HoBoundaryNode& b);

private:
    friend class HoEdit;

    std::vector<RCShdPtr<HoNode>> _children;
    std::vector<HoBoundaryNode*> _inBounds;
    std::vector<HoBoundaryNode*> _outBounds;
    RCShdPtr<PiTool const> _tool;
};

// ---------------------------------------------------------------------------------------------
// The graph

class HoGraphImp final : public PiGraph {
public:
    HoGraphImp(std::string name, std::string role);
    ~HoGraphImp() override;

    RCShdPtr<PiGroupNode> getRootNode() const override { return _root; }
    std::string const& getName() const override { return _name; }
    void setName(std::string const& name) override { _name = name; }
    std::string const& getRole() const override { return _role; }
    void setRole(std::string const& role) override { _role = role; }
    PiCommandStack& getCommandStack() override { return _stack; }
    void addCallback(CbHandler<PiGraphEvent>* h) override { _events.addHandler(h); }
    void removeCallback(CbHandler<PiGraphEvent>* h) override { _events.removeHandler(h); }
    bool isValid() const override { return _valid; }
    void close() override;
    void refresh() override;
    int getOpenCount() const override { return _openCount; }
    void archiveNodes(std::vector<RCShdPtr<PiNode>> const& nodes, XmlWriter& writer) const override;
    std::vector<RCShdPtr<PiNode>> unarchiveNodes(XmlElement const& graphElement,
                                                 RCShdPtr<PiGroupNode> const& group) override;

    void record(OPtr<PiAction> action) { _stack.record(std::move(action)); }
    std::vector<HoNode*> subtree(HoNode& top) const;
    void feedInputsAddedSince(HoNode& top);
    HoGroupNode& root() const noexcept { return *_root; }
    std::string const& name() const noexcept { return _name; }
    PiCommandStack& stack() const noexcept { return _stack; }
    // The graphs alive in the process, by which archived links find their targets.
    static std::vector<HoGraphImp*>& liveGraphs();

private:
    // Nodes enter the list of the graph's nodes as they are made and leave it as they go.
    friend class HoNode;

    RCShdPtr<HoGroupNode> _root;
    std::string _name;
    std::string _role;
    // The graph holds its stack through a counted pointer, as others may share it.
    RCShdPtr<PiCommandStack> _stackOwner;
    PiCommandStack& _stack;
    CbDispatcher<PiGraphEvent> _events;
    bool _valid = true;
    int _openCount = 0;
    // Every node made for this graph and still alive, linked through the nodes themselves, so
    // that the graph can tell them it is gone; making and freeing a node costs no allocation.
    HoNode* _firstNode = nullptr;

    void openCountChanged(int delta) override { _openCount += delta; }
    void commandProcessed(CbEmptyType const&);
    CbMethod<HoGraphImp, CbEmptyType> _processed;
};

// ---------------------------------------------------------------------------------------------
// Edits, in HoActions.cpp. Each records its actions; callers hold an undo guard.

class HoEdit {
public:
    // Puts a made node into a group. `loaded` tells controllers the node came with stored
    // values from elsewhere (an archive, a clone). Without `announce` nothing is told until
    // announceNode, so that controllers hear of the node once its connections are made.
    static void attachNode(HoGroupNode& group, RCShdPtr<HoNode> const& node, bool loaded = false,
                           bool announce = true);
    static void announceNode(HoGroupNode& group, RCShdPtr<HoNode> const& node, bool loaded);
    // Made nodes entering a group together, unannounced, and their announcement: as many
    // attachNode and announceNode calls, in one action each.
    static void attachNodes(HoGroupNode& group, std::vector<RCShdPtr<HoNode>> nodes);
    static void announceNodes(HoGroupNode& group, std::vector<RCShdPtr<HoNode>> nodes, bool loaded);
    // Removes the value nodes that feed only this node, cuts its connections with the rest and
    // takes it out of its group.
    static void removeNode(RCShdPtr<HoNode> const& node);
    static void moveNode(RCShdPtr<HoNode> const& node, HoGroupNode& to);
    static void link(HoInput& in, HoOutput& out);
    static void unlink(HoInput& in);
    static void rename(HoNode& node, std::string const& name);
    static void setResultState(HoOutput& out, int state);
    // A dynamic input or output of a node that is not a group.
    template <class Socket>
    static void attachSocket(HoNode& node, RCShdPtr<Socket> const& socket);
    template <class Socket>
    static void detachSocket(HoNode& node, RCShdPtr<Socket> const& socket);
    // A group's socket, carried by its boundary node.
    static void attachBoundary(HoGroupNode& group, RCShdPtr<HoBoundaryNode> const& b);
    static void detachBoundary(HoGroupNode& group, HoBoundaryNode& b);
    static void attachElement(HoInput& list, RCShdPtr<HoInput> const& el, int index);
    static void detachElement(HoInput& list, HoInput& el);
    static void moveElement(HoInput& list, int from, int to);
    static void attachValue(HoNode& node, RCShdPtr<PiValue> const& v);
    static void detachValue(HoNode& node, PiValue& v);
    static void setTarget(HoLinkNode& link, RCShdPtr<PiSocket> const& target);
    // A dynamic socket of `owner` (a group's carried by its boundary node) takes a new name.
    static void renameSocket(HoNode& owner, HoInput* in, HoOutput* out, std::string const& name);

    // Composite:
    // Disconnects every connection between the subtree of `node` and the rest.
    static void cutAround(HoNode& node);
    // Removes the value nodes that feed only this node's inputs (or this input).
    static void removeFeedingValueNodes(HoInput& in, HoNode& consumer);
    // A value node feeding each value-typed leaf under `in`.
    static void feedValueNodes(HoGroupNode& group, HoNode& node, HoInput& in);

private:
    // The actions, which alone change the state of nodes, sockets and values in a graph.
    class NodeAttach;
    class NodeAnnounce;
    class NodesAttach;
    class NodesAnnounce;
    class Link;
    class Rename;
    class ResultState;
    template <class Socket>
    class SocketAttach;
    class BoundaryAttach;
    class ElementAttach;
    class ElementMove;
    class ValueAttach;
    class NodeMove;
    class SetTarget;
    class SocketRename;
    static void announceLeft(HoGroupNode& group, HoNode& node);
};

// Helpers shared by the files of the graph.
// The controller's mix-ins of a node that may be null.
inline PiGroupInterface* groupIf(HoNode const* n) {
    return n ? n->groupInterface() : nullptr;
}
inline PiTopologyInterface* topoIf(HoNode const* n) {
    return n ? n->topology() : nullptr;
}
// `p` as a `T` when that is exactly its class, else null: one comparison of classes, where a
// dynamic_cast searches the class hierarchy on every call.
template <class T, class B>
T const* exactCast(B const* p) noexcept {
    return typeid(*p) == typeid(T) ? static_cast<T const*>(dynamic_cast<void const*>(p)) : nullptr;
}
HoNode& hoNode(PiNode const& n);
// A walk over more objects than the cache holds asks for the next ones' lines ahead of use:
// `bytes` of the object from its count, which lies just before it.
inline void prefetchObject(void const* object, int bytes) noexcept {
    auto const* from = static_cast<char const*>(object) - 16;
    for (int at = 0; at < bytes + 16; at += 64)
        __builtin_prefetch(from + at);
}
// A node's block is about four lines: its count, its own fields, then the shared PiNode part
// (with the id and the count's address) at its end.
inline void prefetchNode(HoNode const* n) noexcept {
    prefetchObject(n, 224);
}
inline void prefetchNode(PiNode const* n) noexcept {
    prefetchObject(reinterpret_cast<char const*>(n) - 192, 216);
}
HoInput& hoInput(PiInput const& in);
HoOutput& hoOutput(PiOutput const& out);
// The group in which a connection to this input is drawn: an input boundary's input faces the
// group's parent.
HoGroupNode* wiringGroup(HoInput const& in);
HoGroupNode* wiringGroup(HoOutput const& out);
// Raises ExBase when connecting would close a cycle.
void checkNoCycle(HoInput const& in, HoOutput const& out);
// Tells the node's controller that a stored value changed.
void notifyValueChanged(PiValue& v);
// The value type that holds a socket type's values, or -1.
int valueTypeFor(PiSocketType type);
// A node built from a tool's description, not in any graph yet.
RCShdPtr<HoToolNode> buildToolNode(HoGraphImp& g, RCShdPtr<PiTool const> const& tool,
                                   std::string const& name);
RCShdPtr<HoValueNode> buildValueNode(HoGraphImp& g, std::string const& name, PiSocketType type);
RCShdPtr<HoGroupNode> buildGroupNode(HoGraphImp& g, std::string const& name,
                                     RCShdPtr<PiTool const> const& tool);

} // namespace Vn

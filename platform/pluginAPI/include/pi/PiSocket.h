#pragma once

#include "Iterator.h"
#include "PiGraphObject.h"
#include "PiSocketType.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiNode;
class PiOutput;

// A socket of a node. Every edit through a socket joins the graph's current undo command, or
// makes a command of its own outside any guard.
class VN_EXPORT PiSocket : public PiGraphObject {
public:
    // A static socket comes from the node's description, a dynamic one was added later.
    enum Kind : int { STATIC = 1, DYNAMIC = 2 };

    virtual std::string const& getName() const = 0;
    virtual PiSocketType getType() const = 0;
    virtual Kind getKind() const = 0;
    // The node the socket belongs to; null once that node is gone.
    virtual RCShdPtr<PiNode> retrieveNode() const = 0;
    virtual bool isConnected() const = 0;
    virtual bool isStructured() const { return false; }
};

// A socket that takes at most one connection, or holds sub-inputs.
class VN_EXPORT PiInput : public PiSocket {
public:
    virtual RCShdPtr<PiOutput> getConnectedOutput() const = 0;
    // The input that holds this one, for elements of composite, multi-valued and structured
    // inputs; null for an input of the node itself.
    virtual RCShdPtr<PiInput> getOwnerInput() const = 0;
    virtual bool isComposite() const { return false; }
    virtual bool isMultivalued() const { return false; }
    bool isPartOfComposite() const;
    // The owners' names and this one's, outermost first, joined by ".".
    std::string getDottedName() const;

    // An input takes at most one source: connecting replaces the current one. Only inputs
    // that hold no sub-inputs connect. Raises ExBase when the types differ, when the sockets
    // are not in one graph, or when the connection would close a cycle. The groups' consent
    // (`PiGroupInterface::canConnectSockets`) is the editing verbs' to ask, not this call's.
    virtual void connect(RCShdPtr<PiOutput> const& output) = 0;
    virtual void disconnect() = 0;
};

// A socket that feeds any number of inputs.
class VN_EXPORT PiOutput : public PiSocket {
public:
    virtual Iterator<RCShdPtr<PiInput>> getConnectedInputs() const = 0;
    virtual int getConnectedInputCount() const = 0;
    // 1 marks the output as a result of the graph, 0 clears it.
    virtual int getResultState() const = 0;
    virtual void setResultState(int state) = 0;
};

// Inputs that hold sub-inputs, addressable by index.
class VN_EXPORT PiInputList : public virtual PiInput {
public:
    virtual int getCardinality() const = 0;
    virtual RCShdPtr<PiInput> getInput(int index) const = 0;
    // -1 when the input is not an element of this one.
    virtual int indexOf(PiInput const& input) const = 0;
};

// An ordered, editable list of inputs of one type; the node's controller follows its changes.
class VN_EXPORT PiCompositeInput : public PiInputList {
public:
    bool isComposite() const override { return true; }
    // Inserts a new element before index; index == cardinality appends.
    virtual RCShdPtr<PiInput> insertInput(int index, std::string const& name) = 0;
    virtual void removeInput(RCShdPtr<PiInput> const& input) = 0;
    // Moves the element before `before`, or to the end when `before` is null.
    virtual void moveBefore(RCShdPtr<PiInput> const& input, RCShdPtr<PiInput> const& before) = 0;
};

// Values by index, edited at any index. Each element, a value or a structure, keeps the name
// it was made with while others come and go, so what refers to it by name (stored values,
// value nodes, connections, archives) follows the element, not its position.
class VN_EXPORT PiMultivaluedInput : public PiInputList {
public:
    bool isMultivalued() const override { return true; }
    // Inserts a new element before index; index == cardinality appends.
    virtual RCShdPtr<PiInput> insertInput(int index) = 0;
    virtual void removeInput(int index) = 0;
    RCShdPtr<PiInput> appendInput() { return insertInput(getCardinality()); }
    void removeLastInput() { removeInput(getCardinality() - 1); }
};

// Named sub-inputs fixed by the tool's description.
class VN_EXPORT PiStructuredInput : public PiInputList {
public:
    bool isStructured() const override { return true; }
    virtual RCShdPtr<PiInput> getInput(std::string const& name) const = 0;
    using PiInputList::getInput;
};

} // namespace Vn

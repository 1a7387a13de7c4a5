#pragma once

#include "PxNode.h"
#include "PxQueryRequest.h"
#include "PxTimeContext.h"
#include "PxValidityInterval.h"

namespace Vn {

// A node that gives one value, the same at all times unless its interval says otherwise.
template <class T>
class VN_EXPORT PxValueProtocol : public virtual PxNode {
public:
    virtual PxResult<T> getValue() const = 0;
};

// A node whose value may change with time.
template <class T>
class VN_EXPORT PxAnimValueProtocol : public virtual PxNode {
public:
    virtual PxResult<T> getValue(PxTimeContext const& context) const = 0;
};

// The ids of the tool-graph node and output socket a processing node stands for.
class VN_EXPORT PxGraphObjIdsProtocol : public virtual PxNode {
public:
    virtual int getNodeId() const = 0;
    virtual int getOutputSocketId() const = 0;
};

// Asks a value node for its value.
template <class T>
class VN_EXPORT PxValueRequest final : public PxQueryRequest<PxResult<T>> {
public:
    explicit PxValueRequest(PxUPtr<PxValueProtocol<T> const> const& node) : _node(node) {}
    void performExecute() override { this->setResult(_node->getValue()); }
    PxResult<T> const& getValue() const { return this->waitResult(); }

private:
    PxUPtr<PxValueProtocol<T> const> _node;
};

// Asks an animated value node for its value at a time.
template <class T>
class VN_EXPORT PxAnimValueRequest final : public PxQueryRequest<PxResult<T>> {
public:
    PxAnimValueRequest(PxUPtr<PxAnimValueProtocol<T> const> const& node,
                       PxTimeContext const& context)
        : _node(node), _context(context) {}
    void performExecute() override { this->setResult(_node->getValue(_context)); }
    PxResult<T> const& getValue() const { return this->waitResult(); }
    PxTimeContext const& getTimeContext() const noexcept { return _context; }

private:
    PxUPtr<PxAnimValueProtocol<T> const> _node;
    PxTimeContext _context;
};

// Asks a node for the pair of graph object ids it carries.
class VN_EXPORT PxGraphObjIdsRequest final : public PxQueryRequest<std::pair<int, int>> {
public:
    explicit PxGraphObjIdsRequest(PxUPtr<PxGraphObjIdsProtocol const> const& node) : _node(node) {}
    void performExecute() override;
    // Node ids are plain values: nothing to drop at clean-up.
    void performCleanUp() override {}
    int getNodeId() const { return waitResult().first; }
    int getOutputSocketId() const { return waitResult().second; }

private:
    PxUPtr<PxGraphObjIdsProtocol const> _node;
};

} // namespace Vn

#pragma once

#include "PiTopologyInterface.h"
#include "VnExport.h"

namespace Vn {

// What a group's output boundary gives the group when it builds the node behind a group output.
class VN_EXPORT PiBoundaryPublisher {
public:
    virtual ~PiBoundaryPublisher();
    // The node of the group output; the inner side shares it.
    virtual void publish(PxStrongHndl<PxNode const> const& node) = 0;
    // Separate nodes for the inner side and the group output, joined by a chain of single
    // parents.
    virtual void publish(PxStrongHndl<PxNode const> const& inNode,
                         PxStrongHndl<PxNode const> const& outNode) = 0;
};

// The mix-in of a group's controller: the group's sockets are its boundary nodes', and the
// group may choose the nodes that stand behind them.
class VN_EXPORT PiGroupTopologyInterface : public PiTopologyInterface {
public:
    using Node = PxStrongHndl<PxNode const>;
    ~PiGroupTopologyInterface() override;
    // The node behind a group input fed by `child`: the socket type's factory node by default.
    virtual Node createInputProcNode(RCShdPtr<PiInput> const& in, Node const& child);
    // Publishes the node behind a group output made by `child`: the factory's output node by
    // default.
    virtual void createOutputProcNode(PiBoundaryPublisher& publisher, RCShdPtr<PiOutput> const& out,
                                      Node const& child);
};

} // namespace Vn

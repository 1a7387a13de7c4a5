#pragma once

#include "OPtr.h"
#include "PiSocket.h"
#include "PiSocketType.h"
#include "PxNode.h"
#include "VnExport.h"

namespace Vn {

// Makes the processing nodes that stand for a socket type in a tool's processing graph: the
// node behind an input, behind an output, the pass-through that lets a child be swapped, and
// the generator that stands in for an unconnected input. One factory per type code.
class VN_EXPORT PiProcNodeFactory {
public:
    using Node = PxStrongHndl<PxNode const>;

    virtual ~PiProcNodeFactory();
    // The socket only tells which policy rules the node; `child` feeds it.
    virtual Node createInputNode(PiInput const& in, Node const& child) = 0;
    // A node shared by every caller: the type's value when nothing is connected.
    virtual Node createGeneratorNode() = 0;
    virtual Node createOutputNode(PiOutput const& out, Node const& child) = 0;
    // A child without the type's protocol is an assertion failure.
    virtual Node createPassThroughNode(Node const& child) = 0;

    // Each type code has at most one factory; a type without one is an assertion failure of
    // the creators below.
    static void registerFactory(PiSocketType const& type, OPtr<PiProcNodeFactory> factory);
    static void unregisterFactory(PiSocketType const& type);
    static bool isFactoryRegistered(PiSocketType const& type);

    static Node createInputNode(RCShdPtr<PiInput> const& in, Node const& child);
    static Node createOutputNode(RCShdPtr<PiOutput> const& out, Node const& child);
    static Node createGeneratorNode(PiSocketType const& type);
    static Node createPassThroughNode(PiSocketType const& type, Node const& child);

    // The value, image and scene factories of the library, registered at the tool framework's
    // start and removed at its end.
    static void initializeValueFactories();
    static void initializeImageFactory();
    static void initializeSceneFactories();
    static void finalize();
};

} // namespace Vn

#pragma once

// What the topologies share: the pass-throughs that face a socket's consumers, and the child
// changes that move them.
#include "PiNode.h"
#include "PiTopologyInterface.h"
#include "PxPassThroughProtocol.h"

namespace Vn::PiTopologyUtil {

using Node = PiTopologyInterface::Imp::Node;

// The node as the pass-through it must be; another node is an assertion failure.
PxStrongHndl<PxPassThroughProtocol> asPassThrough(Node const& node);
// A child change, run after everything submitted before it.
void setChild(PxStrongHndl<PxPassThroughProtocol> const& node, Node const& child);
// A pass-through of the type over its generator: a face that stands before its source is known.
PxStrongHndl<PxPassThroughProtocol> makeFace(PiSocketType const& type);
// What feeds the input: the connected output's node, else its type's generator.
Node sourceOf(RCShdPtr<PiInput> const& in);

} // namespace Vn::PiTopologyUtil

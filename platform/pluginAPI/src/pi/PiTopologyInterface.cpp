#include "PiTopologyInterface.h"

#include "Assertions.h"
#include "PiGroupInterface.h"
#include "PiValueChangeInterface.h"

namespace Vn {

namespace {
// The node whose controller hears of a socket: a boundary node's sockets are its group's.
RCShdPtr<PiNode> controllingNode(PiSocket const& s) {
    RCShdPtr<PiNode> n = s.retrieveNode();
    if (n && n->getNodeKind() == PiNode::BOUNDARY)
        return n->retrieveGroupNode();
    return n;
}
bool controls(PiNodeController& c, PiSocket const& s) {
    return PiGraphObject::areEqual(controllingNode(s), c.getNode()) ||
           PiGraphObject::areEqual(s.retrieveNode(), c.getNode());
}
} // namespace

PiTopologyInterface::~PiTopologyInterface() = default;
PiTopologyInterface::Imp::~Imp() = default;

// Only the topologies that support dynamic sockets override these.
void PiTopologyInterface::Imp::dynamicInputAdded(RCShdPtr<PiInput> const&) {
    Assertions::throwAssertionFailed(__FILE__, __LINE__, "dynamic inputs are not supported");
}
void PiTopologyInterface::Imp::dynamicInputRemoved(RCShdPtr<PiInput> const&) {
    Assertions::throwAssertionFailed(__FILE__, __LINE__, "dynamic inputs are not supported");
}
void PiTopologyInterface::Imp::dynamicOutputAdded(RCShdPtr<PiOutput> const&) {
    Assertions::throwAssertionFailed(__FILE__, __LINE__, "dynamic outputs are not supported");
}
void PiTopologyInterface::Imp::dynamicOutputRemoved(RCShdPtr<PiOutput> const&) {
    Assertions::throwAssertionFailed(__FILE__, __LINE__, "dynamic outputs are not supported");
}

bool PiTopologyInterface::canAddInputToComposite(RCShdPtr<PiCompositeInput> const&) {
    return true;
}
bool PiTopologyInterface::canMoveInputInComposite(RCShdPtr<PiCompositeInput> const&,
                                                  RCShdPtr<PiInput> const&) {
    return true;
}
bool PiTopologyInterface::canRemoveInputFromComposite(RCShdPtr<PiCompositeInput> const&,
                                                      RCShdPtr<PiInput> const&) {
    return true;
}

bool PiTopologyInterface::canAddDynamicInput(std::string const&, PiSocketType) {
    return true;
}
bool PiTopologyInterface::canAddDynamicOutput(std::string const&, PiSocketType) {
    return true;
}
bool PiTopologyInterface::canRenameDynamicInput(RCShdPtr<PiInput> const&, std::string const&) {
    return true;
}
bool PiTopologyInterface::canRenameDynamicOutput(RCShdPtr<PiOutput> const&, std::string const&) {
    return true;
}
bool PiTopologyInterface::canRemoveDynamicInput(RCShdPtr<PiInput> const&) {
    return true;
}
bool PiTopologyInterface::canRemoveDynamicOutput(RCShdPtr<PiOutput> const&) {
    return true;
}

PiLinkTopologyInterface::~PiLinkTopologyInterface() = default;

void PiTopologyInterfaceManip::dynamicInputRenamed(PiTopologyInterface& t,
                                                   RCShdPtr<PiInput> const& in) {
    t.dynamicInputRenamed(in);
}
void PiTopologyInterfaceManip::dynamicOutputRenamed(PiTopologyInterface& t,
                                                    RCShdPtr<PiOutput> const& out) {
    t.dynamicOutputRenamed(out);
}

void PiTopologyInterfaceManip::inputConnected(PiTopologyInterface& t, RCShdPtr<PiInput> const& in,
                                              RCShdPtr<PiOutput> const& out) {
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->inputConnected(in, out);
    t.inputConnected(in, out);
}
void PiTopologyInterfaceManip::inputDisconnected(PiTopologyInterface& t,
                                                 RCShdPtr<PiInput> const& in,
                                                 RCShdPtr<PiOutput> const& out) {
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->inputDisconnected(in, out);
    t.inputDisconnected(in, out);
}
void PiTopologyInterfaceManip::outputConnected(PiTopologyInterface& t,
                                               RCShdPtr<PiOutput> const& out,
                                               RCShdPtr<PiInput> const& in) {
    t.outputConnected(out, in);
}
void PiTopologyInterfaceManip::outputDisconnected(PiTopologyInterface& t,
                                                  RCShdPtr<PiOutput> const& out,
                                                  RCShdPtr<PiInput> const& in) {
    t.outputDisconnected(out, in);
}
void PiTopologyInterfaceManip::resultStateChanged(PiTopologyInterface& t,
                                                  RCShdPtr<PiOutput> const& out) {
    // clang-format off
    VN_ASSERT(out->getResultState() == 0 || out->getResultState() == 1);
    // clang-format on
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->resultStateChanged(out);
    t.resultStateChanged(out);
}
void PiTopologyInterfaceManip::inputAddedToComposite(PiTopologyInterface& t,
                                                     RCShdPtr<PiCompositeInput> const& composite,
                                                     RCShdPtr<PiInput> const& in) {
    t.inputAddedToComposite(composite, in);
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->dynamicInputAdded(in);
}
void PiTopologyInterfaceManip::inputMovedInComposite(PiTopologyInterface& t,
                                                     RCShdPtr<PiCompositeInput> const& composite,
                                                     int from, int to) {
    // clang-format off
    VN_ASSERT(composite->retrieveNode()->isSame( *( t.getNode() ) ));
    // clang-format on
    t.inputMovedInComposite(composite, composite->getInput(to), from, to);
}
void PiTopologyInterfaceManip::inputRemovedFromComposite(
    PiTopologyInterface& t, RCShdPtr<PiCompositeInput> const& composite,
    RCShdPtr<PiInput> const& in) {
    // clang-format off
    VN_ASSERT(composite->retrieveNode()->isSame( *( t.getNode() ) ));
    // clang-format on
    t.inputRemovedFromComposite(composite, in->getId());
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->dynamicInputRemoved(in);
}
void PiTopologyInterfaceManip::dynamicInputAdded(PiTopologyInterface& t,
                                                 RCShdPtr<PiInput> const& in) {
    VN_ASSERT(controls(t, *in));
    if (PiTopologyInterface::Imp* imp = t.getImp(); imp && !in->isComposite())
        imp->dynamicInputAdded(in);
    t.dynamicInputAdded(in);
}
void PiTopologyInterfaceManip::dynamicInputRemoved(PiTopologyInterface& t,
                                                   RCShdPtr<PiInput> const& in,
                                                   PiSocketType::Cardinality) {
    // Whatever the input holds: no element's node may stay behind.
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->dynamicInputRemoved(in);
    t.dynamicInputRemoved(in->getId());
}
void PiTopologyInterfaceManip::dynamicOutputAdded(PiTopologyInterface& t,
                                                  RCShdPtr<PiOutput> const& out) {
    VN_ASSERT(controls(t, *out));
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->dynamicOutputAdded(out);
    t.dynamicOutputAdded(out);
}
void PiTopologyInterfaceManip::dynamicOutputRemoved(PiTopologyInterface& t,
                                                    RCShdPtr<PiOutput> const& out) {
    if (PiTopologyInterface::Imp* imp = t.getImp())
        imp->dynamicOutputRemoved(out);
    t.dynamicOutputRemoved(out->getId());
}

PiGroupInterface::~PiGroupInterface() = default;

namespace {
bool gChangeOverride = false;
} // namespace

void PiGroupInterface::enableChangeGroupNodeOverride(bool enable) {
    gChangeOverride = enable;
}

bool PiGroupInterface::isChangeGroupNodeOverrideEnabled() {
    return gChangeOverride;
}

bool PiGroupInterface::changeAllowed() {
    return gChangeOverride || canChangeGroupNode();
}

bool PiGroupInterface::canAddNode(RCShdPtr<PiNode> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canAddToolNode(RCShdPtr<PiTool const> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canAddGroupNode() {
    return changeAllowed();
}
bool PiGroupInterface::canPaste() {
    return changeAllowed();
}
bool PiGroupInterface::canAddLinkNode(RCShdPtr<PiSocket> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canAddLinkNode(PiSocketType const&) {
    return changeAllowed();
}
bool PiGroupInterface::canRemoveNode(RCShdPtr<PiNode> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canMoveNode(RCShdPtr<PiNode> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canConnectSockets(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canDisconnectSockets(RCShdPtr<PiInput> const& in,
                                            RCShdPtr<PiOutput> const& out) {
    return canDisconnectSockets(in, out, RCShdPtr<PiNode>());
}
bool PiGroupInterface::canDisconnectSockets(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&,
                                            RCShdPtr<PiNode> const&) {
    return changeAllowed();
}
bool PiGroupInterface::canChangeInternalNodeName(RCShdPtr<PiNode> const&) {
    return true;
}
bool PiGroupInterface::overridesUserInterface(RCShdPtr<PiNode> const&) {
    return false;
}
bool PiGroupInterface::overridesEventHandlingInterface(RCShdPtr<PiNode> const&) {
    return false;
}
RCShdPtr<PiOutput> PiGroupInterface::overridePlaybackTarget(RCShdPtr<PiOutput> const& output) {
    return output;
}
RCShdPtr<PiInput> PiGroupInterface::overridePlaybackTarget(RCShdPtr<PiInput> const& input) {
    return input;
}
Iterator<RCShdPtr<PiNode>> PiGroupInterface::overrideKeyframesDisplay(RCShdPtr<PiNode> const& n) {
    return Iterator<RCShdPtr<PiNode>>::overValues({n});
}
RCShdPtr<PiGroupNode> PiGroupInterface::getGroupNode() const {
    RCShdPtr<PiNode> n = getNode();
    return RCShdPtr<PiGroupNode>(dynamic_cast<PiGroupNode*>(n.get()));
}

PiValueChangeInterface::~PiValueChangeInterface() = default;

void PiValueChangeInterfaceManip::valueChanged(PiValueChangeInterface& v,
                                               RCShdPtr<PiValue> const& value) {
    // clang-format off
    VN_ASSERT(value->getNode()->isSame( *( v.getNode() ) ));
    // clang-format on
    v.valueChanged(value);
}
void PiValueChangeInterfaceManip::dynamicValueAdded(PiValueChangeInterface& v,
                                                    RCShdPtr<PiValue> const& value) {
    // clang-format off
    VN_ASSERT(value->getNode()->isSame( *( v.getNode() ) ));
    // clang-format on
    v.dynamicValueAdded(value);
}
void PiValueChangeInterfaceManip::dynamicValueRemoved(PiValueChangeInterface& v,
                                                      RCShdPtr<PiValue> const& value) {
    // clang-format off
    VN_ASSERT(value->getNode()->isSame( *( v.getNode() ) ));
    // clang-format on
    v.dynamicValueRemoved(value->getName(), value->getId());
}

} // namespace Vn

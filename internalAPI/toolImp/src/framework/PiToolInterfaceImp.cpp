#include "PiToolInterfaceImp.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiGraphObject.h"
#include "PiImageInputPolicy.h"
#include "PiNode.h"
#include "PiTool.h"

#include <algorithm>

namespace Vn {

namespace {
// Filled at the framework's start, read on the interface thread only.
std::map<int, RCShdPtr<PiInputPolicy const>> s_defaults;

OPtr<PiToolInterface::Imp> makeImp(PiToolInterface& owner) {
    return OPtr<PiToolInterface::Imp>(new PiToolInterfaceImp(owner));
}

void describe(PiStructuredPolicyDescriptor const& d, std::string const& prefix,
              std::unordered_map<std::string, RCShdPtr<PiInputPolicy const>>& into) {
    for (PiStructuredPolicyDescriptor::Input const& in : d.getInputs()) {
        std::string const key = prefix + in.name;
        if (in.policy)
            into.emplace(key, in.policy);
        if (in.structure)
            describe(*in.structure, key + ".", into);
    }
}
} // namespace

PiToolInterfaceImp::PiToolInterfaceImp(PiToolInterface& owner) : _controller(owner) {}

PiToolInterfaceImp::~PiToolInterfaceImp() = default;

void PiToolInterfaceImp::initialize() {
    if (!s_defaults.empty())
        Assertions::throwAssertionFailed(__FILE__, __LINE__, "policies.empty()");
    PiToolInterface::setImplementationFactory(&makeImp);
    s_defaults[PiSocketType::BOOL] = PiTypedInputPolicy<bool>::getInstance();
    s_defaults[PiSocketType::DOUBLE] = PiTypedInputPolicy<double>::getInstance();
    s_defaults[PiSocketType::INT] = PiTypedInputPolicy<int>::getInstance();
    s_defaults[PiSocketType::STRING] = PiTypedInputPolicy<std::string>::getInstance();
    s_defaults[PiSocketType::TIME] = PiTypedInputPolicy<DtTime>::getInstance();
    s_defaults[PiSocketType::IMAGE] = PiImageInputPolicy::createSecondary(
        PiImageInputPolicy::PRIMARY_COMPONENTS, PiImageInputPolicy::ALL_DEPTHS,
        PiImageInputPolicy::PRIMARY_DEPTH, PiImageInputPolicy::PRIMARY_ASPECT, 0, 0);
    s_defaults[PiSocketType::SHAPE2D] = PiShape2dInputPolicy::getDefault();
}

void PiToolInterfaceImp::finalize() {
    s_defaults.clear();
    PiToolInterface::setImplementationFactory(nullptr);
}

RCShdPtr<PiInputPolicy const> PiToolInterfaceImp::getDefaultPolicy(int socketType) {
    auto it = s_defaults.find(socketType);
    return it == s_defaults.end() ? RCShdPtr<PiInputPolicy const>() : it->second;
}

PiToolInterfaceImp::PolicyMap const& PiToolInterfaceImp::policies() const {
    if (!_described) {
        if (RCShdPtr<PiTool const> tool = _controller.getTool()) {
            describe(tool->getDescriptor(), "", _policies);
            _described = true;
        }
    }
    return _policies;
}

std::string PiToolInterfaceImp::getInputPolicyKey(PiInput const& input) const {
    RCShdPtr<PiInput> owner = input.getOwnerInput();
    if (!owner)
        return input.getName();
    // Elements of a list share the list's policy; a structure's members add their names.
    if (owner->isStructured())
        return getInputPolicyKey(*owner) + "." + input.getName();
    return getInputPolicyKey(*owner);
}

RCShdPtr<PiInputPolicy const> PiToolInterfaceImp::getInputPolicy(PiInput const& input) const {
    auto cached = _resolved.find(input.getId());
    if (cached != _resolved.end())
        return cached->second;
    PolicyMap const& declared = policies();
    auto it = declared.find(getInputPolicyKey(input));
    auto defaultIt = s_defaults.find(input.getType().getType());
    if (it == declared.end()) {
        if (defaultIt == s_defaults.end())
            return {};
        _resolved.emplace(input.getId(), defaultIt->second);
        return defaultIt->second;
    }
    if (defaultIt != s_defaults.end() && !it->second->hasSameType(defaultIt->second))
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "policy->hasSameType( defaultIt->second )");
    _resolved.emplace(input.getId(), it->second);
    return it->second;
}

bool PiToolInterfaceImp::hasInputPolicy(std::string const& key) const {
    PolicyMap const& declared = policies();
    return declared.find(key) != declared.end();
}

bool PiToolInterfaceImp::hasInputPolicy(PiInput const& input) const {
    return !input.isStructured() && hasInputPolicy(getInputPolicyKey(input));
}

void PiToolInterfaceImp::addInputPolicy(std::string const& key,
                                        RCShdPtr<PiInputPolicy const> policy) {
    policies();
    if (_policies.find(key) != _policies.end())
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "_policies.find( policyKey ) == _policies.end()");
    _policies.emplace(key, std::move(policy));
    _resolved.clear();
}

void PiToolInterfaceImp::replaceInputPolicy(std::string const& key,
                                            RCShdPtr<PiInputPolicy const> policy) {
    policies();
    _policies[key] = std::move(policy);
    _resolved.clear();
}

RCShdPtr<PiInput> PiToolInterfaceImp::getPrimaryInput() const {
    RCShdPtr<PiTool const> tool = _controller.getTool();
    if (!tool)
        return {};
    std::string const name = tool->getProtocol().getPrimaryInput();
    RCShdPtr<PiInput> in =
        name.empty() ? RCShdPtr<PiInput>() : _controller.getNode()->findInput(name);
    if (in && in->isMultivalued()) {
        auto list = rcCast<PiMultivaluedInput>(in);
        return list && list->getCardinality() > 0 ? list->getInput(0) : RCShdPtr<PiInput>();
    }
    return in;
}

RCShdPtr<PiOutput> PiToolInterfaceImp::getPrimaryOutput() const {
    RCShdPtr<PiTool const> tool = _controller.getTool();
    if (!tool)
        return {};
    std::string const name = tool->getProtocol().getPrimaryOutput();
    return name.empty() ? RCShdPtr<PiOutput>() : _controller.getNode()->findOutput(name);
}

void PiToolInterfaceImp::setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>> inputs) {
    _inputsAddedOnRestore = std::move(inputs);
}

void PiToolInterfaceImp::setCurrentPreset(int index) {
    _currentPreset = index >= 0 && index < static_cast<int>(_presets.size()) ? index : -1;
    PiNodeEvent e(PiNodeEvent::PresetChanged, {}, {}, _currentPreset);
    signalEvent(_controller, e);
}

void PiToolInterfaceImp::setCurrentPreset(std::string const& name) {
    auto it = std::find(_presets.begin(), _presets.end(), name);
    if (it == _presets.end()) {
        if (static_cast<int>(_presets.size()) >= PiToolInterface::MAX_PRESETS)
            _presets.erase(_presets.begin());
        _presets.push_back(name);
        it = _presets.end() - 1;
    }
    setCurrentPreset(static_cast<int>(it - _presets.begin()));
}

void PiToolInterfaceImp::setPresets(std::vector<std::string> presets) {
    _presets = std::move(presets);
    if (_currentPreset >= static_cast<int>(_presets.size()))
        _currentPreset = -1;
}

void PiToolInterfaceImp::clearPresets() {
    _presets.clear();
    _currentPreset = -1;
}

RCShdPtr<PiValueNode> PiToolInterfaceImp::getInputValueNode(PiInput const& input) const {
    return PiInputPolicy::getValueNode(input);
}

void PiToolInterfaceImp::reset() {
    RCShdPtr<PiNode> node = _controller.getNode();
    if (!node)
        return;
    for (auto it = node->getInputs(PiNode::ALL, 1); !it.atEnd(); it.next())
        resetOne(*it.item());
}

void PiToolInterfaceImp::reset(RCShdPtr<PiInput> const& input) {
    if (!input || !PiGraphObject::areEqual(input->retrieveNode(), _controller.getNode()))
        Assertions::throwAssertionFailed(
            __FILE__, __LINE__,
            "PiGraphObject::areEqual( PiGroupUtils::getNode( s ), _controller.getNode() )");
    resetOne(*input);
}

void PiToolInterfaceImp::resetOne(PiInput& input) const {
    if (input.isStructured() || input.isComposite() || input.isMultivalued()) {
        auto& list = dynamic_cast<PiInputList&>(input);
        for (int i = 0; i < list.getCardinality(); ++i)
            resetOne(*list.getInput(i));
        return;
    }
    if (RCShdPtr<PiInputPolicy const> policy = getInputPolicy(input))
        policy->resetValue(input);
}

void PiToolInterfaceImp::nodeCreated() {
    // Only the edit that makes the node starts it from the policies' defaults; undo and redo
    // bring back what the values were.
    if (std::exchange(_created, true))
        return;
    reset();
}

void PiToolInterfaceImp::nodeLoaded() {
    _created = true;
    Iterator<RCShdPtr<PiInput>> added = std::exchange(_inputsAddedOnRestore, {});
    for (; !added.atEnd(); added.next())
        if (added.item())
            resetOne(*added.item());
}

} // namespace Vn

#include "PiToolInterface.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiGraphUtils.h"
#include "PiNode.h"
#include "PiTool.h"

#include <atomic>

namespace Vn {

namespace {
std::atomic<PiToolInterface::ImpFactory> s_impFactory{nullptr};
} // namespace

PiToolInterface::Imp::~Imp() = default;

void PiToolInterface::setImplementationFactory(ImpFactory factory) {
    s_impFactory.store(factory);
}

bool PiToolInterface::hasImplementationFactory() noexcept {
    return s_impFactory.load() != nullptr;
}

PiToolInterface::PiToolInterface() {
    ImpFactory const factory = s_impFactory.load();
    if (!factory)
        VN_THROW_MSG(ExBase, "a tool controller needs the tool framework: it has not started");
    _imp = factory(*this);
    VN_ASSERT(_imp);
    addLifeHook(_imp.get());
}

PiToolInterface::~PiToolInterface() = default;

void PiToolInterface::setInputsAddedOnRestore(Iterator<RCShdPtr<PiInput>> inputs) {
    _imp->setInputsAddedOnRestore(std::move(inputs));
}

void PiToolInterface::setPresets(std::vector<std::string> presets) {
    _imp->setPresets(std::move(presets));
}

void PiToolInterface::reset(std::string const& inputName) {
    RCShdPtr<PiNode> node = getNode();
    RCShdPtr<PiInput> in = node ? node->findInput(inputName) : RCShdPtr<PiInput>();
    if (!in)
        VN_THROW_MSG(ExBase, "the tool has no input \"" + inputName + "\" to reset");
    reset(in);
}

std::string PiToolInterface::getCurrentPresetName() const {
    int const i = getCurrentPreset();
    std::vector<std::string> const& presets = getPresets();
    return i >= 0 && i < static_cast<int>(presets.size()) ? presets[i] : std::string();
}

RCShdPtr<PiTool const> PiToolInterface::getTool() const {
    RCShdPtr<PiNode> node = getNode();
    if (!node)
        return {};
    RCShdPtr<PiTool const> tool = PiGraphUtils::getTool(node);
    if (!tool)
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "\"Invalid node type used with PiToolInterface\" == 0");
    return tool;
}

bool PiToolInterface::hasInputPolicy(std::string const& keyOrInputName) const {
    RCShdPtr<PiNode> node = getNode();
    RCShdPtr<PiInput> in = node ? node->findInput(keyOrInputName) : RCShdPtr<PiInput>();
    return in ? _imp->hasInputPolicy(*in) : _imp->hasInputPolicy(keyOrInputName);
}

void PiToolInterface::addInputPolicy(std::string const& key, RCShdPtr<PiInputPolicy const> policy) {
    _imp->addInputPolicy(key, std::move(policy));
}

void PiToolInterface::addInputPolicy(PiInput const& input, RCShdPtr<PiInputPolicy const> policy) {
    VN_ASSERT(!input.isStructured());
    _imp->addInputPolicy(getInputPolicyKey(input), std::move(policy));
}

void PiToolInterface::replaceInputPolicy(std::string const& key,
                                         RCShdPtr<PiInputPolicy const> policy) {
    _imp->replaceInputPolicy(key, std::move(policy));
}

void PiToolInterface::replaceInputPolicy(PiInput const& input,
                                         RCShdPtr<PiInputPolicy const> policy) {
    VN_ASSERT(!input.isStructured());
    _imp->replaceInputPolicy(getInputPolicyKey(input), std::move(policy));
}

} // namespace Vn

#include "PiImageModifier.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiImageInputPolicy.h"
#include "PiTool.h"

#include <atomic>

namespace Vn {

namespace {
std::atomic<PiImageModifier::ImpFactory> s_impFactory{nullptr};

std::string const& name(char const* text) {
    // Leaked on purpose: names outlive every tool, even at process exit.
    return *new std::string(text);
}
} // namespace

PiImageModifier::MuteEvent::MuteEvent(RCShdPtr<PiNode const> n, bool m)
    : PiNodeEvent(Custom), node(std::move(n)), muted(m) {}
PiImageModifier::MuteEvent::~MuteEvent() = default;

PiImageModifier::ConversionEvent::ConversionEvent(RCShdPtr<PiInput> in, ConversionInfo i)
    : PiNodeEvent(Custom, std::move(in)), info(std::move(i)) {}
PiImageModifier::ConversionEvent::~ConversionEvent() = default;

PiImageModifier::Imp::~Imp() = default;

void PiImageModifier::setImplementationFactory(ImpFactory factory) {
    s_impFactory.store(factory);
}

std::string const& PiImageModifier::getMuteValueName() {
    static std::string const& s = name("Mute");
    return s;
}
std::string const& PiImageModifier::getAffectValueName() {
    static std::string const& s = name("Affect");
    return s;
}
std::string const& PiImageModifier::getOutputName() {
    static std::string const& s = name("Output");
    return s;
}
std::string const& PiImageModifier::getMaskingInput() {
    static std::string const& s = name("Mask");
    return s;
}
std::string const& PiImageModifier::getMaskingActiveInput() {
    static std::string const& s = name("Mask Active");
    return s;
}
std::string const& PiImageModifier::getMaskingChannelInput() {
    static std::string const& s = name("Mask Channel");
    return s;
}
std::string const& PiImageModifier::getMaskingInvertInput() {
    static std::string const& s = name("Mask Invert");
    return s;
}
std::string const& PiImageModifier::getMaskingIntensityInput() {
    static std::string const& s = name("Mask Intensity");
    return s;
}

void PiImageModifier::describeModifier(PiToolPolicyDescriptor& d) {
    // The mask keeps its components, so that any of its four channels can be chosen, and takes
    // the primary's aspect, so that its pixels meet the image's.
    d.require(getMaskingInput(), PiSocketType::IMAGE,
              PiImageInputPolicy::createSecondary(
                  PiImageInputPolicy::KEEP_COMPONENTS, PiImageInputPolicy::ALL_DEPTHS,
                  PiImageInputPolicy::KEEP_DEPTH, PiImageInputPolicy::PRIMARY_ASPECT, 1, 0));
    d.require(getMaskingActiveInput(), PiSocketType::BOOL,
              RCShdPtr<PiInputPolicy const>(new PiTypedInputPolicy<bool>(true)));
    d.require(getMaskingChannelInput(), PiSocketType::INT,
              PiRangeInputPolicy<int>::create(0, 3, 3));
    d.require(getMaskingInvertInput(), PiSocketType::BOOL);
    d.require(getMaskingIntensityInput(), PiSocketType::DOUBLE,
              PiRangeInputPolicy<double>::create(0, 1, 1));
    d.produces(getOutputName(), PiSocketType::IMAGE);
    d.stores(getMuteValueName(), PiValueType::Bool);
    d.stores(getAffectValueName(), PiValueType::Int);
}

PiImageModifier::PiImageModifier() {
    ImpFactory const factory = s_impFactory.load();
    if (!factory)
        VN_THROW_MSG(ExBase, "an image modifier needs the tool framework: it has not started");
    _imp = factory(*this);
    VN_ASSERT(_imp);
}

PiImageModifier::~PiImageModifier() = default;

void PiImageModifier::storedValueChanged(RCShdPtr<PiValue> const& value) {
    PiNodeEvent e(PiNodeEvent::ValueChanged);
    e.value = value;
    signalEvent(e);
}

} // namespace Vn

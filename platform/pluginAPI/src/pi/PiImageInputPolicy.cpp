#include "PiImageInputPolicy.h"

#include "ExBase.h"

namespace Vn {

namespace {
int depthBit(int depth) {
    switch (depth) {
    case IxPixelFormat::UINT8:
        return PiImageInputPolicy::UINT8_DEPTH;
    case IxPixelFormat::FLOAT16:
        return PiImageInputPolicy::FLOAT16_DEPTH;
    case IxPixelFormat::FLOAT32:
        return PiImageInputPolicy::FLOAT32_DEPTH;
    default:
        return 0;
    }
}

constexpr int kDepths[] = {IxPixelFormat::UINT8, IxPixelFormat::FLOAT16, IxPixelFormat::FLOAT32};

void checkRange(char const* what, int value, int low, int high) {
    if (value < low || value > high)
        VN_THROW_MSG(ExBase, std::string("PiImageInputPolicy: ") + what + " " +
                                 std::to_string(value) + " is not between " + std::to_string(low) +
                                 " and " + std::to_string(high));
}
} // namespace

PiImageInputPolicy::PiImageInputPolicy(bool primary, int components, int depths, int depthRule,
                                       int aspectRule, bool mask, bool hidden)
    : _primary(primary), _components(components), _depths(depths), _depthRule(depthRule),
      _aspectRule(aspectRule), _mask(mask), _hidden(hidden) {
    checkRange("components", components, KEEP_COMPONENTS, PRIMARY_COMPONENTS);
    checkRange("depths", depths, UINT8_DEPTH, ALL_DEPTHS);
    if (depthRule != KEEP_DEPTH && depthRule != PRIMARY_DEPTH)
        VN_THROW_MSG(ExBase,
                     "PiImageInputPolicy: depth rule " + std::to_string(depthRule) + " is unknown");
    checkRange("aspect rule", aspectRule, KEEP_ASPECT, PRIMARY_ASPECT);
}

PiImageInputPolicy::~PiImageInputPolicy() = default;

RCShdPtr<PiImageInputPolicy const> PiImageInputPolicy::createPrimary(int components, int depths) {
    if (components == PRIMARY_COMPONENTS)
        VN_THROW_MSG(ExBase, "PiImageInputPolicy: the primary input cannot follow itself");
    return RCShdPtr<PiImageInputPolicy const>(
        new PiImageInputPolicy(true, components, depths, KEEP_DEPTH, KEEP_ASPECT, false, false));
}

RCShdPtr<PiImageInputPolicy const> PiImageInputPolicy::createSecondary(int components, int depths,
                                                                       int depthRule,
                                                                       int aspectRule, int mask,
                                                                       int hidden) {
    return RCShdPtr<PiImageInputPolicy const>(new PiImageInputPolicy(
        false, components, depths, depthRule, aspectRule, mask != 0, hidden != 0));
}

std::type_info const& PiImageInputPolicy::getValueType() const {
    return typeid(PxImageFormat);
}

int PiImageInputPolicy::acceptedDepth(int depth) const noexcept {
    if (_depths & depthBit(depth))
        return depth;
    int deepest = IxPixelFormat::FLOAT32;
    for (int d : kDepths)
        if (_depths & depthBit(d)) {
            deepest = d;
            if (d > depth)
                return d;
        }
    return deepest;
}

PxImageFormat PiImageInputPolicy::getTargetFormat(PxImageFormat const& source) const {
    return getTargetFormat(source, source);
}

PxImageFormat PiImageInputPolicy::getTargetFormat(PxImageFormat const& source,
                                                  PxImageFormat const& primary) const {
    if (!source.isValid())
        return source;
    IxPixelFormat const& src = source.getPixelFormat();
    IxPixelFormat const& prim = primary.isValid() ? primary.getPixelFormat() : src;
    int comps = src.getComps();
    switch (_components) {
    case ALPHA_COMPONENTS:
        comps = IxPixelFormat::ALPHA;
        break;
    case RGBA_COMPONENTS:
        comps = IxPixelFormat::RGBA;
        break;
    case PRIMARY_COMPONENTS:
        comps = prim.getComps();
        break;
    default:
        break;
    }
    int depth = _depthRule == PRIMARY_DEPTH ? prim.getDepth() : src.getDepth();
    depth = acceptedDepth(depth);
    Rational const& aspect =
        _aspectRule == PRIMARY_ASPECT ? prim.getAspectRatio() : src.getAspectRatio();
    return PxImageFormat(IxPixelFormat(comps, depth, aspect), source.getFrameRate());
}

} // namespace Vn

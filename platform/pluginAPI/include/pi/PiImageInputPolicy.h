#pragma once

#include "PiInputPolicy.h"
#include "PxImageFormat.h"

namespace Vn {

// What an image input accepts, and the format its images are brought to before the tool sees
// them. The primary input sets the tool's working format; the other inputs may follow it.
class VN_EXPORT PiImageInputPolicy : public PiInputPolicy {
public:
    // The components the input works in.
    enum Components : int {
        KEEP_COMPONENTS = 0,
        ALPHA_COMPONENTS = 1,
        RGBA_COMPONENTS = 2,
        PRIMARY_COMPONENTS = 3, // those of the primary input's target
    };
    // Accepted depths, a sum of these; a depth outside them is raised to the nearest accepted
    // one above it, else the deepest accepted.
    enum Depths : int { UINT8_DEPTH = 1, FLOAT16_DEPTH = 2, FLOAT32_DEPTH = 4, ALL_DEPTHS = 7 };
    // How the depth is chosen.
    enum DepthRule : int { KEEP_DEPTH = 0, PRIMARY_DEPTH = 3 };
    // How the pixel aspect ratio is chosen.
    enum AspectRule : int { KEEP_ASPECT = 0, PRIMARY_ASPECT = 1 };

    static RCShdPtr<PiImageInputPolicy const> createPrimary(int components, int depths);
    // `mask` marks the input that masks the tool's effect; `hidden` keeps it from the user.
    static RCShdPtr<PiImageInputPolicy const> createSecondary(int components, int depths,
                                                              int depthRule, int aspectRule,
                                                              int mask, int hidden);

    ~PiImageInputPolicy() override;

    bool isPrimary() const noexcept { return _primary; }
    bool isMask() const noexcept { return _mask; }
    int getComponents() const noexcept { return _components; }
    int getDepths() const noexcept { return _depths; }
    int getDepthRule() const noexcept { return _depthRule; }
    int getAspectRule() const noexcept { return _aspectRule; }
    bool isHidden() const override { return _hidden; }
    std::type_info const& getValueType() const override;

    // The format a primary input's images take, from the source's.
    PxImageFormat getTargetFormat(PxImageFormat const& source) const;
    // The format another input's images take, from the source's and the primary target.
    PxImageFormat getTargetFormat(PxImageFormat const& source, PxImageFormat const& primary) const;

private:
    PiImageInputPolicy(bool primary, int components, int depths, int depthRule, int aspectRule,
                       bool mask, bool hidden);
    int acceptedDepth(int depth) const noexcept;

    bool _primary;
    int _components;
    int _depths;
    int _depthRule;
    int _aspectRule;
    bool _mask;
    bool _hidden;
};

} // namespace Vn

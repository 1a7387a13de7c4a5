#pragma once

#include "CoRgbaColor.h"
#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

namespace Vn {

// How a surface takes light: its diffuse colour and opacity, its highlight colour, and how tight
// the highlight is (the shininess exponent, 0 or more). Read only once made, so shared freely.
class VN_EXPORT SdMaterial : public RCBase<LkCounter<int>> {
public:
    SdMaterial() = default;
    SdMaterial(CoRgbaColorTyped<float> const& diffuse, CoRgbColorTyped<float> const& specular,
               float shininess);

    CoRgbaColorTyped<float> const& getDiffuse() const noexcept { return _diffuse; }
    CoRgbColorTyped<float> const& getSpecular() const noexcept { return _specular; }
    float getShininess() const noexcept { return _shininess; }

private:
    CoRgbaColorTyped<float> _diffuse{0.8f, 0.8f, 0.8f, 1.0f};
    CoRgbColorTyped<float> _specular{};
    float _shininess = 0.0f;
};

} // namespace Vn

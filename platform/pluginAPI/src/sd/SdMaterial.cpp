#include "SdMaterial.h"

#include "ExBase.h"

#include <cmath>
#include <string>

namespace Vn {

SdMaterial::SdMaterial(CoRgbaColorTyped<float> const& diffuse,
                       CoRgbColorTyped<float> const& specular, float shininess)
    : _diffuse(diffuse), _specular(specular), _shininess(shininess) {
    if (!std::isfinite(shininess) || shininess < 0.0f)
        VN_THROW_MSG(ExBase,
                     "A material's shininess must be 0 or more, not " + std::to_string(shininess));
}

} // namespace Vn

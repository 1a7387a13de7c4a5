#include "SdTexture.h"

namespace Vn {

SdTextureSampler::~SdTextureSampler() = default;

void SdTextureSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                 GeLinearMatrix2<float> const& jacobian, Color* out) const {
    for (int i = 0; i < n; ++i)
        out[i] = sample(rowPosition(p, step, i), jacobian);
}

SdTexture::~SdTexture() = default;

} // namespace Vn

#include "SdTexture.h"

namespace Vn {

SdTextureSampler::~SdTextureSampler() = default;

SdTexture::~SdTexture() = default;

} // namespace Vn

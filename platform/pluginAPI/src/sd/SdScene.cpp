#include "SdScene.h"

#include "Assertions.h"

namespace Vn {

void SdScene::addObject(RCShdPtr<SdMesh const> const& mesh,
                        RCShdPtr<SdMaterial const> const& material,
                        GeAffineMatrix3<float> const& placement) {
    VN_ASSERT(!mesh.isNull());
    _objects.push_back({mesh, material, placement});
}

} // namespace Vn

#pragma once

#include "GeAffineMatrix.h"
#include "SdMaterial.h"
#include "SdMesh.h"
#include "Vector.h"

namespace Vn {

// What a 3D object gives to be drawn: meshes, each placed in the scene and with its material
// (null for the renderer's default). A node fills a new scene, and it is only read after.
class VN_EXPORT SdScene : public RCBase<LkCounter<int>> {
public:
    struct Object {
        RCShdPtr<SdMesh const> mesh;
        RCShdPtr<SdMaterial const> material;
        GeAffineMatrix3<float> placement;
    };

    // The mesh must not be null.
    void addObject(RCShdPtr<SdMesh const> const& mesh, RCShdPtr<SdMaterial const> const& material,
                   GeAffineMatrix3<float> const& placement);
    Vector<Object> const& getObjects() const noexcept { return _objects; }
    int getNbObjects() const noexcept { return static_cast<int>(_objects.size()); }

private:
    Vector<Object> _objects;
};

} // namespace Vn

#pragma once

#include "GeAffineMatrix.h"
#include "GeVector.h"
#include "PxAffineMatrixProtocol.h"
#include "PxValueProtocol.h"

#include <array>

namespace Vn {

// A 3D transform from twelve animated values: position, rotation in degrees about x, y and z,
// scale, and the pivot that rotation and scale turn around. A point is moved to the pivot,
// scaled, rotated, moved back, and moved by the position.
class VN_EXPORT PxAffineMatrixNode final : public PxAffineMatrixProtocol {
public:
    using Input = PxStrongHndl<PxAnimValueProtocol<double> const>;
    // Scale components closer to 0 than this are moved to it, keeping their sign, so that the
    // matrix can always be inverted.
    static constexpr float kMinScale = 1e-9f;

    // Every input is required.
    PxAffineMatrixNode(PxNode::Init const& init, Input const& positionX, Input const& positionY,
                       Input const& positionZ, Input const& rotationX, Input const& rotationY,
                       Input const& rotationZ, Input const& scaleX, Input const& scaleY,
                       Input const& scaleZ, Input const& pivotX, Input const& pivotY,
                       Input const& pivotZ);
    ~PxAffineMatrixNode() override;

    // `rotation` in degrees.
    static GeAffineMatrix3<float> computeMatrix(GeVector3<float> const& position,
                                                GeVector3<float> const& rotation,
                                                GeVector3<float> const& scale,
                                                GeVector3<float> const& pivot);

    PxResult<GeAffineMatrix3<float>> getMatrix(PxTimeContext const& context) const override;

protected:
    void init() override;

private:
    std::array<PxNodePtr<PxAnimValueProtocol<double> const>, 12> _inputs;
};

// A 2D transform from nine animated values: position, rotation in degrees, shear, scale and
// pivot. A point is scaled first, sheared second and rotated last, around the pivot, then moved
// by the position.
class VN_EXPORT PxAffineMatrix2Node final : public PxAffineMatrix2Protocol {
public:
    using Input = PxStrongHndl<PxAnimValueProtocol<double> const>;
    static constexpr float kMinScale = 1e-8f;

    // Every input is required.
    PxAffineMatrix2Node(PxNode::Init const& init, Input const& positionX, Input const& positionY,
                        Input const& rotation, Input const& shearX, Input const& shearY,
                        Input const& scaleX, Input const& scaleY, Input const& pivotX,
                        Input const& pivotY);
    ~PxAffineMatrix2Node() override;

    // `rotation` in radians.
    static GeAffineMatrix2<float> computeMatrix(GeVector2<float> const& position, float rotation,
                                                GeVector2<float> const& shear,
                                                GeVector2<float> const& scale,
                                                GeVector2<float> const& pivot);
    // The same, with the scale, shear and rotation part given.
    static GeAffineMatrix2<float> computeMatrix(GeVector2<float> const& position,
                                                GeAffineMatrix2<float> const& ssr,
                                                GeVector2<float> const& pivot);
    // Rotation * shear * scale, the scale clamped away from 0; `rotation` in radians.
    static GeAffineMatrix2<float> computeScaleShearRotationMatrix(float rotation,
                                                                  GeVector2<float> const& shear,
                                                                  GeVector2<float> const& scale);

    PxResult<GeAffineMatrix2<float>> getMatrix(PxTimeContext const& context) const override;
    // The same, and the scale, shear and rotation part in `ssr`.
    PxResult<GeAffineMatrix2<float>> getMatrix(PxTimeContext const& context,
                                               GeAffineMatrix2<float>& ssr) const;
    // The inputs at a time, rotation in radians, scale as given. `validity` comes in set by the
    // caller and is narrowed by every input.
    void getComponents(PxTimeContext const& context, GeVector2<float>& position, float& rotation,
                       GeVector2<float>& shear, GeVector2<float>& scale, GeVector2<float>& pivot,
                       PxValidityInterval& validity) const;

protected:
    void init() override;

private:
    std::array<PxNodePtr<PxAnimValueProtocol<double> const>, 9> _inputs;
};

} // namespace Vn

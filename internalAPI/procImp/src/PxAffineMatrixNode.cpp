#include "PxAffineMatrixNode.h"

#include "RCExUtil.h"

#include <typeinfo>

namespace Vn {

namespace {

float clampScale(float s, float limit) noexcept {
    if (s >= 0.0f && s <= limit)
        return limit;
    if (s < 0.0f && s >= -limit)
        return -limit;
    return s;
}

template <std::size_t N>
void checkInputs(std::array<PxNodePtr<PxAnimValueProtocol<double> const>, N> const& inputs) {
    for (auto const& in : inputs)
        if (in.isNull())
            RCExUtil::throwExNullPtr(typeid(PxAnimValueProtocol<double>).name());
}

// Reads one input at the context and narrows the validity by its interval.
double read(PxNodePtr<PxAnimValueProtocol<double> const> const& input, PxTimeContext const& context,
            PxValidityInterval& validity) {
    PxResult<double> const r = input->getValue(context);
    validity &= r.getValidityInterval();
    return r.getValue();
}

float readFloat(PxNodePtr<PxAnimValueProtocol<double> const> const& input,
                PxTimeContext const& context, PxValidityInterval& validity) {
    return static_cast<float>(read(input, context, validity));
}

} // namespace

// ---- 3D ----

PxAffineMatrixNode::PxAffineMatrixNode(PxNode::Init const& init, Input const& positionX,
                                       Input const& positionY, Input const& positionZ,
                                       Input const& rotationX, Input const& rotationY,
                                       Input const& rotationZ, Input const& scaleX,
                                       Input const& scaleY, Input const& scaleZ,
                                       Input const& pivotX, Input const& pivotY,
                                       Input const& pivotZ)
    : PxNode(init), _inputs{PxNodePtr<PxAnimValueProtocol<double> const>(positionX),
                            positionY,
                            positionZ,
                            rotationX,
                            rotationY,
                            rotationZ,
                            scaleX,
                            scaleY,
                            scaleZ,
                            pivotX,
                            pivotY,
                            pivotZ} {
    checkInputs(_inputs);
}

PxAffineMatrixNode::~PxAffineMatrixNode() = default;

void PxAffineMatrixNode::init() {
    PxNode::init();
    for (auto const& in : _inputs)
        registerChild(PxNodePtr<PxNode const>(in));
}

GeAffineMatrix3<float> PxAffineMatrixNode::computeMatrix(GeVector3<float> const& position,
                                                         GeVector3<float> const& rotation,
                                                         GeVector3<float> const& scale,
                                                         GeVector3<float> const& pivot) {
    GeScale3<float> const s{clampScale(scale.x, kMinScale), clampScale(scale.y, kMinScale),
                            clampScale(scale.z, kMinScale)};
    GeAffineMatrix3<float> const sm = s * GeAffineMatrix3<float>();
    float const toRadians = 0.017453292f;
    GeQuaternion3<float> q(0.0f, 0.0f, 0.0f, 1.0f);
    q.setEuler(GeQuaternion3<float>::EULER_XYZ, rotation.x * toRadians, rotation.y * toRadians,
               rotation.z * toRadians);
    GeTranslation3<float> const toPlace{position.x + pivot.x, position.y + pivot.y,
                                        position.z + pivot.z};
    GeAffineMatrix3<float> m = toPlace * (q.getMatrix() * sm);
    GeTranslation3<float>{-pivot.x, -pivot.y, -pivot.z}.mulOnRightAssign(m);
    return m;
}

PxResult<GeAffineMatrix3<float>> PxAffineMatrixNode::getMatrix(PxTimeContext const& ctx) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    auto const v = [&](int i) {
        return readFloat(_inputs[static_cast<std::size_t>(i)], ctx, vi);
    };
    GeVector3<float> const position{v(0), v(1), v(2)};
    GeVector3<float> const rotation{v(3), v(4), v(5)};
    GeVector3<float> const scale{v(6), v(7), v(8)};
    GeVector3<float> const pivot{v(9), v(10), v(11)};
    return PxResult<GeAffineMatrix3<float>>(computeMatrix(position, rotation, scale, pivot), vi);
}

// ---- 2D ----

PxAffineMatrix2Node::PxAffineMatrix2Node(PxNode::Init const& init, Input const& positionX,
                                         Input const& positionY, Input const& rotation,
                                         Input const& shearX, Input const& shearY,
                                         Input const& scaleX, Input const& scaleY,
                                         Input const& pivotX, Input const& pivotY)
    : PxNode(init), _inputs{PxNodePtr<PxAnimValueProtocol<double> const>(positionX),
                            positionY,
                            rotation,
                            shearX,
                            shearY,
                            scaleX,
                            scaleY,
                            pivotX,
                            pivotY} {
    checkInputs(_inputs);
}

PxAffineMatrix2Node::~PxAffineMatrix2Node() = default;

void PxAffineMatrix2Node::init() {
    PxNode::init();
    for (auto const& in : _inputs)
        registerChild(PxNodePtr<PxNode const>(in));
}

GeAffineMatrix2<float>
PxAffineMatrix2Node::computeScaleShearRotationMatrix(float rotation, GeVector2<float> const& shear,
                                                     GeVector2<float> const& scale) {
    GeAffineMatrix2<float> const sh(1.0f, shear.x, shear.y, 1.0f, 0.0f, 0.0f);
    GeAffineMatrix2<float> r;
    GeRotation2<float>{rotation}.rotate(r);
    GeAffineMatrix2<float> ssr = r;
    ssr.mulOnRight(sh);
    GeScale2<float>{clampScale(scale.x, kMinScale), clampScale(scale.y, kMinScale)}
        .mulOnRightAssign(ssr);
    return ssr;
}

GeAffineMatrix2<float> PxAffineMatrix2Node::computeMatrix(GeVector2<float> const& position,
                                                          GeAffineMatrix2<float> const& ssr,
                                                          GeVector2<float> const& pivot) {
    GeAffineMatrix2<float> m =
        GeTranslation2<float>{position.x + pivot.x, position.y + pivot.y} * ssr;
    GeTranslation2<float>{-pivot.x, -pivot.y}.mulOnRightAssign(m);
    return m;
}

GeAffineMatrix2<float> PxAffineMatrix2Node::computeMatrix(GeVector2<float> const& position,
                                                          float rotation,
                                                          GeVector2<float> const& shear,
                                                          GeVector2<float> const& scale,
                                                          GeVector2<float> const& pivot) {
    return computeMatrix(position, computeScaleShearRotationMatrix(rotation, shear, scale), pivot);
}

void PxAffineMatrix2Node::getComponents(PxTimeContext const& ctx, GeVector2<float>& position,
                                        float& rotation, GeVector2<float>& shear,
                                        GeVector2<float>& scale, GeVector2<float>& pivot,
                                        PxValidityInterval& validity) const {
    auto const v = [&](int i) {
        return readFloat(_inputs[static_cast<std::size_t>(i)], ctx, validity);
    };
    position = {v(0), v(1)};
    rotation = static_cast<float>(read(_inputs[2], ctx, validity) * 0.017453292519943295);
    shear = {v(3), v(4)};
    scale = {v(5), v(6)};
    pivot = {v(7), v(8)};
}

PxResult<GeAffineMatrix2<float>> PxAffineMatrix2Node::getMatrix(PxTimeContext const& ctx,
                                                                GeAffineMatrix2<float>& ssr) const {
    GeVector2<float> position, shear, scale, pivot;
    float rotation = 0.0f;
    PxValidityInterval vi = PxValidityInterval::FULL;
    getComponents(ctx, position, rotation, shear, scale, pivot, vi);
    ssr = computeScaleShearRotationMatrix(rotation, shear, scale);
    return PxResult<GeAffineMatrix2<float>>(computeMatrix(position, ssr, pivot), vi);
}

PxResult<GeAffineMatrix2<float>> PxAffineMatrix2Node::getMatrix(PxTimeContext const& ctx) const {
    GeAffineMatrix2<float> ssr;
    return getMatrix(ctx, ssr);
}

} // namespace Vn

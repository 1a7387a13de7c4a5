#include "GeAffineMatrix.h"
#include "ExBase.h"

#include <gtest/gtest.h>

#include <random>

using namespace Vn;

namespace {

template <class M>
void expectNearIdentity(M const& m, int n, double tolerance) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            EXPECT_NEAR(m(i, j), i == j ? 1.0 : 0.0, tolerance) << i << "," << j;
}

} // namespace

TEST(GeAffineMatrix, TheRightFactorActsFirst) {
    GeAffineMatrix2<double> const move(1, 0, 0, 1, 3, 0);
    GeAffineMatrix2<double> const twice(2, 0, 0, 2, 0, 0);
    // Moved then doubled: (1,0) -> (4,0) -> (8,0); doubled then moved: (2,0) -> (5,0).
    EXPECT_EQ((twice * move).transformPoint({1, 0}), (GeVector2<double>{8, 0}));
    EXPECT_EQ((move * twice).transformPoint({1, 0}), (GeVector2<double>{5, 0}));
    GeAffineMatrix2<double> m = move;
    EXPECT_EQ(m.mulOnRight(twice), move * twice);
    m = move;
    EXPECT_EQ(m.mulOnLeft(twice), twice * move);

    // The elementary operators say on which side they act.
    GeAffineMatrix3<float> const base(0, -1, 0, 1, 0, 0, 0, 0, 1, 5, 0, 0);
    EXPECT_EQ((GeScale3<float>{2, 3, 4} * base).transformPoint({1, 0, 0}),
              (GeVector3<float>{10, 3, 0}));
    GeAffineMatrix3<float> after = base;
    GeScale3<float>{2, 3, 4}.mulOnRightAssign(after);
    EXPECT_EQ(after.transformPoint({1, 0, 0}), (GeVector3<float>{5, 2, 0}));
    EXPECT_EQ((GeTranslation3<float>{1, 2, 3} * base).transformPoint({0, 0, 0}),
              (GeVector3<float>{6, 2, 3}));
    after = base;
    GeTranslation3<float>{1, 2, 3}.mulOnRightAssign(after);
    EXPECT_EQ(after.transformPoint({0, 0, 0}), (GeVector3<float>{3, 1, 3}));
    GeAffineMatrix2<float> turned(1, 0, 0, 1, 1, 0);
    GeRotation2<float>{1.5707963267948966f}.rotate(turned);
    auto const p = turned.transformPoint({0, 0});
    EXPECT_NEAR(p.x, 0, 1e-6);
    EXPECT_NEAR(p.y, 1, 1e-6);
}

TEST(GeAffineMatrix, InverseUndoesRandomTransforms) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> any(-3.0, 3.0);
    for (int round = 0; round < 100; ++round) {
        GeAffineMatrix3<double> m(any(rng), any(rng), any(rng), any(rng), any(rng), any(rng),
                                  any(rng), any(rng), any(rng), any(rng), any(rng), any(rng));
        if (std::abs(m.getDeterminant()) < 1e-3)
            continue;
        expectNearIdentity(m * m.getInverse(), 4, 1e-9);
        expectNearIdentity(m.getInverse() * m, 4, 1e-9);
        GeAffineMatrix2<double> m2(any(rng), any(rng), any(rng), any(rng), any(rng), any(rng));
        if (std::abs(m2.getDeterminant()) < 1e-3)
            continue;
        expectNearIdentity(m2 * m2.getInverse(), 3, 1e-9);
    }
    EXPECT_THROW(GeAffineMatrix3<float>(1, 2, 3, 2, 4, 6, 0, 0, 1, 0, 0, 0).getInverse(), ExBase);
    EXPECT_THROW(GeAffineMatrix2<float>(0, 0, 0, 1, 0, 0).getInverse(), ExBase);
}

TEST(GeAffineMatrix, EqualityIdentityAndTheFixedLastRow) {
    GeAffineMatrix3<float> m;
    EXPECT_TRUE(m.isIdentity());
    m.set(2, 3, 1.0f);
    EXPECT_FALSE(m.isIdentity());
    EXPECT_EQ(m.getTranslation(), (GeVector3<float>{0, 0, 1}));
    EXPECT_EQ(m.getData()[11], 1.0f);
    EXPECT_EQ(m.getData()[15], 1.0f);
    EXPECT_THROW(m.set(3, 0, 1.0f), ExAssertionFailed);
    EXPECT_THROW(m(4, 0), ExAssertionFailed);
    GeAffineMatrix3<float> withNan;
    withNan.set(0, 0, std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(withNan == withNan);
    GeAffineMatrix2<float> m2;
    EXPECT_THROW(m2.set(2, 2, 0.0f), ExAssertionFailed);
}

TEST(GeQuaternion3, EulerAnglesTurnAboutXThenYThenZ) {
    float const q = 1.5707963267948966f;
    GeQuaternion3<float> r;
    EXPECT_TRUE(r.getMatrix().isIdentity());
    auto const xy = r.setEuler(0, q, q, 0).getMatrix().transformPoint({0, 1, 0});
    EXPECT_NEAR(xy.x, 1, 1e-6);
    EXPECT_NEAR(xy.y, 0, 1e-6);
    EXPECT_NEAR(xy.z, 0, 1e-6);
    // A turn about z alone: x goes to y.
    auto const z = r.setEuler(0, 0, 0, q).getMatrix().transformPoint({1, 0, 0});
    EXPECT_NEAR(z.x, 0, 1e-6);
    EXPECT_NEAR(z.y, 1, 1e-6);
    // Any angles give a rotation: orthonormal, determinant 1.
    auto const m = r.setEuler(0, 0.3f, -1.1f, 2.5f).getMatrix();
    EXPECT_NEAR(m.getDeterminant(), 1.0f, 1e-5);
    auto const inv = m.getInverse();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(inv(i, j), m(j, i), 1e-5);
    EXPECT_THROW(r.setEuler(1, 0, 0, 0), ExAssertionFailed);
}

#include "IpFastMath.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

using namespace Vn;

namespace {

// Distance in units in the last place between two finite floats of one sign.
long ulps(float a, float b) {
    return std::labs(static_cast<long>(std::bit_cast<std::int32_t>(a)) -
                     static_cast<long>(std::bit_cast<std::int32_t>(b)));
}

std::vector<float> samples() {
    std::vector<float> v = {1.0f,   2.0f,  3.0f,      0.5f,           1e-8f,
                            1e-30f, 1e30f, 0x1p-126f, 0x1.fffffep127f};
    std::mt19937 rng(5);
    for (int i = 0; i < 200000; ++i) {
        float const f = std::bit_cast<float>(static_cast<std::uint32_t>(rng()) & 0x7fffffffu);
        if (std::isnormal(f) && std::isnormal(1.0f / f))
            v.push_back(f);
    }
    return v;
}

} // namespace

TEST(IpFastMath, ReciprocalsAreWithinAnUlpOfTheCorrectlyRoundedValues) {
    for (float d : samples()) {
        // Correctly rounded references: a double quotient and root rounded once to float.
        float const rcp = static_cast<float>(1.0 / d);
        float const rsqrt = static_cast<float>(1.0 / std::sqrt(static_cast<double>(d)));
        // The estimates are the references with 12 bits of mantissa.
        EXPECT_EQ(std::bit_cast<std::uint32_t>(IpFastMath::rcpEstimate(d)),
                  std::bit_cast<std::uint32_t>(rcp) & 0xFFFFF800u)
            << d;
        ASSERT_LE(ulps(IpFastMath::rcp(d), rcp), 1) << d;
        if (std::isnormal(rsqrt)) {
            ASSERT_LE(ulps(IpFastMath::rsqrt(d), rsqrt), 2) << d;
        }
        ASSERT_LE(ulps(-IpFastMath::rcp(-d), rcp), 1) << -d;
    }
    float const inf = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(IpFastMath::rcp(1.0f), 1.0f);
    EXPECT_EQ(IpFastMath::rcpEstimate(0.0f), inf);
    EXPECT_EQ(IpFastMath::rcpEstimate(inf), 0.0f);
    EXPECT_EQ(IpFastMath::rsqrtEstimate(0.0f), inf);
    EXPECT_EQ(IpFastMath::rsqrtEstimate(inf), 0.0f);
    EXPECT_TRUE(std::isnan(IpFastMath::rcp(nan)));
    EXPECT_TRUE(std::isnan(IpFastMath::rsqrt(nan)));
}

TEST(IpFastMath, AlphaDivisionIgnoresAlphasBelowTheThreshold) {
    using Rgba = CoRgbaColorTyped<float>;
    float const inf = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        Rgba in;
        Rgba want;
    };
    Case const cases[] = {
        {{0.5f, 0.25f, 0.0f, 0.5f}, {1.0f, 0.5f, 0.0f, 0.5f}},
        {{0.2f, 0.1f, 0.3f, 1.0f}, {0.2f, 0.1f, 0.3f, 1.0f}},
        // At 1e-8 alpha divides; just below, it counts as 0 and the colour goes to 0.
        {{1e-8f, 2e-8f, 0.0f, 1e-8f}, {1.0f, 2.0f, 0.0f, 1e-8f}},
        {{9e-9f, 9e-9f, 9e-9f, 9e-9f}, {0.0f, 0.0f, 0.0f, 9e-9f}},
        {{0.3f, 0.3f, 0.3f, 0.0f}, {0.0f, 0.0f, 0.0f, 0.0f}},
        {{0.3f, 0.3f, 0.3f, -1e-9f}, {0.0f, 0.0f, 0.0f, -1e-9f}},
        // Whatever comes out not finite is 0.
        {{inf, nan, 1.0f, 0.5f}, {0.0f, 0.0f, 2.0f, 0.5f}},
        {{1.0f, 1.0f, 1.0f, nan}, {0.0f, 0.0f, 0.0f, 0.0f}},
    };
    for (Case const& c : cases) {
        Rgba const got = IpFastMath::unpremultiply(c.in);
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR((&got.r)[i], (&c.want.r)[i], 1e-6f * std::fabs((&c.want.r)[i]))
                << "component " << i << " of " << c.in.r << " " << c.in.g << " " << c.in.b << " "
                << c.in.a;
    }
    EXPECT_EQ(IpFastMath::divisor(1e-8f), 1e-8f);
    EXPECT_EQ(IpFastMath::divisor(-2e-8f), -2e-8f);
    EXPECT_EQ(IpFastMath::divisor(9.9e-9f), 0.0f);
    Rgba const split = IpFastMath::divide({1.0f, 2.0f, 3.0f, 4.0f}, 2.0f, 4.0f);
    EXPECT_EQ(split, (Rgba{0.5f, 1.0f, 1.5f, 1.0f}));
}

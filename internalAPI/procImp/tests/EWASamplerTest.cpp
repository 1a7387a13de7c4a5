#include "EngineTestSupport.h"
#include "PxEWASampler.h"
#include "SamplerTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

using namespace VnTest;
using namespace Vn;

namespace {

class EWASampler : public EngineTest {};

constexpr int kSize = 256;

SdTextureParams pixelParams(int filter, float blur = 1.0f, float minBlur = 0.0f) {
    SdTextureParams p;
    p.filter = filter;
    p.blur = blur;
    p.minBlur = minBlur;
    p.wrapS = p.wrapT = SdTextureTypes::WRAP_REPEAT;
    float const m[9] = {1.0f / kSize, 0, 0, 0, 1.0f / kSize, 0, 0, 0, 1};
    std::copy(m, m + 9, p.matrix);
    return p;
}

// The same filter integrated in double precision over every pixel of the ellipse's box.
struct BruteForce {
    Vector<Color> premultiplied; // kSize x kSize, wrapped by repeat
    PxEWAFilterShape const* shape;
    double k;
    double maxEigen;

    // exact: the ellipse in double; else as the sampler makes it, in single precision with
    // estimated reciprocals, so that only the walk is compared.
    Color sample(double cx, double cy, float p, float s, float q, bool& rowsOuter,
                 bool exact = false) const {
        double ka, kb, kc, l;
        if (exact) {
            double const d = double(p) - q;
            double const t = 2.0 * s;
            double const r = std::sqrt(t * t + d * d);
            auto clampEigen = [&](double v) {
                return std::min(maxEigen, std::max(0.0, v * k));
            };
            double const l1 = clampEigen((p + q + r) * 0.5);
            double const l2 = clampEigen((p + q - r) * 0.5);
            double const c2 = r > 0 ? d / r : 0; // cos 2 theta
            double const s2 = r > 0 ? t / r : 0; // sin 2 theta
            ka = 0.5 * (1 / l1 + 1 / l2) + 0.5 * c2 * (1 / l1 - 1 / l2);
            kc = 0.5 * (1 / l1 + 1 / l2) - 0.5 * c2 * (1 / l1 - 1 / l2);
            kb = 0.5 * s2 * (1 / l1 - 1 / l2);
            l = l1 * l2;
        } else {
            float const fk = float(k);
            float const fmax = float(maxEigen);
            float const d = p - q;
            float const t = 2.0f * s;
            float const r2 = t * t + d * d;
            float const sr = IpFastMath::rsqrt(std::max(r2, 1.1754944e-38f));
            float const r = r2 * sr;
            float const l1 = std::min(fmax, std::max(0.0f, (p + q + r) * 0.5f * fk));
            float const l2 = std::min(fmax, std::max(0.0f, (p + q - r) * 0.5f * fk));
            float const i1 = IpFastMath::rcp(l1);
            float const i2 = IpFastMath::rcp(l2);
            ka = (i1 + i2 + d * sr * (i1 - i2)) * 0.5f;
            kc = (i1 + i2 - d * sr * (i1 - i2)) * 0.5f;
            kb = (i1 - i2) * 0.5f * (t * sr);
            l = double(l1 * l2);
            // Single precision scaling onto the table, as the walk does.
            ka = double(4095.5f * float(ka)) / 4095.5;
            kb = double(4095.5f * float(kb)) / 4095.5;
            kc = double(4095.5f * float(kc)) / 4095.5;
        }
        rowsOuter = kc >= ka;
        double const xe = std::sqrt(kc * l);
        double const ye = std::sqrt(ka * l);
        double w = 0;
        double acc[4] = {0, 0, 0, 0};
        for (int y = int(std::floor(cy - ye)) - 1; y <= int(std::ceil(cy + ye)) + 1; ++y)
            for (int x = int(std::floor(cx - xe)) - 1; x <= int(std::ceil(cx + xe)) + 1; ++x) {
                double const dx = x - cx;
                double const dy = y - cy;
                double const f = (ka * dx * dx + 2 * kb * dx * dy + kc * dy * dy) * 4095.5 + 0.5;
                if (f >= 4096.0)
                    continue;
                double const wt = (*shape)[int(f)];
                Color const& c = premultiplied[((y % kSize + kSize) % kSize) * kSize +
                                               (x % kSize + kSize) % kSize];
                w += wt;
                acc[0] += wt * c.r;
                acc[1] += wt * c.g;
                acc[2] += wt * c.b;
                acc[3] += wt * c.a;
            }
        return {float(acc[0] / acc[3]), float(acc[1] / acc[3]), float(acc[2] / acc[3]),
                float(acc[3] / w)};
    }
};

TestImage opaqueishImage(unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    return makeImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32),
                     {0, kSize, 0, kSize}, 9, [&](int, int) {
                         return Color{u(rng), u(rng), u(rng), 0.25f + 0.75f * u(rng)};
                     });
}

// The largest difference of a component, relative to the expected one when that is above 1.
float worstDifference(Color const& a, Color const& b) {
    auto rel = [](float x, float y) {
        return std::fabs(x - y) / std::max(1.0f, std::fabs(y));
    };
    return std::max({rel(a.r, b.r), rel(a.g, b.g), rel(a.b, b.b), rel(a.a, b.a)});
}

} // namespace

TEST_F(EWASampler, MatchesBruteForceIntegrationInBothWalkOrders) {
    TestImage const img = opaqueishImage(11);
    BruteForce ref;
    ref.premultiplied.resize(kSize * kSize);
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            Color const c = img.at(x, y);
            ref.premultiplied[y * kSize + x] = {c.r * c.a, c.g * c.a, c.b * c.a, c.a};
        }
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    int orders[2] = {0, 0};
    for (int filter : {SdTextureTypes::FILTER_EWA_GAUSS, SdTextureTypes::FILTER_EWA_JINC2}) {
        UPtr<PxEWAFilterShape const> const shape = filter == SdTextureTypes::FILTER_EWA_GAUSS
                                                       ? PxEWAFilterShape::getGauss()
                                                       : PxEWAFilterShape::getJinc2();
        PxEWASampler const s(img.fetcher(), img.format, pixelParams(filter), shape);
        ref.shape = shape.get();
        ref.k = s.getFootprintScale();
        ref.maxEigen = s.getMaxEigenvalue();
        for (int i = 0; i < 5000; ++i) {
            // Radii in pixels from 0.5 to 128, up to 16:1, at any angle.
            double const r1 = 0.5 * std::pow(256.0, u(rng));
            double const r2 = std::max(0.5, r1 / (1.0 + 15.0 * u(rng)));
            double const angle = std::numbers::pi * u(rng);
            double const sk = std::sqrt(double(ref.k));
            float const a = float(std::cos(angle) * r1 / sk);
            float const b = float(-std::sin(angle) * r2 / sk);
            float const c = float(std::sin(angle) * r1 / sk);
            float const d = float(std::cos(angle) * r2 / sk);
            bool rows = false;
            bool unused = false;
            Color got;
            Color want;
            Color exact;
            float const p = a * a + b * b;
            float const sq = a * c + b * d;
            float const q = c * c + d * d;
            if (i % 2 == 0) {
                int const x = int(u(rng) * kSize);
                int const y = int(u(rng) * kSize);
                got = s.sample(x, y, a, b, c, d);
                want = ref.sample(x, y, p, sq, q, rows);
                exact = ref.sample(x, y, p, sq, q, unused, true);
            } else {
                GePoint<double> const pt{u(rng) * kSize, u(rng) * kSize};
                got = s.sample(pt, GeLinearMatrix2<float>(a, b, c, d));
                // Pixel centres lie half a pixel off the sampling positions.
                want = ref.sample(pt.x - 0.5, pt.y - 0.5, p, sq, q, rows);
                exact = ref.sample(pt.x - 0.5, pt.y - 0.5, p, sq, q, unused, true);
            }
            ++orders[rows ? 0 : 1];
            if (std::isnan(want.a)) { // no pixel centre under a small ellipse
                EXPECT_TRUE(sameBits(got, Color{}));
                continue;
            }
            ASSERT_LE(worstDifference(got, want), 1e-4f)
                << i << " filter " << filter << " radii " << r1 << " " << r2 << " angle " << angle
                << ": " << got.r << " " << got.a << " vs " << want.r << " " << want.a;
            // Against the ellipse in double, a table index may round the other way at its
            // rim: that weighs only when few pixels take part.
            if (r2 >= 3.0) {
                ASSERT_LE(worstDifference(got, exact), 1e-4f) << r1 << " " << r2;
            }
        }
    }
    EXPECT_GT(orders[0], 2000);
    EXPECT_GT(orders[1], 2000);
}

TEST_F(EWASampler, FormsAgreeAndAConstantImageSamplesToItsColour) {
    TestImage const img = opaqueishImage(3);
    Color const k{0.3f, 0.6f, 0.9f, 0.5f};
    TestImage const flat =
        makeImage(img.format, {0, kSize, 0, kSize}, 9, [&](int, int) { return k; });
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> u(-3.0f, 3.0f);
    for (int filter : {4, 5, 6}) {
        UPtr<PxEWAFilterShape const> const shape =
            filter == 4
                ? PxEWAFilterShape::getGauss()
                : (filter == 5 ? PxEWAFilterShape::getJinc2() : PxEWAFilterShape::getJinc3());
        PxEWASampler const s(img.fetcher(), img.format, pixelParams(filter), shape);
        // A minimum blur keeps some pixel under every footprint.
        PxEWASampler const f(flat.fetcher(), flat.format, pixelParams(filter, 1.0f, 0.5f), shape);
        for (int i = 0; i < 300; ++i) {
            int const x = int(std::fabs(u(rng)) * 80);
            int const y = int(std::fabs(u(rng)) * 80);
            float const a = u(rng), b = u(rng), c = u(rng), d = u(rng);
            Color const byJacobian = s.sample(x, y, a, b, c, d);
            EXPECT_LE(worstDifference(byJacobian,
                                      s.sample(x, y, a * a + b * b, a * c + b * d, c * c + d * d)),
                      1e-6f);
            EXPECT_LE(
                worstDifference(byJacobian, s.sample(x, y, GeLinearMatrix2<float>(a, b, c, d))),
                1e-6f);
            EXPECT_LE(worstDifference(byJacobian, s.sample(GePoint<double>{x + 0.5, y + 0.5},
                                                           GeLinearMatrix2<double>(a, b, c, d))),
                      1e-5f);
            // The axis-aligned form scales its table index by 4095 rather than 4095.5.
            EXPECT_LE(worstDifference(s.sample(x, y, a, 0.0f, 0.0f, d), s.sample(x, y, a, d)),
                      5e-3f);
            GeVector2<double> const step{a * 0.7, c * 0.7};
            Color row[5];
            s.sampleRow(GePoint<double>{x + 0.25, y + 0.5}, step, 5,
                        GeLinearMatrix2<float>(a, b, c, d), row);
            for (int j = 0; j < 5; ++j)
                EXPECT_TRUE(sameBits(
                    row[j], s.sample(SdTextureSampler::rowPosition({x + 0.25, y + 0.5}, step, j),
                                     GeLinearMatrix2<float>(a, b, c, d))));
            Color const forms[] = {
                f.sample(x, y, a, b, c, d), f.sample(x, y, a, d),
                f.sample(GePoint<double>{x + 0.3, y - 0.7}, GeLinearMatrix2<float>(a, b, c, d))};
            for (int j = 0; j < 3; ++j)
                EXPECT_LE(worstDifference(forms[j], k), 2e-5f)
                    << filter << " form " << j << " " << a << " " << b << " " << c << " " << d;
        }
    }
}

TEST_F(EWASampler, BadParametersGiveFiniteResultsQuickly) {
    Color const k{0.2f, 0.4f, 0.6f, 0.8f};
    TestImage const flat = makeImage(IxPixelFormat(IxPixelFormat::RGBA, IxPixelFormat::UINT8),
                                     {-10, 90, 5, 70}, 5, [&](int, int) { return k; });
    float const inf = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const odd[] = {0.0f, -1.0f, 1e-40f, 3e38f, inf, -inf, nan};
    auto finite = [](Color const& c) {
        return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) && std::isfinite(c.a);
    };
    for (int wrap = 0; wrap < 4; ++wrap)
        for (float blur : odd)
            for (float minBlur : odd) {
                SdTextureParams p = pixelParams(4, blur, minBlur);
                p.wrapS = p.wrapT = wrap;
                PxEWASampler const s(flat.fetcher(), flat.format, p, PxEWAFilterShape::getGauss());
                for (float v : odd) {
                    EXPECT_TRUE(finite(s.sample(3, 7, v, 0.0f, v, 1.0f)));
                    EXPECT_TRUE(finite(s.sample(3, 7, v, v)));
                    EXPECT_TRUE(finite(s.sample(GePoint<double>{double(v), 7.0},
                                                GeLinearMatrix2<float>(v, v, 0.0f, v))));
                }
                EXPECT_TRUE(
                    finite(s.sample(std::numeric_limits<int>::max(),
                                    std::numeric_limits<int>::min(), 1.0f, 0.0f, 0.0f, 1.0f)));
            }
    // A zero footprint with a minimum blur samples a small circle; a huge one is cut to the
    // largest circle. On a flat image both give its colour.
    PxEWASampler const s(flat.fetcher(), flat.format, pixelParams(4, 1.0f, 0.5f),
                         PxEWAFilterShape::getGauss());
    Color const zero = s.sample(GePoint<double>{0.3, 0.6}, GeLinearMatrix2<float>(0, 0, 0, 0));
    EXPECT_LE(worstDifference(zero, k), 2e-3f);
    Color const huge = s.sample(40, 40, 1e30f, 0.0f, 0.0f, 1e30f);
    EXPECT_LE(worstDifference(huge, k), 2e-3f);
}

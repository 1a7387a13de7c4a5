#include "IxConvertUtil.h"
#include "ExBase.h"

#include <Imath/half.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

using namespace Vn;
using Rgba = CoRgbaColorTyped<float>;

namespace {

std::uint32_t bitsOf(float f) {
    return std::bit_cast<std::uint32_t>(f);
}

std::uint16_t imathBits(float f) {
    return Imath::half(f).bits();
}

float imathFloat(std::uint16_t bits) {
    Imath::half h;
    h.setBits(bits);
    return static_cast<float>(h);
}

} // namespace

TEST(IxConvertUtil, Uint8RoundTripsExactlyInEveryLayout) {
    for (int comps = 1; comps <= 4; ++comps) {
        ImPixelFormat const f(comps, ImPixelFormat::UINT8);
        std::vector<std::uint8_t> src(256 * comps);
        for (int i = 0; i < 256; ++i)
            for (int c = 0; c < comps; ++c)
                src[i * comps + c] = static_cast<std::uint8_t>(i + 37 * c);
        std::vector<Rgba> rgba(256);
        IxConvertUtil::readFrom(rgba.data(), reinterpret_cast<std::byte const*>(src.data()), 256,
                                f);
        for (int i = 0; i < 256; ++i) {
            auto v = [&](int c) {
                return static_cast<float>(src[i * comps + c]) / 255.0f;
            };
            Rgba const want = comps == 1   ? Rgba{0, 0, 0, v(0)}
                              : comps == 2 ? Rgba{v(0), v(0), v(0), v(1)}
                              : comps == 3 ? Rgba{v(0), v(1), v(2), 1.0f}
                                           : Rgba{v(0), v(1), v(2), v(3)};
            ASSERT_EQ(rgba[i], want) << comps << " comps, pixel " << i;
        }
        std::vector<std::uint8_t> back(src.size(), 0xee);
        IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(back.data()), rgba.data(), 256, f);
        EXPECT_EQ(back, src) << comps << " comps";
    }
}

TEST(IxConvertUtil, EveryHalfMatchesImathAndRoundTrips) {
    for (std::uint32_t b = 0; b < 65536; ++b) {
        auto const bits = static_cast<std::uint16_t>(b);
        float const f = IxConvertUtil::halfToFloat(bits);
        ASSERT_EQ(bitsOf(f), bitsOf(imathFloat(bits))) << std::hex << b;
        ASSERT_EQ(IxConvertUtil::floatToHalf(f), bits) << std::hex << b;
    }
    // The same through pixel runs: all 65536 values as 16384 RGBA pixels.
    ImPixelFormat const f(4, ImPixelFormat::FLOAT16);
    std::vector<std::uint16_t> src(65536);
    for (std::uint32_t b = 0; b < 65536; ++b)
        src[b] = static_cast<std::uint16_t>(b);
    std::vector<Rgba> rgba(16384);
    IxConvertUtil::readFrom(rgba.data(), reinterpret_cast<std::byte const*>(src.data()), 16384, f);
    std::vector<std::uint16_t> back(65536);
    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(back.data()), rgba.data(), 16384, f);
    EXPECT_EQ(back, src);
}

TEST(IxConvertUtil, FloatToHalfRoundsAsImathWithinRange) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> wide(-65519.0f, 65519.0f);
    std::uniform_real_distribution<float> narrow(-1e-3f, 1e-3f);
    for (int i = 0; i < 200000; ++i) {
        float const v = (i & 1) ? wide(rng) : narrow(rng);
        ASSERT_EQ(IxConvertUtil::floatToHalf(v), imathBits(v)) << v;
    }
    // Halfway cases go to the even neighbour.
    EXPECT_EQ(IxConvertUtil::floatToHalf(1.0f + 1.0f / 2048.0f), 0x3c00);
    EXPECT_EQ(IxConvertUtil::floatToHalf(1.0f + 3.0f / 2048.0f), 0x3c02);
}

TEST(IxConvertUtil, OutOfRangeAndNanSaturate) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(IxConvertUtil::floatToUint8(-1.0f), 0);
    EXPECT_EQ(IxConvertUtil::floatToUint8(2.0f), 255);
    EXPECT_EQ(IxConvertUtil::floatToUint8(nan), 0);
    EXPECT_EQ(IxConvertUtil::floatToUint8(-nan), 0);
    EXPECT_EQ(IxConvertUtil::floatToUint8(inf), 255);
    EXPECT_EQ(IxConvertUtil::floatToUint8(-inf), 0);
    EXPECT_EQ(IxConvertUtil::floatToUint8(0.5f), 128);
    EXPECT_EQ(IxConvertUtil::floatToUint8(0.4f / 255.0f), 0);
    EXPECT_EQ(IxConvertUtil::floatToUint8(0.6f / 255.0f), 1);

    EXPECT_EQ(IxConvertUtil::floatToHalf(1e6f), 0x7bff);
    EXPECT_EQ(IxConvertUtil::floatToHalf(-1e6f), 0xfbff);
    EXPECT_EQ(IxConvertUtil::floatToHalf(65520.0f), 0x7bff);
    EXPECT_EQ(IxConvertUtil::floatToHalf(std::numeric_limits<float>::max()), 0x7bff);
    EXPECT_EQ(IxConvertUtil::floatToHalf(inf), 0x7c00);
    EXPECT_EQ(IxConvertUtil::floatToHalf(-inf), 0xfc00);
    EXPECT_TRUE(std::isnan(IxConvertUtil::halfToFloat(IxConvertUtil::floatToHalf(nan))));

    // Through pixel runs too.
    Rgba const px[2] = {{nan, -3.0f, 7.0f, 0.25f}, {1e9f, -1e9f, nan, inf}};
    std::uint8_t u8[8];
    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(u8), px, 2,
                           ImPixelFormat(4, ImPixelFormat::UINT8));
    std::uint8_t const wantU8[8] = {0, 0, 255, 64, 255, 0, 0, 255};
    EXPECT_EQ(std::memcmp(u8, wantU8, 8), 0);
    std::uint16_t h[8];
    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(h), px, 2,
                           ImPixelFormat(4, ImPixelFormat::FLOAT16));
    EXPECT_EQ(h[4], 0x7bff);
    EXPECT_EQ(h[5], 0xfbff);
    EXPECT_EQ(h[7], 0x7c00);
}

TEST(IxConvertUtil, AlphaAndComplexLines) {
    float const rgba[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f};
    auto const* bytes = reinterpret_cast<std::byte const*>(rgba);
    float alpha[2];
    IxConvertUtil::readFrom(alpha, bytes, 2, ImPixelFormat(4, ImPixelFormat::FLOAT32));
    EXPECT_EQ(alpha[0], 0.4f);
    EXPECT_EQ(alpha[1], 0.8f);
    IxConvertUtil::readFrom(alpha, bytes, 2, ImPixelFormat(3, ImPixelFormat::FLOAT32));
    EXPECT_EQ(alpha[0], 1.0f);
    IxConvertUtil::readFrom(alpha, bytes, 2, ImPixelFormat(2, ImPixelFormat::FLOAT32));
    EXPECT_EQ(alpha[1], 0.4f);

    std::complex<float> c[2];
    IxConvertUtil::readFrom(c, bytes, 2, ImPixelFormat(4, ImPixelFormat::FLOAT32));
    EXPECT_EQ(c[1], std::complex<float>(0.8f, 0.0f));
    IxConvertUtil::readFrom(c, bytes, 2, ImPixelFormat(1, ImPixelFormat::COMPLEX));
    EXPECT_EQ(c[1], std::complex<float>(0.3f, 0.4f));

    // COMPLEX pixels read as their real parts and are written with no imaginary part.
    Rgba px;
    IxConvertUtil::readFrom(&px, bytes, 1, ImPixelFormat(4, ImPixelFormat::COMPLEX));
    EXPECT_EQ(px, (Rgba{0.1f, 0.3f, 0.5f, 0.7f}));
    float out[8];
    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(out), &px, 1,
                           ImPixelFormat(4, ImPixelFormat::COMPLEX));
    float const wantOut[8] = {0.1f, 0, 0.3f, 0, 0.5f, 0, 0.7f, 0};
    EXPECT_EQ(std::memcmp(out, wantOut, sizeof out), 0);

    std::uint8_t a8[2];
    float const line[2] = {0.0f, 1.0f};
    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(a8), line, 2,
                           ImPixelFormat(1, ImPixelFormat::UINT8));
    EXPECT_EQ(a8[1], 255);
    EXPECT_THROW(IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(out), line, 2,
                                        ImPixelFormat(4, ImPixelFormat::FLOAT32)),
                 ExAssertionFailed);
    EXPECT_THROW(IxConvertUtil::readFrom(&px, bytes, 1, ImPixelFormat()), ExAssertionFailed);
}

TEST(IxConvertUtil, Uint8RgbaLinesMatchThePixelFunctionsAtEveryLength) {
    // Whole lines take a vector path with a scalar tail: both must give the per-value results.
    ImPixelFormat const rgba8(4, ImPixelFormat::UINT8);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> dist(-0.5f, 1.5f);
    float const specials[] = {std::numeric_limits<float>::quiet_NaN(),
                              -std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(),
                              0.5f / 255.0f,
                              1.5f / 255.0f,
                              254.5f / 255.0f,
                              -0.0f};
    for (int n : {1, 3, 4, 5, 8, 13, 64, 67}) {
        std::vector<CoRgbaColorTyped<float>> in(n);
        float* f = &in[0].r;
        for (int k = 0; k < 4 * n; ++k)
            f[k] = k < 8 ? specials[k] : dist(rng);
        std::vector<std::uint8_t> bytes(4 * n);
        IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(bytes.data()), in.data(), n, rgba8);
        for (int k = 0; k < 4 * n; ++k)
            ASSERT_EQ(bytes[k], IxConvertUtil::floatToUint8(f[k])) << n << ":" << k << " " << f[k];
        for (int k = 0; k < 4 * n; ++k)
            bytes[k] = static_cast<std::uint8_t>(rng());
        std::vector<CoRgbaColorTyped<float>> out(n);
        IxConvertUtil::readFrom(out.data(), reinterpret_cast<std::byte const*>(bytes.data()), n,
                                rgba8);
        for (int k = 0; k < 4 * n; ++k)
            ASSERT_EQ((&out[0].r)[k], IxConvertUtil::uint8ToFloat(bytes[k])) << n << ":" << k;
    }
}

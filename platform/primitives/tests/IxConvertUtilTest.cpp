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

TEST(IxConvertUtil, EveryHalfMatchesImathAndRoundTrips) {
    for (std::uint32_t b = 0; b < 65536; ++b) {
        auto const bits = static_cast<std::uint16_t>(b);
        float const f = IxConvertUtil::halfToFloat(bits);
        ASSERT_EQ(bitsOf(f), bitsOf(imathFloat(bits))) << std::hex << b;
        ASSERT_EQ(IxConvertUtil::floatToHalf(f), bits) << std::hex << b;
    }
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

namespace {

// Round to nearest of v * 255, halves up, clamped, NaN to 0. Exact: the product of a float and
// 255 has at most 32 significant bits, so double holds it and the half added to it.
std::uint8_t exactUint8(float v) {
    if (!(v > 0.0f))
        return 0;
    if (v >= 1.0f)
        return 255;
    return static_cast<std::uint8_t>(std::floor(static_cast<double>(v) * 255.0 + 0.5));
}

// Runs `check` on each vector path the processor has, checking that the dispatch takes it.
template <class F>
void forEachVectorPath(F const& check) {
    using Path = IxConvertUtil::VectorPath;
    bool const avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    bool const avx512 =
        avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
    struct Row {
        Path path;
        char const* name;
        bool available;
    };
    for (Row const& row : {Row{Path::SSE2, "SSE2", true}, Row{Path::AVX2, "AVX2", avx2},
                           Row{Path::AVX512, "AVX512", avx512}}) {
        if (!row.available)
            continue;
        IxConvertUtil::limitVectorPath(row.path);
        EXPECT_EQ(IxConvertUtil::getVectorPath(), row.path);
        check(row.name);
    }
    IxConvertUtil::limitVectorPath(Path::AVX512);
}

// Writes values through every conversion path to 8 bits and gives each path's bytes, in the
// order of values: the pixel function, RGBA lines (vector body, scalar tail), one-, two- and
// three-component pixels and float lines.
std::vector<std::pair<char const*, std::vector<std::uint8_t>>>
uint8Paths(std::vector<float> const& values) {
    std::size_t const n = values.size();
    std::vector<std::pair<char const*, std::vector<std::uint8_t>>> out;
    std::vector<std::uint8_t> scalar(n);
    for (std::size_t k = 0; k < n; ++k)
        scalar[k] = IxConvertUtil::floatToUint8(values[k]);
    out.emplace_back("pixel function", scalar);
    for (int comps = 1; comps <= 4; ++comps) {
        // Each value in turn in every channel that is written; 35 pixels at a time so that RGBA
        // lines take the widest vector body and the tail.
        std::vector<std::uint8_t> got(n);
        int const used = comps == 2 ? 2 : comps; // two components write r and a
        for (std::size_t first = 0; first < n; first += 35 * used) {
            std::size_t const count = std::min<std::size_t>(35 * used, n - first);
            int const pixels = static_cast<int>((count + used - 1) / used);
            std::vector<Rgba> px(pixels, Rgba{0, 0, 0, 0});
            for (std::size_t k = 0; k < count; ++k) {
                Rgba& p = px[k / used];
                int const c = static_cast<int>(k % used);
                float& slot = comps == 1 ? p.a : comps == 2 ? (c == 0 ? p.r : p.a) : (&p.r)[c];
                slot = values[first + k];
            }
            std::vector<std::uint8_t> bytes(static_cast<std::size_t>(pixels) * comps);
            IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(bytes.data()), px.data(), pixels,
                                   ImPixelFormat(comps, ImPixelFormat::UINT8));
            for (std::size_t k = 0; k < count; ++k) {
                int const c = static_cast<int>(k % used);
                got[first + k] = bytes[(k / used) * comps + (comps == 2 && c == 1 ? 1 : c)];
            }
        }
        static char const* const names[] = {"alpha pixels", "grey-alpha pixels", "RGB pixels",
                                            "RGBA lines"};
        out.emplace_back(names[comps - 1], std::move(got));
    }
    std::vector<std::uint8_t> line(n);
    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(line.data()), values.data(),
                           static_cast<int>(n), ImPixelFormat(1, ImPixelFormat::UINT8));
    out.emplace_back("float line", std::move(line));
    return out;
}

} // namespace

TEST(IxConvertUtil, FloatToUint8RoundsExactlyInEveryPath) {
    std::vector<float> values;
    // Every float within 300 steps of each half step k + 1/2 of v * 255, where a product
    // computed in single precision can round across the step.
    for (int k = 0; k < 255; ++k) {
        float v = static_cast<float>((k + 0.5) / 255.0);
        for (int i = 0; i < 300; ++i)
            v = std::nextafter(v, 0.0f);
        for (int i = 0; i < 601; ++i, v = std::nextafter(v, 2.0f))
            values.push_back(v);
    }
    // Specials, then a large random sample: uniform in [-0.5, 1.5] and any bit pattern.
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const inf = std::numeric_limits<float>::infinity();
    for (float v : {nan, -nan, inf, -inf, -0.0f, 0.0f, 0.5f, 1.0f, 0x1p-149f, 1.0f - 0x1p-24f,
                    std::bit_cast<float>(0x3f010101u)})
        values.push_back(v);
    std::mt19937 rng(20);
    std::uniform_real_distribution<float> dist(-0.5f, 1.5f);
    for (int i = 0; i < 1 << 20; ++i)
        values.push_back(i & 1 ? dist(rng)
                               : std::bit_cast<float>(static_cast<std::uint32_t>(rng())));

    std::vector<std::uint8_t> want(values.size());
    for (std::size_t k = 0; k < values.size(); ++k)
        want[k] = exactUint8(values[k]);
    forEachVectorPath([&](char const* vector) {
        for (auto const& [path, got] : uint8Paths(values)) {
            int bad = 0;
            for (std::size_t k = 0; k < values.size() && bad < 5; ++k)
                if (got[k] != want[k]) {
                    ++bad;
                    ADD_FAILURE() << vector << ", " << path << ": " << std::hexfloat << values[k]
                                  << " (0x" << std::hex << bitsOf(values[k]) << std::dec
                                  << ") gives " << int(got[k]) << ", not " << int(want[k]);
                }
        }
    });
    // The one exact tie rounds up; the first value the single-precision formula got wrong.
    EXPECT_EQ(IxConvertUtil::floatToUint8(0.5f), 128);
    EXPECT_EQ(IxConvertUtil::floatToUint8(std::bit_cast<float>(0x3f010101u)), 128);
}

TEST(IxConvertUtil, Uint8ToFloatIsTheDivisionInEveryPath) {
    // Every value through every layout, at every lane of the RGBA vector body and of its
    // scalar tail (lines of 1 to 19 pixels), against i / 255.0f.
    forEachVectorPath([](char const*) {
        for (int comps = 1; comps <= 4; ++comps)
            for (int n = 1; n <= 19; ++n)
                for (int start = 0; start < 256; start += n * comps) {
                    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(n) * comps);
                    for (std::size_t k = 0; k < bytes.size(); ++k)
                        bytes[k] = static_cast<std::uint8_t>((start + k) & 255);
                    std::vector<Rgba> px(n);
                    IxConvertUtil::readFrom(px.data(),
                                            reinterpret_cast<std::byte const*>(bytes.data()), n,
                                            ImPixelFormat(comps, ImPixelFormat::UINT8));
                    std::vector<float> alpha(n);
                    IxConvertUtil::readFrom(alpha.data(),
                                            reinterpret_cast<std::byte const*>(bytes.data()), n,
                                            ImPixelFormat(comps, ImPixelFormat::UINT8));
                    for (int i = 0; i < n; ++i) {
                        auto v = [&](int c) {
                            return static_cast<float>(bytes[i * comps + c]) / 255.0f;
                        };
                        Rgba const want = comps == 1   ? Rgba{0, 0, 0, v(0)}
                                          : comps == 2 ? Rgba{v(0), v(0), v(0), v(1)}
                                          : comps == 3 ? Rgba{v(0), v(1), v(2), 1.0f}
                                                       : Rgba{v(0), v(1), v(2), v(3)};
                        ASSERT_EQ(std::memcmp(&px[i], &want, sizeof want), 0)
                            << comps << " comps, " << n << " pixels from " << start << ", pixel "
                            << i;
                        ASSERT_EQ(bitsOf(alpha[i]), bitsOf(want.a)) << comps << " comps";
                    }
                    // And back to the same bytes.
                    std::vector<std::uint8_t> back(bytes.size(), 0xee);
                    IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(back.data()), px.data(), n,
                                           ImPixelFormat(comps, ImPixelFormat::UINT8));
                    ASSERT_EQ(back, bytes) << comps << " comps, " << n << " pixels from " << start;
                }
    });
    for (int i = 0; i < 256; ++i)
        ASSERT_EQ(bitsOf(IxConvertUtil::uint8ToFloat(static_cast<std::uint8_t>(i))),
                  bitsOf(static_cast<float>(i) / 255.0f))
            << i;
}

// Runs of halves give, on every path, the bits of the one-by-one conversions: all 65536 halves
// as RGBA pixels and back, and floats of every kind (rounding, saturation, infinities, quiet and
// signalling NaN, denormals) at every lane of the vector body and in the tail.
TEST(IxConvertUtil, HalfRunsMatchTheScalarBitsInEveryPath) {
    std::vector<std::uint16_t> halves(65536);
    for (std::uint32_t b = 0; b < 65536; ++b)
        halves[b] = static_cast<std::uint16_t>(b);
    std::vector<float> floats;
    for (std::uint32_t u :
         {0x7f800001u, 0xffc00000u, 0x7f800000u, 0xff800000u, 0x477fe000u, 0x477ff000u, 0xc77ff000u,
          0x7f7fffffu, 0x00000001u, 0x33000000u, 0x387fe000u, 0x80000000u})
        floats.push_back(std::bit_cast<float>(u));
    std::mt19937 rng(5);
    for (int i = 0; i < 1 << 16; ++i)
        floats.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(rng())));
    ImPixelFormat const rgbaHalf(4, ImPixelFormat::FLOAT16);
    forEachVectorPath([&](char const* vector) {
        std::vector<Rgba> rgba(16384);
        IxConvertUtil::readFrom(rgba.data(), reinterpret_cast<std::byte const*>(halves.data()),
                                16384, rgbaHalf);
        auto const* got = reinterpret_cast<float const*>(rgba.data());
        for (std::uint32_t b = 0; b < 65536; ++b)
            ASSERT_EQ(bitsOf(got[b]), bitsOf(IxConvertUtil::halfToFloat(halves[b])))
                << vector << std::hex << " half 0x" << b;
        std::vector<std::uint16_t> back(65536);
        IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(back.data()), rgba.data(), 16384,
                               rgbaHalf);
        EXPECT_EQ(back, halves) << vector;
        // Each special at each of the eight lanes, and the tail.
        for (int shift = 0; shift < 9; ++shift) {
            std::vector<float> in(floats.begin() + shift, floats.end());
            in.resize(in.size() / 4 * 4);
            std::vector<std::uint16_t> out(in.size());
            IxConvertUtil::writeTo(reinterpret_cast<std::byte*>(out.data()),
                                   reinterpret_cast<Rgba const*>(in.data()),
                                   static_cast<int>(in.size() / 4), rgbaHalf);
            for (std::size_t k = 0; k < in.size(); ++k)
                ASSERT_EQ(out[k], IxConvertUtil::floatToHalf(in[k]))
                    << vector << std::hex << " float 0x" << bitsOf(in[k]);
        }
    });
}

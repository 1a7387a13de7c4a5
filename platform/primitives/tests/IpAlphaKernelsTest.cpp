#include "IpAlphaKernels.h"
#include "IxConvertUtil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

using namespace Vn;

namespace {

// Rows placed at every float offset of a 64-byte block, and at one byte past a float boundary.
struct Placed {
    explicit Placed(int n, int byteOffset) : _bytes(static_cast<std::size_t>(n) * 4 + 128) {
        auto const base = reinterpret_cast<std::uintptr_t>(_bytes.data());
        std::uintptr_t const aligned = (base + 63) & ~std::uintptr_t(63);
        _p = reinterpret_cast<float*>(aligned + static_cast<std::uintptr_t>(byteOffset));
    }
    float* get() { return _p; }

private:
    std::vector<unsigned char> _bytes;
    float* _p;
};

constexpr int kOffsets[] = {0, 4, 8, 12, 1};

std::vector<float> randomRow(int n, std::mt19937& rng) {
    std::uniform_real_distribution<float> d(-0.5f, 1.5f);
    std::vector<float> v(static_cast<std::size_t>(n));
    for (float& x : v)
        x = d(rng);
    return v;
}

// Runs op on every length 0..40 and placement of dst, a and b, and compares each value with the
// scalar expression.
void checkBinary(char const* name,
                 std::function<void(float*, float const*, float const*, int)> const& op,
                 std::function<float(float, float)> const& scalar) {
    std::mt19937 rng(7);
    for (int n = 0; n <= 40; ++n)
        for (int off : kOffsets) {
            std::vector<float> const a = randomRow(n, rng);
            std::vector<float> const b = randomRow(n, rng);
            Placed dst(n, off);
            Placed src(n, (off + 8) % 16);
            if (n > 0)
                std::memcpy(src.get(), b.data(), sizeof(float) * static_cast<std::size_t>(n));
            op(dst.get(), a.data(), src.get(), n);
            for (int i = 0; i < n; ++i) {
                float got;
                std::memcpy(&got, reinterpret_cast<unsigned char*>(dst.get()) + 4 * i, 4);
                ASSERT_EQ(got,
                          scalar(a[static_cast<std::size_t>(i)], b[static_cast<std::size_t>(i)]))
                    << name << " n=" << n << " offset=" << off << " i=" << i;
            }
            // In place: dst is the first source.
            std::vector<float> inPlace = a;
            op(inPlace.data(), inPlace.data(), b.data(), n);
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(inPlace[static_cast<std::size_t>(i)],
                          scalar(a[static_cast<std::size_t>(i)], b[static_cast<std::size_t>(i)]))
                    << name << " in place n=" << n;
        }
}

} // namespace

TEST(IpAlphaRows, VectorLoopsMatchScalarForEveryLengthAndAlignment) {
    checkBinary("max", IpAlphaRows::max, [](float a, float b) { return a > b ? a : b; });
    checkBinary("min", IpAlphaRows::min, [](float a, float b) { return a < b ? a : b; });
    checkBinary(
        "blend",
        [](float* d, float const* a, float const* b, int n) {
            IpAlphaRows::blend(d, a, b, 0.3f, n);
        },
        [](float a, float b) { return a + (b - a) * 0.3f; });
    checkBinary("average", IpAlphaRows::average, [](float a, float b) { return (a + b) * 0.5f; });
    checkBinary("difference", IpAlphaRows::difference,
                [](float a, float b) { return std::max(a - b, 0.0f); });
    checkBinary(
        "invert",
        [](float* d, float const* a, float const*, int n) { IpAlphaRows::invert(d, a, n); },
        [](float a, float) { return 1.0f - a; });
    checkBinary(
        "accumulate",
        [](float* d, float const* a, float const* b, int n) {
            if (n > 0)
                std::memmove(d, a, sizeof(float) * static_cast<std::size_t>(n));
            IpAlphaRows::accumulate(d, b, 0.7f, n);
        },
        [](float a, float b) { return a + 0.7f * b; });
    checkBinary(
        "scale",
        [](float* d, float const*, float const* b, int n) { IpAlphaRows::scale(d, b, -2.5f, n); },
        [](float, float b) { return -2.5f * b; });
}

TEST(IpAlphaRows, LookUpInterpolatesAndClampsToTheTable) {
    float const table[] = {0.0f, 1.0f, 4.0f, 9.0f};
    // v = a * 2: between entries, at the ends, beyond them, and NaN on the first.
    float const in[] = {0.25f, 0.5f, 0.75f, -3.0f, 7.0f, NAN};
    float out[6];
    IpAlphaRows::lut(out, in, 6, 2.0f, 0.0f, table, 4);
    EXPECT_FLOAT_EQ(out[0], 0.5f);
    EXPECT_FLOAT_EQ(out[1], 1.0f);
    EXPECT_FLOAT_EQ(out[2], 2.5f);
    EXPECT_FLOAT_EQ(out[3], 0.0f);
    EXPECT_FLOAT_EQ(out[4], 4.0f); // clamped at size - 2: the entry before the last
    EXPECT_FLOAT_EQ(out[5], 0.0f);
    // Two entries: everything is the first.
    float const two[] = {0.25f, 0.75f};
    EXPECT_FLOAT_EQ(IpAlphaRows::lut(0.9f, 0.0f, 0.0f, two, 2), 0.25f);
}

TEST(IpAlphaRows, SlidingWindowsMatchBruteForce) {
    std::mt19937 rng(3);
    for (int w = 1; w <= 19; ++w)
        for (int n = 0; n <= 40; n += 3) {
            std::vector<float> const src = randomRow(n + w - 1, rng);
            std::vector<float> scratch(static_cast<std::size_t>(n + w));
            std::vector<float> mx(static_cast<std::size_t>(n));
            std::vector<float> mn(static_cast<std::size_t>(n));
            IpAlphaRows::windowMax(mx.data(), src.data(), n, w, scratch.data());
            IpAlphaRows::windowMin(mn.data(), src.data(), n, w, scratch.data());
            for (int i = 0; i < n; ++i) {
                auto const b = src.begin() + i;
                ASSERT_EQ(mx[static_cast<std::size_t>(i)], *std::max_element(b, b + w))
                    << w << " " << n;
                ASSERT_EQ(mn[static_cast<std::size_t>(i)], *std::min_element(b, b + w))
                    << w << " " << n;
            }
        }
}

TEST(IpAlphaRows, ExtremesOfManyRowsMatchPairwiseOnes) {
    std::mt19937 rng(5);
    for (int nbRows : {1, 2, 17, 34})
        for (int n = 0; n <= 40; ++n) {
            std::vector<std::vector<float>> rows;
            std::vector<float const*> ptrs;
            for (int r = 0; r < nbRows; ++r)
                rows.push_back(randomRow(n + 1, rng));
            for (int r = 0; r < nbRows; ++r)
                ptrs.push_back(rows[static_cast<std::size_t>(r)].data() + (r % 2)); // unaligned too
            std::vector<float> mx(static_cast<std::size_t>(n));
            std::vector<float> mn(static_cast<std::size_t>(n));
            IpAlphaRows::maxOfRows(mx.data(), ptrs.data(), nbRows, n);
            IpAlphaRows::minOfRows(mn.data(), ptrs.data(), nbRows, n);
            for (int i = 0; i < n; ++i) {
                float hi = ptrs[0][i];
                float lo = ptrs[0][i];
                for (int r = 1; r < nbRows; ++r) {
                    hi = std::max(hi, ptrs[static_cast<std::size_t>(r)][i]);
                    lo = std::min(lo, ptrs[static_cast<std::size_t>(r)][i]);
                }
                ASSERT_EQ(mx[static_cast<std::size_t>(i)], hi) << nbRows << " rows, n=" << n;
                ASSERT_EQ(mn[static_cast<std::size_t>(i)], lo) << nbRows << " rows, n=" << n;
            }
        }
}

// Each vector path the processor has: near the direct sums, and symmetric taps bit for bit as
// the path computes them, fused multiply-adds over the first n rounded down to 16 values where
// the path has them and separate products and sums elsewhere.
TEST(IpAlphaRows, CorrelationMatchesDirectSumsOnEveryPath) {
    using Path = IxConvertUtil::VectorPath;
    bool const avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    bool const avx512 =
        avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
    std::vector<float> wide(19);
    for (int k = 0; k < 19; ++k)
        wide[static_cast<std::size_t>(k)] = 0.01f * float(10 - std::abs(k - 9));
    std::vector<std::vector<float>> const tapSets = {{1.0f},
                                                     {0.25f, 0.5f, 0.25f},
                                                     {0.1f, 0.2f, 0.4f, 0.2f, 0.1f},
                                                     {0.5f, -1.0f, 2.0f, 0.3f},
                                                     wide};
    for (auto [path, available] : {std::pair{Path::SSE2, true}, std::pair{Path::AVX2, avx2},
                                   std::pair{Path::AVX512, avx512}}) {
        if (!available)
            continue;
        IxConvertUtil::limitVectorPath(path);
        std::mt19937 rng(11);
        for (auto const& taps : tapSets)
            for (int n = 0; n <= 100; ++n) {
                int const nb = static_cast<int>(taps.size());
                int const h = nb / 2;
                bool const symmetric =
                    nb % 2 == 1 && std::equal(taps.begin(), taps.begin() + h, taps.rbegin());
                int const fused = path == Path::SSE2 ? 0 : n / 16 * 16;
                std::vector<float> const src = randomRow(n + nb - 1, rng);
                std::vector<float> out(static_cast<std::size_t>(n) + 1, -7.0f);
                IpAlphaRows::correlate(out.data(), src.data(), n, taps.data(), nb);
                for (int i = 0; i < n; ++i) {
                    auto const at = [&](int k) {
                        return src[static_cast<std::size_t>(i + k)];
                    };
                    auto const tap = [&](int k) {
                        return taps[static_cast<std::size_t>(k)];
                    };
                    float const got = out[static_cast<std::size_t>(i)];
                    double sum = 0.0;
                    for (int k = 0; k < nb; ++k)
                        sum += double(tap(k)) * at(k);
                    ASSERT_NEAR(got, sum, 1e-5) << nb << " taps, n=" << n;
                    if (!symmetric)
                        continue;
                    float want = tap(h) * at(h);
                    for (int k = 0; k < h; ++k)
                        want = i < fused ? std::fma(tap(k), at(k) + at(2 * h - k), want)
                                         : want + tap(k) * (at(k) + at(2 * h - k));
                    ASSERT_EQ(got, want)
                        << "path " << int(path) << ", " << nb << " taps, n=" << n << ", i=" << i;
                }
                EXPECT_EQ(out[static_cast<std::size_t>(n)], -7.0f); // nothing written past n
            }
    }
    IxConvertUtil::limitVectorPath(Path::AVX512);
}

TEST(IpGauss1DKernel, SizeFollowsTheRadiusAndTapsSumToOne) {
    EXPECT_EQ(IpGauss1DKernel::getSize(0.0f), 1);
    EXPECT_EQ(IpGauss1DKernel::getSize(1.0f), 5);
    EXPECT_EQ(IpGauss1DKernel::getSize(8.0f), 25);
    EXPECT_EQ(IpGauss1DKernel::getSize(-8.0f), 25);
    EXPECT_EQ(IpGauss1DKernel::getSize(64.0f), 193);
    for (float r : {0.0f, 1.0f, 2.5f, 8.0f, 64.0f}) {
        IpGauss1DKernel const k(r);
        float const* t = k.getTaps();
        int const n = k.getSize();
        EXPECT_NEAR(std::accumulate(t, t + n, 0.0), 1.0, 1e-5) << r;
        for (int i = 0; i < n / 2; ++i) {
            EXPECT_EQ(t[i], t[n - 1 - i]);
            EXPECT_LT(t[i], t[i + 1]);
        }
    }
    IpFeatherFilter1D const f(8.0f);
    EXPECT_EQ(f.getMargin(), 12);
}

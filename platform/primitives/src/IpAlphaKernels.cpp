#include "IpAlphaKernels.h"
#include "IxConvertUtil.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace Vn {

namespace {

// Values before dst reaches 16 bytes, or -1 when dst isn't aligned to 4 bytes (all scalar).
int headOf(float const* dst, int n) noexcept {
    auto const addr = reinterpret_cast<std::uintptr_t>(dst);
    if (addr % 4 != 0)
        return -1;
    return std::min(n, static_cast<int>((16 - addr % 16) % 16 / 4));
}

// Scalar access that holds for any alignment: a row handed over as raw bytes may not be aligned
// to 4 bytes.
inline float ld(float const* p) noexcept {
    float v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void st(float* p, float v) noexcept {
    std::memcpy(p, &v, sizeof v);
}

// The shared loop shape: a scalar head up to alignment, eight then four values a pass with
// aligned stores, a scalar tail. The vector op sees values loaded before any store of the pass,
// so dst may equal a source.
template <class V, class S>
inline void binary(float* dst, float const* a, float const* b, int n, V vop, S sop) noexcept {
    int i = 0;
    int const head = headOf(dst, n);
    if (head >= 0) {
        for (; i < head; ++i)
            st(dst + i, sop(ld(a + i), ld(b + i)));
        for (; i + 8 <= n; i += 8) {
            __m128 const a0 = _mm_loadu_ps(a + i);
            __m128 const a1 = _mm_loadu_ps(a + i + 4);
            __m128 const b0 = _mm_loadu_ps(b + i);
            __m128 const b1 = _mm_loadu_ps(b + i + 4);
            _mm_store_ps(dst + i, vop(a0, b0));
            _mm_store_ps(dst + i + 4, vop(a1, b1));
        }
        for (; i + 4 <= n; i += 4)
            _mm_store_ps(dst + i, vop(_mm_loadu_ps(a + i), _mm_loadu_ps(b + i)));
    }
    for (; i < n; ++i)
        st(dst + i, sop(ld(a + i), ld(b + i)));
}

template <class V, class S>
inline void unary(float* dst, float const* a, int n, V vop, S sop) noexcept {
    binary(
        dst, a, a, n, [&](__m128 x, __m128) { return vop(x); },
        [&](float x, float) { return sop(x); });
}

// d = extreme(a, b), sixteen values a pass; d may equal a. Returns where it stopped.
template <bool kMax>
__attribute__((target("avx2"))) int extremePairAvx2(float* d, float const* a, float const* b,
                                                    int m) noexcept {
    int i = 0;
    for (; i + 16 <= m; i += 16) {
        __m256 const a0 = _mm256_loadu_ps(a + i);
        __m256 const a1 = _mm256_loadu_ps(a + i + 8);
        __m256 const b0 = _mm256_loadu_ps(b + i);
        __m256 const b1 = _mm256_loadu_ps(b + i + 8);
        _mm256_storeu_ps(d + i, kMax ? _mm256_max_ps(a0, b0) : _mm256_min_ps(a0, b0));
        _mm256_storeu_ps(d + i + 8, kMax ? _mm256_max_ps(a1, b1) : _mm256_min_ps(a1, b1));
    }
    return i;
}

bool hasAvx2() noexcept;

template <bool kMax>
void window(float* dst, float const* src, int n, int w, float* scratch) noexcept {
    if (n <= 0)
        return;
    auto const op = [](float* d, float const* a, float const* b, int m) {
        int const i = hasAvx2() ? extremePairAvx2<kMax>(d, a, b, m) : 0;
        if constexpr (kMax)
            IpAlphaRows::max(d + i, a + i, b + i, m - i);
        else
            IpAlphaRows::min(d + i, a + i, b + i, m - i);
    };
    if (w <= 1) {
        std::memmove(dst, src, sizeof(float) * static_cast<std::size_t>(n));
        return;
    }
    // Level p holds the extreme over [i, i + p); each level doubles p, in place in scratch.
    int const m = n + w - 1;
    float const* cur = src;
    int p = 1;
    while (2 * p <= w) {
        op(scratch, cur, cur + p, m - 2 * p + 1);
        cur = scratch;
        p *= 2;
    }
    op(dst, cur, cur + (w - p), n);
}

// The folded symmetric correlation eight values a pass with fused multiply-adds, for processors
// that have them; values from i on are left to the caller. Returns where it stopped.
__attribute__((target("avx2,fma"))) int correlateSymmetricAvx2(float* dst, float const* src, int n,
                                                               float const* taps, int h) noexcept {
    int i = 0;
    __m256 const c = _mm256_set1_ps(taps[h]);
    for (; i + 16 <= n; i += 16) {
        float const* s = src + i;
        __m256 acc0 = _mm256_mul_ps(c, _mm256_loadu_ps(s + h));
        __m256 acc1 = _mm256_mul_ps(c, _mm256_loadu_ps(s + h + 8));
        for (int k = 0; k < h; ++k) {
            __m256 const t = _mm256_set1_ps(taps[k]);
            acc0 = _mm256_fmadd_ps(
                t, _mm256_add_ps(_mm256_loadu_ps(s + k), _mm256_loadu_ps(s + 2 * h - k)), acc0);
            acc1 = _mm256_fmadd_ps(
                t, _mm256_add_ps(_mm256_loadu_ps(s + k + 8), _mm256_loadu_ps(s + 2 * h - k + 8)),
                acc1);
        }
        _mm256_storeu_ps(dst + i, acc0);
        _mm256_storeu_ps(dst + i + 8, acc1);
    }
    return i;
}

// The same sums sixteen values a register, each lane doing the operations above in their order:
// the same bits. Short kernels keep their taps in registers.
__attribute__((target("avx512f,avx2,fma"))) int
correlateSymmetricAvx512(float* dst, float const* src, int n, float const* taps, int h) noexcept {
    constexpr int kHeld = 8;
    __m512 held[kHeld];
    for (int k = 0; k < std::min(h, kHeld); ++k)
        held[k] = _mm512_set1_ps(taps[k]);
    __m512 const c = _mm512_set1_ps(taps[h]);
    int i = 0;
    for (; i + 32 <= n; i += 32) {
        float const* s = src + i;
        __m512 acc0 = _mm512_mul_ps(c, _mm512_loadu_ps(s + h));
        __m512 acc1 = _mm512_mul_ps(c, _mm512_loadu_ps(s + h + 16));
        for (int k = 0; k < h; ++k) {
            __m512 const t = k < kHeld ? held[k] : _mm512_set1_ps(taps[k]);
            acc0 = _mm512_fmadd_ps(
                t, _mm512_add_ps(_mm512_loadu_ps(s + k), _mm512_loadu_ps(s + 2 * h - k)), acc0);
            acc1 = _mm512_fmadd_ps(
                t, _mm512_add_ps(_mm512_loadu_ps(s + k + 16), _mm512_loadu_ps(s + 2 * h - k + 16)),
                acc1);
        }
        _mm512_storeu_ps(dst + i, acc0);
        _mm512_storeu_ps(dst + i + 16, acc1);
    }
    return i;
}

bool hasAvx2() noexcept {
    return IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2;
}

// The extreme over many rows with the running value in registers: each input is read once and
// the output written once. Returns where it stopped.
template <bool kMax>
__attribute__((target("avx2"))) int extremeOfRowsAvx2(float* dst, float const* const* rows,
                                                      int nbRows, int n) noexcept {
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        __m256 a0 = _mm256_loadu_ps(rows[0] + i);
        __m256 a1 = _mm256_loadu_ps(rows[0] + i + 8);
        for (int r = 1; r < nbRows; ++r) {
            __m256 const b0 = _mm256_loadu_ps(rows[r] + i);
            __m256 const b1 = _mm256_loadu_ps(rows[r] + i + 8);
            a0 = kMax ? _mm256_max_ps(a0, b0) : _mm256_min_ps(a0, b0);
            a1 = kMax ? _mm256_max_ps(a1, b1) : _mm256_min_ps(a1, b1);
        }
        _mm256_storeu_ps(dst + i, a0);
        _mm256_storeu_ps(dst + i + 8, a1);
    }
    return i;
}

template <bool kMax>
void extremeOfRows(float* dst, float const* const* rows, int nbRows, int n) noexcept {
    int i = hasAvx2() ? extremeOfRowsAvx2<kMax>(dst, rows, nbRows, n) : 0;
    for (; i + 8 <= n; i += 8) {
        __m128 a0 = _mm_loadu_ps(rows[0] + i);
        __m128 a1 = _mm_loadu_ps(rows[0] + i + 4);
        for (int r = 1; r < nbRows; ++r) {
            __m128 const b0 = _mm_loadu_ps(rows[r] + i);
            __m128 const b1 = _mm_loadu_ps(rows[r] + i + 4);
            a0 = kMax ? _mm_max_ps(a0, b0) : _mm_min_ps(a0, b0);
            a1 = kMax ? _mm_max_ps(a1, b1) : _mm_min_ps(a1, b1);
        }
        _mm_storeu_ps(dst + i, a0);
        _mm_storeu_ps(dst + i + 4, a1);
    }
    for (; i < n; ++i) {
        float a = rows[0][i];
        for (int r = 1; r < nbRows; ++r) {
            float const b = rows[r][i];
            // As the vector instructions: the second operand when they compare false.
            a = kMax ? (a > b ? a : b) : (a < b ? a : b);
        }
        dst[i] = a;
    }
}

} // namespace

void IpAlphaRows::max(float* dst, float const* a, float const* b, int n) noexcept {
    binary(
        dst, a, b, n, [](__m128 x, __m128 y) { return _mm_max_ps(x, y); },
        [](float x, float y) { return x > y ? x : y; });
}

void IpAlphaRows::min(float* dst, float const* a, float const* b, int n) noexcept {
    binary(
        dst, a, b, n, [](__m128 x, __m128 y) { return _mm_min_ps(x, y); },
        [](float x, float y) { return x < y ? x : y; });
}

void IpAlphaRows::blend(float* dst, float const* a, float const* b, float f, int n) noexcept {
    __m128 const vf = _mm_set1_ps(f);
    binary(
        dst, a, b, n,
        [vf](__m128 x, __m128 y) { return _mm_add_ps(x, _mm_mul_ps(_mm_sub_ps(y, x), vf)); },
        [f](float x, float y) { return x + (y - x) * f; });
}

void IpAlphaRows::average(float* dst, float const* a, float const* b, int n) noexcept {
    __m128 const half = _mm_set1_ps(0.5f);
    binary(
        dst, a, b, n, [half](__m128 x, __m128 y) { return _mm_mul_ps(_mm_add_ps(x, y), half); },
        [](float x, float y) { return (x + y) * 0.5f; });
}

void IpAlphaRows::difference(float* dst, float const* a, float const* b, int n) noexcept {
    __m128 const zero = _mm_setzero_ps();
    binary(
        dst, a, b, n, [zero](__m128 x, __m128 y) { return _mm_max_ps(_mm_sub_ps(x, y), zero); },
        [](float x, float y) {
            float const d = x - y;
            return d > 0.0f ? d : 0.0f;
        });
}

void IpAlphaRows::invert(float* dst, float const* a, int n) noexcept {
    __m128 const one = _mm_set1_ps(1.0f);
    unary(
        dst, a, n, [one](__m128 x) { return _mm_sub_ps(one, x); },
        [](float x) { return 1.0f - x; });
}

float IpAlphaRows::lut(float a, float scale, float offset, float const* table, int size) noexcept {
    float v = a * scale + offset;
    float const top = static_cast<float>(size - 2);
    // Written so that NaN lands on the first entry.
    v = v > 0.0f ? v : 0.0f;
    v = v < top ? v : top;
    int const i = static_cast<int>(v);
    float const u = v - static_cast<float>(i);
    return (1.0f - u) * table[i] + u * table[i + 1];
}

void IpAlphaRows::lut(float* dst, float const* a, int n, float scale, float offset,
                      float const* table, int size) noexcept {
    for (int i = 0; i < n; ++i)
        dst[i] = lut(a[i], scale, offset, table, size);
}

void IpAlphaRows::maxOfRows(float* dst, float const* const* rows, int nbRows, int n) noexcept {
    extremeOfRows<true>(dst, rows, nbRows, n);
}

void IpAlphaRows::minOfRows(float* dst, float const* const* rows, int nbRows, int n) noexcept {
    extremeOfRows<false>(dst, rows, nbRows, n);
}

void IpAlphaRows::windowMax(float* dst, float const* src, int n, int w, float* scratch) noexcept {
    window<true>(dst, src, n, w, scratch);
}

void IpAlphaRows::windowMin(float* dst, float const* src, int n, int w, float* scratch) noexcept {
    window<false>(dst, src, n, w, scratch);
}

void IpAlphaRows::correlate(float* dst, float const* src, int n, float const* taps,
                            int nbTaps) noexcept {
    if (n <= 0)
        return;
    bool symmetric = nbTaps % 2 == 1;
    for (int k = 0; symmetric && k < nbTaps / 2; ++k)
        symmetric = taps[k] == taps[nbTaps - 1 - k];
    int i = 0;
    if (symmetric) {
        int const h = nbTaps / 2;
        // The fused paths cover the same values, [0, n rounded down to 16), whichever runs.
        IxConvertUtil::VectorPath const path = IxConvertUtil::getVectorPath();
        if (path == IxConvertUtil::VectorPath::AVX512)
            i = correlateSymmetricAvx512(dst, src, n, taps, h);
        if (path >= IxConvertUtil::VectorPath::AVX2)
            i += correlateSymmetricAvx2(dst + i, src + i, n - i, taps, h);
        __m128 const c = _mm_set1_ps(taps[h]);
        for (; i + 8 <= n; i += 8) {
            float const* s = src + i;
            __m128 acc0 = _mm_mul_ps(c, _mm_loadu_ps(s + h));
            __m128 acc1 = _mm_mul_ps(c, _mm_loadu_ps(s + h + 4));
            for (int k = 0; k < h; ++k) {
                __m128 const t = _mm_set1_ps(taps[k]);
                __m128 const p0 = _mm_add_ps(_mm_loadu_ps(s + k), _mm_loadu_ps(s + 2 * h - k));
                __m128 const p1 =
                    _mm_add_ps(_mm_loadu_ps(s + k + 4), _mm_loadu_ps(s + 2 * h - k + 4));
                acc0 = _mm_add_ps(acc0, _mm_mul_ps(t, p0));
                acc1 = _mm_add_ps(acc1, _mm_mul_ps(t, p1));
            }
            _mm_storeu_ps(dst + i, acc0);
            _mm_storeu_ps(dst + i + 4, acc1);
        }
        for (; i < n; ++i) {
            float const* s = src + i;
            float acc = taps[h] * s[h];
            for (int k = 0; k < h; ++k)
                acc += taps[k] * (s[k] + s[2 * h - k]);
            dst[i] = acc;
        }
        return;
    }
    for (; i + 4 <= n; i += 4) {
        __m128 acc = _mm_setzero_ps();
        for (int k = 0; k < nbTaps; ++k)
            acc = _mm_add_ps(acc, _mm_mul_ps(_mm_set1_ps(taps[k]), _mm_loadu_ps(src + i + k)));
        _mm_storeu_ps(dst + i, acc);
    }
    for (; i < n; ++i) {
        float acc = 0.0f;
        for (int k = 0; k < nbTaps; ++k)
            acc += taps[k] * src[i + k];
        dst[i] = acc;
    }
}

void IpAlphaRows::accumulate(float* dst, float const* src, float w, int n) noexcept {
    __m128 const vw = _mm_set1_ps(w);
    binary(
        dst, dst, src, n, [vw](__m128 d, __m128 s) { return _mm_add_ps(d, _mm_mul_ps(vw, s)); },
        [w](float d, float s) { return d + w * s; });
}

void IpAlphaRows::scale(float* dst, float const* src, float w, int n) noexcept {
    __m128 const vw = _mm_set1_ps(w);
    unary(
        dst, src, n, [vw](__m128 s) { return _mm_mul_ps(vw, s); }, [w](float s) { return w * s; });
}

int IpGauss1DKernel::getSize(float radius) noexcept {
    float const r = std::fabs(radius);
    if (!(r > 0.0f))
        return 1;
    return 2 * static_cast<int>(std::ceil(1.5f * std::min(r, 1.0e6f))) + 1;
}

IpGauss1DKernel::IpGauss1DKernel(float radius) : _taps(static_cast<std::size_t>(getSize(radius))) {
    int const h = getSize() / 2;
    if (h == 0) {
        _taps[0] = 1.0f;
        return;
    }
    double const sigma = std::fabs(radius) / 2.0;
    double sum = 0.0;
    std::vector<double> w(_taps.size());
    for (int k = -h; k <= h; ++k) {
        w[k + h] = std::exp(-0.5 * k * k / (sigma * sigma));
        sum += w[k + h];
    }
    for (std::size_t k = 0; k < w.size(); ++k)
        _taps[k] = static_cast<float>(w[k] / sum);
}

IpAlphaFilter1D::~IpAlphaFilter1D() = default;

void IpFeatherFilter1D::filter(float* dst, float const* src, int n) const noexcept {
    IpAlphaRows::correlate(dst, src, n, _kernel.getTaps(), _kernel.getSize());
}

} // namespace Vn

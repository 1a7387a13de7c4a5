#include "IxConvertUtil.h"
#include "Assertions.h"

#include <Imath/half.h>

#include <cpuid.h>
#include <immintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace Vn {

namespace {

using Rgba = CoRgbaColorTyped<float>;
using Imath::half;

struct Cplx {
    float re;
    float im;
};
static_assert(sizeof(half) == 2 && sizeof(Cplx) == 8);

inline float toF(std::uint8_t v) {
    return IxConvertUtil::uint8ToFloat(v);
}
inline float toF(half v) {
    return static_cast<float>(v);
}
inline float toF(float v) {
    return v;
}
inline float toF(Cplx v) {
    return v.re;
}

template <class S>
S fromF(float v);
template <>
inline std::uint8_t fromF<std::uint8_t>(float v) {
    return IxConvertUtil::floatToUint8(v);
}
template <>
inline half fromF<half>(float v) {
    half h;
    h.setBits(IxConvertUtil::floatToHalf(v));
    return h;
}
template <>
inline float fromF<float>(float v) {
    return v;
}
template <>
inline Cplx fromF<Cplx>(float v) {
    return Cplx{v, 0.0f};
}

// Whole RGBA pixels of 8 bits, four at a time: the same values as uint8ToFloat and
// floatToUint8 (a correctly rounded division; clamping that sends NaN to 0, then v * 255
// rounded exactly to nearest).
void readRgbaU8(Rgba* d, std::uint8_t const* s, int n) {
    __m128i const zero = _mm_setzero_si128();
    __m128 const k255 = _mm_set1_ps(255.0f);
    auto* out = reinterpret_cast<float*>(d);
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(s + 4 * i));
        __m128i const lo = _mm_unpacklo_epi8(bytes, zero);
        __m128i const hi = _mm_unpackhi_epi8(bytes, zero);
        _mm_storeu_ps(out + 4 * i, _mm_div_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(lo, zero)), k255));
        _mm_storeu_ps(out + 4 * i + 4,
                      _mm_div_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(lo, zero)), k255));
        _mm_storeu_ps(out + 4 * i + 8,
                      _mm_div_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(hi, zero)), k255));
        _mm_storeu_ps(out + 4 * i + 12,
                      _mm_div_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(hi, zero)), k255));
    }
    for (int k = 4 * i; k < 4 * n; ++k)
        out[k] = IxConvertUtil::uint8ToFloat(s[k]);
}

void writeRgbaU8(std::uint8_t* s, Rgba const* p, int n) {
    __m128 const zero = _mm_setzero_ps();
    __m128 const one = _mm_set1_ps(1.0f);
    __m128 const k255 = _mm_set1_ps(255.0f);
    __m128 const k256 = _mm_set1_ps(256.0f);
    __m128 const half = _mm_set1_ps(0.5f);
    auto const* in = reinterpret_cast<float const*>(p);
    auto toInt = [&](float const* f) {
        // max(v, 0) gives 0 for NaN, as the second operand wins.
        __m128 const v = _mm_min_ps(_mm_max_ps(_mm_loadu_ps(f), zero), one);
        // In single precision k = trunc(v 255 + 0.5) is the exact result or one above it, when
        // v 255 lies just below the half step k - 0.5. That is v 256 - (k - 0.5) < v, where
        // v 256 and k - 0.5 are exact and, near the step, so is their difference (they are
        // within a factor of 2 of each other). Checked against every float in [0, 1.5].
        __m128i const k = _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(v, k255), half));
        __m128 const d = _mm_sub_ps(_mm_mul_ps(v, k256), _mm_sub_ps(_mm_cvtepi32_ps(k), half));
        return _mm_add_epi32(k, _mm_castps_si128(_mm_cmplt_ps(d, v)));
    };
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        float const* f = in + 4 * i;
        __m128i const a = _mm_packs_epi32(toInt(f), toInt(f + 4));
        __m128i const b = _mm_packs_epi32(toInt(f + 8), toInt(f + 12));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(s + 4 * i), _mm_packus_epi16(a, b));
    }
    for (int k = 4 * i; k < 4 * n; ++k)
        s[k] = IxConvertUtil::floatToUint8(in[k]);
}

// The same conversions eight components at a time; they return how many pixels they did. The
// processors with AVX2 all have FMA, which the path needs too.

// i / 255 without a division: 1/255 split in two floats, the fused product rounds once a value
// within 2^-48 of the quotient. Its bits repeat i every 8, so none lies that close to a half
// step of float and the rounding is the division's, as every byte value confirms.
__attribute__((target("avx2,fma"), always_inline)) inline __m256 div255Avx2(__m256i i) {
    __m256 const x = _mm256_cvtepi32_ps(i);
    return _mm256_fmadd_ps(x, _mm256_set1_ps(1.0f / 255.0f),
                           _mm256_mul_ps(x, _mm256_set1_ps(-0x1.fdfdfep-33f)));
}

__attribute__((target("avx2,fma"))) int readRgbaU8Avx2(Rgba* d, std::uint8_t const* s, int n) {
    auto* out = reinterpret_cast<float*>(d);
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(s + 4 * i));
        _mm256_storeu_ps(out + 4 * i, div255Avx2(_mm256_cvtepu8_epi32(bytes)));
        _mm256_storeu_ps(out + 4 * i + 8,
                         div255Avx2(_mm256_cvtepu8_epi32(_mm_unpackhi_epi64(bytes, bytes))));
    }
    return i;
}

// The same rounding in one step: adding 2^23 within the fused product rounds v 255 once to the
// nearest integer, which lands in the low bits. Ties go to even, not up, but the only float
// with v 255 on a half step is 1/2, whose even neighbour 128 is also the one above. Above 1
// (infinity too) the bits only grow and the packs saturate them to 255; the maximum sends NaN
// and negatives to 0.
__attribute__((target("avx2,fma"), always_inline)) inline __m256i toUint8Avx2(float const* f) {
    __m256 const v = _mm256_max_ps(_mm256_loadu_ps(f), _mm256_setzero_ps());
    __m256 const t = _mm256_fmadd_ps(v, _mm256_set1_ps(255.0f), _mm256_set1_ps(0x1p23f));
    return _mm256_sub_epi32(_mm256_castps_si256(t), _mm256_set1_epi32(0x4b000000));
}

__attribute__((target("avx2,fma"))) int writeRgbaU8Avx2(std::uint8_t* s, Rgba const* p, int n) {
    auto const* in = reinterpret_cast<float const*>(p);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        float const* f = in + 4 * i;
        // The packs work within 128-bit lanes: put the four quarters back in order after.
        __m256i const a = _mm256_packs_epi32(toUint8Avx2(f), toUint8Avx2(f + 8));
        __m256i const b = _mm256_packs_epi32(toUint8Avx2(f + 16), toUint8Avx2(f + 24));
        __m256i const bytes = _mm256_permutevar8x32_epi32(
            _mm256_packus_epi16(a, b), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(s + 4 * i), bytes);
    }
    return i;
}

// The same conversions sixteen components at a time, with the arithmetic above. GCC 12 warns
// of the undefined vectors inside its own 512-bit intrinsics.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
__attribute__((target("avx512f,avx512bw,avx2,fma"))) int
readRgbaU8Avx512(Rgba* d, std::uint8_t const* s, int n) {
    auto* out = reinterpret_cast<float*>(d);
    __m512 const hi = _mm512_set1_ps(1.0f / 255.0f);
    __m512 const lo = _mm512_set1_ps(-0x1.fdfdfep-33f);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m512 const a = _mm512_cvtepi32_ps(
            _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<__m128i const*>(s + 4 * i))));
        __m512 const b = _mm512_cvtepi32_ps(_mm512_cvtepu8_epi32(
            _mm_loadu_si128(reinterpret_cast<__m128i const*>(s + 4 * i + 16))));
        _mm512_storeu_ps(out + 4 * i, _mm512_fmadd_ps(a, hi, _mm512_mul_ps(a, lo)));
        _mm512_storeu_ps(out + 4 * i + 16, _mm512_fmadd_ps(b, hi, _mm512_mul_ps(b, lo)));
    }
    return i;
}

__attribute__((target("avx512f,avx512bw,avx2,fma"), always_inline)) inline __m512i
toUint8Avx512(float const* f) {
    __m512 const v = _mm512_max_ps(_mm512_loadu_ps(f), _mm512_setzero_ps());
    __m512 const t = _mm512_fmadd_ps(v, _mm512_set1_ps(255.0f), _mm512_set1_ps(0x1p23f));
    return _mm512_sub_epi32(_mm512_castps_si512(t), _mm512_set1_epi32(0x4b000000));
}

__attribute__((target("avx512f,avx512bw,avx2,fma"))) int writeRgbaU8Avx512(std::uint8_t* s,
                                                                           Rgba const* p, int n) {
    auto const* in = reinterpret_cast<float const*>(p);
    __m512i const order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        float const* f = in + 4 * i;
        __m512i const a = _mm512_packs_epi32(toUint8Avx512(f), toUint8Avx512(f + 16));
        __m512i const b = _mm512_packs_epi32(toUint8Avx512(f + 32), toUint8Avx512(f + 48));
        _mm512_storeu_si512(s + 4 * i, _mm512_permutexvar_epi32(order, _mm512_packus_epi16(a, b)));
    }
    return i;
}
#pragma GCC diagnostic pop

std::atomic<int> gVectorLimit{int(IxConvertUtil::VectorPath::AVX512)};

IxConvertUtil::VectorPath bestVectorPath() noexcept {
    static IxConvertUtil::VectorPath const best = [] {
        using Path = IxConvertUtil::VectorPath;
        if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma"))
            return Path::SSE2;
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")
                   ? Path::AVX512
                   : Path::AVX2;
    }();
    return best;
}

bool useAvx2() noexcept {
    return IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2;
}

// Half conversions in hardware, eight components at a time. A group holding a NaN takes the
// scalar code, which keeps a signalling NaN's bits where the hardware would quiet it; finite
// floats beyond the half range are clamped first so that they saturate instead of overflowing.
__attribute__((target("avx2,f16c"))) int floatsToHalvesF16c(std::uint16_t* d, float const* s,
                                                            int n) {
    __m256 const limit = _mm256_set1_ps(65504.0f);
    __m256 const negLimit = _mm256_set1_ps(-65504.0f);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m256 const v = _mm256_loadu_ps(s + i);
        if (_mm256_movemask_ps(_mm256_cmp_ps(v, v, _CMP_UNORD_Q)) != 0)
            for (int k = i; k < i + 8; ++k)
                d[k] = IxConvertUtil::floatToHalf(s[k]);
        else
            // Clamping leaves the infinities where they are: min and max keep them out of range.
            _mm_storeu_si128(
                reinterpret_cast<__m128i*>(d + i),
                _mm256_cvtps_ph(
                    _mm256_blendv_ps(_mm256_min_ps(_mm256_max_ps(v, negLimit), limit), v,
                                     _mm256_cmp_ps(_mm256_andnot_ps(_mm256_set1_ps(-0.0f), v),
                                                   _mm256_set1_ps(HUGE_VALF), _CMP_EQ_OQ)),
                    _MM_FROUND_TO_NEAREST_INT));
    }
    return i;
}

__attribute__((target("avx2,f16c"))) int halvesToFloatsF16c(float* d, std::uint16_t const* s,
                                                            int n) {
    __m128i const magnitude = _mm_set1_epi16(0x7fff);
    __m128i const infinity = _mm_set1_epi16(0x7c00);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i const h = _mm_loadu_si128(reinterpret_cast<__m128i const*>(s + i));
        if (_mm_movemask_epi8(_mm_cmpgt_epi16(_mm_and_si128(h, magnitude), infinity)) != 0)
            for (int k = i; k < i + 8; ++k)
                d[k] = IxConvertUtil::halfToFloat(s[k]);
        else
            _mm256_storeu_ps(d + i, _mm256_cvtph_ps(h));
    }
    return i;
}

bool useF16c() noexcept {
    // Read from the processor: not every compiler's feature test knows this one.
    static bool const f16c = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_F16C) != 0;
    }();
    return f16c && useAvx2();
}

template <int C, class S>
void readRgba(Rgba* d, std::byte const* src, int n) {
    if constexpr (C == 4 && std::is_same_v<S, std::uint8_t>) {
        auto const* bytes = reinterpret_cast<std::uint8_t const*>(src);
        IxConvertUtil::VectorPath const path = IxConvertUtil::getVectorPath();
        int const done = path == IxConvertUtil::VectorPath::AVX512 ? readRgbaU8Avx512(d, bytes, n)
                         : path == IxConvertUtil::VectorPath::AVX2 ? readRgbaU8Avx2(d, bytes, n)
                                                                   : 0;
        return readRgbaU8(d + done, bytes + 4 * done, n - done);
    }
    if constexpr (C == 4 && std::is_same_v<S, float>) {
        std::memcpy(static_cast<void*>(d), src, static_cast<std::size_t>(n) * sizeof(Rgba));
        return;
    }
    if constexpr (C == 4 && std::is_same_v<S, half>) {
        IxConvertUtil::halvesToFloats(&d->r, reinterpret_cast<std::uint16_t const*>(src), 4 * n);
        return;
    }
    auto const* s = reinterpret_cast<S const*>(src);
    for (int i = 0; i < n; ++i, s += C) {
        if constexpr (C == 1) {
            d[i] = Rgba{0.0f, 0.0f, 0.0f, toF(s[0])};
        } else if constexpr (C == 2) {
            float const l = toF(s[0]);
            d[i] = Rgba{l, l, l, toF(s[1])};
        } else if constexpr (C == 3) {
            d[i] = Rgba{toF(s[0]), toF(s[1]), toF(s[2]), 1.0f};
        } else {
            d[i] = Rgba{toF(s[0]), toF(s[1]), toF(s[2]), toF(s[3])};
        }
    }
}

template <int C, class S>
void writeRgba(std::byte* dst, Rgba const* p, int n) {
    if constexpr (C == 4 && std::is_same_v<S, std::uint8_t>) {
        auto* bytes = reinterpret_cast<std::uint8_t*>(dst);
        IxConvertUtil::VectorPath const path = IxConvertUtil::getVectorPath();
        int const done = path == IxConvertUtil::VectorPath::AVX512 ? writeRgbaU8Avx512(bytes, p, n)
                         : path == IxConvertUtil::VectorPath::AVX2 ? writeRgbaU8Avx2(bytes, p, n)
                                                                   : 0;
        return writeRgbaU8(bytes + 4 * done, p + done, n - done);
    }
    if constexpr (C == 4 && std::is_same_v<S, float>) {
        std::memcpy(dst, static_cast<void const*>(p), static_cast<std::size_t>(n) * sizeof(Rgba));
        return;
    }
    if constexpr (C == 4 && std::is_same_v<S, half>) {
        IxConvertUtil::floatsToHalves(reinterpret_cast<std::uint16_t*>(dst), &p->r, 4 * n);
        return;
    }
    auto* s = reinterpret_cast<S*>(dst);
    for (int i = 0; i < n; ++i, s += C) {
        if constexpr (C == 1) {
            s[0] = fromF<S>(p[i].a);
        } else if constexpr (C == 2) {
            s[0] = fromF<S>(p[i].r);
            s[1] = fromF<S>(p[i].a);
        } else {
            s[0] = fromF<S>(p[i].r);
            s[1] = fromF<S>(p[i].g);
            s[2] = fromF<S>(p[i].b);
            if constexpr (C == 4)
                s[3] = fromF<S>(p[i].a);
        }
    }
}

// The alpha of each pixel: component `alpha` of C, or 1 when alpha < 0.
template <class S, class D, class Get>
void readAlpha(D* d, std::byte const* src, int n, int comps, Get get) {
    auto const* s = reinterpret_cast<S const*>(src);
    int const alpha = comps == 1 ? 0 : comps == 2 ? 1 : comps == 4 ? 3 : -1;
    if (alpha < 0) {
        for (int i = 0; i < n; ++i)
            d[i] = D(1.0f);
        return;
    }
    for (int i = 0; i < n; ++i)
        d[i] = get(s[i * comps + alpha]);
}

template <class Fn>
void byDepth(ImPixelFormat const& format, Fn&& fn) {
    // clang-format off
    VN_ASSERT(format.getComps() >= 1 && format.getComps() <= 4);
    // clang-format on
    switch (format.getDepth()) {
    case ImPixelFormat::UINT8:
        fn(std::uint8_t{});
        break;
    case ImPixelFormat::FLOAT16:
        fn(half{});
        break;
    case ImPixelFormat::FLOAT32:
        fn(float{});
        break;
    case ImPixelFormat::COMPLEX:
        fn(Cplx{});
        break;
    default:
        VN_ASSERT(ImPixelFormat::isValidDepth(format.getDepth()));
    }
}

} // namespace

float const IxConvertUtil::kUint8ToFloat[256] = {
#define VN_U8(i) static_cast<float>(i) / 255.0f
#define VN_U8_4(i) VN_U8(i), VN_U8(i + 1), VN_U8(i + 2), VN_U8(i + 3)
#define VN_U8_16(i) VN_U8_4(i), VN_U8_4(i + 4), VN_U8_4(i + 8), VN_U8_4(i + 12)
#define VN_U8_64(i) VN_U8_16(i), VN_U8_16(i + 16), VN_U8_16(i + 32), VN_U8_16(i + 48)
    VN_U8_64(0), VN_U8_64(64), VN_U8_64(128), VN_U8_64(192)
#undef VN_U8_64
#undef VN_U8_16
#undef VN_U8_4
#undef VN_U8
};
IxConvertUtil::VectorPath IxConvertUtil::getVectorPath() noexcept {
    return VectorPath(
        std::min(int(bestVectorPath()), gVectorLimit.load(std::memory_order_relaxed)));
}

void IxConvertUtil::limitVectorPath(VectorPath path) noexcept {
    gVectorLimit.store(int(path), std::memory_order_relaxed);
}

float IxConvertUtil::halfToFloat(std::uint16_t bits) noexcept {
    return imath_half_to_float(bits);
}

std::uint16_t IxConvertUtil::floatToHalf(float v) noexcept {
    std::uint32_t u;
    std::memcpy(&u, &v, sizeof u);
    std::uint32_t const magnitude = u & 0x7fffffffu;
    // Finite values that would round to infinity stop at the largest half.
    if (magnitude > 0x477fefffu && magnitude < 0x7f800000u)
        return static_cast<std::uint16_t>(((u >> 16) & 0x8000u) | 0x7bffu);
    return imath_float_to_half(v);
}

void IxConvertUtil::floatsToHalves(std::uint16_t* dst, float const* src, int count) noexcept {
    int i = useF16c() ? floatsToHalvesF16c(dst, src, count) : 0;
    for (; i < count; ++i)
        dst[i] = floatToHalf(src[i]);
}

void IxConvertUtil::halvesToFloats(float* dst, std::uint16_t const* src, int count) noexcept {
    int i = useF16c() ? halvesToFloatsF16c(dst, src, count) : 0;
    for (; i < count; ++i)
        dst[i] = halfToFloat(src[i]);
}

void IxConvertUtil::readFrom(CoRgbaColorTyped<float>* dst, std::byte const* src, int count,
                             ImPixelFormat const& format) {
    byDepth(format, [&](auto s) {
        using S = decltype(s);
        switch (format.getComps()) {
        case 1:
            readRgba<1, S>(dst, src, count);
            break;
        case 2:
            readRgba<2, S>(dst, src, count);
            break;
        case 3:
            readRgba<3, S>(dst, src, count);
            break;
        default:
            readRgba<4, S>(dst, src, count);
        }
    });
}

void IxConvertUtil::writeTo(std::byte* dst, CoRgbaColorTyped<float> const* src, int count,
                            ImPixelFormat const& format) {
    byDepth(format, [&](auto s) {
        using S = decltype(s);
        switch (format.getComps()) {
        case 1:
            writeRgba<1, S>(dst, src, count);
            break;
        case 2:
            writeRgba<2, S>(dst, src, count);
            break;
        case 3:
            writeRgba<3, S>(dst, src, count);
            break;
        default:
            writeRgba<4, S>(dst, src, count);
        }
    });
}

void IxConvertUtil::readFrom(float* dst, std::byte const* src, int count,
                             ImPixelFormat const& format) {
    byDepth(format, [&](auto s) {
        using S = decltype(s);
        readAlpha<S>(dst, src, count, format.getComps(), [](S v) { return toF(v); });
    });
}

void IxConvertUtil::writeTo(std::byte* dst, float const* src, int count,
                            ImPixelFormat const& format) {
    VN_ASSERT(format.getComps() == 1);
    byDepth(format, [&](auto s) {
        using S = decltype(s);
        auto* d = reinterpret_cast<S*>(dst);
        for (int i = 0; i < count; ++i)
            d[i] = fromF<S>(src[i]);
    });
}

void IxConvertUtil::readFrom(std::complex<float>* dst, std::byte const* src, int count,
                             ImPixelFormat const& format) {
    byDepth(format, [&](auto s) {
        using S = decltype(s);
        readAlpha<S>(dst, src, count, format.getComps(), [](S v) {
            if constexpr (std::is_same_v<S, Cplx>)
                return std::complex<float>(v.re, v.im);
            else
                return std::complex<float>(toF(v), 0.0f);
        });
    });
}

void IxConvertUtil::writeTo(std::byte* dst, std::complex<float> const* src, int count,
                            ImPixelFormat const& format) {
    VN_ASSERT(format.getComps() == 1);
    byDepth(format, [&](auto s) {
        using S = decltype(s);
        auto* d = reinterpret_cast<S*>(dst);
        for (int i = 0; i < count; ++i) {
            if constexpr (std::is_same_v<S, Cplx>)
                d[i] = Cplx{src[i].real(), src[i].imag()};
            else
                d[i] = fromF<S>(src[i].real());
        }
    });
}

} // namespace Vn

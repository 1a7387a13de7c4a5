#include "PxSamplers.h"

#include "IpFastMath.h"

#include "IxConvertUtil.h"

#include <immintrin.h>

namespace Vn {

namespace {

using Color = SdTextureSampler::Color;

// Colours as four lanes. Each lane does the scalar operations in the order written, so the
// results are those of componentwise single precision, bit for bit.
inline __m128 lanes(Color const& c) noexcept {
    return _mm_loadu_ps(&c.r);
}

inline Color colour(__m128 v) noexcept {
    Color c;
    _mm_storeu_ps(&c.r, v);
    return c;
}

// a + t (b - a).
inline __m128 lerp(__m128 a, __m128 b, float t) noexcept {
    return _mm_add_ps(a, _mm_mul_ps(_mm_set1_ps(t), _mm_sub_ps(b, a)));
}

// IpFastMath::rcp(IpFastMath::divisor(1)), alpha's reciprocal in unpremultiply.
float const kAlphaRcp = IpFastMath::rcp(IpFastMath::divisor(1.0f));

// IpFastMath::unpremultiply on four lanes: v - v is 0 exactly when v is finite.
inline Color unpremultiply(__m128 v) noexcept {
    float const a = _mm_cvtss_f32(_mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 3, 3, 3)));
    float const e = IpFastMath::rcp(IpFastMath::divisor(a));
    __m128 const q = _mm_mul_ps(v, _mm_set_ps(kAlphaRcp, e, e, e));
    return colour(_mm_and_ps(q, _mm_cmpeq_ps(_mm_sub_ps(q, q), _mm_setzero_ps())));
}

// The same on n colours in place, the reciprocals of four alphas at once. The division is
// IEEE's in either form; the estimate's cut only clears bits, as 1/d is never NaN here.
int unpremultiplyRowAvx2(Color* c, int n) noexcept;

void unpremultiplyRow(Color* c, int n) noexcept {
    if (IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2) {
        int const done = unpremultiplyRowAvx2(c, n);
        c += done;
        n -= done;
    }
    __m128 const abs = _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff));
    __m128 const cut = _mm_castsi128_ps(_mm_set1_epi32(static_cast<int>(0xfffff800u)));
    __m128 const rgb = _mm_castsi128_ps(_mm_setr_epi32(-1, -1, -1, 0));
    __m128 const alpha = _mm_setr_ps(0.0f, 0.0f, 0.0f, kAlphaRcp);
    __m128 const zero = _mm_setzero_ps();
    auto* f = reinterpret_cast<float*>(c);
    int i = 0;
    for (; i + 4 <= n; i += 4, f += 16) {
        __m128 const c0 = _mm_loadu_ps(f);
        __m128 const c1 = _mm_loadu_ps(f + 4);
        __m128 const c2 = _mm_loadu_ps(f + 8);
        __m128 const c3 = _mm_loadu_ps(f + 12);
        __m128 const a = _mm_movehl_ps(_mm_unpackhi_ps(c2, c3), _mm_unpackhi_ps(c0, c1));
        __m128 const d = _mm_and_ps(a, _mm_cmpge_ps(_mm_and_ps(a, abs), _mm_set1_ps(1e-8f)));
        __m128 const est = _mm_and_ps(_mm_div_ps(_mm_set1_ps(1.0f), d), cut);
        __m128 const e =
            _mm_sub_ps(_mm_mul_ps(_mm_set1_ps(2.0f), est), _mm_mul_ps(_mm_mul_ps(d, est), est));
        auto one = [&](__m128 v, __m128 ek, float* out) {
            __m128 const q = _mm_mul_ps(v, _mm_or_ps(_mm_and_ps(ek, rgb), alpha));
            _mm_storeu_ps(out, _mm_and_ps(q, _mm_cmpeq_ps(_mm_sub_ps(q, q), zero)));
        };
        one(c0, _mm_shuffle_ps(e, e, _MM_SHUFFLE(0, 0, 0, 0)), f);
        one(c1, _mm_shuffle_ps(e, e, _MM_SHUFFLE(1, 1, 1, 1)), f + 4);
        one(c2, _mm_shuffle_ps(e, e, _MM_SHUFFLE(2, 2, 2, 2)), f + 8);
        one(c3, _mm_shuffle_ps(e, e, _MM_SHUFFLE(3, 3, 3, 3)), f + 12);
    }
    for (; i < n; ++i)
        c[i] = unpremultiply(lanes(c[i]));
}

// unpremultiplyRow eight colours at a time, the reciprocals of eight alphas in one division and
// the same operations lane by lane. Returns how many it did, a multiple of 8.
__attribute__((target("avx2"))) int unpremultiplyRowAvx2(Color* c, int n) noexcept {
    __m256 const abs = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
    __m256 const cut = _mm256_castsi256_ps(_mm256_set1_epi32(static_cast<int>(0xfffff800u)));
    __m256 const alpha = _mm256_setr_ps(0.0f, 0.0f, 0.0f, kAlphaRcp, 0.0f, 0.0f, 0.0f, kAlphaRcp);
    __m256 const zero = _mm256_setzero_ps();
    auto* f = reinterpret_cast<float*>(c);
    int i = 0;
    for (; i + 8 <= n; i += 8, f += 32) {
        __m256 const c0 = _mm256_loadu_ps(f); // colours 0 and 1
        __m256 const c1 = _mm256_loadu_ps(f + 8);
        __m256 const c2 = _mm256_loadu_ps(f + 16);
        __m256 const c3 = _mm256_loadu_ps(f + 24);
        // Alphas of colours 0 2 4 6 | 1 3 5 7.
        __m256 const a = _mm256_shuffle_ps(_mm256_unpackhi_ps(c0, c1), _mm256_unpackhi_ps(c2, c3),
                                           _MM_SHUFFLE(3, 2, 3, 2));
        __m256 const d = _mm256_and_ps(
            a, _mm256_cmp_ps(_mm256_and_ps(a, abs), _mm256_set1_ps(1e-8f), _CMP_GE_OQ));
        __m256 const est = _mm256_and_ps(_mm256_div_ps(_mm256_set1_ps(1.0f), d), cut);
        __m256 const e = _mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(2.0f), est),
                                       _mm256_mul_ps(_mm256_mul_ps(d, est), est));
        auto one = [&](__m256 v, __m256 ek, float* out) __attribute__((target("avx2"))) {
            __m256 const q = _mm256_mul_ps(v, _mm256_blend_ps(ek, alpha, 0x88));
            _mm256_storeu_ps(
                out, _mm256_and_ps(q, _mm256_cmp_ps(_mm256_sub_ps(q, q), zero, _CMP_EQ_OQ)));
        };
        one(c0, _mm256_permute_ps(e, _MM_SHUFFLE(0, 0, 0, 0)), f);
        one(c1, _mm256_permute_ps(e, _MM_SHUFFLE(1, 1, 1, 1)), f + 8);
        one(c2, _mm256_permute_ps(e, _MM_SHUFFLE(2, 2, 2, 2)), f + 16);
        one(c3, _mm256_permute_ps(e, _MM_SHUFFLE(3, 3, 3, 3)), f + 24);
    }
    return i;
}

using Cell = PxTextureSampler::Cell;

inline Cell cellOf(GePoint<double> const& q) noexcept {
    int const ix = PxTextureSampler::floorIndex(q.x);
    int const iy = PxTextureSampler::floorIndex(q.y);
    return {ix, iy, static_cast<float>(q.x - ix), static_cast<float>(q.y - iy)};
}

} // namespace

template <class F>
void PxTextureSampler::eachCellInCache(GePoint<double> const& p, GeVector2<double> const& step,
                                       int n, Color* out, F const& f) const {
    alignas(16) int ix[ROW_CHUNK];
    alignas(16) int iy[ROW_CHUNK];
    alignas(16) float fx[ROW_CHUNK];
    alignas(16) float fy[ROW_CHUNK];
    constexpr int kMask = TILE_SIZE_X - 1;
    int bx = 0; // no block's key: the mask sets the low bits of every key
    int by = 0;
    Color const* origin = nullptr;
    for (int first = 0; first < n; first += ROW_CHUNK) {
        int const m = std::min(ROW_CHUNK, n - first);
        mapRow(p, step, first, m, ix, iy, fx, fy);
        for (int i = 0; i < m; ++i) {
            int const x = ix[i];
            int const y = iy[i];
            if ((x | kMask) != bx || (y | kMask) != by) [[unlikely]] {
                bx = x | kMask;
                by = y | kMask;
                origin = lookup(x, y) - (x & kMask) - (y & kMask) * TILE_SIZE_X;
            }
            out[first + i] =
                f(Cell{x, y, fx[i], fy[i]}, origin + (y & kMask) * TILE_SIZE_X + (x & kMask));
        }
    }
}

template <int Lo, int Hi, class Pair, class One>
__attribute__((target("avx2"))) void
PxTextureSampler::eachCellPairInCache(GePoint<double> const& p, GeVector2<double> const& step,
                                      int n, Color* out, Pair const& pair, One const& one) const {
    alignas(16) int ix[ROW_CHUNK];
    alignas(16) int iy[ROW_CHUNK];
    alignas(16) float fx[ROW_CHUNK];
    alignas(16) float fy[ROW_CHUNK];
    constexpr int kMask = TILE_SIZE_X - 1;
    int bx = 0; // no block's key, as in eachCellInCache
    int by = 0;
    Color const* origin = nullptr;
    auto inBlock = [&](int x, int y) {
        return ((x - Lo) | kMask) == bx && ((x + Hi) | kMask) == bx && ((y - Lo) | kMask) == by &&
               ((y + Hi) | kMask) == by;
    };
    auto at = [&](int x, int y) {
        return origin + (y & kMask) * TILE_SIZE_X + (x & kMask);
    };
    for (int first = 0; first < n; first += ROW_CHUNK) {
        int const m = std::min(ROW_CHUNK, n - first);
        mapRow(p, step, first, m, ix, iy, fx, fy);
        int i = 0;
        while (i < m) {
            if (i + 1 < m && inBlock(ix[i], iy[i]) && inBlock(ix[i + 1], iy[i + 1])) {
                pair(fx + i, fy + i, at(ix[i], iy[i]), at(ix[i + 1], iy[i + 1]), out + first + i);
                i += 2;
                continue;
            }
            int const x = ix[i];
            int const y = iy[i];
            if ((x | kMask) != bx || (y | kMask) != by) {
                bx = x | kMask;
                by = y | kMask;
                origin = lookup(x, y) - (x & kMask) - (y & kMask) * TILE_SIZE_X;
            }
            out[first + i] = one(Cell{x, y, fx[i], fy[i]}, at(x, y));
            ++i;
        }
    }
}

namespace {

// Two colours as the halves of a register.
__attribute__((target("avx2"), always_inline)) inline __m256 halves(Color const& lo,
                                                                    Color const& hi) noexcept {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(lanes(lo)), lanes(hi), 1);
}

__attribute__((target("avx2"), always_inline)) inline __m256 halves(float lo, float hi) noexcept {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_set1_ps(lo)), _mm_set1_ps(hi), 1);
}

bool avx2() noexcept {
    return IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2;
}

} // namespace

// ---- nearest ----

PxNearestSampler::PxNearestSampler(PxNodePtr<PxImageProtocol const> const& node,
                                   PxTimeScaleContext const& context, IxPixelFormat const& format,
                                   SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_AS_IS) {}

PxNearestSampler::PxNearestSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                   SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_AS_IS) {}

inline Color PxNearestSampler::at(GePoint<double> const& p) const {
    GePoint<double> const q = mapPosition(p);
    return pixel(floorIndex(q.x), floorIndex(q.y));
}

Color PxNearestSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxNearestSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxNearestSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                 GeLinearMatrix2<float> const&, Color* out) const {
    alignas(16) int ix[ROW_CHUNK];
    alignas(16) int iy[ROW_CHUNK];
    for (int first = 0; first < n; first += ROW_CHUNK) {
        int const m = std::min(ROW_CHUNK, n - first);
        mapRow(p, step, first, m, ix, iy, nullptr, nullptr);
        // Neighbours mostly share a block: remember the last one rather than look it up.
        constexpr int kMask = TILE_SIZE_X - 1;
        int bx = ix[0] | kMask;
        int by = iy[0] | kMask;
        Color const* origin =
            lookup(ix[0], iy[0]) - (ix[0] & kMask) - (iy[0] & kMask) * TILE_SIZE_X;
        for (int i = 0; i < m; ++i) {
            if ((ix[i] | kMask) != bx || (iy[i] | kMask) != by) [[unlikely]] {
                bx = ix[i] | kMask;
                by = iy[i] | kMask;
                origin = lookup(ix[i], iy[i]) - (ix[i] & kMask) - (iy[i] & kMask) * TILE_SIZE_X;
            }
            out[first + i] = origin[(iy[i] & kMask) * TILE_SIZE_X + (ix[i] & kMask)];
        }
    }
}

// ---- bilinear ----

namespace {

// The four pixels of a cell, p the first in the cache, from p's block when the cell lies inside
// it, as it does 31 times out of 32 along each axis.
template <class Lookup>
__attribute__((always_inline)) inline __m128 bilinear(Cell const& c, Color const* p,
                                                      Lookup const& lookup) {
    constexpr int kMask = PxTextureSampler::TILE_SIZE_X - 1;
    constexpr int kRow = PxTextureSampler::TILE_SIZE_X;
    bool const inX = (c.ix & kMask) != kMask;
    bool const inY = (c.iy & kMask) != kMask;
    __m128 const c00 = lanes(p[0]);
    __m128 const c01 = lanes(inY ? p[kRow] : *lookup(c.ix, c.iy + 1));
    __m128 const c10 = lanes(inX ? p[1] : *lookup(c.ix + 1, c.iy));
    __m128 const c11 = lanes(inX && inY ? p[kRow + 1] : *lookup(c.ix + 1, c.iy + 1));
    __m128 const top = lerp(c00, c10, c.fx);
    __m128 const bottom = lerp(c01, c11, c.fx);
    return lerp(top, bottom, c.fy);
}

// bilinear for two cells at once, one per half, lane by lane as the single form.
struct BilinearPair {
    __attribute__((target("avx2"))) void operator()(float const* fx, float const* fy,
                                                    Color const* p0, Color const* p1,
                                                    Color* out) const noexcept {
        constexpr int kRow = PxTextureSampler::TILE_SIZE_X;
        __m256 const c00 = halves(p0[0], p1[0]);
        __m256 const c10 = halves(p0[1], p1[1]);
        __m256 const c01 = halves(p0[kRow], p1[kRow]);
        __m256 const c11 = halves(p0[kRow + 1], p1[kRow + 1]);
        __m256 const tx = halves(fx[0], fx[1]);
        __m256 const ty = halves(fy[0], fy[1]);
        __m256 const top = _mm256_add_ps(c00, _mm256_mul_ps(tx, _mm256_sub_ps(c10, c00)));
        __m256 const bottom = _mm256_add_ps(c01, _mm256_mul_ps(tx, _mm256_sub_ps(c11, c01)));
        _mm256_storeu_ps(&out->r,
                         _mm256_add_ps(top, _mm256_mul_ps(ty, _mm256_sub_ps(bottom, top))));
    }
};

} // namespace

PxBilinearSampler::PxBilinearSampler(PxNodePtr<PxImageProtocol const> const& node,
                                     PxTimeScaleContext const& context, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_PREMULTIPLY) {}

PxBilinearSampler::PxBilinearSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_PREMULTIPLY) {}

inline Color PxBilinearSampler::at(GePoint<double> const& p) const {
    auto read = [this](int x, int y) {
        return lookup(x, y);
    };
    Cell const c = cellOf(mapPosition(p));
    return unpremultiply(bilinear(c, lookup(c.ix, c.iy), read));
}

Color PxBilinearSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxBilinearSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxTextureSampler::bilinearRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                   Color* out) const {
    auto read = [this](int x, int y) {
        return lookup(x, y);
    };
    auto one = [&](Cell const& c, Color const* px) {
        return colour(bilinear(c, px, read));
    };
    if (avx2())
        eachCellPairInCache<0, 1>(p, step, n, out, BilinearPair{}, one);
    else
        eachCellInCache(p, step, n, out, one);
}

void PxBilinearSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                  GeLinearMatrix2<float> const&, Color* out) const {
    bilinearRow(p, step, n, out);
    unpremultiplyRow(out, n);
}

PxBilinearRGBSampler::PxBilinearRGBSampler(PxNodePtr<PxImageProtocol const> const& node,
                                           PxTimeScaleContext const& context,
                                           IxPixelFormat const& format,
                                           SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_AS_IS) {}

PxBilinearRGBSampler::PxBilinearRGBSampler(OPtr<PxImageFetcherBase> fetcher,
                                           IxPixelFormat const& format,
                                           SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_AS_IS) {}

inline Color PxBilinearRGBSampler::at(GePoint<double> const& p) const {
    auto read = [this](int x, int y) {
        return lookup(x, y);
    };
    Cell const c = cellOf(mapPosition(p));
    return colour(bilinear(c, lookup(c.ix, c.iy), read));
}

Color PxBilinearRGBSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxBilinearRGBSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxBilinearRGBSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                     GeLinearMatrix2<float> const&, Color* out) const {
    bilinearRow(p, step, n, out);
}

// ---- Mitchell ----

PxMitchellSampler::PxMitchellSampler(PxNodePtr<PxImageProtocol const> const& node,
                                     PxTimeScaleContext const& context, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(node, context, format, params, ALPHA_PREMULTIPLY) {}

PxMitchellSampler::PxMitchellSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                     SdTextureParams const& params)
    : PxTextureSampler(std::move(fetcher), format, params, ALPHA_PREMULTIPLY) {}

namespace {

// The four tap weights as lanes: per tap, ((c3 u + c2) u + c1) u + c0 at u = t + 1, t, t - 1,
// t - 2.
inline __m128 mitchellWeights(float t) noexcept {
    __m128 const c3 =
        _mm_setr_ps(float(-7.0 / 18.0), float(7.0 / 6.0), float(-7.0 / 6.0), float(7.0 / 18.0));
    __m128 const c2 = _mm_setr_ps(2.0f, -2.0f, -2.0f, 2.0f);
    __m128 const c1 = _mm_setr_ps(float(-10.0 / 3.0), 0.0f, 0.0f, float(10.0 / 3.0));
    __m128 const c0 =
        _mm_setr_ps(float(16.0 / 9.0), float(8.0 / 9.0), float(8.0 / 9.0), float(16.0 / 9.0));
    __m128 const u = _mm_add_ps(_mm_set1_ps(t), _mm_setr_ps(1.0f, 0.0f, -1.0f, -2.0f));
    return _mm_add_ps(
        _mm_mul_ps(_mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(c3, u), c2), u), c1), u), c0);
}

template <int I>
inline __m128 lane(__m128 v) noexcept {
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(I, I, I, I));
}

// (p0 w0 + p1 w1) + (p2 w2 + p3 w3), the weights as lanes of w.
inline __m128 weigh4(__m128 p0, __m128 p1, __m128 p2, __m128 p3, __m128 w) noexcept {
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(p0, lane<0>(w)), _mm_mul_ps(p1, lane<1>(w))),
                      _mm_add_ps(_mm_mul_ps(p2, lane<2>(w)), _mm_mul_ps(p3, lane<3>(w))));
}

// mitchellWeights of two fractions, one per half.
__attribute__((target("avx2"), always_inline)) inline __m256 mitchellWeights(float t0,
                                                                             float t1) noexcept {
    __m256 const c3 =
        _mm256_setr_ps(float(-7.0 / 18.0), float(7.0 / 6.0), float(-7.0 / 6.0), float(7.0 / 18.0),
                       float(-7.0 / 18.0), float(7.0 / 6.0), float(-7.0 / 6.0), float(7.0 / 18.0));
    __m256 const c2 = _mm256_setr_ps(2.0f, -2.0f, -2.0f, 2.0f, 2.0f, -2.0f, -2.0f, 2.0f);
    __m256 const c1 = _mm256_setr_ps(float(-10.0 / 3.0), 0.0f, 0.0f, float(10.0 / 3.0),
                                     float(-10.0 / 3.0), 0.0f, 0.0f, float(10.0 / 3.0));
    __m256 const c0 =
        _mm256_setr_ps(float(16.0 / 9.0), float(8.0 / 9.0), float(8.0 / 9.0), float(16.0 / 9.0),
                       float(16.0 / 9.0), float(8.0 / 9.0), float(8.0 / 9.0), float(16.0 / 9.0));
    __m256 const u = _mm256_add_ps(
        halves(t0, t1), _mm256_setr_ps(1.0f, 0.0f, -1.0f, -2.0f, 1.0f, 0.0f, -1.0f, -2.0f));
    return _mm256_add_ps(
        _mm256_mul_ps(_mm256_add_ps(_mm256_mul_ps(_mm256_add_ps(_mm256_mul_ps(c3, u), c2), u), c1),
                      u),
        c0);
}

// weigh4 on two colours a register, each half with the weights of its half.
__attribute__((target("avx2"), always_inline)) inline __m256 weigh4(__m256 p0, __m256 p1, __m256 p2,
                                                                    __m256 p3, __m256 w) noexcept {
    return _mm256_add_ps(
        _mm256_add_ps(_mm256_mul_ps(p0, _mm256_permute_ps(w, _MM_SHUFFLE(0, 0, 0, 0))),
                      _mm256_mul_ps(p1, _mm256_permute_ps(w, _MM_SHUFFLE(1, 1, 1, 1)))),
        _mm256_add_ps(_mm256_mul_ps(p2, _mm256_permute_ps(w, _MM_SHUFFLE(2, 2, 2, 2))),
                      _mm256_mul_ps(p3, _mm256_permute_ps(w, _MM_SHUFFLE(3, 3, 3, 3)))));
}

// The Mitchell sum before the division for two cells at once, one per half.
struct MitchellPair {
    __attribute__((target("avx2"))) void operator()(float const* fx, float const* fy,
                                                    Color const* p0, Color const* p1,
                                                    Color* out) const noexcept {
        constexpr int kRow = PxTextureSampler::TILE_SIZE_X;
        __m256 const wx = mitchellWeights(fx[0], fx[1]);
        __m256 const wy = mitchellWeights(fy[0], fy[1]);
        __m256 rows[4];
        Color const* a = p0 - 1 - kRow;
        Color const* b = p1 - 1 - kRow;
        for (int j = 0; j < 4; ++j, a += kRow, b += kRow)
            rows[j] = weigh4(halves(a[0], b[0]), halves(a[1], b[1]), halves(a[2], b[2]),
                             halves(a[3], b[3]), wx);
        _mm256_storeu_ps(&out->r, weigh4(rows[0], rows[1], rows[2], rows[3], wy));
    }
};

} // namespace

void PxMitchellSampler::weights(float t, float w[4]) noexcept {
    _mm_storeu_ps(w, mitchellWeights(t));
}

inline Color PxMitchellSampler::at(GePoint<double> const& p) const {
    return atCell(cellOf(mapPosition(p)));
}

inline Color PxMitchellSampler::atCell(Cell const& c) const {
    return unpremultiply(lanes(premultipliedAt(c, lookup(c.ix, c.iy))));
}

inline Color PxMitchellSampler::premultipliedAt(Cell const& c, Color const* p) const {
    __m128 const wx = mitchellWeights(c.fx);
    __m128 const wy = mitchellWeights(c.fy);
    __m128 rows[4];
    constexpr int kMask = TILE_SIZE_X - 1;
    if (((c.ix - 1) & kMask) <= kMask - 3 && ((c.iy - 1) & kMask) <= kMask - 3) {
        // The 4 x 4 window inside p's block.
        Color const* px = p - 1 - TILE_SIZE_X;
        for (int j = 0; j < 4; ++j, px += TILE_SIZE_X)
            rows[j] = weigh4(lanes(px[0]), lanes(px[1]), lanes(px[2]), lanes(px[3]), wx);
    } else {
        for (int j = 0; j < 4; ++j) {
            int const y = c.iy - 1 + j;
            rows[j] = weigh4(lanes(pixel(c.ix - 1, y)), lanes(pixel(c.ix, y)),
                             lanes(pixel(c.ix + 1, y)), lanes(pixel(c.ix + 2, y)), wx);
        }
    }
    return colour(weigh4(rows[0], rows[1], rows[2], rows[3], wy));
}

Color PxMitchellSampler::sample(GePoint<double> const& p, GeLinearMatrix2<double> const&) const {
    return at(p);
}

Color PxMitchellSampler::sample(GePoint<double> const& p, GeLinearMatrix2<float> const&) const {
    return at(p);
}

void PxMitchellSampler::sampleRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                                  GeLinearMatrix2<float> const&, Color* out) const {
    auto one = [this](Cell const& c, Color const* px) {
        return premultipliedAt(c, px);
    };
    if (avx2())
        eachCellPairInCache<1, 2>(p, step, n, out, MitchellPair{}, one);
    else
        eachCellInCache(p, step, n, out, one);
    unpremultiplyRow(out, n);
}

} // namespace Vn

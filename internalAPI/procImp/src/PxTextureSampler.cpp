#include "PxTextureSampler.h"

#include "Assertions.h"
#include "IpFastMath.h"
#include "IxConvertUtil.h"
#include "IxPixelUtil.h"
#include "OsMemoryArch.h"
#include "PxConfig.h"
#include "RCExUtil.h"

#include <algorithm>

#include <immintrin.h>

namespace Vn {

namespace {

MbAlignment const& cacheAlignment() {
    static MbAlignment const alignment(OsMemoryArch::getInstance().getPageSize() - 1);
    return alignment;
}

ImPixelFormat imFormat(IxPixelFormat const& f) {
    return ImPixelFormat(f.getComps(), f.getDepth());
}

[[noreturn]] void failNoopCoverage() {
    Assertions::throwAssertionFailed(
        __FILE__, __LINE__, "Source tiles must cover the scanline region in NOOP padding mode.");
}

// d mod n in [0, n).
int positiveMod(int d, int n) noexcept {
    int const r = d % n;
    return r < 0 ? r + n : r;
}

struct Mirrored {
    int offset;   // into the region, in [0, n)
    bool reverse; // in a reversed period
};

// Offset d from the region's start folded into a region of n: every second period reversed,
// the edge pixel repeating once at each fold.
Mirrored mirror(int d, int n) noexcept {
    if (d >= 0) {
        int const q = d / n;
        int const r = d % n;
        return (q & 1) == 0 ? Mirrored{r, false} : Mirrored{n - 1 - r, true};
    }
    int const e = d + 1;
    int const q = e / n;
    int const r = e % n;
    int const t = n - 1 + r;
    return (q & 1) != 0 ? Mirrored{t, false} : Mirrored{n - 1 - t, true};
}

int wrapRow(int mode, int yy, int y0, int y1) {
    int const h = y1 - y0;
    switch (mode) {
    case SdTextureTypes::WRAP_BLACK:
    case SdTextureTypes::WRAP_EDGE:
        return std::clamp(yy, y0, y1 - 1);
    case SdTextureTypes::WRAP_REPEAT:
        return y0 + positiveMod(yy - y0, h);
    case SdTextureTypes::WRAP_MIRROR:
        return y0 + mirror(yy - y0, h).offset;
    default:
        if (yy < y0 || yy >= y1)
            failNoopCoverage();
        return yy;
    }
}

} // namespace

PxTextureSampler::PxTextureSampler(PxNodePtr<PxImageProtocol const> const& node,
                                   PxTimeScaleContext const& context, IxPixelFormat const& format,
                                   SdTextureParams const& params, AlphaPremultiply alpha)
    : _format(format), _fetcher(makeOPtr<PxImageFetcher>(node, context)), _alpha(alpha) {
    init(params);
}

PxTextureSampler::PxTextureSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                                   SdTextureParams const& params, AlphaPremultiply alpha)
    : _format(format), _fetcher(std::move(fetcher)), _alpha(alpha) {
    init(params);
}

PxTextureSampler::~PxTextureSampler() = default;

void PxTextureSampler::init(SdTextureParams const& params) {
    if (!_fetcher)
        RCExUtil::throwExNullPtr("PxImageFetcherBase");
    _region = _fetcher->getImageRegion();
    _wrapS = params.wrapS;
    _wrapT = params.wrapT;
    // The unit square of texture space onto the region: the region's scale and origin applied
    // after the texture matrix, in the row-vector form the positions use.
    double const w = _region.width();
    double const h = _region.height();
    float const* b = params.matrix;
    _m[0] = w * b[0];
    _m[1] = h * b[1];
    _m[2] = 0.0;
    _m[3] = w * b[3];
    _m[4] = h * b[4];
    _m[5] = 0.0;
    _m[6] = w * b[6] + _region.xmin;
    _m[7] = h * b[7] + _region.ymin;
    _m[8] = 1.0;
    // Filters other than the nearest weigh pixel centres.
    if (params.filter != FILTER_NEAREST) {
        _m[6] -= 0.5;
        _m[7] -= 0.5;
    }
    if (_wrapS == WRAP_BLACK) {
        _clamp[0] = _region.xmin - TILE_SIZE_X;
        _clamp[1] = _region.xmax + TILE_SIZE_X;
    } else {
        _clamp[0] = -65536.0;
        _clamp[1] = 65536.0;
    }
    if (_wrapT == WRAP_BLACK) {
        _clamp[2] = _region.ymin - TILE_SIZE_Y;
        _clamp[3] = _region.ymax + TILE_SIZE_Y;
    } else {
        _clamp[2] = -65536.0;
        _clamp[3] = 65536.0;
    }
    // A block must never straddle two processing tiles.
    VN_ASSERT(PxConfig::getTileSizeExpX() >= TILE_SIZE_X_LOG2);
    VN_ASSERT(PxConfig::getTileSizeExpY() >= TILE_SIZE_Y_LOG2);

    for (auto& tag : _tags)
        tag[0] = tag[1] = -1;
    _buffer = MbBufferFactoryRegistry::getFactory(0).create("Texture Cache", CACHE_BYTES,
                                                            cacheAlignment());
    _guard = std::make_unique<MbBufferWrGuardImp>(_buffer);
    _cache = _guard->getData();
}

namespace {

// mapRow four positions at a time: the same operations lane by lane (AVX2 is asked for, not
// FMA, so that no product and sum are fused). Returns how many it did, a multiple of 4.
__attribute__((target("avx2"))) int mapRowAvx2(double const* m, double const* clamp,
                                               GePoint<double> const& p,
                                               GeVector2<double> const& step, int first, int n,
                                               int* ix, int* iy, float* fx, float* fy) noexcept {
    __m256d const px = _mm256_set1_pd(p.x), py = _mm256_set1_pd(p.y);
    __m256d const sx = _mm256_set1_pd(step.x), sy = _mm256_set1_pd(step.y);
    __m256d const m0 = _mm256_set1_pd(m[0]), m1 = _mm256_set1_pd(m[1]), m3 = _mm256_set1_pd(m[3]),
                  m4 = _mm256_set1_pd(m[4]), m6 = _mm256_set1_pd(m[6]), m7 = _mm256_set1_pd(m[7]);
    __m256d const x0 = _mm256_set1_pd(clamp[0]), x1 = _mm256_set1_pd(clamp[1]);
    __m256d const y0 = _mm256_set1_pd(clamp[2]), y1 = _mm256_set1_pd(clamp[3]);
    __m256d const zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0), four = _mm256_set1_pd(4.0);
    __m256d t = _mm256_setr_pd(first, first + 1.0, first + 2.0, first + 3.0);
    auto cell = [&](__m256d q, int* index, float* frac, int i) __attribute__((target("avx2"))) {
        __m128i const down =
            _mm256_cvttpd_epi32(_mm256_and_pd(_mm256_cmp_pd(q, zero, _CMP_LT_OQ), one));
        __m128i const k = _mm_sub_epi32(_mm256_cvttpd_epi32(q), down);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(index + i), k);
        if (frac)
            _mm_storeu_ps(frac + i, _mm256_cvtpd_ps(_mm256_sub_pd(q, _mm256_cvtepi32_pd(k))));
    };
    int i = 0;
    for (; i + 4 <= n; i += 4, t = _mm256_add_pd(t, four)) {
        __m256d const x = _mm256_add_pd(px, _mm256_mul_pd(t, sx));
        __m256d const y = _mm256_add_pd(py, _mm256_mul_pd(t, sy));
        __m256d qx = _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(m0, x), _mm256_mul_pd(m3, y)), m6);
        __m256d qy = _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(m1, x), _mm256_mul_pd(m4, y)), m7);
        qx = _mm256_min_pd(_mm256_max_pd(qx, x0), x1);
        qy = _mm256_min_pd(_mm256_max_pd(qy, y0), y1);
        cell(qx, ix, fx, i);
        cell(qy, iy, fy, i);
    }
    return i;
}

} // namespace

void PxTextureSampler::mapRow(GePoint<double> const& p, GeVector2<double> const& step, int first,
                              int n, int* ix, int* iy, float* fx, float* fy) const noexcept {
    if (IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2) {
        int const done = mapRowAvx2(_m, _clamp, p, step, first, n, ix, iy, fx, fy);
        if (done == n)
            return;
        first += done;
        n -= done;
        ix += done;
        iy += done;
        if (fx) {
            fx += done;
            fy += done;
        }
    }
    // The same operations in the same order as the scalar path, so results agree bit for bit;
    // maxpd/minpd with the bound second keep NaN on the low bound as std::max/std::min do.
    __m128d const px = _mm_set1_pd(p.x), py = _mm_set1_pd(p.y);
    __m128d const sx = _mm_set1_pd(step.x), sy = _mm_set1_pd(step.y);
    __m128d const m0 = _mm_set1_pd(_m[0]), m1 = _mm_set1_pd(_m[1]), m3 = _mm_set1_pd(_m[3]),
                  m4 = _mm_set1_pd(_m[4]), m6 = _mm_set1_pd(_m[6]), m7 = _mm_set1_pd(_m[7]);
    __m128d const x0 = _mm_set1_pd(_clamp[0]), x1 = _mm_set1_pd(_clamp[1]);
    __m128d const y0 = _mm_set1_pd(_clamp[2]), y1 = _mm_set1_pd(_clamp[3]);
    __m128d const zero = _mm_setzero_pd(), one = _mm_set1_pd(1.0), two = _mm_set1_pd(2.0);
    __m128d t = _mm_set_pd(first + 1.0, first);
    auto cell = [&](__m128d q, int* index, float* frac, int i) {
        __m128i const down = _mm_cvttpd_epi32(_mm_and_pd(_mm_cmplt_pd(q, zero), one));
        __m128i const k = _mm_sub_epi32(_mm_cvttpd_epi32(q), down);
        __m128 const f = _mm_cvtpd_ps(_mm_sub_pd(q, _mm_cvtepi32_pd(k)));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(index + i), k);
        if (frac)
            _mm_storel_pi(reinterpret_cast<__m64*>(frac + i), f);
    };
    int const pairs = (n + 1) & ~1;
    for (int i = 0; i < pairs; i += 2, t = _mm_add_pd(t, two)) {
        __m128d const x = _mm_add_pd(px, _mm_mul_pd(t, sx));
        __m128d const y = _mm_add_pd(py, _mm_mul_pd(t, sy));
        __m128d qx = _mm_add_pd(_mm_add_pd(_mm_mul_pd(m0, x), _mm_mul_pd(m3, y)), m6);
        __m128d qy = _mm_add_pd(_mm_add_pd(_mm_mul_pd(m1, x), _mm_mul_pd(m4, y)), m7);
        qx = _mm_min_pd(_mm_max_pd(qx, x0), x1);
        qy = _mm_min_pd(_mm_max_pd(qy, y0), y1);
        cell(qx, ix, fx, i);
        cell(qy, iy, fy, i);
    }
}

int PxTextureSampler::clampX(int x) const noexcept {
    return static_cast<int>(std::min(_clamp[1], std::max(_clamp[0], static_cast<double>(x))));
}

int PxTextureSampler::clampY(int y) const noexcept {
    return static_cast<int>(std::min(_clamp[3], std::max(_clamp[2], static_cast<double>(y))));
}

namespace {

enum class RowPass { COPY, PREMULTIPLY, SPREAD };

// A block row of 32 float RGBA pixels from in to out with the block's pass folded in: copied,
// premultiplied (rgb times alpha, alpha kept) or alpha spread over the four components. Lane by
// lane as the scalar forms, so every path gives the same bits.
void passRowSse2(float* out, float const* in, RowPass pass) noexcept {
    __m128 const rgb = _mm_castsi128_ps(_mm_setr_epi32(-1, -1, -1, 0));
    for (int i = 0; i < 4 * PxTextureSampler::TILE_SIZE_X; i += 4) {
        __m128 const c = _mm_loadu_ps(in + i);
        __m128 const a = _mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 3, 3, 3));
        __m128 v = c;
        if (pass == RowPass::PREMULTIPLY)
            v = _mm_or_ps(_mm_and_ps(_mm_mul_ps(c, a), rgb), _mm_andnot_ps(rgb, c));
        else if (pass == RowPass::SPREAD)
            v = a;
        _mm_storeu_ps(out + i, v);
    }
}

// The same two pixels a register, the row a loop of eight wide loads.
__attribute__((target("avx2"))) void passRowAvx2(float* out, float const* in,
                                                 RowPass pass) noexcept {
    for (int i = 0; i < 4 * PxTextureSampler::TILE_SIZE_X; i += 16) {
        __m256 const c0 = _mm256_loadu_ps(in + i);
        __m256 const c1 = _mm256_loadu_ps(in + i + 8);
        __m256 v0 = c0;
        __m256 v1 = c1;
        if (pass != RowPass::COPY) {
            __m256 const a0 = _mm256_permute_ps(c0, _MM_SHUFFLE(3, 3, 3, 3));
            __m256 const a1 = _mm256_permute_ps(c1, _MM_SHUFFLE(3, 3, 3, 3));
            if (pass == RowPass::PREMULTIPLY) {
                v0 = _mm256_blend_ps(_mm256_mul_ps(c0, a0), c0, 0x88);
                v1 = _mm256_blend_ps(_mm256_mul_ps(c1, a1), c1, 0x88);
            } else {
                v0 = a0;
                v1 = a1;
            }
        }
        _mm256_storeu_ps(out + i, v0);
        _mm256_storeu_ps(out + i + 8, v1);
    }
}

} // namespace

void PxTextureSampler::refillTile(Color* block, int x, int y) const {
    // Alpha images spread their alpha over the four components; straight RGBA is premultiplied.
    // Both are done on each row while it is at hand.
    bool const spread = _format.getComps() == IxPixelFormat::ALPHA;
    bool const premultiply =
        !spread && _alpha == ALPHA_PREMULTIPLY && _format.getComps() == IxPixelFormat::RGBA;
    RowPass const pass =
        spread ? RowPass::SPREAD : (premultiply ? RowPass::PREMULTIPLY : RowPass::COPY);
    auto const passRow = IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2
                             ? &passRowAvx2
                             : &passRowSse2;
    // Rows of float RGBA tiles that hold the block's whole width are read in place, in one
    // pass; the tile of the last such row serves the next rows it holds without asking the
    // fetcher again (no other fetch comes between, so the reference stays good).
    IxReadGuard const* held = nullptr;
    for (int r = 0; r < TILE_SIZE_Y; ++r) {
        Color* row = block + r * TILE_SIZE_X;
        int const yy = y + r;
        GeRectangle<int> const region = _fetcher->getImageRegion();
        bool const inside = region.xmin <= x && x + TILE_SIZE_X <= region.xmax;
        if (region.isEmpty() || (_wrapT == WRAP_BLACK && (yy < region.ymin || yy >= region.ymax))) {
            // Black stays black through either pass.
            std::fill(row, row + TILE_SIZE_X, Color{});
            continue;
        }
        int const sy = wrapRow(_wrapT, yy, region.ymin, region.ymax);
        auto* f = reinterpret_cast<float*>(row);
        if (inside) {
            if (!held || sy < held->getPixelRegion().ymin || sy >= held->getPixelRegion().ymax) {
                IxReadGuard const& g = _fetcher->getGuard(x, sy);
                IxPixelFormat const& gf = g.getPixelFormat();
                GeRectangle<int> const& gr = g.getPixelRegion();
                // A tile that does not hold the row is left to the row copy, which refuses it.
                bool const whole = gf.getComps() == IxPixelFormat::RGBA &&
                                   gf.getDepth() == IxPixelFormat::FLOAT32 && gr.xmin <= x &&
                                   x + TILE_SIZE_X <= gr.xmax && gr.ymin <= sy && sy < gr.ymax;
                held = whole ? &g : nullptr;
            }
            if (held) {
                // The rows below are most likely next: ask for them while this one is copied.
                if (sy + 2 < held->getPixelRegion().ymax) {
                    auto const* next =
                        reinterpret_cast<char const*>(held->getPixel<float>(x, sy + 2));
                    for (int k = 0; k < TILE_SIZE_X * 16; k += 64)
                        _mm_prefetch(next + k, _MM_HINT_T0);
                }
                passRow(f, held->getPixel<float>(x, sy), pass);
                continue;
            }
        }
        held = nullptr;
        fillRow(row, x, sy, region);
        if (pass != RowPass::COPY)
            passRow(f, f, pass);
    }
}

void PxTextureSampler::fillRow(Color* row, int x, int sy, GeRectangle<int> const& region) const {
    int const x0 = region.xmin;
    int const x1 = region.xmax;
    int const w = x1 - x0;
    int const end = x + TILE_SIZE_X;
    // Converts the pixels from px on, as many as the tile holding px, the region and the block
    // allow. A tile may reach past the region; what it holds there is not the image's.
    auto copy = [&](int c, int px) {
        IxReadGuard const& g = _fetcher->getGuard(px, sy);
        // A guard that does not hold px would be read outside its memory, or leave c where it
        // is for ever.
        VN_ASSERT(g.getPixelRegion().contains(px, sy));
        int const n = std::min(std::min(g.getPixelRegion().xmax, x1) - px, end - c);
        IxConvertUtil::readFrom(row + (c - x), g.getAddress(px, sy), n,
                                imFormat(g.getPixelFormat()));
        return c + n;
    };
    int c = x;
    while (c < end) {
        switch (_wrapS) {
        case WRAP_BLACK:
        case WRAP_EDGE:
            if (c < x0 || c >= x1) {
                int const stop = c < x0 ? std::min(x0, end) : end;
                Color const value =
                    _wrapS == WRAP_BLACK
                        ? Color{}
                        : IxPixelUtil::getPixelColor(_fetcher->getGuard(c < x0 ? x0 : x1 - 1, sy),
                                                     c < x0 ? x0 : x1 - 1, sy);
                std::fill(row + (c - x), row + (stop - x), value);
                c = stop;
            } else {
                c = copy(c, c);
            }
            break;
        case WRAP_REPEAT:
            c = copy(c, x0 + positiveMod(c - x0, w));
            break;
        case WRAP_MIRROR: {
            Mirrored const m = mirror(c - x0, w);
            int const px = x0 + m.offset;
            if (!m.reverse) {
                c = copy(c, px);
                break;
            }
            IxReadGuard const& g = _fetcher->getGuard(px, sy);
            VN_ASSERT(g.getPixelRegion().contains(px, sy));
            int const n = std::min(px - std::max(g.getPixelRegion().xmin, x0) + 1, end - c);
            Color* out = row + (c - x);
            IxConvertUtil::readFrom(out, g.getAddress(px - n + 1, sy), n,
                                    imFormat(g.getPixelFormat()));
            std::reverse(out, out + n);
            c += n;
            break;
        }
        default:
            if (c < x0 || c >= x1)
                failNoopCoverage();
            c = copy(c, c);
            break;
        }
    }
}

SdTextureSampler::Color PxTextureSampler::sample(int x, int y, float, float) const {
    Color const& c = pixel(clampX(x), clampY(y));
    return _alpha == ALPHA_PREMULTIPLY ? IpFastMath::unpremultiply(c) : c;
}

SdTextureSampler::Color PxTextureSampler::sample(int, int, float, float, float, float) const {
    VN_ABORT("This sampler has no footprint form: only the EWA sampler has.");
}

SdTextureSampler::Color PxTextureSampler::sample(int, int, float, float, float) const {
    VN_ABORT("This sampler has no covariance form: only the EWA sampler has.");
}

SdTextureSampler::Color PxTextureSampler::sample(int, int, GeLinearMatrix2<float> const&) const {
    VN_ABORT("This sampler has no footprint form: only the EWA sampler has.");
}

void PxTextureSampler::releaseGuard() const {
    _fetcher->releaseGuard();
}

void PxTextureSampler::releaseTiles() const {
    _fetcher->releaseTiles();
}

void PxTextureSampler::registerGuardProxy(IxGuardProxy const& proxy) const {
    _fetcher->registerGuardProxy(proxy);
}

void PxTextureSampler::reduceVI(PxValidityInterval& vi) const {
    _fetcher->reduceVI(vi);
}

} // namespace Vn

#include "HoTransformTools.h"

#include "Assertions.h"
#include "ExBase.h"
#include "HoTools.h"
#include "IpAlphaKernels.h"
#include "IpScanlinePipeUtils.h"
#include "IxConvertUtil.h"
#include "IxImageOps.h"
#include "IxWriteGuardProxy.h"
#include "PiImageInputPolicy.h"
#include "PiInputPolicy.h"
#include "PiKeptTilesNode.h"
#include "PxEx.h"
#include "PxImageFetcher.h"
#include "PxImageTexture.h"
#include "PxRequestMgr.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace Vn {

namespace {

using Color = CoRgbaColorTyped<float>;

ImPixelFormat imFormat(IxPixelFormat const& f) {
    return ImPixelFormat(f.getComps(), f.getDepth());
}

bool isFloatRgba(IxPixelFormat const& f) {
    return f.getComps() == IxPixelFormat::RGBA && f.getDepth() == IxPixelFormat::FLOAT32;
}

PxImageResult transparent(PxImageProtocol const& node, PxValidityInterval const& vi) {
    return PxImageResult(node.allocateEmptyImageBuffer({0, 0, 0, 0}), vi);
}

GeAffineMatrix2<double> scaling(double x, double y) {
    return GeAffineMatrix2<double>(x, 0.0, 0.0, y, 0.0, 0.0);
}

// Writes n colours at (x, y) of the guard's tile, converted to its format.
void writeRow(IxWriteGuard const& out, int x, int y, Color const* row, int n) {
    if (isFloatRgba(out.getPixelFormat()))
        std::memcpy(out.getAddress(x, y), row, sizeof(Color) * static_cast<std::size_t>(n));
    else
        IxConvertUtil::writeTo(out.getAddress(x, y), row, n, imFormat(out.getPixelFormat()));
}

} // namespace

// ---- transform ----

HoTransformNode::HoTransformNode(PxNode::Init const& init,
                                 PxStrongHndl<PxImageProtocol const> const& source,
                                 PiAffineNodeUtil::Params const& params,
                                 PxStrongHndl<PxAnimValueProtocol<int> const> const& filter)
    : PxNode(init), HoWorkingNode(init, PxNodePtr<PxImageProtocol const>(source)), _params(params),
      _filter(filter) {
    VN_ASSERT(!_filter.isNull());
}

void HoTransformNode::init() {
    PxImageNode::init();
    registerChild(getPrimary());
    _params.registerChildren(*this);
    registerChild(_filter);
}

PxRODResult HoTransformNode::getImageROD(PxTimeStreamContext const& context) const {
    PxRODResult const source = getPrimary()->getImageROD(context);
    PxValidityInterval vi = source.getValidityInterval();
    GeAffineMatrix2<double> const forward =
        _params.computeForward(PxTimeContext(context.getTime()), vi);
    GeRectangle<float> const& r = source.getROD();
    if (r.isEmpty())
        return {{}, vi};
    double inf = std::numeric_limits<double>::infinity();
    double x0 = inf, x1 = -inf, y0 = inf, y1 = -inf;
    for (double x : {double(r.xmin), double(r.xmax)})
        for (double y : {double(r.ymin), double(r.ymax)}) {
            GeVector2<double> const p = forward.transformPoint({x, y});
            x0 = std::min(x0, p.x);
            x1 = std::max(x1, p.x);
            y0 = std::min(y0, p.y);
            y1 = std::max(y1, p.y);
        }
    if (!std::isfinite(x0) || !std::isfinite(x1) || !std::isfinite(y0) || !std::isfinite(y1))
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "The transform at time " +
                                           std::to_string(context.getTime()) +
                                           " takes the image beyond any finite place.");
    // A huge scale keeps a region the engine can still pixelize; tiles are asked only where seen.
    double const limit = kMaxPixelCoordinate / 4;
    auto cut = [&](double v) {
        return static_cast<float>(std::clamp(v, -limit, limit));
    };
    return {{cut(x0), cut(x1), cut(y0), cut(y1)}, vi};
}

PxImageResult HoTransformNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    GeRectangle<int> const region = computeTileRegion(context, vi);
    if (context.isOutside() || region.isEmpty())
        return transparent(*this, vi);
    PxTimeContext const time(context.getTime());
    GeAffineMatrix2<double> const backward = _params.computeBackward(time, vi);
    if (backward.isIdentity()) { // untouched: the source's own pixels, free and exact
        PxImageResult const source = getPrimary()->getImageResult(context);
        source.reduceVI(vi);
        return PxImageResult(working(context, source), vi);
    }
    PxResult<int> const f = _filter->getValue(time);
    f.reduceVI(vi);
    int const filter = f.getValue();

    auto fetcher = makeOPtr<PxImageFetcher>(
        getPrimary(), PxTimeScaleContext(context.getTime(), context.getScale()));
    GeRectangle<int> const source = fetcher->getImageRegion();
    fetcher->reduceVI(vi);
    if (source.isEmpty())
        return transparent(*this, vi);

    // Output pixels to nominal coordinates, back through the transform, to source pixels and on
    // to the unit square over the source's region, where the sampler's positions live.
    double const a = getImageFormat().getAspectRatio();
    double const s = context.getScaleFactor();
    double const w = source.width();
    double const h = source.height();
    GeAffineMatrix2<double> const toUnit(1.0 / w, 0.0, 0.0, 1.0 / h, -source.xmin / w,
                                         -source.ymin / h);
    GeAffineMatrix2<double> const m =
        toUnit * scaling(s / a, s) * backward * scaling(a / s, 1.0 / s);

    SdTextureParams params;
    params.filter = filter;
    params.blur = 1.0f;
    params.minBlur = 1.0f; // a footprint below a source pixel would leave holes when enlarging
    float const matrix[9] = {float(m(0, 0)), float(m(1, 0)), 0.0f,
                             float(m(0, 1)), float(m(1, 1)), 0.0f,
                             float(m(0, 2)), float(m(1, 2)), 1.0f};
    std::copy(matrix, matrix + 9, params.matrix);
    // The pixels are premultiplied already: claiming no alpha keeps the sampler's cache from
    // multiplying them again. The filters that divide by alpha after are multiplied back below.
    OPtr<SdTextureSampler const> const sampler = PxImageTexture::createSampler(
        IxPixelFormat(IxPixelFormat::RGB, IxPixelFormat::FLOAT32), params, std::move(fetcher));
    if (!sampler)
        throw PxEx::ExInvalidParameter(__FILE__, __LINE__,
                                       "The transform's filter " + std::to_string(filter) +
                                           " names no texture filter: 0 to " +
                                           std::to_string(SdTextureTypes::NB_FILTERS - 1) + " do.");
    bool const divides =
        filter != SdTextureTypes::FILTER_NEAREST && filter != SdTextureTypes::FILTER_BILINEAR;

    IxTile const tile = allocateImageBuffer(context, {0, 0, 0, 0}, region);
    IxWriteGuardProxy out;
    sampler->registerGuardProxy(out);
    int const bw = std::min(sampler->getCacheBlockingSizeX(), 64);
    int const bh = sampler->getCacheBlockingSizeY();
    alignas(16) Color row[64];
    GeLinearMatrix2<float> const identity;
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    for (int y0 = region.ymin; y0 < region.ymax; y0 += bh)
        for (int x0 = region.xmin; x0 < region.xmax; x0 += bw) {
            mgr.checkCancelled();
            int const x1 = std::min(x0 + bw, region.xmax);
            int const y1 = std::min(y0 + bh, region.ymax);
            for (int y = y0; y < y1; ++y) {
                sampler->sampleRow(GePoint<double>{x0 + 0.5, y + 0.5}, GeVector2<double>{1.0, 0.0},
                                   x1 - x0, identity, row);
                if (divides)
                    for (int i = 0; i < x1 - x0; ++i) {
                        Color& c = row[i];
                        c = {c.r * c.a, c.g * c.a, c.b * c.a, c.a};
                    }
                // Reading a source tile may have let the output's memory go.
                if (!out.isSet())
                    out.set(tile);
                writeRow(*out, x0, y, row, x1 - x0);
            }
        }
    sampler->reduceVI(vi);
    return PxImageResult(tile, vi);
}

// ---- crop ----

HoCropNode::HoCropNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
                       PiCropNodeUtil::Params const& params)
    : PxNode(init), HoWorkingNode(init, PxNodePtr<PxImageProtocol const>(source)), _params(params) {
}

void HoCropNode::init() {
    PxImageNode::init();
    registerChild(getPrimary());
    _params.registerChildren(*this);
}

PxRODResult HoCropNode::getImageROD(PxTimeStreamContext const& context) const {
    return _params.computeImageROD(PxTimeContext(context.getTime()),
                                   getPrimary()->getImageROD(context), getImageFormat());
}

PxImageResult HoCropNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    GeRectangle<int> const region = computeTileRegion(context, vi);
    if (context.isOutside() || region.isEmpty())
        return transparent(*this, vi);
    PxImageResult const child = getPrimary()->getImageResult(context);
    child.reduceVI(vi);
    GeRectangle<int> const kept = child.getPixelRegion().intersect(region);
    Color const& fill = child.getFillColor();
    if (kept == region && child.getPixelRegion() == region && fill.r == 0.0f && fill.g == 0.0f &&
        fill.b == 0.0f && fill.a == 0.0f)
        return PxImageResult(working(context, child), vi);
    IxTile const tile = allocateImageBuffer(context, {0, 0, 0, 0}, region);
    IxWriteGuard const out(tile);
    if (kept != region)
        ipSet(out, region, {0, 0, 0, 0});
    if (!kept.isEmpty())
        ipCopy(out, child.getTileGuard(), kept);
    return PxImageResult(tile, vi);
}

// ---- blur ----

namespace {

bool hasAvx2() noexcept {
    static bool const has = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    return has;
}

// The row pass four pixels at a time with fused multiply-adds, for processors that have them.
// Returns the pixels done.
__attribute__((target("avx2,fma"))) int blurRowAvx2(float* d, float const* s, int n,
                                                    float const* taps, int c) noexcept {
    int i = 0;
    __m256 const tc = _mm256_set1_ps(taps[c]);
    for (; i + 4 <= n; i += 4) {
        float const* p = s + 4 * i;
        __m256 a0 = _mm256_mul_ps(tc, _mm256_loadu_ps(p + 4 * c));
        __m256 a1 = _mm256_mul_ps(tc, _mm256_loadu_ps(p + 4 * c + 8));
        for (int k = 0; k < c; ++k) {
            __m256 const t = _mm256_set1_ps(taps[k]);
            float const* lo = p + 4 * k;
            float const* hi = p + 4 * (2 * c - k);
            a0 = _mm256_fmadd_ps(t, _mm256_add_ps(_mm256_loadu_ps(lo), _mm256_loadu_ps(hi)), a0);
            a1 = _mm256_fmadd_ps(t, _mm256_add_ps(_mm256_loadu_ps(lo + 8), _mm256_loadu_ps(hi + 8)),
                                 a1);
        }
        _mm256_storeu_ps(d + 4 * i, a0);
        _mm256_storeu_ps(d + 4 * i + 8, a1);
    }
    return i;
}

// dst[i] = sum over k of taps[k] src[i + k], pixels as four lanes; the taps are symmetric
// around the centre c, so pairs share a multiply.
void blurRow(Color* dst, Color const* src, int n, float const* taps, int c) {
    float const* s = &src[0].r;
    float* d = &dst[0].r;
    int i = hasAvx2() ? blurRowAvx2(d, s, n, taps, c) : 0;
    __m128 const tc = _mm_set1_ps(taps[c]);
    for (; i < n; ++i) {
        float const* p = s + 4 * i;
        __m128 acc = _mm_mul_ps(tc, _mm_loadu_ps(p + 4 * c));
        for (int k = 0; k < c; ++k)
            acc = _mm_add_ps(acc, _mm_mul_ps(_mm_set1_ps(taps[k]),
                                             _mm_add_ps(_mm_loadu_ps(p + 4 * k),
                                                        _mm_loadu_ps(p + 4 * (2 * c - k)))));
        _mm_storeu_ps(d + 4 * i, acc);
    }
}

// The column pass sixteen floats at a time with fused multiply-adds. Returns the floats done.
__attribute__((target("avx2,fma"))) int blurColumnsAvx2(float* dst, float const* const* rows, int n,
                                                        float const* taps, int c) noexcept {
    int x = 0;
    __m256 const tc = _mm256_set1_ps(taps[c]);
    for (; x + 16 <= n; x += 16) {
        __m256 a0 = _mm256_mul_ps(tc, _mm256_loadu_ps(rows[c] + x));
        __m256 a1 = _mm256_mul_ps(tc, _mm256_loadu_ps(rows[c] + x + 8));
        for (int k = 0; k < c; ++k) {
            __m256 const t = _mm256_set1_ps(taps[k]);
            float const* lo = rows[k] + x;
            float const* hi = rows[2 * c - k] + x;
            a0 = _mm256_fmadd_ps(t, _mm256_add_ps(_mm256_loadu_ps(lo), _mm256_loadu_ps(hi)), a0);
            a1 = _mm256_fmadd_ps(t, _mm256_add_ps(_mm256_loadu_ps(lo + 8), _mm256_loadu_ps(hi + 8)),
                                 a1);
        }
        _mm256_storeu_ps(dst + x, a0);
        _mm256_storeu_ps(dst + x + 8, a1);
    }
    return x;
}

// dst[x] = sum over k of taps[k] rows[k][x] for n floats, folded as blurRow is.
void blurColumns(float* dst, float const* const* rows, int n, float const* taps, int c) {
    int x = hasAvx2() ? blurColumnsAvx2(dst, rows, n, taps, c) : 0;
    for (; x + 8 <= n; x += 8) {
        __m128 const tc = _mm_set1_ps(taps[c]);
        __m128 a0 = _mm_mul_ps(tc, _mm_loadu_ps(rows[c] + x));
        __m128 a1 = _mm_mul_ps(tc, _mm_loadu_ps(rows[c] + x + 4));
        for (int k = 0; k < c; ++k) {
            __m128 const t = _mm_set1_ps(taps[k]);
            float const* lo = rows[k] + x;
            float const* hi = rows[2 * c - k] + x;
            a0 = _mm_add_ps(a0, _mm_mul_ps(t, _mm_add_ps(_mm_loadu_ps(lo), _mm_loadu_ps(hi))));
            a1 = _mm_add_ps(a1,
                            _mm_mul_ps(t, _mm_add_ps(_mm_loadu_ps(lo + 4), _mm_loadu_ps(hi + 4))));
        }
        _mm_storeu_ps(dst + x, a0);
        _mm_storeu_ps(dst + x + 4, a1);
    }
    for (; x < n; ++x) {
        float acc = taps[c] * rows[c][x];
        for (int k = 0; k < c; ++k)
            acc += taps[k] * (rows[k][x] + rows[2 * c - k][x]);
        dst[x] = acc;
    }
}

// Row y of the source over [x0, x0 + n): the tiles' pixels, the fill colour elsewhere.
void gatherRow(Color* dst, int x0, int n, int y, Vector<IxReadGuard> const& guards,
               Color const& fill) {
    std::fill(dst, dst + n, fill);
    for (IxReadGuard const& g : guards) {
        GeRectangle<int> const& r = g.getPixelRegion();
        if (y < r.ymin || y >= r.ymax)
            continue;
        int const from = std::max(x0, r.xmin);
        int const to = std::min(x0 + n, r.xmax);
        if (from >= to)
            continue;
        if (!g.getFirst())
            std::fill(dst + (from - x0), dst + (to - x0), g.getTile().getFillColor());
        else
            IxConvertUtil::readFrom(dst + (from - x0), g.getAddress(from, y), to - from,
                                    imFormat(g.getPixelFormat()));
    }
}

IxPixelFormat const& floatRgba() {
    static IxPixelFormat const f(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
    return f;
}

} // namespace

HoBlurNode::HoBlurNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
                       PxStrongHndl<PxAnimValueProtocol<double> const> const& size)
    : PxNode(init), HoWorkingNode(init, PxNodePtr<PxImageProtocol const>(source)), _size(size) {
    VN_ASSERT(!_size.isNull());
}

void HoBlurNode::init() {
    PxImageNode::init();
    registerChild(getPrimary());
    registerChild(_size);
}

int HoBlurNode::reach(double size) noexcept {
    return (IpGauss1DKernel::getSize(static_cast<float>(size)) - 1) / 2;
}

double HoBlurNode::readSize(double time, PxValidityInterval& vi) const {
    PxResult<double> const r = _size->getValue(PxTimeContext(time));
    r.reduceVI(vi);
    double const size = r.getValue();
    if (!(size >= 0.0 && size <= IpScanlinePipeUtils::MAX_RADIUS))
        throw PxEx::ExInvalidParameter(
            __FILE__, __LINE__,
            "A blur of size " + std::to_string(size) + " at time " + std::to_string(time) +
                " is refused: sizes are from 0 to " +
                std::to_string(IpScanlinePipeUtils::MAX_RADIUS) + " pixels.");
    return size;
}

PxRODResult HoBlurNode::getImageROD(PxTimeStreamContext const& context) const {
    PxRODResult const source = getPrimary()->getImageROD(context);
    PxValidityInterval vi = source.getValidityInterval();
    double const size = readSize(context.getTime(), vi);
    GeRectangle<float> r = source.getROD();
    if (r.isEmpty())
        return {r, vi};
    // The size is in rows: across, a pixel is the aspect wide.
    float const a = getImageFormat().getAspectRatio();
    float const gx = static_cast<float>(reach(size / a)) * a;
    float const gy = static_cast<float>(reach(size));
    return {{r.xmin - gx, r.xmax + gx, r.ymin - gy, r.ymax + gy}, vi};
}

PxImageResult HoBlurNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    GeRectangle<int> const region = computeTileRegion(context, vi);
    if (context.isOutside() || region.isEmpty())
        return transparent(*this, vi);
    double const size = readSize(context.getTime(), vi) * context.getScaleFactor();
    double const a = getImageFormat().getAspectRatio();
    IpGauss1DKernel const acrossKernel(static_cast<float>(size / a));
    IpGauss1DKernel const down(static_cast<float>(size));
    int const cx = (acrossKernel.getSize() - 1) / 2;
    int const cy = (down.getSize() - 1) / 2;

    GeRectangle<int> const need{region.xmin - cx, region.xmax + cx, region.ymin - cy,
                                region.ymax + cy};
    Color fill;
    Vector<PxImageResult> const tiles =
        getImageTilesInRegion(context, getPrimary(), vi, need, fill);
    Vector<IxReadGuard> const guards = getGuards(tiles);

    // Rows blurred across go round a ring of as many rows as the column pass reads, so that
    // they stay in cache between the two passes.
    int const w = region.width();
    int const ringSize = down.getSize();
    IxTile const ring(floatRgba(), {region.xmin, region.xmax, 0, ringSize}, {});
    IxTile const line(floatRgba(), {need.xmin, need.xmax, 0, 1}, {});
    IxWriteGuard const ringGuard(ring);
    IxWriteGuard const lineGuard(line);
    Color* const src = lineGuard.getPixel<Color>(need.xmin, 0);
    auto ringRow = [&](int y) {
        return ringGuard.getPixel<Color>(region.xmin, (y - need.ymin) % ringSize);
    };
    auto across = [&](int y) {
        gatherRow(src, need.xmin, need.width(), y, guards, fill);
        blurRow(ringRow(y), src, w, acrossKernel.getTaps(), cx);
    };
    for (int y = need.ymin; y < region.ymin + cy; ++y)
        across(y);

    // Down, straight into the tile when it holds float RGBA.
    IxTile const tile = allocateImageBuffer(context, {0, 0, 0, 0}, region);
    IxWriteGuard const out(tile);
    bool const direct = isFloatRgba(out.getPixelFormat());
    Vector<float const*> taps(static_cast<std::size_t>(ringSize));
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    for (int y = region.ymin; y < region.ymax; ++y) {
        if ((y & 63) == 0)
            mgr.checkCancelled();
        across(y + cy);
        for (int k = 0; k < ringSize; ++k)
            taps[static_cast<std::size_t>(k)] = &ringRow(y - cy + k)->r;
        Color* dst = direct ? out.getPixel<Color>(region.xmin, y) : src;
        blurColumns(&dst->r, taps.data(), 4 * w, down.getTaps(), cy);
        if (!direct)
            writeRow(out, region.xmin, y, dst, w);
    }
    return PxImageResult(tile, vi);
}

// ---- the tools ----

namespace {

class Controller final : public HoToolController {
public:
    using Build = void (*)(OutputPublisher&);
    explicit Controller(Build build) : _build(build) {}
    void createProcNodes(OutputPublisher& publisher) override { _build(publisher); }

private:
    Build _build;
};

class Protocol final : public PiToolProtocolImp {
public:
    using Describe = void (*)(PiToolPolicyDescriptor&);
    Protocol(std::string name, std::string category, Describe describer, Controller::Build build)
        : PiToolProtocolImp(std::move(name), std::move(category), "1.0"), _describe(describer),
          _build(build) {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE, HoToolController::workingPolicy());
        _describe(d);
        d.produces("Output", PiSocketType::IMAGE);
    }
    std::string getPrimaryInput() const override { return "Source"; }
    std::string getPrimaryOutput() const override { return "Output"; }
    RCShdPtr<PiNodeController> createController() const override {
        return RCShdPtr<PiNodeController>(new Controller(_build));
    }

private:
    Describe _describe;
    Controller::Build _build;
};

RCShdPtr<PiTool const> makeTool(Protocol* p) {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}

template <class N>
PxStrongHndl<PxNode const> finished(N* n) {
    PxStrongHndl<N> h(n);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return PxStrongHndl<PxNode const>(h);
}

} // namespace

RCShdPtr<PiTool const> HoTools::transform() {
    return makeTool(new Protocol(
        "Transform", "Transform",
        [](PiToolPolicyDescriptor& d) {
            PiAffineNodeUtil::describe(d);
            d.require("Filter", PiSocketType::INT,
                      RCShdPtr<PiInputPolicy const>(
                          new PiEnumPolicy({{SdTextureTypes::FILTER_NEAREST, "Nearest"},
                                            {SdTextureTypes::FILTER_BILINEAR, "Bilinear"},
                                            {SdTextureTypes::FILTER_EWA, "EWA"},
                                            {SdTextureTypes::FILTER_MITCHELL, "Mitchell"}},
                                           false, SdTextureTypes::FILTER_BILINEAR)));
        },
        [](PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output",
                      finished(new HoTransformNode(
                          PxNode::Init{"transform"}, HoToolController::imageInput(p, "Source"),
                          PiAffineNodeUtil::Params(p), HoToolController::intInput(p, "Filter"))));
        }));
}

RCShdPtr<PiTool const> HoTools::crop() {
    return makeTool(new Protocol(
        "Crop", "Transform",
        [](PiToolPolicyDescriptor& d) {
            PiCropNodeUtil::describe(d, PiCropNodeUtil::NO_AUTO_CROP, PiCropNodeUtil::RELATIVE);
        },
        [](PiToolTopologyInterface::OutputPublisher& p) {
            p.publish("Output", finished(new HoCropNode(PxNode::Init{"crop"},
                                                        HoToolController::imageInput(p, "Source"),
                                                        PiCropNodeUtil::Params(p))));
        }));
}

RCShdPtr<PiTool const> HoTools::blur() {
    return makeTool(new Protocol(
        "Blur", "Filter",
        [](PiToolPolicyDescriptor& d) {
            d.require(
                "Size", PiSocketType::DOUBLE,
                PiRangeInputPolicy<double>::create(0.0, IpScanlinePipeUtils::MAX_RADIUS, 2.0));
        },
        [](PiToolTopologyInterface::OutputPublisher& p) {
            // Each source tile serves up to nine of the blur's: kept, it is made once.
            PxStrongHndl<PiKeptTilesNode> const kept(new PiKeptTilesNode(
                PxNode::Init{"blur source"}, HoToolController::imageInput(p, "Source")));
            PxNode::init(PxStrongHndl<PxNode>(kept));
            p.publish("Output", finished(new HoBlurNode(PxNode::Init{"blur"},
                                                        PxStrongHndl<PxImageProtocol const>(kept),
                                                        HoToolController::doubleInput(p, "Size"))));
        }));
}

} // namespace Vn

#include "IpScanlinePipeUtils.h"

#include "Assertions.h"
#include "ExBase.h"
#include "IpAlphaPipeNodes.h"
#include "IxGuardBase.h"
#include "IxImageOps.h"
#include "IxScanlineUtil.h"
#include "IxWriteGuardProxy.h"
#include "PmShape2d.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

namespace Vn {

namespace {

using Color = CoRgbaColorTyped<float>;

Color withAlpha(Color c, float a) {
    c.a = a;
    return c;
}

// An open polyline of points on y = x, in increasing x, from 0 or below to 1 or above: alpha
// unchanged.
bool isIdentityCurve(PmShape2d const& curve) {
    Vector<GePoint<float>> const& p = curve.getCtrlPoints();
    if (curve.getClosure() || p.size() < 2)
        return false;
    for (std::size_t i = 0; i < p.size(); ++i)
        if (p[i].x != p[i].y || (i > 0 && !(p[i].x > p[i - 1].x)))
            return false;
    return p.front().x <= 0.0f && p.back().x >= 1.0f;
}

} // namespace

// ---- per-pixel nodes

Color MaxAlpha::getFillColor() const {
    Color const a = _inputs[0]->getFillColor();
    return withAlpha(a, std::max(a.a, _inputs[1]->getFillColor().a));
}

void MaxAlpha::computeScanline(int y, IxScanline<float>& out) {
    int const x0 = out.getX0();
    IpAlphaRows::max(out.getData(), &getInputScanline(0, y)[x0], &getInputScanline(1, y)[x0],
                     out.getWidth());
}

Color BlendAlpha::getFillColor() const {
    Color const a = _inputs[0]->getFillColor();
    float const b = _inputs[1]->getFillColor().a;
    return withAlpha(a, a.a + (b - a.a) * _f);
}

void BlendAlpha::computeScanline(int y, IxScanline<float>& out) {
    int const x0 = out.getX0();
    IpAlphaRows::blend(out.getData(), &getInputScanline(0, y)[x0], &getInputScanline(1, y)[x0], _f,
                       out.getWidth());
}

Color AverageAlpha::getFillColor() const {
    Color const a = _inputs[0]->getFillColor();
    return withAlpha(a, (a.a + _inputs[1]->getFillColor().a) * 0.5f);
}

void AverageAlpha::computeScanline(int y, IxScanline<float>& out) {
    int const x0 = out.getX0();
    IpAlphaRows::average(out.getData(), &getInputScanline(0, y)[x0], &getInputScanline(1, y)[x0],
                         out.getWidth());
}

Color DiffAlpha::getFillColor() const {
    Color const a = _inputs[0]->getFillColor();
    return withAlpha(a, std::max(a.a - _inputs[1]->getFillColor().a, 0.0f));
}

void DiffAlpha::computeScanline(int y, IxScanline<float>& out) {
    int const x0 = out.getX0();
    IpAlphaRows::difference(out.getData(), &getInputScanline(0, y)[x0], &getInputScanline(1, y)[x0],
                            out.getWidth());
}

Color InvertAlpha::getFillColor() const {
    Color const a = _inputs[0]->getFillColor();
    return withAlpha(a, 1.0f - a.a);
}

void InvertAlpha::computeScanline(int y, IxScanline<float>& out) {
    IpAlphaRows::invert(out.getData(), &getInputScanline(y)[out.getX0()], out.getWidth());
}

ScanlineLut::ScanlineLut(IpScanlinePipePtr const& a, float scale, float offset, Vector<float> table)
    : IpScanlinePipe1In(a, 0, 0), _scale(scale), _offset(offset), _table(std::move(table)) {
    VN_ASSERT(_table.size() >= 2);
}

Color ScanlineLut::getFillColor() const {
    Color const a = _inputs[0]->getFillColor();
    return withAlpha(
        a, IpAlphaRows::lut(a.a, _scale, _offset, _table.data(), static_cast<int>(_table.size())));
}

void ScanlineLut::computeScanline(int y, IxScanline<float>& out) {
    IpAlphaRows::lut(out.getData(), &getInputScanline(y)[out.getX0()], out.getWidth(), _scale,
                     _offset, _table.data(), static_cast<int>(_table.size()));
}

ExtractAlpha::ExtractAlpha(IpScanlinePipePtr const& rgba)
    : IpScanlinePipeOutput<float>({rgba}, 0, 0) {
    VN_ASSERT(rgba->givesColorRows());
}

void ExtractAlpha::computeScanline(int y, IxScanline<float>& out) {
    // clang-format off
    VN_ASSERT(_dstRegion.ymin <= y && y < _dstRegion.ymax);
    // clang-format on
    IxScanlineUtil::extractChannel(out, _inputs[0]->getColorScanline(y), 3);
}

InsertAlpha::InsertAlpha(IpScanlinePipePtr const& rgba, IpScanlinePipePtr const& alpha)
    : IpScanlinePipeOutput<Color>({rgba, alpha}, 0, 0) {
    VN_ASSERT(_inputs.size() == 2);
    VN_ASSERT(rgba->givesColorRows() && alpha->givesAlphaRows());
}

Color InsertAlpha::getFillColor() const {
    return withAlpha(_inputs[0]->getFillColor(), _inputs[1]->getFillColor().a);
}

void InsertAlpha::computeScanline(int y, IxScanline<Color>& out) {
    IxScanlineUtil::copy(out, _inputs[0]->getColorScanline(y));
    IxScanlineUtil::replaceAlpha(out, _inputs[1]->getAlphaScanline(y));
}

// ---- BlurAlpha

BlurAlpha::BlurAlpha(IpScanlinePipePtr const& a, float x, float y)
    : IpScanlinePipeOutput<float>({a}, IpGauss1DKernel::getSize(x) / 2,
                                  IpGauss1DKernel::getSize(y) / 2),
      _horizontal(x), _vertical(y) {
    VN_ASSERT(a->givesAlphaRows());
}

BlurAlpha::~BlurAlpha() {
    releaseCache();
}

void BlurAlpha::releaseCache() noexcept {
    if (_cache.isNull())
        return;
    // Only a run that filtered every column writes them back; one cut short by a cancel or a
    // failure lets them go unwritten, allocating nothing.
    if (!_flushed)
        _cache->discard();
    _cache.reset();
}

void BlurAlpha::setDstRegion(GeRectangle<int> const& region) {
    setOutputDelay(std::max(0, region.height() + getOutputDelay() - 1));
    IpScanlinePipeOutput<float>::setDstRegion(region);
}

void BlurAlpha::initializeProcessing() {
    // The rows are kept whole in the cache's vertical buffer, not in the base's ring.
    int const consumers = getConsumerCount();
    setConsumerCount(0);
    IpScanlinePipeOutput<float>::initializeProcessing();
    setConsumerCount(consumers);
    releaseCache();
    _rows.clear();
    _done = false;
    _flushed = false;
    GeRectangle<int> const src = getSrcRegion();
    _nextRow = src.ymin;
    if (_dstRegion.isEmpty())
        return;
    GeRectangle<int> const h(_dstRegion.xmin, _dstRegion.xmax, src.ymin, src.ymax);
    // Straight into the destination when it is the only consumer and holds the rows: the
    // columns' results then need no copy. The sources are all read before the first is written.
    if (_target && ipHoldsPixels(*_target, IxScanline<float>::PIXEL_FORMAT, _dstRegion))
        _cache.reset(new IxScanlineCache<float>(_dstRegion, h, *_target));
    else
        _cache.reset(new IxScanlineCache<float>(_dstRegion, h));
    IxWriteGuard const v = _cache->getVerticalBuffer();
    for (int y = _dstRegion.ymin; y < _dstRegion.ymax; ++y)
        _rows.emplace_back(new IxScanline<float>(v, y, _dstRegion.xmin, _dstRegion.xmax,
                                                 IxPaddingPolicy<float>()));
}

void BlurAlpha::finishProcessing() {
    releaseCache();
    _rows.clear();
    IpScanlinePipeOutput<float>::finishProcessing();
}

void BlurAlpha::tick(int t) {
    if (_cache.isNull() || _nextRow >= getSrcRegion().ymax)
        return;
    if (t - _inputs[0]->getLatency() == _nextRow)
        inputIsAvailable();
}

void BlurAlpha::inputIsAvailable() {
    IxScanline<float> const& in = _inputs[0]->getAlphaScanline(_nextRow);
    IxWriteGuard const& h = *_cache->getHorizontalBuffer();
    _hRow.rebuild(h.getPixel<float>(_dstRegion.xmin, _nextRow), _dstRegion.xmin, _dstRegion.xmax);
    _horizontal.filter(_hRow.getData(), &in[_dstRegion.xmin - _marginX], _hRow.getWidth());
    checkCancelled();
    if (++_nextRow < getSrcRegion().ymax)
        return;
    IxScanline<float>* dst = nullptr;
    IxScanline<float>* src = nullptr;
    int const height = _dstRegion.height();
    while (_cache->hasNext()) {
        _cache->getNext(dst, src);
        _vertical.filter(dst->getData(), src->getData(), height);
        checkCancelled();
    }
    _cache->flush();
    _flushed = true;
    _done = true;
}

IxScanline<float> const* BlurAlpha::findAlphaRow(int y) const {
    if (!_done || y < _dstRegion.ymin || y >= _dstRegion.ymax)
        return nullptr;
    return _rows[static_cast<std::size_t>(y - _dstRegion.ymin)].get();
}

// ---- IpScanlinePipeUtils

IpScanlinePipePtr IpScanlinePipeUtils::createAlphaSource(IxPixelFormat::Comps inputComps) {
    if (inputComps == IxPixelFormat::RGB || inputComps == IxPixelFormat::RGBA)
        return createExtractAlpha(IpScanlinePipePtr(new IpSourceNode(inputComps)));
    VN_ASSERT(inputComps == IxPixelFormat::ALPHA);
    return IpScanlinePipePtr(new IpSourceNode(inputComps));
}

RCShdPtr<IpDestNode> IpScanlinePipeUtils::createAlphaDest(IpScanlinePipePtr const& pipe,
                                                          IxPixelFormat::Comps comps,
                                                          GeRectangle<int> const& dstRegion,
                                                          GeRectangle<int>* srcRegion) {
    Vector<IpSourceNode*> const sources = pipe->getAllInputs();
    int const nInputs = static_cast<int>(sources.size());
    VN_ASSERT(nInputs == 1);
    IpScanlinePipePtr top = pipe;
    if (comps == IxPixelFormat::RGBA)
        top = createInsertAlpha(IpScanlinePipePtr(sources[0]), pipe);
    RCShdPtr<IpDestNode> const dest(new IpDestNode(top));
    dest->setDstRegion(dstRegion);
    if (srcRegion)
        *srcRegion = sources[0]->getSrcRegion();
    return dest;
}

IpScanlinePipePtr IpScanlinePipeUtils::createExtractAlpha(IpScanlinePipePtr const& pipe) {
    return IpScanlinePipePtr(new ExtractAlpha(pipe));
}

IpScanlinePipePtr IpScanlinePipeUtils::createInvertAlpha(IpScanlinePipePtr const& pipe) {
    return IpScanlinePipePtr(new InvertAlpha(pipe));
}

IpScanlinePipePtr IpScanlinePipeUtils::createInsertAlpha(IpScanlinePipePtr const& rgba,
                                                         IpScanlinePipePtr const& alpha) {
    return IpScanlinePipePtr(new InsertAlpha(rgba, alpha));
}

IpScanlinePipePtr IpScanlinePipeUtils::createMaxAlpha(IpScanlinePipePtr const& a,
                                                      IpScanlinePipePtr const& b) {
    return IpScanlinePipePtr(new MaxAlpha(a, b));
}

IpScanlinePipePtr IpScanlinePipeUtils::createBlurAlpha(IpScanlinePipePtr const& pipe, float x,
                                                       float y) {
    // Checked before the kernel is made: a radius reaches 1.5 times as far in rows kept.
    bool const numbers = !std::isnan(x) && !std::isnan(y);
    if (!numbers || !(std::fabs(x) <= MAX_RADIUS && std::fabs(y) <= MAX_RADIUS)) {
        std::ostringstream s;
        s << "A feather of " << x << " by " << y << " pixels is refused: radii "
          << (numbers ? "are at most " + std::to_string(MAX_RADIUS) + " pixels."
                      : std::string("must be numbers."));
        VN_THROW_MSG(ExBase, s.str());
    }
    return IpScanlinePipePtr(new BlurAlpha(pipe, x, y));
}

IpScanlinePipePtr IpScanlinePipeUtils::createDilateNode(IpScanlinePipePtr const& pipe,
                                                        float shapeInterpolation, float x,
                                                        float y) {
    if (shapeInterpolation <= 0.0f)
        return IpDilate::create(pipe, 0, x, y);
    if (shapeInterpolation >= 1.0f)
        return IpDilate::create(pipe, 1, x, y);
    // clang-format off
    VN_ASSERT(0.0f < shapeInterpolation && shapeInterpolation < 1.0f);
    // clang-format on
    return IpScanlinePipePtr(new BlendAlpha(IpDilate::create(pipe, 0, x, y),
                                            IpDilate::create(pipe, 1, x, y), shapeInterpolation));
}

IpScanlinePipePtr IpScanlinePipeUtils::createLUTAlpha(IpScanlinePipePtr const& pipe, float low,
                                                      float high, Vector<float> table) {
    int const n = static_cast<int>(table.size());
    if (n < 2)
        VN_THROW_MSG(ExBase, "An alpha look-up table needs at least 2 entries; it has " +
                                 std::to_string(n) + ".");
    constexpr float kMinNormal = 1.1754944e-38f;
    float denominator = high - low;
    if (denominator < 0.0f)
        denominator = std::min(denominator, -kMinNormal);
    else
        denominator = std::max(denominator, kMinNormal);
    float const scale = static_cast<float>(n - 2) / denominator;
    float const offset = (0.0f - low) * scale;
    return IpScanlinePipePtr(new ScanlineLut(pipe, scale, offset, std::move(table)));
}

IpScanlinePipePtr IpScanlinePipeUtils::createEdgeProcessingGraph(
    IpScanlinePipePtr const& pipe, bool difference, IpDilate::StructuringElements element,
    float lowX, float lowY, float highX, float highY, float blurLowX, float blurLowY,
    float blurHighX, float blurHighY, bool invert, RCPvtEngPtr<PmShape2d> const& curve, int size) {
    struct Amount {
        float x;
        float y;
        bool operator==(Amount const&) const = default;
    };
    // Both components take the sign of growth when either grows.
    auto const signed2 = [](float x, float y) {
        if (x > 0.0f || y > 0.0f)
            return Amount{std::fabs(x), std::fabs(y)};
        return Amount{-std::fabs(x), -std::fabs(y)};
    };
    Amount const a = signed2(std::min(lowX, highX), std::min(lowY, highY));
    Amount const b = signed2(std::max(lowX, highX), std::max(lowY, highY));
    Amount const blurLow{std::fabs(blurLowX), std::fabs(blurLowY)};
    Amount const blurHigh{std::fabs(blurHighX), std::fabs(blurHighY)};

    float shapeLow = 1.0f;
    float shapeHigh = 1.0f;
    if (element == IpDilate::DISC) {
        shapeLow = std::clamp((std::min(blurLow.x, blurLow.y) - 30.0f) / 10.0f, 0.0f, 1.0f);
        shapeHigh = std::clamp((std::min(blurHigh.x, blurHigh.y) - 30.0f) / 10.0f, 0.0f, 1.0f);
    } else {
        VN_ASSERT(element == IpDilate::BOX);
    }

    constexpr float kSmall = 0.001f;
    auto const any = [](Amount const& v) {
        return std::fabs(v.x) > kSmall || std::fabs(v.y) > kSmall;
    };
    IpScanlinePipePtr first = pipe;
    IpScanlinePipePtr firstDilation;
    if (any(a)) {
        first = firstDilation = createDilateNode(pipe, shapeLow, a.x, a.y);
    }
    if (blurLow.x > kSmall || blurLow.y > kSmall)
        first = createBlurAlpha(first, blurLow.x, blurLow.y);

    IpScanlinePipePtr result;
    if (!difference && a == b && blurLow == blurHigh) {
        result = first;
    } else {
        IpScanlinePipePtr second = pipe;
        if (any(b))
            second = b == a ? firstDilation : createDilateNode(pipe, shapeHigh, b.x, b.y);
        if (blurHigh.x > kSmall || blurHigh.y > kSmall)
            second = a == b && blurLow == blurHigh
                         ? first
                         : createBlurAlpha(second, blurHigh.x, blurHigh.y);
        if (difference)
            result = IpScanlinePipePtr(new DiffAlpha(second, first));
        else
            result = IpScanlinePipePtr(new AverageAlpha(second, first));
    }
    if (invert)
        result = createInvertAlpha(result);
    // Curves other than the identity need the curve look-up tables, not built yet.
    if (!curve.isNull() && !isIdentityCurve(*curve))
        VN_THROW_MSG(ExBase, "Edge processing takes only the identity alpha curve until curve "
                             "look-up tables exist.");
    (void)size;
    return result;
}

} // namespace Vn

#include "HoImageNodes.h"
#include "Assertions.h"
#include "HoTools.h"
#include "IxImageOps.h"
#include "PiImageInputPolicy.h"
#include "PiPixelLoop.h"

#include <cmath>
#include <limits>

#include <immintrin.h>

namespace Vn {

namespace {
using Color = CoRgbaColorTyped<float>;
using Line = PiPixelLoop::Scanline;

class PatternLoop final : public PiPixelGeneratorLoop {
public:
    PatternLoop(IxWriteGuard& result, GeRectangle<int> const& frame, double time)
        : PiPixelGeneratorLoop(result), _frame(frame), _time(time) {}
    void processScanline(Line& dst) override {
        // Rows grow upwards: the top of the frame is its last row.
        float const v = (static_cast<float>(_frame.ymax - 1 - getGlobalScanlineIndex()) + 0.5f) /
                        static_cast<float>(_frame.height());
        float const w = static_cast<float>(_frame.width());
        for (int x = dst.getX0(); x < dst.getX1(); ++x)
            dst[x] = HoTestPatternNode::colorAt((static_cast<float>(x - _frame.xmin) + 0.5f) / w, v,
                                                _time);
    }

private:
    GeRectangle<int> _frame;
    double _time;
};

class OverLoop final : public PiPixelLoopTwoSources {
public:
    using PiPixelLoopTwoSources::PiPixelLoopTwoSources;
    void processScanline(Line& dst, Line const& front, Line const& back) override {
        Color* d = dst.getData();
        Color const* f = front.getData();
        Color const* b = back.getData();
        // A pixel a register, with the bits of over(): front + back (1 - front alpha).
        __m128 const one = _mm_set1_ps(1.0f);
        for (int i = 0, n = dst.getWidth(); i < n; ++i) {
            __m128 const fv = _mm_loadu_ps(&f[i].r);
            __m128 const k = _mm_sub_ps(one, _mm_shuffle_ps(fv, fv, _MM_SHUFFLE(3, 3, 3, 3)));
            _mm_storeu_ps(&d[i].r, _mm_add_ps(fv, _mm_mul_ps(_mm_loadu_ps(&b[i].r), k)));
        }
    }
    Color processFillColor(Color const& front, Color const& back) override {
        return HoOverNode::over(front, back);
    }
};

class GainLoop final : public PiPixelLoopOneSource {
public:
    GainLoop(IxWriteGuard& result, float gain)
        : PiPixelLoopOneSource(result, PiImageModifierTypes::AFFECT_RGBA), _gain(gain) {}
    void processScanline(Line& dst, Line const& src) override {
        Color* d = dst.getData();
        Color const* s = src.getData();
        for (int i = 0, n = dst.getWidth(); i < n; ++i)
            d[i] = HoGainNode::gain(s[i], _gain);
    }
    Color processFillColor(Color const& fill) override { return HoGainNode::gain(fill, _gain); }

private:
    float _gain;
};
} // namespace

Color HoTestPatternNode::colorAt(float u, float v, double time) {
    float const shifted = u - static_cast<float>(0.25 * time);
    float const ramp = shifted - std::floor(shifted);
    int const band = std::min(static_cast<int>(v * 4.0f), 3);
    float const alpha = 1.0f - 0.75f * v;
    float const level = ramp * alpha;
    switch (band) {
    case 0:
        return {level, 0.0f, 0.0f, alpha};
    case 1:
        return {0.0f, level, 0.0f, alpha};
    case 2:
        return {0.0f, 0.0f, level, alpha};
    default:
        return {level, level, level, alpha};
    }
}

PxImageResult HoTestPatternNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    IxTile const tile = allocateImageBuffer(context, vi);
    if (tile.getPixelRegion().isEmpty())
        return {tile, vi};
    // The pattern moves: it holds for its own instant only.
    double const t = context.getTime();
    // Workers read denormals as zero: an instant at 0 must end at a normal number.
    double const next = std::nextafter(t, PxValidityInterval::kPosInfinity);
    vi &= PxValidityInterval(t, std::fabs(next) < std::numeric_limits<double>::min()
                                    ? std::numeric_limits<double>::min()
                                    : next);
    PxRODResult const rod = computeImageROD(context.getTimeStreamContext());
    GeRectangle<int> const frame = nominalToPixelized(
        rod.getROD(), getImageFormat().getAspectRatio(), context.getScaleFactor());
    IxWriteGuard guard(tile);
    PatternLoop loop(guard, frame, context.getTime());
    loop.process();
    return {guard.getTile(), vi};
}

PxImageFormat HoWorkingNode::getImageFormat() const {
    return HoToolController::workingPolicy()->getTargetFormat(getPrimary()->getImageFormat());
}

IxTile HoWorkingNode::working(PxImageContext const& context, PxImageResult const& result) const {
    IxPixelFormat const& has = result.getTile().getPixelFormat();
    if (result.getPixelRegion().isEmpty() ||
        (has.getComps() == IxPixelFormat::RGBA && has.getDepth() == IxPixelFormat::FLOAT32))
        return result.getTile();
    IxTile const tile =
        allocateImageBuffer(context, result.getFillColor(), result.getPixelRegion());
    ipFormatChange(IxWriteGuard(tile), result.getTileGuard(), nullptr);
    return tile;
}

HoOverNode::HoOverNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& front,
                       PxStrongHndl<PxImageProtocol const> const& back)
    : PxNode(init), HoWorkingNode(init, back), _front(front) {
    VN_ASSERT(!_front.isNull());
}

void HoOverNode::init() {
    PxImageNode::init();
    registerChild(_front);
    registerChild(getPrimary());
}

PxRODResult HoOverNode::getImageROD(PxTimeStreamContext const& context) const {
    PxRODResult const f = _front->getImageROD(context);
    PxRODResult b = getPrimary()->getImageROD(context);
    PxValidityInterval vi = b.getValidityInterval();
    f.reduceVI(vi);
    return {f.getROD().unite(b.getROD()), vi};
}

PxImageResult HoOverNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    GeRectangle<int> const region = computeTileRegion(context, vi);
    PxImageResult const front = _front->getImageResult(context);
    PxImageResult const back = getPrimary()->getImageResult(context);
    front.reduceVI(vi);
    back.reduceVI(vi);
    IxTile const tile =
        context.isOutside() ? allocateEmptyImageBuffer() : allocateImageBuffer(context, {}, region);
    IxWriteGuard guard(tile);
    OverLoop loop(guard, PiImageModifierTypes::AFFECT_RGBA);
    loop.process(front.getTileGuard(), back.getTileGuard());
    return {guard.getTile(), vi};
}

HoGainNode::HoGainNode(PxNode::Init const& init, PxStrongHndl<PxImageProtocol const> const& source,
                       PxStrongHndl<PxAnimValueProtocol<double> const> const& gain)
    : PxNode(init), HoWorkingNode(init, source), _gain(gain) {
    VN_ASSERT(!_gain.isNull());
}

void HoGainNode::init() {
    PxImageNode::init();
    registerChild(getPrimary());
    registerChild(_gain);
}

PxImageResult HoGainNode::getImageResult(PxImageContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    GeRectangle<int> const region = computeTileRegion(context, vi);
    PxResult<double> const g = _gain->getValue(PxTimeContext(context.getTime()));
    g.reduceVI(vi);
    PxImageResult const source = getPrimary()->getImageResult(context);
    source.reduceVI(vi);
    IxTile const tile =
        context.isOutside() ? allocateEmptyImageBuffer() : allocateImageBuffer(context, {}, region);
    IxWriteGuard guard(tile);
    GainLoop loop(guard, static_cast<float>(g.getValue()));
    loop.process(source.getTileGuard());
    return {guard.getTile(), vi};
}

HoColorNode::HoColorNode(PxNode::Init const& init, Channel const& r, Channel const& g,
                         Channel const& b)
    : PxNode(init), _r(r), _g(g), _b(b) {
    VN_ASSERT(!_r.isNull() && !_g.isNull() && !_b.isNull());
}

void HoColorNode::init() {
    PxNode::init();
    registerChild(_r);
    registerChild(_g);
    registerChild(_b);
}

PxResult<CoRgbColorTyped<float>> HoColorNode::getValue(PxTimeContext const& context) const {
    PxValidityInterval vi = PxValidityInterval::FULL;
    auto read = [&](PxNodePtr<PxAnimValueProtocol<double> const> const& c) {
        PxResult<double> const v = c->getValue(context);
        v.reduceVI(vi);
        return static_cast<float>(v.getValue());
    };
    CoRgbColorTyped<float> const color{read(_r), read(_g), read(_b)};
    return {color, vi};
}

void HoWorkingImageNode::init() {
    HoWorkingNode::init();
    registerChild(getPrimary());
}

PxImageResult HoWorkingImageNode::getImageResult(PxImageContext const& context) const {
    PxImageResult const in = getPrimary()->getImageResult(context);
    return {working(context, in), in.getValidityInterval()};
}

} // namespace Vn

#include "PiImageModifierOutputNode.h"
#include "PiOnWorker.h"

#include "PiImageConvertNode.h"
#include "PiPixelLoop.h"
#include "PxConfig.h"
#include "PxImageRequests.h"
#include "PxRequestMgr.h"
#include "StackGuard.h"

#include <algorithm>
#include <functional>

namespace Vn {

namespace {

using Color = CoRgbaColorTyped<float>;

// At most this many gathered frames are kept: back, front and mask of two frames in flight.
// Each is a whole frame of memory, so no more.
constexpr std::size_t kMaxFrames = 6;

class MaskingPixelLoop final : public PiPixelLoopThreeSources {
public:
    MaskingPixelLoop(IxWriteGuard& result, int channel, float intensity)
        : PiPixelLoopThreeSources(result, PiImageModifierTypes::AFFECT_RGBA), _channel(channel),
          _intensity(intensity) {}

    void processScanline(Scanline& dst, Scanline const& a, Scanline const& b,
                         Scanline const& mask) override {
        Color* d = dst.getData();
        float const* pa = &a.getData()->r;
        float const* pb = &b.getData()->r;
        float const* pm = &mask.getData()->r;
        float* pd = &d->r;
        int const n = dst.getWidth();
        // Flat over the floats, so that the compiler vectorizes it.
        for (int i = 0; i < n; ++i) {
            float const m = pm[4 * i + _channel] * _intensity;
            for (int c = 0; c < 4; ++c) {
                float const vb = pb[4 * i + c];
                pd[4 * i + c] = (pa[4 * i + c] - vb) * m + vb;
            }
        }
    }
    Color processFillColor(Color const& a, Color const& b, Color const& mask) override {
        float const m = (&mask.r)[_channel] * _intensity;
        return {(a.r - b.r) * m + b.r, (a.g - b.g) * m + b.g, (a.b - b.b) * m + b.b,
                (a.a - b.a) * m + b.a};
    }

private:
    int _channel;
    float _intensity;
};

template <class T>
T readValue(PxNodePtr<PxAnimValueProtocol<T> const> const& node, double time,
            PxValidityInterval& vi) {
    PxResult<T> const r = node->getValue(PxTimeContext(time));
    r.reduceVI(vi);
    return r.getValue();
}

} // namespace

struct PiImageModifierOutputNode::Frame {
    PxImageProtocol const* child;
    double time;
    int scale;
    int stream;
    LkLock lock{"PiImageModifierOutputNode frame"};
    bool done = false;
    PxImageResult result;
};

PiImageModifierOutputNode::PiImageModifierOutputNode(
    PxNode::Init const& init, Image const& front, Image const& back, Image const& mask,
    Value<bool> const& active, Value<int> const& channel, Value<bool> const& invert,
    Value<double> const& intensity, bool mute, bool performMasking)
    : PxNode(init), PxImageNode(init, front), _frontChild(front), _backChild(back),
      _maskChild(mask), _active(active), _channel(channel), _invert(invert), _intensity(intensity),
      _mute(mute) {
    VN_ASSERT(!_frontChild.isNull() && !_backChild.isNull());
    VN_ASSERT(performMasking || _maskChild.isNull());
    VN_ASSERT(_maskChild.isNull() || (!_active.isNull() && !_channel.isNull() &&
                                      !_invert.isNull() && !_intensity.isNull()));
}

PiImageModifierOutputNode::~PiImageModifierOutputNode() = default;

void PiImageModifierOutputNode::init() {
    PxImageNode::init();
    registerChild(_frontChild);
    registerChild(_backChild);
    if (!_maskChild.isNull()) {
        registerChild(_maskChild);
        registerChild(_active);
        registerChild(_channel);
        registerChild(_invert);
        registerChild(_intensity);
    }
    _backFormat = _backChild->getImageFormat();
    _fullFrames = computeFullFrames();
    rebuildConvertedBack();
}

void PiImageModifierOutputNode::rebuildConvertedBack() {
    PxImageFormat const target = _frontChild->getImageFormat();
    piRunOnWorker(
        [&] { _convertedBackChild = PiImageConvertNode::create(_backChild, _backFormat, target); });
}

void PiImageModifierOutputNode::setMute(bool const& mute) {
    _mute = mute;
}

bool PiImageModifierOutputNode::masks() const {
    return !_maskChild.isNull() && _maskChild->isChainConnected();
}

bool PiImageModifierOutputNode::computeFullFrames() const {
    return _frontChild->producesFullFrames() || _backChild->producesFullFrames() ||
           (!_maskChild.isNull() && _maskChild->producesFullFrames());
}

PxRODResult PiImageModifierOutputNode::getImageROD(PxTimeStreamContext const& context) const {
    if (_mute)
        return _convertedBackChild->getImageROD(context);
    if (!masks())
        return _frontChild->getImageROD(context);
    PxValidityInterval vi = PxValidityInterval::FULL;
    if (!readValue(_active, context.getTime(), vi)) {
        PxRODResult r = _frontChild->getImageROD(context);
        r.reduceVI(vi);
        return {r.getROD(), vi};
    }
    GeRectangle<float> rod;
    for (auto const* child : {&_backChild, &_frontChild, &_maskChild}) {
        PxRODResult const r = (*child)->getImageROD(context);
        r.reduceVI(vi);
        rod = rod.unite(r.getROD());
    }
    return {rod, vi};
}

PxImageResult PiImageModifierOutputNode::getImageResult(PxImageContext const& context) const {
    VN_STACK_GUARD("PiImageModifierOutputNode::getImageResult");
    if (_mute)
        return childResult(PxNodePtr<PxImageProtocol const>(_convertedBackChild), context);
    if (masks())
        return maskedResult(context);
    return childResult(_frontChild, context);
}

PxImageResult PiImageModifierOutputNode::childResult(PxNodePtr<PxImageProtocol const> const& child,
                                                     PxImageContext const& context) const {
    if (producesFullFrames() && !child->producesFullFrames() && !context.isOutside()) {
        VN_STACK_GUARD("PiImageModifierOutputNode::child->getImageResult( full )");
        return gatherFrame(child, context);
    }
    VN_STACK_GUARD("PiImageModifierOutputNode::child->getImageResult()");
    return child->getImageResult(context);
}

PxImageResult PiImageModifierOutputNode::gatherFrame(PxNodePtr<PxImageProtocol const> const& child,
                                                     PxImageContext const& context) const {
    std::shared_ptr<Frame> frame;
    {
        LkGuard guard(_framesLock);
        for (auto const& f : _frames)
            if (f->child == child.get() && f->time == context.getTime() &&
                f->scale == context.getScale() && f->stream == context.getStream()) {
                frame = f;
                break;
            }
        if (!frame) {
            frame = std::make_shared<Frame>();
            frame->child = child.get();
            frame->time = context.getTime();
            frame->scale = context.getScale();
            frame->stream = context.getStream();
            if (_frames.size() == kMaxFrames)
                _frames.erase(_frames.begin());
            _frames.push_back(frame);
        }
    }
    // The first worker gathers; the others wait for it without holding a running slot.
    if (!frame->lock.tryLock()) {
        PxWorkerBlockingGuard blocking;
        frame->lock.lock();
    }
    struct Unlock {
        LkLock& l;
        ~Unlock() { l.unlock(); }
    } unlock{frame->lock};
    if (frame->done)
        return frame->result;
    PxRequestPtr<PxImageMultiTileRequest> request(
        new PxImageMultiTileRequest(PxUPtr<PxImageProtocol const>(child), context.getStream(),
                                    PxTimeInfo(context.getTime()), context.getScale()));
    PxRequestMgr::getInstance().executeRequest(request.get(), false);
    RCShdPtr<PxImageResults> const results = request->getResults();
    if (results->empty()) {
        frame->result =
            child->getImageResult(PxImageContext::outside(context.getTime(), context.getStream()));
    } else {
        PxValidityInterval vi = PxValidityInterval::FULL;
        for (PxImageResult const& r : *results)
            r.reduceVI(vi);
        frame->result = PxImageResult(
            PxImageMultiTileRequest::assembleTiles(*results, request->getPixelRegion()), vi);
    }
    frame->done = true;
    return frame->result;
}

PxImageResult PiImageModifierOutputNode::maskedResult(PxImageContext const& context) const {
    double const time = context.getTime();
    PxValidityInterval vi = PxValidityInterval::FULL;
    if (!readValue(_active, time, vi)) {
        PxImageResult const r = childResult(_frontChild, context);
        r.reduceVI(vi);
        return {r.getTile(), vi};
    }
    bool const invert = readValue(_invert, time, vi);
    PxImageResult const back = childResult(_backChild, context);
    PxImageResult const front = childResult(_frontChild, context);
    PxImageResult const mask = childResult(_maskChild, context);
    back.reduceVI(vi);
    front.reduceVI(vi);
    mask.reduceVI(vi);
    // The back's tile carries its fill colour: asking for it again would make another tile.
    Color const fill = back.getFillColor();
    PxImageResult const& a = invert ? back : front;
    PxImageResult const& b = invert ? front : back;
    int const channel = std::clamp(readValue(_channel, time, vi), 0, 3);
    auto const intensity = static_cast<float>(readValue(_intensity, time, vi));

    PxTimeStreamContext const tsc = context.getTimeStreamContext();
    GeRectangle<float> rod;
    for (auto const* child : {&_backChild, &_frontChild, &_maskChild}) {
        PxRODResult const r = (*child)->getImageROD(tsc);
        r.reduceVI(vi);
        rod = rod.unite(r.getROD());
    }
    IxTile tile;
    if (context.isOutside()) {
        tile = allocateEmptyImageBuffer(fill);
    } else {
        GeRectangle<int> const region =
            nominalToPixelized(rod, getImageFormat().getAspectRatio(), context.getScaleFactor());
        GePoint2<int> const& t = context.getTile();
        if (producesFullFrames() && !region.isEmpty())
            tile = IxTile(getImageFormat().getPixelFormat(), region, fill);
        else
            tile = allocateImageBuffer(
                context, fill,
                convertTilesToPixels({t.x, t.x + 1, t.y, t.y + 1}).intersect(region));
    }
    IxWriteGuard guard(tile);
    MaskingPixelLoop loop(guard, channel, intensity);
    loop.process(a.getTileGuard(), b.getTileGuard(), mask.getTileGuard());
    return {guard.getTile(), vi};
}

bool PiImageModifierOutputNode::propagateAndRemapInvalidation(PxValidityInterval* interval,
                                                              PxUPtr<PxNode const> const& from,
                                                              int* stream) const {
    if (from.asNode() == static_cast<PxNode const*>(_backChild.get()))
        return false;
    return PxImageNode::propagateAndRemapInvalidation(interval, from, stream);
}

void PiImageModifierOutputNode::invalidateAndReinitialize(PxValidityInterval const& interval,
                                                          PxUPtr<PxNode const> const& from,
                                                          int stream) {
    PxImageNode::invalidateAndReinitialize(interval, from, stream);
    {
        LkGuard guard(_framesLock);
        _frames.clear();
    }
    // The wave has passed the children already: their answers are up to date.
    _fullFrames = computeFullFrames();
    PxImageFormat const back = _backChild->getImageFormat();
    PxImageFormat const front = _frontChild->getImageFormat();
    if (back == _backFormat && !_convertedBackChild.isNull() &&
        _convertedBackChild->getImageFormat() == front)
        return;
    _backFormat = back;
    rebuildConvertedBack();
}

} // namespace Vn

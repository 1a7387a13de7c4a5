#include "PiImageModifierOutputNode.h"
#include "PiOnWorker.h"
#include "PiShareSlot.h"

#include "PiImageConvertNode.h"
#include "PiPixelLoop.h"
#include "PxConfig.h"
#include "PxImageRequests.h"
#include "PxPassThroughNode.h"
#include "PxRequestMgr.h"
#include "StackGuard.h"

#include <algorithm>
#include <array>
#include <functional>
#include <optional>

namespace Vn {

// The back as the tool's own node sees it. The output node asks the back for a tile it mixes and
// then the front, which asks the back for the same tile: the output node leaves its tile (or
// the whole frame it gathered) here for the front, so that the graph below is asked once, not
// once per road. A chain of masked modifiers would otherwise cost twice the tiles per link.
//
// Tiles are kept in a few slots by position, frames and regions per stream. An invalidation
// moves to a new generation, so that nothing asked before it is handed on after.
class PiImageModifierBackNode final : public PxPassThroughNode<PxImageProtocol> {
public:
    PiImageModifierBackNode(PxNode::Init const& init,
                            PxStrongHndl<PxImageProtocol const> const& back)
        : PxNode(init), PxPassThroughNode<PxImageProtocol>(init, back) {}

    // Front and output node both ask it for each tile; along a chain of modifiers that would
    // double at each link.
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override {
        PiShareKey const key{context.getTime(), 0, context.getStream(), {}, generation()};
        PiShareSlot<PxRODResult>& slot = perStream(_regions, context.getStream());
        if (std::optional<PxRODResult> kept = slot.get(key, false))
            return *kept;
        PxRODResult const r = getChild()->getImageROD(context);
        slot.put(key, r);
        return r;
    }
    PxImageResult getImageResult(PxImageContext const& context) const override {
        if (!context.isOutside()) {
            unsigned const g = generation();
            if (std::optional<PxImageResult> kept =
                    tileSlot(context).get(tileKey(context, g), true))
                return std::move(*kept);
            if (std::optional<PxImageResult> frame =
                    perStream(_frames, context.getStream()).get(frameKey(context, g), false))
                return std::move(*frame);
        }
        return getChild()->getImageResult(context);
    }
    void invalidateAndReinitialize(PxValidityInterval const& interval,
                                   PxUPtr<PxNode const> const& from, int stream) override {
        forget();
        PxPassThroughNode<PxImageProtocol>::invalidateAndReinitialize(interval, from, stream);
    }
    // Also when the output node is invalidated: a frame is kept no longer than its own.
    void forget() const {
        _generation.fetch_add(1, std::memory_order_acq_rel);
        for (auto& s : _tiles)
            s.drop();
        for (auto& s : _frames)
            s.drop();
    }

    unsigned generation() const noexcept { return _generation.load(std::memory_order_acquire); }
    // A tile asked in the given generation, for the next to ask for it.
    void keepTile(PxImageContext const& context, PxImageResult const& result,
                  unsigned generation) const {
        if (!context.isOutside())
            tileSlot(context).put(tileKey(context, generation), result);
    }
    // The whole frame gathered in the given generation, for any tile of it.
    void keepFrame(PxImageContext const& context, PxImageResult const& frame,
                   unsigned generation) const {
        if (!context.isOutside())
            perStream(_frames, context.getStream()).put(frameKey(context, generation), frame);
    }

private:
    // Neighbouring tiles, those that workers make at the same time, fall in different slots.
    static constexpr int kSide = 4;

    static PiShareKey tileKey(PxImageContext const& c, unsigned g) {
        return {c.getTime(), c.getScale(), c.getStream(), c.getTile(), g};
    }
    static PiShareKey frameKey(PxImageContext const& c, unsigned g) {
        return {c.getTime(), c.getScale(), c.getStream(), {}, g};
    }
    PiShareSlot<PxImageResult>& tileSlot(PxImageContext const& context) const {
        GePoint2<int> const& t = context.getTile();
        return _tiles[static_cast<std::size_t>((t.x & (kSide - 1)) + kSide * (t.y & (kSide - 1)))];
    }
    template <class Slots>
    static typename Slots::value_type& perStream(Slots& slots, int stream) {
        return slots[static_cast<unsigned>(stream) % slots.size()];
    }

    mutable std::array<PiShareSlot<PxImageResult>, kSide * kSide> _tiles;
    mutable std::array<PiShareSlot<PxImageResult>, 2> _frames;
    mutable std::array<PiShareSlot<PxRODResult>, 2> _regions;
    mutable std::atomic<unsigned> _generation{0};
};

namespace {

using Color = CoRgbaColorTyped<float>;

// At most this many gathered frames are kept: back, front and mask of two frames in flight.
// Each is a whole frame of memory, so no more.
constexpr std::size_t kMaxFrames = 6;

int normalAffect(int affect) {
    return affect == PiImageModifierTypes::AFFECT_RGB ||
                   affect == PiImageModifierTypes::AFFECT_ALPHA
               ? affect
               : PiImageModifierTypes::AFFECT_RGBA;
}

bool changes(int affect, int component) {
    switch (affect) {
    case PiImageModifierTypes::AFFECT_RGB:
        return component < 3;
    case PiImageModifierTypes::AFFECT_ALPHA:
        return component == 3;
    default:
        return true;
    }
}

// Per component, A weighs m * scale + bias: (1, 0) where the tool may change the component;
// where it may not, the back shows whatever the mask: (0, 0) when the back is B, (0, 1) when
// inverted, the back being A.
struct Weights {
    float scale[4];
    float bias[4];
};

Weights weightsFor(int affect, bool backIsA) {
    Weights w{};
    for (int c = 0; c < 4; ++c) {
        bool const changed = changes(affect, c);
        w.scale[c] = changed ? 1.0f : 0.0f;
        w.bias[c] = !changed && backIsA ? 1.0f : 0.0f;
    }
    return w;
}

class MaskingPixelLoop final : public PiPixelLoopThreeSources {
public:
    MaskingPixelLoop(IxWriteGuard& result, int channel, float intensity, Weights const& weights,
                     PiImageModifierTypes::AffectType affect)
        : PiPixelLoopThreeSources(result, affect), _channel(channel), _intensity(intensity),
          _w(weights) {}

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
                pd[4 * i + c] = (pa[4 * i + c] - vb) * (m * _w.scale[c] + _w.bias[c]) + vb;
            }
        }
    }
    Color processFillColor(Color const& a, Color const& b, Color const& mask) override {
        float const m = (&mask.r)[_channel] * _intensity;
        Color out;
        for (int c = 0; c < 4; ++c) {
            float const vb = (&b.r)[c];
            (&out.r)[c] = ((&a.r)[c] - vb) * (m * _w.scale[c] + _w.bias[c]) + vb;
        }
        return out;
    }

private:
    int _channel;
    float _intensity;
    Weights _w;
};

// Unmasked, the components the tool may change from the front, the others from the back:
// picked, not mixed, so that each is exactly its source's.
class AffectPixelLoop final : public PiPixelLoopTwoSources {
public:
    AffectPixelLoop(IxWriteGuard& result, PiImageModifierTypes::AffectType affect)
        : PiPixelLoopTwoSources(result, affect) {
        for (int c = 0; c < 4; ++c)
            _fromFront[c] = changes(affect, c);
    }

    void processScanline(Scanline& dst, Scanline const& front, Scanline const& back) override {
        float* pd = &dst.getData()->r;
        float const* pf = &front.getData()->r;
        float const* pb = &back.getData()->r;
        int const n = dst.getWidth();
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 4; ++c)
                pd[4 * i + c] = _fromFront[c] ? pf[4 * i + c] : pb[4 * i + c];
    }
    Color processFillColor(Color const& front, Color const& back) override {
        Color out;
        for (int c = 0; c < 4; ++c)
            (&out.r)[c] = _fromFront[c] ? (&front.r)[c] : (&back.r)[c];
        return out;
    }

private:
    bool _fromFront[4];
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
    Value<double> const& intensity, bool mute, bool performMasking, int affect)
    : PxNode(init), PxImageNode(init, front), _frontChild(front), _backChild(back),
      _maskChild(mask), _active(active), _channel(channel), _invert(invert), _intensity(intensity),
      _sharedBack(dynamic_cast<PiImageModifierBackNode const*>(back.get())), _mute(mute),
      _affect(normalAffect(affect)) {
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
    // The inputs are read on a worker, after the edits still on their way there.
    piRunOnWorker([this] {
        _backFormat = _backChild->getImageFormat();
        _fullFrames = computeFullFrames();
        rebuildConvertedBack();
    });
}

void PiImageModifierOutputNode::rebuildConvertedBack() {
    PxImageFormat const target = _frontChild->getImageFormat();
    piRunOnWorker(
        [&] { _convertedBackChild = PiImageConvertNode::create(_backChild, _backFormat, target); });
}

PiImageModifierOutputNode::Image PiImageModifierOutputNode::shareBack(Image const& back) {
    PxStrongHndl<PiImageModifierBackNode> n(
        new PiImageModifierBackNode(PxNode::Init{"PiImageModifierBackNode"}, back));
    PxNode::init(PxStrongHndl<PxNode>(n));
    return Image(n);
}

void PiImageModifierOutputNode::setMute(bool const& mute) {
    _mute = mute;
}

void PiImageModifierOutputNode::setAffect(int const& affect) {
    _affect = normalAffect(affect);
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
    bool const all = _affect == PiImageModifierTypes::AFFECT_RGBA;
    if (!masks() && all)
        return _frontChild->getImageROD(context);
    PxValidityInterval vi = PxValidityInterval::FULL;
    bool const masked = masks() && readValue(_active, context.getTime(), vi);
    if (!masked && all) {
        PxRODResult r = _frontChild->getImageROD(context);
        r.reduceVI(vi);
        return {r.getROD(), vi};
    }
    // The back shows through wherever it lies, in the components the tool leaves alone.
    GeRectangle<float> rod;
    for (auto const* child : {&_backChild, &_frontChild, &_maskChild}) {
        if (child == &_maskChild && !masked)
            continue;
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
    return frontResult(context, PxValidityInterval::FULL);
}

PxImageResult PiImageModifierOutputNode::frontResult(PxImageContext const& context,
                                                     PxValidityInterval vi) const {
    int const affect = _affect;
    if (affect == PiImageModifierTypes::AFFECT_RGBA) {
        PxImageResult const r = childResult(_frontChild, context);
        if (vi == PxValidityInterval::FULL)
            return r;
        r.reduceVI(vi);
        return {r.getTile(), vi};
    }
    PxImageResult const back = backResult(context);
    PxImageResult const front = childResult(_frontChild, context);
    back.reduceVI(vi);
    front.reduceVI(vi);
    PxTimeStreamContext const tsc = context.getTimeStreamContext();
    GeRectangle<float> rod;
    for (auto const* child : {&_backChild, &_frontChild}) {
        PxRODResult const r = (*child)->getImageROD(tsc);
        r.reduceVI(vi);
        rod = rod.unite(r.getROD());
    }
    IxTile const tile = resultTile(context, back.getFillColor(), rod);
    IxWriteGuard guard(tile);
    AffectPixelLoop loop(guard, static_cast<PiImageModifierTypes::AffectType>(affect));
    loop.process(front.getTileGuard(), back.getTileGuard());
    return {guard.getTile(), vi};
}

IxTile PiImageModifierOutputNode::resultTile(PxImageContext const& context, Color const& fill,
                                             GeRectangle<float> const& rod) const {
    if (context.isOutside())
        return allocateEmptyImageBuffer(fill);
    GeRectangle<int> const region =
        nominalToPixelized(rod, getImageFormat().getAspectRatio(), context.getScaleFactor());
    if (producesFullFrames() && !region.isEmpty())
        return IxTile(getImageFormat().getPixelFormat(), region, fill);
    GePoint2<int> const& t = context.getTile();
    return allocateImageBuffer(
        context, fill, convertTilesToPixels({t.x, t.x + 1, t.y, t.y + 1}).intersect(region));
}

bool PiImageModifierOutputNode::gathers(PxNodePtr<PxImageProtocol const> const& child,
                                        PxImageContext const& context) const {
    return producesFullFrames() && !child->producesFullFrames() && !context.isOutside();
}

PxImageResult PiImageModifierOutputNode::childResult(PxNodePtr<PxImageProtocol const> const& child,
                                                     PxImageContext const& context) const {
    if (gathers(child, context)) {
        VN_STACK_GUARD("PiImageModifierOutputNode::child->getImageResult( full )");
        return gatherFrame(child, context);
    }
    VN_STACK_GUARD("PiImageModifierOutputNode::child->getImageResult()");
    return child->getImageResult(context);
}

PxImageResult PiImageModifierOutputNode::backResult(PxImageContext const& context) const {
    if (_sharedBack == nullptr)
        return childResult(_backChild, context);
    unsigned const generation = _sharedBack->generation();
    PxImageResult const r = childResult(_backChild, context);
    if (gathers(_backChild, context))
        _sharedBack->keepFrame(context, r, generation);
    else
        _sharedBack->keepTile(context, r, generation);
    return r;
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
    if (!readValue(_active, time, vi))
        return frontResult(context, vi);
    int const affect = _affect;
    bool const invert = readValue(_invert, time, vi);
    PxImageResult const back = backResult(context);
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
    IxTile const tile = resultTile(context, fill, rod);
    IxWriteGuard guard(tile);
    MaskingPixelLoop loop(guard, channel, intensity, weightsFor(affect, invert),
                          static_cast<PiImageModifierTypes::AffectType>(affect));
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
    if (_sharedBack != nullptr)
        _sharedBack->forget();
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

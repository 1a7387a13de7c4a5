#include "PiImageRepeatNode.h"
#include "ExBase.h"
#include "PiOnWorker.h"
#include "StackGuard.h"
#include "TmTimeUtil.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <sstream>

namespace Vn {

namespace {

constexpr double kNegInf = TmTimeUtil::getNegInfinity();
constexpr double kPosInf = TmTimeUtil::getPosInfinity();
// A bound moved by this stays on the same frame at any rate we support.
constexpr double kEpsilon = 5.208333333333334e-9;
// 1 - 2^-49: a range must be shorter than a frame by more than rounding to count as shorter.
constexpr double kShorterThanFrame = 0.9999999999999982;

template <class T>
PxNodePtr<PxAnimValueProtocol<T> const> valueNode(PxStrongHndl<PxNode const> const& node,
                                                  char const* what) {
    if (node.isNull())
        RCExUtil::throwExNullPtr(typeid(PxNode).name());
    auto const* v = dynamic_cast<PxAnimValueProtocol<T> const*>(node.get());
    if (!v)
        VN_THROW_MSG(ExBase, std::string("PiImageRepeatNode: the ") + what + " node (" +
                                 node->getTypeName() + ") gives no value of the right type");
    return PxNodePtr<PxAnimValueProtocol<T> const>(PxStrongHndl<PxAnimValueProtocol<T> const>(v));
}

template <class T>
T readAtZero(PxNodePtr<PxAnimValueProtocol<T> const> const& node) {
    return node->getValue(PxTimeContext(0.0)).getValue();
}

std::string dump(PxValidityInterval const& v) {
    std::ostringstream s;
    s.precision(17);
    s << '[' << v.getLow() << ", " << v.getHigh() << ')';
    return s.str();
}

bool isOdd(double wholeNumber) {
    return std::fmod(std::fabs(wholeNumber), 2.0) == 1.0;
}

// Whether Ping Pong runs backwards at u seconds from the start of the first cycle, cycles
// lasting p. The parity of the pass number is kept in double so that no time overflows an
// integer.
bool isBackwardPass(double u, double p) {
    bool odd = isOdd(std::trunc(u / p));
    if (u < 0.0 && std::fmod(u, p) != 0.0)
        odd = !odd;
    return odd;
}

// A bound, moved unless it stands for an infinity.
double moved(double bound, double by) {
    return TmTimeUtil::isInfinite(bound) ? bound : bound + by;
}

RCShdPtr<PiEnumPolicy const> s_repeatModes;

std::vector<PiEnumPolicy::Entry> repeatModeEntries() {
    return {{TmTypes::HOLD, "Hold"},
            {TmTypes::LOOP, "Loop"},
            {TmTypes::PING_PONG, "Ping Pong"},
            {TmTypes::NO_REPEAT, "No Repeat"}};
}

} // namespace

// ---- policies ----

PiRepeatModeInputPolicy::PiRepeatModeInputPolicy(TmTypes::RepeatMode defaultMode)
    : PiEnumPolicy(repeatModeEntries(), false, defaultMode) {}

void PiImageRepeatNode::initializeRepeatModes() {
    s_repeatModes = RCShdPtr<PiEnumPolicy const>(new PiRepeatModeInputPolicy(TmTypes::NO_REPEAT));
}

void PiImageRepeatNode::finalizeRepeatModes() {
    s_repeatModes.reset();
}

RCShdPtr<PiEnumPolicy const> const& PiImageRepeatNode::getRepeatModeInputPolicy() {
    VN_ASSERT(s_repeatModes);
    return s_repeatModes;
}

// ---- time ----

double PiImageRepeatNode::getCurrentTime(double parentTime, double start, double end,
                                         double frameDuration, TmTypes::RepeatMode mode) {
    VN_ASSERT(parentTime >= TmTimeUtil::getNegInfinity());
    VN_ASSERT(parentTime <= TmTimeUtil::getPosInfinity());
    double const s = start;
    double const d = frameDuration;
    if (!(d > 0.0) || !std::isfinite(d) || !std::isfinite(s) || !std::isfinite(end))
        VN_THROW_MSG(ExBase, "PiImageRepeatNode: no frames in the range from " +
                                 std::to_string(start) + " to " + std::to_string(end) +
                                 " at a frame duration of " + std::to_string(frameDuration));
    double const e = kShorterThanFrame * d > end - s ? s + d : end;
    double const t = parentTime;
    double const p = e - s;
    double const cycleStart = s - d * 0.5;
    switch (mode) {
    case TmTypes::NO_REPEAT:
        return t;
    case TmTypes::LOOP: {
        double x = std::fmod(t - cycleStart, p);
        if (!(x >= 0.0))
            x = std::fmod(x + p, p);
        return x + cycleStart;
    }
    case TmTypes::PING_PONG: {
        double const u = t - cycleStart;
        double r = std::fmod(u, p);
        if (isBackwardPass(u, p)) {
            if (r < 0.0)
                r = std::fmod(r + p, p);
            r = p - r;
        } else if (r < 0.0) {
            r = std::fmod(r + p, p);
        }
        // The double just below the end of the last frame's half: a fixed 2^-52 vanishes in
        // rounding once times pass a second.
        double const last =
            std::min(e - 2.220446049250313e-16 - d * 0.5, std::nextafter(e - d * 0.5, -HUGE_VAL));
        return std::min(last, cycleStart + r);
    }
    case TmTypes::HOLD:
        return std::min(e - d, std::max(s, t));
    }
    VN_ABORT("Unknown loop mode.");
}

// ---- node ----

PiImageRepeatNode::PiImageRepeatNode(PxNode::Init const& init,
                                     PxStrongHndl<PxImageProtocol const> const& child,
                                     PxStrongHndl<PxNode const> const& inTime,
                                     PxStrongHndl<PxNode const> const& outTime,
                                     PxStrongHndl<PxNode const> const& repeatMode,
                                     PxStrongHndl<PxNode const> const& lockDuration)
    : PxNode(init), _child(child), _inTime(valueNode<int>(inTime, "in-time")),
      _outTime(valueNode<int>(outTime, "out-time")),
      _repeatMode(valueNode<int>(repeatMode, "repeat mode")),
      _lockDuration(valueNode<bool>(lockDuration, "lock duration")) {
    if (_child.isNull())
        RCExUtil::throwExNullPtr(typeid(PxImageProtocol).name());
}

void PiImageRepeatNode::init() {
    PxImageProtocol::init();
    registerChild(_child);
    registerChild(_inTime);
    registerChild(_outTime);
    registerChild(_repeatMode);
    registerChild(_lockDuration);
    // Edits of the inputs may still be on their way to the workers: the inputs are read there,
    // after them.
    piRunOnWorker([this] {
        readFormat();
        readInterval();
        readMode();
        _lock = readAtZero(_lockDuration);
    });
    checkMode();
}

bool PiImageRepeatNode::readMode() const {
    bool const wasKnown = getRepeatModeInputPolicy()->isValid(_modeValue);
    _modeValue = readAtZero(_repeatMode);
    // An unknown value keeps the last known mode for the translations, which must not raise;
    // evaluation reports it.
    if (getRepeatModeInputPolicy()->isValid(_modeValue)) {
        _mode = static_cast<TmTypes::RepeatMode>(_modeValue);
        return wasKnown;
    }
    return false;
}

void PiImageRepeatNode::checkMode() const {
    if (!getRepeatModeInputPolicy()->isValid(_modeValue))
        VN_THROW_MSG(ExBase,
                     "PiImageRepeatNode: " + std::to_string(_modeValue) + " is no repeat mode");
}

void PiImageRepeatNode::readFormat() const {
    _format = _child->getImageFormat();
    _rate = _format.getFrameRate();
}

void PiImageRepeatNode::readInterval() const {
    std::int64_t in = readAtZero(_inTime);
    std::int64_t out = readAtZero(_outTime);
    // A rate without frames is reported when the node is evaluated, not in the middle of an
    // invalidation.
    if (_rate.getNumerator() > 0) {
        std::int64_t const lo = TmTimeUtil::getDtTimeFromSeconds(kNegInf, _rate);
        std::int64_t const hi = TmTimeUtil::getDtTimeFromSeconds(kPosInf, _rate);
        in = std::clamp(in, lo, hi);
        out = std::clamp(out, lo, hi);
    }
    _inIndex = in;
    _outIndex = out;
}

void PiImageRepeatNode::checkRange() const {
    // An out frame not after the in frame is no error: the range then lasts the in frame.
    TmTimeUtil::checkRate(_rate);
    checkMode();
}

double PiImageRepeatNode::seconds(std::int64_t index) const {
    return TmTimeUtil::getSecondsFromDtTime(index, _rate);
}

double PiImageRepeatNode::getFrameDuration() const {
    return TmTimeUtil::getFrameDuration(_rate);
}

PxValidityInterval PiImageRepeatNode::getRepeatInterval(int kind) const {
    double const a = seconds(_inIndex);
    double const b = seconds(_outIndex - 1);
    double const h = std::max(a, b);
    PxValidityInterval repeatInterval;
    switch (kind) {
    case 0:
        repeatInterval = a == h ? PxValidityInterval(a, h)
                                : PxValidityInterval(moved(a, kEpsilon), moved(h, -kEpsilon));
        break;
    case 1:
        repeatInterval = PxValidityInterval(a, h);
        break;
    case 2:
        repeatInterval = PxValidityInterval(moved(a, -kEpsilon), moved(h, kEpsilon));
        break;
    default:
        VN_ABORT("Unknown repeat interval kind.");
    }
    VN_ASSERT(repeatInterval.isNonEmpty());
    return repeatInterval;
}

PxValidityInterval PiImageRepeatNode::getOutsideValidity(double t) const {
    PxValidityInterval const r = getRepeatInterval(2);
    if (t < r.getLow())
        return {kNegInf, r.getLow()};
    // The upper bound is exclusive: a time on it is already outside.
    if (t >= r.getHigh())
        return {r.getHigh(), kPosInf};
    VN_ABORT("Current frame not outside generator interval.");
}

bool PiImageRepeatNode::isLockedOut(double t) const {
    return _mode == TmTypes::NO_REPEAT && _lock && !getRepeatInterval(2).contains(t);
}

double PiImageRepeatNode::getChildTime(double t) const {
    return getCurrentTime(t, seconds(_inIndex), seconds(_outIndex), getFrameDuration(), _mode);
}

PxValidityInterval PiImageRepeatNode::mapValidity(PxValidityInterval const& v, double t,
                                                  double c) const {
    if (!v.contains(c)) {
        std::ostringstream s;
        s.precision(17);
        s << "PiImageRepeatNode: " << dump(v) << " does not contain " << c;
        throw ExInternalError(__FILE__, __LINE__, s.str());
    }
    PxValidityInterval const r = getRepeatInterval(2);
    if (_mode == TmTypes::NO_REPEAT) {
        if (!_lock)
            return v;
        return r.contains(t) ? v.intersect(r) : getOutsideValidity(t);
    }
    std::int64_t const frames = _outIndex - _inIndex;
    if (frames <= 1)
        return PxValidityInterval::FULL;
    if (_mode == TmTypes::HOLD) {
        PxValidityInterval const inner = getRepeatInterval(1);
        bool const low = v.contains(inner.getLow());
        bool const high = v.contains(inner.getHigh());
        if (low && high)
            return PxValidityInterval::FULL;
        if (low)
            return {kNegInf, v.getHigh()};
        if (high)
            return {v.getLow(), kPosInf};
        return v;
    }
    PxValidityInterval const rd = r.getDiscreteInterval(_rate);
    PxValidityInterval const vd = v.getDiscreteInterval(_rate);
    if (vd.getLow() <= rd.getLow() && vd.getHigh() >= rd.getHigh())
        return PxValidityInterval::FULL;
    // The child's validity within the cycle the parent's time falls in: the child's time moves
    // with the parent's (or against it, backwards in Ping Pong) until either ends.
    double const h = getFrameDuration() * 0.5;
    double const cycleLow = seconds(_inIndex) - h;
    double const cycleHigh = std::max(seconds(_outIndex), seconds(_inIndex) + 2 * h) - h;
    double const a = c - std::max(v.getLow(), cycleLow);
    double const b = std::min(v.getHigh(), cycleHigh) - c;
    // Spans of a few ulps of the child's time can vanish in rounding at the parent's.
    // Workers read denormals as zero, so the time just after t must be a normal number.
    double next = std::nextafter(t, HUGE_VAL);
    if (std::fabs(next) < std::numeric_limits<double>::min())
        next = std::numeric_limits<double>::min();
    auto around = [t, next](double low, double high) {
        return PxValidityInterval(std::min(low, t), std::max(high, next));
    };
    if (_mode == TmTypes::PING_PONG) {
        // The pass getCurrentTime folded t into, so that the two agree on half frames.
        double const period = cycleHigh - cycleLow;
        // Backwards, the child's [low, high) is the parent's (t - b, t + a]: one step up in
        // doubles makes it half-open again.
        if (isBackwardPass(t - cycleLow, period))
            return around(std::nextafter(t - b, HUGE_VAL), std::nextafter(t + a, HUGE_VAL));
    }
    return around(t - a, t + b);
}

PxRODResult PiImageRepeatNode::getImageROD(PxTimeStreamContext const& context) const {
    checkRange();
    double const t = context.getTime();
    if (isLockedOut(t))
        return {GeRectangle<float>(), getOutsideValidity(t)};
    double const c = getChildTime(t);
    PxRODResult rod = _child->getImageROD(PxTimeStreamContext(c, context.getStream()));
    rod.setValidityInterval(mapValidity(rod.getValidityInterval(), t, c));
    return rod;
}

PxImageResult PiImageRepeatNode::getImageResult(PxImageContext const& context) const {
    VN_STACK_GUARD("PiImageRepeatNode::getImageResult");
    checkRange();
    double const t = context.getTime();
    if (isLockedOut(t))
        return {allocateEmptyImageBuffer(), getOutsideValidity(t)};
    double const c = getChildTime(t);
    PxImageResult result = _child->getImageResult(
        PxImageContext(c, context.getTile(), context.getScale(), context.getStream()));
    result.setValidityInterval(mapValidity(result.getValidityInterval(), t, c));
    return result;
}

// ---- invalidation ----

bool PiImageRepeatNode::propagateAndRemapInvalidation(PxValidityInterval* interval,
                                                      PxUPtr<PxNode const> const& from,
                                                      int* stream) const {
    PxNode const* sender = from.asNode();
    if (!sender)
        return true;
    if (sender == _repeatMode.get() || sender == _lockDuration.get()) {
        // The settings' own change reaches only the times outside the range, as invalidations
        // of their own; a stopped translation never reaches invalidateAndReinitialize, so it
        // runs from here.
        const_cast<PiImageRepeatNode*>(this)->invalidateAndReinitialize(*interval, from, *stream);
        return false;
    }
    if (sender == _child.get()) {
        if (!(_child->getImageFormat() == _format) || _rate.getNumerator() <= 0) {
            *interval = PxValidityInterval::FULL;
            return true;
        }
        PxValidityInterval const r = getRepeatInterval(2);
        PxValidityInterval i = interval->intersect(r);
        switch (_mode) {
        case TmTypes::HOLD:
            if (i.contains(r.getLow()))
                i = PxValidityInterval(kNegInf, i.getHigh());
            if (!i.isNonEmpty())
                return false;
            if (i.getHigh() == r.getHigh())
                i = PxValidityInterval(i.getLow(), kPosInf);
            *interval = i;
            return true;
        case TmTypes::NO_REPEAT:
            if (!_lock)
                return true;
            *interval = i;
            return i.isNonEmpty();
        case TmTypes::LOOP:
        case TmTypes::PING_PONG:
            *interval = i.isNonEmpty() ? PxValidityInterval::FULL : PxValidityInterval::EMPTY;
            return i.isNonEmpty();
        }
        VN_ABORT("Unknown loop mode.");
    }
    if (sender == _inTime.get() || sender == _outTime.get()) {
        if (_rate.getNumerator() <= 0) {
            readInterval();
            *interval = PxValidityInterval::FULL;
            return true;
        }
        PxValidityInterval const o = getRepeatInterval(2);
        readInterval();
        PxValidityInterval const n = getRepeatInterval(2);
        if (o.getDiscreteInterval(_rate) == n.getDiscreteInterval(_rate)) {
            *interval = PxValidityInterval::EMPTY;
            return false;
        }
        if (_mode == TmTypes::LOOP || _mode == TmTypes::PING_PONG) {
            *interval = PxValidityInterval::FULL;
            return true;
        }
        if (_mode == TmTypes::NO_REPEAT && !_lock) {
            *interval = PxValidityInterval::EMPTY;
            return false;
        }
        if (!o.intersect(n).isNonEmpty()) {
            *interval = PxValidityInterval::FULL;
            return true;
        }
        // One bound moves at a time: the times between its old and new place change.
        double const l0 = std::min(o.getLow(), n.getLow());
        double const l1 = std::max(o.getLow(), n.getLow());
        double const u0 = std::min(o.getHigh(), n.getHigh());
        double const u1 = std::max(o.getHigh(), n.getHigh());
        bool const lowMoved = l0 < l1;
        bool const highMoved = u0 < u1;
        if (lowMoved && highMoved)
            VN_ABORT("Old or new interval should never be inside the other one. ");
        if (!lowMoved && !highMoved)
            VN_ABORT("Both interals can not be empty simultanously");
        *interval = lowMoved ? PxValidityInterval(l0, l1) : PxValidityInterval(u0, u1);
        return true;
    }
    VN_ABORT("Unknown child got invalidated.");
}

void PiImageRepeatNode::invalidateOutside(int stream) const {
    if (_rate.getNumerator() <= 0)
        return invalidate(PxValidityInterval::FULL, stream);
    PxValidityInterval const r = getRepeatInterval(2);
    invalidate(PxValidityInterval(kNegInf, r.getLow()), stream);
    invalidate(PxValidityInterval(r.getHigh(), kPosInf), stream);
}

void PiImageRepeatNode::invalidateAndReinitialize(PxValidityInterval const& interval,
                                                  PxUPtr<PxNode const> const& from, int stream) {
    PxImageProtocol::invalidateAndReinitialize(interval, from, stream);
    PxNode const* sender = from.asNode();
    if (!sender || sender == _inTime.get() || sender == _outTime.get())
        return;
    if (sender == _child.get()) {
        readFormat();
        readInterval();
    } else if (sender == _repeatMode.get()) {
        // Only the times outside the range change between known modes; an unknown one fails
        // every time, and so is left for every time.
        if (readMode())
            invalidateOutside(stream);
        else
            invalidate(PxValidityInterval::FULL, stream);
    } else if (sender == _lockDuration.get()) {
        _lock = readAtZero(_lockDuration);
        if (_mode == TmTypes::NO_REPEAT)
            invalidateOutside(stream);
    }
}

// ---- time offset ----

PiImageTimeOffsetNode::PiImageTimeOffsetNode(PxNode::Init const& init,
                                             PxStrongHndl<PxImageProtocol const> const& child,
                                             PxStrongHndl<PxNode const> const& offset)
    : PxNode(init), PxImageNode(init, child), _offset(valueNode<int>(offset, "time offset")) {}

void PiImageTimeOffsetNode::init() {
    PxImageNode::init();
    registerChild(getPrimary());
    registerChild(_offset);
    piRunOnWorker([this] { readOffset(); });
}

void PiImageTimeOffsetNode::readOffset() {
    _rate = getImageFormat().getFrameRate();
    _offsetFrames = readAtZero(_offset);
    // A rate without frames is reported when the node is evaluated, not in an invalidation.
    _offsetSeconds = _rate.getNumerator() <= 0 ? 0.0
                                               : static_cast<double>(_offsetFrames) *
                                                     (static_cast<double>(_rate.getDenominator()) /
                                                      static_cast<double>(_rate.getNumerator()));
}

void PiImageTimeOffsetNode::checkRate() const {
    if (_offsetFrames != 0)
        TmTimeUtil::checkRate(_rate);
}

PxRODResult PiImageTimeOffsetNode::getImageROD(PxTimeStreamContext const& context) const {
    checkRate();
    PxRODResult rod = getPrimary()->getImageROD(
        PxTimeStreamContext(getOffsetTime(context.getTime(), _offsetSeconds), context.getStream()));
    rod.setValidityInterval(rod.getValidityInterval().shifted(-_offsetSeconds));
    return rod;
}

PxImageResult PiImageTimeOffsetNode::getImageResult(PxImageContext const& context) const {
    VN_STACK_GUARD("PiImageTimeOffsetNode::getImageResult");
    checkRate();
    PxImageResult result = getPrimary()->getImageResult(
        PxImageContext(getOffsetTime(context.getTime(), _offsetSeconds), context.getTile(),
                       context.getScale(), context.getStream()));
    result.setValidityInterval(result.getValidityInterval().shifted(-_offsetSeconds));
    return result;
}

bool PiImageTimeOffsetNode::propagateAndRemapInvalidation(PxValidityInterval* interval,
                                                          PxUPtr<PxNode const> const& from,
                                                          int*) const {
    if (from.asNode() == static_cast<PxNode const*>(getPrimary().get()))
        *interval = interval->shifted(-_offsetSeconds);
    return true;
}

void PiImageTimeOffsetNode::invalidateAndReinitialize(PxValidityInterval const& interval,
                                                      PxUPtr<PxNode const> const& from,
                                                      int stream) {
    PxImageNode::invalidateAndReinitialize(interval, from, stream);
    readOffset();
}

} // namespace Vn

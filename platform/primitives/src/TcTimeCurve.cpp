#include "TcTimeCurve.h"

#include "ExBase.h"
#include "TmTimeUtil.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace Vn {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

bool isInterpolation(int type) noexcept {
    return type >= TcTimeCurve::INTERP_CONSTANT && type <= TcTimeCurve::INTERP_BEZIER;
}
bool isExtrapolation(int type) noexcept {
    return type >= TcTimeCurve::EXTRAP_CONSTANT && type <= TcTimeCurve::EXTRAP_CYCLE_OFFSET;
}
bool isConstraint(int type) noexcept {
    return type >= TcTimeCurve::CONSTRAINT_BROKEN && type <= TcTimeCurve::CONSTRAINT_FLAT;
}

void checkExtrapolation(int type) {
    if (!isExtrapolation(type))
        VN_THROW_MSG(ExBase, "Unknown curve extrapolation " + std::to_string(type));
}
void checkInterpolation(int type) {
    if (!isInterpolation(type))
        VN_THROW_MSG(ExBase, "Unknown curve interpolation " + std::to_string(type));
}

bool isBadHandle(TcTimeCurve::Handle const& h) noexcept {
    return !std::isfinite(h.dt) || !std::isfinite(h.dv) || h.dt < 0.0;
}

std::string keyName(long long i) {
    return "Curve key " + std::to_string(i);
}

// Overflow of finite data must not leave the curve as NaN or infinity.
double saturate(double v, double fallback) noexcept {
    if (std::isnan(v))
        return fallback;
    if (std::isinf(v))
        return std::copysign(std::numeric_limits<double>::max(), v);
    return v;
}

// The parameter s in [0, 1] where a cubic Bezier with x controls 0, p1, p2, 1 (p1 and p2 in
// [0, 1], so x rises with s) reaches x = u. Newton's steps, kept inside a shrinking bracket.
double solveBezierX(double p1, double p2, double u) noexcept {
    double lo = 0.0;
    double hi = 1.0;
    double s = u;
    for (int iter = 0; iter < 64; ++iter) {
        double const r = 1.0 - s;
        double const x = 3.0 * r * r * s * p1 + 3.0 * r * s * s * p2 + s * s * s;
        double const f = x - u;
        if (std::fabs(f) <= 1e-15)
            break;
        if (f < 0.0)
            lo = s;
        else
            hi = s;
        if (!(hi - lo > 1e-16))
            break;
        double const d = 3.0 * r * r * p1 + 6.0 * r * s * (p2 - p1) + 3.0 * s * s * (1.0 - p2);
        double const next = d > 0.0 ? s - f / d : -1.0;
        s = (next > lo && next < hi) ? next : 0.5 * (lo + hi);
    }
    return s;
}

} // namespace

TcTimeCurve::TcTimeCurve(int extrapolation, int interpolation)
    : _extrapolation(extrapolation), _interpolation(interpolation) {
    checkExtrapolation(extrapolation);
    checkInterpolation(interpolation);
}

TcTimeCurve::TcTimeCurve(Vector<double> const& keyframes, Vector<int> const& interpolations,
                         Vector<int> const& constraints, int extrapolation, int interpolation)
    : TcTimeCurve(extrapolation, interpolation) {
    if (keyframes.size() % KEY_DATA_SIZE != 0)
        VN_THROW_MSG(ExBase, "Curve keyframes hold " + std::to_string(keyframes.size()) +
                                 " numbers, not a multiple of " + std::to_string(KEY_DATA_SIZE));
    std::size_t const n = keyframes.size() / KEY_DATA_SIZE;
    if (interpolations.size() != n)
        VN_THROW_MSG(ExBase, "Curve has " + std::to_string(n) + " keys but " +
                                 std::to_string(interpolations.size()) + " interpolations");
    if (constraints.size() != n)
        VN_THROW_MSG(ExBase, "Curve has " + std::to_string(n) + " keys but " +
                                 std::to_string(constraints.size()) + " constraints");
    _times.reserve(n);
    _keys.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        double const* d = keyframes.data() + i * KEY_DATA_SIZE;
        Key key{d[0], d[1], {d[2], d[3]}, {d[4], d[5]}, interpolations[i], constraints[i]};
        if (!std::isfinite(key.time) || !std::isfinite(key.value) || isBadHandle(key.in) ||
            isBadHandle(key.out)) {
            bool const finite =
                std::all_of(d, d + KEY_DATA_SIZE, [](double v) { return std::isfinite(v); });
            VN_THROW_MSG(ExBase,
                         keyName(static_cast<long long>(i)) +
                             (finite ? " has a handle going back in time" : " is not finite"));
        }
        if (i > 0 && !(_times.back() < key.time))
            VN_THROW_MSG(ExBase, keyName(static_cast<long long>(i)) + " does not follow key " +
                                     std::to_string(i - 1) + " in time");
        if (!isInterpolation(key.interpolation))
            VN_THROW_MSG(ExBase, keyName(static_cast<long long>(i)) +
                                     " has unknown interpolation " +
                                     std::to_string(key.interpolation));
        if (!isConstraint(key.constraint))
            VN_THROW_MSG(ExBase, keyName(static_cast<long long>(i)) + " has unknown constraint " +
                                     std::to_string(key.constraint));
        applyConstraint(key);
        _times.push_back(key.time);
        _keys.push_back(key);
    }
}

TcTimeCurve::~TcTimeCurve() = default;

RCPvtEngPtr<TcTimeCurve> TcTimeCurve::clone() const {
    return RCPvtEngPtr<TcTimeCurve>(new TcTimeCurve(*this));
}

void TcTimeCurve::setExtrapolationType(int type) {
    checkExtrapolation(type);
    _extrapolation = type;
}

void TcTimeCurve::setInterpolationType(int type) {
    checkInterpolation(type);
    _interpolation = type;
}

void TcTimeCurve::setKey(double seconds, double value) {
    if (!std::isfinite(seconds) || !std::isfinite(value))
        VN_THROW_MSG(ExBase, "A curve key needs a finite time and value");
    auto const at = std::lower_bound(_times.begin(), _times.end(), seconds);
    auto const index = at - _times.begin();
    if (at != _times.end() && *at == seconds) {
        _keys[index].value = value;
        return;
    }
    _times.insert(at, seconds);
    _keys.insert(_keys.begin() + index, Key{seconds, value, {}, {}, _interpolation});
}

bool TcTimeCurve::hasKey(double seconds) const noexcept {
    return std::binary_search(_times.begin(), _times.end(), seconds);
}

bool TcTimeCurve::removeKey(double seconds) {
    auto const at = std::lower_bound(_times.begin(), _times.end(), seconds);
    if (at == _times.end() || *at != seconds)
        return false;
    _keys.erase(_keys.begin() + (at - _times.begin()));
    _times.erase(at);
    return true;
}

Vector<double> TcTimeCurve::getKeyframeData() const {
    Vector<double> data;
    data.reserve(_keys.size() * KEY_DATA_SIZE);
    for (Key const& k : _keys)
        data.insert(data.end(), {k.time, k.value, k.in.dt, k.in.dv, k.out.dt, k.out.dv});
    return data;
}

Vector<int> TcTimeCurve::getInterpolationData() const {
    Vector<int> data;
    data.reserve(_keys.size());
    for (Key const& k : _keys)
        data.push_back(k.interpolation);
    return data;
}

Vector<int> TcTimeCurve::getConstraintData() const {
    Vector<int> data;
    data.reserve(_keys.size());
    for (Key const& k : _keys)
        data.push_back(k.constraint);
    return data;
}

void TcTimeCurve::checkIndex(int index) const {
    if (index < 0 || index >= getNbKeys())
        VN_THROW_MSG(ExBase, keyName(index) + " out of " + std::to_string(_keys.size()));
}

TcTimeCurve::Key const& TcTimeCurve::getKey(int index) const {
    checkIndex(index);
    return _keys[static_cast<std::size_t>(index)];
}

void TcTimeCurve::setKeyHandles(int index, Handle in, Handle out) {
    checkIndex(index);
    if (isBadHandle(in) || isBadHandle(out))
        VN_THROW_MSG(ExBase, keyName(index) + " needs finite handles that do not go back in time");
    Key& key = _keys[static_cast<std::size_t>(index)];
    key.in = in;
    key.out = out;
    applyConstraint(key);
}

void TcTimeCurve::setKeyInterpolation(int index, int type) {
    checkIndex(index);
    checkInterpolation(type);
    _keys[static_cast<std::size_t>(index)].interpolation = type;
}

void TcTimeCurve::setKeyConstraint(int index, int type) {
    checkIndex(index);
    if (!isConstraint(type))
        VN_THROW_MSG(ExBase, "Unknown curve constraint " + std::to_string(type));
    Key& key = _keys[static_cast<std::size_t>(index)];
    key.constraint = type;
    applyConstraint(key);
}

void TcTimeCurve::applyConstraint(Key& key) const noexcept {
    if (key.constraint == CONSTRAINT_FLAT) {
        key.in.dv = 0.0;
        key.out.dv = 0.0;
    } else if (key.constraint == CONSTRAINT_UNIFIED && key.in.dt > 0.0 && key.out.dt > 0.0) {
        double const dv = key.in.dv * (key.out.dt / key.in.dt);
        // A slope too steep to carry over to a longer handle mirrors the in handle instead.
        key.out = std::isfinite(dv) ? Handle{key.out.dt, dv} : key.in;
    }
}

bool TcTimeCurve::getNextKeyTime(double seconds, double& out) const noexcept {
    auto const at = std::upper_bound(_times.begin(), _times.end(), seconds);
    if (at == _times.end() || std::isnan(seconds))
        return false;
    out = *at;
    return true;
}

bool TcTimeCurve::getPreviousKeyTime(double seconds, double& out) const noexcept {
    auto const at = std::lower_bound(_times.begin(), _times.end(), seconds);
    if (at == _times.begin() || std::isnan(seconds))
        return false;
    out = *(at - 1);
    return true;
}

bool TcTimeCurve::getFirstKeyTime(double& out) const noexcept {
    if (_times.empty())
        return false;
    out = _times.front();
    return true;
}

bool TcTimeCurve::getLastKeyTime(double& out) const noexcept {
    if (_times.empty())
        return false;
    out = _times.back();
    return true;
}

double TcTimeCurve::secant(int i) const noexcept {
    auto const a = static_cast<std::size_t>(i);
    return (_keys[a + 1].value - _keys[a].value) / (_times[a + 1] - _times[a]);
}

// Monotone slopes (a weighted harmonic mean of the neighbouring secants, 0 at a turn), so a
// smooth segment stays between its keys' values.
double TcTimeCurve::smoothSlope(int i) const noexcept {
    int const n = getNbKeys();
    if (n < 2 || _keys[static_cast<std::size_t>(i)].constraint == CONSTRAINT_FLAT)
        return 0.0;
    if (i == 0)
        return secant(0);
    if (i == n - 1)
        return secant(n - 2);
    double const d0 = secant(i - 1);
    double const d1 = secant(i);
    if (!(d0 > 0.0 && d1 > 0.0) && !(d0 < 0.0 && d1 < 0.0))
        return 0.0;
    auto const a = static_cast<std::size_t>(i);
    double const h0 = _times[a] - _times[a - 1];
    double const h1 = _times[a + 1] - _times[a];
    double const w0 = 2.0 * h1 + h0;
    double const w1 = h1 + 2.0 * h0;
    return (w0 + w1) / (w0 / d0 + w1 / d1);
}

double TcTimeCurve::endSlope(bool atStart) const noexcept {
    int const n = getNbKeys();
    if (n < 2)
        return 0.0;
    int const segment = atStart ? 0 : n - 2;
    int const end = atStart ? 0 : n - 1;
    Key const& key = _keys[static_cast<std::size_t>(end)];
    switch (_keys[static_cast<std::size_t>(segment)].interpolation) {
    case INTERP_CONSTANT:
        return 0.0;
    case INTERP_LINEAR:
        return secant(segment);
    case INTERP_BEZIER: {
        Handle const& h = atStart ? key.out : key.in;
        if (h.dt > 0.0)
            return h.dv / h.dt;
        return smoothSlope(end);
    }
    default:
        return smoothSlope(end);
    }
}

double TcTimeCurve::evaluateSegment(int i, double t) const noexcept {
    auto const a = static_cast<std::size_t>(i);
    Key const& k0 = _keys[a];
    Key const& k1 = _keys[a + 1];
    double const h = _times[a + 1] - _times[a];
    double const u = std::clamp((t - _times[a]) / h, 0.0, 1.0);
    switch (k0.interpolation) {
    case INTERP_CONSTANT:
        return k0.value;
    case INTERP_LINEAR:
        return k0.value * (1.0 - u) + k1.value * u;
    case INTERP_SMOOTH: {
        double const m0 = smoothSlope(i) * h;
        double const m1 = smoothSlope(i + 1) * h;
        double const u2 = u * u;
        double const u3 = u2 * u;
        return (2 * u3 - 3 * u2 + 1) * k0.value + (u3 - 2 * u2 + u) * m0 +
               (-2 * u3 + 3 * u2) * k1.value + (u3 - u2) * m1;
    }
    default: {
        // Handles as fractions of the segment; an automatic one is a third of it along the
        // smooth slope.
        auto handle = [&](Handle const& hd, int key, double& frac, double& dv) {
            if (hd.dt > 0.0) {
                frac = std::min(hd.dt / h, 1.0);
                dv = hd.dv * (frac * h / hd.dt);
            } else {
                frac = 1.0 / 3.0;
                dv = smoothSlope(key) * h / 3.0;
            }
        };
        double p1 = 0.0, dv1 = 0.0, q2 = 0.0, dv2 = 0.0;
        handle(k0.out, i, p1, dv1);
        handle(k1.in, i + 1, q2, dv2);
        double const s = solveBezierX(p1, 1.0 - q2, u);
        double const r = 1.0 - s;
        return r * r * r * k0.value + 3.0 * r * r * s * (k0.value + dv1) +
               3.0 * r * s * s * (k1.value - dv2) + s * s * s * k1.value;
    }
    }
}

// t within [first key, last key].
double TcTimeCurve::evaluateWithin(double t) const noexcept {
    auto const next = std::upper_bound(_times.begin(), _times.end(), t);
    auto const i = static_cast<int>(next - _times.begin()) - 1;
    if (i >= getNbKeys() - 1)
        return _keys.back().value;
    return evaluateSegment(std::max(i, 0), t);
}

double TcTimeCurve::evaluateClamped(double t) const noexcept {
    double const first = _times.front();
    double const last = _times.back();
    if (t >= first && t <= last)
        return evaluateWithin(t);
    bool const before = t < first;
    Key const& end = before ? _keys.front() : _keys.back();
    switch (_extrapolation) {
    case EXTRAP_LINEAR:
        return end.value + endSlope(before) * (t - end.time);
    case EXTRAP_CYCLE:
    case EXTRAP_CYCLE_OFFSET: {
        double const span = last - first;
        if (!(span > 0.0))
            return end.value;
        double const cycles = std::floor((t - first) / span);
        if (!std::isfinite(cycles))
            return end.value;
        double const local = std::clamp(t - cycles * span, first, last);
        double v = evaluateWithin(local);
        if (_extrapolation == EXTRAP_CYCLE_OFFSET)
            v += cycles * (_keys.back().value - _keys.front().value);
        return v;
    }
    default:
        return end.value;
    }
}

double TcTimeCurve::evaluate(double seconds) const noexcept {
    if (_keys.empty())
        return 0.0;
    if (std::isnan(seconds))
        return _keys.front().value;
    double const t =
        std::clamp(seconds, TmTimeUtil::getNegInfinity(), TmTimeUtil::getPosInfinity());
    double const v = evaluateClamped(t);
    if (std::isfinite(v))
        return v;
    auto const next = std::upper_bound(_times.begin(), _times.end(), t);
    std::size_t const at = next == _times.begin() ? 0 : next - _times.begin() - 1;
    return saturate(v, _keys[at].value);
}

GeInterval<double> TcTimeCurve::getValidity(double seconds) const noexcept {
    if (std::isnan(seconds))
        return {};
    int const n = getNbKeys();
    if (n < 2)
        return {-kInf, kInf};
    // Beyond the timeline's infinities the value is the one at them.
    double const lowest = TmTimeUtil::getNegInfinity();
    double const highest = TmTimeUtil::getPosInfinity();
    if (seconds >= highest)
        return {highest, kInf};
    if (seconds <= lowest)
        return {-kInf, std::nextafter(lowest, kInf)};
    double const t = seconds;
    bool const levelBeyond =
        _extrapolation == EXTRAP_CONSTANT ||
        (_extrapolation == EXTRAP_LINEAR && endSlope(t < _times.front()) == 0.0);
    if (t < _times.front() && levelBeyond)
        return {-kInf, _times.front()};
    if (t >= _times.back() && levelBeyond)
        return {_times.back(), kInf};
    if (t >= _times.front() && t < _times.back()) {
        auto const next = std::upper_bound(_times.begin(), _times.end(), t);
        auto const i = static_cast<std::size_t>(next - _times.begin()) - 1;
        if (_keys[i].interpolation == INTERP_CONSTANT)
            return {_times[i], _times[i + 1]};
    }
    return {t, std::nextafter(t, kInf)};
}

} // namespace Vn

#pragma once

// The elliptical footprint of the EWA filters, and its walk in 32.32 fixed point: the
// quadratic form is advanced by additions only, so no pixel costs a multiplication apart from
// its weighting.

#include "IpFastMath.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace Vn::EWA {

// Scale of the form onto the table: a point on the ellipse lands on index 4095.5.
constexpr float kTableScale = 4095.5f;
constexpr std::int64_t kOne = std::int64_t(1) << 32;
constexpr std::int64_t kLimit = std::int64_t(4096) << 32;
// Footprint bounds in pixels squared: a radius of 128 at most, 0.1 at least, and 100:1 in
// radius between the axes. They keep every fixed-point value far from overflow.
constexpr float kMaxEigen = 16384.0f;
constexpr float kMinEigen = 0.01f;
constexpr float kMaxAnisotropy = 1e4f;

// The footprint scale of a filter of radius r at this blur: (blur r 4095.5 / 4095)^2.
inline float footprintScale(double blur, double radius) noexcept {
    double const v = blur * radius * 1.0001221001221001;
    return static_cast<float>(v * v);
}

// An eigenvalue bound from a blur in filter radii, kept within what the walk allows.
inline float eigenBound(double blur, double radius) noexcept {
    double const v = blur * radius;
    double const e = v * v;
    if (std::isnan(e))
        return 0.0f;
    return static_cast<float>(std::min(e, double(kMaxEigen)));
}

// The ellipse Ka dx^2 + 2 Kb dx dy + Kc dy^2 <= 1, with L = lambda1 lambda2 and the half
// extents along x and y.
struct Ellipse {
    float ka, kb, kc, l, xe, ye;
};

// From the covariance P, S, Q of a footprint, scaled by k and clamped into [lo, hi].
inline Ellipse makeEllipse(float p, float s, float q, float k, float lo, float hi) noexcept {
    float d = p - q;
    float t = 2.0f * s;
    float r2 = t * t + d * d;
    float sr = IpFastMath::rsqrt(std::max(r2, 1.1754944e-38f));
    float r = r2 * sr;
    float l1 = (p + q + r) * 0.5f * k;
    float l2 = (p + q - r) * 0.5f * k;
    if (!std::isfinite(p) || !std::isfinite(s) || !std::isfinite(q)) {
        // No footprint to speak of: the smallest circle allowed.
        d = t = 0.0f;
        sr = 0.0f;
        l1 = l2 = 0.0f;
    } else if (!std::isfinite(r2) || !std::isfinite(l1) || !std::isfinite(l2)) {
        // Too large for single precision: the same steps in double.
        double const dd = double(p) - double(q);
        double const td = 2.0 * double(s);
        double const rd = std::sqrt(td * td + dd * dd);
        double const inv = rd > 0.0 ? 1.0 / rd : 0.0;
        l1 = static_cast<float>(std::min((double(p) + double(q) + rd) * 0.5 * k, 1e30));
        l2 = static_cast<float>(std::min((double(p) + double(q) - rd) * 0.5 * k, 1e30));
        d = static_cast<float>(dd * inv);
        t = static_cast<float>(td * inv);
        sr = 1.0f;
    }
    // max first, so that NaN lands on the lower bound.
    l1 = std::min(hi, std::max(lo, l1));
    l2 = std::min(hi, std::max(lo, l2));
    l1 = std::max(l1, kMinEigen);
    l2 = std::max(l2, std::max(kMinEigen, l1 / kMaxAnisotropy));
    float const i1 = IpFastMath::rcp(l1);
    float const i2 = IpFastMath::rcp(l2);
    float const sum = i1 + i2;
    float const diff = i1 - i2;
    Ellipse e;
    e.ka = (sum + d * sr * diff) * 0.5f;
    e.kc = (sum - d * sr * diff) * 0.5f;
    e.kb = diff * 0.5f * (t * sr);
    e.l = l1 * l2;
    e.xe = std::sqrt(std::max(e.kc * e.l, 0.0f));
    e.ye = std::sqrt(std::max(e.ka * e.l, 0.0f));
    return e;
}

// A double to fixed point, truncated, saturating far beyond any value a walk reaches.
inline std::int64_t toFixed(double v) noexcept {
    constexpr double kMax = 4.0e18;
    v *= 4294967296.0;
    if (!(v > -kMax))
        return v != v ? 0 : -std::int64_t(kMax);
    if (v > kMax)
        return std::int64_t(kMax);
    return static_cast<std::int64_t>(v);
}

// Strict bounds of the doubles used by the walks, kept within int's range.
inline int lowerBound(double v) noexcept {
    v = std::min(1e9, std::max(-1e9, v));
    int const i = static_cast<int>(v);
    return v > 0.0 ? i + 1 : i;
}
inline int upperBound(double v) noexcept {
    v = std::min(1e9, std::max(-1e9, v));
    int const i = static_cast<int>(v);
    return v < 0.0 ? i - 1 : i;
}

// The walk over one ellipse. The outer axis v runs along the rows when Kc >= Ka (the longer
// chords are then horizontal), else along the columns; u is the other axis.
struct Walk {
    bool rowsOuter;
    int uStart; // first inner position, at the extreme point along u
    int uLimit; // last inner position that may be read
    int vStart; // the row (or column) of that extreme point
    int vLow;
    int vHigh;
    std::int64_t q;
    std::int64_t dqi; // q one step along u minus q
    std::int64_t dqo; // q one step along v minus q
    std::int64_t ddi; // second differences: along u, along v, across
    std::int64_t ddo;
    std::int64_t ddx;
};

struct Axes {
    bool rowsOuter;
    float ku, kv, kb; // unscaled coefficients of u^2, v^2 and 2uv
    float ue, ve;     // half extents along u and v
};

inline Axes axesOf(Ellipse const& e) noexcept {
    if (e.kc >= e.ka)
        return {true, e.ka, e.kc, e.kb, e.xe, e.ye};
    return {false, e.kc, e.ka, e.kb, e.ye, e.xe};
}

// The fixed-point state at offset (du0, dv0) from the centre.
inline void initState(Walk& w, Axes const& a, double du0, double dv0) noexcept {
    float const ku = kTableScale * a.ku;
    float const kv = kTableScale * a.kv;
    float const kb = kTableScale * a.kb;
    double const dku = ku;
    double const dkv = kv;
    double const dkb = kb;
    w.q = toFixed(dku * du0 * du0 + 2.0 * dkb * du0 * dv0 + dkv * dv0 * dv0 + 0.5);
    w.dqi = toFixed(2.0 * dku * du0 + dku + 2.0 * dkb * dv0);
    w.dqo = toFixed(2.0 * dkb * du0 + 2.0 * dkv * dv0 + dkv);
    w.ddi = toFixed(double(2.0f * ku));
    w.ddo = toFixed(double(2.0f * kv));
    w.ddx = toFixed(double(2.0f * kb));
}

// The walk around an integer centre (cu, cv) on the axes.
inline Walk makeWalk(Axes const& a, int cu, int cv) noexcept {
    Walk w;
    w.rowsOuter = a.rowsOuter;
    int const ur = static_cast<int>(a.ue);
    int const vr = static_cast<int>(a.ve);
    // The row at or below the extreme point: a sweep that crossed the point would carry an
    // inner start past pixels of the rows beyond it.
    int const vs = static_cast<int>(std::floor(a.kb * a.ue / a.kv));
    w.uStart = cu - ur;
    w.uLimit = cu + ur + 1;
    w.vStart = cv + vs;
    w.vLow = cv - vr;
    w.vHigh = cv + vr;
    initState(w, a, -ur, vs);
    return w;
}

// The walk around a centre (pu, pv) anywhere.
inline Walk makeWalk(Axes const& a, double pu, double pv) noexcept {
    Walk w;
    w.rowsOuter = a.rowsOuter;
    w.uStart = lowerBound(pu - a.ue);
    w.uLimit = upperBound(pu + a.ue) + 1;
    w.vLow = lowerBound(pv - a.ve);
    w.vHigh = upperBound(pv + a.ve);
    w.vStart = upperBound(pv + double(a.kb * a.ue / a.kv));
    initState(w, a, w.uStart - pu, w.vStart - pv);
    return w;
}

// Visits every row (or column) of the ellipse that has pixels: row(v, u, q, dqi) gets the
// first inner position and the state there, and walks the chord itself, stepping q by dqi
// and dqi by ddi until q >> 32 reaches 4096. The inner start moves only right within a sweep:
// away from the extreme point the ellipse's near edge only recedes.
template <class Row>
inline void sweep(Walk const& w, Row&& row) {
    for (int dir = -1; dir <= 1; dir += 2) {
        std::int64_t q = w.q;
        std::int64_t dqi = w.dqi;
        std::int64_t dqo = w.dqo;
        int u = w.uStart;
        int v = w.vStart;
        if (dir > 0) {
            q += dqo;
            dqo += w.ddo;
            dqi += w.ddx;
            ++v;
        }
        while (dir < 0 ? v >= w.vLow : v <= w.vHigh) {
            // A row whose chord holds no pixel leaves the inner start where it was: the next
            // row's chord may begin left of where this one's search ended.
            std::int64_t sq = q;
            std::int64_t sdqi = dqi;
            std::int64_t sdqo = dqo;
            int su = u;
            while (sq >= kLimit && sdqi < 0 && su <= w.uLimit) {
                sq += sdqi;
                sdqi += w.ddi;
                sdqo += w.ddx;
                ++su;
            }
            if (sq < kLimit) {
                q = sq;
                dqi = sdqi;
                dqo = sdqo;
                u = su;
                row(v, u, q, dqi);
            }
            if (dir < 0) {
                dqo -= w.ddo;
                dqi -= w.ddx;
                q -= dqo;
                --v;
            } else {
                q += dqo;
                dqo += w.ddo;
                dqi += w.ddx;
                ++v;
            }
        }
    }
}

} // namespace Vn::EWA

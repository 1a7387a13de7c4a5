#include "TcTimeCurve.h"

#include "ExBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace Vn;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct RefKey {
    double t, v, inDt, inDv, outDt, outDv;
    int interp, constraint;
};

// A second evaluation of the same curve, written from the formulas with other methods than the
// class: segments found by scanning, Bezier points by de Casteljau and bisection, end slopes by
// differences.
struct Reference {
    std::vector<RefKey> keys;
    int extrap;

    static RefKey constrained(RefKey k) {
        if (k.constraint == 2)
            k.inDv = k.outDv = 0;
        if (k.constraint == 1 && k.inDt > 0 && k.outDt > 0)
            k.outDv = k.outDt * (k.inDv / k.inDt);
        return k;
    }
    double slope(std::size_t i) const {
        std::size_t const n = keys.size();
        auto sec = [&](std::size_t a) {
            return (keys[a + 1].v - keys[a].v) / (keys[a + 1].t - keys[a].t);
        };
        if (keys[i].constraint == 2)
            return 0;
        if (i == 0)
            return sec(0);
        if (i == n - 1)
            return sec(n - 2);
        double const d0 = sec(i - 1), d1 = sec(i);
        if (d0 * d1 <= 0)
            return 0;
        double const h0 = keys[i].t - keys[i - 1].t, h1 = keys[i + 1].t - keys[i].t;
        // Weighted harmonic mean of the two secants.
        return 3 * (h0 + h1) / ((2 * h1 + h0) / d0 + (h1 + 2 * h0) / d1);
    }
    static double lerp(double a, double b, double s) { return a + (b - a) * s; }
    static double casteljau(double p0, double p1, double p2, double p3, double s) {
        double const a = lerp(p0, p1, s), b = lerp(p1, p2, s), c = lerp(p2, p3, s);
        return lerp(lerp(a, b, s), lerp(b, c, s), s);
    }
    double inside(double t) const {
        std::size_t i = 0;
        while (i + 1 < keys.size() && keys[i + 1].t <= t)
            ++i;
        if (i + 1 == keys.size())
            return keys.back().v;
        RefKey const a = constrained(keys[i]), b = constrained(keys[i + 1]);
        double const h = b.t - a.t, u = (t - a.t) / h;
        switch (a.interp) {
        case 0:
            return a.v;
        case 1:
            return lerp(a.v, b.v, u);
        case 2: {
            double const m0 = slope(i) * h, m1 = slope(i + 1) * h;
            return (1 + 2 * u) * (1 - u) * (1 - u) * a.v + u * (1 - u) * (1 - u) * m0 +
                   u * u * (3 - 2 * u) * b.v - u * u * (1 - u) * m1;
        }
        default: {
            double odt = a.outDt, odv = a.outDv, idt = b.inDt, idv = b.inDv;
            if (odt == 0)
                odt = h / 3, odv = slope(i) * h / 3;
            else if (odt > h)
                odv *= h / odt, odt = h;
            if (idt == 0)
                idt = h / 3, idv = slope(i + 1) * h / 3;
            else if (idt > h)
                idv *= h / idt, idt = h;
            double lo = 0, hi = 1;
            for (int k = 0; k < 200; ++k) {
                double const mid = 0.5 * (lo + hi);
                (casteljau(a.t, a.t + odt, b.t - idt, b.t, mid) < t ? lo : hi) = mid;
            }
            return casteljau(a.v, a.v + odv, b.v - idv, b.v, 0.5 * (lo + hi));
        }
        }
    }
    double operator()(double t) const {
        double const t0 = keys.front().t, tn = keys.back().t, span = tn - t0;
        if (t >= t0 && t <= tn)
            return inside(t);
        bool const before = t < t0;
        double const te = before ? t0 : tn, ve = before ? keys.front().v : keys.back().v;
        switch (extrap) {
        case 1: {
            // The slope just inside the end, so a step's jump onto the last key counts as level.
            double const eps = span * 1e-7;
            double const d = before ? (inside(t0 + 2 * eps) - inside(t0 + eps)) / eps
                                    : (inside(tn - eps) - inside(tn - 2 * eps)) / eps;
            return ve + d * (t - te);
        }
        case 2:
        case 3: {
            double const k = std::floor((t - t0) / span);
            return inside(t - k * span) + (extrap == 3 ? k * (keys.back().v - keys.front().v) : 0);
        }
        default:
            return ve;
        }
    }
};

TcTimeCurve makeCurve(std::vector<RefKey> const& keys, int extrap) {
    Vector<double> data;
    Vector<int> interps, constraints;
    for (RefKey const& k : keys) {
        data.insert(data.end(), {k.t, k.v, k.inDt, k.inDv, k.outDt, k.outDv});
        interps.push_back(k.interp);
        constraints.push_back(k.constraint);
    }
    return TcTimeCurve(data, interps, constraints, extrap, TcTimeCurve::INTERP_SMOOTH);
}

// Uneven spacing, a rise, a turn, a plateau and a fall; handles explicit, automatic, too long
// for their segment, flat and unified.
std::vector<RefKey> keysOf(int interp) {
    return {{0.0, 0.0, 0.0, 0.0, 0.4, 1.5, interp, 0},
            {1.0, 2.0, 0.0, 0.0, 0.0, 0.0, interp, 0},
            {2.5, 1.0, 0.5, -0.5, 3.0, 0.25, interp, 1},
            {3.0, 1.5, 0.2, 0.6, 0.0, 0.0, interp, 0},
            {5.0, 4.0, 0.5, 1.0, 0.6, 2.0, interp, 2}};
}

std::string reasonOf(Vector<double> const& data, Vector<int> const& interps,
                     Vector<int> const& constraints, int extrap = 0, int interp = 2) {
    try {
        TcTimeCurve const c(data, interps, constraints, extrap, interp);
        return "accepted";
    } catch (ExBase const& e) {
        return e.getReason();
    }
}

} // namespace

TEST(TcTimeCurve, EachInterpolationAndExtrapolationAgreesWithTheFormulas) {
    std::vector<std::vector<RefKey>> curves;
    for (int interp = 0; interp <= 3; ++interp)
        curves.push_back(keysOf(interp));
    std::vector<RefKey> mixed = keysOf(3);
    for (int i = 0; i < 4; ++i)
        mixed[i].interp = (i + 1) % 4;
    curves.push_back(mixed);

    std::vector<double> times{-7.9, -0.3, 5.4, 16.2, 30.0};
    for (RefKey const& k : curves[0])
        times.push_back(k.t);
    for (std::size_t i = 0; i + 1 < curves[0].size(); ++i)
        for (double f : {0.25, 0.5, 0.9})
            times.push_back(curves[0][i].t + f * (curves[0][i + 1].t - curves[0][i].t));

    for (std::size_t c = 0; c < curves.size(); ++c) {
        for (int extrap = 0; extrap <= 3; ++extrap) {
            TcTimeCurve const curve = makeCurve(curves[c], extrap);
            Reference const ref{curves[c], extrap};
            for (double t : times) {
                // The reference's end slope is a difference quotient: looser the further out.
                double const beyond = std::max({0.0, curves[c][0].t - t, t - curves[c].back().t});
                EXPECT_NEAR(curve.evaluate(t), ref(t), 1e-6 * (1 + 10 * beyond))
                    << "curve " << c << " extrapolation " << extrap << " at " << t;
            }
        }
    }
}

TEST(TcTimeCurve, ShapesOfTheInterpolations) {
    // Smooth never leaves the range of its two keys, even around a turn.
    TcTimeCurve const smooth = makeCurve(keysOf(2), 0);
    for (int i = 0; i + 1 < smooth.getNbKeys(); ++i) {
        auto const a = smooth.getKey(i), b = smooth.getKey(i + 1);
        for (double f = 0; f <= 1.0; f += 1.0 / 64) {
            double const v = smooth.evaluate(a.time + f * (b.time - a.time));
            EXPECT_GE(v, std::min(a.value, b.value) - 1e-12) << i << " " << f;
            EXPECT_LE(v, std::max(a.value, b.value) + 1e-12) << i << " " << f;
        }
    }
    // Automatic Bezier handles give the smooth curve; a constant segment holds up to the next key.
    std::vector<RefKey> autoKeys = keysOf(3);
    for (RefKey& k : autoKeys)
        k.inDt = k.outDt = 0;
    TcTimeCurve const autoBezier = makeCurve(autoKeys, 0);
    for (double t = 0; t <= 5; t += 0.125)
        EXPECT_NEAR(autoBezier.evaluate(t), smooth.evaluate(t), 1e-9) << t;
    TcTimeCurve const step = makeCurve(keysOf(0), 0);
    EXPECT_EQ(step.evaluate(std::nextafter(1.0, 0.0)), 0.0);
    EXPECT_EQ(step.evaluate(1.0), 2.0);
    // Two keys, linear: the exact line and its continuation.
    TcTimeCurve line(TcTimeCurve::EXTRAP_LINEAR, TcTimeCurve::INTERP_LINEAR);
    line.setKey(2.0, 10.0);
    line.setKey(4.0, 20.0);
    EXPECT_EQ(line.evaluate(3.0), 15.0);
    EXPECT_EQ(line.evaluate(6.0), 30.0);
    EXPECT_EQ(line.evaluate(0.0), 0.0);
}

TEST(TcTimeCurve, MalformedStoredDataIsRefusedWithTheFirstFault) {
    Vector<double> const one{1.0, 2.0, 0.0, 0.0, 0.0, 0.0};
    Vector<double> two = one;
    two.insert(two.end(), {3.0, 4.0, 0.0, 0.0, 0.0, 0.0});
    auto with = [&](std::size_t at, double v) {
        Vector<double> d = two;
        d[at] = v;
        return d;
    };
    struct Row {
        Vector<double> data;
        Vector<int> interps, constraints;
        int extrap, interp;
        std::string reason;
    } const rows[] = {
        {{}, {}, {}, 0, 2, "accepted"},
        {two, {0, 3}, {2, 1}, 3, 0, "accepted"},
        {{1.0, 2.0, 3.0}, {}, {}, 0, 2, "Curve keyframes hold 3 numbers, not a multiple of 6"},
        {two, {2}, {0, 0}, 0, 2, "Curve has 2 keys but 1 interpolations"},
        {two, {2, 2}, {0, 0, 0}, 0, 2, "Curve has 2 keys but 3 constraints"},
        {with(7, kNaN), {2, 2}, {0, 0}, 0, 2, "Curve key 1 is not finite"},
        {with(0, -kInf), {2, 2}, {0, 0}, 0, 2, "Curve key 0 is not finite"},
        {with(11, kInf), {2, 2}, {0, 0}, 0, 2, "Curve key 1 is not finite"},
        {with(6, 1.0), {2, 2}, {0, 0}, 0, 2, "Curve key 1 does not follow key 0 in time"},
        {with(6, 0.5), {2, 2}, {0, 0}, 0, 2, "Curve key 1 does not follow key 0 in time"},
        {with(4, -0.1), {2, 2}, {0, 0}, 0, 2, "Curve key 0 has a handle going back in time"},
        {two, {2, 4}, {0, 0}, 0, 2, "Curve key 1 has unknown interpolation 4"},
        {two, {-1, 2}, {0, 0}, 0, 2, "Curve key 0 has unknown interpolation -1"},
        {two, {2, 2}, {0, 3}, 0, 2, "Curve key 1 has unknown constraint 3"},
        {two, {2, 2}, {0, 0}, 4, 2, "Unknown curve extrapolation 4"},
        {two, {2, 2}, {0, 0}, 0, -1, "Unknown curve interpolation -1"},
    };
    for (Row const& r : rows)
        EXPECT_EQ(reasonOf(r.data, r.interps, r.constraints, r.extrap, r.interp), r.reason);
}

TEST(TcTimeCurve, KeysEditsAndStoredDataRoundTrip) {
    TcTimeCurve curve;
    EXPECT_TRUE(curve.isEmpty());
    EXPECT_EQ(curve.evaluate(3.0), 0.0);
    EXPECT_EQ(curve.getExtrapolationType(), 0);
    EXPECT_EQ(curve.getInterpolationType(), 2);
    curve.setKey(2.0, 5.0);
    curve.setKey(-1.0, 1.0);
    curve.setKey(0.5, 3.0);
    curve.setKey(2.0, 6.0); // replaces
    EXPECT_EQ(curve.getNbKeys(), 3);
    EXPECT_EQ(curve.getKeyframeData(),
              (Vector<double>{-1, 1, 0, 0, 0, 0, 0.5, 3, 0, 0, 0, 0, 2, 6, 0, 0, 0, 0}));
    EXPECT_EQ(curve.getConstraintData(), (Vector<int>{1, 1, 1}));
    EXPECT_TRUE(curve.hasKey(0.5));
    EXPECT_FALSE(curve.hasKey(std::nextafter(0.5, 1.0)));
    EXPECT_THROW(curve.setKey(kNaN, 1.0), ExBase);
    EXPECT_THROW(curve.setKey(1.0, kInf), ExBase);
    EXPECT_THROW(curve.setExtrapolationType(7), ExBase);

    // New keys take the curve's interpolation type; existing keys keep theirs.
    curve.setInterpolationType(TcTimeCurve::INTERP_LINEAR);
    curve.setKey(4.0, 0.0);
    EXPECT_EQ(curve.getInterpolationData(), (Vector<int>{2, 2, 2, 1}));

    double at = 0;
    EXPECT_TRUE(curve.getNextKeyTime(0.5, at));
    EXPECT_EQ(at, 2.0);
    EXPECT_TRUE(curve.getPreviousKeyTime(0.5, at));
    EXPECT_EQ(at, -1.0);
    EXPECT_FALSE(curve.getNextKeyTime(4.0, at));
    EXPECT_FALSE(curve.getPreviousKeyTime(-1.0, at));
    EXPECT_TRUE(curve.getLastKeyTime(at));
    EXPECT_EQ(at, 4.0);

    // Constraints hold after every edit: unified carries the in slope, flat levels both.
    curve.setKeyInterpolation(1, TcTimeCurve::INTERP_BEZIER);
    curve.setKeyHandles(1, {0.5, 1.0}, {0.25, 7.0});
    EXPECT_EQ(curve.getKey(1).out, (TcTimeCurve::Handle{0.25, 0.5}));
    curve.setKeyConstraint(1, TcTimeCurve::CONSTRAINT_BROKEN);
    curve.setKeyHandles(1, {0.5, 1.0}, {0.25, 7.0});
    EXPECT_EQ(curve.getKey(1).out, (TcTimeCurve::Handle{0.25, 7.0}));
    curve.setKeyConstraint(1, TcTimeCurve::CONSTRAINT_FLAT);
    EXPECT_EQ(curve.getKey(1).in, (TcTimeCurve::Handle{0.5, 0.0}));
    EXPECT_EQ(curve.getKey(1).out, (TcTimeCurve::Handle{0.25, 0.0}));
    EXPECT_THROW(curve.setKeyHandles(1, {-0.5, 1.0}, {}), ExBase);
    EXPECT_THROW(curve.getKey(4), ExBase);
    EXPECT_THROW(curve.setKeyInterpolation(-1, 0), ExBase);

    // Its three arrays and two types rebuild the same curve.
    curve.setExtrapolationType(TcTimeCurve::EXTRAP_CYCLE_OFFSET);
    TcTimeCurve const copy(curve.getKeyframeData(), curve.getInterpolationData(),
                           curve.getConstraintData(), curve.getExtrapolationType(),
                           curve.getInterpolationType());
    for (double t = -10; t <= 10; t += 0.37)
        EXPECT_EQ(copy.evaluate(t), curve.evaluate(t)) << t;

    EXPECT_TRUE(curve.removeKey(0.5));
    EXPECT_FALSE(curve.removeKey(0.5));
    EXPECT_EQ(curve.getNbKeys(), 3);
    EXPECT_FALSE(curve.hasTimeTransform());

    // A clone is a copy: changing it leaves the shared curve as it was.
    RCPvtEngPtr<TcTimeCurve> const shared(new TcTimeCurve(copy));
    RCPvtEngPtr<TcTimeCurve> const mine = shared->clone();
    mine->setKey(2.0, 100.0);
    EXPECT_EQ(shared->evaluate(2.0), 6.0);
    EXPECT_EQ(mine->evaluate(2.0), 100.0);
}

TEST(TcTimeCurve, NonFiniteTimesAndExtremeValuesGiveFiniteValues) {
    TcTimeCurve curve(TcTimeCurve::EXTRAP_LINEAR, TcTimeCurve::INTERP_LINEAR);
    curve.setKey(1.0, 2.0);
    curve.setKey(3.0, 6.0);
    EXPECT_EQ(curve.evaluate(kNaN), 2.0);
    EXPECT_EQ(curve.evaluate(kInf), curve.evaluate(31536000.0));
    EXPECT_EQ(curve.evaluate(-kInf), curve.evaluate(-31536000.0));
    EXPECT_EQ(curve.evaluate(1e300), 2.0 + 2.0 * (31536000.0 - 1.0));

    // Values at the ends of the doubles' range, steep tangents, cycles of a tiny span.
    double const big = std::numeric_limits<double>::max();
    for (int interp = 0; interp <= 3; ++interp) {
        for (int extrap = 0; extrap <= 3; ++extrap) {
            TcTimeCurve c = makeCurve({{0.0, -big, 0, 0, 1e-300, big, interp, 0},
                                       {1e-300, big, 0, 0, 0, 0, interp, 0},
                                       {2e-300, -big, 1e-300, big, 0, 0, interp, 0}},
                                      extrap);
            for (double t : {-kInf, -1e7, 0.0, 5e-301, 1.5e-300, 1.0, 1e7, kInf, kNaN})
                EXPECT_TRUE(std::isfinite(c.evaluate(t))) << interp << extrap << " at " << t;
        }
    }
}

TEST(TcTimeCurve, ValidityIsTheSpanWhereTheValueCannotChange) {
    TcTimeCurve curve = makeCurve({{0, 1, 0, 0, 0, 0, 0, 0},
                                   {1, 2, 0, 0, 0, 0, 1, 0},
                                   {2, 3, 0, 0, 0, 0, 0, 0},
                                   {3, 3, 0, 0, 0, 0, 2, 0}},
                                  TcTimeCurve::EXTRAP_CONSTANT);
    double const t9 = 31536000.0;
    struct Row {
        int extrap;
        double t, low, high;
    } const rows[] = {
        {0, 0.5, 0, 1},
        {0, 0.0, 0, 1},
        {0, 1.5, 1.5, std::nextafter(1.5, 2.0)},
        {0, 2.0, 2, 3},
        {0, 3.0, 3, kInf},
        {0, 50, 3, kInf},
        {0, -5, -kInf, 0},
        {1, -5, -kInf, 0},
        {2, -5, -5, std::nextafter(-5.0, 0.0)},
        {2, 1e9, t9, kInf},
        {2, -1e9, -kInf, std::nextafter(-t9, 0.0)},
    };
    for (Row const& r : rows) {
        curve.setExtrapolationType(r.extrap);
        GeInterval<double> const v = curve.getValidity(r.t);
        EXPECT_EQ(v, GeInterval<double>(r.low, r.high)) << r.extrap << " at " << r.t;
        EXPECT_TRUE(v.contains(r.t));
        // Wherever it says so, the value is the same.
        if (!std::isfinite(v.length()) || v.length() < 1e-9)
            continue;
        for (double f : {0.0, 0.3, 0.999})
            EXPECT_EQ(curve.evaluate(v.first + f * (v.second - v.first)), curve.evaluate(r.t));
    }
    EXPECT_TRUE(curve.getValidity(kNaN).isEmpty());
    EXPECT_EQ(TcTimeCurve().getValidity(4.0), GeInterval<double>(-kInf, kInf));
}

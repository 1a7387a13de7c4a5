// Arbitrary stored curve arrays to the curve loader. Bad arrays must raise ExBase; a curve that
// loads must give finite values at every time, rebuild itself from its own arrays, and stay
// sorted under edits.
//
// Input: extrapolation, interpolation, mode, key count, then the arrays. Mode bit 0 takes the
// three array lengths from the next three bytes instead of the key count; bit 1 makes keys from
// small whole numbers (gaps and values), so that most inputs load and the evaluation is explored.
#include "ExBase.h"
#include "FuzzCheck.h"
#include "TcTimeCurve.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace Vn;

namespace {
struct Reader {
    uint8_t const* data;
    size_t size;
    size_t pos = 0;
    uint8_t byte() { return pos < size ? data[pos++] : 0; }
    double rawDouble() {
        double v = 0;
        if (pos + sizeof v <= size) {
            std::memcpy(&v, data + pos, sizeof v);
            pos += sizeof v;
        }
        return v;
    }
    // Usually a small number; now and then one of the raw bits.
    double tameDouble() {
        uint8_t const b = byte();
        if (b == 0xff)
            return rawDouble();
        return (static_cast<int>(b) - 64) / 4.0;
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in{data, size};
    int const extrapolation = static_cast<int8_t>(in.byte()) % 5;
    int const interpolation = static_cast<int8_t>(in.byte()) % 5;
    uint8_t const mode = in.byte();
    size_t const keys = in.byte() % 64;
    size_t nDoubles = keys * TcTimeCurve::KEY_DATA_SIZE, nInterps = keys, nConstraints = keys;
    if (mode & 1) {
        nDoubles = in.byte();
        nInterps = in.byte() % 64;
        nConstraints = in.byte() % 64;
    }
    bool const tame = (mode & 2) != 0;
    Vector<double> keyframes;
    double time = 0;
    for (size_t i = 0; i < nDoubles; ++i) {
        if (!tame) {
            keyframes.push_back(in.rawDouble());
            continue;
        }
        double const v = in.tameDouble();
        // Times as a running sum of gaps, handle dt as magnitudes: sorted and forward, mostly.
        int const field = static_cast<int>(i % TcTimeCurve::KEY_DATA_SIZE);
        if (field == 0)
            keyframes.push_back(time += std::fabs(v) + (mode & 4 ? 0.0 : 0.125));
        else if (field == 2 || field == 4)
            keyframes.push_back(mode & 8 ? v : std::fabs(v));
        else
            keyframes.push_back(v);
    }
    Vector<int> interps, constraints;
    for (size_t i = 0; i < nInterps; ++i)
        interps.push_back(tame ? in.byte() % 4 : static_cast<int8_t>(in.byte()));
    for (size_t i = 0; i < nConstraints; ++i)
        constraints.push_back(tame ? in.byte() % 3 : static_cast<int8_t>(in.byte()));

    RCPvtEngPtr<TcTimeCurve> curve;
    try {
        curve = RCPvtEngPtr<TcTimeCurve>(
            new TcTimeCurve(keyframes, interps, constraints, extrapolation, interpolation));
    } catch (ExBase const&) {
        return 0;
    }

    TcTimeCurve const again(curve->getKeyframeData(), curve->getInterpolationData(),
                            curve->getConstraintData(), curve->getExtrapolationType(),
                            curve->getInterpolationType());
    auto probe = [&](double t) {
        double const v = curve->evaluate(t);
        fuzzCheck(std::isfinite(v));
        fuzzCheck(v == again.evaluate(t));
        GeInterval<double> const valid = curve->getValidity(t);
        fuzzCheck(std::isnan(t) || valid.contains(t) || t == INFINITY);
    };
    double const specials[] = {NAN, INFINITY, -INFINITY, 0.0, -1e300, 1e300, 4e7, -4e7};
    for (double t : specials)
        probe(t);
    int const n = curve->getNbKeys();
    for (int i = 0; i < n; ++i) {
        double const t = curve->getKey(i).time;
        fuzzCheck(curve->hasKey(t));
        probe(t);
        probe(std::nextafter(t, INFINITY));
        if (i + 1 < n)
            probe(t + 0.37 * (curve->getKey(i + 1).time - t));
        if (n > 1) {
            double const span = curve->getKey(n - 1).time - curve->getKey(0).time;
            probe(t + 2.3 * span);
            probe(t - 3.7 * span);
        }
    }
    for (int j = 0; j < 4; ++j)
        probe(in.rawDouble());

    // Edits keep the keys sorted and unique.
    RCPvtEngPtr<TcTimeCurve> const edited = curve->clone();
    for (int j = 0; j < 4 && in.pos < in.size; ++j) {
        double const t = in.tameDouble(), v = in.tameDouble();
        if (std::isfinite(t) && std::isfinite(v)) {
            edited->setKey(t, v);
            fuzzCheck(edited->hasKey(t));
        }
    }
    for (int i = 1; i < edited->getNbKeys(); ++i)
        fuzzCheck(edited->getKey(i - 1).time < edited->getKey(i).time);
    fuzzCheck(curve->getNbKeys() == n);
    return 0;
}

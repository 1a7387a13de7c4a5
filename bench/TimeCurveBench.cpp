// Evaluating an animation curve of 100,000 keys at 1,000,000 times (one iteration), in playback
// order and at random, against the same linear curve evaluated by hand over a sorted array with
// std::upper_bound, the loop one writes without a curve class.

#include "BenchRatio.h"
#include "TcTimeCurve.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using namespace Vn;

namespace {
constexpr int kKeys = 100000;
constexpr int kTimes = 1000000;

struct Inputs {
    std::vector<double> times, values;
    std::vector<double> playback, shuffled;
    explicit Inputs() {
        std::mt19937_64 rng(7);
        std::uniform_real_distribution<double> gap(0.01, 0.1), value(-100.0, 100.0);
        double t = 0;
        for (int i = 0; i < kKeys; ++i) {
            times.push_back(t += gap(rng));
            values.push_back(value(rng));
        }
        // A little beyond both ends, so extrapolation is measured too.
        std::uniform_real_distribution<double> at(-1.0, t + 1.0);
        for (int i = 0; i < kTimes; ++i)
            shuffled.push_back(at(rng));
        playback = shuffled;
        std::sort(playback.begin(), playback.end());
    }
    TcTimeCurve curve(int interpolation) const {
        Vector<double> data;
        for (int i = 0; i < kKeys; ++i)
            data.insert(data.end(), {times[i], values[i], 0.02, 1.0, 0.03, -2.0});
        return TcTimeCurve(data, Vector<int>(kKeys, interpolation),
                           Vector<int>(kKeys, TcTimeCurve::CONSTRAINT_BROKEN),
                           TcTimeCurve::EXTRAP_LINEAR, interpolation);
    }
};

Inputs const& inputs() {
    static Inputs const in;
    return in;
}

void ours(benchmark::State& state, int interpolation, bool random) {
    Inputs const& in = inputs();
    TcTimeCurve const curve = in.curve(interpolation);
    std::vector<double> const& at = random ? in.shuffled : in.playback;
    for (auto _ : state) {
        double sum = 0;
        for (double t : at)
            sum += curve.evaluate(t);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kTimes);
}

void reference(benchmark::State& state, bool random) {
    Inputs const& in = inputs();
    std::vector<double> const& at = random ? in.shuffled : in.playback;
    std::vector<double> const& ts = in.times;
    std::vector<double> const& vs = in.values;
    double const s0 = (vs[1] - vs[0]) / (ts[1] - ts[0]);
    double const sn = (vs[kKeys - 1] - vs[kKeys - 2]) / (ts[kKeys - 1] - ts[kKeys - 2]);
    for (auto _ : state) {
        double sum = 0;
        for (double t : at) {
            if (t <= ts.front()) {
                sum += vs.front() + s0 * (t - ts.front());
                continue;
            }
            if (t >= ts.back()) {
                sum += vs.back() + sn * (t - ts.back());
                continue;
            }
            auto const i = std::upper_bound(ts.begin(), ts.end(), t) - ts.begin() - 1;
            double const u = (t - ts[i]) / (ts[i + 1] - ts[i]);
            sum += vs[i] * (1 - u) + vs[i + 1] * u;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kTimes);
}
} // namespace

int main(int argc, char** argv) {
    struct Named {
        char const* name;
        int interpolation;
    };
    Named const kinds[] = {{"constant", TcTimeCurve::INTERP_CONSTANT},
                           {"linear", TcTimeCurve::INTERP_LINEAR},
                           {"smooth", TcTimeCurve::INTERP_SMOOTH},
                           {"bezier", TcTimeCurve::INTERP_BEZIER}};
    // The names outlive main's benchmarks: the ratio pairs point into them.
    static std::vector<std::string> names;
    names.reserve(2 * 5);
    std::vector<VnBench::RatioPair> pairs;
    for (bool random : {false, true}) {
        std::string const order = random ? "random" : "playback";
        for (Named const& k : kinds) {
            names.push_back("curve_" + std::string(k.name) + "/" + order);
            benchmark::RegisterBenchmark(names.back().c_str(), ours, k.interpolation, random)
                ->Unit(benchmark::kMillisecond);
        }
        names.push_back("by_hand_linear/" + order);
        benchmark::RegisterBenchmark(names.back().c_str(), reference, random)
            ->Unit(benchmark::kMillisecond);
        pairs.push_back({random ? "linear, random times" : "linear, playback order",
                         names[names.size() - 4].c_str(), names.back().c_str()});
    }
    return VnBench::runWithRatios(argc, argv, pairs);
}

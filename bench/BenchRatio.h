#pragma once

// Runs the registered benchmarks and prints, for pairs of them, our time over the reference's.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace VnBench {

// Shows the runs as usual and keeps the median time per iteration of each (name, threads), or
// the time of the single run when there is no median.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    CollectingReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_Defaults : OO_Tabular) {}
    void ReportRuns(std::vector<Run> const& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (Run const& r : runs) {
            if (r.error_occurred)
                continue;
            std::pair<std::string, std::int64_t> key{r.run_name.function_name, r.threads};
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median")
                _nsPerIteration[key] = r.GetAdjustedRealTime();
            else if (r.run_type == Run::RT_Iteration && r.repetitions <= 1)
                _nsPerIteration[key] = r.GetAdjustedRealTime();
        }
    }
    std::map<std::pair<std::string, std::int64_t>, double> _nsPerIteration;
};

struct RatioPair {
    char const* label;
    char const* ours;
    char const* reference;
    std::int64_t threads = 1;
};

// benchmark's main, followed by one "ratio" line per pair (lower is better), each time in its
// benchmark's unit.
inline int runWithRatios(int argc, char** argv, std::vector<RatioPair> const& pairs) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (auto const& p : pairs) {
        auto ours = reporter._nsPerIteration.find({p.ours, p.threads});
        auto ref = reporter._nsPerIteration.find({p.reference, p.threads});
        if (ours == reporter._nsPerIteration.end() || ref == reporter._nsPerIteration.end())
            continue;
        std::string const threads =
            p.threads == 1 ? "" : " (threads=" + std::to_string(p.threads) + ")";
        std::printf("ratio %s%s: %s %.4g / %s %.4g = %.2f\n", p.label, threads.c_str(), p.ours,
                    ours->second, p.reference, ref->second, ours->second / ref->second);
    }
    benchmark::Shutdown();
    return 0;
}

} // namespace VnBench

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

// Shows the runs as usual and keeps the median wall and CPU time per iteration of each (name,
// threads), or the times of the single run when there is no median. The CPU time is the calling
// thread's unless the benchmark measures the process's (MeasureProcessCPUTime).
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    CollectingReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_Defaults : OO_Tabular) {}
    void ReportRuns(std::vector<Run> const& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (Run const& r : runs) {
            if (r.error_occurred)
                continue;
            std::pair<std::string, std::int64_t> key{r.run_name.function_name, r.threads};
            if ((r.run_type == Run::RT_Aggregate && r.aggregate_name == "median") ||
                (r.run_type == Run::RT_Iteration && r.repetitions <= 1)) {
                _nsPerIteration[key] = r.GetAdjustedRealTime();
                _cpuPerIteration[key] = r.GetAdjustedCPUTime();
            }
        }
    }
    std::map<std::pair<std::string, std::int64_t>, double> _nsPerIteration;
    std::map<std::pair<std::string, std::int64_t>, double> _cpuPerIteration;
};

struct RatioPair {
    char const* label;
    char const* ours;
    char const* reference;
    std::int64_t threads = 1;
};

// benchmark's main, followed by one "ratio" line per pair (lower is better) of wall times, then
// of CPU times, each time in its benchmark's unit.
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
        double const oursCpu = reporter._cpuPerIteration[{p.ours, p.threads}];
        double const refCpu = reporter._cpuPerIteration[{p.reference, p.threads}];
        std::printf("ratio %s%s: %s %.4g / %s %.4g = %.2f; CPU %.4g / %.4g = %.2f\n", p.label,
                    threads.c_str(), p.ours, ours->second, p.reference, ref->second,
                    ours->second / ref->second, oursCpu, refCpu, oursCpu / refCpu);
    }
    benchmark::Shutdown();
    return 0;
}

} // namespace VnBench

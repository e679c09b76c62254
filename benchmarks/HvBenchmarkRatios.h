#pragma once

// The main of a benchmark that compares its runs with each other: the console output, then one
// line per ratio of real times (the first run's over the second's) with its goal.

#include <benchmark/benchmark.h>

#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace Hv::Benchmark {

struct Ratio {
    std::string measured;
    std::string reference;
    std::string text;  // printed before the ratio, e.g. "decode 1 MiB frame / memcpy 1 MiB"
    std::string goal;  // printed after it, e.g. "goal <= 2x"
};

inline int runWithRatios(int argc, char** argv, const std::vector<Ratio>& ratios)
{
    class RecordingReporter : public benchmark::ConsoleReporter {
    public:
        void ReportRuns(const std::vector<Run>& runs) override
        {
            ConsoleReporter::ReportRuns(runs);
            // With --benchmark_repetitions, the median stands for the run.
            for (const auto& run : runs)
                if (run.run_type != Run::RT_Aggregate || run.aggregate_name == "median")
                    times[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
        std::map<std::string, double> times;
    };
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const Ratio& ratio : ratios) {
        const auto measured = reporter.times.find(ratio.measured);
        const auto reference = reporter.times.find(ratio.reference);
        if (measured != reporter.times.end() && reference != reporter.times.end() && reference->second > 0)
            std::cout << ratio.text << ": " << measured->second / reference->second << "x (" << ratio.goal << ")\n";
    }
    benchmark::Shutdown();
    return 0;
}

} // namespace Hv::Benchmark

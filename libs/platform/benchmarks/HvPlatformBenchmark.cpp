// Cost of masking secrets in a whole frame's worth of body (64 MiB) against a plain copy of the
// same text: the masking is one pass and should stay within a small multiple of the copy.

#include "HvPlatform.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr std::size_t FRAME_BYTES = 64u << 20;

// JSON members, one quote every few bytes: each quote is a place where a key may start.
std::string members()
{
    const std::string member = "\"user\":\"bob\",\"state\":\"connected\",";
    std::string text;
    text.reserve(FRAME_BYTES);
    while (text.size() + member.size() <= FRAME_BYTES)
        text += member;
    text.resize(FRAME_BYTES, ' ');
    return text;
}

std::string secret(bool closed)
{
    std::string text = "{\"password\":\"" + std::string(FRAME_BYTES, 's');
    text.resize(FRAME_BYTES);
    if (closed)
        text.replace(FRAME_BYTES - 2, 2, "\"}");
    return text;
}

void mask(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        const std::string masked = Hv::hideSecretInfo(text);
        benchmark::DoNotOptimize(masked.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_HideSecretInfoMembers64MiB(benchmark::State& state) { mask(state, members()); }
BENCHMARK(BM_HideSecretInfoMembers64MiB)->Unit(benchmark::kMillisecond);
void BM_HideSecretInfoClosedSecret64MiB(benchmark::State& state) { mask(state, secret(true)); }
BENCHMARK(BM_HideSecretInfoClosedSecret64MiB)->Unit(benchmark::kMillisecond);
void BM_HideSecretInfoOpenSecret64MiB(benchmark::State& state) { mask(state, secret(false)); }
BENCHMARK(BM_HideSecretInfoOpenSecret64MiB)->Unit(benchmark::kMillisecond);

void BM_StringCopy64MiB(benchmark::State& state)
{
    const std::string text = members();
    for (auto _ : state) {
        const std::string copy = text;
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_StringCopy64MiB)->Unit(benchmark::kMillisecond);

// Console output plus the real time per iteration of each run, for the ratio line.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs)
            times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto copy = reporter.times.find("BM_StringCopy64MiB");
    for (const char* name : {"BM_HideSecretInfoMembers64MiB", "BM_HideSecretInfoClosedSecret64MiB", "BM_HideSecretInfoOpenSecret64MiB"}) {
        const auto masked = reporter.times.find(name);
        if (masked != reporter.times.end() && copy != reporter.times.end() && copy->second > 0)
            std::cout << name << " / copy of 64 MiB: " << masked->second / copy->second << "x (goal <= 2x)\n";
    }
    benchmark::Shutdown();
    return 0;
}

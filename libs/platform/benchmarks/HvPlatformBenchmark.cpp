// Cost of masking secrets in a whole frame's worth of body (64 MiB) against a plain copy of the
// same text: the masking is one pass and should stay within a small multiple of the copy.

#include "HvPlatform.h"

#include "HvBenchmarkRatios.h"

#include <benchmark/benchmark.h>

#include <algorithm>
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

} // namespace

int main(int argc, char** argv)
{
    return Hv::Benchmark::runWithRatios(argc, argv, {
        {"BM_HideSecretInfoMembers64MiB", "BM_StringCopy64MiB", "BM_HideSecretInfoMembers64MiB / copy of 64 MiB", "goal <= 2x"},
        {"BM_HideSecretInfoClosedSecret64MiB", "BM_StringCopy64MiB", "BM_HideSecretInfoClosedSecret64MiB / copy of 64 MiB", "goal <= 2x"},
        {"BM_HideSecretInfoOpenSecret64MiB", "BM_StringCopy64MiB", "BM_HideSecretInfoOpenSecret64MiB / copy of 64 MiB", "goal <= 2x"},
    });
}

// Cost of the frame layer against its floor: decoding a received 1 MiB frame should stay
// within twice a plain memcpy of the body, and a status message should cost well under a
// microsecond each way.

#include "HvAsyncAppStreamMessage.h"
#include "HvServiceStatus.h"

#include "HvBenchmarkRatios.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t BODY_SIZE = 1024 * 1024;

// A message as the receiving stream leaves it: length and payload read from the wire.
void receive(Hv::Async::AppStream::Message& message, const std::string& payload)
{
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::memcpy(message.lengthBuffer().data(), &length, sizeof(length));
    auto buffer = message.messageBuffer();
    buffer.grow(payload.size());
    std::memcpy(buffer.data(0, payload.size()).data(), payload.data(), payload.size());
}

void BM_DecodeFrame1MiB(benchmark::State& state)
{
    Hv::Async::AppStream::Message message;
    receive(message, "Signal-Scope|" + std::string(BODY_SIZE, 'b'));
    for (auto _ : state) {
        auto decoded = message.channelMessage();
        benchmark::DoNotOptimize(decoded->message().data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * BODY_SIZE));
}
BENCHMARK(BM_DecodeFrame1MiB);

void BM_Memcpy1MiB(benchmark::State& state)
{
    const std::vector<char> source(BODY_SIZE, 'b');
    std::vector<char> target(BODY_SIZE);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), BODY_SIZE);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * BODY_SIZE));
}
BENCHMARK(BM_Memcpy1MiB);

void BM_BuildStatusFrame(benchmark::State& state)
{
    const Hv::ServiceStatus status(Hv::ServiceStatus::ConnectionState::Connected,
                                   Hv::ServiceStatus::ErrorCode::Success);
    for (auto _ : state) {
        const Hv::Async::AppStream::Message message(Hv::Signal::ServiceStatus::create(status));
        auto frame = message.data();
        benchmark::DoNotOptimize(frame.back().data());
    }
}
BENCHMARK(BM_BuildStatusFrame);

void BM_ParseStatusFrame(benchmark::State& state)
{
    Hv::Async::AppStream::Message message;
    receive(message, "ServiceStatus|ConnectionState:Connected,ErrorCode:Success");
    for (auto _ : state) {
        const auto decoded = message.channelMessage();
        const auto status = Hv::ServiceStatus::fromString(decoded->message());
        benchmark::DoNotOptimize(status.isValid());
    }
}
BENCHMARK(BM_ParseStatusFrame);

} // namespace

int main(int argc, char** argv)
{
    return Hv::Benchmark::runWithRatios(argc, argv, {
        {"BM_DecodeFrame1MiB", "BM_Memcpy1MiB", "decode 1 MiB frame / memcpy 1 MiB", "goal <= 2x"},
    });
}

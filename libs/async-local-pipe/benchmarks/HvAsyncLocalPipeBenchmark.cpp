// Sender -> Receiver over the real socket on one event loop, against the floor of a plain
// blocking loop moving the same frames over a socket pair; and the latency of one status message.

#include "HvAsyncLocalPipe.h"
#include "HvServiceStatus.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem/operations.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr std::size_t PAYLOAD = 1024;
constexpr int BATCH = 64;

// A receiver and a connected sender of a private pipe on one event loop.
struct Pipe {
    Pipe()
    {
        char folder[] = "/tmp/hv-pipe-bench-XXXXXX";
        m_folder = mkdtemp(folder);
        setenv("XDG_RUNTIME_DIR", m_folder.c_str(), 1);
        receiver = Hv::Async::LocalPipe::Receiver::create(io, "bench");
        sender = Hv::Async::LocalPipe::Sender::create(io, "bench");
    }
    ~Pipe()
    {
        sender.reset();
        receiver.reset();
        boost::filesystem::remove_all(m_folder);
    }

    boost::asio::io_context io;
    Hv::Async::LocalPipe::Receiver::Shared receiver;
    Hv::Async::LocalPipe::Sender::Shared sender;
    std::string m_folder;
};

void BM_SenderToReceiver(benchmark::State& state)
{
    Pipe pipe;
    std::size_t received = 0;
    pipe.receiver->onMessage([&](const Hv::ChannelMessage::Shared&) { ++received; });
    // "A" + "|" + body: a 1024-byte payload, a 1028-byte frame.
    const auto message = std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"A"}, std::string(PAYLOAD - 2, 'x'));
    for (auto _ : state) {
        const std::size_t target = received + BATCH;
        for (int i = 0; i < BATCH; ++i)
            pipe.sender->sendMessage(message);
        while (received < target)
            pipe.io.run_one();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * BATCH * (PAYLOAD + 4));
}
BENCHMARK(BM_SenderToReceiver);

void BM_BlockingSocketPair(benchmark::State& state)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        state.SkipWithError("socketpair failed");
        return;
    }
    std::string frame(4 + PAYLOAD, 'x');
    const std::uint32_t length = PAYLOAD;
    std::memcpy(frame.data(), &length, 4);
    std::vector<char> payload;
    const auto readExactly = [](int fd, void* data, std::size_t size) {
        auto* bytes = static_cast<char*>(data);
        while (size > 0) {
            const ssize_t done = ::read(fd, bytes, size);
            if (done <= 0)
                return false;
            bytes += done;
            size -= static_cast<std::size_t>(done);
        }
        return true;
    };
    for (auto _ : state) {
        for (int i = 0; i < BATCH; ++i)
            if (::write(fds[0], frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()))
                state.SkipWithError("write failed");
        for (int i = 0; i < BATCH; ++i) {
            std::uint32_t received = 0;
            readExactly(fds[1], &received, 4);
            // Sized from the length like the stream does.
            payload.assign(received, 0);
            readExactly(fds[1], payload.data(), payload.size());
            benchmark::DoNotOptimize(payload.data());
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * BATCH * (PAYLOAD + 4));
    ::close(fds[0]);
    ::close(fds[1]);
}
BENCHMARK(BM_BlockingSocketPair);

void BM_StatusLatency(benchmark::State& state)
{
    Pipe pipe;
    bool arrived = false;
    pipe.receiver->onMessage([&](const Hv::ChannelMessage::Shared&) { arrived = true; });
    const auto status = Hv::Signal::ServiceStatus::create(
        Hv::ServiceStatus(Hv::ServiceStatus::ConnectionState::Connected, Hv::ServiceStatus::ErrorCode::Success));
    std::vector<double> microseconds;
    for (auto _ : state) {
        arrived = false;
        const auto start = std::chrono::steady_clock::now();
        pipe.sender->sendMessage(status);
        while (!arrived)
            pipe.io.run_one();
        microseconds.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(microseconds.begin(), microseconds.end());
    const auto percentile = [&](double p) { return microseconds[static_cast<std::size_t>(p * static_cast<double>(microseconds.size() - 1))]; };
    state.counters["p50_us"] = percentile(0.50);
    state.counters["p99_us"] = percentile(0.99);
}
BENCHMARK(BM_StatusLatency);

// Prints the throughput of the event-loop pipe as a share of the blocking floor.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const auto found = run.counters.find("bytes_per_second");
            if (found != run.counters.end())
                m_rates[run.benchmark_name()] = found->second.value;
        }
    }
    void Finalize() override
    {
        ConsoleReporter::Finalize();
        const double pipe = m_rates["BM_SenderToReceiver"];
        const double floor = m_rates["BM_BlockingSocketPair"];
        if (pipe > 0 && floor > 0)
            std::cout << "throughput ratio (Sender->Receiver / blocking socket pair): " << pipe / floor << " (goal >= 0.3)\n";
    }

private:
    std::map<std::string, double> m_rates;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

// Cost of an entry trace line written through the logger's layout into the compressing appender,
// against log4cplus's plain FileAppender with the same layout, and of a trace while disabled.
#include "HvSimpleLogger.h"
#include "HvTrace.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>
#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

namespace {

// The layout the logger gives its own appender.
constexpr const log4cplus::tchar* LAYOUT =
    LOG4CPLUS_TEXT("[%-5p] %d{%Y-%m-%d %H:%M:%S,%Q} [%t] - %m%n\t^^^ from: %M,%n\t^^^ at: %l%n");

struct Traced {
    std::string m_name = "tray";
    void call(int count, const std::shared_ptr<int>& shared) { HV_TRACE(count, shared, m_name); }
};

void tracing(benchmark::State& state)
{
    Traced traced;
    auto shared = std::make_shared<int>(1);
    int count = 0;
    for (auto _ : state)
        traced.call(++count, shared);
}

void BM_TraceIntoDailyRollingFileAppender(benchmark::State& state)
{
    tracing(state);
}

// Same logger and macro; only the appender differs.
void BM_TraceIntoPlainFileAppender(benchmark::State& state)
{
    log4cplus::Logger global = Hv::SimpleLogger::logger();
    const log4cplus::SharedAppenderPtrList ours = global.getAllAppenders();
    global.removeAllAppenders();
    log4cplus::SharedAppenderPtr plain(new log4cplus::FileAppender(
        LOG4CPLUS_STRING_TO_TSTRING(std::string(std::getenv("HV_SOFTPHONE_LOG_DIR")) + "/plain.log")));
    plain->setLayout(std::make_unique<log4cplus::PatternLayout>(LAYOUT));
    global.addAppender(plain);
    tracing(state);
    global.removeAllAppenders();
    for (const auto& appender : ours)
        global.addAppender(appender);
}

void BM_TraceWhileDisabled(benchmark::State& state)
{
    Hv::SimpleLogger::Suppressor suppressor;
    tracing(state);
}

BENCHMARK(BM_TraceIntoDailyRollingFileAppender);
BENCHMARK(BM_TraceIntoPlainFileAppender);
BENCHMARK(BM_TraceWhileDisabled);

// Keeps each benchmark's time per iteration for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> m_nanoseconds;
    std::map<std::string, double> m_cpuNanoseconds;
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (run.run_type != Run::RT_Aggregate || run.aggregate_name == "median")
            {
                m_nanoseconds[run.run_name.function_name] = run.GetAdjustedRealTime();
                m_cpuNanoseconds[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char** argv)
{
    char folder[] = "/tmp/hv-logger-benchmark-XXXXXX";
    if (std::getenv("HV_SOFTPHONE_LOG_DIR") == nullptr && mkdtemp(folder) != nullptr)
        setenv("HV_SOFTPHONE_LOG_DIR", folder, 1);
    Hv::SimpleLogger::initialize("HvLoggerBenchmark");

    benchmark::Initialize(&argc, argv);
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    Hv::SimpleLogger::destroy();

    const double ours = reporter.m_nanoseconds["BM_TraceIntoDailyRollingFileAppender"];
    const double plain = reporter.m_nanoseconds["BM_TraceIntoPlainFileAppender"];
    const double oursCpu = reporter.m_cpuNanoseconds["BM_TraceIntoDailyRollingFileAppender"];
    const double plainCpu = reporter.m_cpuNanoseconds["BM_TraceIntoPlainFileAppender"];
    if (plain > 0 && plainCpu > 0)
        std::printf("Trace line, ours / log4cplus FileAppender: %.2fx real, %.2fx CPU (goal <= 1.30x)\n",
                    ours / plain, oursCpu / plainCpu);
    std::printf("Disabled trace: %.2f ns per call (goal <= 2 ns)\n", reporter.m_nanoseconds["BM_TraceWhileDisabled"]);
    boost::system::error_code ignored;
    boost::filesystem::remove_all(std::getenv("HV_SOFTPHONE_LOG_DIR"), ignored);
    return 0;
}

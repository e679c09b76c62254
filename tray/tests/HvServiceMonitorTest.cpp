#include "HvLogCapture.h"
#include "HvServiceMonitor.h"

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>

#include <log4cplus/loglevel.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace {

// Replaces standard input by a pipe whose write end the caller holds (the "parent").
int standardInputFromPipe()
{
    int fds[2];
    if (pipe(fds) != 0 || dup2(fds[0], STDIN_FILENO) < 0)
        std::_Exit(10);
    close(fds[0]);
    return fds[1];
}

// Runs the monitor for a while in a forked test process, which reports by its exit status: the
// number of onStop calls, or 9 when onStop ran without the INFO line before it.
void watch(const std::string& parentWrites, bool parentCloses)
{
    Hv::Test::LogCapture capture;
    const int parent = standardInputFromPipe();
    if (!parentWrites.empty() && write(parent, parentWrites.data(), parentWrites.size()) < 0)
        std::_Exit(11);
    if (parentCloses)
        close(parent);

    boost::asio::io_context context;
    int stops = 0;
    std::size_t infoLinesAtStop = 0;
    Hv::ServiceMonitor monitor(context.get_executor(), [&] {
        ++stops;
        infoLinesAtStop = capture.count(log4cplus::INFO_LOG_LEVEL, "parent process has stopped");
    });
    context.run_for(std::chrono::seconds(1));
    std::_Exit(stops > 0 && infoLinesAtStop != 1 ? 9 : stops);
}

std::string frame(const std::string& payload)
{
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>((length >> shift) & 0xFF));
    return bytes + payload;
}

TEST(ServiceMonitorDeathTest, StopsOnceWhenTheParentClosesStandardInput)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(watch("", true), ::testing::ExitedWithCode(1), "");
    // While the parent lives nothing happens, and a message from it is read and dropped.
    EXPECT_EXIT(watch("", false), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(watch(frame("ServiceStatus|ConnectionState:Connected,ErrorCode:Success"), false),
                ::testing::ExitedWithCode(0), "");
}

} // namespace

// The tray's portable decisions, without a toolkit: what a status message shows, the event-loop
// pump, the parent monitor and the file URIs given to the desktop.

#include "HvFileUri.h"
#include "HvLogCapture.h"
#include "HvReportRunner.h"
#include "HvServiceMonitor.h"
#include "HvStatusMessageHandler.h"
#include "HvTestSupport.h"
#include "HvTray.h"
#include "HvTrayIOService.h"

#include <gtest/gtest.h>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <log4cplus/loglevel.h>

#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace {

using Hv::Tray::Icon;

// What the stand-in for the toolkit shell was asked to show, in order.
std::vector<std::pair<Icon, std::string>> g_shown;

} // namespace

void Hv::Tray::showPresentation(Icon icon, const std::string& toolTip)
{
    g_shown.emplace_back(icon, toolTip);
}

namespace {

TEST(TrayTest, StatusMessagesChooseIconAndToolTip)
{
    // A body, and the icon and second tool tip line it shows; none: nothing but a WARN line. (The
    // end-to-end test shows each look once and sends the other channels.)
    const std::tuple<std::string, std::optional<Icon>, std::string> cases[] = {
        // The error code does not matter once connected.
        {"ConnectionState:Connected,ErrorCode:Socket", Icon::Connected, "Connected"},
        {"ConnectionState:Waiting,ErrorCode:Validation", Icon::Error, "Error: Invalid client connection"},
        {"ConnectionState:Waiting,ErrorCode:NoVDISession", Icon::Error, "Error: Unknown host"},
        {"ConnectionState:Waiting,ErrorCode:Unknown", Icon::Error, "Error: Internal error"},
        // The unknown state has no look, whatever the error code; a body without "," parses to it.
        {"ConnectionState:Unknown,ErrorCode:Socket", std::nullopt, ""},
        {"ConnectionState:Connected", std::nullopt, ""},
    };
    Hv::Test::LogCapture capture;
    for (const auto& [body, icon, secondLine] : cases) {
        SCOPED_TRACE(body);
        g_shown.clear();
        capture.clear();
        Hv::Tray::handleStatusMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"ServiceStatus"}, std::string(body)));
        using Shown = decltype(g_shown);
        EXPECT_EQ(g_shown, (icon ? Shown{{*icon, "Halvo Softphone (130.264.0)\n" + secondLine}} : Shown{}));
        EXPECT_EQ(capture.count(log4cplus::WARN_LOG_LEVEL, "Unexpected status; ignored"), icon ? 0u : 1u);
    }
}

TEST(TrayIOServiceTest, RunsAtMostOneHundredReadyHandlersPerTickAndLogsWhatTheyThrow)
{
    Hv::Test::LogCapture capture;
    boost::asio::io_context context;
    Hv::TrayIOService service(context);
    // Work that is not ready does not hold a tick up.
    boost::asio::steady_timer later(context, std::chrono::hours(1));
    later.async_wait([](const boost::system::error_code&) {});
    int ran = 0;
    for (int i = 0; i < 150; ++i)
        boost::asio::post(context, [&ran] { ++ran; });
    EXPECT_EQ(service.handleIoEvents(), 100u);
    EXPECT_EQ(service.handleIoEvents(), 50u);
    EXPECT_EQ(service.handleIoEvents(), 0u);
    // A context that ran out of work (and so stopped) still runs what is posted later.
    later.cancel();
    EXPECT_EQ(service.handleIoEvents(), 1u);
    // What a handler throws is logged; the handlers after it run on the next ticks.
    boost::asio::post(context, [] { throw std::runtime_error("bind: No such file or directory"); });
    boost::asio::post(context, [] { throw 42; });
    boost::asio::post(context, [&ran] { ++ran; });
    for (int tick = 0; tick < 3; ++tick)
        service.pump();
    EXPECT_EQ(ran, 151);
    EXPECT_EQ(capture.messages(log4cplus::ERROR_LOG_LEVEL),
              (std::vector<std::string>{"Exception in an event handler: bind: No such file or directory",
                                        "Exception in an event handler: not a standard exception"}));
}

// The monitor for a second over a pipe from a "parent" that wrote `written` and perhaps closed its
// end; exits with the number of onStop calls.
void watchParent(const std::string& written, bool closed)
{
    int fds[2];
    if (pipe(fds) != 0 || dup2(fds[0], STDIN_FILENO) < 0
        || write(fds[1], written.data(), written.size()) != static_cast<ssize_t>(written.size())
        || (closed && close(fds[1]) != 0))
        std::_Exit(10);
    boost::asio::io_context context;
    int stops = 0;
    Hv::ServiceMonitor monitor(context.get_executor(), [&stops] { ++stops; });
    context.run_for(std::chrono::seconds(1));
    std::_Exit(stops);
}

TEST(ServiceMonitorDeathTest, StopsOnceAtTheEndOfStandardInputOnly)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The end of the pipe stops, once; what the parent writes is read and dropped.
    EXPECT_EXIT(watchParent("", true), ::testing::ExitedWithCode(1), "");
    const std::string status = Hv::Test::frame("ServiceStatus|ConnectionState:Connected,ErrorCode:Success");
    EXPECT_EXIT(watchParent(status, false), ::testing::ExitedWithCode(0), "");
}

TEST(ReportRunnerTest, OneReportAtATimeItsResultThroughTheQueueAndNoneAfterQuitGaveUp)
{
    // The shell's queue to the user-interface thread: this thread, drained by hand.
    std::mutex mutex;
    std::vector<Hv::Tray::ReportRunner::Task> queue;
    const auto post = [&](Hv::Tray::ReportRunner::Task task) { const std::lock_guard<std::mutex> lock(mutex); queue.push_back(std::move(task)); };
    const auto queued = [&] { const std::lock_guard<std::mutex> lock(mutex); return queue.size(); };
    std::vector<boost::filesystem::path> results;
    const auto onDone = [&](const boost::filesystem::path& archive) { results.push_back(archive); };
    const auto blockedReport = [](std::shared_future<void> go, const char* archive) {
        return [go, archive] { go.wait(); return boost::filesystem::path(archive); };
    };

    std::promise<void> first;
    const auto runner = Hv::Tray::ReportRunner::create(post, blockedReport(first.get_future().share(), "/d/a.zip"));
    ASSERT_TRUE(runner->start(onDone));
    EXPECT_FALSE(runner->start(onDone));
    first.set_value();
    while (queued() == 0)
        std::this_thread::yield();
    EXPECT_TRUE(results.empty() && runner->isRunning());
    queue[0]();
    EXPECT_EQ(results, std::vector<boost::filesystem::path>{"/d/a.zip"});
    EXPECT_FALSE(runner->isRunning());

    // Quitting gives a running report only so long; what it makes later is never delivered.
    std::promise<void> late;
    const auto slow = Hv::Tray::ReportRunner::create(post, blockedReport(late.get_future().share(), "/d/b.zip"));
    ASSERT_TRUE(slow->start(onDone));
    EXPECT_FALSE(slow->finish(std::chrono::milliseconds(100)));
    EXPECT_FALSE(slow->isRunning());
    late.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(queued(), 1u);
}

TEST(FileUriTest, EncodesEveryByteButUnreservedOnesAndSlashes)
{
    // Reserved and otherwise special characters, "%" itself included, in upper-case hex; non-ASCII
    // names byte by byte in their UTF-8 form; control bytes too. (The blank is the end-to-end test's.)
    EXPECT_EQ(Hv::Tray::fileUri("/report_2026-11.15~1/a%b#c?d&e=f+g;h,i:j@k!l$m'n(o)p*q[r]s\"`\\<>{}|^"),
              "file:///report_2026-11.15~1/a%25b%23c%3Fd%26e%3Df%2Bg%3Bh%2Ci%3Aj%40k%21l%24m%27n%28o%29p%2Aq%5Br%5Ds"
              "%22%60%5C%3C%3E%7B%7D%7C%5E");
    EXPECT_EQ(Hv::Tray::fileUri(std::string("/T\xC3\xA9l\xC3\xA9/\xE6\x97\xA5\t\n\x7F\xFF")),
              "file:///T%C3%A9l%C3%A9/%E6%97%A5%09%0A%7F%FF");
}

} // namespace

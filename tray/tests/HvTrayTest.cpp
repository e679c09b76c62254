// The tray's portable decisions, without a toolkit: what a status message shows, the event-loop
// pump and the file URIs given to the desktop. (The parent monitor is the end-to-end tests'.)

#include "HvFileUri.h"
#include "HvLogCapture.h"
#include "HvReportRunner.h"
#include "HvStatusMessageHandler.h"
#include "HvTestSupport.h"
#include "HvTray.h"
#include "HvTrayIOService.h"
#include "HvVersion.h"

#include <gtest/gtest.h>

#include <boost/asio/post.hpp>

#include <log4cplus/loglevel.h>

#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <tuple>

namespace {

using Hv::Tray::Icon, Hv::Tray::Presentation;

const std::string TITLE = std::string("Halvo Softphone (") + Hv::PRODUCT_VERSION + ")";

TEST(TrayTest, StatusMessagesChooseIconTextsAndAttention)
{
    // What the stand-in for the toolkit shell was asked to show, in order.
    std::vector<Presentation> shown;
    Hv::Tray::setDisplay([&shown](const Presentation& presentation) { shown.push_back(presentation); });
    // A body, and the icon, status line and attention it shows; none: nothing but a WARN line. (The
    // end-to-end test shows each look once and sends the other channels.)
    const std::tuple<std::string, std::optional<Icon>, std::string, bool> cases[] = {
        {"ConnectionState:Waiting,ErrorCode:Success", Icon::Waiting, "Waiting", false},
        // The error code does not matter once connected.
        {"ConnectionState:Connected,ErrorCode:Socket", Icon::Connected, "Connected", false},
        // An error code this tray does not know still shows as an error.
        {"ConnectionState:Waiting,ErrorCode:Unknown", Icon::Error, "Error: Internal error", true},
        // The unknown state has no look, whatever the error code.
        {"ConnectionState:Unknown,ErrorCode:Socket", std::nullopt, "", false},
    };
    Hv::Test::LogCapture capture;
    for (const auto& [body, icon, status, attention] : cases) {
        SCOPED_TRACE(body);
        shown.clear();
        capture.clear();
        Hv::Tray::handleStatusMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"ServiceStatus"}, std::string(body)));
        using Shown = decltype(shown);
        EXPECT_EQ(shown, (icon ? Shown{{*icon, TITLE, status, attention}} : Shown{}));
        EXPECT_EQ(capture.count(log4cplus::WARN_LOG_LEVEL, "Unexpected status; ignored"), icon ? 0u : 1u);
        // One text for the shells that show one: the same lines as the macOS tool tip.
        for (const Presentation& presentation : shown)
            EXPECT_EQ(presentation.toolTip(), TITLE + "\n" + status);
    }
    Hv::Tray::setDisplay(nullptr);
}

TEST(TrayIOServiceTest, RunsWhatIsPostedAfterTheContextRanOutOfWorkAndLogsWhatHandlersThrow)
{
    Hv::Test::LogCapture capture;
    boost::asio::io_context context;
    Hv::TrayIOService service(context);
    int ran = 0;
    boost::asio::post(context, [&ran] { ++ran; });
    EXPECT_EQ(service.handleIoEvents(), 1u);
    // The context ran out of work, and so stopped; what is posted later runs all the same. What a
    // handler throws is logged; the handlers after it run on the next ticks.
    boost::asio::post(context, [] { throw std::runtime_error("bind: No such file or directory"); });
    boost::asio::post(context, [] { throw 42; });
    boost::asio::post(context, [&ran] { ++ran; });
    for (int tick = 0; tick < 3; ++tick)
        service.pump();
    EXPECT_EQ(ran, 2);
    EXPECT_EQ(capture.messages(log4cplus::ERROR_LOG_LEVEL),
              (std::vector<std::string>{"Exception in an event handler: bind: No such file or directory",
                                        "Exception in an event handler: not a standard exception"}));
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
    EXPECT_EQ(Hv::Tray::fileUri("/report_2026-11.15~1/a%b#c?d&e=f+g;h,i:j@k!l$m'n(o)p*q[r]s\"`\\<>{}|^/T\xC3\xA9l\xC3\xA9/\xE6\x97\xA5\t\n\x7F\xFF"),
              "file:///report_2026-11.15~1/a%25b%23c%3Fd%26e%3Df%2Bg%3Bh%2Ci%3Aj%40k%21l%24m%27n%28o%29p%2Aq%5Br%5Ds"
              "%22%60%5C%3C%3E%7B%7D%7C%5E/T%C3%A9l%C3%A9/%E6%97%A5%09%0A%7F%FF");
}

} // namespace

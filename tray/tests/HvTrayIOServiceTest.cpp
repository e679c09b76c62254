#include "HvImmortalIOService.h"
#include "HvLogCapture.h"
#include "HvPresentationRecorder.h"
#include "HvSingleton.h"
#include "HvStatusMessageHandler.h"
#include "HvTrayIOService.h"

#include <gtest/gtest.h>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <stdexcept>

namespace {

TEST(TrayIOServiceTest, RunsAtMostOneHundredHandlersPerCall)
{
    boost::asio::io_context context;
    Hv::TrayIOService service(context);
    EXPECT_EQ(Hv::TrayIOService::TIMER_INTERVAL_MILLISECONDS, 100u);

    int ran = 0;
    for (int i = 0; i < 150; ++i)
        boost::asio::post(service.ioExecutor(), [&ran] { ++ran; });
    EXPECT_EQ(service.handleIoEvents(), 100u);
    EXPECT_EQ(ran, 100);
    EXPECT_EQ(service.handleIoEvents(), 50u);
    EXPECT_EQ(ran, 150);
    EXPECT_EQ(service.handleIoEvents(), 0u);

    // A context that ran dry still runs what is posted later.
    boost::asio::post(service.ioExecutor(), [&ran] { ++ran; });
    EXPECT_EQ(service.handleIoEvents(), 1u);
    EXPECT_EQ(ran, 151);
}

TEST(TrayIOServiceTest, StopsAtTheFirstPollThatRunsNothing)
{
    boost::asio::io_context context;
    Hv::TrayIOService service(context);
    boost::asio::steady_timer later(context, std::chrono::hours(1));
    bool fired = false;
    later.async_wait([&fired](const boost::system::error_code&) { fired = true; });
    int ran = 0;
    for (int i = 0; i < 3; ++i)
        boost::asio::post(context, [&ran] { ++ran; });

    // Pending work that is not ready does not hold the call up.
    EXPECT_EQ(service.handleIoEvents(), 3u);
    EXPECT_FALSE(fired);
    later.cancel();
    EXPECT_EQ(service.handleIoEvents(), 1u);
    EXPECT_TRUE(fired);
}

TEST(TrayIOServiceTest, PumpLogsWhatAHandlerThrowsAndGoesOn)
{
    Hv::Test::LogCapture capture;
    Hv::Test::shownPresentations().clear();
    boost::asio::io_context context;
    Hv::TrayIOService service(context);
    boost::asio::post(context, [] { throw std::runtime_error("bind: No such file or directory"); });
    boost::asio::post(context, [] { throw 42; });
    boost::asio::post(context, [] {
        Hv::Tray::handleStatusMessage(std::make_shared<Hv::ChannelMessage>(
            Hv::ChannelMessage::Channel{"ServiceStatus"}, "ConnectionState:Connected,ErrorCode:Success"));
    });
    for (int tick = 0; tick < 5 && Hv::Test::shownPresentations().empty(); ++tick)
        service.pump();
    ASSERT_EQ(Hv::Test::shownPresentations().size(), 1u);
    EXPECT_EQ(Hv::Test::shownPresentations()[0].icon, Hv::Tray::Icon::Connected);
    EXPECT_EQ(capture.messages(log4cplus::ERROR_LOG_LEVEL),
              (std::vector<std::string>{"Exception in an event handler: bind: No such file or directory",
                                        "Exception in an event handler: not a standard exception"}));
}

TEST(TrayIOServiceTest, ImmortalContextIsOneObject)
{
    EXPECT_EQ(&Hv::ImmortalIOService::get(), &Hv::ImmortalIOService::get());
}

struct Counted {
    Counted() { ++constructed; }
    static int constructed;
};
int Counted::constructed = 0;

struct OnContext {
    explicit OnContext(boost::asio::io_context& context) : context(&context) {}
    boost::asio::io_context* context;
};

TEST(SingletonTest, SharedAndCreateReturnTheFirstObject)
{
    auto first = Hv::Util::Singleton<Counted>::shared();
    auto second = Hv::Util::Singleton<Counted>::shared();
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(Counted::constructed, 1);

    boost::asio::io_context one;
    boost::asio::io_context other;
    using Initable = Hv::Util::InitableSingleton<OnContext, boost::asio::io_context&>;
    auto created = Initable::create(one);
    auto again = Initable::create(other);
    EXPECT_EQ(created.get(), again.get());
    EXPECT_EQ(again->context, &one);
}

} // namespace

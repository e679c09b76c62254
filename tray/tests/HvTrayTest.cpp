#include "HvLogCapture.h"
#include "HvPresentationRecorder.h"
#include "HvServiceStatus.h"
#include "HvStatusMessageHandler.h"
#include "HvTray.h"

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <memory>
#include <string>

namespace {

using Hv::ServiceStatus;
using Hv::Test::shownPresentations;
using Hv::Tray::Icon;
using State = ServiceStatus::ConnectionState;
using Error = ServiceStatus::ErrorCode;

const std::string FIRST_LINE = "Halvo Softphone (130.264.0)\n";
const char* const UNEXPECTED = "Unexpected status; ignored";

class TrayTest : public ::testing::Test {
protected:
    void SetUp() override { shownPresentations().clear(); }

    // Shows `status` and returns the one presentation it produced.
    Hv::Test::ShownPresentation show(ServiceStatus status)
    {
        const std::size_t before = shownPresentations().size();
        Hv::Tray::setStatus(status);
        EXPECT_EQ(shownPresentations().size(), before + 1) << status.toString();
        return shownPresentations().back();
    }

    Hv::Test::LogCapture m_capture;
};

TEST_F(TrayTest, StatusChoosesIconAndToolTip)
{
    auto shown = show({State::Connected, Error::Success});
    EXPECT_EQ(shown.icon, Icon::Connected);
    EXPECT_EQ(shown.toolTip, FIRST_LINE + "Connected");

    // The error code does not matter once connected.
    shown = show({State::Connected, Error::Socket});
    EXPECT_EQ(shown.icon, Icon::Connected);
    EXPECT_EQ(shown.toolTip, FIRST_LINE + "Connected");

    shown = show({State::Waiting, Error::Success});
    EXPECT_EQ(shown.icon, Icon::Waiting);
    EXPECT_EQ(shown.toolTip, FIRST_LINE + "Waiting");

    const std::pair<Error, std::string> errors[] = {
        {Error::Socket, "Error: Port busy"},
        {Error::Validation, "Error: Invalid client connection"},
        {Error::NoVDISession, "Error: Unknown host"},
        {Error::Unknown, "Error: Internal error"},
    };
    for (const auto& [error, secondLine] : errors) {
        shown = show({State::Waiting, error});
        EXPECT_EQ(shown.icon, Icon::Error) << secondLine;
        EXPECT_EQ(shown.toolTip, FIRST_LINE + secondLine);
    }
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, UNEXPECTED), 0u);
}

TEST_F(TrayTest, UnknownStateChangesNothingAndWarnsOnce)
{
    Hv::Tray::setStatus({State::Connected, Error::Success});
    ASSERT_EQ(shownPresentations().size(), 1u);

    Hv::Tray::setStatus({State::Unknown, Error::Success});
    EXPECT_EQ(shownPresentations().size(), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, UNEXPECTED), 1u);

    // Whatever the error code: the unknown state has no look of its own.
    Hv::Tray::setStatus({State::Unknown, Error::Socket});
    EXPECT_EQ(shownPresentations().size(), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, UNEXPECTED), 2u);
}

TEST_F(TrayTest, FormatsToolTipTexts)
{
    EXPECT_EQ(Hv::Tray::formatStatus("Waiting"), "Halvo Softphone (130.264.0)\nWaiting");
    EXPECT_EQ(Hv::Tray::errorString(Error::Success), "");
    // Success has no reason, so the text ends in the colon and a blank.
    EXPECT_EQ(Hv::Tray::formatStatus("Error", Error::Success), FIRST_LINE + "Error: ");
    EXPECT_EQ(Hv::Tray::formatStatus("Error", Error::Socket), FIRST_LINE + "Error: Port busy");
    EXPECT_STREQ(Hv::Tray::iconName(Icon::Waiting), "waiting");
    EXPECT_STREQ(Hv::Tray::iconName(Icon::Error), "error");
    EXPECT_STREQ(Hv::Tray::iconName(Icon::Connected), "connected");
}

TEST_F(TrayTest, InitAndDestroyShowNothing)
{
    Hv::Tray::init();
    Hv::Tray::destroy();
    EXPECT_TRUE(shownPresentations().empty());
}

Hv::ChannelMessage::Shared message(Hv::ChannelMessage::Channel channel, std::string body)
{
    return std::make_shared<Hv::ChannelMessage>(std::move(channel), std::move(body));
}

TEST_F(TrayTest, MessageHandlerShowsOnlyStatusChannel)
{
    Hv::Tray::handleStatusMessage(message({"ServiceStatus"}, "ConnectionState:Waiting,ErrorCode:NoVDISession"));
    ASSERT_EQ(shownPresentations().size(), 1u);
    EXPECT_EQ(shownPresentations().back().icon, Icon::Error);
    EXPECT_EQ(shownPresentations().back().toolTip, FIRST_LINE + "Error: Unknown host");

    // Other channels are dropped without a word, however valid their body.
    Hv::Tray::handleStatusMessage(message({"ServiceStatus", "global"}, "ConnectionState:Connected,ErrorCode:Success"));
    Hv::Tray::handleStatusMessage(message(Hv::ChannelMessage::BROADCAST, "ConnectionState:Connected,ErrorCode:Success"));
    Hv::Tray::handleStatusMessage(message({"servicestatus"}, "ConnectionState:Connected,ErrorCode:Success"));
    Hv::Tray::handleStatusMessage(nullptr);
    EXPECT_EQ(shownPresentations().size(), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, UNEXPECTED), 0u);

    // A body without "," parses to Unknown, Unknown, which the item refuses.
    Hv::Tray::handleStatusMessage(message({"ServiceStatus"}, "ConnectionState:Connected"));
    EXPECT_EQ(shownPresentations().size(), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, UNEXPECTED), 1u);

    Hv::Tray::handleStatusMessage(message({"ServiceStatus"}, "ConnectionState:Connected,ErrorCode:Success"));
    ASSERT_EQ(shownPresentations().size(), 2u);
    EXPECT_EQ(shownPresentations().back().icon, Icon::Connected);
}

} // namespace

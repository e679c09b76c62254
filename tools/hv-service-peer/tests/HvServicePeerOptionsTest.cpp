#include "HvServicePeerOptions.h"

#include <gtest/gtest.h>

namespace {

using Hv::ServicePeer::parseArguments;

TEST(ServicePeerOptionsTest, BuildsMessagesInOrder)
{
    const auto parsed = parseArguments({"--pipe", "tray2", "--status", "Connected,Success", "--channel", "A-B", "--body",
                                        "some text", "--status", "Unknown,NoVDISession", "--delay-ms", "25"});
    ASSERT_TRUE(parsed.options) << parsed.error;
    const auto& options = *parsed.options;
    EXPECT_EQ(options.pipe, "tray2");
    EXPECT_EQ(options.delay.count(), 25);
    EXPECT_EQ(options.timeout.count(), 5000);
    ASSERT_EQ(options.messages.size(), 3u);
    EXPECT_EQ(options.messages[0].channel, Hv::ChannelMessage::Channel({"ServiceStatus"}));
    EXPECT_EQ(options.messages[0].body, "ConnectionState:Connected,ErrorCode:Success");
    EXPECT_EQ(options.messages[1].channel, Hv::ChannelMessage::Channel({"A", "B"}));
    EXPECT_EQ(options.messages[1].body, "some text");
    EXPECT_EQ(options.messages[2].body, "ConnectionState:Unknown,ErrorCode:NoVDISession");

    const auto defaults = parseArguments({"--status", "Waiting,Socket"});
    ASSERT_TRUE(defaults.options);
    EXPECT_EQ(defaults.options->pipe, "tray");
    EXPECT_EQ(defaults.options->delay.count(), 0);
}

TEST(ServicePeerOptionsTest, RefusesBadArguments)
{
    const std::vector<std::vector<std::string>> bad = {
        {},
        {"--pipe", "tray"},
        {"--status", "Connected"},
        {"--status", "Connected,Sucess"},
        {"--status", "connected,Success"},
        {"--status", "Connected,Success,x"},
        {"--channel", "A"},
        {"--channel", "A", "--status", "Connected,Success"},
        {"--body", "x"},
        {"--status", "Connected,Success", "--delay-ms", "-1"},
        {"--status", "Connected,Success", "--delay-ms", "5x"},
        {"--status", "Connected,Success", "--timeout-ms", "0"},
        {"--status", "Connected,Success", "--pipe", "../x"},
        {"--status", "Connected,Success", "--frobnicate", "1"},
        {"--status"},
    };
    for (const auto& arguments : bad) {
        const auto parsed = parseArguments(arguments);
        EXPECT_FALSE(parsed.options) << ::testing::PrintToString(arguments);
        EXPECT_FALSE(parsed.error.empty()) << ::testing::PrintToString(arguments);
    }
    EXPECT_TRUE(parseArguments({"--help"}).options->help);
}

} // namespace

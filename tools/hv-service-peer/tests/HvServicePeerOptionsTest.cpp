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

TEST(ServicePeerOptionsTest, ParentRole)
{
    const auto cycle = parseArguments({"--spawn", "/opt/HalvoSoftphoneTray", "--status", "Waiting,Success", "--cycle",
                                       "--status", "Connected,Success", "--delay-ms", "1500", "--stop-after-ms", "9000"});
    ASSERT_TRUE(cycle.options) << cycle.error;
    EXPECT_EQ(cycle.options->spawn, "/opt/HalvoSoftphoneTray");
    EXPECT_TRUE(cycle.options->cycle);
    EXPECT_EQ(cycle.options->messages.size(), 2u);
    EXPECT_EQ(cycle.options->delay.count(), 1500);
    ASSERT_TRUE(cycle.options->stopAfter);
    EXPECT_EQ(cycle.options->stopAfter->count(), 9000);

    // A child alone just shows its start-up state until stopped.
    const auto bare = parseArguments({"--spawn", "tray"});
    ASSERT_TRUE(bare.options) << bare.error;
    EXPECT_TRUE(bare.options->messages.empty());
    EXPECT_FALSE(bare.options->cycle);
    EXPECT_FALSE(bare.options->stopAfter);

    const auto plain = parseArguments({"--status", "Connected,Success"});
    EXPECT_FALSE(plain.options->spawn);
    EXPECT_TRUE(parseArguments({"--status", "Connected,Success", "--cycle", "--delay-ms", "5", "--stop-after-ms", "50"}).options);
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
        {"--status", "Connected,Success", "--cycle"},
        {"--cycle", "--delay-ms", "10"},
        {"--status", "Connected,Success", "--stop-after-ms", "100"},
        {"--spawn", "/bin/tray", "--stop-after-ms", "0"},
        {"--spawn", ""},
        {"--spawn"},
    };
    for (const auto& arguments : bad) {
        const auto parsed = parseArguments(arguments);
        EXPECT_FALSE(parsed.options) << ::testing::PrintToString(arguments);
        EXPECT_FALSE(parsed.error.empty()) << ::testing::PrintToString(arguments);
    }
    EXPECT_TRUE(parseArguments({"--help"}).options->help);
}

} // namespace

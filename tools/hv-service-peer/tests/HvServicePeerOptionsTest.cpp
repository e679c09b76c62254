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
    // Arguments, and a piece of the one-line reason.
    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{}, "nothing to send"},
        {{"--pipe", "tray"}, "nothing to send"},
        {{"--status", "Connected"}, "invalid status 'Connected'"},
        {{"--status", "Connected,Sucess"}, "invalid status"},
        {{"--status", "connected,Success"}, "invalid status"},
        {{"--status", "Connected,Success,x"}, "invalid status"},
        {{"--channel", "A"}, "--channel must be followed by --body"},
        {{"--channel", "A", "--status", "Connected,Success"}, "--channel must be followed by --body"},
        {{"--channel", "", "--body", "x"}, "empty channel"},
        {{"--body", "x"}, "--body must follow --channel"},
        {{"--status", "Connected,Success", "--delay-ms", "-1"}, "'--delay-ms'"},
        {{"--status", "Connected,Success", "--delay-ms", "5x"}, "('5x') for option '--delay-ms' is invalid"},
        {{"--status", "Connected,Success", "--delay-ms", "99999999999999999999"}, "'--delay-ms' is invalid"},
        {{"--status", "Connected,Success", "--timeout-ms", "0"}, "('0') for option '--timeout-ms' is invalid"},
        {{"--status", "Connected,Success", "--pipe", "../x"}, "invalid pipe name '../x'"},
        {{"--status", "Connected,Success", "--pipe", "a", "--pipe", "b"}, "'--pipe' cannot be specified more than once"},
        {{"--status", "Connected,Success", "--frobnicate", "1"}, "unrecognised option '--frobnicate'"},
        // Whole names only: no guessing of abbreviations.
        {{"--stat", "Connected,Success"}, "unrecognised option '--stat'"},
        {{"--status", "Connected,Success", "extra"}, "unexpected argument 'extra'"},
        {{"--status"}, "the required argument for option '--status' is missing"},
        {{"--status", "Connected,Success", "--cycle=yes"}, "'--cycle' does not take any arguments"},
        {{"--status", "Connected,Success", "--cycle"}, "--cycle needs messages and a --delay-ms"},
        {{"--cycle", "--delay-ms", "10"}, "nothing to send"},
        {{"--status", "Connected,Success", "--stop-after-ms", "100"}, "--stop-after-ms needs --spawn or --cycle"},
        {{"--spawn", "/bin/tray", "--stop-after-ms", "0"}, "'--stop-after-ms' is invalid"},
        {{"--spawn", ""}, "--spawn needs the program"},
        {{"--spawn"}, "the required argument for option '--spawn' is missing"},
        {{"--status", "Connected\nSuccess"}, "invalid status"},
    };
    for (const auto& [arguments, reason] : bad) {
        const auto parsed = parseArguments(arguments);
        EXPECT_FALSE(parsed.options) << ::testing::PrintToString(arguments);
        EXPECT_NE(parsed.error.find(reason), std::string::npos) << ::testing::PrintToString(arguments) << ": " << parsed.error;
    }
}

TEST(ServicePeerOptionsTest, HelpAndVersionNeedNothingElse)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--help"}, {"-h"}, {"--pipe", "tray", "--help"}}) {
        const auto parsed = parseArguments(arguments);
        ASSERT_TRUE(parsed.options) << parsed.error;
        EXPECT_TRUE(parsed.options->help);
        EXPECT_FALSE(parsed.options->version);
    }
    const auto version = parseArguments({"--version"});
    ASSERT_TRUE(version.options) << version.error;
    EXPECT_TRUE(version.options->version);
    EXPECT_FALSE(version.options->help);
    // A syntax error still wins: the command line is wrong whatever was asked.
    EXPECT_FALSE(parseArguments({"--help", "--frobnicate"}).options);
}

} // namespace

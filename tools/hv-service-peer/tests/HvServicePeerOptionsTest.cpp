#include "HvServicePeerOptions.h"

#include <gtest/gtest.h>

namespace {

using Hv::ServicePeer::parseArguments;

TEST(ServicePeerOptionsTest, BuildsMessagesInOrder)
{
    const auto parsed = parseArguments({"--pipe", "tray2", "--status", "Connected,Success", "--channel", "A-B", "--body",
                                        "some text", "--status", "Unknown,NoVDISession", "--delay-ms", "25"});
    ASSERT_TRUE(parsed.options) << parsed.error;
    EXPECT_EQ(parsed.options->pipe, "tray2");
    EXPECT_EQ(parsed.options->delay.count(), 25);
    const auto& messages = parsed.options->messages;
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].channel, Hv::ChannelMessage::Channel({"ServiceStatus"}));
    EXPECT_EQ(messages[0].body, "ConnectionState:Connected,ErrorCode:Success");
    EXPECT_EQ(messages[1].channel, Hv::ChannelMessage::Channel({"A", "B"}));
    EXPECT_EQ(messages[1].body, "some text");
    EXPECT_EQ(messages[2].body, "ConnectionState:Unknown,ErrorCode:NoVDISession");
}

TEST(ServicePeerOptionsTest, RefusesBadArguments)
{
    // Arguments, and a piece of the one-line reason.
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
        {{}, "nothing to send"},
        {{"--cycle", "--delay-ms", "10"}, "nothing to send"},
        {{"--status", "Connected"}, "invalid status 'Connected'"},
        {{"--status", "Connected,Sucess"}, "invalid status"},
        {{"--status", "connected,Success"}, "invalid status"},
        {{"--status", "Connected,Success,x"}, "invalid status"},
        {{"--channel", "A"}, "--channel must be followed by --body"},
        {{"--channel", "A", "--status", "Connected,Success"}, "--channel must be followed by --body"},
        {{"--channel", "", "--body", "x"}, "empty channel"},
        {{"--body", "x"}, "--body must follow --channel"},
        {{"--status", "Connected,Success", "--delay-ms", "-1"}, "'--delay-ms'"},
        {{"--status", "Connected,Success", "--delay-ms", "99999999999999999999"}, "'--delay-ms' is invalid"},
        {{"--status", "Connected,Success", "--timeout-ms", "0"}, "('0') for option '--timeout-ms' is invalid"},
        {{"--status", "Connected,Success", "--pipe", "../x"}, "invalid pipe name '../x'"},
        {{"--status", "Connected,Success", "--pipe", "a", "--pipe", "b"}, "'--pipe' cannot be specified more than once"},
        // Whole names only: no guessing of abbreviations.
        {{"--stat", "Connected,Success"}, "unrecognised option '--stat'"},
        {{"--status", "Connected,Success", "extra"}, "unexpected argument 'extra'"},
        {{"--status"}, "the required argument for option '--status' is missing"},
        {{"--status", "Connected,Success", "--cycle=yes"}, "'--cycle' does not take any arguments"},
        {{"--status", "Connected,Success", "--cycle"}, "--cycle needs messages and a --delay-ms"},
        {{"--status", "Connected,Success", "--stop-after-ms", "100"}, "--stop-after-ms needs --spawn or --cycle"},
        {{"--spawn", "/bin/tray", "--stop-after-ms", "0"}, "'--stop-after-ms' is invalid"},
        {{"--spawn", ""}, "--spawn needs the program"},
        // A syntax error wins over help: the command line is wrong whatever was asked.
        {{"--help", "--frobnicate"}, "unrecognised option '--frobnicate'"},
    };
    for (const auto& [arguments, reason] : refused) {
        const auto parsed = parseArguments(arguments);
        EXPECT_FALSE(parsed.options) << ::testing::PrintToString(arguments);
        EXPECT_NE(parsed.error.find(reason), std::string::npos) << ::testing::PrintToString(arguments) << ": " << parsed.error;
    }
}

} // namespace

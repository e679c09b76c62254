#include "HvChannelMessageUtil.h"
#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <optional>

using Channel = Hv::ChannelMessage::Channel;

TEST(ChannelMessage, SplitsAtTheFirstBarAndRefusesAMissingPart)
{
    const std::tuple<std::string, std::optional<Channel>, std::string> cases[] = {
        // bytes, channel (none: refused), body
        {"a-b-c|secret|y", Channel{"a", "b", "c"}, "secret|y"},
        {"a--|x", Channel{"a", "", ""}, "x"},
        {std::string("c|\0\xff", 4), Channel{"c"}, std::string("\0\xff", 2)},
        {"a|", std::nullopt, ""},
        {"abc", std::nullopt, ""},
        {std::string(255, '-') + "|x", Channel(256, ""), "x"},
        {std::string(256, '-') + "|x", std::nullopt, ""},
    };
    Hv::Test::LogCapture capture;
    for (const auto& [bytes, channel, body] : cases) {
        SCOPED_TRACE(bytes);
        const auto message = Hv::Util::channelMessageFromBuffer(boost::asio::const_buffers_1(bytes.data(), bytes.size()));
        EXPECT_EQ(message ? std::optional(message->channel()) : std::nullopt, channel);
        EXPECT_EQ(message ? message->message() : "", body);
    }
    // Bodies may hold secrets: trace lines show markers only.
    EXPECT_FALSE(capture.messages(log4cplus::TRACE_LOG_LEVEL).empty());
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL, "secret"), 0u);
}

TEST(ChannelMessage, BroadcastIsExactlyTheOneMarkerAndStaysSo)
{
    Hv::ChannelMessage message(Channel{"Broadcast", "z"}, "x");
    message.popMarker();
    message.pushMarker("z");
    EXPECT_EQ(message.channel(), Hv::ChannelMessage::BROADCAST);
    message.popMarker();
    EXPECT_TRUE(message.isBroadcast());
}

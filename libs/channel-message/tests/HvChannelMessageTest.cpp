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
        {"|x", Channel{""}, "x"},
        {"a--b|x", Channel{"a", "", "b"}, "x"},
        {"-|x", Channel{"", ""}, "x"},
        {std::string("c|\0\xff", 4), Channel{"c"}, std::string("\0\xff", 2)},
        {"a|", std::nullopt, ""},
        {"abc", std::nullopt, ""},
        {"", std::nullopt, ""},
    };
    Hv::Test::LogCapture capture;
    std::vector<std::string> warnings;
    for (const auto& [bytes, channel, body] : cases) {
        SCOPED_TRACE(bytes);
        const auto message = Hv::Util::channelMessageFromBuffer(boost::asio::const_buffers_1(bytes.data(), bytes.size()));
        ASSERT_EQ(message != nullptr, channel.has_value());
        if (!message) {
            warnings.push_back("Cannot parse buffer as channel message: " + bytes);
            continue;
        }
        EXPECT_EQ(message->channel(), *channel);
        EXPECT_EQ(message->message(), body);
    }
    EXPECT_EQ(capture.messages(log4cplus::WARN_LOG_LEVEL), warnings);
    // Bodies may hold secrets: trace lines show markers only.
    EXPECT_FALSE(capture.messages(log4cplus::TRACE_LOG_LEVEL).empty());
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL, "secret"), 0u);
}

TEST(ChannelMessage, BroadcastIsExactlyTheOneMarkerAndStaysSo)
{
    Hv::ChannelMessage message(Channel{"Broadcast", "z"}, "x");
    EXPECT_FALSE(message.isBroadcast());
    message.popMarker();
    EXPECT_TRUE(message.isBroadcast());
    message.pushMarker("z");
    message.popMarker();
    EXPECT_EQ(message.channel(), Hv::ChannelMessage::BROADCAST);
    for (const Channel& other : {Channel{"z", "Broadcast"}, Channel{"broadcast"}, Channel{}})
        EXPECT_FALSE(Hv::ChannelMessage(other, "x").isBroadcast());
}

#include "HvChannelMessageUtil.h"
#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using Channel = Hv::ChannelMessage::Channel;

TEST(ChannelMessage, DecodesAndEncodesBack)
{
    struct Case {
        std::string bytes;
        std::optional<Channel> channel; // none: refused
        std::string body;
    };
    const Case cases[] = {
        {"a-b-c|secret|y", Channel{"a", "b", "c"}, "secret|y"},
        {"|x", Channel{""}, "x"},
        {"a--b|x", Channel{"a", "", "b"}, "x"},
        {"-|x", Channel{"", ""}, "x"},
        {std::string("c|\0\xff\x80", 5), Channel{"c"}, std::string("\0\xff\x80", 3)},
        {"a|", std::nullopt, ""},
        {"abc", std::nullopt, ""},
        {"", std::nullopt, ""},
    };
    Hv::Test::LogCapture capture;
    std::vector<std::string> warnings;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        const auto message = Hv::Util::channelMessageFromBuffer(boost::asio::const_buffers_1(c.bytes.data(), c.bytes.size()));
        ASSERT_EQ(message != nullptr, c.channel.has_value());
        if (!message) {
            warnings.push_back("Cannot parse buffer as channel message: " + c.bytes);
            continue;
        }
        EXPECT_EQ(message->channel(), *c.channel);
        EXPECT_EQ(message->message(), c.body);
        std::string encoded;
        const std::string channel = Hv::Util::serializeChannel(message->channel());
        for (const auto& buffer : Hv::Util::channelMessageBuffer(channel, message->message()))
            encoded.append(static_cast<const char*>(buffer.data()), buffer.size());
        EXPECT_EQ(encoded, c.bytes);
    }
    EXPECT_EQ(capture.messages(log4cplus::WARN_LOG_LEVEL), warnings);
    // Bodies may hold secrets: trace lines show markers only.
    EXPECT_FALSE(capture.messages(log4cplus::TRACE_LOG_LEVEL).empty());
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL, "secret"), 0u);
}

TEST(ChannelMessage, BroadcastIsExactlyTheOneMarkerAndCannotChange)
{
    Hv::ChannelMessage broadcast(Hv::ChannelMessage::BROADCAST, "x");
    EXPECT_TRUE(broadcast.isBroadcast());
    broadcast.pushMarker("z");
    broadcast.popMarker();
    EXPECT_EQ(broadcast.channel(), Channel{"Broadcast"});

    Hv::ChannelMessage narrowed(Channel{"Broadcast", "z"}, "x");
    EXPECT_FALSE(narrowed.isBroadcast());
    narrowed.popMarker();
    EXPECT_TRUE(narrowed.isBroadcast());
    for (const Channel& other : {Channel{"z", "Broadcast"}, Channel{"broadcast"}, Channel{}})
        EXPECT_FALSE(Hv::ChannelMessage(other, "x").isBroadcast());

    Hv::ChannelMessage plain(Channel{"a"}, "x");
    plain.pushMarker("b");
    EXPECT_EQ(plain.channel(), (Channel{"a", "b"}));
    for (int i = 0; i < 3; ++i)
        plain.popMarker();
    EXPECT_TRUE(plain.channel().empty());
}

} // namespace

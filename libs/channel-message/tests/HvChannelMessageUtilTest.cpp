#include "HvChannelMessageUtil.h"
#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Channel = Hv::ChannelMessage::Channel;

std::string flatten(const std::list<boost::asio::const_buffer>& buffers)
{
    std::string bytes;
    for (const auto& buffer : buffers)
        bytes.append(static_cast<const char*>(buffer.data()), buffer.size());
    return bytes;
}

std::string encode(const Channel& channel, const std::string& body)
{
    const std::string text = Hv::Util::serializeChannel(channel);
    return flatten(Hv::Util::channelMessageBuffer(text, body));
}

Hv::ChannelMessage::Shared decode(const std::string& bytes)
{
    return Hv::Util::channelMessageFromBuffer(boost::asio::const_buffers_1(bytes.data(), bytes.size()));
}

TEST(ChannelMessageUtil, EncodesWithoutCopying)
{
    const std::string channel = "a-b";
    const std::string body = "hello";
    const auto buffers = Hv::Util::channelMessageBuffer(channel, body);
    ASSERT_EQ(buffers.size(), 3u);
    EXPECT_EQ(buffers.front().data(), channel.data());
    EXPECT_EQ(buffers.back().data(), body.data());
    EXPECT_EQ(flatten(buffers), "a-b|hello");

    EXPECT_EQ(Hv::Util::serializeChannel({"one"}), "one");
    const std::string dangling = "a-";
    EXPECT_EQ(Hv::Util::parseChannel(dangling.begin(), dangling.end()), (Channel{"a", ""}));
}

TEST(ChannelMessageUtil, RoundTrips)
{
    Hv::Test::LogCapture capture;

    EXPECT_EQ(encode({"a", "b", "c"}, "x|y"), "a-b-c|x|y");
    auto message = decode("a-b-c|x|y");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->channel(), (Channel{"a", "b", "c"}));
    EXPECT_EQ(message->message(), "x|y");

    // An empty channel comes back as one empty marker.
    EXPECT_EQ(encode({}, "x"), "|x");
    message = decode("|x");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->channel(), Channel{""});
    EXPECT_EQ(message->message(), "x");

    message = decode("a--b|x");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->channel(), (Channel{"a", "", "b"}));

    message = decode("-|x");
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->channel(), (Channel{"", ""}));

    // Bytes outside ASCII, including zeros, pass through untouched.
    const std::string binary("c|\0\xff\x80", 5);
    message = decode(binary);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->message(), binary.substr(2));

    EXPECT_TRUE(capture.messages(log4cplus::WARN_LOG_LEVEL).empty());
}

TEST(ChannelMessageUtil, RejectsMissingSeparatorOrBody)
{
    Hv::Test::LogCapture capture;

    EXPECT_EQ(encode({"a"}, ""), "a|");
    EXPECT_EQ(decode("a|"), nullptr);
    EXPECT_EQ(decode("abc"), nullptr);
    EXPECT_EQ(decode(""), nullptr);

    EXPECT_EQ(capture.messages(log4cplus::WARN_LOG_LEVEL),
              (std::vector<std::string>{"Cannot parse buffer as channel message: a|",
                                        "Cannot parse buffer as channel message: abc",
                                        "Cannot parse buffer as channel message: "}));
}

TEST(ChannelMessageUtil, TracesMarkersButNeverTheBody)
{
    Hv::Test::LogCapture capture;

    Hv::ChannelMessage message(Channel{"a", "b"}, "secret-body");
    message.pushMarker("c");
    Hv::Util::serializeChannel(message.channel());
    ASSERT_NE(decode("x-y|secret-body"), nullptr);

    const auto traces = capture.messages(log4cplus::TRACE_LOG_LEVEL);
    const auto has = [&](const std::string& text) {
        return std::any_of(traces.begin(), traces.end(),
                           [&](const std::string& line) { return line.find(text) != std::string::npos; });
    };
    EXPECT_TRUE(has("] -> (channel = [a, b])"));
    EXPECT_TRUE(has("] -> (marker = c)"));
    EXPECT_TRUE(has("[] -> (channel = [a, b, c])"));
    EXPECT_TRUE(has("] -> (channel = [x, y])"));
    EXPECT_FALSE(has("secret-body"));
}

} // namespace

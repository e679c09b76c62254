#include "HvAsyncAppStreamMessage.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using Hv::Async::AppStream::Message;

std::string flatten(const std::list<boost::asio::const_buffer>& buffers)
{
    std::string bytes;
    for (const auto& buffer : buffers)
        bytes.append(static_cast<const char*>(buffer.data()), buffer.size());
    return bytes;
}

void receiveLength(Message& message, std::uint32_t length)
{
    std::memcpy(message.lengthBuffer().data(), &length, 4);
}

// The receive path of a stream: length field, check, payload.
void receive(Message& message, const std::string& payload)
{
    receiveLength(message, static_cast<std::uint32_t>(payload.size()));
    ASSERT_TRUE(message.isLengthValid());
    const auto buffer = message.messageBuffer();
    ASSERT_EQ(buffer.size(), payload.size());
    std::memcpy(buffer.data(), payload.data(), payload.size());
}

TEST(AppStreamMessage, FramesChannelMessageWithoutCopying)
{
    const auto channelMessage = std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"a"}, "hi");
    const Message message(channelMessage);
    EXPECT_EQ(message.length(), 4u);
    EXPECT_EQ(flatten(message.data()), std::string("\x04\0\0\0a|hi", 8));

    const auto frame = message.data();
    ASSERT_EQ(frame.size(), 4u);
    EXPECT_EQ(frame.back().data(), channelMessage->message().data());
    EXPECT_EQ(flatten(message.body()), "a|hi");

    // The outgoing half never decodes: the received payload is what channelMessage() reads.
    EXPECT_EQ(message.channelMessage(), nullptr);
}

TEST(AppStreamMessage, AcceptsLengthUpToMaxLength)
{
    Message message;
    EXPECT_FALSE(message.isLengthValid());
    receiveLength(message, 1);
    EXPECT_TRUE(message.isLengthValid());
    receiveLength(message, 1025);
    EXPECT_TRUE(message.isLengthValid());
    receiveLength(message, Hv::ChannelMessage::MAX_LENGTH);
    EXPECT_TRUE(message.isLengthValid());
    receiveLength(message, Hv::ChannelMessage::MAX_LENGTH + 1);
    EXPECT_FALSE(message.isLengthValid());
    EXPECT_EQ(message.messageBuffer().size(), 0u);
    receiveLength(message, 0);
    EXPECT_FALSE(message.isLengthValid());
    EXPECT_EQ(message.messageBuffer().size(), 0u);
    EXPECT_EQ(message.channelMessage(), nullptr);
}

TEST(AppStreamMessage, DecodesCompletePayloadOnly)
{
    Hv::Test::LogCapture capture;

    Message message;
    receive(message, "a-b|x|y");
    EXPECT_TRUE(message.isMessageValid());
    const auto decoded = message.channelMessage();
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->channel(), (Hv::ChannelMessage::Channel{"a", "b"}));
    EXPECT_EQ(decoded->message(), "x|y");

    // A sender's frame read back by a receiver gives the same record.
    const auto sent = std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"ServiceStatus"}, "s");
    const std::string wire = flatten(Message(sent).data());
    Message received;
    std::memcpy(received.lengthBuffer().data(), wire.data(), 4);
    ASSERT_TRUE(received.isLengthValid());
    std::memcpy(received.messageBuffer().data(), wire.data() + 4, wire.size() - 4);
    ASSERT_NE(received.channelMessage(), nullptr);
    EXPECT_EQ(received.channelMessage()->channel(), sent->channel());

    // The payload read stopped short: no record and no warning.
    Message incomplete;
    receive(incomplete, "a|complete");
    receiveLength(incomplete, 20);
    EXPECT_FALSE(incomplete.isMessageValid());
    EXPECT_EQ(incomplete.channelMessage(), nullptr);
    EXPECT_TRUE(capture.messages(log4cplus::WARN_LOG_LEVEL).empty());

    Message malformed;
    receive(malformed, "no separator");
    EXPECT_TRUE(malformed.isMessageValid());
    EXPECT_EQ(malformed.channelMessage(), nullptr);
    EXPECT_EQ(capture.messages(log4cplus::WARN_LOG_LEVEL),
              std::vector<std::string>{"Cannot parse buffer as channel message: no separator"});
}

} // namespace

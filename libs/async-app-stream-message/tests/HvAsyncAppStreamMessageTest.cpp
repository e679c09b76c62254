#include "HvAsyncAppStreamMessage.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

namespace {

using Hv::Async::AppStream::Buffer;
using Hv::Async::AppStream::Message;

// What a stream does with a frame it reads: the length field, its check, then the payload.
void receive(Buffer& frame, const std::string& bytes)
{
    std::memcpy(frame.lengthBuffer().data(), bytes.data(), 4);
    const auto payload = frame.messageBuffer();
    std::memcpy(payload.data(), bytes.data() + 4, std::min(payload.size(), bytes.size() - 4));
}

TEST(FrameLength, BufferTakesUpTo1024AndMessageUpTo64MiB)
{
    Buffer buffer;
    Message message;
    const std::tuple<bool, std::uint32_t, bool> cases[] = {
        // is a message, length, accepted
        {false, 0, false}, {false, 1, true},    {false, 1024, true},    {false, 1025, false},
        {true, 0, false},  {true, 1025, true},  {true, 67108864, true}, {true, 67108865, false},
    };
    for (const auto& [isMessage, length, accepted] : cases) {
        SCOPED_TRACE(length);
        Buffer& frame = isMessage ? message : buffer;
        std::memcpy(frame.lengthBuffer().data(), Hv::Test::frame(length, "").data(), 4);
        EXPECT_EQ(frame.length(), length);
        EXPECT_EQ(frame.isLengthValid(), accepted);
        // The payload is sized by the frame's own limit, and emptied after a refused length.
        EXPECT_EQ(frame.messageBuffer().size(), accepted ? length : 0);
        if (isMessage && !accepted) {
            EXPECT_EQ(message.channelMessage(), nullptr);
        }
    }
}

TEST(AppStreamMessage, FramesWhatItDecodes)
{
    const auto sent = std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"a", "b"}, "x|y");
    const Message outgoing(sent);
    std::string wire;
    for (const auto& piece : outgoing.data())
        wire.append(static_cast<const char*>(piece.data()), piece.size());
    EXPECT_EQ(wire, Hv::Test::frame("a-b|x|y"));

    Message received;
    receive(received, wire);
    ASSERT_TRUE(received.isMessageValid());
    const auto decoded = received.channelMessage();
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->channel(), sent->channel());
    EXPECT_EQ(decoded->message(), "x|y");
}

} // namespace

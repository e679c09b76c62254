#include "HvAsyncAppStreamMessage.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>

using Hv::Async::AppStream::Buffer;

TEST(FrameLength, BufferTakesUpTo1024AndMessageUpTo64MiB)
{
    Buffer buffer;
    Hv::Async::AppStream::Message message;
    const std::tuple<bool, std::uint32_t, bool> cases[] = {
        // is a message, length, accepted
        {false, 0, false}, {false, 1, true},    {false, 1024, true},    {false, 1025, false},
        {true, 0, false},  {true, 1025, true},  {true, 67108864, true}, {true, 67108865, false},
    };
    for (const auto& [isMessage, length, accepted] : cases) {
        SCOPED_TRACE(length);
        Buffer& frame = isMessage ? message : buffer;
        // As a stream receives it: the length field first, then the payload is sized.
        std::memcpy(frame.lengthBuffer().data(), Hv::Test::frame(length, "").data(), 4);
        EXPECT_EQ(frame.length(), length);
        EXPECT_EQ(frame.isLengthValid(), accepted);
        // Sized by the frame's own limit, and emptied after a refused length.
        EXPECT_EQ(frame.messageBuffer().size(), accepted ? length : 0);
        if (isMessage && !accepted) {
            EXPECT_EQ(message.channelMessage(), nullptr);
        }
    }
}

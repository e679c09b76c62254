#include "HvAsyncAppStreamMessage.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(FrameLength, BufferTakesUpTo1024AndMessageUpTo64MiB)
{
    Hv::Async::AppStream::Buffer buffer;
    Hv::Async::AppStream::Message message;
    const std::tuple<bool, std::uint32_t, bool> cases[] = {
        // is a message, length, accepted
        {false, 0, false}, {false, 1, true},    {false, 1024, true},    {false, 1025, false},
        {true, 0, false},  {true, 1025, true},  {true, 67108864, true}, {true, 67108865, false},
    };
    for (const auto& [isMessage, length, accepted] : cases) {
        SCOPED_TRACE(length);
        Hv::Async::AppStream::Buffer& frame = isMessage ? message : buffer;
        // As a stream receives it: the length field first, then the payload is sized by the
        // frame's own limit, and emptied after a refused length.
        std::memcpy(frame.lengthBuffer().data(), Hv::Test::frame(length, "").data(), 4);
        EXPECT_EQ(frame.isLengthValid(), accepted);
        EXPECT_EQ(frame.messageBuffer().max_size(), accepted ? length : 0);
    }
}

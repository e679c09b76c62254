#include "HvAsyncAppStreamBuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using Hv::Async::AppStream::Buffer;

TEST(AppStreamBuffer, FramesGivenBytesBehindALittleEndianLength)
{
    const Buffer buffer(std::vector<char>(0x0102, 'x'));
    std::string wire;
    for (const auto& piece : buffer.data())
        wire.append(static_cast<const char*>(piece.data()), piece.size());
    EXPECT_EQ(wire, std::string("\x02\x01\0\0", 4) + std::string(0x0102, 'x'));
}

TEST(AppStreamBuffer, DumpsHexAndPrintableColumns)
{
    std::string counting;
    for (char c = 0; c < 20; ++c)
        counting += c;
    const std::pair<std::string, std::string> cases[] = {
        {counting, "\n00 01 02 03  04 05 06 07  08 09 0a 0b  0c 0d 0e 0f     ................"
                   "\n10 11 12 13 " + std::string(43, ' ') + "...."},
        // High bytes are unsigned in the hex column and unprintable in the other.
        {"\xff ~\x7fz", "\nff 20 7e 7f  7a " + std::string(3 * 11 + 2 + 4, ' ') + ". ~.z"},
    };
    for (auto [bytes, expected] : cases) {
        log4cplus::tostringstream stream;
        Hv::Async::AppStream::operator<<(stream, boost::asio::mutable_buffers_1(bytes.data(), bytes.size()));
        EXPECT_EQ(stream.str(), expected);
    }
}

} // namespace

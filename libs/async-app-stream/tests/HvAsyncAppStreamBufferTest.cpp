#include "HvAsyncAppStreamBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Hv::Async::AppStream::Buffer;
using Hv::Async::AppStream::operator<<;

std::string flatten(const std::list<boost::asio::const_buffer>& buffers)
{
    std::string bytes;
    for (const auto& buffer : buffers)
        bytes.append(static_cast<const char*>(buffer.data()), buffer.size());
    return bytes;
}

// Writes a received length field the way the stream does: four raw bytes into lengthBuffer().
void receiveLength(Buffer& buffer, std::uint32_t length)
{
    const auto field = buffer.lengthBuffer();
    ASSERT_EQ(field.size(), 4u);
    const unsigned char bytes[4] = {static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8),
                                    static_cast<unsigned char>(length >> 16), static_cast<unsigned char>(length >> 24)};
    std::memcpy(field.data(), bytes, 4);
}

std::string dump(const std::vector<char>& bytes)
{
    std::vector<char> copy = bytes;
    log4cplus::tostringstream stream;
    stream << boost::asio::mutable_buffers_1(copy.data(), copy.size());
    return stream.str();
}

TEST(AppStreamBuffer, FramesGivenBytes)
{
    const Buffer buffer(std::vector<char>{'x', '\0', '\xff'});
    EXPECT_EQ(buffer.length(), 3u);
    EXPECT_TRUE(buffer.isLengthValid());
    EXPECT_EQ(buffer.message(), std::string("x\0\xff", 3));
    EXPECT_EQ(flatten(buffer.data()), std::string("\x03\x00\x00\x00x\0\xff", 7));

    const Buffer empty;
    EXPECT_EQ(empty.length(), 0u);
    EXPECT_FALSE(empty.isLengthValid());
    EXPECT_EQ(flatten(empty.data()), std::string(4, '\0'));
}

TEST(AppStreamBuffer, ReadsLittleEndianLengthWithinLimits)
{
    Buffer buffer;
    receiveLength(buffer, 0x01020304);
    EXPECT_EQ(buffer.length(), 0x01020304u);

    receiveLength(buffer, 0);
    EXPECT_FALSE(buffer.isLengthValid());
    receiveLength(buffer, 1);
    EXPECT_TRUE(buffer.isLengthValid());
    receiveLength(buffer, Buffer::MAX_LENGTH);
    EXPECT_EQ(Buffer::MAX_LENGTH, 1024u);
    EXPECT_TRUE(buffer.isLengthValid());
    receiveLength(buffer, 1025);
    EXPECT_FALSE(buffer.isLengthValid());
}

TEST(AppStreamBuffer, SizesPayloadOnlyForValidLength)
{
    Buffer buffer;
    receiveLength(buffer, 1025);
    EXPECT_EQ(buffer.messageBuffer().size(), 0u);
    EXPECT_TRUE(buffer.message().empty());

    receiveLength(buffer, 5);
    auto payload = buffer.messageBuffer();
    ASSERT_EQ(payload.size(), 5u);
    EXPECT_EQ(std::string(static_cast<const char*>(payload.data()), 5), std::string(5, '\0'));
    std::memcpy(payload.data(), "hello", 5);
    EXPECT_EQ(buffer.message(), "hello");
    EXPECT_EQ(flatten(buffer.data()), std::string("\x05\0\0\0hello", 9));

    // A refused length after a good frame drops the old payload.
    receiveLength(buffer, 0);
    EXPECT_EQ(buffer.messageBuffer().size(), 0u);
    EXPECT_TRUE(buffer.message().empty());
}

TEST(AppStreamBuffer, DumpsHexAndCharacterColumns)
{
    std::vector<char> bytes;
    for (char c = 0; c < 20; ++c)
        bytes.push_back(c);
    EXPECT_EQ(dump(bytes), "\n00 01 02 03  04 05 06 07  08 09 0a 0b  0c 0d 0e 0f     ................"
                           "\n10 11 12 13 " + std::string(43, ' ') + "....");

    EXPECT_EQ(dump({}), "");
    // A line of exactly 16 bytes ends the dump without a padded second line.
    EXPECT_EQ(dump(std::vector<char>(16, 'A')),
              "\n41 41 41 41  41 41 41 41  41 41 41 41  41 41 41 41     AAAAAAAAAAAAAAAA");
    // High bytes are unsigned in the hex column and unprintable in the character column.
    EXPECT_EQ(dump({'\xff', ' ', '~', '\x7f', 'z'}),
              "\nff 20 7e 7f  7a " + std::string(3 * 11 + 2 + 4, ' ') + ". ~.z");
}

} // namespace

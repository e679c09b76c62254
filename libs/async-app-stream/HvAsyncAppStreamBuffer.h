#pragma once

// One length-prefixed frame: four bytes of little-endian payload length, then the payload.
// Streams read the length straight into lengthBuffer(), check isLengthValid(), then read the
// payload into messageBuffer(), which grows as the bytes arrive; they write the gather list of
// data().

#include <boost/asio/buffer.hpp>
#include <boost/asio/buffers_iterator.hpp>

#include <log4cplus/streams.h>

#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <list>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace Hv::Async::AppStream {

class Buffer {
public:
    using Shared = std::shared_ptr<Buffer>;
    using PayloadBuffer = boost::asio::dynamic_vector_buffer<char, std::allocator<char>>;

    // Largest payload of a plain buffer.
    static const std::uint32_t MAX_LENGTH;

    Buffer();
    // Copies the bytes; no limit is checked here.
    explicit Buffer(const std::vector<char>& data);
    virtual ~Buffer();

    // The payload, byte for byte.
    virtual std::string message() const;
    // The four bytes of the length field, for the receive path.
    virtual boost::asio::mutable_buffers_1 lengthBuffer();
    // The payload, emptied, as a buffer that grows while it is read, up to the received length
    // (not at all when the length is refused): the peer's length costs nothing until its bytes
    // are there.
    virtual PayloadBuffer messageBuffer();
    virtual bool isLengthValid() const;
    // The whole frame as a gather list pointing into this object.
    virtual std::list<boost::asio::const_buffer> data() const;
    virtual std::uint32_t length() const;

    // The payload bytes that have arrived, for a log line.
    boost::asio::mutable_buffers_1 payload();
    // Bytes of the frame that have arrived so far, the length field included; the reading stream
    // keeps it, so that an owner can tell a frame stalled halfway from a quiet peer.
    std::size_t receivedLength() const;
    void setReceivedLength(std::size_t length);

protected:
    std::vector<char> m_data;
    std::uint32_t m_length;
    std::size_t m_receivedLength = 0;
};

// Hex dump for log lines: 16 bytes a line in four groups, then the printable characters.
// Every line starts with a line break; an empty range writes nothing.
template <typename Iterator>
log4cplus::tostream& printRawBuffer(log4cplus::tostream& stream, Iterator first, Iterator last)
{
    std::ostringstream hex;
    hex << std::hex << std::setfill('0');
    std::string characters;
    int index = -1;
    const auto emit = [&](int padding) {
        stream << std::endl;
        const std::string text = hex.str();
        for (char c : text)
            stream << static_cast<log4cplus::tchar>(c);
        for (int i = 0; i < padding; ++i)
            stream << LOG4CPLUS_TEXT(' ');
        for (char c : characters)
            stream << static_cast<log4cplus::tchar>(static_cast<unsigned char>(c));
        hex.str(std::string());
        characters.clear();
    };
    for (; first != last; ++first) {
        ++index;
        if (index == 16) {
            emit(4);
            index = 0;
        } else if (index == 4 || index == 8 || index == 12) {
            hex << ' ';
        }
        const auto byte = static_cast<unsigned char>(*first);
        hex << std::setw(2) << static_cast<unsigned>(byte) << ' ';
        characters += std::isprint(byte) ? static_cast<char>(byte) : '.';
    }
    if (index >= 0)
        emit(3 * (15 - index) + (15 - index) / 4 + 4);
    return stream;
}

// Dumps the whole buffer with printRawBuffer.
log4cplus::tostream& operator<<(log4cplus::tostream& stream, const boost::asio::mutable_buffers_1& buffer);

// A buffer to dump into a log line: its first LOGGED_BYTES bytes, then its size when it is longer,
// so that no peer can make a log line big. A log line finds operators through its values'
// namespaces, and the one above belongs to no namespace of boost's buffer: this type carries it
// along.
struct RawBytes {
    static constexpr std::size_t LOGGED_BYTES = 256;

    boost::asio::mutable_buffers_1 buffer;

    friend log4cplus::tostream& operator<<(log4cplus::tostream& stream, const RawBytes& bytes)
    {
        const std::size_t size = bytes.buffer.size();
        if (size <= LOGGED_BYTES)
            return stream << bytes.buffer;
        const auto first = boost::asio::buffers_begin(bytes.buffer);
        printRawBuffer(stream, first, first + LOGGED_BYTES);
        return stream << std::endl << LOG4CPLUS_TEXT("... ") << size << LOG4CPLUS_TEXT(" bytes in all");
    }
};

// Text for a log line: at most its first `LOGGED_BYTES` bytes, then its size when it is longer.
std::string logExcerpt(const std::string& text);

} // namespace Hv::Async::AppStream

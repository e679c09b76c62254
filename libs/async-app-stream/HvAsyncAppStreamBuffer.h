#pragma once

// One length-prefixed frame: four bytes of little-endian payload length, then the payload.
// Streams read the length straight into lengthBuffer(), check isLengthValid(), then read the
// payload into messageBuffer(); they write the gather list of data().

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
    // Sizes the payload to the received length (empty when the length is refused) and returns it.
    virtual boost::asio::mutable_buffers_1 messageBuffer();
    virtual bool isLengthValid() const;
    // The whole frame as a gather list pointing into this object.
    virtual std::list<boost::asio::const_buffer> data() const;
    virtual std::uint32_t length() const;

protected:
    std::vector<char> m_data;
    std::uint32_t m_length;
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

// A buffer to dump into a log line. A log line finds operators through its values' namespaces, and
// the one above belongs to no namespace of boost's buffer: this type carries it along.
struct RawBytes {
    boost::asio::mutable_buffers_1 buffer;

    friend log4cplus::tostream& operator<<(log4cplus::tostream& stream, const RawBytes& bytes)
    {
        return stream << bytes.buffer;
    }
};

} // namespace Hv::Async::AppStream

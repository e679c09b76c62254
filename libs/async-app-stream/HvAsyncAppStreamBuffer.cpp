#include "HvAsyncAppStreamBuffer.h"

#include "HvTrace.h"

#include <algorithm>

namespace Hv::Async::AppStream {

const std::uint32_t Buffer::MAX_LENGTH = 1024;

namespace {

// The most a payload is grown by before its bytes are there.
constexpr std::size_t PIECE_LENGTH = 64 * 1024;

} // namespace

Buffer::Buffer()
    : m_length(0)
{
    HV_TRACE();
}

Buffer::Buffer(const std::vector<char>& data)
    : m_data(data)
    , m_length(static_cast<std::uint32_t>(data.size()))
{
    HV_TRACE(data.size());
}

Buffer::~Buffer() = default;

std::string Buffer::message() const
{
    return std::string(m_data.begin(), m_data.end());
}

boost::asio::mutable_buffers_1 Buffer::lengthBuffer()
{
    return boost::asio::mutable_buffers_1(&m_length, sizeof(m_length));
}

Buffer::PayloadBuffer Buffer::messageBuffer()
{
    m_data.clear();
    if (!isLengthValid()) {
        m_data.shrink_to_fit();
        return boost::asio::dynamic_buffer(m_data, 0);
    }
    // Room for a small frame to arrive in one read; a large one grows piece by piece.
    m_data.reserve(std::min<std::size_t>(m_length, PIECE_LENGTH));
    return boost::asio::dynamic_buffer(m_data, m_length);
}

bool Buffer::isLengthValid() const
{
    return m_length >= 1 && m_length <= MAX_LENGTH;
}

std::list<boost::asio::const_buffer> Buffer::data() const
{
    return {boost::asio::const_buffer(&m_length, sizeof(m_length)),
            boost::asio::const_buffer(m_data.data(), m_data.size())};
}

std::uint32_t Buffer::length() const
{
    return m_length;
}

boost::asio::mutable_buffers_1 Buffer::payload()
{
    return boost::asio::mutable_buffers_1(m_data.data(), m_data.size());
}

std::size_t Buffer::receivedLength() const
{
    return m_receivedLength;
}

void Buffer::setReceivedLength(std::size_t length)
{
    m_receivedLength = length;
}

std::string logExcerpt(const std::string& text)
{
    if (text.size() <= RawBytes::LOGGED_BYTES)
        return text;
    return text.substr(0, RawBytes::LOGGED_BYTES) + "... (" + std::to_string(text.size()) + " bytes in all)";
}

log4cplus::tostream& operator<<(log4cplus::tostream& stream, const boost::asio::mutable_buffers_1& buffer)
{
    return printRawBuffer(stream, boost::asio::buffers_begin(buffer), boost::asio::buffers_end(buffer));
}

} // namespace Hv::Async::AppStream

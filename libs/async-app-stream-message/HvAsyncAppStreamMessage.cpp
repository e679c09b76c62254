#include "HvAsyncAppStreamMessage.h"

#include "HvChannelMessageUtil.h"
#include "HvTrace.h"

namespace Hv::Async::AppStream {

Message::Message()
{
    HV_TRACE();
}

Message::Message(const ChannelMessage::Shared& channelMessage)
    : m_channelMessage(channelMessage)
    , m_serializedChannel(Util::serializeChannel(channelMessage->channel()))
{
    HV_TRACE(channelMessage);
    m_length = static_cast<std::uint32_t>(m_serializedChannel.size() + 1 + channelMessage->message().size());
}

Message::~Message() = default;

bool Message::isLengthValid() const
{
    return m_length >= 1 && m_length <= ChannelMessage::MAX_LENGTH;
}

std::list<boost::asio::const_buffer> Message::data() const
{
    std::list<boost::asio::const_buffer> frame = body();
    frame.push_front(boost::asio::const_buffer(&m_length, sizeof(m_length)));
    return frame;
}

std::list<boost::asio::const_buffer> Message::body() const
{
    return Util::channelMessageBuffer(m_serializedChannel, m_channelMessage->message());
}

bool Message::isMessageValid() const
{
    return m_data.size() == m_length;
}

ChannelMessage::Shared Message::channelMessage() const
{
    if (!isLengthValid() || m_data.size() != m_length)
        return nullptr;
    return Util::channelMessageFromBuffer(boost::asio::const_buffers_1(m_data.data(), m_data.size()));
}

} // namespace Hv::Async::AppStream

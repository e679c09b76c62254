#include "HvChannelMessage.h"

#include "HvTrace.h"

namespace Hv {

const ChannelMessage::Channel ChannelMessage::BROADCAST{"Broadcast"};
const std::uint32_t ChannelMessage::MAX_LENGTH = 67108864;

ChannelMessage::ChannelMessage(const Channel& channel, std::string&& message)
    : m_channel(channel)
    , m_message(std::move(message))
{
    HV_TRACE(channel);
}

ChannelMessage::ChannelMessage(Channel&& channel, std::string&& message)
    : m_message(std::move(message))
{
    // Traced before the hand-over so that the line shows the markers; moving a list is cheap.
    HV_TRACE(channel);
    m_channel = std::move(channel);
}

void ChannelMessage::pushMarker(const std::string& marker)
{
    HV_TRACE(marker);
    if (isBroadcast())
        return;
    m_channel.push_back(marker);
}

void ChannelMessage::popMarker()
{
    HV_TRACE();
    if (m_channel.empty() || isBroadcast())
        return;
    m_channel.pop_back();
}

bool ChannelMessage::isBroadcast() const
{
    return m_channel == BROADCAST;
}

} // namespace Hv

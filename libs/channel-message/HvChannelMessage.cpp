#include "HvChannelMessage.h"

#include "HvTrace.h"

namespace Hv {

namespace {

constexpr std::uint32_t BYTES_PER_MEBIBYTE = 1024 * 1024;
constexpr std::uint32_t MAX_LENGTH_MEBIBYTES = 64;

} // namespace

const ChannelMessage::Channel ChannelMessage::BROADCAST{"Broadcast"};
const std::uint32_t ChannelMessage::MAX_LENGTH = MAX_LENGTH_MEBIBYTES * BYTES_PER_MEBIBYTE;

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

#include "HvChannelMessageUtil.h"

namespace Hv::Util {

std::string serializeChannel(const ChannelMessage::Channel& channel)
{
    HV_TRACE_FREE(channel);
    std::string text;
    for (auto marker = channel.begin(); marker != channel.end(); ++marker) {
        if (marker != channel.begin())
            text += Detail::MARKER_SEPARATOR;
        text += *marker;
    }
    return text;
}

std::list<boost::asio::const_buffer> channelMessageBuffer(const std::string& channel, const std::string& message)
{
    HV_TRACE_FREE(channel);
    return {boost::asio::buffer(channel), boost::asio::buffer(&Detail::CHANNEL_SEPARATOR, 1),
            boost::asio::buffer(message)};
}

} // namespace Hv::Util

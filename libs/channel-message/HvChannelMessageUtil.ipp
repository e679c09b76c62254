#pragma once

#include "HvTrace.h"

#include <boost/asio/buffers_iterator.hpp>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <utility>

namespace Hv::Util {

namespace Detail {
inline constexpr char CHANNEL_SEPARATOR = '|';
inline constexpr char MARKER_SEPARATOR = '-';
} // namespace Detail

template <typename Iterator>
ChannelMessage::Channel parseChannel(Iterator first, Iterator last)
{
    HV_TRACE_FREE();
    ChannelMessage::Channel channel;
    for (;;) {
        const Iterator stop = std::find(first, last, Detail::MARKER_SEPARATOR);
        channel.emplace_back(first, stop);
        if (stop == last)
            return channel;
        first = std::next(stop);
    }
}

namespace Detail {
// The body of a frame can be 64 MiB: copy it in one block when it lies in one buffer instead of
// byte by byte through the buffer-sequence iterator.
template <typename BufferSequence, typename Iterator>
void assignBody(std::string& message, const BufferSequence& buffer, Iterator bodyBegin, Iterator end)
{
    const auto first = boost::asio::buffer_sequence_begin(buffer);
    const auto last = boost::asio::buffer_sequence_end(buffer);
    if (first != last && std::next(first) == last) {
        const boost::asio::const_buffer whole(*first);
        const auto offset = static_cast<std::size_t>(bodyBegin - boost::asio::buffers_begin(buffer));
        message.assign(static_cast<const char*>(whole.data()) + offset, whole.size() - offset);
    } else {
        message.assign(bodyBegin, end);
    }
}
} // namespace Detail

template <typename BufferSequence>
ChannelMessage::Shared channelMessageFromBuffer(const BufferSequence& buffer)
{
    HV_TRACE_FREE();
    const auto begin = boost::asio::buffers_begin(buffer);
    const auto end = boost::asio::buffers_end(buffer);

    ChannelMessage::Channel channel;
    std::string message;
    const auto separator = std::find(begin, end, Detail::CHANNEL_SEPARATOR);
    if (separator != end) {
        channel = parseChannel(begin, separator);
        Detail::assignBody(message, buffer, std::next(separator), end);
    }
    if (channel.empty() || message.empty()) {
        HV_LOG_WARN("Cannot parse buffer as channel message: " << std::string(begin, end));
        return nullptr;
    }
    return std::make_shared<ChannelMessage>(std::move(channel), std::move(message));
}

} // namespace Hv::Util

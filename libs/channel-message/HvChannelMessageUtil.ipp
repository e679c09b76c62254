#pragma once

#include "HvTrace.h"

#include <boost/asio/buffers_iterator.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

namespace Hv::Util {

namespace Detail {
inline constexpr char CHANNEL_SEPARATOR = '|';
inline constexpr char MARKER_SEPARATOR = '-';
// Channels are a few markers. Each marker costs a list node and a string, some 70 times the byte
// that makes it: without a bound a 64 MiB frame of dashes would take gigabytes.
inline constexpr std::ptrdiff_t MAX_MARKERS = 256;
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

// Splits an encoded message held in one block of memory; false when the bytes are no valid
// encoding. The body is copied once, in one block.
inline bool splitEncoding(const char* first, const char* last, ChannelMessage::Channel& channel, std::string& message)
{
    if (first == last)
        return false;
    const auto* separator = static_cast<const char*>(std::memchr(first, CHANNEL_SEPARATOR, static_cast<std::size_t>(last - first)));
    if (separator == nullptr || std::count(first, separator, MARKER_SEPARATOR) >= MAX_MARKERS)
        return false;
    channel = parseChannel(first, separator);
    message.assign(separator + 1, last);
    return !channel.empty() && !message.empty();
}

template <typename Iterator>
bool splitEncoding(Iterator first, Iterator last, ChannelMessage::Channel& channel, std::string& message)
{
    const Iterator separator = std::find(first, last, CHANNEL_SEPARATOR);
    if (separator == last || std::count(first, separator, MARKER_SEPARATOR) >= MAX_MARKERS)
        return false;
    channel = parseChannel(first, separator);
    message.assign(std::next(separator), last);
    return !channel.empty() && !message.empty();
}

} // namespace Detail

template <typename BufferSequence>
ChannelMessage::Shared channelMessageFromBuffer(const BufferSequence& buffer)
{
    HV_TRACE_FREE();
    ChannelMessage::Channel channel;
    std::string message;
    const auto firstBuffer = boost::asio::buffer_sequence_begin(buffer);
    const auto lastBuffer = boost::asio::buffer_sequence_end(buffer);
    // A frame's payload lies in one buffer: scan it as plain memory, not byte by byte through
    // the buffer-sequence iterator.
    bool isValid = false;
    if (firstBuffer != lastBuffer && std::next(firstBuffer) == lastBuffer) {
        const boost::asio::const_buffer whole(*firstBuffer);
        const auto* bytes = static_cast<const char*>(whole.data());
        isValid = Detail::splitEncoding(bytes, bytes + whole.size(), channel, message);
    } else {
        isValid = Detail::splitEncoding(boost::asio::buffers_begin(buffer), boost::asio::buffers_end(buffer), channel, message);
    }
    if (!isValid) {
        // The bytes are a peer's: their start is enough to recognise them.
        constexpr std::size_t SHOWN = 256;
        const std::size_t size = boost::asio::buffer_size(buffer);
        const auto first = boost::asio::buffers_begin(buffer);
        HV_LOG_WARN("Cannot parse buffer as channel message: "
                    << std::string(first, first + static_cast<std::ptrdiff_t>(std::min(size, SHOWN)))
                    << (size > SHOWN ? "... (" + std::to_string(size) + " bytes in all)" : std::string()));
        return nullptr;
    }
    return std::make_shared<ChannelMessage>(std::move(channel), std::move(message));
}

} // namespace Hv::Util

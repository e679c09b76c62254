#pragma once

// The channel message encoding: markers joined by "-", then "|", then the body verbatim.

#include "HvChannelMessage.h"

#include <boost/asio/buffer.hpp>

#include <list>
#include <string>

namespace Hv::Util {

// Markers joined by "-"; an empty channel gives the empty text.
std::string serializeChannel(const ChannelMessage::Channel& channel);

// Splits at every "-". Always yields at least one marker: an empty range gives one empty marker.
template <typename Iterator>
ChannelMessage::Channel parseChannel(Iterator first, Iterator last);

// The encoding as three buffers (channel text, separator, body) pointing into the caller's
// strings, which must outlive the buffers.
std::list<boost::asio::const_buffer> channelMessageBuffer(const std::string& channel, const std::string& message);

// Parses an encoded message; null (after a WARN line) when there is no "|", no body after it, or
// more than 256 markers before it.
template <typename BufferSequence>
ChannelMessage::Shared channelMessageFromBuffer(const BufferSequence& buffer);

} // namespace Hv::Util

#include "HvChannelMessageUtil.ipp"

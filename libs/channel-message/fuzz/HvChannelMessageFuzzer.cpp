// Parses arbitrary bytes as a channel message. A parse that succeeds must encode back to exactly
// the bytes it came from.

#include "HvChannelMessageUtil.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto message = Hv::Util::channelMessageFromBuffer(boost::asio::const_buffers_1(data, size));
    if (!message)
        return 0;
    if (message->channel().empty() || message->message().empty())
        std::abort();
    const std::string channel = Hv::Util::serializeChannel(message->channel());
    std::string encoded;
    for (const auto& buffer : Hv::Util::channelMessageBuffer(channel, message->message()))
        encoded.append(static_cast<const char*>(buffer.data()), buffer.size());
    if (encoded != std::string(reinterpret_cast<const char*>(data), size))
        std::abort();
    return 0;
}

// Parses arbitrary bytes as a channel message. A parse that succeeds must encode back to exactly
// the bytes it came from. The body is then masked as the pipe masks it before logging it.

#include "HvChannelMessageUtil.h"
#include "HvPlatform.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto message = Hv::Util::channelMessageFromBuffer(boost::asio::const_buffers_1(data, size));
    if (!message)
        return 0;
    const std::string channel = Hv::Util::serializeChannel(message->channel());
    std::string encoded;
    for (const auto& buffer : Hv::Util::channelMessageBuffer(channel, message->message()))
        encoded.append(static_cast<const char*>(buffer.data()), buffer.size());
    if (encoded != std::string(reinterpret_cast<const char*>(data), size))
        std::abort();

    // The masking rule as a regular expression: a reference on short bodies only, as the standard
    // engine recurses once per character.
    static const std::regex SECRET("(\")(password|engineLicense)(\":\")[^\"\\n\\r]*(\"|(?=[\\n\\r])|$)");
    const std::string masked = Hv::hideSecretInfo(message->message());
    if (Hv::hideSecretInfo(masked) != masked || (size <= 1024 && masked != std::regex_replace(message->message(), SECRET, "$1$2$3*$4")))
        std::abort();
    return 0;
}

// Feeds arbitrary bytes through the receive path of a stream: four bytes of length, the length
// check, the payload (possibly cut short), then the decode.

#include "HvAsyncAppStreamMessage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Hv::Async::AppStream::Message message;
    const auto length = message.lengthBuffer();
    const std::size_t head = std::min(size, length.size());
    std::memcpy(length.data(), data, head);
    const bool valid = message.isLengthValid();
    // Most random lengths are valid and huge: allocating up to 64 MiB per run would leave the
    // fuzzer a few runs a second for no new paths, as the input can fill at most its -max_len.
    if (valid && message.length() > size + 65536)
        return 0;

    const auto payload = message.messageBuffer();
    if (payload.size() != (valid ? message.length() : 0))
        std::abort();
    const std::size_t copied = std::min(size - head, payload.size());
    if (copied > 0)
        std::memcpy(payload.data(), data + head, copied);

    // messageBuffer() sized the payload, so only a refused non-zero length leaves it short.
    if (message.isMessageValid() != (valid || message.length() == 0))
        std::abort();
    if (message.channelMessage() && !valid)
        std::abort();
    return 0;
}

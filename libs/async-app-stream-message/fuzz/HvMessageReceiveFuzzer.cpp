// Feeds arbitrary bytes through the receive path of a stream: four bytes of length, the length
// check, the payload in pieces as they might arrive (possibly cut short), then the decode.

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

    // Any declared length, however large: the payload grows only with the bytes given.
    auto payload = message.messageBuffer();
    if (payload.size() != 0 || payload.max_size() != (valid ? message.length() : 0))
        std::abort();
    const std::size_t copied = std::min(size - head, payload.max_size());
    // Pieces of a size taken from the first byte, as reads of a socket deliver them.
    const std::size_t piece = 1 + (size > 0 ? data[0] : 0);
    for (std::size_t done = 0; done < copied;) {
        const std::size_t now = std::min(piece, copied - done);
        payload.grow(now);
        std::memcpy(payload.data(done, now).data(), data + head + done, now);
        done += now;
    }
    if (message.payload().size() != copied || message.payload().size() > size)
        std::abort();

    if (message.isMessageValid() != (copied == message.length()))
        std::abort();
    if (message.channelMessage() && (!valid || copied != message.length()))
        std::abort();
    return 0;
}

// Dumps arbitrary bytes. Every line starts with a line break, holds at most 16 bytes, and its
// character column starts at the same offset.

#include "HvAsyncAppStreamBuffer.h"

#include <log4cplus/tstring.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::vector<char> bytes(data, data + size);
    log4cplus::tostringstream stream;
    Hv::Async::AppStream::operator<<(stream, boost::asio::mutable_buffers_1(bytes.data(), bytes.size()));
    const log4cplus::tstring text = stream.str();

    // "\n" + 51-character hex column + 4 spaces, then one character per byte.
    constexpr std::size_t CHARACTERS = 56;
    std::size_t lines = 0;
    std::size_t dumped = 0;
    for (std::size_t start = 0; start < text.size(); ++lines) {
        if (text[start] != '\n')
            std::abort();
        std::size_t end = start + CHARACTERS;
        while (end < text.size() && text[end] != '\n')
            ++end;
        if (end - start <= CHARACTERS || end - start > CHARACTERS + 16)
            std::abort();
        dumped += end - start - CHARACTERS;
        start = end;
    }
    if (dumped != size || lines != (size + 15) / 16)
        std::abort();
    return 0;
}

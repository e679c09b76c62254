// Dumps arbitrary bytes. Every line starts with a line break, holds at most 16 bytes, and its
// character column starts at the same offset. A dump for a log line shows the first bytes only.

#include "HvAsyncAppStreamBuffer.h"

#include <log4cplus/tstring.h>

#include <algorithm>
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

    // Every line but the last holds 16 bytes: "\n", the 51-character hex column, 4 spaces, then one
    // printable character per byte; so the lines start every 72 characters and hold no other "\n".
    constexpr std::size_t CHARACTERS = 56;
    const std::size_t lines = (size + 15) / 16;
    if (text.size() != lines * CHARACTERS + size || std::size_t(std::count(text.begin(), text.end(), LOG4CPLUS_TEXT('\n'))) != lines)
        std::abort();
    for (std::size_t start = 0; start < text.size(); start += CHARACTERS + 16)
        if (text[start] != LOG4CPLUS_TEXT('\n'))
            std::abort();

    // For a log line: the lines of the first bytes (all full ones), and the size when there are more.
    constexpr std::size_t LOGGED = Hv::Async::AppStream::RawBytes::LOGGED_BYTES;
    log4cplus::tostringstream logged;
    logged << Hv::Async::AppStream::RawBytes{boost::asio::mutable_buffers_1(bytes.data(), bytes.size())};
    const std::size_t kept = size <= LOGGED ? text.size() : LOGGED / 16 * (CHARACTERS + 16);
    const log4cplus::tstring rest = size <= LOGGED ? LOG4CPLUS_TEXT("") : LOG4CPLUS_TEXT("\n... ") + LOG4CPLUS_STRING_TO_TSTRING(std::to_string(size)) + LOG4CPLUS_TEXT(" bytes in all");
    if (logged.str() != text.substr(0, kept) + rest)
        std::abort();
    return 0;
}

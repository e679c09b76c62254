#include "HvProcPidText.h"

#include <cstring>

namespace Hv::TaskList::ProcPidText {

std::string processName(const char* text, std::size_t size)
{
    if (size > 0 && text[size - 1] == '\n')
        --size;
    return std::string(text, size);
}

boost::optional<uint32_t> effectiveUid(const char* text, std::size_t size)
{
    static constexpr char key[] = "Uid:";
    constexpr std::size_t keySize = sizeof(key) - 1;
    const char* const end = text + size;
    for (const char* line = text; line < end;) {
        const char* lineEnd = static_cast<const char*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
        if (lineEnd == nullptr)
            lineEnd = end;
        if (static_cast<std::size_t>(lineEnd - line) > keySize && std::memcmp(line, key, keySize) == 0) {
            // "Uid:\t<real>\t<effective>\t<saved>\t<filesystem>"
            const char* p = line + keySize;
            for (int field = 0; field < 2; ++field) {
                while (p != lineEnd && (*p == ' ' || *p == '\t'))
                    ++p;
                uint64_t value = 0;
                const char* const start = p;
                for (; p != lineEnd && *p >= '0' && *p <= '9' && p - start < 10; ++p)
                    value = value * 10 + static_cast<unsigned>(*p - '0');
                if (p == start || value > 0xFFFFFFFFu || (p != lineEnd && *p != ' ' && *p != '\t'))
                    return boost::none;
                if (field == 1)
                    return static_cast<uint32_t>(value);
            }
        }
        line = lineEnd + 1;
    }
    return boost::none;
}

} // namespace Hv::TaskList::ProcPidText

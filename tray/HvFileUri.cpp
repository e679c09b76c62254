#include "HvFileUri.h"

#include "HvTrace.h"

namespace Hv::Tray {

namespace {

bool keptAsIs(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.'
        || c == '_' || c == '~' || c == '/';
}

} // namespace

std::string fileUri(const std::string& absolutePath)
{
    HV_TRACE_FREE(absolutePath);
    static const char HEX[] = "0123456789ABCDEF";
    std::string uri = "file://";
    uri.reserve(uri.size() + absolutePath.size() * 3);
    for (const char byte : absolutePath) {
        const auto c = static_cast<unsigned char>(byte);
        if (keptAsIs(c)) {
            uri += byte;
        } else {
            uri += '%';
            uri += HEX[c >> 4];
            uri += HEX[c & 0x0F];
        }
    }
    return uri;
}

} // namespace Hv::Tray

#pragma once

#include <string>

namespace Hv::Tray {

// "file://" and the absolute path with every byte percent-encoded except the unreserved
// characters of RFC 3986 and "/": file managers take the URI as it is, so blanks, non-ASCII
// names and characters such as "#", "?" or "%" must not reach them raw.
std::string fileUri(const std::string& absolutePath);

} // namespace Hv::Tray

// Parses arbitrary text as a service status. Only the exact text form of a valid status may
// come back valid, and rendering a parsed status must parse back to the same values.

#include "HvServiceStatus.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto status = Hv::ServiceStatus::fromString(text);
    const std::string rendered = status.toString();
    if (status.isValid() && rendered != text)
        std::abort();
    const auto again = Hv::ServiceStatus::fromString(rendered);
    if (again.connectionState() != status.connectionState() || again.error() != status.error())
        std::abort();
    return 0;
}

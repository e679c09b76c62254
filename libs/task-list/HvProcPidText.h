#pragma once

#include <boost/optional.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

// The texts of Linux's /proc/PID/comm and /proc/PID/status, read into TaskInfo values. Pure
// functions, so they are tested on every platform.
namespace Hv::TaskList::ProcPidText {

// The comm text without its line end.
std::string processName(const char* text, std::size_t size);

// The effective user id: the second number of the "Uid:" line; none when there is no such line.
boost::optional<uint32_t> effectiveUid(const char* text, std::size_t size);

} // namespace Hv::TaskList::ProcPidText

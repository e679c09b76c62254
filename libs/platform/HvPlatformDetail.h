#pragma once

// Pieces of the platform rules that are plain logic, shared by the Linux and macOS units and
// tested on their own.

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace Hv::PlatformDetail {

// The value of an environment variable, or nothing when it is unset (an empty value is kept).
std::optional<std::string> environmentValue(const char* name);
// "/tmp" when it is a directory, otherwise "." (the base used when a variable is missing).
boost::filesystem::path fallbackDirectory();
// $HOME; when it is unset, the home folder of this user's password entry ("/" without one). Never
// a folder that other users may write.
boost::filesystem::path homeDirectory();

// The download folder named by the XDG_DOWNLOAD_DIR line of a user-dirs.dirs text, "$HOME"
// expanded to `home`; nothing when the text has no usable line.
std::optional<boost::filesystem::path> downloadDirectoryFromUserDirs(const std::string& text,
                                                                     const std::string& home);

// The shell line that runCommand() hands to system().
std::string commandLine(const std::string& command, const boost::filesystem::path& outputFile,
                        const boost::filesystem::path& workingDirectory);

// The effective user id (second field of the "Uid:" line) of a /proc/PID/status text.
std::optional<std::string> effectiveUidFromStatus(const std::string& statusText);

// processOwner() from the outcome of a kernel task-info query that returned `returnedSize` bytes
// when `expectedSize` were asked for: the uid on a full record, "" plus a log line otherwise.
std::string ownerFromTaskInfo(uint32_t pid, int returnedSize, int expectedSize, uint32_t uid);

// processOwner() on macOS: asks libproc for the task's record of `pid` (Mac/HvProcessOwner.cpp;
// not built on other platforms).
std::string processOwnerFromTaskInfo(uint32_t pid);

} // namespace Hv::PlatformDetail

// Linux rules of the platform functions: XDG folders, /proc and sd-login.

#include "HvPlatform.h"
#include "HvPlatformDetail.h"

#include "HvTrace.h"

#include <boost/filesystem/operations.hpp>

#include <systemd/sd-login.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = boost::filesystem;

namespace Hv {

using PlatformDetail::environmentValue;

const fs::path& appDataDirectory()
{
    static const fs::path directory = [] {
        const std::optional<std::string> dataHome = environmentValue("XDG_DATA_HOME");
        // A relative XDG_DATA_HOME is invalid by the XDG rules and ignored.
        if (dataHome && fs::path(*dataHome).is_absolute())
            return fs::path(*dataHome);
        return PlatformDetail::homeDirectory() / ".local" / "share";
    }();
    return directory;
}

const fs::path& downloadsDirectory()
{
    static const fs::path directory = [] {
        const std::optional<std::string> home = environmentValue("HOME");
        if (!home)
            return tempDirectory();
        const std::optional<std::string> configHome = environmentValue("XDG_CONFIG_HOME");
        const fs::path configDirectory = configHome && fs::path(*configHome).is_absolute()
            ? fs::path(*configHome) : fs::path(*home) / ".config";
        std::ifstream file((configDirectory / "user-dirs.dirs").string());
        std::ostringstream text;
        text << file.rdbuf();
        return PlatformDetail::downloadDirectoryFromUserDirs(text.str(), *home).value_or(fs::path(*home) / "Downloads");
    }();
    return directory;
}

const std::string& autoUpdatePackName()
{
    static const std::string name = "HalvoSoftphone-Linux.zip";
    return name;
}

namespace {

// The whole of a small /proc file; false with errno set when it cannot be read.
bool readProcFile(const std::string& path, std::string& text)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(fd, buffer, sizeof(buffer))) > 0)
        text.append(buffer, static_cast<std::size_t>(count));
    const int readError = errno;
    ::close(fd);
    errno = readError;
    return count == 0;
}

} // namespace

std::string processOwner(uint32_t pid)
{
    HV_TRACE_FREE(pid);
    std::string status;
    if (!readProcFile("/proc/" + std::to_string(pid) + "/status", status)) {
        // ENOENT (no such process) and ESRCH (it ended while being read) mean it is gone.
        if (errno == ENOENT || errno == ESRCH)
            HV_LOG_INFO("Unable to get process info for pid: " << pid);
        else
            HV_LOG_ERROR("Error while getting process info for pid: " << pid);
        return std::string();
    }
    const std::optional<std::string> uid = PlatformDetail::effectiveUidFromStatus(status);
    if (!uid) {
        HV_LOG_ERROR("Error while getting process info for pid: " << pid);
        return std::string();
    }
    return *uid;
}

bool isSystemSessionActive()
{
    HV_TRACE_FREE();
    char* session = nullptr;
    if (sd_pid_get_session(0, &session) < 0 || session == nullptr) {
        std::free(session);
        session = nullptr;
        // Not inside a session (a service, a terminal multiplexer): use the user's graphical one.
        if (sd_uid_get_display(::getuid(), &session) < 0 || session == nullptr) {
            std::free(session);
            return false;
        }
    }
    const int active = sd_session_is_active(session);
    std::free(session);
    return active > 0;
}

} // namespace Hv

#include "HvAsyncLocalPipeImpl.h"

#include "HvPlatform.h"

#include <boost/filesystem/operations.hpp>

#include <malloc.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Hv::Async::LocalPipe::Impl {

namespace {

// Empty when `folder` is a real folder of this user that nobody else may enter; otherwise what
// is wrong with it.
std::string privateFolderProblem(const boost::filesystem::path& folder)
{
    // The folder is looked at itself, never through a link another user could have planted.
    struct stat info{};
    if (::lstat(folder.c_str(), &info) != 0)
        return "the folder " + folder.string() + " cannot be read: " + std::strerror(errno);
    if (S_ISLNK(info.st_mode))
        return "the folder " + folder.string() + " is a symbolic link";
    if (!S_ISDIR(info.st_mode))
        return folder.string() + " is not a folder";
    if (info.st_uid != ::geteuid())
        return "the folder " + folder.string() + " belongs to user id " + std::to_string(info.st_uid);
    if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(info.st_mode & 07777));
        return "the folder " + folder.string() + " is open to other users (mode " + mode + ")";
    }
    return std::string();
}

} // namespace

SocketFolder socketDirectory()
{
    // The runtime folder is the user's own.
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    boost::system::error_code error;
    if (runtime != nullptr && *runtime != '\0' && boost::filesystem::is_directory(runtime, error))
        return {runtime, std::string()};
    // The temporary folder is shared by all users here: a folder of this user's own inside it, so
    // that no other user can take or block the socket's name.
    const boost::filesystem::path folder = tempDirectory() / ("halvophone-" + std::to_string(::geteuid()));
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        return {folder, "the folder " + folder.string() + " cannot be made: " + std::strerror(errno)};
    return {folder, privateFolderProblem(folder)};
}

std::optional<uid_t> peerUserId(int socket)
{
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || size != sizeof(credentials))
        return std::nullopt;
    return credentials.uid;
}

void releaseFreeMemory()
{
    // glibc keeps freed heap pages of a large frame mapped; they would count as the tray's own.
    ::malloc_trim(0);
}

} // namespace Hv::Async::LocalPipe::Impl

#include "HvAsyncLocalPipeImpl.h"

#include "HvPlatform.h"

#include <boost/filesystem/operations.hpp>

#include <sys/socket.h>

#include <cstdlib>

namespace Hv::Async::LocalPipe::Impl {

boost::filesystem::path socketDirectory()
{
    // /tmp is shared by all users here; the runtime folder is the user's own.
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    boost::system::error_code error;
    if (runtime != nullptr && *runtime != '\0' && boost::filesystem::is_directory(runtime, error))
        return runtime;
    return tempDirectory();
}

std::optional<uid_t> peerUserId(int socket)
{
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || size != sizeof(credentials))
        return std::nullopt;
    return credentials.uid;
}

} // namespace Hv::Async::LocalPipe::Impl

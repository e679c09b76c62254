#include "HvAsyncLocalPipeImpl.h"

#include "HvPlatform.h"

#include <unistd.h>

namespace Hv::Async::LocalPipe::Impl {

SocketFolder socketDirectory()
{
    // The per-user temporary folder ($TMPDIR) is private to the user already.
    return {tempDirectory(), std::string()};
}

std::optional<uid_t> peerUserId(int socket)
{
    uid_t user = 0;
    gid_t group = 0;
    if (getpeereid(socket, &user, &group) != 0)
        return std::nullopt;
    return user;
}

void releaseFreeMemory()
{
    // The system allocator returns large blocks by itself.
}

} // namespace Hv::Async::LocalPipe::Impl

#pragma once

// Platform parts of the local pipe: where socket files live and who is on the other end.

#include <boost/filesystem/path.hpp>

#include <sys/types.h>

#include <optional>
#include <string>

namespace Hv::Async::LocalPipe::Impl {

struct SocketFolder {
    boost::filesystem::path path;
    // What makes the folder unusable; empty when it may be used.
    std::string problem;
};

// The folder of the pipes' socket files, private to the user. Made when it is missing, and
// checked before every use where others could have put something in its place.
SocketFolder socketDirectory();
// The user id of the process at the other end of a connected local socket.
std::optional<uid_t> peerUserId(int socket);
// Gives memory freed after a large frame back to the system, where the allocator keeps it.
void releaseFreeMemory();

} // namespace Hv::Async::LocalPipe::Impl

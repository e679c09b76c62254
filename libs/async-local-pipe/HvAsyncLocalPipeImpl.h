#pragma once

// Platform parts of the local pipe: where socket files live and who is on the other end.

#include <boost/filesystem/path.hpp>

#include <sys/types.h>

#include <optional>

namespace Hv::Async::LocalPipe::Impl {

// The folder of the pipes' socket files, private to the user where the platform allows.
boost::filesystem::path socketDirectory();
// The user id of the process at the other end of a connected local socket.
std::optional<uid_t> peerUserId(int socket);

} // namespace Hv::Async::LocalPipe::Impl

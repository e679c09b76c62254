#pragma once

// What the tests of every library share: files and folders, frames, processes, bounded runs of
// the event loop.

#include <boost/asio/io_context.hpp>
#include <boost/filesystem/path.hpp>

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Hv::Test {

// A fresh folder "<prefix>-XXXXXX" in the temporary directory ($TMPDIR, else /tmp).
boost::filesystem::path makeTemporaryFolder(const std::string& prefix);

// A fresh folder in the temporary directory, removed with everything in it at the end of the scope.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const boost::filesystem::path& path() const { return m_path; }

private:
    boost::filesystem::path m_path;
};

// The whole content of a file, byte for byte ("" when it cannot be read).
std::string readFile(const boost::filesystem::path& path);
// Writes a file, creating its missing parent folders.
void writeFile(const boost::filesystem::path& path, const std::string& text);
std::vector<std::string> splitLines(const std::string& text);
// What a shell command writes to its standard output.
std::string commandOutput(const std::string& command);

// The bytes of a frame: the length field as given (little-endian), then the payload.
inline std::string frame(std::uint32_t length, const std::string& payload)
{
    const char field[] = {char(length), char(length >> 8), char(length >> 16), char(length >> 24)};
    return std::string(field, 4) + payload;
}
inline std::string frame(const std::string& payload)
{
    return frame(static_cast<std::uint32_t>(payload.size()), payload);
}

// Runs `body` in a forked child, so that the process-wide state it sets up (the logger, the
// cached directories, the environment) starts afresh; the child's failures fail the caller.
// Returns the child's pid.
pid_t inFreshProcess(const std::function<void()>& body);

// A forked child that runs `body` and then exits (status 0), or waits to be killed; killed on
// destruction if it still runs.
class Process {
public:
    explicit Process(const std::function<void()>& body);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return m_pid; }
    // The wait status once the process has ended, polled without blocking.
    std::optional<int> poll();
    void kill();

private:
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

// Runs the event loop in short slices until done() holds or the limit passes; never sleeps
// blindly. done() is asked once per slice, so it may have side effects (a connection attempt).
template <typename Predicate>
bool runUntil(boost::asio::io_context& ioContext, Predicate done,
              std::chrono::milliseconds limit = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        ioContext.restart();
        ioContext.run_one_for(std::chrono::milliseconds(5));
    }
}

} // namespace Hv::Test

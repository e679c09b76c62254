#pragma once

// Processes and bounded event-loop runs for the local pipe tests.

#include "HvRunUntil.h"

#include <boost/asio/io_context.hpp>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace Hv::Test {

inline void runFor(boost::asio::io_context& ioContext, std::chrono::milliseconds duration)
{
    runUntil(ioContext, [] { return false; }, duration);
}

// A started program; killed on destruction if it still runs.
class Process {
public:
    explicit Process(const std::vector<std::string>& arguments)
    {
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        if (posix_spawn(&m_pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
            m_pid = -1;
    }
    explicit Process(pid_t pid)
        : m_pid(pid)
    {
    }
    ~Process()
    {
        if (m_pid > 0 && !m_status) {
            ::kill(m_pid, SIGKILL);
            int status = 0;
            ::waitpid(m_pid, &status, 0);
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return m_pid; }
    bool started() const { return m_pid > 0; }

    // The wait status once the process has ended, polled without blocking.
    std::optional<int> poll()
    {
        if (!m_status && m_pid > 0) {
            int status = 0;
            if (::waitpid(m_pid, &status, WNOHANG) == m_pid)
                m_status = status;
        }
        return m_status;
    }
    bool exitedWith(int code)
    {
        const auto status = poll();
        return status && WIFEXITED(*status) && WEXITSTATUS(*status) == code;
    }
    void kill()
    {
        ::kill(m_pid, SIGKILL);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_status = status;
    }

private:
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

} // namespace Hv::Test

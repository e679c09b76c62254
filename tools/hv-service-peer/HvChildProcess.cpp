#include "HvChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

extern char** environ;

namespace Hv::ServicePeer {

std::optional<ChildProcess> ChildProcess::start(const std::vector<std::string>& arguments, std::string& error)
{
    if (arguments.empty()) {
        error = "no program to start";
        return std::nullopt;
    }
    int ends[2];
    // Close-on-exec for both ends: the child sees the read end only as its descriptor 0.
    if (::pipe(ends) != 0 || ::fcntl(ends[0], F_SETFD, FD_CLOEXEC) != 0 || ::fcntl(ends[1], F_SETFD, FD_CLOEXEC) != 0) {
        error = std::string("pipe: ") + std::strerror(errno);
        return std::nullopt;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    // This process ignores SIGPIPE and catches SIGINT/SIGTERM; the child starts clean.
    for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGCHLD, SIGHUP})
        sigaddset(&defaults, signal);
    sigset_t noMask;
    sigemptyset(&noMask);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &noMask);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);

    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int result = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(ends[0]);
    if (result != 0) {
        ::close(ends[1]);
        error = "cannot start " + arguments[0] + ": " + std::strerror(result);
        return std::nullopt;
    }
    return ChildProcess(pid, ends[1]);
}

ChildProcess::ChildProcess(pid_t pid, int input)
    : m_pid(pid)
    , m_input(input)
{
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_pid(other.m_pid)
    , m_input(other.m_input)
    , m_status(other.m_status)
{
    other.m_pid = -1;
    other.m_input = -1;
}

ChildProcess::~ChildProcess()
{
    closeInput();
}

pid_t ChildProcess::pid() const
{
    return m_pid;
}

void ChildProcess::closeInput()
{
    if (m_input >= 0)
        ::close(m_input);
    m_input = -1;
}

std::optional<int> ChildProcess::poll()
{
    if (!m_status && m_pid > 0) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid)
            m_status = status;
    }
    return m_status;
}

void ChildProcess::kill()
{
    if (m_pid > 0 && !poll())
        ::kill(m_pid, SIGKILL);
}

std::string describeWaitStatus(int status)
{
    if (WIFEXITED(status))
        return "exited with status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) {
        const char* name = ::strsignal(WTERMSIG(status));
        return "was killed by signal " + std::to_string(WTERMSIG(status)) + " (" + (name ? name : "?") + ")";
    }
    return "ended with wait status " + std::to_string(status);
}

int exitCodeOf(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return 1;
}

} // namespace Hv::ServicePeer

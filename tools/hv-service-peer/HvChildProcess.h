#pragma once

// The parent role of hv-service-peer: a child program whose standard input is a pipe held by
// this process, so that closing the pipe tells the child that its parent is done.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace Hv::ServicePeer {

class ChildProcess {
public:
    // Starts arguments[0] with the arguments. The child gets the pipe on descriptor 0, this
    // process's standard output and error, default signal handling and a process group of its
    // own, so that a Ctrl-C meant for the parent does not end it behind the parent's back.
    // Empty with `error` set when the program cannot be started.
    static std::optional<ChildProcess> start(const std::vector<std::string>& arguments, std::string& error);

    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ChildProcess(const ChildProcess&) = delete;
    // Closes the pipe; a child still running is left to end by itself.
    ~ChildProcess();

    pid_t pid() const;
    // The end of the child's standard input.
    void closeInput();
    // The wait status once the child has ended, asked without blocking.
    std::optional<int> poll();
    void kill();

private:
    ChildProcess(pid_t pid, int input);

    pid_t m_pid;
    int m_input;
    std::optional<int> m_status;
};

// "exited with status N" or "was killed by signal N (NAME)".
std::string describeWaitStatus(int status);
// The shell's convention: the exit status, or 128 + the signal number.
int exitCodeOf(int status);

} // namespace Hv::ServicePeer

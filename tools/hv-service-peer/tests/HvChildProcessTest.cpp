#include "HvChildProcess.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

namespace {

using Hv::ServicePeer::ChildProcess;

std::optional<int> waitFor(ChildProcess& child, std::chrono::milliseconds limit = std::chrono::seconds(5))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!child.poll() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return child.poll();
}

// The mask of ignored signals of a process, from /proc.
unsigned long long ignoredSignals(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("SigIgn:", 0) == 0)
            return std::stoull(line.substr(7), nullptr, 16);
    return ~0ull;
}

TEST(ChildProcessTest, ClosingTheInputEndsAChildThatReadsIt)
{
    // As the tool does; the child must not inherit it.
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    std::string error;
    auto child = ChildProcess::start({"/bin/cat"}, error);
    std::signal(SIGPIPE, previous);
    ASSERT_TRUE(child) << error;
    EXPECT_TRUE(error.empty());
    EXPECT_FALSE(waitFor(*child, std::chrono::milliseconds(200)));
    EXPECT_EQ(::getpgid(child->pid()), child->pid());
    EXPECT_EQ(ignoredSignals(child->pid()) & (1ull << (SIGPIPE - 1)), 0u);

    child->closeInput();
    const auto status = waitFor(*child);
    ASSERT_TRUE(status);
    EXPECT_EQ(Hv::ServicePeer::describeWaitStatus(*status), "exited with status 0");
    EXPECT_EQ(Hv::ServicePeer::exitCodeOf(*status), 0);
}

TEST(ChildProcessTest, ReportsFailuresAndSignals)
{
    std::string error;
    EXPECT_FALSE(ChildProcess::start({"/nonexistent/tray"}, error));
    EXPECT_NE(error.find("/nonexistent/tray"), std::string::npos) << error;

    auto child = ChildProcess::start({"/bin/cat"}, error);
    ASSERT_TRUE(child) << error;
    child->kill();
    const auto status = waitFor(*child);
    ASSERT_TRUE(status);
    EXPECT_EQ(Hv::ServicePeer::exitCodeOf(*status), 128 + SIGKILL);
    EXPECT_EQ(Hv::ServicePeer::describeWaitStatus(*status).rfind("was killed by signal 9 (", 0), 0u);

    int exited = 0;
    if (const pid_t pid = ::fork(); pid == 0) {
        _exit(3);
    } else {
        ::waitpid(pid, &exited, 0);
    }
    EXPECT_EQ(Hv::ServicePeer::describeWaitStatus(exited), "exited with status 3");
    EXPECT_EQ(Hv::ServicePeer::exitCodeOf(exited), 3);
}

} // namespace

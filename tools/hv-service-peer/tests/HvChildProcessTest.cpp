#include "HvChildProcess.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

namespace {

using namespace Hv::ServicePeer;

// Closing the child's input, and a status of 0, are what the end-to-end tests of the tray check
// through the tool.
TEST(ChildProcessTest, RunsInAGroupOfItsOwnAndTellsHowItEnded)
{
    std::string error;
    EXPECT_FALSE(ChildProcess::start({"/nonexistent/tray"}, error));
    EXPECT_NE(error.find("/nonexistent/tray"), std::string::npos) << error;

    auto child = ChildProcess::start({"/bin/cat"}, error);
    ASSERT_TRUE(child) << error;
    // A Ctrl-C meant for the tool's group does not end the child behind its back.
    EXPECT_EQ(::getpgid(child->pid()), child->pid());
    child->kill();
    for (int i = 0; i < 1000 && !child->poll(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(child->poll());
    EXPECT_EQ(exitCodeOf(*child->poll()), 128 + SIGKILL);
    EXPECT_EQ(describeWaitStatus(*child->poll()).rfind("was killed by signal 9 (", 0), 0u) << describeWaitStatus(*child->poll());
}

} // namespace

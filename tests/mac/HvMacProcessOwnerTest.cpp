// The libproc half of the macOS processOwner() against the scripted libproc double.

#include "HvLibprocScript.h"
#include "HvPlatformDetail.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

namespace {

namespace Libproc = Hv::Test::Libproc;
using Hv::PlatformDetail::processOwnerFromTaskInfo;

TEST(MacProcessOwner, UserIdOrEmptyWithTheReason)
{
    Hv::Test::LogCapture capture;
    Libproc::reset();
    Libproc::Process user;
    user.uid = 501;
    Libproc::script().processes[600] = user;
    Libproc::Process refused;
    refused.taskInfoResult = 64;
    refused.uid = 502;
    Libproc::script().processes[601] = refused;

    EXPECT_EQ("501", processOwnerFromTaskInfo(600));
    EXPECT_EQ("", processOwnerFromTaskInfo(601));
    EXPECT_EQ("", processOwnerFromTaskInfo(602)); // no such process

    // Exactly one line each (the logger may add its header line at INFO).
    EXPECT_EQ(1u, capture.count(log4cplus::INFO_LOG_LEVEL, "process info"));
    EXPECT_EQ(1u, capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 602"));
    EXPECT_EQ((std::vector<std::string>{"Error while getting process info for pid: 601"}),
              capture.messages(log4cplus::ERROR_LOG_LEVEL));
    EXPECT_EQ((std::vector<int>{600, 601, 602}), Libproc::script().taskInfoPids);
    Libproc::reset();
}

} // namespace

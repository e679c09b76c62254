// The macOS process walk (libs/task-list/Mac) against the scripted libproc double and the real
// user database.

#include "HvLibprocScript.h"
#include "HvTaskList.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <pwd.h>

#include <vector>

namespace {

using Hv::TaskList::TaskInfo;
namespace Libproc = Hv::Test::Libproc;

// A uid that no user database here has.
constexpr uid_t UID_WITHOUT_USER = 3999999;

Libproc::Process process(const std::string& name, uid_t uid, int taskInfoResult = 232)
{
    Libproc::Process result;
    result.name = name;
    result.uid = uid;
    result.taskInfoResult = taskInfoResult;
    return result;
}

class MacTaskList : public ::testing::Test {
protected:
    void SetUp() override { Libproc::reset(); }
    void TearDown() override { Libproc::reset(); }

    Hv::Test::LogCapture m_capture;
};

TEST_F(MacTaskList, NamesOwnersAndFailuresOfEveryListedProcess)
{
    ASSERT_EQ(nullptr, getpwuid(UID_WITHOUT_USER));
    const passwd* root = getpwuid(0);
    ASSERT_NE(nullptr, root);
    const std::string rootName = root->pw_name;

    Libproc::script().pids = {1, 77, 5, 9, 12};
    Libproc::script().processes[1] = process("launchd", 0);
    // The kernel keeps at most 32 bytes of a name, without a terminator when it is that long.
    Libproc::script().processes[77] = process("abcdefghijklmnopqrstuvwxyz012345", UID_WITHOUT_USER);
    // pid 5 exited after the listing.
    Libproc::script().processes[9] = process("odd", 0, 100);
    Libproc::script().processes[12] = process("negative", 0, -1);

    std::vector<TaskInfo> records;
    EXPECT_FALSE(Hv::TaskList::searchInTable([&records](const TaskInfo& info) {
        records.push_back(info);
        return false;
    }));

    ASSERT_EQ(5u, records.size());
    EXPECT_EQ(1u, records[0].m_pid);
    EXPECT_EQ("launchd", records[0].m_name);
    EXPECT_EQ(rootName, records[0].m_owner);
    EXPECT_EQ(77u, records[1].m_pid);
    EXPECT_EQ("abcdefghijklmnopqrstuvwxyz012345", records[1].m_name);
    EXPECT_EQ("<unknown>", records[1].m_owner);
    EXPECT_EQ(5u, records[2].m_pid);
    EXPECT_EQ("<unknown>", records[2].m_name);
    EXPECT_EQ("<unknown>", records[2].m_owner);
    EXPECT_EQ("<error>", records[3].m_name);
    EXPECT_EQ("<error>", records[3].m_owner);
    EXPECT_EQ(12u, records[4].m_pid);
    EXPECT_EQ("<error>", records[4].m_name);

    // The logger may add its header line at INFO.
    EXPECT_EQ(1u, m_capture.count(log4cplus::INFO_LOG_LEVEL, "process info"));
    EXPECT_EQ(1u, m_capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 5"));
    EXPECT_EQ((std::vector<std::string>{"Error while getting process info for pid: 9",
                                        "Error while getting process info for pid: 12"}),
              m_capture.messages(log4cplus::ERROR_LOG_LEVEL));
}

TEST_F(MacTaskList, ListsWhatTheSizeQueryCountedAndStopsAtTheFirstMatch)
{
    Libproc::script().pids = {4, 2, 8};
    Libproc::script().pidsStartingAfterSizeQuery = {16, 32};
    for (int pid : {2, 4, 8, 16, 32})
        Libproc::script().processes[pid] = process("p" + std::to_string(pid), 0);

    const auto found = Hv::TaskList::searchInTable([](const TaskInfo& info) { return info.m_name == "p2"; });

    ASSERT_TRUE(found);
    EXPECT_EQ(2u, found->m_pid);
    // The listing is told the size that the query gave, although the buffer has twice the room.
    EXPECT_EQ((std::vector<int>{12}), Libproc::script().listBufferSizes);
    EXPECT_EQ((std::vector<int>{4, 2}), Libproc::script().taskInfoPids);

    Libproc::script().taskInfoPids.clear();
    EXPECT_FALSE(Hv::TaskList::searchInTable([](const TaskInfo&) { return false; }));
    EXPECT_EQ((std::vector<int>{4, 2, 8, 16, 32}), Libproc::script().taskInfoPids);
}

TEST_F(MacTaskList, EmptyListingGivesNothing)
{
    bool visited = false;
    EXPECT_FALSE(Hv::TaskList::searchInTable([&visited](const TaskInfo&) { return visited = true; }));
    EXPECT_FALSE(visited);
}

} // namespace

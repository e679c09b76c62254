#include "HvTaskList.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

using Hv::TaskList::TaskInfo;

std::string text(const TaskInfo& info)
{
    log4cplus::tostringstream out;
    out << info;
    return out.str();
}

std::vector<TaskInfo> wholeTable(const std::function<void(const TaskInfo&)>& visit = {})
{
    std::vector<TaskInfo> records;
    const auto found = Hv::TaskList::searchInTable([&](const TaskInfo& info) {
        if (visit)
            visit(info);
        records.push_back(info);
        return false;
    });
    EXPECT_FALSE(found);
    return records;
}

const TaskInfo* find(const std::vector<TaskInfo>& records, pid_t pid)
{
    const auto record = std::find_if(records.begin(), records.end(),
                                     [pid](const TaskInfo& info) { return info.m_pid == static_cast<uint32_t>(pid); });
    return record == records.end() ? nullptr : &*record;
}

// A child that takes the name (and, when uid >= 0, the user id) and waits to be killed.
pid_t namedChild(const char* name, int uid = -1)
{
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        close(ready[0]);
        prctl(PR_SET_NAME, name);
        const char state = uid < 0 || setresuid(uid, uid, uid) == 0 ? 'y' : 'n';
        (void)!write(ready[1], &state, 1);
        for (;;)
            pause();
    }
    close(ready[1]);
    char state = 'n';
    (void)!read(ready[0], &state, 1);
    close(ready[0]);
    EXPECT_EQ(state, 'y');
    return child;
}

void stop(pid_t child)
{
    if (child > 0 && kill(child, SIGKILL) == 0)
        waitpid(child, nullptr, 0);
}

TEST(TaskInfo, PrintsOneLineBody)
{
    EXPECT_EQ(text(TaskInfo(42, "bash", "alice")), " PROCESS 'bash', OWNER 'alice', PID 42");
    EXPECT_EQ(text(TaskInfo(4294967295u, "<unknown>", "<error>")),
              " PROCESS '<unknown>', OWNER '<error>', PID 4294967295");
    EXPECT_EQ(text(TaskInfo(1, "", "")), " PROCESS '', OWNER '', PID 1");
}

TEST(TaskList, ListsEveryProcessOnceWithNameAndOwner)
{
    const passwd* const user = getpwuid(geteuid());
    ASSERT_NE(user, nullptr);
    const std::string owner = user->pw_name;
    const pid_t child = namedChild("hv-task-child");

    const std::vector<TaskInfo> records = wholeTable();
    stop(child);

    // Ascending, each pid once.
    std::vector<uint32_t> pids;
    for (const TaskInfo& info : records)
        pids.push_back(info.m_pid);
    EXPECT_TRUE(std::adjacent_find(pids.begin(), pids.end(), std::greater_equal<uint32_t>()) == pids.end());

    const TaskInfo* const self = find(records, getpid());
    ASSERT_NE(self, nullptr);
    EXPECT_EQ(self->m_owner, owner);
    EXPECT_EQ(self->m_name, std::string("task-list-tests").substr(0, 15));

    const TaskInfo* const named = find(records, child);
    ASSERT_NE(named, nullptr);
    EXPECT_EQ(text(*named), " PROCESS 'hv-task-child', OWNER '" + owner + "', PID " + std::to_string(child));

    ASSERT_NE(find(records, 1), nullptr);
    EXPECT_NE(find(records, 1)->m_name, "<unknown>");

    // The search stops at the first accepted record.
    const uint32_t pid = static_cast<uint32_t>(getpid());
    std::vector<uint32_t> offered;
    const auto found = Hv::TaskList::searchInTable([&offered, pid](const TaskInfo& info) {
        offered.push_back(info.m_pid);
        return info.m_pid == pid;
    });
    ASSERT_TRUE(found);
    EXPECT_EQ(found->m_pid, pid);
    EXPECT_EQ(offered.back(), pid);
    EXPECT_TRUE(std::all_of(offered.begin(), offered.end() - 1, [pid](uint32_t other) { return other < pid; }));
}

TEST(TaskList, ProcessThatVanishedIsUnknown)
{
    Hv::Test::LogCapture capture;
    const pid_t child = namedChild("hv-vanishing");
    ASSERT_GT(child, 0);

    // The listing is taken before the first record is offered; the child goes away right then.
    bool stopped = false;
    const std::vector<TaskInfo> records = wholeTable([&](const TaskInfo&) {
        if (!stopped) {
            stop(child);
            stopped = true;
        }
    });
    ASSERT_LT(records.front().m_pid, static_cast<uint32_t>(child));

    const TaskInfo* const gone = find(records, child);
    ASSERT_NE(gone, nullptr);
    EXPECT_EQ(gone->m_name, "<unknown>");
    EXPECT_EQ(gone->m_owner, "<unknown>");
    EXPECT_EQ(capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: " + std::to_string(child)),
              1u);
}

TEST(TaskList, UserWithoutEntryLeavesOwnerUnknown)
{
    constexpr int UID_WITHOUT_ENTRY = 54321;
    if (geteuid() != 0 || getpwuid(UID_WITHOUT_ENTRY) != nullptr)
        GTEST_SKIP() << "needs root and a uid without a user entry";
    const pid_t child = namedChild("hv-no-user", UID_WITHOUT_ENTRY);

    const std::vector<TaskInfo> records = wholeTable();
    stop(child);

    const TaskInfo* const record = find(records, child);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->m_name, "hv-no-user");
    EXPECT_EQ(record->m_owner, "<unknown>");
}

} // namespace

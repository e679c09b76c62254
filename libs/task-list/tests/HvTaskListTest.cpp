#include "HvTaskList.h"

#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
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

std::vector<TaskInfo> wholeTable(const std::function<void()>& onFirst = {})
{
    std::vector<TaskInfo> records;
    EXPECT_FALSE(Hv::TaskList::searchInTable([&](const TaskInfo& info) {
        if (records.empty() && onFirst)
            onFirst();
        records.push_back(info);
        return false;
    }));
    return records;
}

const TaskInfo* find(const std::vector<TaskInfo>& records, pid_t pid)
{
    const auto record = std::find_if(records.begin(), records.end(),
                                     [pid](const TaskInfo& info) { return info.m_pid == static_cast<uint32_t>(pid); });
    return record == records.end() ? nullptr : &*record;
}

// A child that has taken the name (and, when uid >= 0, the user id) and waits to be killed.
std::unique_ptr<Hv::Test::Process> namedChild(const char* name, int uid = -1)
{
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    auto child = std::make_unique<Hv::Test::Process>([&] {
        prctl(PR_SET_NAME, name);
        const char state = uid < 0 || setresuid(uid, uid, uid) == 0 ? 'y' : 'n';
        (void)!write(ready[1], &state, 1);
        for (;;)
            pause();
    });
    char state = 'n';
    (void)!read(ready[0], &state, 1);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(state, 'y');
    return child;
}

TEST(TaskList, ListsEveryProcessOnceInOrderWithNameAndOwner)
{
    const std::string owner = getpwuid(geteuid())->pw_name;
    const auto child = namedChild("hv-task-child");
    const std::vector<TaskInfo> records = wholeTable();

    std::vector<uint32_t> pids;
    for (const TaskInfo& info : records)
        pids.push_back(info.m_pid);
    EXPECT_TRUE(std::adjacent_find(pids.begin(), pids.end(), std::greater_equal<uint32_t>()) == pids.end());
    ASSERT_NE(find(records, getpid()), nullptr);
    EXPECT_EQ(find(records, getpid())->m_name, "task-list-tests");
    ASSERT_NE(find(records, child->pid()), nullptr);
    EXPECT_EQ(text(*find(records, child->pid())),
              " PROCESS 'hv-task-child', OWNER '" + owner + "', PID " + std::to_string(child->pid()));

    // The search stops at the first accepted record.
    const uint32_t self = static_cast<uint32_t>(getpid());
    int offered = 0;
    const auto found = Hv::TaskList::searchInTable([&](const TaskInfo& info) {
        ++offered;
        return info.m_pid == self;
    });
    ASSERT_TRUE(found);
    EXPECT_EQ(found->m_pid, self);
    EXPECT_EQ(offered, std::find(pids.begin(), pids.end(), self) - pids.begin() + 1);
}

TEST(TaskList, VanishedProcessAndUserWithoutEntryAreUnknown)
{
    Hv::Test::LogCapture capture;
    auto vanishing = namedChild("hv-vanishing");
    const pid_t gone = vanishing->pid();
    // The listing of pids is taken before the first record is offered; the child goes right then.
    const std::vector<TaskInfo> records = wholeTable([&] { vanishing->kill(); });
    ASSERT_NE(find(records, gone), nullptr);
    EXPECT_EQ(text(*find(records, gone)), " PROCESS '<unknown>', OWNER '<unknown>', PID " + std::to_string(gone));
    EXPECT_EQ(capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: " + std::to_string(gone)), 1u);

    constexpr int UID_WITHOUT_ENTRY = 54321;
    if (geteuid() != 0 || getpwuid(UID_WITHOUT_ENTRY) != nullptr)
        GTEST_SKIP() << "needs root and a uid without a user entry";
    const auto stranger = namedChild("hv-no-user", UID_WITHOUT_ENTRY);
    const std::vector<TaskInfo> again = wholeTable();
    ASSERT_NE(find(again, stranger->pid()), nullptr);
    EXPECT_EQ(find(again, stranger->pid())->m_owner, "<unknown>");
    EXPECT_EQ(find(again, stranger->pid())->m_name, "hv-no-user");
}

} // namespace

#include "HvTaskList.h"

#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Hv::TaskList::TaskInfo;

// Every record of a walk by pid, as the report writes it; `onFirst` runs when the first one comes.
std::map<uint32_t, std::string> wholeTable(const std::function<void()>& onFirst = [] {})
{
    std::map<uint32_t, std::string> records;
    uint32_t last = 0;
    EXPECT_FALSE(Hv::TaskList::searchInTable([&](const TaskInfo& info) {
        if (records.empty())
            onFirst();
        EXPECT_GT(info.m_pid, last);
        last = info.m_pid;
        log4cplus::tostringstream out;
        out << info;
        records[info.m_pid] = out.str();
        return false;
    }));
    return records;
}

// A child that has taken the name and the effective user id, and waits to be killed.
std::unique_ptr<Hv::Test::Process> namedChild(const std::string& name, uid_t uid)
{
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    auto child = std::make_unique<Hv::Test::Process>([&] {
        prctl(PR_SET_NAME, name.c_str());
        const char state = setresuid(-1, uid, -1) == 0 ? 'y' : 'n';
        (void)!write(ready[1], &state, 1);
        for (;;)
            pause();
    });
    char state = 'n';
    (void)!read(ready[0], &state, 1);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(state, 'y') << name;
    return child;
}

std::string line(const std::string& name, const std::string& owner, pid_t pid)
{
    return " PROCESS '" + name + "', OWNER '" + owner + "', PID " + std::to_string(pid);
}

// Names as the kernel keeps them (any byte but NUL, 15 at most), and owners by the effective user.
TEST(TaskList, ListsEveryProcessInPidOrderWithItsNameAndOwner)
{
    const bool root = geteuid() == 0;
    constexpr uid_t UID_WITHOUT_ENTRY = 54321;
    ASSERT_EQ(getpwuid(UID_WITHOUT_ENTRY), nullptr);
    const std::string other = root ? getpwuid(1)->pw_name : getpwuid(geteuid())->pw_name;
    const struct {
        std::string name;
        uid_t uid;
        std::string owner;
    } cases[] = {{"hv-plain", 1, other},
                 {"with 'quotes\"", 1, other},
                 {" two blanks  ", 1, other},
                 {"line end\n", 1, other}, // only the line end of the comm file goes
                 {"Uid:\t7\t8", 1, other}, // not the status line of the user ids
                 {"caf\xc3\xa9 \xff", UID_WITHOUT_ENTRY, "<unknown>"},
                 {"", 1, other}};
    std::vector<std::unique_ptr<Hv::Test::Process>> children;
    for (const auto& row : cases)
        children.push_back(namedChild(row.name, root ? row.uid : geteuid()));

    const std::map<uint32_t, std::string> records = wholeTable();
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (root || cases[i].uid != UID_WITHOUT_ENTRY)
            EXPECT_EQ(records.at(children[i]->pid()), line(cases[i].name, cases[i].owner, children[i]->pid()));
    }

    // The search stops at the first accepted record.
    bool accepted = false;
    const auto found = Hv::TaskList::searchInTable([&](const TaskInfo& info) {
        EXPECT_FALSE(accepted);
        return accepted = info.m_pid == static_cast<uint32_t>(getpid());
    });
    EXPECT_TRUE(found && found->m_pid == static_cast<uint32_t>(getpid()));
}

TEST(TaskList, AProcessThatEndsDuringTheWalkIsUnknown)
{
    auto vanishing = namedChild("hv-vanishing", geteuid());
    const pid_t gone = vanishing->pid();
    // The pids are listed before the first record is offered; the child goes right then.
    const std::map<uint32_t, std::string> records = wholeTable([&] { vanishing->kill(); });
    EXPECT_EQ(records.at(gone), line("<unknown>", "<unknown>", gone));
}

} // namespace

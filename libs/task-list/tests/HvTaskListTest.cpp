#include "HvTaskList.h"

#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

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
    EXPECT_FALSE(Hv::TaskList::searchInTable([&](const TaskInfo& info) {
        if (records.empty())
            onFirst();
        EXPECT_TRUE(records.empty() || info.m_pid > records.rbegin()->first);
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

// Names as the kernel keeps them (any byte but NUL, 15 at most), owners by the effective user id.
TEST(TaskList, ListsEveryProcessInPidOrderWithItsNameAndOwnerOrUnknownWhenItEnds)
{
    // Another user than the real one needs root; so does a user without an entry.
    const uid_t other = geteuid() == 0 ? 1 : geteuid(), stranger = geteuid() == 0 ? 54321 : geteuid();
    ASSERT_TRUE(getpwuid(other) != nullptr && (stranger == other || getpwuid(stranger) == nullptr));
    const std::map<uid_t, std::string> owners = {{other, getpwuid(other)->pw_name}, {stranger, "<unknown>"}};
    const std::pair<std::string, uid_t> cases[] = {
        {"hv-plain", other}, {"with 'quotes\"", other}, {" two blanks  ", other},
        {"line end\n", other}, // only the line end of the comm file goes
        {"Uid:\t7\t8", other}, // not the status line of the user ids
        {"caf\xc3\xa9 \xff", stranger}, {"", other}};
    std::vector<std::unique_ptr<Hv::Test::Process>> children;
    for (const auto& [name, uid] : cases)
        children.push_back(namedChild(name, uid));

    // The pids are listed before the first record is offered; this child goes right then.
    auto vanishing = namedChild("hv-vanishing", other);
    const pid_t gone = vanishing->pid();
    const std::map<uint32_t, std::string> records = wholeTable([&] { vanishing->kill(); });
    EXPECT_EQ(records.at(gone), " PROCESS '<unknown>', OWNER '<unknown>', PID " + std::to_string(gone));
    for (std::size_t i = 0; i < children.size(); ++i)
        EXPECT_EQ(records.at(children[i]->pid()),
                  " PROCESS '" + cases[i].first + "', OWNER '" + owners.at(cases[i].second) + "', PID " + std::to_string(children[i]->pid()));

    // The search stops at the first accepted record: pids come in order, so no later one follows.
    uint32_t last = 0;
    const auto found = Hv::TaskList::searchInTable([&](const TaskInfo& info) { return (last = info.m_pid) == static_cast<uint32_t>(getpid()); });
    EXPECT_TRUE(found && found->m_pid == static_cast<uint32_t>(getpid()) && last == found->m_pid);
}

} // namespace

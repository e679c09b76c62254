// The process walk on macOS through libproc and the user database.

#include "HvTaskList.h"

#include "HvTrace.h"

#include <libproc.h>
#include <sys/proc_info.h>

#include <pwd.h>

#include <cstring>

#include <vector>

namespace Hv::TaskList {

boost::optional<TaskInfo> searchInTable(const TaskPredicate& predicate)
{
    HV_TRACE_FREE();

    const int needed = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
    if (needed <= 0)
        return boost::none;
    // Twice the room in memory, while the call is told the size it asked for: the list may grow
    // between the two calls.
    const std::size_t capacity = static_cast<std::size_t>(needed) * 2 / sizeof(int);
    std::vector<int> buffer(capacity);
    const int bytes = proc_listpids(PROC_ALL_PIDS, 0, buffer.data(), needed);
    const int count = bytes > 0 ? bytes / static_cast<int>(sizeof(int)) : 0;
    if (count == 0)
        return boost::none;

    for (int i = 0; i < count; ++i) {
        const uint32_t pid = static_cast<uint32_t>(buffer[static_cast<std::size_t>(i)]);
        std::string name = "<unknown>";
        std::string owner = "<unknown>";

        proc_taskallinfo info{};
        const int expected = static_cast<int>(sizeof(info));
        const int result = proc_pidinfo(static_cast<int>(pid), PROC_PIDTASKALLINFO, 0, &info, expected);
        if (result == 0) {
            HV_LOG_INFO(LOG4CPLUS_TEXT("Unable to get process info for pid: ") << pid);
        } else if (result == expected) {
            if (const passwd* user = getpwuid(info.pbsd.pbi_uid))
                owner = user->pw_name;
            name.assign(info.pbsd.pbi_name, strnlen(info.pbsd.pbi_name, sizeof(info.pbsd.pbi_name)));
        } else {
            HV_LOG_ERROR(LOG4CPLUS_TEXT("Error while getting process info for pid: ") << pid);
            name = "<error>";
            owner = "<error>";
        }

        TaskInfo record(pid, std::move(name), std::move(owner));
        if (predicate(record))
            return record;
    }
    return boost::none;
}

} // namespace Hv::TaskList

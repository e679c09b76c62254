#pragma once

#include <log4cplus/streams.h>

#include <boost/optional.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace Hv::TaskList {

// One running process: its name and the login name of its user.
struct TaskInfo {
    TaskInfo(uint32_t pid, std::string name, std::string owner);

    uint32_t m_pid;
    std::string m_name;  // the kernel's short name, or "<unknown>" / "<error>"
    std::string m_owner; // login name, or "<unknown>" / "<error>"
};

// " PROCESS 'name', OWNER 'owner', PID 42", without a line end.
log4cplus::tostream& operator<<(log4cplus::tostream& os, const TaskInfo& info);

using TaskPredicate = std::function<bool(const TaskInfo&)>;

// Walks the running processes and returns the first one the predicate accepts.
boost::optional<TaskInfo> searchInTable(const TaskPredicate& predicate);

} // namespace Hv::TaskList

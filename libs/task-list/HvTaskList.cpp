#include "HvTaskList.h"

#include "HvTrace.h"

#include <utility>

namespace Hv::TaskList {

TaskInfo::TaskInfo(uint32_t pid, std::string name, std::string owner)
    : m_pid(pid)
    , m_name(std::move(name))
    , m_owner(std::move(owner))
{
}

log4cplus::tostream& operator<<(log4cplus::tostream& os, const TaskInfo& info)
{
    os << LOG4CPLUS_TEXT(" PROCESS '");
    Hv::Log::writeText(os, info.m_name);
    os << LOG4CPLUS_TEXT("', OWNER '");
    Hv::Log::writeText(os, info.m_owner);
    os << LOG4CPLUS_TEXT("', PID ") << info.m_pid;
    return os;
}

} // namespace Hv::TaskList

// The process walk on Linux: /proc's numeric entries, with comm for the name and the effective
// uid of status for the owner.

#include "HvTaskList.h"
#include "HvProcPidText.h"

#include "HvScopedDescriptor.h"
#include "HvTrace.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <unordered_map>
#include <vector>

namespace Hv::TaskList {

namespace {

const std::string UNKNOWN_TEXT = "<unknown>";
const std::string ERROR_TEXT = "<error>";

// Numeric entries of /proc, ascending.
std::vector<uint32_t> listProcesses(int procFd)
{
    std::vector<uint32_t> pids;
    const int listFd = ::dup(procFd);
    DIR* const directory = listFd < 0 ? nullptr : ::fdopendir(listFd);
    if (directory == nullptr) {
        if (listFd >= 0)
            ::close(listFd);
        return pids;
    }
    while (const dirent* entry = ::readdir(directory)) {
        uint64_t pid = 0;
        const char* p = entry->d_name;
        for (; *p >= '0' && *p <= '9' && pid <= 0xFFFFFFFFu; ++p)
            pid = pid * 10 + static_cast<unsigned>(*p - '0');
        if (*p == 0 && p != entry->d_name && pid != 0 && pid <= 0xFFFFFFFFu)
            pids.push_back(static_cast<uint32_t>(pid));
    }
    ::closedir(directory);
    std::sort(pids.begin(), pids.end());
    return pids;
}

enum class ReadResult { Ok, Vanished, Failed };

ReadResult classify(int error)
{
    return error == ENOENT || error == ESRCH ? ReadResult::Vanished : ReadResult::Failed;
}

// Reads the start of /proc/<pid>/<file>; both files of interest are small.
ReadResult readProcFile(int procFd, uint32_t pid, const char* file, char* buffer, std::size_t capacity,
                        std::size_t& size)
{
    char path[48];
    std::snprintf(path, sizeof(path), "%u/%s", pid, file);
    const ScopedDescriptor descriptor(::openat(procFd, path, O_RDONLY | O_CLOEXEC));
    if (descriptor.fd < 0)
        return classify(errno);
    ssize_t got;
    do {
        got = ::read(descriptor.fd, buffer, capacity);
    } while (got < 0 && errno == EINTR);
    if (got < 0)
        return classify(errno);
    if (got == 0)
        return ReadResult::Failed;
    size = static_cast<std::size_t>(got);
    return ReadResult::Ok;
}

// Login names by uid; one walk asks the user database at most once per uid.
class OwnerNames {
public:
    const std::string& name(uint32_t uid)
    {
        const auto known = m_names.find(uid);
        if (known != m_names.end())
            return known->second;
        return m_names.emplace(uid, lookUp(uid)).first->second;
    }

private:
    static std::string lookUp(uint32_t uid)
    {
        std::vector<char> buffer(1024);
        passwd entry{};
        passwd* found = nullptr;
        int error;
        while ((error = ::getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &found)) == ERANGE
               && buffer.size() < (1u << 20))
            buffer.resize(buffer.size() * 2);
        return error == 0 && found != nullptr ? std::string(found->pw_name) : UNKNOWN_TEXT;
    }

    std::unordered_map<uint32_t, std::string> m_names;
};

} // namespace

boost::optional<TaskInfo> searchInTable(const TaskPredicate& predicate)
{
    HV_TRACE_FREE();

    const ScopedDescriptor proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (proc.fd < 0)
        return boost::none;

    OwnerNames owners;
    char comm[64];
    char status[8192];
    for (const uint32_t pid : listProcesses(proc.fd)) {
        std::size_t commSize = 0;
        std::size_t statusSize = 0;
        ReadResult result = readProcFile(proc.fd, pid, "comm", comm, sizeof(comm), commSize);
        if (result == ReadResult::Ok)
            result = readProcFile(proc.fd, pid, "status", status, sizeof(status), statusSize);

        std::string name = UNKNOWN_TEXT;
        std::string owner = UNKNOWN_TEXT;
        if (result == ReadResult::Vanished) {
            HV_LOG_INFO(LOG4CPLUS_TEXT("Unable to get process info for pid: ") << pid);
        } else if (result == ReadResult::Failed) {
            HV_LOG_ERROR(LOG4CPLUS_TEXT("Error while getting process info for pid: ") << pid);
            name = ERROR_TEXT;
            owner = ERROR_TEXT;
        } else {
            name = ProcPidText::processName(comm, commSize);
            if (const boost::optional<uint32_t> uid = ProcPidText::effectiveUid(status, statusSize))
                owner = owners.name(*uid);
        }

        TaskInfo record(pid, std::move(name), std::move(owner));
        if (predicate(record))
            return record;
    }
    return boost::none;
}

} // namespace Hv::TaskList

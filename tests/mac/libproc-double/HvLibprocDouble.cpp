#include "HvLibprocScript.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace Hv::Test::Libproc {

Script& script()
{
    static Script current;
    return current;
}

void reset()
{
    script() = Script();
}

socket_fdinfo inetSocket(int state, const char* local, uint16_t localPort, const char* remote, uint16_t remotePort,
                     int family, int kind)
{
    socket_fdinfo info{};
    info.psi.soi_family = family;
    info.psi.soi_kind = kind;
    tcp_sockinfo& tcp = info.psi.soi_proto.pri_tcp;
    tcp.tcpsi_state = state;
    tcp.tcpsi_ini.insi_lport = htons(localPort);
    tcp.tcpsi_ini.insi_fport = htons(remotePort);
    inet_pton(AF_INET, local, &tcp.tcpsi_ini.insi_laddr.ina_46.i46a_addr4);
    inet_pton(AF_INET, remote, &tcp.tcpsi_ini.insi_faddr.ina_46.i46a_addr4);
    return info;
}

} // namespace Hv::Test::Libproc

using namespace Hv::Test::Libproc;

namespace {

const Process* findProcess(int pid)
{
    const auto found = script().processes.find(pid);
    return found == script().processes.end() ? nullptr : &found->second;
}

// Copies as many items as the buffer has room for; returns their size in bytes.
template <typename T>
int fill(void* buffer, int buffersize, const std::vector<T>& items)
{
    const std::size_t count = std::min(static_cast<std::size_t>(std::max(buffersize, 0)) / sizeof(T), items.size());
    std::copy_n(items.begin(), count, static_cast<T*>(buffer));
    return static_cast<int>(count * sizeof(T));
}

} // namespace

extern "C" int proc_listpids(uint32_t type, uint32_t, void* buffer, int buffersize)
{
    Script& current = script();
    if (type != PROC_ALL_PIDS)
        return -1;
    if (buffer == nullptr) {
        // The size query: the list may grow before the caller reads it.
        const int bytes = static_cast<int>(current.pids.size() * sizeof(int));
        current.pids.insert(current.pids.end(), current.pidsStartingAfterSizeQuery.begin(),
                            current.pidsStartingAfterSizeQuery.end());
        current.pidsStartingAfterSizeQuery.clear();
        return bytes;
    }
    current.listBufferSizes.push_back(buffersize);
    if (!current.listResultOverrides.empty()) {
        const int result = current.listResultOverrides.front();
        current.listResultOverrides.erase(current.listResultOverrides.begin());
        return result;
    }
    return fill(buffer, buffersize, current.pids);
}

extern "C" int proc_pidinfo(int pid, int flavor, uint64_t, void* buffer, int buffersize)
{
    const Process* process = findProcess(pid);
    if (flavor == PROC_PIDLISTFDS) {
        script().listFdsBufferSizes.push_back(buffersize);
        std::vector<proc_fdinfo> descriptors;
        for (const Descriptor& descriptor : process ? process->descriptors : std::vector<Descriptor>())
            descriptors.push_back({descriptor.fd, PROX_FDTYPE_SOCKET});
        return fill(buffer, buffersize, descriptors);
    }
    if (flavor != PROC_PIDTASKALLINFO || buffersize < static_cast<int>(sizeof(proc_taskallinfo)))
        return -1;
    script().taskInfoPids.push_back(pid);
    if (process == nullptr || process->taskInfoResult != static_cast<int>(sizeof(proc_taskallinfo)))
        return process ? process->taskInfoResult : 0;
    proc_taskallinfo info{};
    info.pbsd.pbi_uid = process->uid;
    std::memcpy(info.pbsd.pbi_name, process->name.data(), std::min(process->name.size(), sizeof(info.pbsd.pbi_name)));
    info.pbsd.pbi_nfiles = static_cast<uint32_t>(process->descriptors.size());
    std::memcpy(buffer, &info, sizeof(info));
    return static_cast<int>(sizeof(info));
}

extern "C" int proc_pidfdinfo(int pid, int fd, int flavor, void* buffer, int buffersize)
{
    const Process* process = findProcess(pid);
    if (process == nullptr || flavor != PROC_PIDFDSOCKETINFO || buffersize < static_cast<int>(sizeof(socket_fdinfo)))
        return 0;
    for (const Descriptor& descriptor : process->descriptors) {
        if (descriptor.fd == fd) {
            std::memcpy(buffer, &descriptor.socket, sizeof(socket_fdinfo));
            return descriptor.result;
        }
    }
    return 0;
}

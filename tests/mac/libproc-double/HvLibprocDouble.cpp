#include "HvLibprocScript.h"

#include <arpa/inet.h>
#include <sys/socket.h>

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

socket_fdinfo inetSocket(int family, int kind, int state, const char* localAddress, uint16_t localPort,
                         const char* remoteAddress, uint16_t remotePort)
{
    socket_fdinfo info;
    std::memset(&info, 0, sizeof(info));
    info.psi.soi_family = family;
    info.psi.soi_kind = kind;
    tcp_sockinfo& tcp = info.psi.soi_proto.pri_tcp;
    tcp.tcpsi_state = state;
    tcp.tcpsi_ini.insi_lport = htons(localPort);
    tcp.tcpsi_ini.insi_fport = htons(remotePort);
    inet_pton(AF_INET, localAddress, &tcp.tcpsi_ini.insi_laddr.ina_46.i46a_addr4);
    inet_pton(AF_INET, remoteAddress, &tcp.tcpsi_ini.insi_faddr.ina_46.i46a_addr4);
    return info;
}

socket_fdinfo tcpSocket(int state, const char* localAddress, uint16_t localPort, const char* remoteAddress,
                        uint16_t remotePort)
{
    return inetSocket(AF_INET, SOCKINFO_TCP, state, localAddress, localPort, remoteAddress, remotePort);
}

namespace {

const Process* findProcess(int pid)
{
    const auto found = script().processes.find(pid);
    return found == script().processes.end() ? nullptr : &found->second;
}

} // namespace

} // namespace Hv::Test::Libproc

using namespace Hv::Test::Libproc;

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
    const std::size_t room = buffersize > 0 ? static_cast<std::size_t>(buffersize) / sizeof(int) : 0;
    const std::size_t count = std::min(room, current.pids.size());
    std::memcpy(buffer, current.pids.data(), count * sizeof(int));
    return static_cast<int>(count * sizeof(int));
}

extern "C" int proc_pidinfo(int pid, int flavor, uint64_t, void* buffer, int buffersize)
{
    Script& current = script();
    const Process* process = findProcess(pid);
    if (flavor == PROC_PIDTASKALLINFO) {
        current.taskInfoPids.push_back(pid);
        if (process == nullptr)
            return 0;
        if (buffersize < static_cast<int>(sizeof(proc_taskallinfo)))
            return -1;
        if (process->taskInfoResult != static_cast<int>(sizeof(proc_taskallinfo)))
            return process->taskInfoResult;
        proc_taskallinfo info;
        std::memset(&info, 0, sizeof(info));
        info.pbsd.pbi_pid = static_cast<uint32_t>(pid);
        info.pbsd.pbi_uid = process->uid;
        // Up to 32 bytes, without a terminator when the name fills them, as the kernel keeps it.
        std::memcpy(info.pbsd.pbi_name, process->name.data(), std::min(process->name.size(), sizeof(info.pbsd.pbi_name)));
        info.pbsd.pbi_nfiles = process->openFiles ? *process->openFiles
                                                  : static_cast<uint32_t>(process->descriptors.size());
        std::memcpy(buffer, &info, sizeof(info));
        return static_cast<int>(sizeof(info));
    }
    if (flavor == PROC_PIDLISTFDS) {
        current.listFdsBufferSizes.push_back(buffersize);
        if (process == nullptr)
            return 0;
        const std::size_t room = buffersize > 0 ? static_cast<std::size_t>(buffersize) / sizeof(proc_fdinfo) : 0;
        const std::size_t count = std::min(room, process->descriptors.size());
        auto* out = static_cast<proc_fdinfo*>(buffer);
        for (std::size_t i = 0; i < count; ++i)
            out[i] = proc_fdinfo{process->descriptors[i].fd, process->descriptors[i].type};
        return static_cast<int>(count * sizeof(proc_fdinfo));
    }
    return -1;
}

extern "C" int proc_pidfdinfo(int pid, int fd, int flavor, void* buffer, int buffersize)
{
    Script& current = script();
    current.socketInfoQueries.emplace_back(pid, fd);
    const Process* process = findProcess(pid);
    if (process == nullptr || flavor != PROC_PIDFDSOCKETINFO || buffersize < static_cast<int>(sizeof(socket_fdinfo)))
        return 0;
    for (const Descriptor& descriptor : process->descriptors) {
        if (descriptor.fd != fd || !descriptor.socket)
            continue;
        std::memcpy(buffer, &*descriptor.socket, sizeof(socket_fdinfo));
        return descriptor.socketResult;
    }
    return 0;
}

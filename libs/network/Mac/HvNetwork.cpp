// The socket table walk on macOS: every readable process's TCP and UDP sockets, IPv4 and IPv6,
// through libproc. Sockets of processes that the user may not inspect stay unlisted.

#include "HvNetwork.h"

#include "HvTrace.h"

#include <libproc.h>
#include <sys/proc_info.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace Hv::Network {

namespace {

constexpr int INITIAL_PID_CAPACITY = 50;
constexpr double PID_CAPACITY_GROWTH = 1.25;

std::vector<uint32_t> retrieveRunningProcesses()
{
    int capacity = INITIAL_PID_CAPACITY;
    for (;;) {
        if (capacity == 0)
            capacity = INITIAL_PID_CAPACITY; // a fresh start after an oversized answer
        std::vector<int> buffer(static_cast<std::size_t>(capacity));
        const int size = capacity * static_cast<int>(sizeof(int));
        const int bytes = proc_listpids(PROC_ALL_PIDS, 0, buffer.data(), size);
        if (bytes == size) {
            // The list may have been cut: ask again with more room.
            capacity = static_cast<int>(capacity * PID_CAPACITY_GROWTH);
            continue;
        }
        if (bytes > size) {
            HV_LOG_FATAL(LOG4CPLUS_TEXT("proc_listpids() got ") << bytes << LOG4CPLUS_TEXT(" bytes instead of expected ")
                         << size << LOG4CPLUS_TEXT(" bytes"));
            capacity = 0;
            continue;
        }
        std::vector<uint32_t> pids;
        const int count = bytes > 0 ? bytes / static_cast<int>(sizeof(int)) : 0;
        pids.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            pids.push_back(static_cast<uint32_t>(buffer[static_cast<std::size_t>(i)]));
        return pids;
    }
}

std::vector<proc_fdinfo> retrieveOpenedDescriptors(uint32_t pid)
{
    proc_taskallinfo info{};
    const int expected = static_cast<int>(sizeof(info));
    const int result = proc_pidinfo(static_cast<int>(pid), PROC_PIDTASKALLINFO, 0, &info, expected);
    if (result != expected) {
        // Same wording as the pid listing, kept so that existing log searches still match.
        if (result < expected)
            HV_LOG_FATAL(LOG4CPLUS_TEXT("proc_listpids() got ") << result << LOG4CPLUS_TEXT(" bytes instead of expected ")
                         << expected << LOG4CPLUS_TEXT(" bytes"));
        return {};
    }
    if (info.pbsd.pbi_nfiles == 0)
        return {};

    std::vector<proc_fdinfo> descriptors(info.pbsd.pbi_nfiles);
    const int bytes = proc_pidinfo(static_cast<int>(pid), PROC_PIDLISTFDS, 0, descriptors.data(),
                                   static_cast<int>(descriptors.size() * sizeof(proc_fdinfo)));
    if (bytes <= 0)
        return {};
    descriptors.resize(static_cast<std::size_t>(bytes) / sizeof(proc_fdinfo));
    return descriptors;
}

// An IPv6 socket that meets an IPv4 peer carries INI_IPV4 alone and the address in ina_46;
// a dual-stack listener carries both flags and its IPv6 address.
Address socketAddress(const in_sockinfo& socket, bool local)
{
    const auto& address = local ? socket.insi_laddr : socket.insi_faddr;
    if ((socket.insi_vflag & INI_IPV6) == 0)
        return ipv4Address(ntohl(address.ina_46.i46a_addr4.s_addr));
    Address bytes;
    static_assert(sizeof(address.ina_6) == sizeof(bytes));
    std::memcpy(bytes.data(), &address.ina_6, sizeof(bytes));
    return bytes;
}

std::vector<TcpConnectionInfo> retrieveConnections(uint32_t pid)
{
    std::vector<TcpConnectionInfo> records;
    for (const proc_fdinfo& descriptor : retrieveOpenedDescriptors(pid)) {
        if (descriptor.proc_fdtype != PROX_FDTYPE_SOCKET)
            continue;
        socket_fdinfo socketInfo{};
        const int size = static_cast<int>(sizeof(socketInfo));
        if (proc_pidfdinfo(static_cast<int>(pid), descriptor.proc_fd, PROC_PIDFDSOCKETINFO, &socketInfo, size) != size)
            continue;
        const auto& info = socketInfo.psi;
        if (info.soi_family != AF_INET && info.soi_family != AF_INET6)
            continue;
        const bool tcp = info.soi_kind == SOCKINFO_TCP;
        if (!tcp && (info.soi_kind != SOCKINFO_IN || info.soi_protocol != IPPROTO_UDP))
            continue; // raw and other sockets
        const in_sockinfo& socket = tcp ? info.soi_proto.pri_tcp.tcpsi_ini : info.soi_proto.pri_in;
        const uint32_t state = tcp ? static_cast<uint32_t>(info.soi_proto.pri_tcp.tcpsi_state) : 0;
        records.emplace_back(tcp ? Protocol::Tcp : Protocol::Udp, pid, state, socketAddress(socket, true),
                             ntohs(static_cast<uint16_t>(socket.insi_lport)), socketAddress(socket, false),
                             ntohs(static_cast<uint16_t>(socket.insi_fport)));
    }
    return records;
}

} // namespace

boost::optional<TcpConnectionInfo> searchInTcpTable(const TcpPredicate& predicate)
{
    HV_TRACE_FREE();

    for (const uint32_t pid : retrieveRunningProcesses()) {
        for (const TcpConnectionInfo& record : retrieveConnections(pid)) {
            if (predicate(record))
                return record;
        }
    }
    return boost::none;
}

} // namespace Hv::Network

#pragma once

// The scripted answers of the libproc test double, and the calls it has seen.

#include <libproc.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Hv::Test::Libproc {

// One descriptor of a scripted process; `socket` is what PROC_PIDFDSOCKETINFO reports for it.
struct Descriptor {
    int32_t fd = 0;
    uint32_t type = PROX_FDTYPE_SOCKET;
    std::optional<socket_fdinfo> socket;
    int socketResult = static_cast<int>(sizeof(socket_fdinfo)); // what proc_pidfdinfo returns
};

struct Process {
    // What proc_pidinfo(PROC_PIDTASKALLINFO) returns; the record is filled only when it is 232.
    int taskInfoResult = static_cast<int>(sizeof(proc_taskallinfo));
    uid_t uid = 0;
    std::string name;
    // pbi_nfiles; the number of descriptors when not set.
    std::optional<uint32_t> openFiles;
    std::vector<Descriptor> descriptors;
};

struct Script {
    std::vector<int> pids; // the listing, in the order the kernel gives it
    // Pids that start between a size query (null buffer) and the listing that follows it.
    std::vector<int> pidsStartingAfterSizeQuery;
    // Answers of the next listing calls given instead of the real byte count, one per call.
    std::vector<int> listResultOverrides;
    std::map<int, Process> processes; // a pid without an entry has exited: PROC_PIDTASKALLINFO gives 0

    // Seen calls.
    std::vector<int> listBufferSizes;
    std::vector<int> taskInfoPids;
    std::vector<int> listFdsBufferSizes;
    std::vector<std::pair<int, int>> socketInfoQueries; // (pid, fd)
};

// The script every call of the double reads; reset() empties it.
Script& script();
void reset();

// A socket as macOS reports it: addresses in dotted decimal, ports in host order; the double
// stores both in network order, as the kernel does.
socket_fdinfo inetSocket(int family, int kind, int state, const char* localAddress, uint16_t localPort,
                         const char* remoteAddress, uint16_t remotePort);
socket_fdinfo tcpSocket(int state, const char* localAddress, uint16_t localPort, const char* remoteAddress,
                        uint16_t remotePort);

} // namespace Hv::Test::Libproc

#pragma once

// The scripted answers of the libproc test double, and the calls it has seen.

#include <libproc.h>

#include <map>
#include <string>
#include <vector>

namespace Hv::Test::Libproc {

// A socket descriptor and what PROC_PIDFDSOCKETINFO answers for it.
struct Descriptor {
    int32_t fd;
    socket_fdinfo socket;
    int result = static_cast<int>(sizeof(socket_fdinfo));
};

struct Process {
    std::string name;
    uid_t uid = 0;
    // What PROC_PIDTASKALLINFO returns; the record is filled only when it is its full size.
    int taskInfoResult = static_cast<int>(sizeof(proc_taskallinfo));
    std::vector<Descriptor> descriptors{};
};

struct Script {
    std::vector<int> pids; // the listing, in the kernel's order
    // Pids that start between a size query (null buffer) and the listing that follows it.
    std::vector<int> pidsStartingAfterSizeQuery;
    // Answers of the next listing calls given instead of the real byte count, one per call.
    std::vector<int> listResultOverrides;
    std::map<int, Process> processes; // a pid without an entry has exited: PROC_PIDTASKALLINFO gives 0

    // Seen calls.
    std::vector<int> listBufferSizes;
    std::vector<int> taskInfoPids;
    std::vector<int> listFdsBufferSizes;
};

// What every call of the double reads; reset() empties it.
Script& script();
void reset();

// An IPv4 socket as macOS reports it, ports in host order here, both in network order inside.
socket_fdinfo inetSocket(int state, const char* local, uint16_t localPort, const char* remote, uint16_t remotePort,
                     int family = 2 /* AF_INET */, int kind = SOCKINFO_TCP);

} // namespace Hv::Test::Libproc

// The libproc walks of the macOS units (socket table, task list, process owner) against libproc calls
// that answer from a script; the task list also against the real user database.

#include "HvLogCapture.h"
#include "HvNetwork.h"
#include "HvPlatformDetail.h"
#include "HvTaskList.h"

#include <gtest/gtest.h>

#include <libproc.h>

#include <arpa/inet.h>
#include <pwd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <map>

namespace {

using Hv::Network::TcpConnectionInfo, Hv::TaskList::TaskInfo;
using Pids = std::vector<int>;

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

// What the calls answer, and the calls they have seen.
struct Script {
    Pids pids; // the listing, in the kernel's order
    int oversizedListings = 0; // listings that answer with more bytes than they were given
    std::map<int, Process> processes; // a pid without an entry has exited: PROC_PIDTASKALLINFO gives 0
    Pids taskInfoPids;
} script;

// A socket as macOS reports it: addresses and ports in network order; a dotted address in ina_46
// with INI_IPV4, any other in ina_6 with INI_IPV6, plus `flags`.
socket_fdinfo inetSocket(int state, const char* local, uint16_t localPort, const char* remote, uint16_t remotePort,
                         int family = AF_INET, int kind = SOCKINFO_TCP, int protocol = IPPROTO_TCP, uint8_t flags = 0)
{
    socket_fdinfo info{{protocol, family, kind, {}}};
    in_sockinfo& in = kind == SOCKINFO_TCP ? info.psi.soi_proto.pri_tcp.tcpsi_ini : info.psi.soi_proto.pri_in;
    if (kind == SOCKINFO_TCP)
        info.psi.soi_proto.pri_tcp.tcpsi_state = state;
    in = {htons(remotePort), htons(localPort), flags, {}, {}};
    for (auto [text, address] : {std::pair{local, &in.insi_laddr}, std::pair{remote, &in.insi_faddr}}) {
        if (inet_pton(AF_INET, text, &address->ina_46.i46a_addr4) == 1)
            in.insi_vflag |= INI_IPV4;
        else if (inet_pton(AF_INET6, text, &address->ina_6) == 1)
            in.insi_vflag |= INI_IPV6;
    }
    return info;
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

extern "C" int proc_listpids(uint32_t, uint32_t, void* buffer, int buffersize)
{
    if (buffer == nullptr) // the size query
        return static_cast<int>(script.pids.size() * sizeof(int));
    return script.oversizedListings-- > 0 ? buffersize + 1 : fill(buffer, buffersize, script.pids);
}

extern "C" int proc_pidinfo(int pid, int flavor, uint64_t, void* buffer, int buffersize)
{
    const Process process = script.processes.count(pid) ? script.processes[pid] : Process{"", 0, 0};
    if (flavor == PROC_PIDLISTFDS) {
        std::vector<proc_fdinfo> descriptors;
        for (const Descriptor& descriptor : process.descriptors)
            descriptors.push_back({descriptor.fd, PROX_FDTYPE_SOCKET});
        return fill(buffer, buffersize, descriptors);
    }
    if (flavor != PROC_PIDTASKALLINFO || buffersize < static_cast<int>(sizeof(proc_taskallinfo)))
        return -1;
    script.taskInfoPids.push_back(pid);
    if (process.taskInfoResult != static_cast<int>(sizeof(proc_taskallinfo)))
        return process.taskInfoResult;
    auto& info = *static_cast<proc_taskallinfo*>(buffer);
    info = {{process.uid, {}, static_cast<uint32_t>(process.descriptors.size())}};
    std::memcpy(info.pbsd.pbi_name, process.name.data(), std::min(process.name.size(), sizeof(info.pbsd.pbi_name)));
    return static_cast<int>(sizeof(info));
}

extern "C" int proc_pidfdinfo(int pid, int fd, int flavor, void* buffer, int buffersize)
{
    if (flavor != PROC_PIDFDSOCKETINFO || buffersize < static_cast<int>(sizeof(socket_fdinfo)))
        return 0;
    for (const Descriptor& descriptor : script.processes[pid].descriptors) {
        if (descriptor.fd == fd) {
            std::memcpy(buffer, &descriptor.socket, sizeof(socket_fdinfo));
            return descriptor.result;
        }
    }
    return 0;
}

namespace {

constexpr int LISTEN = 1, ESTABLISHED = 4;

class MacLibproc : public ::testing::Test {
protected:
    void SetUp() override { script = {}; }

    std::vector<std::string> wholeTable()
    {
        std::vector<std::string> records;
        EXPECT_FALSE(Hv::Network::searchInTcpTable([&](const TcpConnectionInfo& info) {
            log4cplus::tostringstream line;
            line << info;
            records.push_back(line.str());
            return false;
        }));
        return records;
    }

    Hv::Test::LogCapture m_capture;
};

TEST_F(MacLibproc, TcpTableKeepsTcpAndUdpSocketsOfBothFamiliesOfReadableProcessesAndStopsAtTheFirstTcpMatch)
{
    // The listing's order, not the pids'; longer than the first buffer, and first answered with
    // more bytes than it was given; the processes after 13 hold no descriptors.
    script.pids = {10, 11, 12, 13};
    for (int pid = 100; pid > 13; --pid)
        script.processes[script.pids.emplace_back(pid)] = {};
    script.oversizedListings = 1;
    Process refused{"", 0, 10, {{3, inetSocket(ESTABLISHED, "127.0.0.1", 1, "127.0.0.1", 2)}}};
    script.processes[10] = refused;
    refused.taskInfoResult = 300; // more than asked for: skipped without a line
    script.processes[11] = refused;
    script.processes[12].descriptors = {
        {3, inetSocket(ESTABLISHED, "192.168.1.20", 50123, "10.1.2.3", 443)},
        {4, inetSocket(LISTEN, "::", 5061, "::", 0, AF_INET6, SOCKINFO_TCP, IPPROTO_TCP, INI_IPV4)}, // dual-stack
        {5, inetSocket(0, "0.0.0.0", 53, "0.0.0.0", 0, AF_INET, SOCKINFO_IN, IPPROTO_UDP)},
        {7, inetSocket(0, "fe80::1", 5060, "::", 0, AF_INET6, SOCKINFO_IN, IPPROTO_UDP)},
        {9, inetSocket(ESTABLISHED, "127.0.0.1", 40000, "127.0.0.1", 5061, AF_INET6)}, // met over IPv4
        {10, inetSocket(0, "0.0.0.0", 0, "0.0.0.0", 0, AF_INET, SOCKINFO_IN, IPPROTO_ICMP)},
        {11, inetSocket(0, "0.0.0.0", 0, "0.0.0.0", 0, AF_UNIX, 0, 0)},
        {8, inetSocket(ESTABLISHED, "10.0.0.8", 8, "10.0.0.9", 9), 400},
        {6, inetSocket(LISTEN, "127.0.0.1", 5060, "0.0.0.0", 0)}};
    script.processes[13].descriptors = {{3, inetSocket(ESTABLISHED, "127.0.0.1", 5060, "127.0.0.1", 443)}};

    EXPECT_EQ(wholeTable(), (std::vector<std::string>{"    TCP 192.168.1.20:50123 --> 10.1.2.3:443 ESTAB, PID 12",
                                                      "    TCP [::]:5061 --> [::]:0 LISTEN, PID 12",
                                                      "    UDP 0.0.0.0:53 --> 0.0.0.0:0, PID 12",
                                                      "    UDP [fe80::1]:5060 --> [::]:0, PID 12",
                                                      "    TCP 127.0.0.1:40000 --> 127.0.0.1:5061 ESTAB, PID 12",
                                                      "    TCP 127.0.0.1:5060 --> 0.0.0.0:0 LISTEN, PID 12",
                                                      "    TCP 127.0.0.1:5060 --> 127.0.0.1:443 ESTAB, PID 13"}));
    EXPECT_EQ(script.taskInfoPids, script.pids);
    EXPECT_EQ(m_capture.messages(log4cplus::FATAL_LOG_LEVEL),
              (std::vector<std::string>{"proc_listpids() got 201 bytes instead of expected 200 bytes",
                                        "proc_listpids() got 10 bytes instead of expected " + std::to_string(sizeof(proc_taskallinfo)) + " bytes"}));

    // TCP only, IPv4 and IPv6 alike.
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(53, 0), 0u);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(5061, 0), 12u);
    script.taskInfoPids.clear();
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(5060, 0), 12u);
    EXPECT_EQ(script.taskInfoPids, (Pids{10, 11, 12}));
}

TEST_F(MacLibproc, TaskListAndProcessOwnerReadTheRecordOfEveryListedProcessUntilTheFirstMatch)
{
    EXPECT_FALSE(Hv::TaskList::searchInTable([](const TaskInfo&) { return true; })) << "nothing listed";
    constexpr uid_t UID_WITHOUT_USER = 3999999;
    ASSERT_EQ(getpwuid(UID_WITHOUT_USER), nullptr);
    script.pids = {1, 77, 5, 9};
    script.processes[1] = {"launchd", 0};
    // The kernel keeps at most 32 bytes of a name, without a terminator when it is that long.
    script.processes[77] = {"abcdefghijklmnopqrstuvwxyz012345", UID_WITHOUT_USER};
    // pid 5 exited after the listing.
    script.processes[9] = {"odd", 0, 10};

    std::vector<std::string> records;
    EXPECT_FALSE(Hv::TaskList::searchInTable([&records](const TaskInfo& info) {
        records.push_back(std::to_string(info.m_pid) + " " + info.m_name + " " + info.m_owner);
        return false;
    }));
    EXPECT_EQ(records, (std::vector<std::string>{"1 launchd " + std::string(getpwuid(0)->pw_name),
                                                 "77 abcdefghijklmnopqrstuvwxyz012345 <unknown>", "5 <unknown> <unknown>",
                                                 "9 <error> <error>"}));
    // The process owner reads the same record: the user id, or nothing with the reason.
    EXPECT_EQ(Hv::PlatformDetail::processOwnerFromTaskInfo(77), std::to_string(UID_WITHOUT_USER));
    EXPECT_EQ(Hv::PlatformDetail::processOwnerFromTaskInfo(5), "");
    EXPECT_EQ(Hv::PlatformDetail::processOwnerFromTaskInfo(9), "");
    EXPECT_EQ(m_capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 5"), 2u);
    EXPECT_EQ(m_capture.messages(log4cplus::ERROR_LOG_LEVEL),
              std::vector<std::string>(2, "Error while getting process info for pid: 9"));

    script.taskInfoPids.clear();
    const auto found = Hv::TaskList::searchInTable([](const TaskInfo& info) { return info.m_name == "launchd"; });
    EXPECT_TRUE(found && found->m_pid == 1);
    EXPECT_EQ(script.taskInfoPids, (Pids{1}));
}

} // namespace

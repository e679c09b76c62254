#include "HvNetwork.h"
#include "HvProcNetTcp.h"

#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Hv::Network::TcpConnectionInfo;

std::string text(const TcpConnectionInfo& info)
{
    log4cplus::tostringstream out;
    out << info;
    return out.str();
}

// Every record of a walk; `beforeEach` runs as each one comes.
std::vector<TcpConnectionInfo> wholeTable(const std::function<void()>& beforeEach = [] {})
{
    std::vector<TcpConnectionInfo> records;
    EXPECT_FALSE(Hv::Network::searchInTcpTable([&](const TcpConnectionInfo& info) {
        beforeEach();
        records.push_back(info);
        return false;
    }));
    return records;
}

using namespace Hv::Network::ProcNetTcp;

// The lines of the rows parsed from a table's text handed over in pieces of `step` bytes, as
// read() may cut it; each row's inode stands in its pid.
std::vector<std::string> parsed(const std::string& table, std::size_t step)
{
    Table rows;
    Parser parser(rows, Hv::Network::Protocol::Tcp, "/proc/net/test");
    for (std::size_t from = 0; from < table.size(); from += step)
        parser.add(table.data() + from, std::min(step, table.size() - from));
    parser.finish();
    rows.index();
    std::vector<std::string> lines;
    for (const Row& row : rows.rows())
        lines.push_back(text(record(static_cast<uint32_t>(row.inode), row)));
    return lines;
}

// As a little-endian kernel writes them: an address word is the network-order word read as a
// host integer, so 10.0.2.15 reads 0F02000A. One line per way a line can fail.
const std::string TABLE =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 0F02000A:C350 2A01A8C0:01BB 01 00000000:00000000 02:000AFC3B 00000000  1000        0 99001 2 0000000000000000 20 4 30 10 -1\n"
    // No socket behind it (TIME_WAIT), garbage, cut before the inode, a word too short.
    "   1: 0100007F:1F90 0100007F:D431 06 00000000:00000000 03:00001770 00000000     0        0 0 3 0000000000000000\n"
    "   2: garbage line\n"
    "   3: 0100007F:1F92 0100007F:D433 0B 00000000:00000000 00:00000000 00000000     0        0\n"
    "   5: 100007F:1F92 0100007F:D433 0B 00000000:00000000 00:00000000 00000000     0        0 3 1\n"
    // IPv6, and IPv4-mapped as an IPv6 socket sees an IPv4 peer.
    "  10: 00000000000000000000000001000000:1F90 00000000000000000000000000000000:0000 0A 00000000:00000000 00:00000000 00000000 0 0 555 1\n"
    "  12: 0000000000000000FFFF00000100007F:1F90 0000000000000000FFFF00000200007F:D431 01 00000000:00000000 00:00000000 00000000 0 0 556 1\n"
    // A socket listed twice (the kernel's walk can meet it in two hash chains) keeps its first row.
    "   4: 0100007F:1F94 0100007F:D435 01 00000000:00000000 00:00000000 00000000     0        0 99001 1\n"
    // NEW_SYN_RECV has no BSD counterpart; the last line has no line end.
    "  11: 0100007F:1F93 0100007F:D434 0C 00000000:00000000 00:00000000 00000000     0        0 777 1 0000000000000000";

TEST(ProcNetTcp, TakesEveryRowThatParsesInTableOrderWhereverTheTextIsCutAndWarnsOncePerTable)
{
    const std::vector<std::string> tcp = {"    TCP 10.0.2.15:50000 --> 192.168.1.42:443 ESTAB, PID 99001",
                                          "    TCP 127.0.0.1:8080 --> 127.0.0.1:54321 TIME_WAIT, PID 0",
                                          "    TCP [::1]:8080 --> [::]:0 LISTEN, PID 555",
                                          "    TCP 127.0.0.1:8080 --> 127.0.0.2:54321 ESTAB, PID 556",
                                          "    TCP 127.0.0.1:8083 --> 127.0.0.1:54324 UNKNOWN, PID 777"};
    Hv::Test::LogCapture capture;
    for (const std::size_t step : {1, 2, 3, 5, 7, 11, 64, 1 << 16}) {
        EXPECT_EQ(parsed(TABLE, step), tcp) << "pieces of " << step;
        EXPECT_EQ(parsed(TABLE + "\n", step), tcp) << "pieces of " << step;
    }
    EXPECT_EQ(capture.messages(log4cplus::WARN_LOG_LEVEL),
              std::vector<std::string>(16, "Skipped 3 unreadable line(s) of /proc/net/test, the first: '   2: garbage line'"));
}

const auto raw = [](auto& address) { return reinterpret_cast<sockaddr*>(&address); };
using Counts = std::map<std::string, int>;

// Every record of a walk as ss can tell it: the line without the state.
Counts table()
{
    Counts keys;
    for (const TcpConnectionInfo& info : wholeTable()) {
        std::string line = text(info);
        const std::string state = info.state().empty() ? "" : " " + info.state();
        ++keys[line.replace(line.rfind(state + ", PID "), state.size() + 1, "")];
    }
    return keys;
}

// One key per descriptor that ss names as holding a socket, pid 0 for a socket it names none for.
Counts ss()
{
    const std::regex owner("pid=(\\d+)"), scope("%[^:\\]]*"), anyV6("^\\*:"), mapped("^\\[::ffff:([0-9.]+)\\]"), anyPort(":\\*$");
    const auto endpoint = [&](std::string field) {
        field = std::regex_replace(std::regex_replace(field, scope, ""), anyV6, "[::]:");
        return std::regex_replace(std::regex_replace(field, mapped, "$1"), anyPort, ":0");
    };
    Counts keys;
    for (const std::string& line : Hv::Test::splitLines(Hv::Test::commandOutput("ss -tuanpH 2>/dev/null"))) {
        std::istringstream fields(line);
        std::string protocol, state, receive, send, local, remote;
        fields >> protocol >> state >> receive >> send >> local >> remote;
        std::transform(protocol.begin(), protocol.end(), protocol.begin(), ::toupper);
        const std::string prefix = "    " + protocol + " " + endpoint(local) + " --> " + endpoint(remote) + " PID ";
        std::sregex_iterator match(line.begin(), line.end(), owner), end;
        for (++keys[prefix + (match == end ? "0" : (*match)[1].str())]; match != end && ++match != end;)
            ++keys[prefix + (*match)[1].str()];
    }
    return keys;
}

// The keys of `keys` that neither `a` nor `b` holds as often.
std::vector<std::string> missing(const Counts& keys, Counts a, Counts b)
{
    std::vector<std::string> keysMissing;
    for (const auto& [key, times] : keys) {
        if (times > std::max(a[key], b[key]))
            keysMissing.push_back(key);
    }
    return keysMissing;
}

// Sockets of every kind: a listener of another user (root only), a dual-stack listener with one
// v4-mapped connection accepted and one not yet (so no process holds its server end), a UDP
// socket. The walk lists each process in descriptor order, skips one that ends, stops at the
// first match; every socket that ss shows is in it once per descriptor that holds it, with that
// process, or once with pid 0 when ss names no holder; and it holds nothing else.
TEST(TcpTable, ListsWhatSsShowsInPidAndDescriptorOrderAndSkipsAProcessThatEnds)
{
    constexpr uid_t NOBODY = 65534;
    const bool root = geteuid() == 0;
    const auto idle = [] {
        for (;;)
            pause();
    };
    int portPipe[2];
    ASSERT_EQ(pipe2(portPipe, O_CLOEXEC), 0);
    // First, so that it holds none of the sockets below.
    std::optional<Hv::Test::Process> otherUser;
    if (root) {
        otherUser.emplace([&] {
            const int listener = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
            socklen_t size = sizeof(address);
            // Dumpable again, as after the exec of a service of its own.
            if (setgroups(0, nullptr) != 0 || setgid(NOBODY) != 0 || setuid(NOBODY) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0
                || bind(listener, raw(address), size) != 0 || listen(listener, 1) != 0
                || getsockname(listener, raw(address), &size) != 0 || write(portPipe[1], &address.sin_port, 2) != 2)
                _exit(1);
            idle();
        });
    }
    uint16_t otherPort = 0;
    ASSERT_TRUE(!root || read(portPipe[0], &otherPort, 2) == 2);
    close(portPipe[0]);
    close(portPipe[1]);

    const int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0), client = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int waiting = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0), udp = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int off = 0;
    sockaddr_in6 address{AF_INET6, 0, 0, in6addr_any, 0}, clientAddress = address, waitingAddress = address;
    sockaddr_in6 udpAddress{AF_INET6, 0, 0, in6addr_loopback, 0};
    socklen_t size = sizeof(address);
    ASSERT_TRUE(setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof(off)) == 0 && bind(listener, raw(address), size) == 0
                && listen(listener, 4) == 0 && getsockname(listener, raw(address), &size) == 0
                && bind(udp, raw(udpAddress), size) == 0 && getsockname(udp, raw(udpAddress), &size) == 0);
    inet_pton(AF_INET6, "::ffff:127.0.0.1", &address.sin6_addr);
    ASSERT_TRUE(connect(client, raw(address), size) == 0 && getsockname(client, raw(clientAddress), &size) == 0);
    const int server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_TRUE(connect(waiting, raw(address), size) == 0 && getsockname(waiting, raw(waitingAddress), &size) == 0);
    // The listener once more under a descriptor number of several digits: read in number order.
    const int highListener = fcntl(listener, F_DUPFD_CLOEXEC, 123);

    const auto port = [](const sockaddr_in6& end) { return std::to_string(ntohs(end.sin6_port)); };
    const uint32_t selfPid = getpid();
    const std::string pid = ", PID " + std::to_string(selfPid), listening = "[::]:" + port(address) + " --> [::]:0 LISTEN";
    const std::string serverEnd = "127.0.0.1:" + port(address), clientEnd = "127.0.0.1:" + port(clientAddress),
                      waitingEnd = "127.0.0.1:" + port(waitingAddress);
    // A holder of the same sockets that ends as the first record comes, after the pids were
    // listed. (The holders that stay are the ss cross-check's.)
    Hv::Test::Process victim(idle);
    const uint32_t victimPid = victim.pid();
    std::vector<std::string> lines;
    std::vector<uint32_t> pids;
    for (const TcpConnectionInfo& info : wholeTable([&] { if (!victim.poll()) victim.kill(); })) {
        pids.push_back(info.m_pid);
        if (info.m_pid == selfPid)
            lines.push_back(text(info));
    }
    close(highListener);
    EXPECT_EQ(lines, (std::vector<std::string>{"    TCP " + listening + pid, "    TCP " + clientEnd + " --> " + serverEnd + " ESTAB" + pid,
                                               "    TCP " + waitingEnd + " --> " + serverEnd + " ESTAB" + pid,
                                               "    UDP [::1]:" + port(udpAddress) + " --> [::]:0" + pid,
                                               "    TCP " + serverEnd + " --> " + clientEnd + " ESTAB" + pid, "    TCP " + listening + pid}));
    // Pid 0, the sockets of no readable process, comes last.
    EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end(), [](uint32_t a, uint32_t b) { return a - 1 < b - 1; }));
    EXPECT_EQ(std::count(pids.begin(), pids.end(), victimPid), 0);

    // TCP only; local port first, then remote port.
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(ntohs(address.sin6_port), 0), selfPid);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(ntohs(clientAddress.sin6_port), ntohs(address.sin6_port)), selfPid);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(ntohs(clientAddress.sin6_port), ntohs(clientAddress.sin6_port)), 0u);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(ntohs(udpAddress.sin6_port), 0), 0u);
    int offered = 0;
    EXPECT_TRUE(Hv::Network::searchInTcpTable([&offered](const TcpConnectionInfo&) { return ++offered > 0; }));
    EXPECT_EQ(offered, 1);

    // Other processes open and close sockets meanwhile: one that lived only between two looks
    // cannot be checked, so a round with a difference is tried again. A real fault differs in
    // every round.
    std::vector<std::string> notInTable, notInSs;
    Counts last;
    for (int round = 0; round < 3 && (round == 0 || !notInTable.empty() || !notInSs.empty()); ++round) {
        const Counts table1 = table(), ss1 = ss();
        last = table();
        notInTable = missing(ss1, table1, last);
        notInSs = missing(last, ss1, ss());
    }
    EXPECT_TRUE(notInTable.empty()) << ::testing::PrintToString(notInTable);
    EXPECT_TRUE(notInSs.empty()) << ::testing::PrintToString(notInSs);
    const std::string otherListener = "    TCP 127.0.0.1:" + std::to_string(ntohs(otherPort)) + " --> 0.0.0.0:0 PID ";
    if (root) {
        EXPECT_EQ(last[otherListener + std::to_string(otherUser->pid())], 1);
        // What a user sees who may not inspect the others' processes: their sockets with pid 0.
        Hv::Test::inFreshProcess([&] {
            close(listener);
            ASSERT_TRUE(setgroups(0, nullptr) == 0 && setgid(NOBODY) == 0 && setuid(NOBODY) == 0);
            Counts seen = table();
            EXPECT_EQ(seen["    TCP [::]:" + port(address) + " --> [::]:0 PID 0"], 1);
            EXPECT_EQ(seen[otherListener + std::to_string(otherUser->pid())], 1);
        });
    }
    for (const int fd : {listener, client, waiting, udp, server})
        close(fd);
    if (!root)
        GTEST_SKIP() << "checked without a listener of another user: starting one needs root";
}

} // namespace

#include "HvNetwork.h"
#include "HvProcNetTcp.h"

#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
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
using Rows = std::map<uint64_t, std::tuple<uint32_t, uint32_t, uint16_t, uint32_t, uint16_t>>;

// The rows parsed from the text handed over in pieces of `step` bytes, as read() may cut it.
Rows parsed(const std::string& text, std::size_t step)
{
    Table table;
    Parser parser(table);
    for (std::size_t from = 0; from < text.size(); from += step)
        parser.add(text.data() + from, std::min(step, text.size() - from));
    parser.finish();
    Rows rows;
    for (const auto& [inode, row] : table.entries())
        rows[inode] = {row.state, row.localAddress, row.localPort, row.remoteAddress, row.remotePort};
    return rows;
}

// As a little-endian kernel writes them: the address word is the network-order word read as a
// host integer, so 10.0.2.15 reads 0F02000A. One line per way a line can fail.
const std::string TABLE =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 0F02000A:C350 2A01A8C0:01BB 01 00000000:00000000 02:000AFC3B 00000000  1000        0 99001 2 0000000000000000 20 4 30 10 -1\n"
    // No socket behind it (TIME_WAIT), garbage, cut before the inode, an IPv6-wide address.
    "   1: 0100007F:1F90 0100007F:D431 06 00000000:00000000 03:00001770 00000000     0        0 0 3 0000000000000000\n"
    "   2: garbage line\n"
    "   3: 0100007F:1F92 0100007F:D433 0B 00000000:00000000 00:00000000 00000000     0        0\n"
    "  10: 00000000000000000000000001000000:1F90 00000000000000000000000000000000:0000 0A 00000000:00000000 00:00000000 00000000 0 0 555 1\n"
    // A socket listed twice (the kernel's walk can meet it in two hash chains) keeps its first row.
    "   4: 0100007F:1F94 0100007F:D435 01 00000000:00000000 00:00000000 00000000     0        0 99001 1\n"
    // NEW_SYN_RECV has no BSD counterpart; the last line has no line end.
    "  11: 0100007F:1F93 0100007F:D434 0C 00000000:00000000 00:00000000 00000000     0        0 777 1 0000000000000000";

TEST(ProcNetTcp, TakesWellFormedRowsWithAnInodeWhereverTheTextIsCut)
{
    const Rows expected = {{99001, {4, 0x0A00020F, 50000, 0xC0A8012A, 443}},
                           {777, {UNKNOWN_STATE, 0x7F000001, 0x1F93, 0x7F000001, 0xD434}}};
    for (const std::size_t step : {1, 2, 3, 5, 7, 11, 64, 1 << 16})
        EXPECT_TRUE(parsed(TABLE, step) == expected && parsed(TABLE + "\n", step) == expected) << "pieces of " << step;
}

// The kernel's state numbers (include/net/tcp_states.h) through the BSD numbers to the report's text.
TEST(ProcNetTcp, StatesAndRecordsReadAsTheReportShowsThem)
{
    const char* const labels[] = {"UNKNOWN",   "ESTAB",  "SYN_SENT",   "SYN_RCVD", "FIN_WAIT1", "FIN_WAIT2", "TIME_WAIT",
                                  "CLOSED",    "CLOSE_WAIT", "LAST_ACK", "LISTEN", "CLOSING",   "UNKNOWN"};
    for (uint32_t linuxState = 0; linuxState < 13; ++linuxState)
        EXPECT_EQ(TcpConnectionInfo(1, bsdState(linuxState), false, 0, 0, 0, 0).state(), labels[linuxState])
            << linuxState;
    EXPECT_EQ(text(TcpConnectionInfo(4294967295u, UNKNOWN_STATE, false, 0xFFFFFFFF, 65535, 0, 0)),
              "    TCP 255.255.255.255:65535 --> 0.0.0.0:0 UNKNOWN, PID 4294967295");
}

const auto raw = [](auto& address) { return reinterpret_cast<sockaddr*>(&address); };

// A listener on 127.0.0.1 with one connection to it, held by this process and the children it
// forks afterwards.
struct LoopbackConnection {
    LoopbackConnection()
    {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof(address);
        EXPECT_TRUE(bind(listener, raw(address), size) == 0 && listen(listener, 4) == 0
                    && getsockname(listener, raw(address), &size) == 0 && connect(client, raw(address), size) == 0);
        server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        serverPort = ntohs(address.sin_port);
        getsockname(client, raw(address), &size);
        clientPort = ntohs(address.sin_port);
    }
    ~LoopbackConnection()
    {
        for (const int fd : {server, client, listener})
            close(fd);
    }
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int server = -1;
    uint16_t serverPort = 0, clientPort = 0;
};

TEST(TcpTable, ListsEachProcessInDescriptorOrderSkipsOneThatEndsAndTheSearchEndsAtTheFirstMatch)
{
    const LoopbackConnection connection;
    // The listener once more under a descriptor number of several digits: read in number order.
    const int highListener = fcntl(connection.listener, F_DUPFD_CLOEXEC, 123);
    const auto idle = [] {
        for (;;)
            pause();
    };
    // Holders of the same sockets; the lower one ends as the first record comes, after the pids
    // were listed.
    Hv::Test::Process first(idle), second(idle);
    Hv::Test::Process& victim = first.pid() < second.pid() ? first : second;
    const uint32_t self = getpid(), victimPid = victim.pid(), survivorPid = std::max(first.pid(), second.pid());
    std::vector<std::string> lines;
    std::vector<uint32_t> pids;
    for (const TcpConnectionInfo& info : wholeTable([&] { if (!victim.poll()) victim.kill(); })) {
        pids.push_back(info.m_pid);
        if (info.m_pid == self)
            lines.push_back(text(info));
    }
    close(highListener);
    const std::string server = "127.0.0.1:" + std::to_string(connection.serverPort), pid = ", PID " + std::to_string(self);
    const std::string client = "127.0.0.1:" + std::to_string(connection.clientPort);
    EXPECT_EQ(lines, (std::vector<std::string>{"    TCP " + server + " --> 0.0.0.0:0 LISTEN" + pid,
                                               "    TCP " + client + " --> " + server + " ESTAB" + pid,
                                               "    TCP " + server + " --> " + client + " ESTAB" + pid,
                                               "    TCP " + server + " --> 0.0.0.0:0 LISTEN" + pid}));
    EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end()));
    EXPECT_EQ(std::count(pids.begin(), pids.end(), victimPid), 0);
    EXPECT_EQ(std::count(pids.begin(), pids.end(), survivorPid), 4);

    // Local port first, then remote port.
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(connection.serverPort, 0), self);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(connection.clientPort, connection.serverPort), self);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(connection.clientPort, connection.clientPort), 0u);
    int offered = 0;
    EXPECT_TRUE(Hv::Network::searchInTcpTable([&offered](const TcpConnectionInfo&) { return ++offered > 0; }));
    EXPECT_EQ(offered, 1);
}

// Every IPv4 connection that ss attributes to a process is in the table with that process, and
// every record of the table is one of those; an IPv6 listener is in neither.
TEST(TcpTable, AgreesWithSs)
{
    const LoopbackConnection connection;
    const int ipv6 = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0); // on [::], a port of its own
    ASSERT_EQ(listen(ipv6, 1), 0);

    const std::regex state(" \\S+, PID"), owner("pid=(\\d+)");
    const auto table = [&] {
        std::set<std::string> keys;
        for (const TcpConnectionInfo& info : wholeTable())
            keys.insert(std::regex_replace(text(info), state, " PID"));
        return keys;
    };
    const auto ss = [&] {
        std::set<std::string> keys;
        for (const std::string& line : Hv::Test::splitLines(Hv::Test::commandOutput("ss -4tnpaH 2>/dev/null"))) {
            std::istringstream fields(line);
            std::string state, receive, send, local, remote;
            fields >> state >> receive >> send >> local >> remote;
            if (remote.ends_with(":*"))
                remote.back() = '0';
            for (std::sregex_iterator match(line.begin(), line.end(), owner), end; match != end; ++match)
                keys.insert("    TCP " + local + " --> " + remote + " PID " + (*match)[1].str());
        }
        return keys;
    };
    const auto missing = [](std::set<std::string> keys, const std::set<std::string>& a, const std::set<std::string>& b) {
        std::erase_if(keys, [&](const std::string& key) { return a.count(key) || b.count(key); });
        return keys;
    };

    // Other processes open and close connections meanwhile: one that lived only between two looks
    // cannot be checked, so a round with a difference is tried again. A real fault differs in
    // every round.
    std::set<std::string> notInTable, notInSs;
    for (int round = 0; round < 3; ++round) {
        const auto table1 = table(), ss1 = ss(), table2 = table(), ss2 = ss();
        // At least this test's own listener and connection ends.
        ASSERT_GE(ss1.size(), 3u) << "ss gave no process owners";
        notInTable = missing(ss1, table1, table2);
        notInSs = missing(table2, ss1, ss2);
        if (notInTable.empty() && notInSs.empty())
            break;
    }
    EXPECT_TRUE(notInTable.empty()) << ::testing::PrintToString(notInTable);
    EXPECT_TRUE(notInSs.empty()) << ::testing::PrintToString(notInSs);
    close(ipv6);
}

} // namespace

#include "HvNetwork.h"

#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <set>
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

std::vector<TcpConnectionInfo> wholeTable()
{
    std::vector<TcpConnectionInfo> records;
    EXPECT_FALSE(Hv::Network::searchInTcpTable([&records](const TcpConnectionInfo& info) {
        records.push_back(info);
        return false;
    }));
    return records;
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
        serverEnd = "127.0.0.1:" + std::to_string(serverPort = ntohs(address.sin_port));
        getsockname(client, raw(address), &size);
        clientEnd = "127.0.0.1:" + std::to_string(clientPort = ntohs(address.sin_port));
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
    std::string serverEnd, clientEnd;
};

TEST(TcpTable, ListsEachProcessInDescriptorOrderAndTheSearchEndsAtTheFirstMatch)
{
    const LoopbackConnection connection;
    // The listener once more under a descriptor number of several digits: read in number order.
    const int highListener = fcntl(connection.listener, F_DUPFD_CLOEXEC, 123);
    const uint32_t self = static_cast<uint32_t>(getpid());
    std::vector<std::string> lines;
    std::vector<uint32_t> pids;
    for (const TcpConnectionInfo& info : wholeTable()) {
        pids.push_back(info.m_pid);
        if (info.m_pid == self)
            lines.push_back(text(info));
    }
    close(highListener);
    const std::string server = "    TCP " + connection.serverEnd + " --> ", pid = ", PID " + std::to_string(self);
    EXPECT_EQ(lines, (std::vector<std::string>{server + "0.0.0.0:0 LISTEN" + pid,
                                               "    TCP " + connection.clientEnd + " --> " + connection.serverEnd + " ESTAB" + pid,
                                               server + connection.clientEnd + " ESTAB" + pid, server + "0.0.0.0:0 LISTEN" + pid}));
    EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end()));

    // Local port first, then remote port.
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(connection.serverPort, 0), self);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(connection.clientPort, connection.serverPort), self);
    EXPECT_EQ(Hv::Network::findProcessByTcpPorts(connection.clientPort, connection.clientPort), 0u);
    int offered = 0;
    EXPECT_TRUE(Hv::Network::searchInTcpTable([&offered](const TcpConnectionInfo&) { return ++offered > 0; }));
    EXPECT_EQ(offered, 1);
}

TEST(TcpTable, SkipsAProcessThatEndsDuringTheWalk)
{
    const LoopbackConnection connection;
    Hv::Test::Process first([] { for (;;) pause(); });
    Hv::Test::Process second([] { for (;;) pause(); });
    Hv::Test::Process& victim = first.pid() < second.pid() ? first : second;
    const uint32_t victimPid = static_cast<uint32_t>(victim.pid());
    const uint32_t survivorPid = static_cast<uint32_t>(std::max(first.pid(), second.pid()));

    // The pids are listed before the first record is offered; the lower child goes right then.
    std::set<uint32_t> owners;
    Hv::Network::searchInTcpTable([&](const TcpConnectionInfo& info) {
        if (!victim.poll())
            victim.kill();
        owners.insert(info.m_pid);
        return false;
    });
    EXPECT_FALSE(owners.count(victimPid));
    EXPECT_TRUE(owners.count(survivorPid));
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

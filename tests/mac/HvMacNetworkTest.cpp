// The macOS TCP table walk (libs/network/Mac) against the scripted libproc double.

#include "HvLibprocScript.h"
#include "HvNetwork.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <vector>

namespace {

using Hv::Network::TcpConnectionInfo;
namespace Libproc = Hv::Test::Libproc;

constexpr int ESTABLISHED = 4;
constexpr int LISTEN = 1;

std::vector<TcpConnectionInfo> wholeTable()
{
    std::vector<TcpConnectionInfo> records;
    const auto found = Hv::Network::searchInTcpTable([&records](const TcpConnectionInfo& info) {
        records.push_back(info);
        return false;
    });
    EXPECT_FALSE(found);
    return records;
}

Libproc::Descriptor socketDescriptor(int fd, const socket_fdinfo& socket)
{
    Libproc::Descriptor descriptor;
    descriptor.fd = fd;
    descriptor.socket = socket;
    return descriptor;
}

class MacTcpTable : public ::testing::Test {
protected:
    void SetUp() override { Libproc::reset(); }
    void TearDown() override { Libproc::reset(); }

    Hv::Test::LogCapture m_capture;
};

TEST_F(MacTcpTable, GrowsThePidBufferByAQuarterWhileTheListFillsIt)
{
    for (int pid = 1; pid <= 100; ++pid)
        Libproc::script().pids.push_back(pid);

    wholeTable();

    // 50 → 62 → 77 → 96 → 120 pids: only 120 leaves room after the 100 pids.
    EXPECT_EQ((std::vector<int>{200, 248, 308, 384, 480}), Libproc::script().listBufferSizes);
    ASSERT_EQ(100u, Libproc::script().taskInfoPids.size());
    EXPECT_EQ(1, Libproc::script().taskInfoPids.front());
    EXPECT_EQ(100, Libproc::script().taskInfoPids.back());
}

TEST_F(MacTcpTable, OversizedListingIsLoggedAndStartsAgain)
{
    Libproc::script().pids = {7, 3};
    Libproc::script().processes[7] = Libproc::Process();
    Libproc::script().processes[3] = Libproc::Process();
    Libproc::script().listResultOverrides = {4000};

    wholeTable();

    EXPECT_EQ((std::vector<int>{200, 200}), Libproc::script().listBufferSizes);
    EXPECT_EQ((std::vector<std::string>{"proc_listpids() got 4000 bytes instead of expected 200 bytes"}),
              m_capture.messages(log4cplus::FATAL_LOG_LEVEL));
    // The walk follows the listing's order, not the pid order.
    EXPECT_EQ((std::vector<int>{7, 3}), Libproc::script().taskInfoPids);
}

TEST_F(MacTcpTable, ProcessWithRefusedInformationIsLoggedAndSkipped)
{
    Libproc::script().pids = {10, 11, 12, 13};
    Libproc::Process refused;
    refused.taskInfoResult = 100;
    refused.descriptors = {socketDescriptor(3, Libproc::tcpSocket(ESTABLISHED, "127.0.0.1", 1, "127.0.0.1", 2))};
    Libproc::script().processes[10] = refused;
    Libproc::Process oversized = refused; // more than asked for: skipped without a line
    oversized.taskInfoResult = 300;
    Libproc::script().processes[11] = oversized;
    Libproc::Process reader;
    reader.descriptors = {socketDescriptor(4, Libproc::tcpSocket(LISTEN, "0.0.0.0", 5060, "0.0.0.0", 0))};
    Libproc::script().processes[12] = reader;
    // pid 13 has exited: the query answers 0.

    const std::vector<TcpConnectionInfo> records = wholeTable();

    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(12u, records[0].m_pid);
    EXPECT_EQ((std::vector<std::string>{"proc_listpids() got 100 bytes instead of expected 232 bytes",
                                        "proc_listpids() got 0 bytes instead of expected 232 bytes"}),
              m_capture.messages(log4cplus::FATAL_LOG_LEVEL));
    // Descriptors are listed only for the readable process, with room for exactly its open files.
    EXPECT_EQ((std::vector<int>{8}), Libproc::script().listFdsBufferSizes);
}

TEST_F(MacTcpTable, KeepsOnlyIpv4TcpSocketsInHostOrder)
{
    Libproc::script().pids = {42};
    Libproc::Process process;
    Libproc::Descriptor file;
    file.fd = 0;
    file.type = 1; // a vnode
    Libproc::Descriptor shortAnswer = socketDescriptor(8, Libproc::tcpSocket(ESTABLISHED, "10.0.0.8", 8, "10.0.0.9", 9));
    shortAnswer.socketResult = 400;
    process.descriptors = {
        file,
        socketDescriptor(3, Libproc::tcpSocket(ESTABLISHED, "192.168.1.20", 50123, "10.1.2.3", 443)),
        socketDescriptor(4, Libproc::inetSocket(AF_INET6, SOCKINFO_TCP, LISTEN, "0.0.0.0", 5061, "0.0.0.0", 0)),
        socketDescriptor(5, Libproc::inetSocket(AF_INET, SOCKINFO_IN, 0, "0.0.0.0", 53, "0.0.0.0", 0)),
        shortAnswer,
        socketDescriptor(6, Libproc::tcpSocket(LISTEN, "127.0.0.1", 5060, "0.0.0.0", 0)),
    };
    Libproc::script().processes[42] = process;

    const std::vector<TcpConnectionInfo> records = wholeTable();

    ASSERT_EQ(2u, records.size());
    const TcpConnectionInfo& client = records[0];
    EXPECT_EQ(42u, client.m_pid);
    EXPECT_EQ(4u, client.m_state);
    EXPECT_TRUE(client.m_established);
    EXPECT_EQ(0xC0A80114u, client.m_localAddress);
    EXPECT_EQ(50123, client.m_localPort);
    EXPECT_EQ(0x0A010203u, client.m_remoteAddress);
    EXPECT_EQ(443, client.m_remotePort);
    const TcpConnectionInfo& listener = records[1];
    EXPECT_EQ(1u, listener.m_state);
    EXPECT_FALSE(listener.m_established);
    EXPECT_EQ(0x7F000001u, listener.m_localAddress);
    EXPECT_EQ(5060, listener.m_localPort);
    log4cplus::tostringstream line;
    line << listener;
    EXPECT_EQ("    TCP 127.0.0.1:5060 --> 0.0.0.0:0 LISTEN, PID 42", line.str());
    // The vnode is never asked for socket details.
    for (const auto& [pid, fd] : Libproc::script().socketInfoQueries)
        EXPECT_NE(0, fd);
}

TEST_F(MacTcpTable, FindsTheFirstOwnerAndStopsThere)
{
    Libproc::script().pids = {30, 20, 10};
    Libproc::Process other;
    other.descriptors = {socketDescriptor(3, Libproc::tcpSocket(ESTABLISHED, "127.0.0.1", 6000, "127.0.0.1", 7001))};
    Libproc::script().processes[30] = other;
    Libproc::Process first;
    first.descriptors = {socketDescriptor(5, Libproc::tcpSocket(ESTABLISHED, "127.0.0.1", 6000, "127.0.0.1", 7000))};
    Libproc::script().processes[20] = first;
    Libproc::Process second; // the same ports on other addresses
    second.descriptors = {socketDescriptor(4, Libproc::tcpSocket(ESTABLISHED, "10.0.0.1", 6000, "10.0.0.2", 7000))};
    Libproc::script().processes[10] = second;

    EXPECT_EQ(20u, Hv::Network::findProcessByTcpPorts(6000, 7000));
    EXPECT_EQ((std::vector<int>{30, 20}), Libproc::script().taskInfoPids);

    Libproc::script().taskInfoPids.clear();
    EXPECT_EQ(0u, Hv::Network::findProcessByTcpPorts(7000, 6000));
    EXPECT_EQ(3u, Libproc::script().taskInfoPids.size());
}

} // namespace

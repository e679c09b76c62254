// The libproc walks of the macOS units (TCP table, task list, process owner) against the scripted
// libproc double; the task list also against the real user database.

#include "HvLibprocScript.h"
#include "HvLogCapture.h"
#include "HvNetwork.h"
#include "HvPlatformDetail.h"
#include "HvTaskList.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/socket.h>

namespace {

using namespace Hv::Test::Libproc;
using Hv::Network::TcpConnectionInfo;
using Hv::TaskList::TaskInfo;

constexpr int LISTEN = 1;
constexpr int ESTABLISHED = 4;

class MacLibproc : public ::testing::Test {
protected:
    void SetUp() override { reset(); }

    std::vector<TcpConnectionInfo> wholeTable()
    {
        std::vector<TcpConnectionInfo> records;
        EXPECT_FALSE(Hv::Network::searchInTcpTable([&](const TcpConnectionInfo& info) {
            records.push_back(info);
            return false;
        }));
        return records;
    }

    std::vector<std::string> fatal() const { return m_capture.messages(log4cplus::FATAL_LOG_LEVEL); }

    Hv::Test::LogCapture m_capture;
};

TEST_F(MacLibproc, TcpTableGrowsThePidBufferByAQuarterWhileTheListFillsIt)
{
    for (int pid = 1; pid <= 100; ++pid)
        script().pids.push_back(pid);
    wholeTable();
    // 50, 62, 77, 96, 120 pids: only 120 leaves room after the 100.
    EXPECT_EQ((std::vector<int>{200, 248, 308, 384, 480}), script().listBufferSizes);
    EXPECT_EQ(script().pids, script().taskInfoPids);
}

TEST_F(MacLibproc, TcpTableStartsAgainAfterAnOversizedListing)
{
    script().pids = {7, 3};
    script().listResultOverrides = {4000};
    wholeTable();
    EXPECT_EQ((std::vector<int>{200, 200}), script().listBufferSizes);
    EXPECT_EQ((std::vector<std::string>{"proc_listpids() got 4000 bytes instead of expected 200 bytes",
                                        "proc_listpids() got 0 bytes instead of expected 232 bytes",
                                        "proc_listpids() got 0 bytes instead of expected 232 bytes"}),
              fatal());
    // The listing's order, not the pids'.
    EXPECT_EQ((std::vector<int>{7, 3}), script().taskInfoPids);
}

TEST_F(MacLibproc, TcpTableKeepsIpv4TcpSocketsOfReadableProcessesInHostOrder)
{
    script().pids = {10, 11, 12};
    Process refused{"", 0, 100, {{3, inetSocket(ESTABLISHED, "127.0.0.1", 1, "127.0.0.1", 2)}}};
    script().processes[10] = refused;
    refused.taskInfoResult = 300; // more than asked for: skipped without a line
    script().processes[11] = refused;
    Process reader;
    reader.descriptors = {{3, inetSocket(ESTABLISHED, "192.168.1.20", 50123, "10.1.2.3", 443)},
                          {4, inetSocket(LISTEN, "0.0.0.0", 5061, "0.0.0.0", 0, AF_INET6)},
                          {5, inetSocket(0, "0.0.0.0", 53, "0.0.0.0", 0, AF_INET, SOCKINFO_IN)},
                          {8, inetSocket(ESTABLISHED, "10.0.0.8", 8, "10.0.0.9", 9), 400},
                          {6, inetSocket(LISTEN, "127.0.0.1", 5060, "0.0.0.0", 0)}};
    script().processes[12] = reader;

    const std::vector<TcpConnectionInfo> records = wholeTable();
    ASSERT_EQ(2u, records.size());
    const TcpConnectionInfo& client = records[0];
    EXPECT_EQ(std::make_tuple(12u, 4u, true, 0xC0A80114u, uint16_t(50123), 0x0A010203u, uint16_t(443)),
              std::make_tuple(client.m_pid, client.m_state, client.m_established, client.m_localAddress,
                              client.m_localPort, client.m_remoteAddress, client.m_remotePort));
    const TcpConnectionInfo& listener = records[1];
    EXPECT_EQ(std::make_tuple(12u, 1u, false, 0x7F000001u, uint16_t(5060)),
              std::make_tuple(listener.m_pid, listener.m_state, listener.m_established, listener.m_localAddress,
                              listener.m_localPort));
    EXPECT_EQ((std::vector<std::string>{"proc_listpids() got 100 bytes instead of expected 232 bytes"}), fatal());
    // Descriptors are listed only for the readable process, with room for exactly its open files.
    EXPECT_EQ((std::vector<int>{5 * 8}), script().listFdsBufferSizes);
}

TEST_F(MacLibproc, TcpTableSearchStopsAtTheFirstOwner)
{
    script().pids = {30, 20, 10};
    script().processes[30].descriptors = {{3, inetSocket(ESTABLISHED, "127.0.0.1", 6000, "127.0.0.1", 7001)}};
    script().processes[20].descriptors = {{5, inetSocket(ESTABLISHED, "127.0.0.1", 6000, "127.0.0.1", 7000)}};
    script().processes[10].descriptors = {{4, inetSocket(ESTABLISHED, "10.0.0.1", 6000, "10.0.0.2", 7000)}};
    EXPECT_EQ(20u, Hv::Network::findProcessByTcpPorts(6000, 7000));
    EXPECT_EQ((std::vector<int>{30, 20}), script().taskInfoPids);
}

TEST_F(MacLibproc, TaskListNamesOwnersAndFailuresOfEveryListedProcess)
{
    constexpr uid_t UID_WITHOUT_USER = 3999999;
    ASSERT_EQ(nullptr, getpwuid(UID_WITHOUT_USER));
    ASSERT_NE(nullptr, getpwuid(0));
    const std::string root = getpwuid(0)->pw_name;

    script().pids = {1, 77, 5, 9, 12};
    script().processes[1] = {"launchd", 0};
    // The kernel keeps at most 32 bytes of a name, without a terminator when it is that long.
    script().processes[77] = {"abcdefghijklmnopqrstuvwxyz012345", UID_WITHOUT_USER};
    // pid 5 exited after the listing.
    script().processes[9] = {"odd", 0, 100};
    script().processes[12] = {"negative", 0, -1};

    std::vector<std::string> records;
    EXPECT_FALSE(Hv::TaskList::searchInTable([&records](const TaskInfo& info) {
        records.push_back(std::to_string(info.m_pid) + " " + info.m_name + " " + info.m_owner);
        return false;
    }));
    EXPECT_EQ((std::vector<std::string>{"1 launchd " + root, "77 abcdefghijklmnopqrstuvwxyz012345 <unknown>",
                                        "5 <unknown> <unknown>", "9 <error> <error>", "12 <error> <error>"}),
              records);
    // The logger may add its header line at INFO.
    EXPECT_EQ(1u, m_capture.count(log4cplus::INFO_LOG_LEVEL, "process info"));
    EXPECT_EQ(1u, m_capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 5"));
    EXPECT_EQ((std::vector<std::string>{"Error while getting process info for pid: 9",
                                        "Error while getting process info for pid: 12"}),
              m_capture.messages(log4cplus::ERROR_LOG_LEVEL));
}

TEST_F(MacLibproc, TaskListListsWhatTheSizeQueryCountedAndStopsAtTheFirstMatch)
{
    EXPECT_FALSE(Hv::TaskList::searchInTable([](const TaskInfo&) { return true; })) << "nothing listed";
    script().pids = {4, 2, 8};
    script().pidsStartingAfterSizeQuery = {16, 32};
    for (int pid : {2, 4, 8, 16, 32})
        script().processes[pid] = {"p" + std::to_string(pid)};

    const auto found = Hv::TaskList::searchInTable([](const TaskInfo& info) { return info.m_name == "p2"; });
    ASSERT_TRUE(found);
    EXPECT_EQ(2u, found->m_pid);
    // The listing is told the size that the query gave, although the buffer has twice the room.
    EXPECT_EQ((std::vector<int>{12}), script().listBufferSizes);
    EXPECT_EQ((std::vector<int>{4, 2}), script().taskInfoPids);

    script().taskInfoPids.clear();
    EXPECT_FALSE(Hv::TaskList::searchInTable([](const TaskInfo&) { return false; }));
    EXPECT_EQ((std::vector<int>{4, 2, 8, 16, 32}), script().taskInfoPids);
}

TEST_F(MacLibproc, ProcessOwnerIsTheUserIdOrEmptyWithTheReason)
{
    script().processes[600] = {"", 501};
    script().processes[601] = {"", 502, 64};
    EXPECT_EQ("501", Hv::PlatformDetail::processOwnerFromTaskInfo(600));
    EXPECT_EQ("", Hv::PlatformDetail::processOwnerFromTaskInfo(601));
    EXPECT_EQ("", Hv::PlatformDetail::processOwnerFromTaskInfo(602)); // no such process
    EXPECT_EQ(1u, m_capture.count(log4cplus::INFO_LOG_LEVEL, "process info"));
    EXPECT_EQ(1u, m_capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 602"));
    EXPECT_EQ((std::vector<std::string>{"Error while getting process info for pid: 601"}),
              m_capture.messages(log4cplus::ERROR_LOG_LEVEL));
}

} // namespace

#include "HvNetwork.h"
#include "HvProcNetTcp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace {

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
    // NEW_SYN_RECV has no BSD counterpart; the last line has no line end.
    "  11: 0100007F:1F93 0100007F:D434 0C 00000000:00000000 00:00000000 00000000     0        0 777 1 0000000000000000";

TEST(ProcNetTcp, TakesWellFormedRowsWithAnInodeWhereverTheTextIsCut)
{
    const Rows expected = {{99001, {4, 0x0A00020F, 50000, 0xC0A8012A, 443}},
                           {777, {UNKNOWN_STATE, 0x7F000001, 0x1F93, 0x7F000001, 0xD434}}};
    for (const std::size_t step : {1, 2, 3, 5, 7, 11, 64, 1 << 16}) {
        EXPECT_EQ(parsed(TABLE, step), expected) << "pieces of " << step;
        EXPECT_EQ(parsed(TABLE + "\n", step), expected) << "pieces of " << step;
    }
}

// The walk looks every inode up, whatever order the file has; a socket listed twice (the
// kernel's walk can meet it in two hash chains) keeps its first row.
TEST(ProcNetTcp, FindsEveryInodeOfAnUnorderedTableAndTheFirstRowOfATwiceListedOne)
{
    std::string text = "header\n";
    std::vector<uint64_t> inodes;
    for (uint64_t i = 0; i < 500; ++i)
        inodes.push_back((i * 7919) % 1000 + 1);
    inodes.push_back(inodes[10]);
    for (std::size_t i = 0; i < inodes.size(); ++i) {
        char line[96];
        std::snprintf(line, sizeof(line), "%zu: 0100007F:%04zX 00000000:0000 0A 0:0 0:0 0 0 0 %llu\n", i, i,
                      static_cast<unsigned long long>(inodes[i]));
        text += line;
    }
    Table table;
    parse(text.data(), text.size(), table);
    EXPECT_EQ(table.entries().size(), 500u);
    for (std::size_t i = 0; i + 1 < inodes.size(); ++i)
        EXPECT_EQ(table.find(inodes[i]) ? table.find(inodes[i])->localPort : -1, static_cast<int>(i)) << inodes[i];
    EXPECT_EQ(table.find(1001), nullptr);
}

TEST(ProcNetTcp, ReadsTheInodeOfSocketLinksOnly)
{
    const std::pair<const char*, uint64_t> links[] = {
        {"socket:[12345]", 12345}, {"socket:[18446744073709551615]", 18446744073709551615ull},
        {"socket:[123456789012345678901]", 0}, {"socket:[]", 0}, {"socket:[12a]", 0}, {"socket:[123", 0},
        {"pipe:[12345]", 0}, {"/dev/null", 0}};
    for (const auto& [link, inode] : links)
        EXPECT_EQ(socketInode(link, std::strlen(link)), inode) << link;
}

// The kernel's state numbers (include/net/tcp_states.h) through the BSD numbers to the report's text.
TEST(ProcNetTcp, StatesAndRecordsReadAsTheReportShowsThem)
{
    const char* const labels[] = {"UNKNOWN",   "ESTAB",  "SYN_SENT",   "SYN_RCVD", "FIN_WAIT1", "FIN_WAIT2", "TIME_WAIT",
                                  "CLOSED",    "CLOSE_WAIT", "LAST_ACK", "LISTEN", "CLOSING",   "UNKNOWN"};
    for (uint32_t linuxState = 0; linuxState < 13; ++linuxState)
        EXPECT_EQ(Hv::Network::TcpConnectionInfo(1, bsdState(linuxState), false, 0, 0, 0, 0).state(), labels[linuxState])
            << linuxState;
    log4cplus::tostringstream out;
    out << Hv::Network::TcpConnectionInfo(4294967295u, UNKNOWN_STATE, false, 0xFFFFFFFF, 65535, 0, 0);
    EXPECT_EQ(out.str(), "    TCP 255.255.255.255:65535 --> 0.0.0.0:0 UNKNOWN, PID 4294967295");
}

} // namespace

#include "HvProcNetTcp.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Hv::Network::ProcNetTcp::Row;
using Hv::Network::ProcNetTcp::Table;

constexpr uint32_t ip(uint32_t a, uint32_t b, uint32_t c, uint32_t d)
{
    return a << 24 | b << 16 | c << 8 | d;
}

Table parse(const std::string& text)
{
    Table table;
    Hv::Network::ProcNetTcp::parse(text.data(), text.size(), table);
    return table;
}

Row rowOf(const Table& table, uint64_t inode)
{
    const Row* const row = table.find(inode);
    if (row == nullptr) {
        ADD_FAILURE() << "no row for inode " << inode;
        return Row{};
    }
    return *row;
}

// Lines as a little-endian kernel writes them: the address word is the network-order word read
// as a host integer, so 127.0.0.1 reads 0100007F.
const std::string TABLE =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 27187 1 0000000000000000 100 0 0 10 0\n"
    "   1: 0F02000A:C350 2A01A8C0:01BB 01 00000000:00000000 02:000AFC3B 00000000  1000        0 99001 2 0000000000000000 20 4 30 10 -1\n"
    "   2: 0100007F:1F90 0100007F:D431 06 00000000:00000000 03:00001770 00000000     0        0 0 3 0000000000000000\n"
    "   3: 0100007F:1F91 0100007F:D432 08 00000000:00000000 00:00000000 00000000     0        0 4242 1 0000000000000000 20 4 30 10 -1\n"
    "   4: garbage line\n"
    "   5: 0100007F:1F92 0100007F:D433 0B 00000000:00000000 00:00000000 00000000     0        0\n"
    "  10: 00000000000000000000000001000000:1F90 00000000000000000000000000000000:0000 0A 00000000:00000000 00:00000000 00000000 0 0 555 1\n"
    "  11: 0100007F:1F93 0100007F:D434 0C 00000000:00000000 00:00000000 00000000     0        0 777 1 0000000000000000";

TEST(ProcNetTcp, ParsesRowsByInode)
{
    const Table table = parse(TABLE);
    // Rows 2 (no inode: TIME_WAIT), 4 (garbage), 5 (no inode field), 10 (IPv6 width) are skipped.
    ASSERT_EQ(table.entries().size(), 4u);

    const Row listener = rowOf(table, 27187);
    EXPECT_EQ(listener.state, 1u); // LISTEN
    EXPECT_EQ(listener.localAddress, ip(127, 0, 0, 1));
    EXPECT_EQ(listener.localPort, 8080);
    EXPECT_EQ(listener.remoteAddress, 0u);
    EXPECT_EQ(listener.remotePort, 0);

    const Row established = rowOf(table, 99001);
    EXPECT_EQ(established.state, 4u);
    EXPECT_EQ(established.localAddress, ip(10, 0, 2, 15));
    EXPECT_EQ(established.localPort, 50000);
    EXPECT_EQ(established.remoteAddress, ip(192, 168, 1, 42));
    EXPECT_EQ(established.remotePort, 443);

    EXPECT_EQ(rowOf(table, 4242).state, 5u); // CLOSE_WAIT
    // The last line has no line end; NEW_SYN_RECV has no BSD counterpart.
    EXPECT_EQ(rowOf(table, 777).state, Hv::Network::ProcNetTcp::UNKNOWN_STATE);
    // Inodes of skipped rows and inodes in no row at all.
    for (const uint64_t absent : {0ull, 555ull, 1ull, 27186ull, 27188ull, 99999ull, ~0ull})
        EXPECT_EQ(table.find(absent), nullptr) << absent;

    EXPECT_TRUE(parse("").entries().empty());
    EXPECT_TRUE(parse("  sl  local_address rem_address   st").entries().empty());
}

// Lookups need every inode in order, whatever order the file has; a socket listed twice (the
// kernel's walk can meet it in two hash chains) keeps its first row, as a map's insert would.
TEST(ProcNetTcp, LooksUpEveryInodeOfAnUnorderedTable)
{
    std::string text = "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n";
    std::vector<uint64_t> inodes;
    for (uint64_t i = 0; i < 500; ++i)
        inodes.push_back((i * 7919) % 1000 + 1); // 500 distinct inodes in scrambled order
    inodes.push_back(inodes[10]);
    for (std::size_t i = 0; i < inodes.size(); ++i) {
        char line[160];
        std::snprintf(line, sizeof(line),
                      "%4zu: 0100007F:%04zX 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 %llu 1\n",
                      i, i, static_cast<unsigned long long>(inodes[i]));
        text += line;
    }
    const Table table = parse(text);
    ASSERT_EQ(table.entries().size(), 500u);
    for (std::size_t i = 0; i + 1 < inodes.size(); ++i)
        EXPECT_EQ(rowOf(table, inodes[i]).localPort, i) << "inode " << inodes[i];
    EXPECT_EQ(table.find(1001), nullptr);
}

// The table as read() hands it over: a line cut anywhere, even in the header or right after a
// line end, gives the same rows as the whole text.
TEST(ProcNetTcp, ParsesTextInPiecesLikeTheWhole)
{
    auto rows = [](const Table& table) {
        std::map<uint64_t, std::tuple<uint32_t, uint32_t, uint16_t, uint32_t, uint16_t>> sorted;
        for (const auto& [inode, row] : table.entries())
            sorted[inode] = {row.state, row.localAddress, row.localPort, row.remoteAddress, row.remotePort};
        return sorted;
    };
    const auto whole = rows(parse(TABLE));
    ASSERT_EQ(whole.size(), 4u);

    auto inPieces = [](const std::string& text, const std::vector<std::size_t>& cuts) {
        Table table;
        Hv::Network::ProcNetTcp::Parser parser(table);
        std::size_t from = 0;
        for (const std::size_t cut : cuts) {
            parser.add(text.data() + from, cut - from);
            from = cut;
        }
        parser.add(text.data() + from, text.size() - from);
        parser.finish();
        return table;
    };
    for (std::size_t cut = 0; cut <= TABLE.size(); ++cut)
        EXPECT_EQ(rows(inPieces(TABLE, {cut})), whole) << "cut at " << cut;
    for (std::size_t step : {1u, 2u, 3u, 7u, 64u}) {
        std::vector<std::size_t> cuts;
        for (std::size_t cut = step; cut < TABLE.size(); cut += step)
            cuts.push_back(cut);
        EXPECT_EQ(rows(inPieces(TABLE, cuts)), whole) << "pieces of " << step;
    }
    // A text that ends with a line end leaves nothing over for finish().
    EXPECT_EQ(rows(parse(TABLE + "\n")), whole);
}

TEST(ProcNetTcp, TranslatesLinuxStatesToBsdNumbers)
{
    using Hv::Network::ProcNetTcp::bsdState;
    // ESTABLISHED, SYN_SENT, SYN_RECV, FIN_WAIT1, FIN_WAIT2, TIME_WAIT, CLOSE, CLOSE_WAIT,
    // LAST_ACK, LISTEN, CLOSING.
    const uint32_t expected[] = {4, 2, 3, 6, 9, 10, 0, 5, 8, 1, 7};
    for (uint32_t linuxState = 1; linuxState <= 11; ++linuxState)
        EXPECT_EQ(bsdState(linuxState), expected[linuxState - 1]) << "Linux state " << linuxState;
    EXPECT_EQ(bsdState(0), Hv::Network::ProcNetTcp::UNKNOWN_STATE);
    EXPECT_EQ(bsdState(12), Hv::Network::ProcNetTcp::UNKNOWN_STATE);
    EXPECT_EQ(bsdState(0xFFFFFFFF), Hv::Network::ProcNetTcp::UNKNOWN_STATE);
}

TEST(ProcNetTcp, ReadsSocketInodeOfDescriptorLinks)
{
    auto inode = [](const char* link) { return Hv::Network::ProcNetTcp::socketInode(link, std::strlen(link)); };
    EXPECT_EQ(inode("socket:[12345]"), 12345u);
    EXPECT_EQ(inode("socket:[18446744073709551615]"), 18446744073709551615ull);
    EXPECT_EQ(inode("socket:[]"), 0u);
    EXPECT_EQ(inode("socket:[12a]"), 0u);
    EXPECT_EQ(inode("socket:[123"), 0u);
    EXPECT_EQ(inode("pipe:[12345]"), 0u);
    EXPECT_EQ(inode("anon_inode:[eventpoll]"), 0u);
    EXPECT_EQ(inode("/dev/null"), 0u);
}

} // namespace

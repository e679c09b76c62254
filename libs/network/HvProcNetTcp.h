#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// The text of Linux's /proc/net/tcp and the "socket:[inode]" descriptor links, read into the
// values of Hv::Network::TcpConnectionInfo. Pure functions, so they are tested on every platform.
namespace Hv::Network::ProcNetTcp {

// One row of the table; addresses and ports in host byte order, state in BSD numbering.
struct Row {
    uint32_t state;
    uint32_t localAddress;
    uint16_t localPort;
    uint32_t remoteAddress;
    uint16_t remotePort;
};

// Rows by socket inode: added in file order, then sorted once for the lookups of the descriptor
// walk (one array instead of a node per row; measurably faster with tens of thousands of rows).
class Table {
public:
    using Entry = std::pair<uint64_t, Row>;

    void add(uint64_t inode, const Row& row);
    // Orders the rows for find(); of rows with the same inode only the first added stays.
    void sort();
    // The row of the inode, or null. Valid after sort().
    const Row* find(uint64_t inode) const;
    // Ascending inodes after sort().
    const std::vector<Entry>& entries() const { return m_entries; }

private:
    std::vector<Entry> m_entries;
};

// A state number that TcpConnectionInfo::state() does not know.
constexpr uint32_t UNKNOWN_STATE = 0xFFFFFFFF;

// Linux TCP state number (TCP_ESTABLISHED = 1 ...) to the BSD number (TCPS_ESTABLISHED = 4 ...).
uint32_t bsdState(uint32_t linuxState);

// Adds the rows of the table text (header line first) to a table. Malformed lines and rows
// without an inode (no owning socket, e.g. TIME_WAIT) are skipped. The text comes in pieces of
// any size, as read() returns them, so that no buffer of the table's size is needed; only a
// line cut at the end of a piece is kept over to the next.
class Parser {
public:
    explicit Parser(Table& table);

    void add(const char* text, std::size_t size);
    // The last line, when the text does not end with a line end; sorts the table.
    void finish();

private:
    void line(const char* begin, const char* end);

    Table& m_table;
    std::string m_partial;
    bool m_header = true;
};

// The whole text at once.
void parse(const char* text, std::size_t size, Table& table);

// The inode of a descriptor link "socket:[12345]"; 0 for any other link.
uint64_t socketInode(const char* link, std::size_t size);

} // namespace Hv::Network::ProcNetTcp

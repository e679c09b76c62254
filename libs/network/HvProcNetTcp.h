#pragma once

#include "HvNetwork.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// The text of Linux's socket tables (/proc/net/tcp, tcp6, udp, udp6) and the "socket:[inode]"
// descriptor links, read into the values of Hv::Network::TcpConnectionInfo. Pure functions, so
// they are tested on every platform.
namespace Hv::Network::ProcNetTcp {

// One row of a table; ports in host byte order, state in BSD numbering. Inode 0: no socket
// behind the row that a process could hold (TIME_WAIT, a connection not yet accepted).
struct Row {
    uint64_t inode;
    Protocol protocol;
    uint32_t state;
    Address localAddress;
    uint16_t localPort;
    Address remoteAddress;
    uint16_t remotePort;
};

// The row as a record of the process `pid`.
TcpConnectionInfo record(uint32_t pid, const Row& row);

// The rows of the tables in the order read, with a lookup by socket inode (one sorted array
// instead of a node per row; measurably faster with tens of thousands of rows).
class Table {
public:
    static constexpr std::size_t NOT_FOUND = static_cast<std::size_t>(-1);

    void add(const Row& row);
    // Builds the lookup; of rows with the same inode only the first added stays.
    void index();
    // Position of the inode's row in rows(), or NOT_FOUND. Valid after index().
    std::size_t find(uint64_t inode) const;
    const std::vector<Row>& rows() const { return m_rows; }

private:
    std::vector<Row> m_rows;
    std::vector<std::pair<uint64_t, std::size_t>> m_byInode;
};

// A state number that TcpConnectionInfo::state() does not know; also the state of UDP rows.
constexpr uint32_t UNKNOWN_STATE = 0xFFFFFFFF;

// Linux TCP state number (TCP_ESTABLISHED = 1 ...) to the BSD number (TCPS_ESTABLISHED = 4 ...).
uint32_t bsdState(uint32_t linuxState);

// Adds the rows of one table's text (header line first) to a table. A line that does not parse
// is skipped; finish() says so in one WARN line for the whole table. The text comes in pieces
// of any size, as read() returns them, so that no buffer of the table's size is needed; only a
// line cut at the end of a piece is kept over to the next.
class Parser {
public:
    // `name` names the table in the log.
    Parser(Table& table, Protocol protocol, const char* name);

    void add(const char* text, std::size_t size);
    // The last line, when the text does not end with a line end.
    void finish();

private:
    void line(const char* begin, const char* end);

    Table& m_table;
    const Protocol m_protocol;
    const char* const m_name;
    std::string m_partial;
    bool m_header = true;
    std::size_t m_badLines = 0;
    std::string m_firstBadLine;
};

// The inode of a descriptor link "socket:[12345]"; 0 for any other link.
uint64_t socketInode(const char* link, std::size_t size);

} // namespace Hv::Network::ProcNetTcp

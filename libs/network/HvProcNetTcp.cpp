#include "HvProcNetTcp.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace Hv::Network::ProcNetTcp {

namespace {

// A cursor over one line; every reader returns false on malformed input and never reads past end.
struct Cursor {
    const char* p;
    const char* end;

    void skipBlanks()
    {
        while (p != end && (*p == ' ' || *p == '\t'))
            ++p;
    }

    bool hex(uint64_t& value, int maxDigits)
    {
        value = 0;
        int digits = 0;
        for (; p != end && digits < maxDigits; ++p, ++digits) {
            const char c = *p;
            unsigned digit;
            if (c >= '0' && c <= '9')
                digit = static_cast<unsigned>(c - '0');
            else if (c >= 'A' && c <= 'F')
                digit = static_cast<unsigned>(c - 'A' + 10);
            else if (c >= 'a' && c <= 'f')
                digit = static_cast<unsigned>(c - 'a' + 10);
            else
                break;
            value = value << 4 | digit;
        }
        return digits > 0;
    }

    bool decimal(uint64_t& value)
    {
        value = 0;
        const char* const start = p;
        for (; p != end && *p >= '0' && *p <= '9' && p - start < 20; ++p)
            value = value * 10 + static_cast<unsigned>(*p - '0');
        return p != start;
    }

    bool literal(char c)
    {
        if (p == end || *p != c)
            return false;
        ++p;
        return true;
    }

    bool skipField()
    {
        skipBlanks();
        const char* const start = p;
        while (p != end && *p != ' ' && *p != '\t')
            ++p;
        return p != start;
    }

    // "0100007F:1F90": the address word as the host stores the network-order bytes, then the
    // port in host order.
    bool endpoint(uint32_t& address, uint16_t& port)
    {
        uint64_t word = 0;
        uint64_t number = 0;
        skipBlanks();
        if (!hex(word, 8) || !literal(':') || !hex(number, 4))
            return false;
        address = ntohl(static_cast<uint32_t>(word));
        port = static_cast<uint16_t>(number);
        return true;
    }
};

bool parseLine(const char* begin, const char* end, uint64_t& inode, Row& row)
{
    Cursor cursor{begin, end};
    uint64_t number = 0;
    cursor.skipBlanks();
    if (!cursor.decimal(number) || !cursor.literal(':'))
        return false;
    if (!cursor.endpoint(row.localAddress, row.localPort))
        return false;
    if (!cursor.endpoint(row.remoteAddress, row.remotePort))
        return false;
    cursor.skipBlanks();
    if (!cursor.hex(number, 2))
        return false;
    row.state = bsdState(static_cast<uint32_t>(number));
    // tx_queue:rx_queue, tr:tm->when, retrnsmt, uid, timeout
    for (int field = 0; field < 5; ++field)
        if (!cursor.skipField())
            return false;
    cursor.skipBlanks();
    return cursor.decimal(inode);
}

} // namespace

uint32_t bsdState(uint32_t linuxState)
{
    // Index: the Linux number from include/net/tcp_states.h.
    static constexpr uint32_t bsd[] = {
        UNKNOWN_STATE,
        4,  // TCP_ESTABLISHED
        2,  // TCP_SYN_SENT
        3,  // TCP_SYN_RECV
        6,  // TCP_FIN_WAIT1
        9,  // TCP_FIN_WAIT2
        10, // TCP_TIME_WAIT
        0,  // TCP_CLOSE
        5,  // TCP_CLOSE_WAIT
        8,  // TCP_LAST_ACK
        1,  // TCP_LISTEN
        7,  // TCP_CLOSING
    };
    return linuxState < sizeof(bsd) / sizeof(bsd[0]) ? bsd[linuxState] : UNKNOWN_STATE;
}

void Table::add(uint64_t inode, const Row& row)
{
    m_entries.emplace_back(inode, row);
}

void Table::sort()
{
    auto byInode = [](const Entry& a, const Entry& b) { return a.first < b.first; };
    std::stable_sort(m_entries.begin(), m_entries.end(), byInode);
    auto sameInode = [](const Entry& a, const Entry& b) { return a.first == b.first; };
    m_entries.erase(std::unique(m_entries.begin(), m_entries.end(), sameInode), m_entries.end());
}

const Row* Table::find(uint64_t inode) const
{
    const auto entry = std::lower_bound(m_entries.begin(), m_entries.end(), inode,
                                        [](const Entry& a, uint64_t b) { return a.first < b; });
    return entry != m_entries.end() && entry->first == inode ? &entry->second : nullptr;
}

Parser::Parser(Table& table)
    : m_table(table)
{
}

void Parser::add(const char* text, std::size_t size)
{
    const char* p = text;
    const char* const end = text + size;
    while (p != end) {
        const char* const lineEnd = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
        if (lineEnd == nullptr) {
            m_partial.append(p, end);
            return;
        }
        if (m_partial.empty()) {
            line(p, lineEnd);
        } else {
            m_partial.append(p, lineEnd);
            line(m_partial.data(), m_partial.data() + m_partial.size());
            m_partial.clear();
        }
        p = lineEnd + 1;
    }
}

void Parser::finish()
{
    if (!m_partial.empty())
        line(m_partial.data(), m_partial.data() + m_partial.size());
    m_partial.clear();
    m_table.sort();
}

void Parser::line(const char* begin, const char* end)
{
    if (m_header) {
        m_header = false;
        return;
    }
    uint64_t inode = 0;
    Row row{};
    if (parseLine(begin, end, inode, row) && inode != 0)
        m_table.add(inode, row);
}

void parse(const char* text, std::size_t size, Table& table)
{
    Parser parser(table);
    parser.add(text, size);
    parser.finish();
}

uint64_t socketInode(const char* link, std::size_t size)
{
    static constexpr char prefix[] = "socket:[";
    constexpr std::size_t prefixSize = sizeof(prefix) - 1;
    if (size < prefixSize + 2 || std::memcmp(link, prefix, prefixSize) != 0 || link[size - 1] != ']')
        return 0;
    uint64_t inode = 0;
    for (std::size_t i = prefixSize; i + 1 < size; ++i) {
        const char c = link[i];
        if (c < '0' || c > '9' || i - prefixSize >= 20)
            return 0;
        inode = inode * 10 + static_cast<unsigned>(c - '0');
    }
    return inode;
}

} // namespace Hv::Network::ProcNetTcp

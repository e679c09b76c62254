#include "HvProcNetTcp.h"

#include "HvTrace.h"

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

    // "0100007F:1F90" or the 32 digits of an IPv6 address: the address words as the host
    // stores the network-order bytes, then the port in host order.
    bool endpoint(Address& address, uint16_t& port)
    {
        skipBlanks();
        const char* const colon = static_cast<const char*>(std::memchr(p, ':', static_cast<std::size_t>(end - p)));
        const long digits = colon == nullptr ? 0 : colon - p;
        if (digits != 8 && digits != 32)
            return false;
        address = ipv4Address(0);
        for (long offset = digits == 8 ? 12 : 0; offset < 16; offset += 4) {
            uint64_t word = 0;
            const char* const start = p;
            if (!hex(word, 8) || p - start != 8)
                return false;
            const uint32_t stored = static_cast<uint32_t>(word);
            std::memcpy(address.data() + offset, &stored, sizeof(stored));
        }
        uint64_t number = 0;
        if (!literal(':') || !hex(number, 4))
            return false;
        port = static_cast<uint16_t>(number);
        return true;
    }
};

bool parseLine(const char* begin, const char* end, Row& row)
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
    row.state = row.protocol == Protocol::Tcp ? bsdState(static_cast<uint32_t>(number)) : UNKNOWN_STATE;
    // tx_queue:rx_queue, tr:tm->when, retrnsmt, uid, timeout
    for (int field = 0; field < 5; ++field)
        if (!cursor.skipField())
            return false;
    cursor.skipBlanks();
    return cursor.decimal(row.inode);
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

TcpConnectionInfo record(uint32_t pid, const Row& row)
{
    return TcpConnectionInfo(row.protocol, pid, row.state, row.localAddress, row.localPort, row.remoteAddress,
                             row.remotePort);
}

void Table::add(const Row& row)
{
    m_rows.push_back(row);
}

void Table::index()
{
    m_byInode.clear();
    for (std::size_t position = 0; position < m_rows.size(); ++position) {
        if (m_rows[position].inode != 0)
            m_byInode.emplace_back(m_rows[position].inode, position);
    }
    // The kernel's walk can meet a socket in two hash chains: the first row of an inode stays.
    std::sort(m_byInode.begin(), m_byInode.end());
    auto sameInode = [](const auto& a, const auto& b) { return a.first == b.first; };
    const auto unique = std::unique(m_byInode.begin(), m_byInode.end(), sameInode);
    if (unique == m_byInode.end())
        return;
    std::vector<bool> kept(m_rows.size(), false);
    for (std::size_t position = 0; position < m_rows.size(); ++position)
        kept[position] = m_rows[position].inode == 0;
    for (auto entry = m_byInode.begin(); entry != unique; ++entry)
        kept[entry->second] = true;
    std::size_t next = 0;
    for (std::size_t position = 0; position < m_rows.size(); ++position) {
        if (kept[position])
            m_rows[next++] = m_rows[position];
    }
    m_rows.resize(next);
    index();
}

std::size_t Table::find(uint64_t inode) const
{
    const auto entry = std::lower_bound(m_byInode.begin(), m_byInode.end(), inode,
                                        [](const auto& a, uint64_t b) { return a.first < b; });
    return entry != m_byInode.end() && entry->first == inode ? entry->second : NOT_FOUND;
}

Parser::Parser(Table& table, Protocol protocol, const char* name)
    : m_table(table)
    , m_protocol(protocol)
    , m_name(name)
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
    if (m_badLines > 0) {
        HV_LOG_WARN(LOG4CPLUS_TEXT("Skipped ") << m_badLines << LOG4CPLUS_TEXT(" unreadable line(s) of ")
                    << m_name << LOG4CPLUS_TEXT(", the first: '") << m_firstBadLine.c_str() << LOG4CPLUS_TEXT("'"));
    }
    m_badLines = 0;
}

void Parser::line(const char* begin, const char* end)
{
    if (m_header) {
        m_header = false;
        return;
    }
    Row row{};
    row.protocol = m_protocol;
    if (parseLine(begin, end, row)) {
        m_table.add(row);
    } else if (m_badLines++ == 0) {
        // Cut, like every dump in the log.
        constexpr std::ptrdiff_t SHOWN = 256;
        m_firstBadLine.assign(begin, std::min(end - begin, SHOWN));
    }
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

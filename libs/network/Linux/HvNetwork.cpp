// The socket table walk on Linux: /proc/net/{tcp,tcp6,udp,udp6} give the sockets by inode, and
// each process's /proc/PID/fd links ("socket:[inode]") tell which process holds them.

#include "HvNetwork.h"
#include "HvProcNetTcp.h"

#include "HvScopedDescriptor.h"
#include "HvTrace.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace Hv::Network {

namespace {

// The kernel's four tables, each in one pass; a table that cannot be read (no IPv6, say) adds
// nothing.
ProcNetTcp::Table readTables()
{
    static constexpr std::pair<const char*, Protocol> TABLES[] = {
        {"/proc/net/tcp", Protocol::Tcp},
        {"/proc/net/tcp6", Protocol::Tcp},
        {"/proc/net/udp", Protocol::Udp},
        {"/proc/net/udp6", Protocol::Udp},
    };
    ProcNetTcp::Table table;
    char text[1 << 16];
    for (const auto& [path, protocol] : TABLES) {
        const ScopedDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
        if (file.fd < 0)
            continue;
        ProcNetTcp::Parser parser(table, protocol, path);
        for (;;) {
            const ssize_t got = ::read(file.fd, text, sizeof(text));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            parser.add(text, static_cast<std::size_t>(got));
        }
        parser.finish();
    }
    table.index();
    return table;
}

// Positive decimal name of a /proc entry, or 0.
uint32_t decimalName(const char* name)
{
    uint64_t value = 0;
    for (; *name != 0; ++name) {
        if (*name < '0' || *name > '9' || value > 0xFFFFFFFFu / 10)
            return 0;
        value = value * 10 + static_cast<unsigned>(*name - '0');
    }
    return value <= 0xFFFFFFFFu ? static_cast<uint32_t>(value) : 0;
}

// Numeric entries of an open directory, ascending (none when it cannot be read). getdents64 rather than fdopendir/readdir:
// those cost three more system calls per directory, and the walk opens one per process.
void readNumericEntries(int directoryFd, std::vector<uint32_t>& numbers)
{
    numbers.clear();
    alignas(dirent64) char entries[32768];
    ssize_t got;
    while ((got = ::getdents64(directoryFd, entries, sizeof(entries))) > 0) {
        for (ssize_t offset = 0; offset < got;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(entries + offset);
            const uint32_t number = decimalName(entry->d_name);
            if (number != 0 || (entry->d_name[0] == '0' && entry->d_name[1] == 0))
                numbers.push_back(number);
            offset += entry->d_reclen;
        }
    }
    std::sort(numbers.begin(), numbers.end());
}

// The terminated decimal text of value, written backwards from the end of a buffer of at least
// 11 characters; returns its first character. (snprintf cost more than the walk's own work.)
const char* decimalText(uint32_t value, char* end)
{
    *--end = 0;
    do {
        *--end = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    return end;
}

// The records of one process, in ascending descriptor order; marks the rows it holds.
bool readProcessConnections(int procFd, uint32_t pid, const ProcNetTcp::Table& table, std::vector<bool>& held,
                            std::vector<uint32_t>& descriptors, std::vector<TcpConnectionInfo>& records)
{
    records.clear();
    char path[32];
    std::snprintf(path, sizeof(path), "%u/fd", pid);
    const ScopedDescriptor linkDirectory(::openat(procFd, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (linkDirectory.fd < 0)
        return false;
    readNumericEntries(linkDirectory.fd, descriptors);
    char name[16];
    char link[64];
    for (const uint32_t descriptor : descriptors) {
        const ssize_t size =
            ::readlinkat(linkDirectory.fd, decimalText(descriptor, name + sizeof(name)), link, sizeof(link));
        if (size <= 0)
            continue; // closed meanwhile
        const uint64_t inode = ProcNetTcp::socketInode(link, static_cast<std::size_t>(size));
        if (inode == 0)
            continue;
        const std::size_t row = table.find(inode);
        if (row == ProcNetTcp::Table::NOT_FOUND)
            continue; // not a TCP or UDP socket
        held[row] = true;
        records.push_back(ProcNetTcp::record(pid, table.rows()[row]));
    }
    return true;
}

} // namespace

boost::optional<TcpConnectionInfo> searchInTcpTable(const TcpPredicate& predicate)
{
    HV_TRACE_FREE();

    const ProcNetTcp::Table table = readTables();
    std::vector<bool> held(table.rows().size(), false);

    const ScopedDescriptor proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (proc.fd < 0)
        return boost::none;
    std::vector<uint32_t> pids;
    readNumericEntries(proc.fd, pids);

    std::vector<uint32_t> descriptors;
    std::vector<TcpConnectionInfo> records;
    for (const uint32_t pid : pids) {
        if (!readProcessConnections(proc.fd, pid, table, held, descriptors, records)) {
            HV_LOG_DEBUG(LOG4CPLUS_TEXT("Unable to read descriptors of pid: ") << pid);
            continue;
        }
        for (const TcpConnectionInfo& record : records) {
            if (predicate(record))
                return record;
        }
    }
    // What no readable process holds: another user's sockets, and the kernel's own rows.
    for (std::size_t row = 0; row < held.size(); ++row) {
        if (held[row])
            continue;
        const TcpConnectionInfo unowned = ProcNetTcp::record(0, table.rows()[row]);
        if (predicate(unowned))
            return unowned;
    }
    return boost::none;
}

} // namespace Hv::Network

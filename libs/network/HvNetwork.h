#pragma once

#include <log4cplus/streams.h>
#include <log4cplus/tstring.h>

#include <boost/optional.hpp>

#include <array>
#include <cstdint>
#include <functional>

namespace Hv::Network {

enum class Protocol : uint8_t { Tcp, Udp };

// An address in network byte order. IPv4 addresses are held as IPv4-mapped IPv6 addresses
// (::ffff:a.b.c.d), the form in which an IPv6 socket meets an IPv4 peer; both are written as
// the IPv4 address they are.
using Address = std::array<uint8_t, 16>;

// The address of an IPv4 address in host byte order.
Address ipv4Address(uint32_t hostOrder);

// BSD number of an established TCP connection.
constexpr uint32_t TCP_STATE_ESTABLISHED = 4;

// One TCP or UDP socket end, IPv4 or IPv6, and the process that holds it (0: held by no process
// that this user may inspect).
struct TcpConnectionInfo {
    TcpConnectionInfo(Protocol protocol, uint32_t pid, uint32_t state, const Address& localAddress,
                      uint16_t localPort, const Address& remoteAddress, uint16_t remotePort);

    // Text of the BSD state number ("ESTAB", "LISTEN", ...), "UNKNOWN" for any other number;
    // empty for UDP, which has no states.
    const log4cplus::tstring& state() const;

    Protocol m_protocol;
    uint32_t m_pid;
    uint32_t m_state;       // BSD numbering: 1 LISTEN, 4 ESTABLISHED, ...; meaningless for UDP
    bool m_established;     // TCP in TCP_STATE_ESTABLISHED
    Address m_localAddress;
    uint16_t m_localPort;   // host byte order
    Address m_remoteAddress;
    uint16_t m_remotePort;
};

// "    TCP 127.0.0.1:5060 --> 10.0.0.2:443 ESTAB, PID 42", "    UDP [::1]:5060 --> [::]:0, PID 42",
// without a line end.
log4cplus::tostream& operator<<(log4cplus::tostream& os, const TcpConnectionInfo& info);

using TcpPredicate = std::function<bool(const TcpConnectionInfo&)>;

// Walks the TCP and UDP sockets of the machine, process by process, and returns the first one
// the predicate accepts. Visits everything when the predicate never accepts.
boost::optional<TcpConnectionInfo> searchInTcpTable(const TcpPredicate& predicate);

// Pid of the first process holding a TCP connection with these ports (addresses and families
// ignored), or 0.
uint32_t findProcessByTcpPorts(uint16_t localPort, uint16_t remotePort);

} // namespace Hv::Network

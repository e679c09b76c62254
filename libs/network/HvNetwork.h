#pragma once

#include <log4cplus/streams.h>
#include <log4cplus/tstring.h>

#include <boost/optional.hpp>

#include <cstdint>
#include <functional>

namespace Hv::Network {

// One IPv4 TCP connection end and the process that holds it.
struct TcpConnectionInfo {
    TcpConnectionInfo(uint32_t pid, uint32_t state, bool established, uint32_t localAddress,
                      uint16_t localPort, uint32_t remoteAddress, uint16_t remotePort);

    // Text of the BSD state number ("ESTAB", "LISTEN", ...), "UNKNOWN" for any other number.
    const log4cplus::tstring& state() const;

    uint32_t m_pid;
    uint32_t m_state;        // BSD numbering: 1 LISTEN, 4 ESTABLISHED, ...
    bool m_established;      // m_state == 4
    uint32_t m_localAddress; // host byte order
    uint16_t m_localPort;
    uint32_t m_remoteAddress;
    uint16_t m_remotePort;
};

// "    TCP 127.0.0.1:5060 --> 10.0.0.2:443 ESTAB, PID 42", without a line end.
log4cplus::tostream& operator<<(log4cplus::tostream& os, const TcpConnectionInfo& info);

using TcpPredicate = std::function<bool(const TcpConnectionInfo&)>;

// Walks the IPv4 TCP connections of every readable process, process by process, and returns
// the first one the predicate accepts. Visits everything when the predicate never accepts.
boost::optional<TcpConnectionInfo> searchInTcpTable(const TcpPredicate& predicate);

// Pid of the first process holding a connection with these ports (addresses ignored), or 0.
uint32_t findProcessByTcpPorts(uint16_t localPort, uint16_t remotePort);

} // namespace Hv::Network

#include "HvNetwork.h"

#include "HvTrace.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>
#include <map>

namespace Hv::Network {

namespace {

// Decimal digits of value, written backwards from end; returns the first digit.
log4cplus::tchar* writeDecimal(log4cplus::tchar* end, uint32_t value)
{
    do {
        *--end = static_cast<log4cplus::tchar>(LOG4CPLUS_TEXT('0') + value % 10);
        value /= 10;
    } while (value != 0);
    return end;
}

log4cplus::tchar* appendDecimal(log4cplus::tchar* out, uint32_t value)
{
    log4cplus::tchar digits[10];
    log4cplus::tchar* const end = digits + 10;
    for (const log4cplus::tchar* p = writeDecimal(end, value); p != end; ++p)
        *out++ = *p;
    return out;
}

// Any text of plain characters, widened where log4cplus is wide.
template <typename Char>
log4cplus::tchar* appendText(log4cplus::tchar* out, const Char* text)
{
    while (*text != 0)
        *out++ = static_cast<log4cplus::tchar>(*text++);
    return out;
}

bool isIpv4(const Address& address)
{
    static constexpr uint8_t MAPPED_PREFIX[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    return std::memcmp(address.data(), MAPPED_PREFIX, sizeof(MAPPED_PREFIX)) == 0;
}

// "a.b.c.d:port" or "[v6]:port".
log4cplus::tchar* appendEndpoint(log4cplus::tchar* out, const Address& address, uint16_t port)
{
    if (isIpv4(address)) {
        for (int i = 12; i < 16; ++i) {
            out = appendDecimal(out, address[i]);
            *out++ = i < 15 ? LOG4CPLUS_TEXT('.') : LOG4CPLUS_TEXT(':');
        }
    } else {
        char text[INET6_ADDRSTRLEN] = "";
        inet_ntop(AF_INET6, address.data(), text, sizeof(text));
        *out++ = LOG4CPLUS_TEXT('[');
        out = appendText(out, text);
        *out++ = LOG4CPLUS_TEXT(']');
        *out++ = LOG4CPLUS_TEXT(':');
    }
    return appendDecimal(out, port);
}

} // namespace

Address ipv4Address(uint32_t hostOrder)
{
    return {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, static_cast<uint8_t>(hostOrder >> 24),
            static_cast<uint8_t>(hostOrder >> 16), static_cast<uint8_t>(hostOrder >> 8), static_cast<uint8_t>(hostOrder)};
}

TcpConnectionInfo::TcpConnectionInfo(Protocol protocol, uint32_t pid, uint32_t state, const Address& localAddress,
                                     uint16_t localPort, const Address& remoteAddress, uint16_t remotePort)
    : m_protocol(protocol)
    , m_pid(pid)
    , m_state(state)
    , m_established(protocol == Protocol::Tcp && state == TCP_STATE_ESTABLISHED)
    , m_localAddress(localAddress)
    , m_localPort(localPort)
    , m_remoteAddress(remoteAddress)
    , m_remotePort(remotePort)
{
}

const log4cplus::tstring& TcpConnectionInfo::state() const
{
    static const std::map<uint32_t, log4cplus::tstring> labels = {
        {0, LOG4CPLUS_TEXT("CLOSED")},     {1, LOG4CPLUS_TEXT("LISTEN")},
        {2, LOG4CPLUS_TEXT("SYN_SENT")},   {3, LOG4CPLUS_TEXT("SYN_RCVD")},
        {4, LOG4CPLUS_TEXT("ESTAB")},      {5, LOG4CPLUS_TEXT("CLOSE_WAIT")},
        {6, LOG4CPLUS_TEXT("FIN_WAIT1")},  {7, LOG4CPLUS_TEXT("CLOSING")},
        {8, LOG4CPLUS_TEXT("LAST_ACK")},   {9, LOG4CPLUS_TEXT("FIN_WAIT2")},
        {10, LOG4CPLUS_TEXT("TIME_WAIT")},
    };
    static const log4cplus::tstring unknown = LOG4CPLUS_TEXT("UNKNOWN");
    static const log4cplus::tstring none;

    if (m_protocol == Protocol::Udp)
        return none;

    const auto label = labels.find(m_state);
    return label == labels.end() ? unknown : label->second;
}

log4cplus::tostream& operator<<(log4cplus::tostream& os, const TcpConnectionInfo& info)
{
    // The report writes one line per socket of the machine: format by hand, in one piece, rather
    // than through the stream's locale-aware number output.
    log4cplus::tchar line[192];
    log4cplus::tchar* out = appendText(line, info.m_protocol == Protocol::Udp ? "    UDP " : "    TCP ");
    out = appendEndpoint(out, info.m_localAddress, info.m_localPort);
    out = appendText(out, " --> ");
    out = appendEndpoint(out, info.m_remoteAddress, info.m_remotePort);
    if (info.m_protocol == Protocol::Tcp) {
        *out++ = LOG4CPLUS_TEXT(' ');
        out = appendText(out, info.state().c_str());
    }
    out = appendText(out, ", PID ");
    out = appendDecimal(out, info.m_pid);
    os.write(line, out - line);
    return os;
}

uint32_t findProcessByTcpPorts(uint16_t localPort, uint16_t remotePort)
{
    HV_TRACE_FREE(localPort, remotePort);

    const boost::optional<TcpConnectionInfo> found =
        searchInTcpTable([localPort, remotePort](const TcpConnectionInfo& info) {
            return info.m_protocol == Protocol::Tcp && info.m_localPort == localPort
                && info.m_remotePort == remotePort;
        });
    return found ? found->m_pid : 0;
}

} // namespace Hv::Network

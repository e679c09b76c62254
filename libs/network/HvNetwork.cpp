#include "HvNetwork.h"

#include "HvTrace.h"

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

log4cplus::tchar* appendText(log4cplus::tchar* out, const log4cplus::tchar* text)
{
    while (*text != 0)
        *out++ = *text++;
    return out;
}

log4cplus::tchar* appendEndpoint(log4cplus::tchar* out, uint32_t address, uint16_t port)
{
    out = appendDecimal(out, (address >> 24) & 0xFF);
    *out++ = LOG4CPLUS_TEXT('.');
    out = appendDecimal(out, (address >> 16) & 0xFF);
    *out++ = LOG4CPLUS_TEXT('.');
    out = appendDecimal(out, (address >> 8) & 0xFF);
    *out++ = LOG4CPLUS_TEXT('.');
    out = appendDecimal(out, address & 0xFF);
    *out++ = LOG4CPLUS_TEXT(':');
    return appendDecimal(out, port);
}

} // namespace

TcpConnectionInfo::TcpConnectionInfo(uint32_t pid, uint32_t state, bool established,
                                     uint32_t localAddress, uint16_t localPort,
                                     uint32_t remoteAddress, uint16_t remotePort)
    : m_pid(pid)
    , m_state(state)
    , m_established(established)
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

    const auto label = labels.find(m_state);
    return label == labels.end() ? unknown : label->second;
}

log4cplus::tostream& operator<<(log4cplus::tostream& os, const TcpConnectionInfo& info)
{
    // The report writes one line per connection of the machine: format by hand rather than
    // through the stream's locale-aware number output.
    log4cplus::tchar line[96];
    log4cplus::tchar* out = appendText(line, LOG4CPLUS_TEXT("    TCP "));
    out = appendEndpoint(out, info.m_localAddress, info.m_localPort);
    out = appendText(out, LOG4CPLUS_TEXT(" --> "));
    out = appendEndpoint(out, info.m_remoteAddress, info.m_remotePort);
    *out++ = LOG4CPLUS_TEXT(' ');
    os.write(line, out - line);
    os << info.state();
    out = appendText(line, LOG4CPLUS_TEXT(", PID "));
    out = appendDecimal(out, info.m_pid);
    os.write(line, out - line);
    return os;
}

uint32_t findProcessByTcpPorts(uint16_t localPort, uint16_t remotePort)
{
    HV_TRACE_FREE(localPort, remotePort);

    const boost::optional<TcpConnectionInfo> found =
        searchInTcpTable([localPort, remotePort](const TcpConnectionInfo& info) {
            return info.m_localPort == localPort && info.m_remotePort == remotePort;
        });
    return found ? found->m_pid : 0;
}

} // namespace Hv::Network

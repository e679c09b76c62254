#include "HvServiceStatus.h"

#include "HvTrace.h"

#include <memory>

namespace Hv {

namespace {
void writeNarrow(log4cplus::tostream& stream, const std::string& text)
{
    Log::writeText(stream, text);
}
} // namespace

const std::string ServiceStatus::ConnectionState::UNKNOWN = "ConnectionState:Unknown";
const std::string ServiceStatus::ConnectionState::WAITING = "ConnectionState:Waiting";
const std::string ServiceStatus::ConnectionState::CONNECTED = "ConnectionState:Connected";
const std::array<std::reference_wrapper<const std::string>, 3> ServiceStatus::ConnectionState::TEXTS{
    std::cref(UNKNOWN), std::cref(WAITING), std::cref(CONNECTED)};

ServiceStatus::ConnectionState::ConnectionState(const std::string& text)
    : m_value(Unknown)
{
    for (Value value : {Waiting, Connected}) {
        if (text == TEXTS[value].get()) {
            m_value = value;
            return;
        }
    }
}

const std::string& ServiceStatus::ConnectionState::toString() const
{
    return TEXTS[m_value];
}

const std::string ServiceStatus::ErrorCode::UNKNOWN = "ErrorCode:Unknown";
const std::string ServiceStatus::ErrorCode::SUCCESS = "ErrorCode:Success";
const std::string ServiceStatus::ErrorCode::SOCKET = "ErrorCode:Socket";
const std::string ServiceStatus::ErrorCode::VALIDATION = "ErrorCode:Validation";
const std::string ServiceStatus::ErrorCode::NO_VDI_SESSION = "ErrorCode:NoVDISession";
const std::array<std::reference_wrapper<const std::string>, 5> ServiceStatus::ErrorCode::TEXTS{
    std::cref(UNKNOWN), std::cref(SUCCESS), std::cref(SOCKET), std::cref(VALIDATION), std::cref(NO_VDI_SESSION)};

ServiceStatus::ErrorCode::ErrorCode(const std::string& text)
    : m_value(Unknown)
{
    for (Value value : {Success, Socket, Validation, NoVDISession}) {
        if (text == TEXTS[value].get()) {
            m_value = value;
            return;
        }
    }
}

const std::string& ServiceStatus::ErrorCode::toString() const
{
    return TEXTS[m_value];
}

const char ServiceStatus::SEPARATOR = ',';

ServiceStatus::ServiceStatus()
    : m_connectionState(ConnectionState::Unknown)
    , m_error(ErrorCode::Unknown)
{
    HV_TRACE(m_connectionState, m_error);
}

ServiceStatus::ServiceStatus(const ConnectionState& connectionState, const ErrorCode& error)
    : m_connectionState(connectionState)
    , m_error(error)
{
    HV_TRACE(connectionState, error);
}

bool ServiceStatus::isValid() const
{
    return m_connectionState != ConnectionState::Unknown && m_error != ErrorCode::Unknown;
}

std::string ServiceStatus::toString() const
{
    HV_TRACE();
    std::string text = m_connectionState.toString();
    text += SEPARATOR;
    text += m_error.toString();
    return text;
}

ServiceStatus ServiceStatus::fromString(const std::string& text)
{
    const auto separator = text.find(SEPARATOR);
    if (separator == std::string::npos)
        return ServiceStatus();
    return ServiceStatus(ConnectionState(text.substr(0, separator)), ErrorCode(text.substr(separator + 1)));
}

log4cplus::tostream& operator<<(log4cplus::tostream& stream, const ServiceStatus::ConnectionState& state)
{
    writeNarrow(stream, state.toString());
    return stream;
}

log4cplus::tostream& operator<<(log4cplus::tostream& stream, ServiceStatus::ErrorCode error)
{
    writeNarrow(stream, error.toString());
    return stream;
}

namespace Signal::ServiceStatus {

const ChannelMessage::Channel NAME{"ServiceStatus"};

ChannelMessage::Shared create(const Hv::ServiceStatus& status)
{
    HV_TRACE_FREE();
    return std::make_shared<ChannelMessage>(NAME, status.toString());
}

} // namespace Signal::ServiceStatus

} // namespace Hv

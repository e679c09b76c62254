#pragma once

// The service's connection state and last error, and their text form
// "ConnectionState:<state>,ErrorCode:<error>", carried on the channel "ServiceStatus".

#include "HvChannelMessage.h"

#include <log4cplus/streams.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace Hv {

class ServiceStatus {
public:
    class ConnectionState {
    public:
        enum Value : std::int32_t { Unknown = 0, Waiting = 1, Connected = 2 };

        static const std::string UNKNOWN;
        static const std::string WAITING;
        static const std::string CONNECTED;

        ConnectionState(Value value) : m_value(value) {}
        // Exact text form; anything else, including UNKNOWN itself, gives Unknown.
        explicit ConnectionState(const std::string& text);

        operator Value() const { return m_value; }
        const std::string& toString() const;

    private:
        static const std::array<std::reference_wrapper<const std::string>, 3> TEXTS;
        Value m_value;
    };

    class ErrorCode {
    public:
        enum Value : std::int32_t { Unknown = 0, Success = 1, Socket = 2, Validation = 3, NoVDISession = 4 };

        static const std::string UNKNOWN;
        static const std::string SUCCESS;
        static const std::string SOCKET;
        static const std::string VALIDATION;
        static const std::string NO_VDI_SESSION;

        ErrorCode(Value value) : m_value(value) {}
        // Exact text form; anything else, including UNKNOWN itself, gives Unknown.
        explicit ErrorCode(const std::string& text);

        operator Value() const { return m_value; }
        const std::string& toString() const;

    private:
        static const std::array<std::reference_wrapper<const std::string>, 5> TEXTS;
        Value m_value;
    };

    static const char SEPARATOR;

    ServiceStatus();
    ServiceStatus(const ConnectionState& connectionState, const ErrorCode& error);

    const ConnectionState& connectionState() const { return m_connectionState; }
    ErrorCode error() const { return m_error; }
    // Neither part is Unknown.
    bool isValid() const;
    std::string toString() const;
    // Never fails: unrecognised parts become Unknown, a text without "," gives Unknown, Unknown.
    static ServiceStatus fromString(const std::string& text);

private:
    ConnectionState m_connectionState;
    ErrorCode m_error;
};

log4cplus::tostream& operator<<(log4cplus::tostream& stream, const ServiceStatus::ConnectionState& state);
log4cplus::tostream& operator<<(log4cplus::tostream& stream, ServiceStatus::ErrorCode error);

namespace Signal::ServiceStatus {

// The channel of every status message: the one marker "ServiceStatus".
extern const ChannelMessage::Channel NAME;

// A status message for the channel NAME whose body is the status's text form.
ChannelMessage::Shared create(const Hv::ServiceStatus& status);

} // namespace Signal::ServiceStatus

} // namespace Hv

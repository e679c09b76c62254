#include "HvServicePeerOptions.h"

#include "HvChannelMessageUtil.h"
#include "HvServiceStatus.h"

#include <charconv>
#include <limits>

namespace Hv::ServicePeer {

namespace {

ParseResult failure(const std::string& error)
{
    return {std::nullopt, error};
}

std::optional<long> parseMilliseconds(const std::string& text)
{
    long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end || value < 0)
        return std::nullopt;
    return value;
}

// "Connected,Success" names both parts without their prefixes; "Unknown" is allowed on purpose.
std::optional<std::string> statusBody(const std::string& text)
{
    const auto comma = text.find(',');
    if (comma == std::string::npos)
        return std::nullopt;
    const std::string state = "ConnectionState:" + text.substr(0, comma);
    const std::string error = "ErrorCode:" + text.substr(comma + 1);
    const ServiceStatus::ConnectionState parsedState(state);
    const ServiceStatus::ErrorCode parsedError(error);
    if ((parsedState == ServiceStatus::ConnectionState::Unknown && state != ServiceStatus::ConnectionState::UNKNOWN) ||
        (parsedError == ServiceStatus::ErrorCode::Unknown && error != ServiceStatus::ErrorCode::UNKNOWN))
        return std::nullopt;
    return state + ServiceStatus::SEPARATOR + error;
}

} // namespace

ParseResult parseArguments(const std::vector<std::string>& arguments)
{
    Options options;
    std::optional<ChannelMessage::Channel> pendingChannel;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--help" || option == "-h") {
            options.help = true;
            return {options, ""};
        }
        if (i + 1 >= arguments.size())
            return failure(option.rfind("--", 0) == 0 ? option + " needs a value" : "unknown argument " + option);
        const std::string& value = arguments[++i];
        if (pendingChannel && option != "--body")
            return failure("--channel must be followed by --body");
        if (option == "--pipe") {
            if (value.empty() || value.find('/') != std::string::npos)
                return failure("invalid pipe name: " + value);
            options.pipe = value;
        } else if (option == "--status") {
            const auto body = statusBody(value);
            if (!body)
                return failure("invalid status " + value + ", expected STATE,ERROR such as Connected,Success");
            options.messages.push_back({Signal::ServiceStatus::NAME, *body});
        } else if (option == "--channel") {
            if (value.empty())
                return failure("empty channel");
            pendingChannel = Util::parseChannel(value.begin(), value.end());
        } else if (option == "--body") {
            if (!pendingChannel)
                return failure("--body must follow --channel");
            options.messages.push_back({*pendingChannel, value});
            pendingChannel.reset();
        } else if (option == "--delay-ms" || option == "--timeout-ms") {
            const auto milliseconds = parseMilliseconds(value);
            if (!milliseconds || (option == "--timeout-ms" && *milliseconds == 0))
                return failure("invalid " + option + " value: " + value);
            (option == "--delay-ms" ? options.delay : options.timeout) = std::chrono::milliseconds(*milliseconds);
        } else {
            return failure("unknown argument " + option);
        }
    }
    if (pendingChannel)
        return failure("--channel must be followed by --body");
    if (options.messages.empty())
        return failure("nothing to send: give --status or --channel with --body");
    return {options, ""};
}

std::string usage()
{
    return "usage: hv-service-peer [--pipe NAME] MESSAGE... [--delay-ms N] [--timeout-ms N]\n"
           "  --pipe NAME            local pipe to write to (default: tray)\n"
           "  --status STATE,ERROR   a service status, e.g. Connected,Success or Waiting,Socket\n"
           "  --channel A-B --body T a raw channel message\n"
           "  --delay-ms N           pause between messages (default: 0)\n"
           "  --timeout-ms N         give up when the receiver does not take a message within N ms\n"
           "                         (default: 5000)\n"
           "Messages are sent in the order given; the program exits once all are written.\n";
}

} // namespace Hv::ServicePeer

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
        if (option == "--cycle") {
            options.cycle = true;
            continue;
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
        } else if (option == "--delay-ms" || option == "--timeout-ms" || option == "--stop-after-ms") {
            const auto milliseconds = parseMilliseconds(value);
            if (!milliseconds || (option != "--delay-ms" && *milliseconds == 0))
                return failure("invalid " + option + " value: " + value);
            if (option == "--stop-after-ms")
                options.stopAfter = std::chrono::milliseconds(*milliseconds);
            else
                (option == "--delay-ms" ? options.delay : options.timeout) = std::chrono::milliseconds(*milliseconds);
        } else if (option == "--spawn") {
            if (value.empty())
                return failure("--spawn needs the program to start");
            options.spawn = value;
        } else {
            return failure("unknown argument " + option);
        }
    }
    if (pendingChannel)
        return failure("--channel must be followed by --body");
    // A spawned child may just show its start-up state until stopped.
    if (options.messages.empty() && !options.spawn)
        return failure("nothing to send: give --status or --channel with --body");
    if (options.cycle && (options.messages.empty() || options.delay.count() == 0))
        return failure("--cycle needs messages and a --delay-ms of at least 1");
    if (options.stopAfter && !options.spawn && !options.cycle)
        return failure("--stop-after-ms needs --spawn or --cycle");
    return {options, ""};
}

std::string usage()
{
    return "usage: hv-service-peer [--spawn PROGRAM] [--pipe NAME] MESSAGE... [--cycle] [--delay-ms N]\n"
           "                       [--stop-after-ms N] [--timeout-ms N]\n"
           "  --spawn PROGRAM        start PROGRAM (the tray) as a child with a pipe on its standard\n"
           "                         input, send to it, and end it by closing that pipe\n"
           "  --pipe NAME            local pipe to write to (default: tray)\n"
           "  --status STATE,ERROR   a service status, e.g. Connected,Success or Waiting,Socket\n"
           "  --channel A-B --body T a raw channel message\n"
           "  --cycle                send the messages over and over (needs --delay-ms)\n"
           "  --delay-ms N           pause between messages (default: 0)\n"
           "  --stop-after-ms N      stop N ms after the start (with --spawn or --cycle)\n"
           "  --timeout-ms N         give up when the receiver does not take a message, or a child\n"
           "                         does not end, within N ms (default: 5000)\n"
           "Messages are sent in the order given over one connection; the program exits once the\n"
           "receiver has read them all. With --spawn or --cycle it runs until --stop-after-ms or\n"
           "SIGINT/SIGTERM, and its exit status is the child's (or 1 when sending failed).\n";
}

} // namespace Hv::ServicePeer

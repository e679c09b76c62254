#include "HvServicePeerOptions.h"

#include "HvChannelMessageUtil.h"
#include "HvCommandLine.h"
#include "HvServiceStatus.h"

#include <boost/program_options.hpp>

#include <charconv>
#include <sstream>

namespace Hv::ServicePeer {

namespace po = boost::program_options;

namespace {

// A duration option in whole milliseconds, at least Minimum; anything else is refused by the
// parser with the option's name in the message.
template <long Minimum>
struct Duration {
    std::chrono::milliseconds value;
};

template <long Minimum>
void validate(boost::any& store, const std::vector<std::string>& tokens, Duration<Minimum>*, int)
{
    po::validators::check_first_occurrence(store);
    const std::string& text = po::validators::get_single_string(tokens);
    long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end || value < Minimum)
        throw po::invalid_option_value(text);
    store = Duration<Minimum>{std::chrono::milliseconds(value)};
}

using Delay = Duration<0>;
using Timeout = Duration<1>;

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

po::options_description describeOptions()
{
    po::options_description options("Options");
    options.add_options()
        ("spawn", po::value<std::string>()->value_name("PROGRAM"),
         "start PROGRAM (the tray) as a child with a pipe on its standard input, send to it, and end it "
         "by closing that pipe")
        ("pipe", po::value<std::string>()->value_name("NAME")->default_value("tray"), "local pipe to write to")
        ("status", po::value<std::vector<std::string>>()->value_name("STATE,ERROR"),
         "a service status, e.g. Connected,Success or Waiting,Socket")
        ("channel", po::value<std::vector<std::string>>()->value_name("A-B"),
         "the channel of a raw channel message; --body must follow")
        ("body", po::value<std::vector<std::string>>()->value_name("TEXT"), "the body of that message")
        ("cycle", po::bool_switch(), "send the messages over and over (needs --delay-ms)")
        ("delay-ms", po::value<Delay>()->value_name("N")->default_value(Delay{}, "0"), "pause between messages")
        ("stop-after-ms", po::value<Timeout>()->value_name("N"), "stop N ms after the start (with --spawn or --cycle)")
        ("timeout-ms", po::value<Timeout>()->value_name("N")->default_value(Timeout{std::chrono::seconds(5)}, "5000"),
         "give up when the receiver does not take a message, or a child does not end, within N ms")
        ("help,h", "print this help and exit")
        ("version", "print the version and exit");
    return options;
}

// The messages in the order given; --channel and its --body come as a pair.
std::vector<OutgoingMessage> messagesOf(const std::vector<po::option>& given)
{
    std::vector<OutgoingMessage> messages;
    std::optional<ChannelMessage::Channel> pendingChannel;
    for (const po::option& option : given) {
        const std::string& key = option.string_key;
        if (pendingChannel && key != "body")
            throw po::error("--channel must be followed by --body");
        if (key == "status") {
            const std::string& value = option.value.front();
            const auto body = statusBody(value);
            if (!body)
                throw po::error("invalid status '" + value + "', expected STATE,ERROR such as Connected,Success");
            messages.push_back({Signal::ServiceStatus::NAME, *body});
        } else if (key == "channel") {
            const std::string& value = option.value.front();
            if (value.empty())
                throw po::error("empty channel");
            pendingChannel = Util::parseChannel(value.begin(), value.end());
        } else if (key == "body") {
            if (!pendingChannel)
                throw po::error("--body must follow --channel");
            messages.push_back({*pendingChannel, option.value.front()});
            pendingChannel.reset();
        }
    }
    if (pendingChannel)
        throw po::error("--channel must be followed by --body");
    return messages;
}

} // namespace

ParseResult parseArguments(const std::vector<std::string>& arguments)
{
    Options options;
    try {
        po::variables_map values;
        const std::vector<po::option> given = CommandLine::parse(arguments, describeOptions(), values);
        options.help = values.count("help") > 0;
        options.version = values.count("version") > 0;
        if (options.help || options.version)
            return {options, ""};

        options.pipe = values["pipe"].as<std::string>();
        if (options.pipe.empty() || options.pipe.find('/') != std::string::npos)
            throw po::error("invalid pipe name '" + options.pipe + "'");
        if (values.count("spawn")) {
            options.spawn = values["spawn"].as<std::string>();
            if (options.spawn->empty())
                throw po::error("--spawn needs the program to start");
        }
        options.messages = messagesOf(given);
        options.cycle = values["cycle"].as<bool>();
        options.delay = values["delay-ms"].as<Delay>().value;
        options.timeout = values["timeout-ms"].as<Timeout>().value;
        if (values.count("stop-after-ms"))
            options.stopAfter = values["stop-after-ms"].as<Timeout>().value;
    } catch (const po::error& error) {
        return {std::nullopt, error.what()};
    }

    // A spawned child may just show its start-up state until stopped.
    if (options.messages.empty() && !options.spawn)
        return {std::nullopt, "nothing to send: give --status or --channel with --body"};
    if (options.cycle && (options.messages.empty() || options.delay.count() == 0))
        return {std::nullopt, "--cycle needs messages and a --delay-ms of at least 1"};
    if (options.stopAfter && !options.spawn && !options.cycle)
        return {std::nullopt, "--stop-after-ms needs --spawn or --cycle"};
    return {options, ""};
}

std::string usage()
{
    std::ostringstream text;
    text << "usage: hv-service-peer [--spawn PROGRAM] [--pipe NAME] MESSAGE... [--cycle]\n"
            "                       [--delay-ms N] [--stop-after-ms N] [--timeout-ms N]\n"
            "Writes channel messages to a local pipe the way the softphone service does; with\n"
            "--spawn it also plays the service's parent role for the tray. MESSAGE is\n"
            "--status STATE,ERROR or --channel A-B --body TEXT.\n\n"
         << describeOptions()
         << "\nMessages are sent in the order given over one connection; the program exits\n"
            "once the receiver has read them all. With --spawn or --cycle it runs until\n"
            "--stop-after-ms or SIGINT/SIGTERM.\n\n"
            "Exit status:\n"
            "  0  the receiver read every message (and a spawned child exited with 0)\n"
            "  1  sending failed, or the child could not be started or ended on its own\n"
            "  2  the command line was refused\n"
            "  with --spawn, otherwise the child's exit status (128 + signal if killed)\n";
    return text.str();
}

} // namespace Hv::ServicePeer

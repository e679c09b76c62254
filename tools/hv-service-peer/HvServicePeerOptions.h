#pragma once

// Command line of hv-service-peer, a stand-in for the softphone service that writes channel
// messages to a local pipe.

#include "HvChannelMessage.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Hv::ServicePeer {

struct OutgoingMessage {
    ChannelMessage::Channel channel;
    std::string body;
};

struct Options {
    std::string pipe = "tray";
    // Sent in this order.
    std::vector<OutgoingMessage> messages;
    std::chrono::milliseconds delay{0};
    // Longest wait for the receiver, for each write after it, for the receiver to finish
    // reading, and for a spawned child to end.
    std::chrono::milliseconds timeout{5000};
    // The parent role: the program started as a child with a pipe on its standard input.
    std::optional<std::string> spawn;
    // Send the messages again and again until stopped.
    bool cycle = false;
    // Stop this long after the start; otherwise a child or a cycle runs until SIGINT/SIGTERM.
    std::optional<std::chrono::milliseconds> stopAfter;
    bool help = false;
    bool version = false;
};

struct ParseResult {
    std::optional<Options> options;
    // Why the arguments were refused, one line; empty on success.
    std::string error;
};

// Arguments without the program name.
ParseResult parseArguments(const std::vector<std::string>& arguments);
// What --help prints: usage, every option, exit status.
std::string usage();

} // namespace Hv::ServicePeer

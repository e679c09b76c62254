#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace Hv {

// A text body addressed by a channel: an ordered list of markers, outermost first.
class ChannelMessage {
public:
    using Channel = std::list<std::string>;
    using Shared = std::shared_ptr<ChannelMessage>;

    // The lone "Broadcast" marker: such a message cannot be narrowed or widened.
    static const Channel BROADCAST;
    // Largest encoded message (channel text, separator and body), in bytes, a framed stream accepts.
    static const std::uint32_t MAX_LENGTH;

    ChannelMessage(const Channel& channel, std::string&& message);
    ChannelMessage(Channel&& channel, std::string&& message);

    const std::string& message() const { return m_message; }
    const Channel& channel() const { return m_channel; }

    // Appends at the back, unless the message is broadcast.
    void pushMarker(const std::string& marker);
    // Removes the last marker, unless the channel is empty or broadcast.
    void popMarker();
    bool isBroadcast() const;

private:
    Channel m_channel;
    std::string m_message;
};

} // namespace Hv

#pragma once

// A frame whose payload is an encoded channel message. An outgoing message is built from the
// channel message and gathered without copying; an incoming one is read into the inherited
// buffer and decoded with channelMessage().

#include "HvAsyncAppStreamBuffer.h"
#include "HvChannelMessage.h"

#include <list>
#include <memory>
#include <string>

namespace Hv::Async::AppStream {

class Message : public Buffer {
public:
    using Shared = std::shared_ptr<Message>;

    // For receiving: empty payload, length 0.
    Message();
    // For sending: the frame length is that of the encoding; nothing is copied.
    explicit Message(const ChannelMessage::Shared& channelMessage);
    ~Message() override;

    // 1 to ChannelMessage::MAX_LENGTH.
    bool isLengthValid() const override;
    // The length field, then the three buffers of body().
    std::list<boost::asio::const_buffer> data() const override;
    // The encoding of the channel message to send: channel text, separator, body.
    virtual std::list<boost::asio::const_buffer> body() const;

    // The payload received so far is complete.
    bool isMessageValid() const;
    // Decodes the received payload; null when incomplete, refused or malformed. Always null on a
    // message built for sending.
    ChannelMessage::Shared channelMessage() const;

private:
    ChannelMessage::Shared m_channelMessage;
    std::string m_serializedChannel;
};

} // namespace Hv::Async::AppStream

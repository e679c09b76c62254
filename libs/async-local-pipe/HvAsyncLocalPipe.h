#pragma once

// A named one-way channel for channel messages between two processes of one user, over a
// Unix-domain stream socket. The receiver serves one client at a time and listens again when
// its client goes; the sender reconnects after every failure. Both live in shared pointers:
// make them with create(), which also starts them.

#include "HvAsyncAppStream.h"
#include "HvChannelMessage.h"

#include <boost/asio/deadline_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/filesystem/path.hpp>

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace Hv::Async::LocalPipe {

using Socket = boost::asio::local::stream_protocol::socket;

// "halvophone-" + name + "-local-channel" in the platform's socket folder.
boost::filesystem::path socketPath(const std::string& name);

class Receiver : public std::enable_shared_from_this<Receiver> {
    struct Token {
        explicit Token() = default;
    };

public:
    using Shared = std::shared_ptr<Receiver>;
    using Out = AppStream::Out<Socket>;
    using Callback = std::function<void(const ChannelMessage::Shared&)>;

    // Listens at once. When listening fails (the socket folder is missing, say), the failure is
    // logged at ERROR and listening is tried again every second until it works.
    static Shared create(boost::asio::io_context& ioContext, const std::string& name);
    Receiver(Token, boost::asio::io_context& ioContext, const std::string& name);
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void onMessage(Callback callback);
    // Drops the client and the subscriber; a pending accept stays.
    void close();

    // Removes a stale socket file, listens and accepts one client; on failure, tries again later.
    void asyncWaitConnection();
    // Starts reading the client, or listens again when there is none.
    void onConnected(Out::Shared out);
    void trackAppStreamError();
    void asyncReadForever();
    void fireOnMessage(const ChannelMessage::Shared& message);
    void closeAppStream();

private:
    using Acceptor = boost::asio::local::stream_protocol::acceptor;

    // Binds and listens; throws boost::system::system_error naming the failing step.
    std::shared_ptr<Acceptor> listen(const boost::filesystem::path& path);
    // Every second: listens again after a failure, or, while listening, makes sure the socket
    // file is still the one bound (a cleaner may remove the folder under a listening receiver).
    void watchListening();
    void onAccepted(const boost::system::error_code& error, Socket& socket);
    // Only the receiver's own user may talk to it.
    bool isPeerAllowed(Socket& socket) const;

    boost::asio::io_context& m_ioContext;
    std::string m_name;
    Callback m_onMessage;
    Out::Shared m_out;
    boost::asio::steady_timer m_listenTimer;
    // The listener while no client is connected; its pending accept owns it.
    std::weak_ptr<Acceptor> m_acceptor;
    // Device and inode of the bound socket file, to notice it being removed or replaced.
    std::pair<dev_t, ino_t> m_socketFile{};
    // The reason of the last failed listen, so that a lasting failure is logged once.
    std::string m_listenError;
};

class Sender : public std::enable_shared_from_this<Sender> {
    struct Token {
        explicit Token() = default;
    };

public:
    using Shared = std::shared_ptr<Sender>;
    using In = AppStream::Duplex<Socket>;
    using Callback = std::function<void()>;

    // Connects at once; retries every second until a receiver of that name exists.
    static Shared create(boost::asio::io_context& ioContext, const std::string& name);
    Sender(Token, boost::asio::io_context& ioContext, const std::string& name);
    ~Sender();
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    // Called after every (re)connection.
    void onConnected(Callback callback);
    // Writes the message in call order while connected; drops it silently otherwise. `onWritten`
    // runs once the whole frame has been written.
    void sendMessage(const ChannelMessage::Shared& message, Callback onWritten = Callback());
    bool isConnected() const;
    // Drops the connection, stops reconnecting and forgets the subscriber.
    void close();
    // For a sender that is done: shuts the socket's sending side after the writes completed so
    // far, so that the receiver reads to the end and closes; `onClosed` runs once it has (or the
    // connection failed otherwise). No reconnection follows. Does nothing while not connected.
    void shutdownSend(Callback onClosed);

    void connect();
    In::Shared getAppStream();
    void retryConnect();
    void trackAppStreamError();
    void fireOnConnected();
    void closeAppStream();

private:
    boost::asio::io_context& m_ioContext;
    boost::asio::deadline_timer m_timer;
    std::string m_name;
    Callback m_onConnected;
    In::Shared m_in;
    // The socket inside m_in, for shutdownSend; valid while m_in is set.
    Socket::native_handle_type m_handle = -1;
};

} // namespace Hv::Async::LocalPipe

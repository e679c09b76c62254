#pragma once

// A named one-way channel for channel messages between two processes of one user, over a
// Unix-domain stream socket. The receiver serves one client at a time and keeps listening while
// it does: the newest client replaces the current one. The sender reconnects after every
// failure. Both live in shared pointers: make them with create(), which also starts them.

#include "HvAsyncAppStream.h"
#include "HvAsyncAppStreamMessage.h"
#include "HvChannelMessage.h"

#include <boost/asio/deadline_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/filesystem/path.hpp>

#include <log4cplus/loglevel.h>

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace Hv::Async::LocalPipe {

using Socket = boost::asio::local::stream_protocol::socket;

// "halvophone-" + name + "-local-channel" in the platform's socket folder. When that folder must
// not be used, `problem` (if given) says why; the path is still returned, for log lines.
boost::filesystem::path socketPath(const std::string& name, std::string* problem = nullptr);

class Receiver : public std::enable_shared_from_this<Receiver> {
    struct Token {
        explicit Token() = default;
    };

public:
    using Shared = std::shared_ptr<Receiver>;
    using Out = AppStream::Out<Socket>;
    using Callback = std::function<void(const ChannelMessage::Shared&)>;

    // Listens at once. When listening fails (the socket folder is missing or unsafe, another
    // receiver of this user and name listens), the reason is logged once and listening is tried
    // again every second until it works.
    static Shared create(boost::asio::io_context& ioContext, const std::string& name);
    Receiver(Token, boost::asio::io_context& ioContext, const std::string& name);
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void onMessage(Callback callback);
    // Drops the client and the subscriber; listening goes on.
    void close();

    // Takes the pipe's lock, removes a stale socket file and listens; on failure, tries again later.
    void asyncWaitConnection();
    // Serves the new client in place of the current one; listens anew when there is none.
    void onConnected(Out::Shared out);
    void trackAppStreamError();
    void asyncReadForever();
    void fireOnMessage(const ChannelMessage::Shared& message);
    void closeAppStream();

    // A client that stops for longer in the middle of a frame is closed.
    static constexpr std::chrono::seconds STALLED_FRAME_TIMEOUT{5};
    // A client is closed at its this many frames that are no channel messages.
    static constexpr int MAX_BAD_FRAMES = 10;

private:
    using Acceptor = boost::asio::local::stream_protocol::acceptor;
    using Clock = std::chrono::steady_clock;

    // Listens when it can; otherwise logs why, once while the reason lasts.
    void tryListening();
    // The lock beside the socket, held while listening, keeps a second receiver of this user and
    // name off the socket. False when it cannot be had now; `problem` is set when that is a fault.
    bool holdLock(const boost::filesystem::path& path, std::string& problem);
    // Binds and listens; throws boost::system::system_error naming the failing step.
    std::shared_ptr<Acceptor> listen(const boost::filesystem::path& path);
    void notListening(log4cplus::LogLevel level, const std::string& reason, const std::string& text);
    void asyncAccept();
    // Every second, without a line unless something changed: listens again after a failure, makes
    // sure the socket and lock files are still the ones in use (a cleaner may remove the folder
    // under a listening receiver), and closes a client stalled in the middle of a frame.
    void watch();
    void checkListening();
    void checkStalledFrame();
    void onAccepted(const boost::system::error_code& error, Socket& socket, std::uint64_t listener);
    // Only the receiver's own user may talk to it.
    bool isPeerAllowed(Socket& socket) const;

    boost::asio::io_context& m_ioContext;
    std::string m_name;
    Callback m_onMessage;
    Out::Shared m_out;
    boost::asio::steady_timer m_watchTimer;
    std::shared_ptr<Acceptor> m_acceptor;
    // Counts listeners, so that the accept of a listener given up is told from the current one's.
    std::uint64_t m_listener = 0;
    boost::filesystem::path m_path;
    // Device and inode of the bound socket file, to notice it being removed or replaced.
    std::pair<dev_t, ino_t> m_socketFile{};
    // The locked file's descriptor, -1 while not held, and its device and inode.
    int m_lock = -1;
    std::pair<dev_t, ino_t> m_lockFile{};
    // Why the receiver does not listen, so that a lasting reason is logged once.
    std::string m_listenError;
    // The frame being read from the client, and when its arrived length last changed.
    AppStream::Message::Shared m_frame;
    std::size_t m_frameLength = 0;
    Clock::time_point m_frameChanged;
    // Frames of the current client that were no channel messages.
    int m_badFrames = 0;
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

#include "HvAsyncLocalPipe.h"

#include "HvAsyncAppStreamMessage.h"
#include "HvAsyncLocalPipeImpl.h"
#include "HvPlatform.h"
#include "HvTrace.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Hv::Async::LocalPipe {

namespace {

using Endpoint = boost::asio::local::stream_protocol::endpoint;

} // namespace

boost::filesystem::path socketPath(const std::string& name)
{
    return Impl::socketDirectory() / ("halvophone-" + name + "-local-channel");
}

// Receiver

Receiver::Shared Receiver::create(boost::asio::io_context& ioContext, const std::string& name)
{
    auto receiver = std::make_shared<Receiver>(Token(), ioContext, name);
    receiver->asyncWaitConnection();
    return receiver;
}

Receiver::Receiver(Token, boost::asio::io_context& ioContext, const std::string& name)
    : m_ioContext(ioContext)
    , m_name(name)
    , m_listenTimer(ioContext)
{
    const std::string& channel = name;
    HV_TRACE(channel);
}

Receiver::~Receiver()
{
    close();
    // No socket file left for clients to connect to in vain; only the one this receiver bound.
    const boost::filesystem::path path = socketPath(m_name);
    struct stat current{};
    if (m_socketFile != decltype(m_socketFile){} && ::stat(path.c_str(), &current) == 0 &&
        std::make_pair(current.st_dev, current.st_ino) == m_socketFile)
        ::unlink(path.c_str());
}

void Receiver::onMessage(Callback callback)
{
    m_onMessage = std::move(callback);
}

void Receiver::close()
{
    HV_TRACE();
    closeAppStream();
    m_onMessage = nullptr;
}

void Receiver::asyncWaitConnection()
{
    HV_TRACE();
    const boost::filesystem::path path = socketPath(m_name);
    std::shared_ptr<Acceptor> acceptor;
    try {
        acceptor = listen(path);
    } catch (const boost::system::system_error& failure) {
        // Logged once while the reason lasts: the retries go on for as long as it does.
        const std::string reason = failure.what();
        if (reason != m_listenError) {
            HV_LOG_ERROR("Unable to listen on named pipe in " << m_name << " at " << path << ": " << reason
                         << "; trying again every second");
        }
        m_listenError = reason;
        watchListening();
        return;
    }
    if (!m_listenError.empty()) {
        HV_LOG_INFO("Listening on named pipe in " << m_name << " again");
        m_listenError.clear();
    }
    m_acceptor = acceptor;

    // The handler holds the acceptor: the listening socket closes once one client is accepted.
    auto socket = std::make_shared<Socket>(m_ioContext);
    acceptor->async_accept(*socket, [weakReceiver = weak_from_this(), acceptor, socket](const boost::system::error_code& error) {
        if (const Shared receiver = weakReceiver.lock())
            receiver->onAccepted(error, *socket);
    });
    watchListening();
}

std::shared_ptr<Receiver::Acceptor> Receiver::listen(const boost::filesystem::path& path)
{
    const Endpoint endpoint(path.string());
    // A socket file left by an earlier run would make bind fail.
    ::unlink(path.c_str());

    auto acceptor = std::make_shared<Acceptor>(m_ioContext);
    acceptor->open(endpoint.protocol());
    acceptor->set_option(Acceptor::reuse_address(true));
    acceptor->bind(endpoint);
    // Before listen, so that no other user can connect in between.
    if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0)
        HV_LOG_WARN("Error " << std::strerror(errno) << " on restricting named pipe in " << m_name);
    struct stat bound{};
    if (::stat(path.c_str(), &bound) == 0)
        m_socketFile = {bound.st_dev, bound.st_ino};
    acceptor->listen();
    return acceptor;
}

void Receiver::watchListening()
{
    m_listenTimer.expires_after(std::chrono::seconds(1));
    m_listenTimer.async_wait([weakReceiver = weak_from_this()](const boost::system::error_code& error) {
        const Shared receiver = weakReceiver.lock();
        if (!receiver || error)
            return;
        HV_TRACE_FREE(error);
        if (!receiver->m_listenError.empty()) {
            receiver->asyncWaitConnection();
            return;
        }
        const std::shared_ptr<Acceptor> acceptor = receiver->m_acceptor.lock();
        // A client is connected: there is no listener to watch until it goes.
        if (!acceptor || !acceptor->is_open())
            return;
        const boost::filesystem::path path = socketPath(receiver->m_name);
        struct stat current{};
        if (::stat(path.c_str(), &current) == 0 && std::make_pair(current.st_dev, current.st_ino) == receiver->m_socketFile) {
            receiver->watchListening();
            return;
        }
        HV_LOG_WARN("The socket file of named pipe in " << receiver->m_name << " is gone; listening again");
        // The pending accept ends with an error, which makes the receiver listen anew.
        boost::system::error_code ignored;
        acceptor->close(ignored);
    });
}

void Receiver::onAccepted(const boost::system::error_code& error, Socket& socket)
{
    HV_TRACE(error);
    if (error) {
        onConnected(nullptr);
        return;
    }
    if (!isPeerAllowed(socket)) {
        boost::system::error_code ignored;
        socket.close(ignored);
        asyncWaitConnection();
        return;
    }
    onConnected(std::make_shared<Out>(std::move(socket), m_name));
}

bool Receiver::isPeerAllowed(Socket& socket) const
{
    const std::optional<uid_t> peer = Impl::peerUserId(socket.native_handle());
    if (!peer) {
        HV_LOG_WARN("Refused connection to named pipe in " << m_name << ": the peer's user is unknown");
        return false;
    }
    if (*peer != ::geteuid()) {
        HV_LOG_WARN("Refused connection to named pipe in " << m_name << " from user id " << *peer);
        return false;
    }
    return true;
}

void Receiver::onConnected(Out::Shared out)
{
    HV_TRACE(out);
    if (!out) {
        asyncWaitConnection();
        return;
    }
    m_out = std::move(out);
    trackAppStreamError();
    asyncReadForever();
}

void Receiver::trackAppStreamError()
{
    HV_TRACE(m_out);
    m_out->onError([weakReceiver = weak_from_this()] {
        if (const Shared receiver = weakReceiver.lock()) {
            receiver->closeAppStream();
            receiver->asyncWaitConnection();
        }
    });
}

void Receiver::asyncReadForever()
{
    HV_TRACE(m_out);
    // The subscriber may have closed the receiver from inside the previous completion.
    if (!m_out)
        return;
    auto appStreamMessage = std::make_shared<AppStream::Message>();
    m_out->asyncRead(appStreamMessage, [this, weakReceiver = weak_from_this(), appStreamMessage] {
        const Shared receiver = weakReceiver.lock();
        if (!receiver)
            return;
        HV_TRACE(appStreamMessage);
        fireOnMessage(appStreamMessage->channelMessage());
        asyncReadForever();
    });
}

void Receiver::fireOnMessage(const ChannelMessage::Shared& message)
{
    if (!message) {
        HV_TRACE(message);
        return;
    }
    HV_TRACE(message, message->channel(), hideSecretInfo(message->message()));
    if (m_onMessage)
        m_onMessage(message);
}

void Receiver::closeAppStream()
{
    HV_TRACE(m_out);
    if (!m_out)
        return;
    m_out->close();
    // Releasing the stream drops its pending reads.
    m_out.reset();
}

// Sender

Sender::Shared Sender::create(boost::asio::io_context& ioContext, const std::string& name)
{
    auto sender = std::make_shared<Sender>(Token(), ioContext, name);
    sender->connect();
    return sender;
}

Sender::Sender(Token, boost::asio::io_context& ioContext, const std::string& name)
    : m_ioContext(ioContext)
    , m_timer(ioContext)
    , m_name(name)
{
    const std::string& channel = name;
    HV_TRACE(channel);
}

Sender::~Sender()
{
    close();
}

void Sender::onConnected(Callback callback)
{
    m_onConnected = std::move(callback);
}

void Sender::connect()
{
    HV_TRACE(m_in);
    if (!m_in)
        m_in = getAppStream();
    if (!m_in) {
        retryConnect();
        return;
    }
    trackAppStreamError();
    fireOnConnected();
}

Sender::In::Shared Sender::getAppStream()
{
    HV_TRACE();
    Socket socket(m_ioContext);
    boost::system::error_code error;
    try {
        const Endpoint endpoint(socketPath(m_name).string());
        socket.open(endpoint.protocol(), error);
        if (!error)
            socket.connect(endpoint, error);
    } catch (const boost::system::system_error& failure) {
        // A path too long for the socket address.
        error = failure.code();
    }
    if (error) {
        HV_LOG_WARN("Error " << error << " on connecting to named pipe in " << m_name);
        return nullptr;
    }
    m_handle = socket.native_handle();
    return std::make_shared<In>(std::move(socket), m_name);
}

void Sender::retryConnect()
{
    HV_TRACE();
    m_timer.expires_from_now(boost::posix_time::seconds(1));
    m_timer.async_wait([this, weakSender = weak_from_this()](const boost::system::error_code& error) {
        const Shared sender = weakSender.lock();
        if (!sender)
            return;
        HV_TRACE(error);
        if (!error)
            connect();
    });
}

void Sender::trackAppStreamError()
{
    HV_TRACE(m_in);
    m_in->onError([weakSender = weak_from_this()] {
        if (const Shared sender = weakSender.lock()) {
            sender->closeAppStream();
            sender->connect();
        }
    });
    // Only to notice the receiver going away: its end of stream fails this read.
    m_in->asyncRead(std::make_shared<AppStream::Buffer>(), [] {});
}

void Sender::fireOnConnected()
{
    HV_TRACE();
    if (m_onConnected)
        m_onConnected();
}

void Sender::sendMessage(const ChannelMessage::Shared& message, Callback onWritten)
{
    if (!message) {
        HV_TRACE(m_in, message);
        return;
    }
    HV_TRACE(m_in, message, message->channel(), hideSecretInfo(message->message()));
    if (!m_in)
        return;
    auto appStreamMessage = std::make_shared<AppStream::Message>(message);
    m_in->asyncWrite(appStreamMessage, [this, weakSender = weak_from_this(), appStreamMessage, onWritten = std::move(onWritten)] {
        const Shared sender = weakSender.lock();
        if (!sender)
            return;
        HV_TRACE(appStreamMessage);
        if (onWritten)
            onWritten();
    });
}

bool Sender::isConnected() const
{
    return m_in != nullptr;
}

void Sender::closeAppStream()
{
    HV_TRACE(m_in);
    if (!m_in)
        return;
    m_in->close();
    m_in.reset();
    m_handle = -1;
}

void Sender::shutdownSend(Callback onClosed)
{
    HV_TRACE(m_in);
    if (!m_in)
        return;
    // The pending read of trackAppStreamError ends with the receiver's close; from now on that
    // means "done", not "reconnect".
    m_in->onError([weakSender = weak_from_this(), onClosed = std::move(onClosed)] {
        if (const Shared sender = weakSender.lock())
            sender->closeAppStream();
        if (onClosed)
            onClosed();
    });
    if (::shutdown(m_handle, SHUT_WR) != 0)
        HV_LOG_WARN("Error " << std::strerror(errno) << " on shutting down named pipe in " << m_name);
}

void Sender::close()
{
    HV_TRACE(m_in);
    closeAppStream();
    boost::system::error_code ignored;
    m_timer.cancel(ignored);
    m_onConnected = nullptr;
}

} // namespace Hv::Async::LocalPipe

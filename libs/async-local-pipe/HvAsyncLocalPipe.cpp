#include "HvAsyncLocalPipe.h"

#include "HvAsyncAppStreamMessage.h"
#include "HvChannelMessageUtil.h"
#include "HvAsyncLocalPipeImpl.h"
#include "HvPlatform.h"
#include "HvTrace.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <boost/asio/post.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Hv::Async::LocalPipe {

namespace {

using Endpoint = boost::asio::local::stream_protocol::endpoint;

// After a frame this big, the memory it took is given back at once.
constexpr std::size_t LARGE_FRAME = 1024 * 1024;

bool isSameFile(const boost::filesystem::path& path, std::pair<dev_t, ino_t> file)
{
    struct stat current{};
    return ::stat(path.c_str(), &current) == 0 && std::make_pair(current.st_dev, current.st_ino) == file;
}

boost::filesystem::path lockPath(const boost::filesystem::path& socket)
{
    return socket.string() + ".lock";
}

// The holder's pid as it wrote it into the lock file; empty when there is none yet.
std::string lockHolder(int lock)
{
    char text[16] = {};
    const ssize_t size = ::pread(lock, text, sizeof(text) - 1, 0);
    std::string pid(text, size > 0 ? static_cast<std::size_t>(size) : 0);
    return pid.find_first_not_of("0123456789") == std::string::npos ? pid : std::string();
}

// The start of a message body for a log line, its secrets masked (an open value too, so a cut
// that falls into one masks it).
std::string bodyForLog(const std::string& body)
{
    if (body.size() <= AppStream::RawBytes::LOGGED_BYTES)
        return hideSecretInfo(body);
    return hideSecretInfo(body.substr(0, AppStream::RawBytes::LOGGED_BYTES)) + "... (" + std::to_string(body.size()) + " bytes in all)";
}

} // namespace

boost::filesystem::path socketPath(const std::string& name, std::string* problem)
{
    Impl::SocketFolder folder = Impl::socketDirectory();
    if (problem != nullptr)
        *problem = std::move(folder.problem);
    return folder.path / ("halvophone-" + name + "-local-channel");
}

// Receiver

Receiver::Shared Receiver::create(boost::asio::io_context& ioContext, const std::string& name)
{
    auto receiver = std::make_shared<Receiver>(Token(), ioContext, name);
    receiver->asyncWaitConnection();
    receiver->watch();
    return receiver;
}

Receiver::Receiver(Token, boost::asio::io_context& ioContext, const std::string& name)
    : m_ioContext(ioContext)
    , m_name(name)
    , m_watchTimer(ioContext)
{
    const std::string& channel = name;
    HV_TRACE(channel);
}

Receiver::~Receiver()
{
    close();
    // No socket file left for clients to connect to in vain: only the one this receiver bound, and
    // only while it holds the lock, so that a successor's file stays.
    if (m_lock >= 0) {
        if (isSameFile(m_path, m_socketFile))
            ::unlink(m_path.c_str());
        ::close(m_lock);
    }
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
    tryListening();
}

void Receiver::tryListening()
{
    boost::system::error_code ignored;
    if (m_acceptor)
        m_acceptor->close(ignored);
    m_acceptor.reset();

    std::string problem;
    const boost::filesystem::path path = socketPath(m_name, &problem);
    if (!problem.empty()) {
        notListening(log4cplus::ERROR_LOG_LEVEL, problem, "Unable to listen on named pipe in " + m_name + " at " + path.string() + ": " + problem);
        return;
    }
    if (!holdLock(path, problem)) {
        if (!problem.empty())
            notListening(log4cplus::ERROR_LOG_LEVEL, problem, "Unable to listen on named pipe in " + m_name + " at " + path.string() + ": " + problem);
        return;
    }
    try {
        m_acceptor = listen(path);
    } catch (const boost::system::system_error& failure) {
        notListening(log4cplus::ERROR_LOG_LEVEL, failure.what(),
                     "Unable to listen on named pipe in " + m_name + " at " + path.string() + ": " + failure.what());
        return;
    }
    if (!m_listenError.empty()) {
        HV_LOG_INFO("Listening on named pipe in " << m_name << " again");
        m_listenError.clear();
    }
    m_path = path;
    ++m_listener;
    asyncAccept();
}

void Receiver::notListening(log4cplus::LogLevel level, const std::string& reason, const std::string& text)
{
    // Logged once while the reason lasts: the retries go on for as long as it does.
    if (reason != m_listenError)
        HV_LOG_AT(level, text << "; trying again every second");
    m_listenError = reason;
}

bool Receiver::holdLock(const boost::filesystem::path& path, std::string& problem)
{
    const boost::filesystem::path lock = lockPath(path);
    if (m_lock >= 0) {
        if (isSameFile(lock, m_lockFile))
            return true;
        // Removed with its folder: whoever locks the new file is the one receiver now.
        ::close(m_lock);
        m_lock = -1;
    }
    const int file = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (file < 0) {
        problem = "the lock file " + lock.string() + " cannot be opened: " + std::strerror(errno);
        return false;
    }
    // The kernel drops the lock with the holder's last descriptor, however it ends.
    if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        const std::string holder = lockHolder(file);
        ::close(file);
        if (error != EWOULDBLOCK) {
            problem = "the lock file " + lock.string() + " cannot be locked: " + std::strerror(error);
            return false;
        }
        // One line for as long as the other one listens, whichever pid it names.
        if (m_listenError != "locked")
            HV_LOG_WARN("Another process of this user" << (holder.empty() ? std::string() : " (pid " + holder + ")")
                        << " is listening on named pipe in " << m_name << "; trying again every second");
        m_listenError = "locked";
        return false;
    }
    const std::string pid = std::to_string(::getpid());
    if (::ftruncate(file, 0) != 0 || ::pwrite(file, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size()))
        HV_LOG_WARN("Error " << std::strerror(errno) << " on writing the lock file of named pipe in " << m_name);
    struct stat held{};
    ::fstat(file, &held);
    m_lockFile = {held.st_dev, held.st_ino};
    m_lock = file;
    return true;
}

std::shared_ptr<Receiver::Acceptor> Receiver::listen(const boost::filesystem::path& path)
{
    const Endpoint endpoint(path.string());
    // A socket file left by an earlier run would make bind fail. Only the lock's holder gets
    // here, so it is never the socket of a receiver that still listens.
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

void Receiver::asyncAccept()
{
    auto socket = std::make_shared<Socket>(m_ioContext);
    m_acceptor->async_accept(*socket, [weakReceiver = weak_from_this(), socket, listener = m_listener](const boost::system::error_code& error) {
        if (const Shared receiver = weakReceiver.lock())
            receiver->onAccepted(error, *socket, listener);
    });
}

void Receiver::watch()
{
    m_watchTimer.expires_after(std::chrono::seconds(1));
    m_watchTimer.async_wait([weakReceiver = weak_from_this()](const boost::system::error_code& error) {
        const Shared receiver = weakReceiver.lock();
        if (!receiver || error)
            return;
        receiver->checkListening();
        receiver->checkStalledFrame();
        receiver->watch();
    });
}

void Receiver::checkListening()
{
    if (!m_acceptor) {
        tryListening();
        return;
    }
    if (isSameFile(m_path, m_socketFile) && isSameFile(lockPath(m_path), m_lockFile))
        return;
    HV_LOG_WARN("The socket file of named pipe in " << m_name << " is gone; listening again");
    tryListening();
}

void Receiver::checkStalledFrame()
{
    if (!m_out || !m_frame)
        return;
    const std::size_t length = m_frame->receivedLength();
    const Clock::time_point now = Clock::now();
    if (length == 0 || length != m_frameLength) {
        m_frameLength = length;
        m_frameChanged = now;
        return;
    }
    if (now - m_frameChanged <= STALLED_FRAME_TIMEOUT)
        return;
    HV_LOG_WARN("Closing the client of named pipe in " << m_name << ": nothing came for "
                << STALLED_FRAME_TIMEOUT.count() << " s in the middle of a frame");
    closeAppStream();
}

void Receiver::onAccepted(const boost::system::error_code& error, Socket& socket, std::uint64_t listener)
{
    HV_TRACE(error);
    // A listener given up since (its socket file was lost) ends its accept with an error.
    if (listener != m_listener || !m_acceptor)
        return;
    if (error) {
        // Such as too many open files: a new listener at the next second.
        notListening(log4cplus::ERROR_LOG_LEVEL, error.message(), "Unable to accept on named pipe in " + m_name + ": " + error.message());
        boost::system::error_code ignored;
        m_acceptor->close(ignored);
        m_acceptor.reset();
        return;
    }
    asyncAccept();
    if (!isPeerAllowed(socket)) {
        boost::system::error_code ignored;
        socket.close(ignored);
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
    if (m_out) {
        // The service reconnects when it restarts; a client that lingers must not keep it out.
        HV_LOG_INFO("A new client replaces the client of named pipe in " << m_name);
        closeAppStream();
    }
    m_out = std::move(out);
    m_badFrames = 0;
    trackAppStreamError();
    asyncReadForever();
}

void Receiver::trackAppStreamError()
{
    HV_TRACE(m_out);
    m_out->onError([weakReceiver = weak_from_this(), weakOut = std::weak_ptr<Out>(m_out)] {
        const Shared receiver = weakReceiver.lock();
        // Only the current client's end is the receiver's business; it listens all along.
        if (receiver && receiver->m_out && receiver->m_out == weakOut.lock())
            receiver->closeAppStream();
    });
}

void Receiver::asyncReadForever()
{
    HV_TRACE(m_out);
    // The subscriber may have closed the receiver from inside the previous completion.
    if (!m_out)
        return;
    auto appStreamMessage = std::make_shared<AppStream::Message>();
    m_frame = appStreamMessage;
    m_frameLength = 0;
    m_out->asyncRead(appStreamMessage, [this, weakReceiver = weak_from_this(), frame = std::weak_ptr<AppStream::Message>(appStreamMessage)] {
        const Shared receiver = weakReceiver.lock();
        const AppStream::Message::Shared appStreamMessage = frame.lock();
        if (!receiver || !appStreamMessage)
            return;
        HV_TRACE(appStreamMessage);
        if (appStreamMessage->length() >= LARGE_FRAME) {
            // Once this completion and the stream's queue have let go of the frame.
            boost::asio::post(m_ioContext, [] { Impl::releaseFreeMemory(); });
        }
        const ChannelMessage::Shared message = appStreamMessage->channelMessage();
        // Every frame costs log lines: a client that sends no messages at all goes before long.
        if (!message && ++m_badFrames == MAX_BAD_FRAMES) {
            HV_LOG_WARN("Closing the client of named pipe in " << m_name << ": " << MAX_BAD_FRAMES << " frames were no channel messages");
            closeAppStream();
            return;
        }
        fireOnMessage(message);
        asyncReadForever();
    });
}

void Receiver::fireOnMessage(const ChannelMessage::Shared& message)
{
    if (!message) {
        HV_TRACE(message);
        return;
    }
    if (SimpleLogger::isEnabled()) {
        // Bodies and channels are the client's to choose: the log shows the start of them.
        const std::string channel = AppStream::logExcerpt(Util::serializeChannel(message->channel()));
        const std::string body = bodyForLog(message->message());
        HV_TRACE(message, channel, body);
    }
    if (m_onMessage)
        m_onMessage(message);
}

void Receiver::closeAppStream()
{
    HV_TRACE(m_out);
    if (m_frame && m_frame->receivedLength() >= LARGE_FRAME)
        boost::asio::post(m_ioContext, [] { Impl::releaseFreeMemory(); });
    m_frame.reset();
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
    std::string problem;
    const boost::filesystem::path path = socketPath(m_name, &problem);
    if (!problem.empty()) {
        // Whatever listens in a folder that is not safely this user's is nobody to talk to.
        HV_LOG_WARN("Error " << problem << " on connecting to named pipe in " << m_name);
        return nullptr;
    }
    try {
        const Endpoint endpoint(path.string());
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
    if (SimpleLogger::isEnabled()) {
        const std::string channel = AppStream::logExcerpt(Util::serializeChannel(message->channel()));
        const std::string body = bodyForLog(message->message());
        HV_TRACE(m_in, message, channel, body);
    }
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

#include "HvAsyncLocalPipe.h"

#include "HvChannelMessageUtil.h"
#include "HvTestSupport.h"
#include "HvLogCapture.h"
#include "HvPlatform.h"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdint>
#include <fstream>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Hv::Test::frame;

using Hv::Async::LocalPipe::Receiver;
using Hv::Async::LocalPipe::Sender;
using Hv::Test::Process;
using Hv::Test::runFor;
using Hv::Test::runUntil;

// A plain blocking client, usable after fork() too: system calls only.
int connectRaw(const char* path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool writeAll(int fd, const std::string& bytes)
{
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::size_t openDescriptors()
{
    std::size_t count = 0;
    for (const auto& entry : boost::filesystem::directory_iterator("/proc/self/fd")) {
        (void)entry;
        ++count;
    }
    return count;
}

class LocalPipeTest : public ::testing::Test {
protected:
    LocalPipeTest()
    {
        char folder[] = "/tmp/hv-pipe-test-XXXXXX";
        if (mkdtemp(folder) != nullptr)
            m_folder = folder;
        setenv("XDG_RUNTIME_DIR", m_folder.c_str(), 1);
        m_name = "test" + std::to_string(getpid());
        m_path = Hv::Async::LocalPipe::socketPath(m_name).string();
    }

    ~LocalPipeTest() override
    {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(m_folder, ignored);
    }

    Receiver::Shared startReceiver()
    {
        auto receiver = Receiver::create(m_io, m_name);
        receiver->onMessage([this](const Hv::ChannelMessage::Shared& message) {
            m_received.push_back(Hv::Util::serializeChannel(message->channel()) + "|" + message->message());
        });
        return receiver;
    }

    std::vector<std::string> peerCommand(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> command = {HV_SERVICE_PEER, "--pipe", m_name};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    // Connects a raw client once the receiver listens again.
    int connectRawWhenListening()
    {
        int fd = -1;
        runUntil(m_io, [&] { return (fd = connectRaw(m_path.c_str())) >= 0; });
        return fd;
    }

    Hv::Test::LogCapture m_capture;
    boost::asio::io_context m_io;
    std::string m_folder;
    std::string m_name;
    std::string m_path;
    std::vector<std::string> m_received;
};

TEST_F(LocalPipeTest, PeerProcessMessagesArriveInOrderOnAPrivateSocket)
{
    // A stale socket file from an earlier run must not block binding.
    { std::ofstream stale(m_path); }
    EXPECT_EQ(m_path, m_folder + "/halvophone-" + m_name + "-local-channel");
    auto receiver = startReceiver();
    struct stat info{};
    ASSERT_EQ(::stat(m_path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u);

    Process peer(peerCommand({"--status", "Connected,Success", "--channel", "A-B", "--body", "hello", "--status",
                              "Waiting,Socket", "--delay-ms", "20"}));
    ASSERT_TRUE(peer.started());
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 3 && peer.poll(); }));
    EXPECT_TRUE(peer.exitedWith(0));
    EXPECT_EQ(m_received, std::vector<std::string>({"ServiceStatus|ConnectionState:Connected,ErrorCode:Success", "A-B|hello",
                                                    "ServiceStatus|ConnectionState:Waiting,ErrorCode:Socket"}));

    // The peer's end of stream sends the receiver back to listening for the next one.
    Process next(peerCommand({"--channel", "C", "--body", "again"}));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 4 && next.poll(); }));
    EXPECT_TRUE(next.exitedWith(0));
    EXPECT_EQ(m_received.back(), "C|again");

    // Closing keeps the socket file for the next receiver to remove.
    receiver.reset();
    EXPECT_TRUE(boost::filesystem::exists(m_path));
}

TEST_F(LocalPipeTest, ShutdownSendEndsOnceTheReceiverHasReadEverything)
{
    auto receiver = startReceiver();
    auto sender = Sender::create(m_io, m_name);
    ASSERT_TRUE(sender->isConnected());
    int connections = 0;
    sender->onConnected([&] { ++connections; });
    std::size_t receivedWhenClosed = 0;
    bool closed = false;
    for (const char* body : {"1", "2", "3"})
        sender->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"n"}, body));
    sender->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"n"}, "4"), [&] {
        sender->shutdownSend([&] {
            closed = true;
            receivedWhenClosed = m_received.size();
        });
    });
    ASSERT_TRUE(runUntil(m_io, [&] { return closed; }));
    EXPECT_EQ(receivedWhenClosed, 4u);
    EXPECT_EQ(m_received, std::vector<std::string>({"n|1", "n|2", "n|3", "n|4"}));
    // Done means done: no reconnection although the receiver listens again.
    runFor(m_io, std::chrono::milliseconds(200));
    EXPECT_FALSE(sender->isConnected());
    EXPECT_EQ(connections, 0);
    const int fd = connectRawWhenListening();
    EXPECT_GE(fd, 0);
    ::close(fd);
    // Without a connection there is nothing to shut down and nothing to wait for.
    sender->shutdownSend([&] { closed = false; });
    runFor(m_io, std::chrono::milliseconds(50));
    EXPECT_TRUE(closed);
}

TEST_F(LocalPipeTest, PeersInQuickSuccessionLoseNothing)
{
    auto receiver = startReceiver();
    // Pumped now and then like the tray's timer: a peer that left before being accepted would
    // leave the next one in the backlog of a listener about to close, and its message lost.
    const auto pumpSlowlyUntil = [&](auto done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (;;) {
            ::usleep(30000);
            if (done())
                return true;
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            m_io.restart();
            m_io.poll();
        }
    };
    std::vector<std::string> expected;
    for (int i = 0; i < 8; ++i) {
        Process peer(peerCommand({"--channel", "n", "--body", std::to_string(i)}));
        ASSERT_TRUE(pumpSlowlyUntil([&] { return peer.poll().has_value(); }));
        EXPECT_TRUE(peer.exitedWith(0));
        expected.push_back("n|" + std::to_string(i));
    }
    runUntil(m_io, [&] { return m_received.size() >= expected.size(); }, std::chrono::seconds(1));
    EXPECT_EQ(m_received, expected);
}

TEST_F(LocalPipeTest, PeerWithoutReceiverGivesUpWithAClearError)
{
    Process peer(peerCommand({"--status", "Connected,Success", "--timeout-ms", "300"}));
    ASSERT_TRUE(runUntil(m_io, [&] { return peer.poll().has_value(); }));
    EXPECT_TRUE(peer.exitedWith(1));
}

TEST_F(LocalPipeTest, SenderKilledInsideAFrameLeavesTheReceiverListening)
{
    auto receiver = startReceiver();
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const std::string partial = frame(100, "ServiceSta");
    Process sender([&] {
        const int fd = connectRaw(m_path.c_str());
        if (fd < 0 || !writeAll(fd, partial))
            _exit(1);
        (void)!::write(ready[1], "x", 1);
        ::pause();
    });
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
    ::close(ready[1]);
    // The receiver has the length and waits for the rest of the frame.
    ASSERT_TRUE(runUntil(m_io, [&] { return m_capture.contains(log4cplus::TRACE_LOG_LEVEL, "buffer->isLengthValid() = 1"); }));
    sender.kill();

    ASSERT_TRUE(runUntil(m_io, [&] { return m_capture.contains(log4cplus::ERROR_LOG_LEVEL, "Error in " + m_name); }));
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error while reading message in " + m_name), 1u);
    EXPECT_TRUE(m_received.empty());

    Process peer(peerCommand({"--status", "Connected,Success", "--status", "Waiting,Success"}));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 2 && peer.poll(); }));
    EXPECT_TRUE(peer.exitedWith(0));
    EXPECT_EQ(m_received[1], "ServiceStatus|ConnectionState:Waiting,ErrorCode:Success");
}

TEST_F(LocalPipeTest, BadBytesDropTheClientButNotTheReceiver)
{
    auto receiver = startReceiver();
    const std::vector<std::pair<std::string, std::string>> cases = {
        {frame(0, ""), "Error while reading length in " + m_name + "\n00 00 00 00 "},
        {frame(67108865, "abc"), "Error while reading length in " + m_name + "\n01 00 00 04 "},
        {frame(10, "abc"), "Error while reading message in " + m_name + "\n00 00 00 00  00 00 00 00  00 00 "},
    };
    for (const auto& [bytes, error] : cases) {
        SCOPED_TRACE(error);
        m_capture.clear();
        const int fd = connectRawWhenListening();
        ASSERT_GE(fd, 0);
        ASSERT_TRUE(writeAll(fd, bytes));
        // The truncated frame fails only when the client goes.
        if (error.find("message") != std::string::npos)
            ::shutdown(fd, SHUT_WR);
        ASSERT_TRUE(runUntil(m_io, [&] { return m_capture.contains(log4cplus::ERROR_LOG_LEVEL, "Error in " + m_name); }));
        EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, error), 1u);
        ::close(fd);
    }

    // A payload without "|" is dropped, and the same connection goes on.
    m_capture.clear();
    const int fd = connectRawWhenListening();
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(writeAll(fd, frame(5, "hello") + frame(4, "a|hi")));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 1; }));
    EXPECT_EQ(m_received[0], "a|hi");
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, ""), 0u);
    EXPECT_GE(m_capture.count(log4cplus::WARN_LOG_LEVEL, "hello"), 1u);
    ::close(fd);
}

TEST_F(LocalPipeTest, OneClientAtATime)
{
    auto receiver = startReceiver();
    auto first = Sender::create(m_io, m_name);
    ASSERT_TRUE(first->isConnected());
    first->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"first"}, "1"));
    // Once the message is in, the receiver has accepted and stopped listening.
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 1; }));

    int connections = 0;
    auto second = Sender::create(m_io, m_name);
    second->onConnected([&] { ++connections; });
    EXPECT_FALSE(second->isConnected());
    // Nothing is queued while not connected.
    second->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"lost"}, "x"));
    runFor(m_io, std::chrono::milliseconds(1300));
    EXPECT_FALSE(second->isConnected());
    EXPECT_GE(m_capture.count(log4cplus::WARN_LOG_LEVEL, " on connecting to named pipe in " + m_name), 2u);

    first->close();
    const auto left = std::chrono::steady_clock::now();
    ASSERT_TRUE(runUntil(m_io, [&] { return connections == 1; }));
    // One retry period, with room for a loaded machine.
    EXPECT_LT(std::chrono::steady_clock::now() - left, std::chrono::milliseconds(2500));
    bool written = false;
    second->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"second"}, "2"), [&] { written = true; });
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 2 && written; }));
    EXPECT_EQ(m_received, std::vector<std::string>({"first|1", "second|2"}));

    // The receiver going away makes the sender reconnect as soon as a new one listens.
    receiver.reset();
    ASSERT_TRUE(runUntil(m_io, [&] { return !second->isConnected(); }));
    receiver = startReceiver();
    ASSERT_TRUE(runUntil(m_io, [&] { return connections == 2; }));
}

TEST_F(LocalPipeTest, ListensAgainOnceALostSocketFolderIsBack)
{
    // Without a runtime folder the socket lives in the temporary folder, which is fixed for the
    // life of the process; a cleaner may still remove it.
    unsetenv("XDG_RUNTIME_DIR");
    setenv("TMPDIR", m_folder.c_str(), 1);
    if (Hv::tempDirectory() != m_folder)
        GTEST_SKIP() << "the temporary folder was fixed earlier in this process";
    m_path = Hv::Async::LocalPipe::socketPath(m_name).string();

    // Started before its folder exists: no exception, and one ERROR line however many retries.
    boost::filesystem::remove_all(m_folder);
    auto receiver = startReceiver();
    runFor(m_io, std::chrono::milliseconds(2300));
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to listen on named pipe in " + m_name), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "bind: No such file or directory"), 1u);

    const auto serveOneClient = [&](const std::string& body) {
        const int fd = connectRawWhenListening();
        const std::size_t expected = m_received.size() + 1;
        const bool served = fd >= 0 && writeAll(fd, frame(2 + body.size(), "a|" + body))
            && runUntil(m_io, [&] { return m_received.size() == expected; });
        const std::size_t ends = m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error in " + m_name);
        ::close(fd);
        // Its end of stream is handled, so the receiver listens again.
        return served && runUntil(m_io, [&] { return m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error in " + m_name) > ends; });
    };
    boost::filesystem::create_directory(m_folder);
    ASSERT_TRUE(serveOneClient("1"));

    // Removed and made anew under a listening receiver: the old socket file is gone with it, and
    // the receiver notices within a second instead of listening where nobody can reach it.
    boost::filesystem::remove_all(m_folder);
    boost::filesystem::create_directory(m_folder);
    ASSERT_TRUE(serveOneClient("2"));
    EXPECT_EQ(m_received, std::vector<std::string>({"a|1", "a|2"}));
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "is gone; listening again"), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to listen"), 1u);
}

TEST_F(LocalPipeTest, OtherUsersAreRefused)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to run a client as another user";
    auto receiver = startReceiver();
    // Loosen the file system protection so that only the peer check stands in the way.
    ::chmod(m_folder.c_str(), 0755);
    ::chmod(m_path.c_str(), 0666);
    const std::string message = frame(6, "evil|x");
    Process client([&] {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            _exit(3);
        ::alarm(10);
        const int fd = connectRaw(m_path.c_str());
        if (fd < 0)
            _exit(1);
        (void)writeAll(fd, message);
        char byte = 0;
        // The receiver closes the connection: end of stream (or a reset).
        _exit(::read(fd, &byte, 1) <= 0 ? 0 : 2);
    });
    ASSERT_TRUE(runUntil(m_io, [&] { return client.poll().has_value(); }));
    EXPECT_TRUE(client.exitedWith(0));
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "Refused connection to named pipe in " + m_name + " from user id 65534"), 1u);
    EXPECT_EQ(m_capture.messages(log4cplus::WARN_LOG_LEVEL).size(), 1u);
    EXPECT_TRUE(m_received.empty());

    Process peer(peerCommand({"--status", "Connected,Success"}));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 1 && peer.poll(); }));
    EXPECT_TRUE(peer.exitedWith(0));
}

TEST_F(LocalPipeTest, ConnectionCyclesLeakNoDescriptors)
{
    auto receiver = startReceiver();
    // One client served from connection to disconnection. A client counts as served once its
    // message is in: a connection made before that could land in the backlog of the listener
    // that is about to close.
    std::size_t count = 0;
    const auto serveOneClient = [&] {
        const int fd = connectRawWhenListening();
        const std::size_t expected = m_received.size() + 1;
        const bool served = fd >= 0 && writeAll(fd, frame(3, "a|b")) && runUntil(m_io, [&] { return m_received.size() == expected; });
        count = openDescriptors();
        ::close(fd);
        return served;
    };
    ASSERT_TRUE(serveOneClient());
    const std::size_t before = count;
    int served = 0;
    {
        // Thousands of trace lines would only slow this down.
        Hv::SimpleLogger::Suppressor quiet;
        while (served < 1000 && serveOneClient())
            ++served;
    }
    EXPECT_EQ(served, 1000);
    EXPECT_EQ(count, before);
}

} // namespace

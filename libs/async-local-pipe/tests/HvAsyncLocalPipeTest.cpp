#include "HvAsyncLocalPipe.h"
#include "HvChannelMessageUtil.h"
#include "HvLogCapture.h"
#include "HvPlatform.h"
#include "HvSimpleLogger.h"
#include "HvTestSupport.h"

#include <boost/asio/write.hpp>
#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>

using Hv::Test::frame, Hv::Test::runUntil;
using Socket = boost::asio::local::stream_protocol::socket;
namespace fs = boost::filesystem;

// A plain blocking client; false while nothing listens at `path`.
static bool connect(Socket& client, const std::string& path)
{
    boost::system::error_code error;
    client.close(error);
    client.connect(boost::asio::local::stream_protocol::endpoint(path), error);
    return !error;
}

class LocalPipeTest : public ::testing::Test {
protected:
    LocalPipeTest()
    {
        setenv("XDG_RUNTIME_DIR", m_folder.path().c_str(), 1);
        m_path = Hv::Async::LocalPipe::socketPath("test").string();
    }

    Hv::Async::LocalPipe::Receiver::Shared startReceiver()
    {
        auto receiver = Hv::Async::LocalPipe::Receiver::create(m_io, "test");
        receiver->onMessage([this](const Hv::ChannelMessage::Shared& message) {
            m_received.push_back(Hv::Util::serializeChannel(message->channel()) + "|" + message->message());
        });
        return receiver;
    }

    // A raw client: connects once the receiver listens, writes `bytes`, and waits until the
    // receiver has ended the connection, by which time it listens again.
    bool serve(const std::string& bytes, std::chrono::milliseconds connectLimit = std::chrono::seconds(10))
    {
        Socket client(m_io);
        if (!runUntil(m_io, [&] { return connect(client, m_path); }, connectLimit))
            return false;
        boost::asio::write(client, boost::asio::buffer(bytes));
        client.shutdown(Socket::shutdown_send);
        bool ended = false;
        char byte = 0;
        client.async_read_some(boost::asio::buffer(&byte, 1), [&](auto, std::size_t) { ended = true; });
        return runUntil(m_io, [&] { return ended; });
    }

    Hv::Test::LogCapture m_capture;
    Hv::Test::TemporaryFolder m_folder;
    boost::asio::io_context m_io;
    std::string m_path;
    std::vector<std::string> m_received;
};

TEST_F(LocalPipeTest, ClientsWithBadBytesGoWithoutLeaks)
{
    auto receiver = startReceiver();
    // A refused length, a payload cut short by the client's going, and a frame that is no
    // channel message, skipped before the next one is read.
    const std::string clients[] = {frame(67108865, "a|b"), frame(10, "a|b"), frame("hello") + frame("a|b")};
    for (const std::string& bytes : clients)
        ASSERT_TRUE(serve(bytes));
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error while reading length in test\n01 00 00 04 "), 1u);

    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    // Thousands of trace lines would only slow this down.
    Hv::SimpleLogger::Suppressor quiet;
    for (int i = 0; i < 100; ++i) {
        for (const std::string& bytes : clients)
            ASSERT_TRUE(serve(bytes));
    }
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(m_received, std::vector<std::string>(101, "a|b"));
}

TEST_F(LocalPipeTest, OneReceiverPerUserAndNameTheNextTakesOverWhenItEnds)
{
    // A holder in another process, killed without a chance to clean up: its lock goes with it.
    Hv::Test::Process holder([] {
        // Forked while the logger's cleaning thread may hold a lock of log4cplus: no logging here.
        Hv::SimpleLogger::disable();
        boost::asio::io_context io;
        auto receiver = Hv::Async::LocalPipe::Receiver::create(io, "test");
        io.run();
    });
    ASSERT_TRUE(runUntil(m_io, [&] { return fs::exists(m_path); }));
    // The second waits without touching the socket, and says so once.
    auto receiver = startReceiver();
    runUntil(m_io, [] { return false; }, std::chrono::milliseconds(2500));
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "Another process of this user (pid " + std::to_string(holder.pid()) +
                                                             ") is listening on named pipe in test; trying again every second"), 1u);
    holder.kill();
    ASSERT_TRUE(serve(frame("a|1"), std::chrono::milliseconds(2500)));
    EXPECT_EQ(m_received, std::vector<std::string>{"a|1"});
}

TEST_F(LocalPipeTest, SocketFolderOpenToOthersIsWaitedFor)
{
    // Without a runtime folder the socket lives in the temporary folder, which a cleaner may remove.
    unsetenv("XDG_RUNTIME_DIR");
    setenv("TMPDIR", m_folder.path().c_str(), 1);
    if (Hv::tempDirectory() != m_folder.path())
        GTEST_SKIP() << "the temporary folder was fixed earlier in this process";
    m_path = Hv::Async::LocalPipe::socketPath("test").string();
    const fs::path folder = fs::path(m_path).parent_path();
    // (A temporary folder that goes and comes back is the end-to-end test's.)
    auto receiver = startReceiver();
    ASSERT_TRUE(serve(frame("a|1")));

    // What another user of the shared folder could have put there before this user's first start.
    const fs::path elsewhere = m_folder.path() / "elsewhere";
    fs::create_directory(elsewhere);
    for (const std::string problem : {" is a symbolic link", " is open to other users (mode 0755)", " belongs to user id 65534"}) {
        SCOPED_TRACE(problem);
        if (problem.find("user id") != std::string::npos && ::geteuid() != 0) {
            std::cout << "[  SKIPPED ] a folder of another user: needs root to make one" << std::endl;
            continue;
        }
        // Swapped under the receiver, listening at first, then waiting with its socket closed.
        fs::remove_all(folder);
        if (problem == " is a symbolic link")
            fs::create_directory_symlink(elsewhere, folder);
        else if (fs::create_directory(folder) && problem.find("0755") != std::string::npos)
            ::chmod(folder.c_str(), 0755);
        else
            ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
        const std::string text = "the folder " + folder.string() + problem;
        // One ERROR line however many retries.
        runUntil(m_io, [] { return false; }, std::chrono::milliseconds(2300));
        EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to listen on named pipe in test at " + m_path + ": " + text +
                                                                  "; trying again every second"), 1u);
        Socket client(m_io);
        EXPECT_FALSE(connect(client, m_path));
        EXPECT_TRUE(fs::is_empty(elsewhere));
        // The sender will not talk through it either.
        std::string refused;
        Hv::Async::LocalPipe::socketPath("test", &refused);
        EXPECT_EQ(refused, text);
    }
    // Once it is gone, the receiver makes the folder its own and listens.
    fs::remove_all(folder);
    ASSERT_TRUE(serve(frame("a|2")));
    EXPECT_EQ(m_received, (std::vector<std::string>{"a|1", "a|2"}));
    EXPECT_EQ(fs::status(folder).permissions(), fs::owner_all);
    EXPECT_EQ(fs::status(m_path).permissions(), fs::owner_read | fs::owner_write);
}

TEST_F(LocalPipeTest, NewestClientReplacesTheCurrentOneAndAStalledFrameIsClosed)
{
    auto receiver = startReceiver();
    Socket silent(m_io), served(m_io);
    // A client that says nothing does not keep the next one out: it is let go.
    ASSERT_TRUE(runUntil(m_io, [&] { return connect(silent, m_path) && connect(served, m_path); }));
    // Whether the receiver has ended each connection.
    bool silentEnded = false, servedEnded = false;
    char bytes[2];
    silent.async_read_some(boost::asio::buffer(&bytes[0], 1), [&](auto, std::size_t) { silentEnded = true; });
    served.async_read_some(boost::asio::buffer(&bytes[1], 1), [&](auto, std::size_t) { servedEnded = true; });
    boost::asio::write(served, boost::asio::buffer(frame("a|1")));
    ASSERT_TRUE(runUntil(m_io, [&] { return silentEnded && m_received.size() == 1; }));
    EXPECT_EQ(m_capture.count(log4cplus::INFO_LOG_LEVEL, "A new client replaces the client of named pipe in test"), 1u);

    // Quiet between whole frames, as the service is between statuses: kept.
    runUntil(m_io, [] { return false; }, std::chrono::milliseconds(6500));
    EXPECT_FALSE(servedEnded);
    boost::asio::write(served, boost::asio::buffer(frame("a|2") + frame(10, "a|")));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 2; }));
    // Stopped in the middle of a frame: closed once 5 s have passed without a byte.
    const auto stalled = std::chrono::steady_clock::now();
    ASSERT_TRUE(runUntil(m_io, [&] { return servedEnded; }));
    EXPECT_GE(std::chrono::steady_clock::now() - stalled, std::chrono::seconds(5));
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "Closing the client of named pipe in test: nothing came for 5 s in the middle of a frame"), 1u);
}

TEST_F(LocalPipeTest, OtherUsersAreRefused)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to run a client as another user";
    auto receiver = startReceiver();
    // Loosen the file system protection so that only the peer check stands in the way.
    ::chmod(m_folder.path().c_str(), 0755);
    ::chmod(m_path.c_str(), 0666);
    Hv::Test::Process client([&] {
        boost::asio::io_context io;
        Socket socket(io);
        boost::system::error_code error;
        char byte = 0;
        // Refused: the receiver ends the connection unread; an accepted client would wait here.
        const bool refused = ::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0 &&
                             connect(socket, m_path) && socket.read_some(boost::asio::buffer(&byte, 1), error) == 0 && error;
        _exit(refused ? 0 : 1);
    });
    ASSERT_TRUE(runUntil(m_io, [&] { return client.poll().has_value(); }));
    EXPECT_EQ(client.poll(), 0);
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "Refused connection to named pipe in test from user id 65534"), 1u);
}

TEST_F(LocalPipeTest, SenderConnectsWhenItsReceiverListensAndAgainAfterItsReturn)
{
    auto sender = Hv::Async::LocalPipe::Sender::create(m_io, "test");
    int connections = 0;
    sender->onConnected([&] { ++connections; });
    // Dropped while not connected, not queued.
    sender->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"n"}, "lost"));
    auto receiver = startReceiver();
    ASSERT_TRUE(runUntil(m_io, [&] { return connections == 1; }));
    sender->sendMessage(std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"n"}, "sent"));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 1; }));
    EXPECT_EQ(m_received[0], "n|sent");

    receiver.reset();
    ASSERT_TRUE(runUntil(m_io, [&] { return !sender->isConnected(); }));
    receiver = startReceiver();
    ASSERT_TRUE(runUntil(m_io, [&] { return connections == 2; }));
}

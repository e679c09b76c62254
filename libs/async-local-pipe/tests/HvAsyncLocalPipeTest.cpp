#include "HvAsyncLocalPipe.h"
#include "HvChannelMessageUtil.h"
#include "HvLogCapture.h"
#include "HvPlatform.h"
#include "HvTestSupport.h"

#include <boost/asio/write.hpp>
#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <grp.h>
#include <sys/stat.h>

using Hv::Async::LocalPipe::Receiver;
using Hv::Async::LocalPipe::Sender;
using Hv::Test::frame;
using Hv::Test::Process;
using Hv::Test::runUntil;
using Socket = boost::asio::local::stream_protocol::socket;

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

    Receiver::Shared startReceiver()
    {
        auto receiver = Receiver::create(m_io, "test");
        receiver->onMessage([this](const Hv::ChannelMessage::Shared& message) {
            m_received.push_back(Hv::Util::serializeChannel(message->channel()) + "|" + message->message());
        });
        return receiver;
    }

    // A raw client: connects once the receiver listens, writes `bytes`, ends its sending side
    // and stays until `done` holds.
    bool serve(const std::string& bytes, const std::function<bool()>& done)
    {
        Socket client(m_io);
        if (!runUntil(m_io, [&] { return connect(client, m_path); }))
            return false;
        boost::asio::write(client, boost::asio::buffer(bytes));
        client.shutdown(Socket::shutdown_send);
        return runUntil(m_io, done);
    }

    // Serves a client and waits until the receiver has let it go and listens again.
    bool serve(const std::string& bytes)
    {
        const std::size_t ends = errors("Error in test");
        return serve(bytes, [&] { return errors("Error in test") > ends; });
    }

    std::size_t errors(const std::string& text) const { return m_capture.count(log4cplus::ERROR_LOG_LEVEL, text); }

    Hv::Test::LogCapture m_capture;
    Hv::Test::TemporaryFolder m_folder;
    boost::asio::io_context m_io;
    std::string m_path;
    std::vector<std::string> m_received;
};

TEST_F(LocalPipeTest, PeerProcessesOneAfterAnotherLoseNothing)
{
    // A socket file left by an earlier run does not block binding.
    Hv::Test::writeFile(m_path, "stale");
    auto receiver = startReceiver();
    struct stat info{};
    ASSERT_EQ(::stat(m_path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    std::vector<std::string> expected;
    for (const std::string body : {"1", "2", "3", "4", "5", "6"}) {
        Process peer({HV_SERVICE_PEER, "--pipe", "test", "--status", "Waiting,Socket", "--channel", "A-B", "--body", body});
        expected.insert(expected.end(), {"ServiceStatus|ConnectionState:Waiting,ErrorCode:Socket", "A-B|" + body});
        // Pumped now and then like the tray's timer: a peer that left before being accepted
        // would leave the next one in the backlog of a listener about to close.
        for (int i = 0; i < 300 && !peer.poll(); ++i) {
            ::usleep(30000);
            m_io.restart();
            m_io.poll();
        }
        EXPECT_TRUE(peer.exitedWith(0));
    }
    runUntil(m_io, [&] { return m_received.size() >= expected.size(); }, std::chrono::seconds(1));
    EXPECT_EQ(m_received, expected);
}

TEST_F(LocalPipeTest, BadBytesDropTheClientButNotTheReceiver)
{
    auto receiver = startReceiver();
    const std::pair<std::string, std::string> cases[] = {
        {frame(0, ""), "Error while reading length in test\n00 00 00 00 "},
        {frame(67108865, "a|b"), "Error while reading length in test\n01 00 00 04 "},
        // Cut short by the client's going.
        {frame(10, "a|b"), "Error while reading message in test"},
        // Not a channel message: skipped, and the connection goes on.
        {frame("hello") + frame("a|b"), "Error in test"},
    };
    for (const auto& [bytes, error] : cases) {
        SCOPED_TRACE(error);
        m_capture.clear();
        ASSERT_TRUE(serve(bytes));
        EXPECT_EQ(errors(error), 1u);
    }
    EXPECT_EQ(m_received, std::vector<std::string>{"a|b"});
}

TEST_F(LocalPipeTest, ConnectionCyclesLeakNoDescriptors)
{
    auto receiver = startReceiver();
    const auto descriptors = [] {
        return std::distance(boost::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    long before = 0;
    ASSERT_TRUE(serve(frame("a|b"), [&] {
        before = descriptors();
        return m_received.size() == 1;
    }));
    long after = 0;
    // Thousands of trace lines would only slow this down.
    Hv::SimpleLogger::Suppressor quiet;
    for (std::size_t served = 2; served <= 300; ++served)
        ASSERT_TRUE(serve(frame("a|b"), [&] {
            after = descriptors();
            return m_received.size() == served;
        }));
    EXPECT_EQ(after, before);
}

TEST_F(LocalPipeTest, ListensAgainOnceALostSocketFolderIsBack)
{
    // Without a runtime folder the socket lives in the temporary folder, which a cleaner may remove.
    unsetenv("XDG_RUNTIME_DIR");
    setenv("TMPDIR", m_folder.path().c_str(), 1);
    if (Hv::tempDirectory() != m_folder.path())
        GTEST_SKIP() << "the temporary folder was fixed earlier in this process";
    m_path = Hv::Async::LocalPipe::socketPath("test").string();

    // Started before its folder exists: one ERROR line however many retries.
    boost::filesystem::remove_all(m_folder.path());
    auto receiver = startReceiver();
    Hv::Test::runFor(m_io, std::chrono::milliseconds(2300));
    boost::filesystem::create_directory(m_folder.path());
    ASSERT_TRUE(serve(frame("a|1")));

    // Removed and made anew under a listening receiver, which must notice.
    boost::filesystem::remove_all(m_folder.path());
    boost::filesystem::create_directory(m_folder.path());
    ASSERT_TRUE(serve(frame("a|2")));
    EXPECT_EQ(m_received, (std::vector<std::string>{"a|1", "a|2"}));
    EXPECT_EQ(errors("Unable to listen on named pipe in test"), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "is gone; listening again"), 1u);
}

TEST_F(LocalPipeTest, OtherUsersAreRefused)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to run a client as another user";
    auto receiver = startReceiver();
    // Loosen the file system protection so that only the peer check stands in the way.
    ::chmod(m_folder.path().c_str(), 0755);
    ::chmod(m_path.c_str(), 0666);
    Process client([&] {
        boost::asio::io_context io;
        Socket socket(io);
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0 || !connect(socket, m_path))
            _exit(1);
        boost::system::error_code error;
        boost::asio::write(socket, boost::asio::buffer(frame("evil|x")), error);
        char byte = 0;
        // Refused: the receiver ends the connection unread.
        _exit(socket.read_some(boost::asio::buffer(&byte, 1), error) == 0 && error ? 0 : 2);
    });
    ASSERT_TRUE(runUntil(m_io, [&] { return client.poll().has_value(); }));
    EXPECT_TRUE(client.exitedWith(0));
    EXPECT_EQ(m_capture.count(log4cplus::WARN_LOG_LEVEL, "Refused connection to named pipe in test from user id 65534"), 1u);
    ASSERT_TRUE(serve(frame("a|b")));
    EXPECT_EQ(m_received, std::vector<std::string>{"a|b"});
}

TEST_F(LocalPipeTest, SenderWaitsForItsTurnAndReconnects)
{
    const auto message = [](const std::string& text) {
        return std::make_shared<Hv::ChannelMessage>(Hv::ChannelMessage::Channel{"n"}, std::string(text));
    };
    auto receiver = startReceiver();
    auto first = Sender::create(m_io, "test");
    first->sendMessage(message("1"));
    // Once the message is in, the receiver has its one client and no listener.
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 1; }));
    int connections = 0;
    auto second = Sender::create(m_io, "test");
    second->onConnected([&] { ++connections; });
    // Dropped, not queued.
    second->sendMessage(message("lost"));
    Hv::Test::runFor(m_io, std::chrono::milliseconds(1300));
    EXPECT_GE(m_capture.count(log4cplus::WARN_LOG_LEVEL, " on connecting to named pipe in test"), 2u);

    first->close();
    ASSERT_TRUE(runUntil(m_io, [&] { return connections == 1; }));
    second->sendMessage(message("2"));
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 2; }));
    EXPECT_EQ(m_received, (std::vector<std::string>{"n|1", "n|2"}));

    receiver.reset();
    ASSERT_TRUE(runUntil(m_io, [&] { return !second->isConnected(); }));
    receiver = startReceiver();
    ASSERT_TRUE(runUntil(m_io, [&] { return connections == 2; }));
}

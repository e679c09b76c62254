#include "HvAsyncAppStream.h"
#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <boost/asio/local/connect_pair.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

namespace AppStream = Hv::Async::AppStream;
using Hv::Test::frame;
using Hv::Test::runUntil;
using Socket = boost::asio::local::stream_protocol::socket;
using Descriptor = boost::asio::posix::stream_descriptor;

// An Out stream over one end of a socket pair; the test is the peer at the other end.
class AppStreamTest : public ::testing::Test {
protected:
    AppStreamTest() { open(); }

    void open()
    {
        Socket local(m_io);
        m_peer = Socket(m_io);
        boost::asio::local::connect_pair(local, m_peer);
        m_out = std::make_shared<AppStream::Out<Socket>>(std::move(local), "test-stream");
    }

    // Reads one frame into m_received.
    void read()
    {
        auto buffer = std::make_shared<AppStream::Buffer>();
        m_out->asyncRead(buffer, [this, buffer] { m_received.push_back(buffer->message()); });
    }

    void send(const std::string& bytes) { boost::asio::write(m_peer, boost::asio::buffer(bytes)); }
    std::size_t errorLines(const std::string& text) const { return m_capture.count(log4cplus::ERROR_LOG_LEVEL, text); }

    Hv::Test::LogCapture m_capture;
    boost::asio::io_context m_io;
    Socket m_peer{m_io};
    AppStream::Out<Socket>::Shared m_out;
    std::vector<std::string> m_received;
    int m_errors = 0;
};

TEST_F(AppStreamTest, ReadsFramesInOrderOneStepPerHandler)
{
    // Three frames and the head of a fourth, all there before anyone reads.
    send(frame("hello") + frame("abc") + frame("x") + frame(6, "ab"));
    for (int i = 0; i < 4; ++i)
        read();
    EXPECT_TRUE(m_received.empty()) << "callbacks wait for the event loop";
    // A step per handler, so that the tray's pump bounds what one tick does.
    while (m_received.size() < 3) {
        const std::size_t before = m_received.size();
        ASSERT_EQ(m_io.run_one_for(std::chrono::seconds(5)), 1u);
        ASSERT_LE(m_received.size(), before + 1);
    }
    send("cdef");
    ASSERT_TRUE(runUntil(m_io, [&] { return m_received.size() == 4; }));
    EXPECT_EQ(m_received, (std::vector<std::string>{"hello", "abc", "x", "abcdef"}));
    EXPECT_EQ(errorLines(""), 0u);

    // Destroyed with a read pending: its completion must not reach the stream.
    read();
    m_out.reset();
    Hv::Test::runFor(m_io, std::chrono::milliseconds(50));
    EXPECT_EQ(m_received.size(), 4u);
}

TEST_F(AppStreamTest, BadFrameFailsTheReadAndTellsTheSubscriber)
{
    const std::pair<std::string, std::string> cases[] = {
        {frame(0, ""), "Error while reading length in test-stream\n00 00 00 00 "},
        {frame(1025, "abc"), "Error while reading length in test-stream\n01 04 00 00 "},
        // The peer goes between the length field and the end of the payload.
        {frame(10, "abc"), "Error while reading message in test-stream\n00 00 00 00  00 00 00 00  00 00 "},
    };
    for (const auto& [bytes, error] : cases) {
        SCOPED_TRACE(error);
        open();
        m_capture.clear();
        m_errors = 0;
        // Released by its subscriber, as the local pipe does, the stream runs no further step.
        m_out->onError([this] {
            ++m_errors;
            m_out.reset();
        });
        read();
        send(bytes);
        m_peer.close();
        ASSERT_TRUE(runUntil(m_io, [&] { return m_errors > 0; }));
        Hv::Test::runFor(m_io, std::chrono::milliseconds(50));
        EXPECT_EQ(m_errors, 1);
        EXPECT_TRUE(m_received.empty());
        EXPECT_EQ(errorLines(error), 1u);
        EXPECT_EQ(errorLines("Error in test-stream"), 1u);
    }
}

TEST_F(AppStreamTest, SubscriberHearsOnlyTheFirstFailureUntilItSubscribesAgain)
{
    m_out->onError([this] { ++m_errors; });
    read();
    read();
    m_out->close();
    // Nobody drops the stream here, so all four steps run and fail.
    ASSERT_TRUE(runUntil(m_io, [&] { return errorLines("Error in test-stream") == 4; }));
    EXPECT_EQ(m_errors, 1);

    m_out->onError([this] { m_errors += 10; });
    read();
    ASSERT_TRUE(runUntil(m_io, [&] { return m_errors == 11; }));
    EXPECT_TRUE(m_received.empty());
}

TEST_F(AppStreamTest, WritesWholeFramesInCallOrderAndReportsAFailedWrite)
{
    Socket local(m_io);
    Socket peer(m_io);
    boost::asio::local::connect_pair(local, peer);
    // A small send buffer splits every frame into many partial writes.
    local.set_option(boost::asio::socket_base::send_buffer_size(4096));
    auto duplex = std::make_shared<AppStream::Duplex<Socket>>(std::move(local), "duplex");
    std::string expected;
    std::string written;
    for (const char fill : {'a', 'b', 'c'}) {
        expected += frame(std::string(100000, fill));
        duplex->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>(100000, fill)),
                           [&written, fill] { written += fill; });
    }
    std::string received(expected.size(), '\0');
    bool isRead = false;
    boost::asio::async_read(peer, boost::asio::buffer(received), [&](auto, std::size_t) { isRead = true; });
    ASSERT_TRUE(runUntil(m_io, [&] { return isRead && written.size() == 3; }));
    EXPECT_TRUE(received == expected);
    EXPECT_EQ(written, "abc");

    duplex->onError([this] { ++m_errors; });
    duplex->close();
    duplex->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>{'x'}), [&] { written += 'x'; });
    ASSERT_TRUE(runUntil(m_io, [&] { return m_errors == 1; }));
    EXPECT_EQ(written, "abc");
}

TEST_F(AppStreamTest, DescriptorStreamsCarryFramesOneWay)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    auto reader = AppStream::create<AppStream::Out<Descriptor>>(m_io, fds[0], "reader");
    auto writer = AppStream::create<AppStream::In<Descriptor>>(m_io, fds[1], "writer");
    auto buffer = std::make_shared<AppStream::Buffer>();
    bool written = false;
    reader->asyncRead(buffer, [&] { m_received.push_back(buffer->message()); });
    writer->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>{'o', 'k'}), [&] { written = true; });
    ASSERT_TRUE(runUntil(m_io, [&] { return written && m_received.size() == 1; }));
    EXPECT_EQ(m_received[0], "ok");
    // Reading an In stream or writing an Out stream is a programming error.
    EXPECT_THROW(writer->asyncRead(buffer, [] {}), std::runtime_error);
    EXPECT_THROW(reader->asyncWrite(buffer, [] {}), std::runtime_error);
}

} // namespace

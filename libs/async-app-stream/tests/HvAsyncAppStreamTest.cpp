#include "HvAsyncAppStream.h"
#include "HvTestSupport.h"

#include <boost/asio/local/connect_pair.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

namespace AppStream = Hv::Async::AppStream;
using Hv::Test::frame;
using Socket = boost::asio::local::stream_protocol::socket;

// A stream over one end of a socket pair; the test is the peer at the other end.
class AppStreamTest : public ::testing::Test {
protected:
    AppStreamTest()
    {
        Socket local(m_io);
        boost::asio::local::connect_pair(local, m_peer);
        // A small send buffer splits every written frame into many partial writes.
        local.set_option(boost::asio::socket_base::send_buffer_size(4096));
        m_stream = std::make_shared<AppStream::Duplex<Socket>>(std::move(local), "test-stream");
    }

    // Reads one frame into m_received.
    void read()
    {
        auto buffer = std::make_shared<AppStream::Buffer>();
        m_stream->asyncRead(buffer, [this, buffer] { m_received.push_back(buffer->message()); });
    }

    // Runs every handler that is or becomes ready; no timers are involved.
    void drain()
    {
        m_io.restart();
        m_io.poll();
    }

    boost::asio::io_context m_io;
    Socket m_peer{m_io};
    AppStream::Duplex<Socket>::Shared m_stream;
    std::vector<std::string> m_received;
    int m_errors = 0;
};

TEST_F(AppStreamTest, ReadsFramesInOrderOneStepPerHandler)
{
    // Three frames and the head of a fourth, all there before anyone reads.
    boost::asio::write(m_peer, boost::asio::buffer(frame("hello") + frame("abc") + frame("x") + frame(6, "ab")));
    for (int i = 0; i < 4; ++i)
        read();
    EXPECT_TRUE(m_received.empty()) << "callbacks wait for the event loop";
    // A step per handler, so that the tray's pump bounds what one tick does.
    while (m_received.size() < 3) {
        const std::size_t before = m_received.size();
        ASSERT_EQ(m_io.run_one_for(std::chrono::seconds(5)), 1u);
        ASSERT_LE(m_received.size(), before + 1);
    }
    boost::asio::write(m_peer, boost::asio::buffer(std::string("cdef")));
    ASSERT_TRUE(Hv::Test::runUntil(m_io, [&] { return m_received.size() == 4; }));
    EXPECT_EQ(m_received, (std::vector<std::string>{"hello", "abc", "x", "abcdef"}));

    // Destroyed with a read pending: its completion must not reach the stream.
    read();
    m_stream.reset();
    drain();
    EXPECT_EQ(m_received.size(), 4u);
}

TEST_F(AppStreamTest, SubscriberHearsOnlyTheFirstFailureUntilItSubscribesAgain)
{
    m_stream->onError([this] { ++m_errors; });
    read();
    read();
    // Nobody drops the stream here, so all four read steps run and fail.
    m_stream->close();
    drain();
    EXPECT_EQ(m_errors, 1);

    // A failed write is reported too, and its callback never runs.
    m_stream->onError([this] { m_errors += 10; });
    m_stream->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>{'x'}), [this] { m_received.push_back("x"); });
    drain();
    EXPECT_EQ(m_errors, 11);
    EXPECT_TRUE(m_received.empty());
}

TEST_F(AppStreamTest, WritesWholeFramesInCallOrder)
{
    std::string expected, written;
    for (const char fill : {'a', 'b', 'c'}) {
        expected += frame(std::string(100000, fill));
        m_stream->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>(100000, fill)),
                             [&written, fill] { written += fill; });
    }
    std::string received(expected.size(), '\0');
    bool isRead = false;
    boost::asio::async_read(m_peer, boost::asio::buffer(received), [&](auto, std::size_t) { isRead = true; });
    ASSERT_TRUE(Hv::Test::runUntil(m_io, [&] { return isRead && written.size() == 3; }));
    EXPECT_TRUE(received == expected);
    EXPECT_EQ(written, "abc");
}

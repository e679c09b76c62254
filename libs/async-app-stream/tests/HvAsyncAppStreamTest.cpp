#include "HvTestSupport.h"
#include "HvAsyncAppStream.h"

#include "HvLogCapture.h"

#include <boost/asio/local/connect_pair.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using Hv::Test::frame;

namespace AppStream = Hv::Async::AppStream;
using Socket = boost::asio::local::stream_protocol::socket;
using Descriptor = boost::asio::posix::stream_descriptor;

class AppStreamTest : public ::testing::Test {
protected:
    AppStreamTest()
        : m_peer(m_io)
    {
        Socket local(m_io);
        boost::asio::local::connect_pair(local, m_peer);
        m_local = local.native_handle();
        m_out = std::make_shared<AppStream::Out<Socket>>(std::move(local), "test-stream");
    }

    template <typename Predicate>
    bool runUntil(Predicate done, std::chrono::milliseconds limit = std::chrono::seconds(5))
    {
        return Hv::Test::runUntil(m_io, std::move(done), limit);
    }

    void settle() { runUntil([] { return false; }, std::chrono::milliseconds(50)); }

    void send(const std::string& bytes) { boost::asio::write(m_peer, boost::asio::buffer(bytes)); }

    Hv::Test::LogCapture m_capture;
    boost::asio::io_context m_io;
    Socket m_peer;
    int m_local = -1;
    AppStream::Out<Socket>::Shared m_out;
};

TEST_F(AppStreamTest, ConsecutiveReadsFillBuffersInOrder)
{
    auto first = std::make_shared<AppStream::Buffer>();
    auto second = std::make_shared<AppStream::Buffer>();
    std::vector<std::string> order;
    m_out->asyncRead(first, [&] { order.push_back("first " + first->message()); });
    m_out->asyncRead(second, [&] { order.push_back("second " + second->message()); });
    // Both frames in one write, the second split from the first only by the framing.
    send(frame(5, "hello") + frame(3, "abc"));

    ASSERT_TRUE(runUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, std::vector<std::string>({"first hello", "second abc"}));
    EXPECT_TRUE(m_capture.contains(log4cplus::TRACE_LOG_LEVEL, "m_stream.native_handle() = " + std::to_string(m_local)));
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, ""), 0u);
}

TEST_F(AppStreamTest, PeerClosingInsideAFrameFailsTheMessageStep)
{
    int errors = 0;
    bool read = false;
    m_out->onError([&] { ++errors; });
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { read = true; });
    send(frame(10, "abc"));
    m_peer.close();

    ASSERT_TRUE(runUntil([&] { return errors > 0; }));
    settle();
    EXPECT_EQ(errors, 1);
    EXPECT_FALSE(read);
    const auto messages = m_capture.messages(log4cplus::ERROR_LOG_LEVEL);
    ASSERT_EQ(messages.size(), 2u);
    // The dump shows the payload as messageBuffer() gives it again: ten bytes.
    EXPECT_EQ(messages[0], "Error while reading message in test-stream\n00 00 00 00  00 00 00 00  00 00 " +
                               std::string(3 * 6 + 1 + 4, ' ') + "..........");
    EXPECT_EQ(messages[1], "Error in test-stream");
}

TEST_F(AppStreamTest, LengthAboveTheMaximumIsAReadError)
{
    bool read = false;
    int errors = 0;
    // A subscriber that releases the stream, as the local pipe does.
    m_out->onError([&] {
        ++errors;
        m_out.reset();
    });
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { read = true; });
    send(frame(AppStream::Buffer::MAX_LENGTH + 1, std::string(8, 'x')));

    ASSERT_TRUE(runUntil([&] { return errors > 0; }));
    settle();
    EXPECT_EQ(errors, 1);
    EXPECT_FALSE(read);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL,
                              "Error while reading length in test-stream\n01 04 00 00 " + std::string(3 * 12 + 3 + 4, ' ') + "...."),
              1u);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error in test-stream"), 1u);
}

TEST_F(AppStreamTest, SubscriberHearsOnlyTheFirstOfSeveralFailures)
{
    int errors = 0;
    int reads = 0;
    m_out->onError([&] { ++errors; });
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { ++reads; });
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { ++reads; });
    m_out->close();

    // Nobody drops the stream here, so all four steps run and fail on the closed socket.
    ASSERT_TRUE(runUntil([&] { return m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error in test-stream") == 4; }));
    settle();
    EXPECT_EQ(errors, 1);
    EXPECT_EQ(reads, 0);

    // Subscribing again arms the next failure.
    m_out->onError([&] { errors += 10; });
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { ++reads; });
    ASSERT_TRUE(runUntil([&] { return errors == 11; }));
}

TEST_F(AppStreamTest, DisablingDropsWaitingReads)
{
    int reads = 0;
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { ++reads; });
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { ++reads; });
    m_out->disable();
    EXPECT_FALSE(m_out->areQueuesEnabled());
    send(frame(1, "a") + frame(1, "b"));
    // The running length step finishes; its message step was waiting and is gone.
    settle();
    EXPECT_EQ(reads, 0);
    m_out->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { ++reads; });
    settle();
    EXPECT_EQ(reads, 0);
}

TEST_F(AppStreamTest, WrongDirectionIsAProgrammingError)
{
    EXPECT_THROW(
        {
            try {
                m_out->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>{'x'}), [] {});
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "No write queue in OUT stream");
                throw;
            }
        },
        std::runtime_error);
    EXPECT_EQ(m_capture.count(log4cplus::FATAL_LOG_LEVEL, "No write queue in OUT app stream"), 1u);

    auto in = std::make_shared<AppStream::In<Socket>>(Socket(m_io), "in-stream");
    EXPECT_THROW(
        {
            try {
                in->asyncRead(std::make_shared<AppStream::Buffer>(), [] {});
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "No read queue in IN stream");
                throw;
            }
        },
        std::runtime_error);
    EXPECT_EQ(m_capture.count(log4cplus::FATAL_LOG_LEVEL, "No read queue in IN app stream"), 1u);
}

TEST_F(AppStreamTest, DuplexWritesFramesInCallOrderAndReportsWriteFailures)
{
    Socket local(m_io);
    Socket peer(m_io);
    boost::asio::local::connect_pair(local, peer);
    auto duplex = std::make_shared<AppStream::Duplex<Socket>>(std::move(local), "duplex");
    std::vector<std::string> written;
    for (const std::string text : {"one", "two", "three"})
        duplex->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>(text.begin(), text.end())),
                           [&written, text] { written.push_back(text); });
    ASSERT_TRUE(runUntil([&] { return written.size() == 3; }));
    EXPECT_EQ(written, std::vector<std::string>({"one", "two", "three"}));
    const std::string expected = frame(3, "one") + frame(3, "two") + frame(5, "three");
    std::string received(expected.size(), '\0');
    boost::asio::read(peer, boost::asio::buffer(received));
    EXPECT_EQ(received, expected);

    int errors = 0;
    duplex->onError([&] { ++errors; });
    duplex->close();
    duplex->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>{'x'}), [&] { written.push_back("x"); });
    ASSERT_TRUE(runUntil([&] { return errors == 1; }));
    EXPECT_EQ(written.size(), 3u);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error in duplex"), 1u);

    EXPECT_TRUE(duplex->areQueuesEnabled());
    duplex->disable();
    EXPECT_FALSE(duplex->areQueuesEnabled());
}

TEST_F(AppStreamTest, FramesAlreadyWaitingAreReadInOrderOneStepPerHandler)
{
    constexpr int FRAMES = 100;
    std::string burst;
    for (int i = 0; i < FRAMES; ++i)
        burst += frame(static_cast<std::uint32_t>(std::to_string(i).size()), std::to_string(i));
    // The first half of one more frame: its length arrives now, its payload later.
    burst += frame(6, "ab");
    send(burst);

    std::vector<std::string> received;
    std::function<void()> readNext = [&] {
        auto buffer = std::make_shared<AppStream::Buffer>();
        m_out->asyncRead(buffer, [&, buffer] {
            received.push_back(buffer->message());
            readNext();
        });
    };
    readNext();
    EXPECT_TRUE(received.empty()) << "the data is there, yet the callback waits for the event loop";

    // Every step is a handler of its own, so the tray's pump bounds what one tick does.
    int handlers = 0;
    while (received.size() < FRAMES && handlers < 10 * FRAMES) {
        const std::size_t before = received.size();
        if (m_io.run_one_for(std::chrono::seconds(5)) == 0)
            break;
        ++handlers;
        ASSERT_LE(received.size(), before + 1) << "several frames in one handler";
    }
    ASSERT_EQ(received.size(), static_cast<std::size_t>(FRAMES));
    for (int i = 0; i < FRAMES; ++i)
        EXPECT_EQ(received[i], std::to_string(i));
    EXPECT_GE(handlers, 2 * FRAMES - 1);

    send("cdef");
    ASSERT_TRUE(runUntil([&] { return received.size() == FRAMES + 1; }));
    EXPECT_EQ(received.back(), "abcdef");
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, ""), 0u);
}

TEST_F(AppStreamTest, LargeWritesThatFillTheSocketArriveWholeAndInOrder)
{
    Socket local(m_io);
    Socket peer(m_io);
    boost::asio::local::connect_pair(local, peer);
    // A small send buffer makes the writes after the first one go out in parts.
    local.set_option(boost::asio::socket_base::send_buffer_size(4096));
    auto duplex = std::make_shared<AppStream::Duplex<Socket>>(std::move(local), "duplex");

    constexpr std::size_t SIZE = 100000;
    std::string expected;
    int written = 0;
    for (char fill : {'a', 'b', 'c', 'd'}) {
        const std::vector<char> payload(SIZE, fill);
        expected += frame(SIZE, std::string(payload.begin(), payload.end()));
        duplex->asyncWrite(std::make_shared<AppStream::Buffer>(payload), [&written] { ++written; });
    }
    EXPECT_EQ(written, 0);

    std::string received(expected.size(), '\0');
    bool isRead = false;
    boost::asio::async_read(peer, boost::asio::buffer(received), [&](const boost::system::error_code& error, std::size_t) {
        EXPECT_FALSE(error);
        isRead = true;
    });
    ASSERT_TRUE(runUntil([&] { return isRead && written == 4; }));
    EXPECT_TRUE(received == expected);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, ""), 0u);
}

TEST(StreamNameTest, WordsByType)
{
    EXPECT_EQ(Hv::Util::streamName(Hv::Util::StreamType::In, "12"), "in-12");
    EXPECT_EQ(Hv::Util::streamName(Hv::Util::StreamType::Out, "4711"), "out-4711");
    EXPECT_EQ(Hv::Util::streamName(Hv::Util::StreamType::Error, "12"), "error-12");
    EXPECT_EQ(Hv::Util::streamName(static_cast<Hv::Util::StreamType>(7), "12"), "-12");
}

TEST_F(AppStreamTest, DescriptorStreamsReadFramesAndReportBadHandles)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    auto reader = AppStream::create<AppStream::Out<Descriptor>>(m_io, fds[0], "pipe-reader");
    auto writer = AppStream::create<AppStream::In<Descriptor>>(m_io, fds[1], "pipe-writer");
    bool written = false;
    bool read = false;
    auto buffer = std::make_shared<AppStream::Buffer>();
    reader->asyncRead(buffer, [&] { read = true; });
    writer->asyncWrite(std::make_shared<AppStream::Buffer>(std::vector<char>{'o', 'k'}), [&] { written = true; });
    ASSERT_TRUE(runUntil([&] { return read && written; }));
    EXPECT_EQ(buffer->message(), "ok");
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, ""), 0u);

    // A descriptor number that is not open cannot be assigned: logged, the stream still exists
    // and its first transfer fails.
    int closed[2];
    ASSERT_EQ(pipe(closed), 0);
    close(closed[0]);
    close(closed[1]);
    auto broken = AppStream::create<AppStream::Out<Descriptor>>(m_io, closed[0], "in-broken");
    ASSERT_NE(broken, nullptr);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, " on assigning in in-broken"), 1u);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error system:9 on assigning in in-broken"), 1u);
    int errors = 0;
    broken->onError([&] { ++errors; });
    broken->asyncRead(std::make_shared<AppStream::Buffer>(), [&] { read = false; });
    ASSERT_TRUE(runUntil([&] { return errors == 1; }));
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, "Error while reading length in in-broken"), 1u);

    auto invalid = AppStream::create<AppStream::In<Descriptor>>(m_io, -1, "out-invalid");
    ASSERT_NE(invalid, nullptr);
    EXPECT_EQ(m_capture.count(log4cplus::ERROR_LOG_LEVEL, " on assigning in out-invalid"), 1u);
}

} // namespace

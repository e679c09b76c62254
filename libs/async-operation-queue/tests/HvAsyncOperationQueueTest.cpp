#include "HvTestSupport.h"
#include "HvAsyncOperationQueue.h"

#include "HvLogCapture.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/connect_pair.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using Socket = boost::asio::local::stream_protocol::socket;
using Callback = std::function<void(const boost::system::error_code&, unsigned long)>;

struct Chunk {
    std::string bytes;
};

using Queue = Hv::Async::OperationQueue<Chunk, Callback>;

class OperationQueueTest : public ::testing::Test {
protected:
    OperationQueueTest()
        : m_writer(m_io)
        , m_reader(m_io)
    {
        boost::asio::local::connect_pair(m_writer, m_reader);
    }

    // A real transfer: writes the chunk to the socket pair, recording when it starts.
    Queue::Task writeTask(const std::string& label)
    {
        return [this, label](Queue::SharedData data, Callback callback) {
            m_events.push_back("start " + label);
            boost::asio::async_write(m_writer, boost::asio::buffer(data->bytes), callback);
        };
    }

    Callback recordingCallback(const std::string& label)
    {
        return [this, label](const boost::system::error_code& error, unsigned long length) {
            m_events.push_back("done " + label + (error ? " error" : "") + " " + std::to_string(length));
        };
    }

    template <typename Predicate>
    bool runUntil(Predicate done, std::chrono::milliseconds limit = std::chrono::seconds(5))
    {
        return Hv::Test::runUntil(m_io, std::move(done), limit);
    }

    std::string readAvailable()
    {
        std::string text(m_reader.available(), '\0');
        if (!text.empty())
            boost::asio::read(m_reader, boost::asio::buffer(text));
        return text;
    }

    static Queue::SharedData chunk(const std::string& bytes) { return std::make_shared<Chunk>(Chunk{bytes}); }

    Hv::Test::LogCapture m_capture;
    boost::asio::io_context m_io;
    Socket m_writer;
    Socket m_reader;
    std::vector<std::string> m_events;
};

TEST_F(OperationQueueTest, RunsOperationsOneAfterAnotherInCallOrder)
{
    Queue queue;
    queue.perform(chunk("one"), writeTask("1"), recordingCallback("1"));
    // An idle queue starts the task before perform returns.
    EXPECT_EQ(m_events, std::vector<std::string>({"start 1"}));
    queue.perform(chunk("two"), writeTask("2"), recordingCallback("2"));
    queue.perform(chunk("three"), writeTask("3"), recordingCallback("3"));
    EXPECT_EQ(m_events.size(), 1u);

    ASSERT_TRUE(runUntil([&] { return m_events.size() == 6; }));
    EXPECT_EQ(m_events, std::vector<std::string>({"start 1", "done 1 3", "start 2", "done 2 3", "start 3", "done 3 5"}));
    EXPECT_EQ(readAvailable(), "onetwothree");
    EXPECT_TRUE(m_capture.contains(log4cplus::TRACE_LOG_LEVEL, "weakOperation = (use_count=1, ptr=0x"));
}

TEST_F(OperationQueueTest, SynchronousCompletionsStartTheNextOperationInsideTheChain)
{
    Queue queue;
    const auto immediate = [this](const std::string& label) {
        return [this, label](Queue::SharedData, Callback callback) {
            m_events.push_back("start " + label);
            callback(boost::system::error_code(), 0);
        };
    };
    queue.perform(chunk("a"), immediate("1"), recordingCallback("1"));
    queue.perform(chunk("b"), immediate("2"), recordingCallback("2"));
    EXPECT_EQ(m_events, std::vector<std::string>({"start 1", "done 1 0", "start 2", "done 2 0"}));
}

TEST_F(OperationQueueTest, FinishedOperationLetsGoOfItsDataBeforeTheNextOneStarts)
{
    Queue queue;
    auto first = chunk("a");
    std::weak_ptr<Chunk> weakFirst = first;
    Callback pending;
    bool wasFirstReleased = false;
    queue.perform(
        std::move(first), [&](Queue::SharedData, Callback callback) { pending = std::move(callback); }, recordingCallback("1"));
    queue.perform(
        chunk("b"),
        [&](Queue::SharedData, Callback callback) {
            wasFirstReleased = weakFirst.expired();
            callback(boost::system::error_code(), 2);
        },
        recordingCallback("2"));
    // The transfer still holds its completion, yet the next transfer, which starts and ends
    // inside this call, finds the first one's data gone.
    pending(boost::system::error_code(), 1);
    EXPECT_TRUE(wasFirstReleased);
    EXPECT_EQ(m_events, std::vector<std::string>({"done 1 1", "done 2 2"}));
}

TEST_F(OperationQueueTest, ClearDropsWaitingOperationsButNotTheRunningOne)
{
    Queue queue;
    auto second = chunk("two");
    std::weak_ptr<Chunk> weakSecond = second;
    queue.perform(chunk("one"), writeTask("1"), recordingCallback("1"));
    queue.perform(std::move(second), writeTask("2"), recordingCallback("2"));
    queue.perform(chunk("three"), writeTask("3"), recordingCallback("3"));

    queue.clear();
    EXPECT_TRUE(weakSecond.expired()) << "a dropped operation releases its data";
    ASSERT_TRUE(runUntil([&] { return m_events.size() == 2; }));
    runUntil([] { return false; }, std::chrono::milliseconds(50));
    EXPECT_EQ(m_events, std::vector<std::string>({"start 1", "done 1 3"}));
    EXPECT_EQ(readAvailable(), "one");
    EXPECT_TRUE(queue.isEnabled());

    // The queue is idle again afterwards.
    queue.perform(chunk("four"), writeTask("4"), recordingCallback("4"));
    ASSERT_TRUE(runUntil([&] { return m_events.size() == 4; }));
    EXPECT_EQ(readAvailable(), "four");
}

TEST_F(OperationQueueTest, DisabledQueueIgnoresNewOperationsAndFinishesTheRunningOne)
{
    Queue queue;
    queue.perform(chunk("one"), writeTask("1"), recordingCallback("1"));
    queue.perform(chunk("two"), writeTask("2"), recordingCallback("2"));
    queue.disable();
    EXPECT_FALSE(queue.isEnabled());
    queue.perform(chunk("three"), writeTask("3"), recordingCallback("3"));

    ASSERT_TRUE(runUntil([&] { return m_events.size() == 2; }));
    runUntil([] { return false; }, std::chrono::milliseconds(50));
    EXPECT_EQ(m_events, std::vector<std::string>({"start 1", "done 1 3"}));

    Queue fresh;
    fresh.disable();
    fresh.perform(chunk("x"), writeTask("x"), recordingCallback("x"));
    EXPECT_EQ(m_events.size(), 2u);
    EXPECT_FALSE(fresh.isEnabled());
}

TEST_F(OperationQueueTest, DestroyedQueueKeepsDataUntilThePendingTransferEnds)
{
    auto queue = std::make_unique<Queue>();
    auto data = chunk(std::string(8, '\0'));
    std::weak_ptr<Chunk> weakData = data;
    bool called = false;
    // A read that stays pending until the peer writes.
    queue->perform(
        std::move(data),
        [this](Queue::SharedData buffer, Callback callback) {
            boost::asio::async_read(m_reader, boost::asio::buffer(buffer->bytes), callback);
        },
        [&called](const boost::system::error_code&, unsigned long) { called = true; });
    queue->perform(chunk("never"), writeTask("2"), recordingCallback("2"));

    queue.reset();
    EXPECT_FALSE(weakData.expired()) << "the pending read still writes into the data";
    boost::asio::write(m_writer, boost::asio::buffer(std::string("12345678")));
    ASSERT_TRUE(runUntil([&] { return weakData.expired(); }));
    EXPECT_FALSE(called);
    EXPECT_TRUE(m_events.empty());
}

TEST_F(OperationQueueTest, CallbackMayDestroyItsOwnQueue)
{
    auto queue = std::make_unique<Queue>();
    auto data = chunk("one");
    std::weak_ptr<Chunk> weakData = data;
    queue->perform(std::move(data), writeTask("1"), [&](const boost::system::error_code&, unsigned long) {
        m_events.push_back("done 1");
        queue.reset();
        EXPECT_FALSE(weakData.expired()) << "the data outlives the callback";
    });
    queue->perform(chunk("two"), writeTask("2"), recordingCallback("2"));

    ASSERT_TRUE(runUntil([&] { return queue == nullptr; }));
    runUntil([] { return false; }, std::chrono::milliseconds(50));
    EXPECT_EQ(m_events, std::vector<std::string>({"start 1", "done 1"}));
    EXPECT_TRUE(weakData.expired());
    EXPECT_EQ(readAvailable(), "one");
}

TEST_F(OperationQueueTest, EmptyTaskThrowsBadFunctionCall)
{
    Queue queue;
    EXPECT_THROW(queue.perform(chunk("x"), Queue::Task(), recordingCallback("x")), std::bad_function_call);
}

} // namespace

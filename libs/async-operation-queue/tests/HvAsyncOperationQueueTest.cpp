#include "HvAsyncOperationQueue.h"

#include <boost/system/error_code.hpp>

#include <gtest/gtest.h>

#include <deque>

using Callback = std::function<void(const boost::system::error_code&, unsigned long)>;
using Queue = Hv::Async::OperationQueue<std::string, Callback>;
using Events = std::vector<std::string>;

// Transfers that end only when the test completes them, so that every interleaving is chosen.
class OperationQueueTest : public ::testing::Test {
protected:
    // Queues a transfer of `label`; `then` runs after its callback has recorded it.
    std::weak_ptr<std::string> perform(const std::string& label, std::function<void()> then = [] {})
    {
        auto data = std::make_shared<std::string>(label);
        m_queue->perform(
            data,
            [this](Queue::SharedData data, Callback done) {
                m_events.push_back("start " + *data);
                m_pending.push_back(std::move(done));
            },
            [this, label, then](const boost::system::error_code&, unsigned long bytes) {
                m_events.push_back("done " + label + " " + std::to_string(bytes));
                then();
            });
        return data;
    }

    // Ends the oldest pending transfer.
    void complete(unsigned long bytes)
    {
        Callback done = std::move(m_pending.front());
        m_pending.pop_front();
        done({}, bytes);
    }

    std::unique_ptr<Queue> m_queue = std::make_unique<Queue>();
    Events m_events;
    std::deque<Callback> m_pending;
};

TEST_F(OperationQueueTest, ClearDropsTheWaitingAndDisableAlsoTheFuture)
{
    perform("1");
    const auto dropped = perform("2");
    m_queue->clear();
    EXPECT_TRUE(dropped.expired());
    complete(1);
    perform("3");
    perform("4");
    m_queue->disable();
    perform("5");
    complete(3);
    EXPECT_EQ(m_events, (Events{"start 1", "done 1 1", "start 3", "done 3 3"}));
    EXPECT_TRUE(m_pending.empty());
}

TEST_F(OperationQueueTest, CompletionAfterTheQueueIsGoneTouchesNothing)
{
    const auto data = perform("1");
    perform("2");
    m_queue.reset();
    EXPECT_FALSE(data.expired()) << "the pending transfer still writes into its data";
    complete(1);
    EXPECT_TRUE(data.expired());

    // The callback of the running transfer destroys its own queue.
    m_queue = std::make_unique<Queue>();
    perform("3", [&] { m_queue.reset(); });
    perform("4");
    complete(3);
    EXPECT_EQ(m_events, (Events{"start 1", "start 3", "done 3 3"}));
    EXPECT_TRUE(m_pending.empty());
}

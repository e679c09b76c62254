#include "HvAsyncOperationQueue.h"

#include <boost/system/error_code.hpp>

#include <gtest/gtest.h>

#include <deque>

using Callback = std::function<void(const boost::system::error_code&, unsigned long)>;
using Queue = Hv::Async::OperationQueue<std::string, Callback>;

// Transfers that end only when the test completes them, so that every interleaving is chosen.
class OperationQueueTest : public ::testing::Test {
protected:
    // Queues a transfer of `label`: an immediate one completes inside its task; `then` runs
    // after its callback has recorded it.
    std::weak_ptr<std::string> perform(Queue& queue, const std::string& label, bool immediate = false,
                                       std::function<void()> then = [] {})
    {
        auto data = std::make_shared<std::string>(label);
        queue.perform(
            data,
            [this, immediate](Queue::SharedData data, Callback done) {
                m_events.push_back("start " + *data);
                immediate ? done({}, 0) : m_pending.push_back(std::move(done));
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

    std::vector<std::string> m_events;
    std::deque<Callback> m_pending;
};

TEST_F(OperationQueueTest, RunsOneAtATimeInCallOrder)
{
    Queue queue;
    perform(queue, "1");
    perform(queue, "2", true);
    perform(queue, "3", true);
    perform(queue, "4");
    EXPECT_EQ(m_events, std::vector<std::string>{"start 1"});
    // Transfers that complete at once start the next one from inside the chain.
    complete(7);
    EXPECT_EQ(m_events, (std::vector<std::string>{"start 1", "done 1 7", "start 2", "done 2 0", "start 3", "done 3 0",
                                                  "start 4"}));
    complete(9);
    EXPECT_EQ(m_events.back(), "done 4 9");
    EXPECT_TRUE(m_pending.empty());
}

TEST_F(OperationQueueTest, ClearDropsTheWaitingAndDisableAlsoTheFuture)
{
    Queue queue;
    perform(queue, "1");
    const auto dropped = perform(queue, "2");
    queue.clear();
    EXPECT_TRUE(dropped.expired());
    complete(1);
    perform(queue, "3");
    perform(queue, "4");
    queue.disable();
    perform(queue, "5");
    complete(3);
    EXPECT_EQ(m_events, (std::vector<std::string>{"start 1", "done 1 1", "start 3", "done 3 3"}));
    EXPECT_TRUE(m_pending.empty());
    EXPECT_FALSE(queue.isEnabled());
}

TEST_F(OperationQueueTest, CompletionAfterTheQueueIsGoneTouchesNothing)
{
    auto queue = std::make_unique<Queue>();
    const auto data = perform(*queue, "1");
    perform(*queue, "2");
    queue.reset();
    EXPECT_FALSE(data.expired()) << "the pending transfer still writes into its data";
    complete(1);
    EXPECT_TRUE(data.expired());

    // The callback of the running transfer destroys its own queue.
    queue = std::make_unique<Queue>();
    perform(*queue, "3", false, [&] { queue.reset(); });
    perform(*queue, "4");
    complete(3);
    EXPECT_EQ(m_events, (std::vector<std::string>{"start 1", "start 3", "done 3 3"}));
    EXPECT_TRUE(m_pending.empty());
}

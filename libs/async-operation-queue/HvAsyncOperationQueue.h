#pragma once

// Runs asynchronous transfers on one stream strictly one after another: a framed transfer is
// several socket calls whose bytes must not interleave with those of another transfer.
// All calls and all completions belong to the one thread that runs the event loop.

#include <log4cplus/streams.h>

#include <cstddef>
#include <functional>
#include <list>
#include <memory>

namespace Hv::Async {

template <typename DATA, typename CB>
class OperationQueue {
public:
    using SharedData = std::shared_ptr<DATA>;
    // Starts one transfer of the data; must arrange that the CB it gets is called once, at the end.
    using Task = std::function<void(SharedData, CB)>;

    class Operation {
    public:
        using Shared = std::shared_ptr<Operation>;
        using Weak = std::weak_ptr<Operation>;

        Operation(SharedData data, Task task);
        // Never calls the callback.
        ~Operation();
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

        void setCallback(CB callback);
        // An empty task throws std::bad_function_call.
        void perform();

        // "(use_count=N, ptr=0x...)", for trace lines.
        friend log4cplus::tostream& operator<<(log4cplus::tostream& stream, const Weak& operation)
        {
            return stream << LOG4CPLUS_TEXT("(use_count=") << operation.use_count() << LOG4CPLUS_TEXT(", ptr=")
                           << static_cast<const void*>(operation.lock().get()) << LOG4CPLUS_TEXT(")");
        }

    private:
        SharedData m_data;
        Task m_task;
        CB m_callback;
    };

    OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    // Queues the transfer and starts it at once when the queue is idle. A disabled queue drops
    // the request silently: neither the task nor the callback runs.
    void perform(SharedData data, Task task, CB callback);
    // Queues the transfer behind the others without starting anything. The stored callback is a
    // wrapper that calls `callback` only while the operation still exists, then starts the next one.
    template <typename R, typename... ARGS>
    void push(SharedData data, Task task, std::function<R(ARGS...)> callback);
    // Starts the oldest waiting operation when none is running.
    void continuePerforming();
    // Drops the waiting operations without calling them back; the running one goes on.
    void clear();
    // clear() for good: later perform() calls are ignored.
    void disable();
    bool isEnabled() const;

private:
    // The completion wrapper that push() stores in an operation: holds the operation weakly (the
    // operation stores the wrapper) and the data strongly (the transfer writes into it until it
    // completes, whatever happens to the queue).
    template <typename R, typename... ARGS>
    class Completion {
    public:
        Completion(OperationQueue* queue, typename Operation::Weak weakOperation, SharedData data,
                   std::function<R(ARGS...)> callback);

        R operator()(ARGS... args);

    private:
        // Called once the transfer is over and the queue still exists.
        void finish();

        OperationQueue* m_owner;
        typename Operation::Weak m_weakOperation;
        SharedData m_data;
        std::function<R(ARGS...)> m_callback;
    };

    std::list<typename Operation::Shared> m_queue;
    typename Operation::Shared m_currentOperation;
    bool m_isEnabled;
};

} // namespace Hv::Async

#include "HvAsyncOperationQueue.ipp"

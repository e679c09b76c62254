#pragma once

#include "HvTrace.h"

#include <utility>

namespace Hv::Async {

template <typename DATA, typename CB>
OperationQueue<DATA, CB>::Operation::Operation(SharedData data, Task task)
    : m_data(std::move(data))
    , m_task(std::move(task))
{
    HV_TRACE(m_data);
}

template <typename DATA, typename CB>
OperationQueue<DATA, CB>::Operation::~Operation() = default;

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::Operation::setCallback(CB callback)
{
    m_callback = std::move(callback);
}

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::Operation::perform()
{
    // A task may complete synchronously, and the completion releases this operation: run a copy.
    const Task task = m_task;
    task(m_data, m_callback);
}

template <typename DATA, typename CB>
OperationQueue<DATA, CB>::OperationQueue()
    : m_isEnabled(true)
{
    HV_TRACE();
}

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::perform(SharedData data, Task task, CB callback)
{
    HV_TRACE(data, m_queue.size(), m_isEnabled);
    if (!m_isEnabled)
        return;
    push(std::move(data), std::move(task), std::move(callback));
    continuePerforming();
}

template <typename DATA, typename CB>
template <typename R, typename... ARGS>
void OperationQueue<DATA, CB>::push(SharedData data, Task task, std::function<R(ARGS...)> callback)
{
    HV_TRACE(data);
    const auto operation = std::make_shared<Operation>(data, std::move(task));
    // The wrapper holds its operation weakly (the operation stores the wrapper) and the data
    // strongly (the transfer writes into it until it completes, whatever happens to the queue).
    typename Operation::Weak weakOperation = operation;
    OperationQueue* queue = this;
    operation->setCallback([queue, weakOperation, data, callback = std::move(callback)](ARGS... args) -> R {
        HV_TRACE_WITH(LOG4CPLUS_TEXT("[this = ") << static_cast<const void*>(queue), weakOperation, data);
        // Expired: the queue and its stream went away while the transfer was pending.
        if (weakOperation.expired())
            return R();
        if constexpr (std::is_void_v<R>) {
            callback(args...);
            // The callback may have destroyed the queue.
            if (weakOperation.expired())
                return;
            queue->m_currentOperation.reset();
            queue->continuePerforming();
        } else {
            R result = callback(args...);
            if (weakOperation.expired())
                return result;
            queue->m_currentOperation.reset();
            queue->continuePerforming();
            return result;
        }
    });
    m_queue.push_back(operation);
}

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::continuePerforming()
{
    HV_TRACE(m_queue.size());
    if (m_currentOperation || m_queue.empty())
        return;
    m_currentOperation = m_queue.front();
    m_queue.pop_front();
    m_currentOperation->perform();
}

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::clear()
{
    HV_TRACE();
    if (!m_queue.empty())
        m_queue.clear();
}

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::disable()
{
    HV_TRACE();
    clear();
    m_isEnabled = false;
}

template <typename DATA, typename CB>
bool OperationQueue<DATA, CB>::isEnabled() const
{
    HV_TRACE(m_isEnabled);
    return m_isEnabled;
}

} // namespace Hv::Async

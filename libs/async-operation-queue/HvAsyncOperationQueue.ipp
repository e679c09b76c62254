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
    // An operation runs once. A task may complete synchronously, and the completion releases
    // this operation: the task is taken out of it before it runs.
    const Task task = std::move(m_task);
    task(m_data, std::move(m_callback));
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
    auto operation = std::make_shared<Operation>(data, std::move(task));
    typename Operation::Weak weakOperation = operation;
    operation->setCallback(Completion<R, ARGS...>(this, std::move(weakOperation), std::move(data), std::move(callback)));
    m_queue.push_back(std::move(operation));
}

template <typename DATA, typename CB>
template <typename R, typename... ARGS>
OperationQueue<DATA, CB>::Completion<R, ARGS...>::Completion(OperationQueue* queue, typename Operation::Weak weakOperation,
                                                            SharedData data, std::function<R(ARGS...)> callback)
    : m_owner(queue)
    , m_weakOperation(std::move(weakOperation))
    , m_data(std::move(data))
    , m_callback(std::move(callback))
{
}

template <typename DATA, typename CB>
template <typename R, typename... ARGS>
R OperationQueue<DATA, CB>::Completion<R, ARGS...>::operator()(ARGS... args)
{
    const typename Operation::Weak& weakOperation = m_weakOperation;
    const SharedData& data = m_data;
    HV_TRACE_WITH(LOG4CPLUS_TEXT("[this = ") << static_cast<const void*>(m_owner), weakOperation, data);
    // Expired: the queue and its stream went away while the transfer was pending.
    if (weakOperation.expired())
        return R();
    if constexpr (std::is_void_v<R>) {
        m_callback(args...);
        // The callback may have destroyed the queue.
        if (weakOperation.expired())
            return;
        finish();
    } else {
        R result = m_callback(args...);
        if (weakOperation.expired())
            return result;
        finish();
        return result;
    }
}

template <typename DATA, typename CB>
template <typename R, typename... ARGS>
void OperationQueue<DATA, CB>::Completion<R, ARGS...>::finish()
{
    // The next transfer may run to its end within this call (a task that completes at once):
    // the finished one lets go of its data and callback first.
    m_data.reset();
    m_callback = nullptr;
    m_owner->m_currentOperation.reset();
    m_owner->continuePerforming();
}

template <typename DATA, typename CB>
void OperationQueue<DATA, CB>::continuePerforming()
{
    HV_TRACE(m_queue.size());
    if (m_currentOperation || m_queue.empty())
        return;
    m_currentOperation = std::move(m_queue.front());
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

#pragma once

#include "HvTrace.h"

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <sstream>
#include <stdexcept>
#include <utility>

namespace Hv::Util {

inline std::string streamName(StreamType type, const std::string& suffix)
{
    HV_TRACE_FREE(static_cast<int>(type), suffix);
    std::ostringstream name;
    switch (type) {
    case StreamType::In:
        name << "in";
        break;
    case StreamType::Out:
        name << "out";
        break;
    case StreamType::Error:
        name << "error";
        break;
    }
    name << '-' << suffix;
    return name.str();
}

} // namespace Hv::Util

namespace Hv::Async::AppStream {

namespace Detail {

// Reads all it is given, like boost::asio::transfer_all, and notes on the frame how many of its
// bytes have arrived after every piece.
struct CountArrivals {
    Buffer* frame;
    std::size_t before;

    std::size_t operator()(const boost::system::error_code& error, std::size_t transferred) const
    {
        frame->setReceivedLength(before + transferred);
        return boost::asio::transfer_all()(error, transferred);
    }
};

} // namespace Detail

template <typename STREAM>
Base<STREAM>::Base(STREAM&& stream, const std::string& name)
    : m_stream(std::move(stream))
    , m_name(name)
{
    HV_TRACE(m_stream.native_handle(), m_name);
}

template <typename STREAM>
Base<STREAM>::~Base()
{
    HV_TRACE(name());
}

template <typename STREAM>
const std::string& Base<STREAM>::name() const
{
    return m_name;
}

template <typename STREAM>
void Base<STREAM>::asyncRead(Buffer::Shared buffer, Callback callback)
{
    HV_TRACE(this->name(), buffer);
    Buffer* const frame = buffer.get();
    Queue* queue = readQueue();
    // Both steps of one frame are queued back to back, so a later read queues behind them. When
    // the length fails, the subscriber is expected to drop the message step (close or disable).
    queue->perform(
        buffer,
        [this](Buffer::Shared buffer, OperationCallback completion) {
            HV_TRACE(this->name(), buffer);
            boost::asio::async_read(m_stream, buffer->lengthBuffer(), Detail::CountArrivals{buffer.get(), 0},
                                    std::move(completion));
        },
        // The queue calls a completion only while it holds the buffer: a plain pointer suffices
        // and keeps the callback small enough to need no allocation of its own.
        [this, buffer = frame](const boost::system::error_code& error, unsigned long length) {
            HV_TRACE(this->name(), error, length, buffer->isLengthValid());
            if (!error && buffer->isLengthValid())
                return;
            HV_LOG_ERROR("Error while reading length in " << this->name() << RawBytes{buffer->lengthBuffer()});
            handleError();
        });
    queue->perform(
        std::move(buffer),
        [this](Buffer::Shared buffer, OperationCallback completion) {
            HV_TRACE(this->name(), buffer);
            // In pieces of at most 64 KiB, into a payload that grows with them.
            boost::asio::async_read(m_stream, buffer->messageBuffer(),
                                    Detail::CountArrivals{buffer.get(), buffer->lengthBuffer().size()},
                                    std::move(completion));
        },
        [this, buffer = frame, callback = std::move(callback)](const boost::system::error_code& error, unsigned long length) {
            HV_TRACE(this->name(), error, length);
            if (error) {
                HV_LOG_ERROR("Error while reading message in " << this->name() << RawBytes{buffer->payload()});
                handleError();
                return;
            }
            callback();
        });
}

template <typename STREAM>
void Base<STREAM>::asyncWrite(Buffer::Shared buffer, Callback callback)
{
    HV_TRACE(this->name(), buffer);
    writeQueue()->perform(
        std::move(buffer),
        [this](Buffer::Shared buffer, OperationCallback completion) {
            HV_TRACE(this->name(), buffer);
            // One gathered write of the length field and the payload pieces; nothing is copied.
            boost::asio::async_write(m_stream, buffer->data(), std::move(completion));
        },
        [this, callback = std::move(callback)](const boost::system::error_code& error, unsigned long length) {
            HV_TRACE(this->name(), error, length);
            if (error) {
                handleError();
                return;
            }
            callback();
        });
}

template <typename STREAM>
void Base<STREAM>::onError(Callback callback)
{
    HV_TRACE(name(), (callback == nullptr));
    m_onError = std::move(callback);
}

template <typename STREAM>
void Base<STREAM>::handleError()
{
    HV_TRACE(name());
    HV_LOG_ERROR("Error in " << m_name);
    fireOnError();
}

template <typename STREAM>
void Base<STREAM>::fireOnError()
{
    HV_TRACE(name());
    if (!m_onError)
        return;
    // One-shot: the subscriber may release this stream, so nothing is touched after the call.
    Callback callback = std::move(m_onError);
    m_onError = nullptr;
    callback();
}

template <typename STREAM>
void Base<STREAM>::close()
{
    HV_TRACE(name());
    boost::system::error_code error;
    m_stream.close(error);
    if (error)
        HV_LOG_WARN("Error " << error << " on closing in " << m_name);
}

template <typename STREAM>
void Base<STREAM>::disable()
{
    HV_TRACE(name());
    disableQueues();
}

template <typename STREAM>
Duplex<STREAM>::Duplex(STREAM&& stream, const std::string& name)
    : Base<STREAM>(std::move(stream), name)
{
}

template <typename STREAM>
typename Duplex<STREAM>::Queue* Duplex<STREAM>::readQueue()
{
    return &m_readQueue;
}

template <typename STREAM>
typename Duplex<STREAM>::Queue* Duplex<STREAM>::writeQueue()
{
    return &m_writeQueue;
}

template <typename STREAM>
void Duplex<STREAM>::clearQueues()
{
    m_readQueue.clear();
    m_writeQueue.clear();
}

template <typename STREAM>
void Duplex<STREAM>::disableQueues()
{
    m_readQueue.disable();
    m_writeQueue.disable();
}

template <typename STREAM>
bool Duplex<STREAM>::areQueuesEnabled() const
{
    return m_readQueue.isEnabled() && m_writeQueue.isEnabled();
}

template <typename STREAM>
Out<STREAM>::Out(STREAM&& stream, const std::string& name)
    : Base<STREAM>(std::move(stream), name)
{
}

template <typename STREAM>
typename Out<STREAM>::Queue* Out<STREAM>::readQueue()
{
    return &m_readQueue;
}

template <typename STREAM>
typename Out<STREAM>::Queue* Out<STREAM>::writeQueue()
{
    HV_LOG_FATAL("No write queue in OUT app stream");
    throw std::runtime_error("No write queue in OUT stream");
}

template <typename STREAM>
void Out<STREAM>::clearQueues()
{
    m_readQueue.clear();
}

template <typename STREAM>
void Out<STREAM>::disableQueues()
{
    m_readQueue.disable();
}

template <typename STREAM>
bool Out<STREAM>::areQueuesEnabled() const
{
    return m_readQueue.isEnabled();
}

template <typename STREAM>
In<STREAM>::In(STREAM&& stream, const std::string& name)
    : Base<STREAM>(std::move(stream), name)
{
}

template <typename STREAM>
typename In<STREAM>::Queue* In<STREAM>::readQueue()
{
    HV_LOG_FATAL("No read queue in IN app stream");
    throw std::runtime_error("No read queue in IN stream");
}

template <typename STREAM>
typename In<STREAM>::Queue* In<STREAM>::writeQueue()
{
    return &m_writeQueue;
}

template <typename STREAM>
void In<STREAM>::clearQueues()
{
    m_writeQueue.clear();
}

template <typename STREAM>
void In<STREAM>::disableQueues()
{
    m_writeQueue.disable();
}

template <typename STREAM>
bool In<STREAM>::areQueuesEnabled() const
{
    return m_writeQueue.isEnabled();
}

template <typename T>
typename T::Shared create(boost::asio::io_context& ioContext,
                          boost::asio::posix::stream_descriptor::native_handle_type handle,
                          const std::string& name)
{
    HV_TRACE_FREE(handle, name);
    boost::asio::posix::stream_descriptor descriptor(ioContext);
    boost::system::error_code error;
    descriptor.assign(handle, error);
    if (error)
        HV_LOG_ERROR("Error " << error << " on assigning in " << name);
    return std::make_shared<T>(std::move(descriptor), name);
}

} // namespace Hv::Async::AppStream

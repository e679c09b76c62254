#pragma once

// Framed asynchronous streams over a local stream socket or a POSIX descriptor. Reads go through
// a read queue and writes through a write queue, so transfers never interleave. The first
// failure is reported once to the error subscriber; nothing is retried.
//
// Classes are named from the peer's side: an Out stream carries what the peer outputs (this
// process only reads it), an In stream carries the peer's input (this process only writes it).

#include "HvAsyncAppStreamBuffer.h"
#include "HvAsyncOperationQueue.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/system/error_code.hpp>

#include <functional>
#include <memory>
#include <string>

namespace Hv::Util {

// The standard stream a name stands for: 0 standard input, 1 output, 2 error.
enum class StreamType { In = 0, Out = 1, Error = 2 };

// "in-", "out-" or "error-" followed by the suffix; "-" and the suffix for any other type.
std::string streamName(StreamType type, const std::string& suffix);

} // namespace Hv::Util

namespace Hv::Async::AppStream {

template <typename STREAM>
class Base {
public:
    using Shared = std::shared_ptr<Base>;
    using Callback = std::function<void()>;
    using OperationCallback = std::function<void(const boost::system::error_code&, unsigned long)>;
    using Queue = Hv::Async::OperationQueue<Buffer, OperationCallback>;

    Base(STREAM&& stream, const std::string& name);
    virtual ~Base();
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;

    virtual Queue* readQueue() = 0;
    virtual Queue* writeQueue() = 0;
    virtual void clearQueues() = 0;
    virtual void disableQueues() = 0;
    virtual bool areQueuesEnabled() const = 0;

    const std::string& name() const;
    // Fills the buffer with one frame; the callback runs only on success.
    void asyncRead(Buffer::Shared buffer, Callback callback);
    // Writes the buffer's frame in one gathered write; the callback runs only on success.
    void asyncWrite(Buffer::Shared buffer, Callback callback);
    // The subscriber is called at most once, at the next failure; empty unsubscribes.
    void onError(Callback callback);
    void handleError();
    void fireOnError();
    // Closes the socket or descriptor; pending transfers then fail. Failures are only logged.
    void close();
    // Drops waiting transfers and refuses new ones for good.
    void disable();

protected:
    STREAM m_stream;
    std::string m_name;
    Callback m_onError;
};

// Reads and writes.
template <typename STREAM>
class Duplex : public Base<STREAM> {
public:
    using Shared = std::shared_ptr<Duplex>;
    using Queue = typename Base<STREAM>::Queue;

    Duplex(STREAM&& stream, const std::string& name);

    Queue* readQueue() override;
    Queue* writeQueue() override;
    void clearQueues() override;
    void disableQueues() override;
    bool areQueuesEnabled() const override;

private:
    Queue m_readQueue;
    Queue m_writeQueue;
};

// Read only: what the peer outputs.
template <typename STREAM>
class Out : public Base<STREAM> {
public:
    using Shared = std::shared_ptr<Out>;
    using Queue = typename Base<STREAM>::Queue;

    Out(STREAM&& stream, const std::string& name);

    Queue* readQueue() override;
    // Writing to an Out stream is a programming error: FATAL line and std::runtime_error.
    Queue* writeQueue() override;
    void clearQueues() override;
    void disableQueues() override;
    bool areQueuesEnabled() const override;

private:
    Queue m_readQueue;
};

// Write only: the peer's input.
template <typename STREAM>
class In : public Base<STREAM> {
public:
    using Shared = std::shared_ptr<In>;
    using Queue = typename Base<STREAM>::Queue;

    In(STREAM&& stream, const std::string& name);

    // Reading from an In stream is a programming error: FATAL line and std::runtime_error.
    Queue* readQueue() override;
    Queue* writeQueue() override;
    void clearQueues() override;
    void disableQueues() override;
    bool areQueuesEnabled() const override;

private:
    Queue m_writeQueue;
};

// A stream of type T (Out or In over a POSIX descriptor) on an existing descriptor. A handle
// that cannot be assigned is logged and still yields a stream, whose transfers then fail.
template <typename T>
typename T::Shared create(boost::asio::io_context& ioContext,
                          boost::asio::posix::stream_descriptor::native_handle_type handle,
                          const std::string& name);

} // namespace Hv::Async::AppStream

#include "HvAsyncAppStream.ipp"

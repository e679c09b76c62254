#pragma once

// The socket calls behind the transfer steps of the app streams. A step that the queue starts
// from the completion of the step before it (a frame's message after its length, the next
// frame's length after a message, the next write after a write) first tries the socket at once
// and, when the bytes are there, completes on the spot instead of by a round trip through the
// event loop. Any other outcome - nothing there yet, a partial transfer, an error, the end of
// the stream - goes the asynchronous way, so transfer errors always arrive from the event loop.

#include "HvAsyncAppStreamBuffer.h"

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/error_code.hpp>

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Hv::Async::AppStream::Detail {

// A transfer step is started from the completion of the step before it: telling asio so lets
// it queue the result on the running thread without taking the event loop's lock.
template <typename Handler>
struct Continuation {
    Handler handler;

    void operator()(const boost::system::error_code& error, std::size_t length) { handler(error, length); }

    friend bool asio_handler_is_continuation(Continuation*) { return true; }
};

template <typename Handler>
Continuation(Handler) -> Continuation<Handler>;

template <typename STREAM>
struct IsStreamSocket : std::false_type {};

template <typename Protocol, typename Executor>
struct IsStreamSocket<boost::asio::basic_stream_socket<Protocol, Executor>> : std::true_type {};

// Completions run on the spot and still running on this thread. Past the limit a step goes
// through the event loop, which unwinds the stack and lets other handlers have their turn.
inline thread_local unsigned inlineDepth = 0;
inline constexpr unsigned MAX_INLINE_DEPTH = 8;
// Set while asyncRead or asyncWrite queue their steps: their callers never see a callback run
// before the call returns, and asyncRead may touch its stream between its two steps.
inline thread_local bool isQueueing = false;

class QueueingScope {
public:
    QueueingScope()
        : m_wasQueueing(isQueueing)
    {
        isQueueing = true;
    }
    ~QueueingScope() { isQueueing = m_wasQueueing; }
    QueueingScope(const QueueingScope&) = delete;
    QueueingScope& operator=(const QueueingScope&) = delete;

private:
    bool m_wasQueueing;
};

inline bool mayCompleteInline()
{
    return !isQueueing && inlineDepth < MAX_INLINE_DEPTH;
}

// Calls the completion on the spot; nothing after the call touches the stream, which the
// completion may have released.
template <typename Completion>
void completeInline(Completion& completion, std::size_t length)
{
    struct Depth {
        Depth() { ++inlineDepth; }
        ~Depth() { --inlineDepth; }
    } depth;
    completion(boost::system::error_code(), length);
}

// Reads exactly the bytes of `target` and then calls the completion with the count.
template <typename STREAM, typename Completion>
void readExactly(STREAM& stream, boost::asio::mutable_buffer target, Completion completion)
{
    if constexpr (IsStreamSocket<STREAM>::value) {
        if (target.size() > 0 && mayCompleteInline()) {
            const ssize_t got = ::recv(stream.native_handle(), target.data(), target.size(), MSG_DONTWAIT);
            if (got > 0) {
                const auto done = static_cast<std::size_t>(got);
                if (done == target.size()) {
                    completeInline(completion, done);
                    return;
                }
                boost::asio::async_read(stream, target + done,
                                        Continuation{[done, completion = std::move(completion)](
                                                         const boost::system::error_code& error, std::size_t length) {
                                            completion(error, done + length);
                                        }});
                return;
            }
        }
    }
    boost::asio::async_read(stream, target, Continuation{std::move(completion)});
}

// Writes all the pieces in one gathered write and then calls the completion with the count.
template <typename STREAM, typename Completion>
void writeAll(STREAM& stream, const FrameBuffers& pieces, Completion completion)
{
    if constexpr (IsStreamSocket<STREAM>::value) {
        if (mayCompleteInline()) {
            std::array<iovec, FrameBuffers::CAPACITY> vectors;
            std::size_t count = 0;
            for (const boost::asio::const_buffer& piece : pieces)
                vectors[count++] = iovec{const_cast<void*>(piece.data()), piece.size()};
            msghdr message{};
            message.msg_iov = vectors.data();
            message.msg_iovlen = count;
            int flags = MSG_DONTWAIT;
#ifdef MSG_NOSIGNAL
            flags |= MSG_NOSIGNAL;
#endif
            const ssize_t sent = ::sendmsg(stream.native_handle(), &message, flags);
            if (sent > 0) {
                const auto done = static_cast<std::size_t>(sent);
                if (done == pieces.bytes()) {
                    completeInline(completion, done);
                    return;
                }
                boost::asio::async_write(stream, pieces.after(done),
                                         Continuation{[done, completion = std::move(completion)](
                                                          const boost::system::error_code& error, std::size_t length) {
                                             completion(error, done + length);
                                         }});
                return;
            }
        }
    }
    boost::asio::async_write(stream, pieces, Continuation{std::move(completion)});
}

} // namespace Hv::Async::AppStream::Detail

#pragma once

// Framed access to the standard streams that the parent process set up: standard input is read
// (an Out stream), standard output and error are written (In streams). The parent keeps standard
// input open while it runs, so the first failure on input or output means it has gone: the pipe
// then stops all three streams and tells its subscriber once.

#include "HvAsyncAppStream.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <functional>
#include <memory>

namespace Hv::Async {

class ParentProcessPipe {
public:
    using Shared = std::shared_ptr<ParentProcessPipe>;
    using Descriptor = boost::asio::posix::stream_descriptor;
    using Out = AppStream::Out<Descriptor>;
    using In = AppStream::In<Descriptor>;
    using Callback = std::function<void()>;

    // Standard input: framed reads as on any Out stream, and reads that drop whatever arrives.
    class Input : public Out {
    public:
        using Shared = std::shared_ptr<Input>;
        using Out::Out;

        // Reads bytes, frames or not, and drops them until the stream ends or fails; that is
        // then reported as any failure. Queued behind the framed reads.
        void asyncDiscard();
    };

    // Takes descriptors 0, 1 and 2 themselves: destroying the pipe closes them.
    explicit ParentProcessPipe(boost::asio::io_context& ioContext);
    ~ParentProcessPipe();
    ParentProcessPipe(const ParentProcessPipe&) = delete;
    ParentProcessPipe& operator=(const ParentProcessPipe&) = delete;

    // Standard input, "in-<pid>".
    Out::Shared in() const;
    // Standard output, "out-<pid>".
    In::Shared out() const;
    // Standard error, "error-<pid>"; its failures are only logged.
    In::Shared error() const;

    // Watches standard input for its end only: what the parent writes is read and dropped.
    void watchInput();

    // Told once, from the event loop, after the first failure; never about an earlier one.
    void onAppStreamError(Callback callback);
    void handleAppStreamError();
    void fireOnAppStreamError();

private:
    void initAppStreams();

    boost::asio::io_context& m_ioContext;
    Input::Shared m_in;
    In::Shared m_out;
    In::Shared m_error;
    Callback m_onAppStreamError;
};

} // namespace Hv::Async

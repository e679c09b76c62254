#include "HvAsyncParentProcessPipe.h"

#include "HvTrace.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>

#include <unistd.h>

#include <array>
#include <string>

namespace Hv::Async {

void ParentProcessPipe::Input::asyncDiscard()
{
    HV_TRACE(name());
    readQueue()->perform(
        std::make_shared<AppStream::Buffer>(),
        [this](AppStream::Buffer::Shared, OperationCallback completion) {
            HV_TRACE(name());
            // The completion owns the bytes the read fills.
            auto bytes = std::make_shared<std::array<char, 4096>>();
            m_stream.async_read_some(boost::asio::buffer(*bytes),
                                     [bytes, completion = std::move(completion)](const boost::system::error_code& error,
                                                                                 std::size_t length) { completion(error, length); });
        },
        // Called only while the queue, and so this stream, exists.
        [this](const boost::system::error_code& error, unsigned long length) {
            HV_TRACE(name(), error, length);
            if (!error) {
                asyncDiscard();
                return;
            }
            HV_LOG_INFO("Error " << error << " while reading in " << name());
            handleError();
        });
}

ParentProcessPipe::ParentProcessPipe(boost::asio::io_context& ioContext)
    : m_ioContext(ioContext)
{
    HV_TRACE();
    initAppStreams();
    // Standard error has no subscriber on purpose: a failure there changes nothing.
    m_in->onError([this] { handleAppStreamError(); });
    m_out->onError([this] { handleAppStreamError(); });
}

ParentProcessPipe::~ParentProcessPipe()
{
    HV_TRACE();
    m_onAppStreamError = nullptr;
    // Somebody may still hold a stream: it must not call back into this object.
    m_in->onError(nullptr);
    m_out->onError(nullptr);
    m_in.reset();
    m_out.reset();
    m_error.reset();
}

ParentProcessPipe::Out::Shared ParentProcessPipe::in() const
{
    return m_in;
}

ParentProcessPipe::In::Shared ParentProcessPipe::out() const
{
    return m_out;
}

ParentProcessPipe::In::Shared ParentProcessPipe::error() const
{
    return m_error;
}

void ParentProcessPipe::watchInput()
{
    HV_TRACE();
    m_in->asyncDiscard();
}

void ParentProcessPipe::onAppStreamError(Callback callback)
{
    HV_TRACE();
    m_onAppStreamError = std::move(callback);
}

void ParentProcessPipe::handleAppStreamError()
{
    HV_TRACE();
    m_out->disable();
    m_in->disable();
    m_error->disable();
    fireOnAppStreamError();
}

void ParentProcessPipe::fireOnAppStreamError()
{
    HV_TRACE();
    if (!m_onAppStreamError)
        return;
    // Runs later from the loop, not inside the failing completion.
    boost::asio::post(m_ioContext, m_onAppStreamError);
    m_onAppStreamError = nullptr;
}

// Descriptors 0, 1 and 2 themselves, on Linux and macOS alike: destroying the pipe closes them.
void ParentProcessPipe::initAppStreams()
{
    HV_TRACE();
    const std::string pid = std::to_string(::getpid());
    m_in = AppStream::create<Input>(m_ioContext, STDIN_FILENO, Util::streamName(Util::StreamType::In, pid));
    m_out = AppStream::create<In>(m_ioContext, STDOUT_FILENO, Util::streamName(Util::StreamType::Out, pid));
    m_error = AppStream::create<In>(m_ioContext, STDERR_FILENO, Util::streamName(Util::StreamType::Error, pid));
}

} // namespace Hv::Async

#include "HvAsyncParentProcessPipe.h"

#include "HvTrace.h"

#include <boost/asio/post.hpp>

#include <unistd.h>

#include <string>

namespace Hv::Async {

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
    m_in = AppStream::create<Out>(m_ioContext, STDIN_FILENO, Util::streamName(Util::StreamType::In, pid));
    m_out = AppStream::create<In>(m_ioContext, STDOUT_FILENO, Util::streamName(Util::StreamType::Out, pid));
    m_error = AppStream::create<In>(m_ioContext, STDERR_FILENO, Util::streamName(Util::StreamType::Error, pid));
}

} // namespace Hv::Async

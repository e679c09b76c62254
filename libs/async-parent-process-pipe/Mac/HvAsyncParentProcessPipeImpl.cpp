#include "HvAsyncParentProcessPipe.h"

#include "HvTrace.h"

#include <unistd.h>

#include <string>

namespace Hv::Async {

void ParentProcessPipe::initAppStreams()
{
    HV_TRACE();
    const std::string pid = std::to_string(::getpid());
    m_in = AppStream::create<Out>(m_ioContext, STDIN_FILENO, Util::streamName(Util::StreamType::In, pid));
    m_out = AppStream::create<In>(m_ioContext, STDOUT_FILENO, Util::streamName(Util::StreamType::Out, pid));
    m_error = AppStream::create<In>(m_ioContext, STDERR_FILENO, Util::streamName(Util::StreamType::Error, pid));
}

} // namespace Hv::Async

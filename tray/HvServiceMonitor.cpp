#include "HvServiceMonitor.h"

#include "HvAsyncAppStreamBuffer.h"
#include "HvAsyncParentProcessPipe.h"
#include "HvSingleton.h"
#include "HvTrace.h"

#include <memory>
#include <utility>

namespace Hv {

ServiceMonitor::ServiceMonitor(boost::asio::io_context::executor_type executor, OnStop onStop)
    : m_executor(executor)
{
    HV_TRACE();
    auto pipe = Util::InitableSingleton<Async::ParentProcessPipe, boost::asio::io_context&>::create(
        static_cast<boost::asio::io_context&>(m_executor.context()));
    auto buffer = std::make_shared<Async::AppStream::Buffer>();
    // The read only makes the end of the parent's stream visible; whatever arrives is dropped.
    pipe->in()->asyncRead(buffer, [](auto&&...) {});
    pipe->onAppStreamError([onStop = std::move(onStop)]() {
        HV_LOG_INFO("parent process has stopped");
        onStop();
    });
}

} // namespace Hv

#include "HvServiceMonitor.h"

#include "HvAsyncParentProcessPipe.h"
#include "HvSingleton.h"
#include "HvTrace.h"

#include <csignal>
#include <memory>
#include <utility>

namespace Hv {

namespace {

struct Stop {
    ServiceMonitor::OnStop onStop;
    bool done;

    void once()
    {
        if (!std::exchange(done, true))
            onStop();
    }
};

const char* signalName(int number)
{
    switch (number) {
    case SIGTERM:
        return "SIGTERM";
    case SIGINT:
        return "SIGINT";
    case SIGHUP:
        return "SIGHUP";
    default:
        return "another signal";
    }
}

} // namespace

ServiceMonitor::ServiceMonitor(boost::asio::io_context::executor_type executor, OnStop onStop)
    : m_executor(executor)
{
    HV_TRACE();
    auto& ioContext = static_cast<boost::asio::io_context&>(m_executor.context());
    auto pipe = Util::InitableSingleton<Async::ParentProcessPipe, boost::asio::io_context&>::create(ioContext);
    // Whichever comes first, the end of the input or a signal, stops the application; once.
    auto stop = std::make_shared<Stop>(Stop{std::move(onStop), false});
    pipe->watchInput();
    pipe->onAppStreamError([stop]() {
        HV_LOG_INFO("parent process has stopped");
        stop->once();
    });

    // asio's own handler only records the signal; this one runs from the event loop like any other.
    m_signals = std::make_shared<boost::asio::signal_set>(ioContext, SIGTERM, SIGINT, SIGHUP);
    m_signals->async_wait([weakSignals = std::weak_ptr(m_signals), stop](const boost::system::error_code& error, int number) {
        const std::shared_ptr<boost::asio::signal_set> signals = weakSignals.lock();
        if (!signals || error)
            return;
        HV_LOG_INFO("stopping on " << signalName(number));
        // A second signal while stopping acts as it would without this handler.
        boost::system::error_code ignored;
        signals->clear(ignored);
        stop->once();
    });
}

} // namespace Hv

#include "HvTrayApplication.h"

#include "HvServiceStatus.h"
#include "HvSingleton.h"
#include "HvStatusMessageHandler.h"
#include "HvTrace.h"
#include "HvTrayIOService.h"

namespace Hv::Tray {

Async::LocalPipe::Receiver::Shared listenForService()
{
    HV_TRACE_FREE();
    const TrayIOService::Shared ioService = Util::Singleton<TrayIOService>::shared();
    return Async::LocalPipe::Receiver::create(static_cast<boost::asio::io_context&>(ioService->ioExecutor().context()), "tray");
}

void didFinishLaunching(const Async::LocalPipe::Receiver::Shared& serviceChannel, Display display)
{
    HV_TRACE_FREE(serviceChannel);
    setDisplay(std::move(display));
    init();
    // Shown before the subscription, so the item waits until the service speaks.
    setStatus(ServiceStatus(ServiceStatus::ConnectionState::Waiting, ServiceStatus::ErrorCode::Success));
    serviceChannel->onMessage([](const ChannelMessage::Shared& message) { handleStatusMessage(message); });
}

void willTerminate(const std::function<void()>& finishReport)
{
    HV_TRACE_FREE();
    // A report being built gets a little time to finish, so that no half-built one is left.
    finishReport();
    // The receiver goes with the process.
    destroy();
}

} // namespace Hv::Tray

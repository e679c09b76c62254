#include "HvAppDelegate.h"

#include "HvServiceStatus.h"
#include "HvSingleton.h"
#include "HvStatusMessageHandler.h"
#include "HvTrace.h"
#include "HvTray.h"
#include "HvTrayIOService.h"
#include "HvTrayImpl.h"

std::unique_ptr<HvAppDelegate> HvAppDelegate::create()
{
    HV_TRACE_FREE();
    auto delegate = std::make_unique<HvAppDelegate>();
    delegate->init();
    return delegate;
}

void HvAppDelegate::init()
{
    HV_TRACE();
    auto ioService = Hv::Util::Singleton<Hv::TrayIOService>::shared();
    m_serviceChannel = Hv::Async::LocalPipe::Receiver::create(
        static_cast<boost::asio::io_context&>(ioService->ioExecutor().context()), "tray");
}

void HvAppDelegate::applicationDidFinishLaunching()
{
    HV_TRACE();
    Hv::Tray::init();
    Hv::Tray::setStatus(Hv::ServiceStatus(Hv::ServiceStatus::ConnectionState::Waiting,
                                          Hv::ServiceStatus::ErrorCode::Success));
    m_serviceChannel->onMessage([](const Hv::ChannelMessage::Shared& message) {
        Hv::Tray::handleStatusMessage(message);
    });
}

void HvAppDelegate::applicationWillTerminate()
{
    HV_TRACE();
    // A report being built gets a little time to finish, so that no half-built one is left.
    HvTray::instance()->finishReport();
    Hv::Tray::destroy();
}

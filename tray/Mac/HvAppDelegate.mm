#import "HvAppDelegate.h"
#import "HvTrayImpl.h"

#include "HvServiceStatus.h"
#include "HvSingleton.h"
#include "HvStatusMessageHandler.h"
#include "HvTrace.h"
#include "HvTray.h"
#include "HvTrayIOService.h"

@implementation HvAppDelegate

+ (instancetype)new
{
    HV_TRACE_SELF(self);
    return [[self alloc] init];
}

- (instancetype)init
{
    self = [super init];
    if (self == nil)
        return nil;
    // The pump's first use creates the process's event loop and its run-loop timer.
    Hv::TrayIOService::Shared ioService = Hv::Util::Singleton<Hv::TrayIOService>::shared();
    m_serviceChannel = Hv::Async::LocalPipe::Receiver::create(
        static_cast<boost::asio::io_context&>(ioService->ioExecutor().context()), "tray");
    return self;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification
{
    HV_TRACE_SELF(notification);
    Hv::Tray::init();
    // Shown before the subscription, so the item waits until the service speaks.
    Hv::Tray::setStatus(Hv::ServiceStatus(Hv::ServiceStatus::ConnectionState::Waiting,
                                          Hv::ServiceStatus::ErrorCode::Success));
    m_serviceChannel->onMessage([](const Hv::ChannelMessage::Shared& message) {
        Hv::Tray::handleStatusMessage(message);
    });
}

- (void)applicationWillTerminate:(NSNotification*)notification
{
    HV_TRACE_SELF(notification);
    // A report being built gets a little time to finish, so that no half-built one is left.
    [[HvTray instance] finishReport];
    // The receiver goes with the process.
    Hv::Tray::destroy();
}

@end

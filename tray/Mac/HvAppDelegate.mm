#import "HvAppDelegate.h"
#import "HvTrayImpl.h"

#include "HvTrace.h"
#include "HvTrayApplication.h"

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
    m_serviceChannel = Hv::Tray::listenForService();
    return self;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification
{
    HV_TRACE_SELF(notification);
    Hv::Tray::didFinishLaunching(m_serviceChannel, [](const Hv::Tray::Presentation& presentation) {
        [[HvTray instance] showPresentation:presentation];
    });
}

- (void)applicationWillTerminate:(NSNotification*)notification
{
    HV_TRACE_SELF(notification);
    Hv::Tray::willTerminate([] { [[HvTray instance] finishReport]; });
}

@end

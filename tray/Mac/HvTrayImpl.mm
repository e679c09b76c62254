#import "HvTrayImpl.h"

#include "HvIssueCollector.h"
#include "HvTrace.h"
#include "HvTray.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <string>

namespace {

NSString* platformString(const std::string& text)
{
    return [NSString stringWithUTF8String:text.c_str()];
}

// Loaded once at start and kept for the whole process; a missing image leaves the button empty.
NSImage* const WAITING_ICON = [NSImage imageNamed:@(Hv::Tray::iconName(Hv::Tray::Icon::Waiting))];
NSImage* const ERROR_ICON = [NSImage imageNamed:@(Hv::Tray::iconName(Hv::Tray::Icon::Error))];
NSImage* const CONNECTED_ICON = [NSImage imageNamed:@(Hv::Tray::iconName(Hv::Tray::Icon::Connected))];

NSImage* imageOf(Hv::Tray::Icon icon)
{
    switch (icon) {
    case Hv::Tray::Icon::Error:
        return ERROR_ICON;
    case Hv::Tray::Icon::Connected:
        return CONNECTED_ICON;
    case Hv::Tray::Icon::Waiting:
        break;
    }
    return WAITING_ICON;
}

} // namespace

@implementation HvTray

@synthesize statusBarItem = _statusBarItem;

- (instancetype)init
{
    self = [super init];
    if (self == nil)
        return nil;
    // -1.0 is NSVariableStatusItemLength: the item is as wide as its content.
    [self setStatusBarItem:[[NSStatusBar systemStatusBar] statusItemWithLength:-1.0]];

    NSMenu* menu = [[NSMenu alloc] initWithTitle:@""];
    NSMenuItem* item = [menu addItemWithTitle:@"Collect logs into a ZIP file"
                                       action:@selector(collectLogs)
                                keyEquivalent:@""];
    [item setTarget:self];
    [[self statusBarItem] setMenu:menu];
    return self;
}

- (void)setIcon:(NSImage*)icon status:(NSString*)status
{
    HV_TRACE_SELF(icon, status.UTF8String);
    [[[self statusBarItem] button] setImage:icon];
    [[[self statusBarItem] button] setToolTip:status];
}

- (void)collectLogs
{
    HV_TRACE_SELF();
    // Synchronous on purpose: the menu and the pump wait until the report is written.
    const boost::filesystem::path report = Hv::IssueCollector::prepareReport();
    if (report.empty()) {
        CFUserNotificationDisplayAlert(0, 1, NULL, NULL, NULL, CFSTR("Error while preparing logs"),
                                       CFSTR("Unable to prepare Halvo softphone logs"), NULL, NULL, NULL, NULL);
        return;
    }
    NSString* path = [NSString stringWithUTF8String:report.string().c_str()];
    NSURL* url = [NSURL fileURLWithPath:path];
    [[NSWorkspace sharedWorkspace] activateFileViewerSelectingURLs:[NSArray arrayWithObjects:url, nil]];
}

+ (HvTray*)instance
{
    static HvTray* trayInstance = nil;
    static dispatch_once_t onceToken;
    HV_TRACE_SELF(self, trayInstance);
    dispatch_once(&onceToken, ^{
        trayInstance = [[HvTray alloc] init];
    });
    return trayInstance;
}

@end

// The platform half of setWaitingStatus(), setErrorStatus() and setConnectedStatus(). Qualified,
// so that it must match the portable declaration. The menu bar has no attention state: the error
// icon says it.
void Hv::Tray::showPresentation(const Presentation& presentation)
{
    [[HvTray instance] setIcon:imageOf(presentation.icon) status:platformString(presentation.toolTip())];
}

#import "HvTrayImpl.h"

#include "HvReportRunner.h"
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

@interface HvTray ()
// Back on the main queue: the entry enabled again, then the archive shown or the alert.
- (void)reportDone:(const boost::filesystem::path&)report;
@end

@implementation HvTray {
    NSMenuItem* m_collectLogsItem;
    Hv::Tray::ReportRunner::Shared m_reportRunner;
}

@synthesize statusBarItem = _statusBarItem;

- (instancetype)init
{
    self = [super init];
    if (self == nil)
        return nil;
    // -1.0 is NSVariableStatusItemLength: the item is as wide as its content.
    [self setStatusBarItem:[[NSStatusBar systemStatusBar] statusItemWithLength:-1.0]];

    NSMenu* menu = [[NSMenu alloc] initWithTitle:@""];
    // The entry is disabled by hand while a report runs.
    [menu setAutoenablesItems:NO];
    m_collectLogsItem = [menu addItemWithTitle:platformString(Hv::Tray::COLLECT_LOGS_TITLE)
                                        action:@selector(collectLogs)
                                 keyEquivalent:@""];
    [m_collectLogsItem setTarget:self];
    [[self statusBarItem] setMenu:menu];
    m_reportRunner = Hv::Tray::ReportRunner::create([](Hv::Tray::ReportRunner::Task task) {
        dispatch_async(dispatch_get_main_queue(), ^{
            task();
        });
    });
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
    // The runner refuses a second report; the disabled entry tells the user why.
    if (!m_reportRunner->start([self](const boost::filesystem::path& report) { [self reportDone:report]; }))
        return;
    [m_collectLogsItem setEnabled:NO];
    [m_collectLogsItem setTitle:platformString(Hv::Tray::COLLECTING_LOGS_TITLE)];
}

- (void)reportDone:(const boost::filesystem::path&)report
{
    HV_TRACE_SELF(report);
    [m_collectLogsItem setTitle:platformString(Hv::Tray::COLLECT_LOGS_TITLE)];
    [m_collectLogsItem setEnabled:YES];
    if (report.empty()) {
        CFUserNotificationDisplayAlert(0, 1, NULL, NULL, NULL, CFSTR("Error while preparing logs"),
                                       CFSTR("Unable to prepare Halvo softphone logs"), NULL, NULL, NULL, NULL);
        return;
    }
    NSString* path = [NSString stringWithUTF8String:report.string().c_str()];
    NSURL* url = [NSURL fileURLWithPath:path];
    [[NSWorkspace sharedWorkspace] activateFileViewerSelectingURLs:[NSArray arrayWithObjects:url, nil]];
}

- (void)finishReport
{
    HV_TRACE_SELF();
    m_reportRunner->finish();
}

- (void)showPresentation:(const Hv::Tray::Presentation&)presentation
{
    HV_TRACE_SELF(Hv::Tray::iconName(presentation.icon), presentation.status);
    [self setIcon:imageOf(presentation.icon) status:platformString(presentation.toolTip())];
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


#import <AppKit/AppKit.h>

#import "HvAppDelegate.h"

#include "HvServiceMonitor.h"
#include "HvSimpleLogger.h"
#include "HvSingleton.h"
#include "HvTrace.h"
#include "HvTrayIOService.h"

int main(int argc, char* argv[])
{
    Hv::SimpleLogger::initialize("HalvoSoftphoneTray");
    HV_TRACE_FREE(argc, argv);
    @autoreleasepool {
        NSApplication* application = [NSApplication sharedApplication];
        // The application keeps its delegate weakly; this reference keeps it alive.
        HvAppDelegate* delegate = [HvAppDelegate new];
        [application setDelegate:delegate];

        Hv::ServiceMonitor monitor(Hv::Util::Singleton<Hv::TrayIOService>::shared()->ioExecutor(),
                                   [application] { [[NSApplication sharedApplication] terminate:application]; });
        [application run];
    }
    HV_LOG_INFO("tray application has been stopped");
    Hv::SimpleLogger::destroy();
    return 0;
}

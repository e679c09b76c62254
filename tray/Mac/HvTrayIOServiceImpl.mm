#include "HvImmortalIOService.h"
#include "HvSingleton.h"
#include "HvTrace.h"
#include "HvTrayIOService.h"

#include <CoreFoundation/CoreFoundation.h>

namespace Hv {

namespace {
void pumpSharedService(CFRunLoopTimerRef, void*)
{
    Util::Singleton<TrayIOService>::shared()->pump();
}
} // namespace

// The pump: a repeating timer on the main run loop, first firing now. Common modes keep it firing
// while a menu is tracked. The timer is never removed; it goes with the process.
TrayIOService::TrayIOService()
    : m_ioContext(&ImmortalIOService::get())
{
    HV_TRACE(m_ioContext);
    CFRunLoopTimerRef timer = CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(),
                                                   TIMER_INTERVAL_MILLISECONDS / 1000.0, 0, 0,
                                                   &pumpSharedService, nullptr);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopCommonModes);
}

} // namespace Hv

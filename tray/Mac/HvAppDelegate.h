#pragma once

#import <AppKit/AppKit.h>

#include "HvAsyncLocalPipe.h"

#include <memory>

// Owns the receiving end of the pipe "tray" and relays the application's start and end to the
// status item.
@interface HvAppDelegate : NSObject <NSApplicationDelegate> {
    std::shared_ptr<Hv::Async::LocalPipe::Receiver> m_serviceChannel;
}

+ (instancetype)new;
- (instancetype)init;
- (void)applicationDidFinishLaunching:(NSNotification*)notification;
- (void)applicationWillTerminate:(NSNotification*)notification;

@end

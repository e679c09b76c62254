#pragma once

#import <AppKit/AppKit.h>

#include "HvTray.h"

// The menu-bar item: its icon, its tool tip and its one-entry menu. Created on first use,
// never destroyed.
@interface HvTray : NSObject

@property (strong, nonatomic) NSStatusItem* statusBarItem;

- (instancetype)init;
// Sets the button's image, then its tool tip.
- (void)setIcon:(NSImage*)icon status:(NSString*)status;
// A presentation of the portable core: its icon and its two-line tool tip. The menu bar has no
// attention state: the error icon says it.
- (void)showPresentation:(const Hv::Tray::Presentation&)presentation;
// The menu action "Collect logs into a ZIP file": starts the report on its worker thread, the
// entry disabled until the result is back on the main queue.
- (void)collectLogs;
// At quit: waits for a report that is being built, at most ReportRunner::QUIT_WAIT.
- (void)finishReport;
+ (HvTray*)instance;

@end

#pragma once

#import <AppKit/AppKit.h>

// The menu-bar item: its icon, its tool tip and its one-entry menu. Created on first use,
// never destroyed.
@interface HvTray : NSObject

@property (strong, nonatomic) NSStatusItem* statusBarItem;

- (instancetype)init;
// Sets the button's image, then its tool tip.
- (void)setIcon:(NSImage*)icon status:(NSString*)status;
// The menu action "Collect logs into a ZIP file".
- (void)collectLogs;
+ (HvTray*)instance;

@end

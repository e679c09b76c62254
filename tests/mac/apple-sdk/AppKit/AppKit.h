#pragma once

// <AppKit/AppKit.h>: the application object and its delegate, the status bar, menus, images and
// the workspace's file viewer. Members are declared on the class the units use them through.

#include <CoreGraphics/CoreGraphics.h>
#include <Foundation/Foundation.h>

@interface NSImage : NSObject
+ (NSImage*)imageNamed:(NSString*)name;
@end

@interface NSStatusBarButton : NSObject
@property (strong) NSImage* image;
@property (copy) NSString* toolTip;
@end

@interface NSMenuItem : NSObject
@property (weak) id target;
@property (copy) NSString* title;
@property (getter=isEnabled) BOOL enabled;
@end

@interface NSMenu : NSObject
@property BOOL autoenablesItems;
- (instancetype)initWithTitle:(NSString*)title;
- (NSMenuItem*)addItemWithTitle:(NSString*)string action:(SEL)selector keyEquivalent:(NSString*)charCode;
@end

@interface NSStatusItem : NSObject
@property (readonly, strong) NSStatusBarButton* button;
@property (strong) NSMenu* menu;
@end

@interface NSStatusBar : NSObject
@property (class, readonly, strong) NSStatusBar* systemStatusBar;
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
@end

@protocol NSApplicationDelegate
@end

@interface NSApplication : NSObject
@property (class, readonly, strong) __kindof NSApplication* sharedApplication;
@property (weak) id<NSApplicationDelegate> delegate;
- (void)run;
- (void)terminate:(id)sender;
@end

@interface NSWorkspace : NSObject
@property (class, readonly, strong) NSWorkspace* sharedWorkspace;
- (void)activateFileViewerSelectingURLs:(NSArray<NSURL*>*)fileURLs;
@end

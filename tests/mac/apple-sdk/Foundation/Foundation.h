#pragma once

// <Foundation/Foundation.h>: strings, URLs, arrays and notifications.

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

@interface NSString : NSObject
+ (instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
@property (readonly) const char* UTF8String __attribute__((objc_returns_inner_pointer));
@end

@interface NSURL : NSObject
+ (NSURL*)fileURLWithPath:(NSString*)path;
@end

@interface NSArray<__covariant ObjectType> : NSObject
+ (instancetype)arrayWithObjects:(ObjectType)firstObj, ... __attribute__((sentinel(0, 1)));
@end

@interface NSNotification : NSObject
@end

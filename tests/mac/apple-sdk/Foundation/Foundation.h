#pragma once

// <Foundation/Foundation.h>: strings, URLs, arrays and notifications.

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

#define NS_FORMAT_FUNCTION(F, A) __attribute__((format(__NSString__, F, A)))
#define NS_REQUIRES_NIL_TERMINATION __attribute__((sentinel(0, 1)))
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))

@interface NSString : NSObject
+ (instancetype)stringWithFormat:(NSString*)format, ... NS_FORMAT_FUNCTION(1, 2);
+ (instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
@property (readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
@end

@interface NSURL : NSObject
+ (NSURL*)fileURLWithPath:(NSString*)path;
@end

@interface NSArray<__covariant ObjectType> : NSObject
+ (instancetype)arrayWithObjects:(ObjectType)firstObj, ... NS_REQUIRES_NIL_TERMINATION;
@end

@interface NSNotification : NSObject
@end

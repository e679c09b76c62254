#pragma once

// <CoreFoundation/CoreFoundation.h>: base types, strings, dictionaries, booleans, run-loop timers
// and the user-notification alert.

#include <stdint.h>

extern "C" {

typedef unsigned long CFOptionFlags;
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;

typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFURL* CFURLRef;
typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;
typedef CFStringRef CFRunLoopMode;

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFRunLoopMode kCFRunLoopCommonModes;

void CFRelease(const void* cf);

#define CFSTR(cStr) ((CFStringRef)__builtin___CFStringMakeConstantString("" cStr ""))

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

typedef struct CFRunLoopTimerContext CFRunLoopTimerContext; /* its fields are not used */
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);

CFRunLoopRef CFRunLoopGetCurrent(void);
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate, CFTimeInterval interval,
                                       CFOptionFlags flags, signed long order, CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);
void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

int32_t CFUserNotificationDisplayAlert(CFTimeInterval timeout, CFOptionFlags flags, CFURLRef iconURL, CFURLRef soundURL,
                                      CFURLRef localizationURL, CFStringRef alertHeader, CFStringRef alertMessage,
                                      CFStringRef defaultButtonTitle, CFStringRef alternateButtonTitle,
                                      CFStringRef otherButtonTitle, CFOptionFlags* responseFlags);

}

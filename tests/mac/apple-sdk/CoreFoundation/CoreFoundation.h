#pragma once

// <CoreFoundation/CoreFoundation.h>: base types, strings, dictionaries, booleans, run-loop timers
// and the user-notification alert.

#include <stdint.h>

extern "C" {

typedef double CFAbsoluteTime;

typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFURL* CFURLRef;
typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFStringRef kCFRunLoopCommonModes;

void CFRelease(const void* cf);

#define CFSTR(cStr) ((CFStringRef)__builtin___CFStringMakeConstantString("" cStr ""))

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

typedef struct CFRunLoopTimerContext CFRunLoopTimerContext; /* its fields are not used */

CFRunLoopRef CFRunLoopGetCurrent(void);
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate, double interval, unsigned long flags,
                                       signed long order, void (*callout)(CFRunLoopTimerRef timer, void* info),
                                       CFRunLoopTimerContext* context);
void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFStringRef mode);

int32_t CFUserNotificationDisplayAlert(double timeout, unsigned long flags, CFURLRef iconURL, CFURLRef soundURL,
                                       CFURLRef localizationURL, CFStringRef alertHeader, CFStringRef alertMessage,
                                       CFStringRef defaultButtonTitle, CFStringRef alternateButtonTitle,
                                       CFStringRef otherButtonTitle, unsigned long* responseFlags);

}

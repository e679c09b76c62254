#pragma once

// <CoreGraphics/CoreGraphics.h>: the float type of geometry and the session dictionary.

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef double CGFloat; /* 64-bit targets */

CFDictionaryRef CGSessionCopyCurrentDictionary(void);

#ifdef __cplusplus
}
#endif

#pragma once

// <CoreGraphics/CoreGraphics.h>: the float type of geometry and the session dictionary.

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

typedef double CGFloat; /* 64-bit targets */

CFDictionaryRef CGSessionCopyCurrentDictionary(void);

}

#pragma once

// <objc/NSObject.h>: the root class and its protocol.

#define nil nullptr // id, Class and SEL are built into the compiler

// <objc/objc.h>, as on arm64.
typedef bool BOOL;
#define YES __objc_yes
#define NO __objc_no

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)alloc;
- (instancetype)init;
@end

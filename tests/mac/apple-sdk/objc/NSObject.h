#pragma once

// <objc/NSObject.h>: the root class and its protocol.

#define nil nullptr // id, Class and SEL are built into the compiler

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)alloc;
- (instancetype)init;
@end

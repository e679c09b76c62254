#pragma once

// <objc/NSObject.h>: the root class and its protocol.

#include <objc/objc.h>

@protocol NSObject
@end

OBJC_ROOT_CLASS
@interface NSObject <NSObject> {
    Class isa;
}
+ (instancetype)alloc;
+ (instancetype)new;
- (instancetype)init;
@end

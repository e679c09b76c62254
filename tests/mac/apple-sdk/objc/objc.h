#pragma once

// <objc/objc.h>: the basic Objective-C types (id, Class and SEL are built into the compiler).

#ifndef nil
#define nil nullptr
#endif

#define OBJC_ROOT_CLASS __attribute__((objc_root_class))

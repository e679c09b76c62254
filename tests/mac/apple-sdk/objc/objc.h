#pragma once

// <objc/objc.h>: the basic Objective-C types (id, Class and SEL are built into the compiler).

#if defined(__arm64__)
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif

#define YES ((BOOL)1)
#define NO ((BOOL)0)

#ifndef nil
#if defined(__cplusplus)
#define nil nullptr
#else
#define nil ((void*)0)
#endif
#endif

#define OBJC_ROOT_CLASS __attribute__((objc_root_class))

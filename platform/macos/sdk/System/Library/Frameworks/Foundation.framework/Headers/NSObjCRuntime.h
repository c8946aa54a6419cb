// What all of Foundation's declarations build on.
#pragma once

#import <objc/NSObject.h>
#import <objc/objc.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define FOUNDATION_EXPORT extern "C"
#else
#define FOUNDATION_EXPORT extern
#endif

@class NSString;

// The class of a name; nil when this process has none of it.
FOUNDATION_EXPORT Class _Nullable NSClassFromString(NSString *_Nonnull name);

FOUNDATION_EXPORT NSString *_Nonnull NSStringFromSelector(SEL _Nonnull selector);

#define NS_ENUM(type, name) \
  enum name : type name;    \
  enum name : type

// In C++ a combination of flags has the integer's type.
#define NS_OPTIONS(type, name) \
  type name;                   \
  enum : type

// The few CoreFoundation names in use, for machines without Apple's SDK.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef unsigned char Boolean;
typedef signed int SInt32;
typedef SInt32 OSStatus;
typedef long CFIndex;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFError* CFErrorRef;

extern const CFAllocatorRef _Nullable kCFAllocatorDefault;

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif

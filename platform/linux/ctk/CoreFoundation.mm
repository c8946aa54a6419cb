// Every CoreFoundation object in use is an Objective-C object here.
#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeRef CFRetain(CFTypeRef object) { return [(id)object retain]; }

void CFRelease(CFTypeRef object) { [(id)object release]; }

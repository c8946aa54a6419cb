// What is in use of Security's certificates and of CoreFoundation, whose objects are Objective-C
// objects here. A certificate is the data of its encoding.
#import <Foundation/Foundation.h>
#import <Security/SecCertificate.h>

#include "platform/linux/ctk/certificate_details.h"

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeRef CFRetain(CFTypeRef object) { return [(id)object retain]; }

void CFRelease(CFTypeRef object) { [(id)object release]; }

SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef data) {
  (void)allocator;
  NSData *der = (NSData *)data;
  if (!certificate::IsCertificate(static_cast<const uint8_t *>([der bytes]), [der length])) {
    return nullptr;
  }
  return (SecCertificateRef)[[NSData alloc] initWithBytes:[der bytes] length:[der length]];
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  return (CFDataRef)[(NSData *)certificate retain];
}

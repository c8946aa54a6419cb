#import <Foundation/Foundation.h>
#import <Security/SecCertificate.h>

#include "platform/linux/ctk/certificate_details.h"

// What a SecCertificateRef points to.
@interface TKCertificate : NSObject {
  NSData *_encoding;
}
- (instancetype)initWithEncoding:(NSData *)encoding;
- (NSData *)encoding;
@end

@implementation TKCertificate

- (instancetype)initWithEncoding:(NSData *)encoding {
  self = [super init];
  if (self != nil) _encoding = [encoding copy];
  return self;
}

- (NSData *)encoding {
  return _encoding;
}

- (BOOL)isEqual:(id)other {
  return [other isKindOfClass:[TKCertificate class]] && [_encoding isEqual:[other encoding]];
}

- (NSUInteger)hash {
  return [_encoding hash];
}

- (void)dealloc {
  [_encoding release];
  [super dealloc];
}

@end

SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef data) {
  (void)allocator;
  NSData *encoding = (NSData *)data;
  if (!certificate::is_certificate(static_cast<const uint8_t *>([encoding bytes]),
                                   [encoding length])) {
    return nullptr;
  }
  return (SecCertificateRef)[[TKCertificate alloc] initWithEncoding:encoding];
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  return (CFDataRef)[[(TKCertificate *)certificate encoding] retain];
}

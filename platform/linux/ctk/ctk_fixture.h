// What the tests of the CryptoTokenKit classes share.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <string>
#include <vector>

#include "platform/linux/ctk/test_certificates.h"

inline NSData *DataOf(const std::vector<uint8_t> &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

inline std::string TextOf(id object) {
  return object == nil ? "nil" : [[object description] UTF8String];
}

// A certificate that lives as long as the pool.
inline SecCertificateRef CertificateOf(const std::vector<uint8_t> &der) {
  SecCertificateRef certificate =
      SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)DataOf(der));
  return (SecCertificateRef)[(id)certificate autorelease];
}

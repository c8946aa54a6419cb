// What the tests of the CryptoTokenKit classes share.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <string>

#include "encoding/testing/certificates.h"

using kelvrin::encoding::Bytes;

inline NSData *DataOf(const Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

inline std::string TextOf(id object) {
  return object == nil ? "nil" : [[object description] UTF8String];
}

// A certificate that lives as long as the pool.
inline SecCertificateRef CertificateOf(const Bytes &der) {
  SecCertificateRef certificate =
      SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)DataOf(der));
  return (SecCertificateRef)[(id)certificate autorelease];
}

// The DER of a certificate on P-256 with the common name "Subject"; always the same.
inline const Bytes &SomeCertificate() {
  static const Bytes der = kelvrin::encoding::MakeCertificate({});
  return der;
}

// What is in use of Security's keys: the public keys of certificates. A key is the data of its
// encoding.
#import <Foundation/Foundation.h>
#import <Security/SecKey.h>

#include "platform/linux/ctk/signature_check.h"

static signature::Bytes BytesOf(CFTypeRef data) {
  const auto *bytes = static_cast<const uint8_t *>([(NSData *)data bytes]);
  return signature::Bytes(bytes, bytes + [(NSData *)data length]);
}

SecKeyRef SecCertificateCopyKey(SecCertificateRef certificate) {
  NSData *der = (NSData *)certificate;
  const signature::Bytes info =
      signature::PublicKeyInfo(static_cast<const uint8_t *>([der bytes]), [der length]);
  if (info.empty()) return nullptr;
  return (SecKeyRef)[[NSData alloc] initWithBytes:info.data() length:info.size()];
}

// Knows the signatures of messages over SHA-256; any other algorithm gets a no. Nobody here asks
// why.
Boolean SecKeyVerifySignature(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef signedData,
                              CFDataRef signature, CFErrorRef *error) {
  (void)error;
  NSString *name = (NSString *)algorithm;
  signature::Scheme scheme;
  if ([name isEqual:(NSString *)kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256]) {
    scheme = signature::Scheme::kRsaPkcs1;
  } else if ([name isEqual:(NSString *)kSecKeyAlgorithmECDSASignatureMessageX962SHA256]) {
    scheme = signature::Scheme::kEcdsa;
  } else {
    return 0;
  }
  return signature::Verifies(BytesOf(key), scheme, BytesOf(signedData), BytesOf(signature));
}

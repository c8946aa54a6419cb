// The public key of a certificate: verifies and encrypts, by OpenSSL.
#include <optional>

#import "platform/linux/ctk/SecKeys.h"
#include "platform/linux/ctk/certificate_details.h"
#include "platform/linux/ctk/public_key.h"

using public_key::Padding;
using public_key::Scheme;

static certificate::Bytes BytesOf(NSData *data) {
  const auto *bytes = static_cast<const uint8_t *>([data bytes]);
  return {bytes, bytes + [data length]};
}

static NSData *DataOf(const certificate::Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

// The signatures that are known: those of messages over SHA-256.
static std::optional<Scheme> SchemeOf(NSString *algorithm) {
  const struct {
    SecKeyAlgorithm algorithm;
    Scheme scheme;
  } rows[] = {{kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256, Scheme::kRsaPkcs1},
              {kSecKeyAlgorithmRSASignatureMessagePSSSHA256, Scheme::kRsaPss},
              {kSecKeyAlgorithmECDSASignatureMessageX962SHA256, Scheme::kEcdsa}};
  for (const auto &row : rows) {
    if ([algorithm isEqual:(NSString *)row.algorithm]) return row.scheme;
  }
  return std::nullopt;
}

static std::optional<Padding> PaddingOf(NSString *algorithm) {
  if ([algorithm isEqual:(NSString *)kSecKeyAlgorithmRSAEncryptionPKCS1]) return Padding::kPkcs1;
  if ([algorithm isEqual:(NSString *)kSecKeyAlgorithmRSAEncryptionOAEPSHA256]) {
    return Padding::kOaepSha256;
  }
  return std::nullopt;
}

@implementation TKPublicKey

- (instancetype)initWithCertificate:(NSData *)certificate {
  self = [super init];
  if (self == nil) return nil;
  @autoreleasepool {
    const auto *der = static_cast<const uint8_t *>([certificate bytes]);
    const auto key = certificate::PublicKeyOf(der, [certificate length]);
    if (!key) {
      [self release];
      return nil;
    }
    _info = [DataOf(public_key::InfoOf(der, [certificate length])) retain];
    _data = [DataOf(key->data) retain];
    _attributes = [@{
      (id)kSecAttrKeyType :
          (id)(key->type == certificate::KeyType::kRsa ? kSecAttrKeyTypeRSA
                                                       : kSecAttrKeyTypeECSECPrimeRandom),
      (id)kSecAttrKeySizeInBits : [NSNumber numberWithInt:key->bits],
      (id)kSecAttrApplicationLabel : DataOf(key->hash)
    } retain];
  }
  return self;
}

- (NSDictionary *)attributes {
  return [[_attributes retain] autorelease];
}

- (NSData *)externalRepresentationWithError:(NSError **)error {
  (void)error;
  return [[_data retain] autorelease];
}

- (BOOL)isRsa {
  return [[_attributes objectForKey:(id)kSecAttrKeyType] isEqual:(id)kSecAttrKeyTypeRSA];
}

- (BOOL)supportsOperation:(SecKeyOperationType)operation algorithm:(NSString *)algorithm {
  if (operation == kSecKeyOperationTypeEncrypt) return PaddingOf(algorithm) && [self isRsa];
  const std::optional<Scheme> scheme = SchemeOf(algorithm);
  return operation == kSecKeyOperationTypeVerify && scheme &&
         [self isRsa] == (scheme != Scheme::kEcdsa);
}

- (NSData *)performOperation:(SecKeyOperationType)operation
                   algorithm:(NSString *)algorithm
                        data:(NSData *)data
                       error:(NSError **)error {
  if (operation != kSecKeyOperationTypeEncrypt || ![self supportsOperation:operation
                                                                 algorithm:algorithm]) {
    TKSetStatus(error, kSecParameterStatus, @"the public key does not support the algorithm");
    return nil;
  }
  const auto ciphertext = public_key::Encrypt(BytesOf(_info), *PaddingOf(algorithm), BytesOf(data));
  if (ciphertext) return DataOf(*ciphertext);
  TKSetStatus(error, kSecParameterStatus, @"the data is too long for the key");
  return nil;
}

- (BOOL)verifySignature:(NSData *)signature
                 ofData:(NSData *)data
              algorithm:(NSString *)algorithm
                  error:(NSError **)error {
  if (![self supportsOperation:kSecKeyOperationTypeVerify algorithm:algorithm]) {
    TKSetStatus(error, kSecParameterStatus, @"the public key does not support the algorithm");
    return NO;
  }
  if (public_key::Verifies(BytesOf(_info), *SchemeOf(algorithm), BytesOf(data),
                           BytesOf(signature))) {
    return YES;
  }
  TKSetStatus(error, kSecVerifyFailedStatus, @"the signature does not verify");
  return NO;
}

- (void)dealloc {
  [_info release];
  [_data release];
  [_attributes release];
  [super dealloc];
}

@end

// Security's functions for keys: each asks the object behind the key. What they return and the
// errors they set belong to their callers, so they outlive the pool that the work is done in.
#import <Foundation/Foundation.h>
#import <Security/SecKey.h>

#import "platform/linux/ctk/SecKeys.h"

void TKSetStatus(NSError **error, OSStatus status, NSString *description) {
  if (error == nullptr) return;
  *error = [NSError errorWithDomain:NSOSStatusErrorDomain
                               code:status
                           userInfo:@{NSLocalizedDescriptionKey : description}];
}

static id<TKSecKey> KeyOf(SecKeyRef key) { return (id<TKSecKey>)key; }

// What a function hands over to its caller: the result, or else the reason, if it is wanted.
static CFDataRef HandOver(NSData *result, NSError *reason, CFErrorRef *error) {
  if (result == nil && error != nullptr) *error = (CFErrorRef)[reason retain];
  return (CFDataRef)[result retain];
}

static CFDataRef Perform(SecKeyRef key, SecKeyOperationType operation, SecKeyAlgorithm algorithm,
                         CFDataRef data, CFErrorRef *error) {
  @autoreleasepool {
    NSError *reason = nil;
    NSData *result = [KeyOf(key) performOperation:operation
                                        algorithm:(NSString *)algorithm
                                             data:(NSData *)data
                                            error:&reason];
    return HandOver(result, reason, error);
  }
}

SecKeyRef SecCertificateCopyKey(SecCertificateRef certificate) {
  return (SecKeyRef)[[TKPublicKey alloc] initWithCertificate:(NSData *)certificate];
}

CFDictionaryRef SecKeyCopyAttributes(SecKeyRef key) {
  @autoreleasepool {
    return (CFDictionaryRef)[[KeyOf(key) attributes] retain];
  }
}

CFDataRef SecKeyCopyExternalRepresentation(SecKeyRef key, CFErrorRef *error) {
  @autoreleasepool {
    NSError *reason = nil;
    NSData *result = [KeyOf(key) externalRepresentationWithError:&reason];
    return HandOver(result, reason, error);
  }
}

Boolean SecKeyIsAlgorithmSupported(SecKeyRef key, SecKeyOperationType operation,
                                   SecKeyAlgorithm algorithm) {
  @autoreleasepool {
    return [KeyOf(key) supportsOperation:operation algorithm:(NSString *)algorithm] != NO;
  }
}

CFDataRef SecKeyCreateSignature(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef dataToSign,
                                CFErrorRef *error) {
  return Perform(key, kSecKeyOperationTypeSign, algorithm, dataToSign, error);
}

CFDataRef SecKeyCreateEncryptedData(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef plaintext,
                                    CFErrorRef *error) {
  return Perform(key, kSecKeyOperationTypeEncrypt, algorithm, plaintext, error);
}

CFDataRef SecKeyCreateDecryptedData(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef ciphertext,
                                    CFErrorRef *error) {
  return Perform(key, kSecKeyOperationTypeDecrypt, algorithm, ciphertext, error);
}

Boolean SecKeyVerifySignature(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef signedData,
                              CFDataRef signature, CFErrorRef *error) {
  @autoreleasepool {
    NSError *reason = nil;
    const BOOL verified = [KeyOf(key) verifySignature:(NSData *)signature
                                               ofData:(NSData *)signedData
                                            algorithm:(NSString *)algorithm
                                                error:&reason];
    if (!verified && error != nullptr) *error = (CFErrorRef)[reason retain];
    return verified != NO;
  }
}

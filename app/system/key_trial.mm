#include "app/system/key_trial.h"

#import <Security/Security.h>
#include <stdlib.h>

#import "app/strings.h"
#import "app/system/keychain.h"

namespace kelvrin::app {
namespace {

using End = Attempt::End;

constexpr size_t kMessageSize = 32;

NSData *RandomMessage() {
  Bytes message(kMessageSize);
  arc4random_buf(message.data(), message.size());
  return ToData(message);
}

SecKeyAlgorithm SignatureAlgorithm(Scheme scheme) {
  if (scheme == Scheme::kPkcs1) return kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256;
  if (scheme == Scheme::kPss) return kSecKeyAlgorithmRSASignatureMessagePSSSHA256;
  return kSecKeyAlgorithmECDSASignatureMessageX962SHA256;
}

// What an error says, which is released; some failures have none.
Attempt Failure(CFErrorRef error) {
  NSError *failure = [(NSError *)error autorelease];
  return {End::kFailed, ToText([failure domain]), [failure code],
          ToText([failure localizedDescription])};
}

// Why a key does not support an algorithm: because it does not, or because the token has gone.
Attempt Unsupported(SecKeyRef key) {
  NSDictionary *attributes = [(NSDictionary *)SecKeyCopyAttributes(key) autorelease];
  return {attributes == nil ? End::kNoKey : End::kUnsupported};
}

Attempt TrySigning(SecKeyRef key, SecKeyRef publicKey, Scheme scheme) {
  const SecKeyAlgorithm algorithm = SignatureAlgorithm(scheme);
  if (!SecKeyIsAlgorithmSupported(key, kSecKeyOperationTypeSign, algorithm)) {
    return Unsupported(key);
  }
  NSData *message = RandomMessage();
  CFErrorRef error = nullptr;
  CFDataRef signature = SecKeyCreateSignature(key, algorithm, (CFDataRef)message, &error);
  if (signature == nullptr) return Failure(error);
  const bool is_valid =
      SecKeyVerifySignature(publicKey, algorithm, (CFDataRef)message, signature, nullptr) != 0;
  CFRelease(signature);
  return {is_valid ? End::kWorked : End::kWrongResult};
}

Attempt TryDecrypting(SecKeyRef key, SecKeyRef publicKey) {
  SecKeyAlgorithm algorithm = kSecKeyAlgorithmRSAEncryptionOAEPSHA256;
  if (!SecKeyIsAlgorithmSupported(key, kSecKeyOperationTypeDecrypt, algorithm)) {
    algorithm = kSecKeyAlgorithmRSAEncryptionPKCS1;
    if (!SecKeyIsAlgorithmSupported(key, kSecKeyOperationTypeDecrypt, algorithm)) {
      return Unsupported(key);
    }
  }
  NSData *message = RandomMessage();
  CFErrorRef error = nullptr;
  CFDataRef ciphertext =
      SecKeyCreateEncryptedData(publicKey, algorithm, (CFDataRef)message, &error);
  if (ciphertext == nullptr) return Failure(error);
  CFDataRef plaintext = SecKeyCreateDecryptedData(key, algorithm, ciphertext, &error);
  CFRelease(ciphertext);
  if (plaintext == nullptr) return Failure(error);
  const bool is_right = [message isEqual:(NSData *)plaintext] != NO;
  CFRelease(plaintext);
  return {is_right ? End::kWorked : End::kWrongResult};
}

// The certificate's public key, which the caller releases; null when the system cannot use it.
SecKeyRef CopyPublicKey(const Certificate &certificate) {
  SecCertificateRef ref =
      SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)ToData(certificate.der));
  if (ref == nullptr) return nullptr;
  SecKeyRef key = SecCertificateCopyKey(ref);
  CFRelease(ref);
  return key;
}

}  // namespace

Attempt TryKey(const Certificate &certificate, Scheme scheme) {
  SecKeyRef key = CopyKey(certificate);
  if (key == nullptr) return {End::kNoKey};
  SecKeyRef publicKey = CopyPublicKey(certificate);
  Attempt attempt = {End::kUnsupported};
  if (publicKey != nullptr) {
    attempt = scheme == Scheme::kDecryption ? TryDecrypting(key, publicKey)
                                            : TrySigning(key, publicKey, scheme);
    CFRelease(publicKey);
  }
  CFRelease(key);
  return attempt;
}

}  // namespace kelvrin::app

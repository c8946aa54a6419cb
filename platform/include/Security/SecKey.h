// Public keys of certificates, private keys of tokens, and what is done with them. Functions that
// take `error` set it to an error that the caller owns when their answer is NULL or no; it may be
// null.
#pragma once

#import <Security/SecCertificate.h>
#import <Security/SecKeyAlgorithm.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef struct __SecKey* SecKeyRef;

typedef enum SecKeyOperationType : CFIndex {
  kSecKeyOperationTypeSign = 0,
  kSecKeyOperationTypeVerify = 1,
  kSecKeyOperationTypeEncrypt = 2,
  kSecKeyOperationTypeDecrypt = 3,
  kSecKeyOperationTypeKeyExchange = 4,
} SecKeyOperationType;

// Returns the public key of a certificate, which the caller owns; NULL when its kind is unknown.
SecKeyRef _Nullable SecCertificateCopyKey(SecCertificateRef certificate);

// Returns a key's attributes, named as in SecItem.h; the caller owns them. NULL when the key's
// token is gone. Asks the token of a private key, and may wait for it.
CFDictionaryRef _Nullable SecKeyCopyAttributes(SecKeyRef key);

// Returns a public key as PKCS#1 RSAPublicKey or 04 X Y; the caller owns it.
CFDataRef _Nullable SecKeyCopyExternalRepresentation(SecKeyRef key,
                                                     CFErrorRef _Nullable* _Nullable error);

// Whether a key performs an operation with an algorithm. Asks the token of a private key, and may
// wait for it.
Boolean SecKeyIsAlgorithmSupported(SecKeyRef key, SecKeyOperationType operation,
                                   SecKeyAlgorithm algorithm);

// Signs with a private key; the caller owns the signature. Waits for the token, and for the person
// whom the system asks for the PIN.
//   algorithm   says how, and whether `dataToSign` is a message or its digest.
CFDataRef _Nullable SecKeyCreateSignature(SecKeyRef key, SecKeyAlgorithm algorithm,
                                          CFDataRef dataToSign,
                                          CFErrorRef _Nullable* _Nullable error);

// Whether a signature was made by the public key's private half.
//   algorithm   says how, and whether `signedData` is a message or its digest.
Boolean SecKeyVerifySignature(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef signedData,
                              CFDataRef signature, CFErrorRef _Nullable* _Nullable error);

// Encrypts with a public key; the caller owns the ciphertext.
CFDataRef _Nullable SecKeyCreateEncryptedData(SecKeyRef key, SecKeyAlgorithm algorithm,
                                              CFDataRef plaintext,
                                              CFErrorRef _Nullable* _Nullable error);

// Decrypts with a private key, as SecKeyCreateSignature signs; the caller owns the plaintext.
CFDataRef _Nullable SecKeyCreateDecryptedData(SecKeyRef key, SecKeyAlgorithm algorithm,
                                              CFDataRef ciphertext,
                                              CFErrorRef _Nullable* _Nullable error);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif

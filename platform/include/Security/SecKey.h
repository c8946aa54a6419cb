// Public keys of certificates, and what is verified with them.
#pragma once

#import <Security/SecCertificate.h>
#import <Security/SecKeyAlgorithm.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef struct __SecKey* SecKeyRef;

// Returns the public key of a certificate, which the caller owns; NULL when its kind is unknown.
SecKeyRef _Nullable SecCertificateCopyKey(SecCertificateRef certificate);

// Whether a signature was made by the key's private half.
//   algorithm   says how, and whether `signedData` is a message or its digest.
//   error       set to an error that the caller owns when the answer is no; may be null.
Boolean SecKeyVerifySignature(SecKeyRef key, SecKeyAlgorithm algorithm, CFDataRef signedData,
                              CFDataRef signature, CFErrorRef _Nullable* _Nullable error);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif

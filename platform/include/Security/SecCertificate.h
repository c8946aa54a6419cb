// X.509 certificates.
#pragma once

#import <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef struct __SecCertificate* SecCertificateRef;

// Makes a certificate from its DER encoding; the caller owns the result (CFRelease). NULL when the
// bytes are no DER certificate.
SecCertificateRef _Nullable SecCertificateCreateWithData(CFAllocatorRef _Nullable allocator,
                                                         CFDataRef data);

// Returns the certificate's DER encoding; the caller owns the result.
CFDataRef SecCertificateCopyData(SecCertificateRef certificate);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif

// X.509 certificates.
#pragma once

#import <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

typedef struct __SecCertificate* SecCertificateRef;

// Names of values, and what each value says of itself.
extern const CFStringRef kSecOIDX509V1ValidityNotBefore;
extern const CFStringRef kSecOIDX509V1ValidityNotAfter;
extern const CFStringRef kSecOIDX509V1IssuerName;
extern const CFStringRef kSecOIDCommonName;
extern const CFStringRef kSecOIDOrganizationName;
extern const CFStringRef kSecPropertyKeyLabel;
extern const CFStringRef kSecPropertyKeyValue;

// Makes a certificate from its DER encoding; the caller owns the result (CFRelease). NULL when the
// bytes are no DER certificate.
SecCertificateRef _Nullable SecCertificateCreateWithData(CFAllocatorRef _Nullable allocator,
                                                         CFDataRef data);

// Returns the certificate's DER encoding; the caller owns the result.
CFDataRef SecCertificateCopyData(SecCertificateRef certificate);

// Returns the subject's common name or its nearest substitute; the caller owns it. NULL when the
// subject has none.
CFStringRef _Nullable SecCertificateCopySubjectSummary(SecCertificateRef certificate);

// Returns the bytes of the serial number, most significant first; the caller owns them.
//   error   set to an error that the caller owns when the result is NULL; may be null.
CFDataRef _Nullable SecCertificateCopySerialNumberData(SecCertificateRef certificate,
                                                       CFErrorRef _Nullable* _Nullable error);

// Returns the values of the names in `oids`, of all when it is NULL, by name; the caller owns them.
// Each is a dictionary with its value under kSecPropertyKeyValue: a date is a number of seconds
// since the beginning of 2001, in UTC; a name is an array of dictionaries with the part's OID under
// kSecPropertyKeyLabel and its text under kSecPropertyKeyValue.
//   error   set to an error that the caller owns when the result is NULL; may be null.
CFDictionaryRef _Nullable SecCertificateCopyValues(SecCertificateRef certificate,
                                                   CFArrayRef _Nullable oids,
                                                   CFErrorRef _Nullable* _Nullable error);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif

// Compiled for macOS by a test that reads what our headers of Apple's frameworks declare: classes,
// methods and properties from the metadata in the object file; what leaves none there is checked
// here.
#import <Cocoa/Cocoa.h>
#import <CryptoTokenKit/CryptoTokenKit.h>
#import <os/log.h>

// The numbers that CryptoTokenKit hands over.
static_assert(TKErrorCodeNotImplemented == -1);
static_assert(TKErrorCodeCommunicationError == -2);
static_assert(TKErrorCodeCorruptedData == -3);
static_assert(TKErrorCodeCanceledByUser == -4);
static_assert(TKErrorCodeAuthenticationFailed == -5);
static_assert(TKErrorCodeObjectNotFound == -6);
static_assert(TKErrorCodeTokenNotFound == -7);
static_assert(TKErrorCodeBadParameter == -8);
static_assert(TKErrorCodeAuthenticationNeeded == -9);
static_assert(TKTokenOperationReadData == 1);
static_assert(TKTokenOperationSignData == 2);
static_assert(TKTokenOperationDecryptData == 3);
static_assert(TKTokenOperationPerformKeyExchange == 4);
static_assert(__is_same(__underlying_type(TKErrorCode), NSInteger));
static_assert(__is_same(__underlying_type(TKTokenOperation), NSInteger));
static_assert(__is_same(decltype(TKErrorDomain), NSString *const));
static_assert(__is_same(TKTokenObjectID, id));
static_assert(__is_same(TKTokenOperationConstraint, id));
static_assert(__is_same(NSInteger, long) && __is_same(NSUInteger, unsigned long));
static_assert(NSASCIIStringEncoding == 1);
static_assert(NSAlertSecondButtonReturn == 1001);

// Functions.
static_assert(__is_same(decltype(SecCertificateCreateWithData),
                        SecCertificateRef(CFAllocatorRef, CFDataRef)));
static_assert(__is_same(decltype(SecCertificateCopyData), CFDataRef(SecCertificateRef)));
static_assert(__is_same(decltype(CFRetain), CFTypeRef(CFTypeRef)));
static_assert(__is_same(decltype(CFRelease), void(CFTypeRef)));
static_assert(__is_same(decltype(os_log_type_enabled), bool(os_log_t, os_log_type_t)));
static_assert(__is_same(decltype(_os_log_impl),
                        void(void *, os_log_t, os_log_type_t, const char *, uint8_t *, uint32_t)));
static_assert(OS_LOG_TYPE_DEFAULT == 0x00 && OS_LOG_TYPE_ERROR == 0x10);
static_assert(__is_same(SecKeyAlgorithm, CFStringRef));

// What the collections' parameters stand for when nothing is said about them.
typedef id ObjectType;
typedef id KeyType;

#include "declarations_of_headers.inc"  // made by the test

// Compiled for both slices, never linked: holds what our headers of Apple's frameworks declare
// against Apple's own declarations, as written down here. A method that is declared once more below
// its class has to have the same types and say the same about nil; the warnings that the test turns
// into errors see to that.
#import <Cocoa/Cocoa.h>
#import <CryptoTokenKit/CryptoTokenKit.h>
#import <os/log.h>

#import "tests/macos/declarations.h"

SAME(NSInteger, long);
SAME(NSUInteger, unsigned long);
SAME(NSStringEncoding, NSUInteger);
SAME(NSModalResponse, NSInteger);
SAME(CGFloat, double);
SAME(NSPoint, struct CGPoint);
SAME(NSSize, struct CGSize);
SAME(NSRect, struct CGRect);
SAME(decltype(NSRange::length), NSUInteger);
SAME(NSWindowStyleMask, NSUInteger);
SAME(NSEventModifierFlags, NSUInteger);
SAME(__underlying_type(NSTextAlignment), NSInteger);
SAME(__underlying_type(NSBackingStoreType), NSUInteger);
SAME(__underlying_type(NSButtonType), NSUInteger);
SAME(__underlying_type(NSBezelStyle), NSUInteger);
SAME(__underlying_type(NSBorderType), NSUInteger);
SAME(__underlying_type(NSProgressIndicatorStyle), NSUInteger);
SAME(__underlying_type(NSAlertStyle), NSUInteger);
SAME(__underlying_type(NSTableViewColumnAutoresizingStyle), NSUInteger);
SAME(TKTokenObjectID, id);
SAME(TKTokenOperationConstraint, id);
SAME(SecKeyAlgorithm, CFStringRef);
SAME(CFTypeRef, const void *);
SAME(CFStringRef, const struct __CFString *);
SAME(CFDataRef, const struct __CFData *);
SAME(CFAllocatorRef, const struct __CFAllocator *);
SAME(CFErrorRef, struct __CFError *);
SAME(Boolean, unsigned char);
SAME(SecCertificateRef, struct __SecCertificate *);
SAME(SecKeyRef, struct __SecKey *);
SAME(__underlying_type(TKErrorCode), NSInteger);
SAME(__underlying_type(TKTokenOperation), NSInteger);
SAME(os_log_type_t, unsigned char);
#if __x86_64__
SAME(BOOL, signed char);
#else
SAME(BOOL, bool);
#endif

static_assert(TKErrorCodeNotImplemented == -1 && TKErrorCodeCommunicationError == -2 &&
              TKErrorCodeCorruptedData == -3 && TKErrorCodeCanceledByUser == -4 &&
              TKErrorCodeAuthenticationFailed == -5 && TKErrorCodeObjectNotFound == -6 &&
              TKErrorCodeTokenNotFound == -7 && TKErrorCodeBadParameter == -8 &&
              TKErrorCodeAuthenticationNeeded == -9);
static_assert(TKTokenOperationReadData == 1 && TKTokenOperationSignData == 2 &&
              TKTokenOperationDecryptData == 3 && TKTokenOperationPerformKeyExchange == 4);
static_assert(NSASCIIStringEncoding == 1 && NSUTF8StringEncoding == 4 &&
              NSISOLatin1StringEncoding == 5);
static_assert(NSModalResponseCancel == 0 && NSModalResponseOK == 1);
static_assert(NSAlertStyleWarning == 0 && NSAlertStyleInformational == 1 &&
              NSAlertStyleCritical == 2);
static_assert(NSWindowStyleMaskTitled == 1 && NSWindowStyleMaskClosable == 2 &&
              NSWindowStyleMaskMiniaturizable == 4 && NSWindowStyleMaskResizable == 8);
static_assert(NSEventModifierFlagShift == 0x20000 && NSEventModifierFlagControl == 0x40000 &&
              NSEventModifierFlagOption == 0x80000 && NSEventModifierFlagCommand == 0x100000);
static_assert(NSBackingStoreBuffered == 2 && NSBezelBorder == 2);
static_assert(NSButtonTypeMomentaryPushIn == 7 && NSBezelStyleRounded == 1);
static_assert(NSProgressIndicatorStyleBar == 0 && NSProgressIndicatorStyleSpinning == 1);
static_assert(NSTableViewLastColumnOnlyAutoresizingStyle == 4);
static_assert(NSTextAlignmentLeft == 0 && NSTextAlignmentJustified == 3 &&
              NSTextAlignmentNatural == 4);
#if __x86_64__
static_assert(NSTextAlignmentRight == 1 && NSTextAlignmentCenter == 2);
#else
static_assert(NSTextAlignmentCenter == 1 && NSTextAlignmentRight == 2);
#endif
static_assert(OS_LOG_TYPE_DEFAULT == 0 && OS_LOG_TYPE_INFO == 1 && OS_LOG_TYPE_DEBUG == 2 &&
              OS_LOG_TYPE_ERROR == 16 && OS_LOG_TYPE_FAULT == 17);

HAS_TYPE(NSString *const, TKErrorDomain);
HAS_TYPE(NSString *const, NSLocalizedDescriptionKey);
HAS_TYPE(NSString *const, NSPasteboardTypeString);
HAS_TYPE(const CFAllocatorRef, kCFAllocatorDefault);
HAS_TYPE(const SecKeyAlgorithm, kSecKeyAlgorithmRSASignatureRaw);
HAS_TYPE(const SecKeyAlgorithm, kSecKeyAlgorithmECDHKeyExchangeStandard);
HAS_TYPE(void(CFTypeRef), CFRelease);
HAS_TYPE(CFTypeRef(CFTypeRef), CFRetain);
HAS_TYPE(SecCertificateRef(CFAllocatorRef, CFDataRef), SecCertificateCreateWithData);
HAS_TYPE(CFDataRef(SecCertificateRef), SecCertificateCopyData);
HAS_TYPE(SecKeyRef(SecCertificateRef), SecCertificateCopyKey);
HAS_TYPE(Boolean(SecKeyRef, SecKeyAlgorithm, CFDataRef, CFDataRef, CFErrorRef *),
         SecKeyVerifySignature);
HAS_TYPE(bool(os_log_t, os_log_type_t), os_log_type_enabled);
HAS_TYPE(void(void *, os_log_t, os_log_type_t, const char *, uint8_t *, uint32_t), _os_log_impl);

IS_A(TKSmartCardTokenDriver, TKTokenDriver);
IS_A(TKSmartCardToken, TKToken);
IS_A(TKSmartCardTokenSession, TKTokenSession);
IS_A(TKTokenSmartCardPINAuthOperation, TKTokenAuthOperation);
IS_A(TKTokenKeychainCertificate, TKTokenKeychainItem);
IS_A(TKTokenKeychainKey, TKTokenKeychainItem);
IS_A(NSMutableString, NSString);
IS_A(NSMutableArray, NSArray);
IS_A(NSMutableDictionary, NSDictionary);
IS_A(NSNumber, NSValue);
IS_A(NSApplication, NSResponder);
IS_A(NSView, NSResponder);
IS_A(NSWindow, NSResponder);
IS_A(NSScrollView, NSView);
IS_A(NSProgressIndicator, NSView);
IS_A(NSText, NSView);
IS_A(NSTextView, NSText);
IS_A(NSControl, NSView);
IS_A(NSButton, NSControl);
IS_A(NSTextField, NSControl);
IS_A(NSTableView, NSControl);
IS_A(NSTableHeaderCell, NSCell);
IS_A(NSSavePanel, NSWindow);
IS_A(TKTokenAuthOperation, NSObject<NSSecureCoding>);

// What is in Foundation and AppKit.
HAS_TYPE(NSBundle *, NSBundle.mainBundle);
HAS_TYPE(NSString *, NSBundle.mainBundle.bundlePath);
HAS_TYPE(NSString *, [NSBundle.mainBundle pathForResource:@"" ofType:nil]);
HAS_TYPE(NSString *, [NSBundle.mainBundle localizedStringForKey:@"" value:nil table:nil]);
HAS_TYPE(NSData *, [NSData dataWithBytes:nullptr length:0]);
HAS_TYPE(NSData *, [NSData dataWithContentsOfFile:@""]);
HAS_TYPE(const void *, ((NSData *)nil).bytes);
HAS_TYPE(NSUInteger, ((NSData *)nil).length);
HAS_TYPE(NSError *, [NSError errorWithDomain:@"" code:0 userInfo:nil]);
HAS_TYPE(NSString *, ((NSError *)nil).domain);
HAS_TYPE(NSInteger, ((NSError *)nil).code);
HAS_TYPE(NSString *, ((NSError *)nil).localizedDescription);
HAS_TYPE(Class, NSClassFromString(@""));
HAS_TYPE(NSUInteger, ((NSArray *)nil).count);
HAS_TYPE(NSData *, [(NSArray<NSData *> *)nil objectAtIndex:0]);
HAS_TYPE(BOOL, [NSFileManager.defaultManager fileExistsAtPath:@""]);
HAS_TYPE(NSNumber *, [NSNumber numberWithInteger:0]);
HAS_TYPE(NSString *, [NSString stringWithCString:"" encoding:NSASCIIStringEncoding]);
HAS_TYPE(NSString *, [NSString stringWithUTF8String:""]);
HAS_TYPE(NSString *, [NSString stringWithContentsOfFile:@"" encoding:0 error:nullptr]);
HAS_TYPE(NSArray<NSString *> *, [@"" componentsSeparatedByString:@""]);
HAS_TYPE(NSString *, [NSString stringWithFormat:@""]);
HAS_TYPE(NSString *, [@"" stringByAppendingPathComponent:@""]);
HAS_TYPE(const char *, @"".UTF8String);
HAS_TYPE(NSMutableString *, [NSMutableString stringWithCapacity:0]);
HAS_TYPE(void, [(NSMutableString *)nil appendFormat:@""]);
HAS_TYPE(NSMutableArray<NSData *> *, [[NSMutableArray<NSData *> alloc] initWithCapacity:0]);
HAS_TYPE(void, [(NSMutableArray<NSData *> *)nil addObject:(NSData *)nil]);
HAS_TYPE(NSData *, [(NSDictionary<NSString *, NSData *> *)nil objectForKey:@""]);
HAS_TYPE(void, [(NSMutableDictionary<NSString *, NSData *> *)nil setObject:(NSData *)nil
                                                                    forKey:@""]);
HAS_TYPE(NSUInteger, @"".length);
HAS_TYPE(NSInteger, @"".integerValue);
HAS_TYPE(BOOL, [@"" isEqualToString:@""]);
HAS_TYPE(BOOL, [@"" writeToFile:@"" atomically:YES encoding:0 error:nullptr]);
HAS_TYPE(NSString *, NSStringFromSelector(@selector(copy)));
HAS_TYPE(NSArray *, [NSArray array]);
HAS_TYPE(NSString *, [(NSArray *)nil componentsJoinedByString:@""]);
HAS_TYPE(NSIndexSet *, [NSIndexSet indexSetWithIndex:0]);
HAS_TYPE(NSString *, ((NSURL *)nil).path);
HAS_TYPE(NSUInteger, NSMaxRange(NSRange{}));
HAS_TYPE(NSRect, NSMakeRect(0, 0, 0, 0));
HAS_TYPE(NSSize, NSMakeSize(0, 0));

// What nobody inherits, and what makes the results.
HAS_TYPE(BOOL, [(TKTokenKeyAlgorithm *)nil isAlgorithm:kSecKeyAlgorithmRSASignatureRaw]);
HAS_TYPE(BOOL, [(TKTokenKeyAlgorithm *)nil supportsAlgorithm:kSecKeyAlgorithmRSASignatureRaw]);
HAS_TYPE(BOOL, [(TKTokenAuthOperation *)nil finishWithError:nullptr]);
HAS_TYPE(TKTokenDriver *, ((TKToken *)nil).tokenDriver);
HAS_TYPE(TKTokenKeychainContents *, ((TKToken *)nil).keychainContents);
HAS_TYPE(id<TKTokenDriverDelegate>, ((TKTokenDriver *)nil).delegate);
HAS_TYPE(TKToken *, ((TKTokenSession *)nil).token);
HAS_TYPE(TKTokenKeychainKey *, [(TKTokenKeychainContents *)nil keyForObjectID:@"" error:nullptr]);
HAS_TYPE(TKTokenKeychainCertificate *,
         [(TKTokenKeychainContents *)nil certificateForObjectID:@"" error:nullptr]);
HAS_TYPE(NSArray<TKTokenKeychainItem *> *, ((TKTokenKeychainContents *)nil).items);
HAS_TYPE(BOOL, ((TKTokenKeychainKey *)nil).isSuitableForLogin);

#pragma clang assume_nonnull begin

@interface CheckedContents : TKTokenKeychainContents
- (void)fillWithItems:(NSArray<TKTokenKeychainItem *> *)items;
- (nullable TKTokenKeychainKey *)keyForObjectID:(TKTokenObjectID)objectID
                                          error:(NSError *_Nullable *_Nullable)error;
- (nullable TKTokenKeychainCertificate *)certificateForObjectID:(TKTokenObjectID)objectID
                                                          error:
                                                              (NSError *_Nullable *_Nullable)error;
@end

@interface CheckedItem : TKTokenKeychainItem
- (instancetype)initWithObjectID:(TKTokenObjectID)objectID;
@property (readonly, copy) TKTokenObjectID objectID;
@property (copy, nullable) NSString *label;
@property (copy, nullable) NSDictionary<NSNumber *, TKTokenOperationConstraint> *constraints;
@end

@interface CheckedCertificate : TKTokenKeychainCertificate
- (nullable instancetype)initWithCertificate:(SecCertificateRef)certificate
                                    objectID:(TKTokenObjectID)objectID;
@property (readonly, copy) NSData *data;
@end

@interface CheckedKey : TKTokenKeychainKey
- (nullable instancetype)initWithCertificate:(nullable SecCertificateRef)certificate
                                    objectID:(TKTokenObjectID)objectID;
@property (copy) NSString *keyType;
@property (copy, nullable) NSData *applicationTag;
@property NSInteger keySizeInBits;
@property (copy, nullable) NSData *publicKeyData;
@property (copy, nullable) NSData *publicKeyHash;
@property BOOL canDecrypt;
@property BOOL canSign;
@property BOOL canPerformKeyExchange;
@property (getter=isSuitableForLogin) BOOL suitableForLogin;
@end

@interface CheckedOperation : TKTokenSmartCardPINAuthOperation
- (BOOL)finishWithError:(NSError *_Nullable *_Nullable)error;
@property (copy, nullable) NSData *APDUTemplate;
@property (copy, nullable) NSString *PIN;
@end

@interface CheckedParameters : TKTokenKeyExchangeParameters
@property (readonly) NSInteger requestedSize;
@property (readonly, copy, nullable) NSData *sharedInfo;
@end

@interface CheckedToken : TKSmartCardToken
- (instancetype)initWithSmartCard:(TKSmartCard *)smartCard
                              AID:(nullable NSData *)AID
                       instanceID:(NSString *)instanceID
                      tokenDriver:(TKSmartCardTokenDriver *)tokenDriver;
@property (readonly, nullable) NSData *AID;
@property (weak, nullable) id<TKTokenDelegate> delegate;
@property (readonly, nullable) TKTokenKeychainContents *keychainContents;
@end

@interface CheckedSession : TKSmartCardTokenSession
- (instancetype)initWithToken:(TKToken *)token;
@property (readonly) TKToken *token;
@property (weak, nullable) id<TKTokenSessionDelegate> delegate;
@end

@interface CheckedDelegate
    : NSObject <TKSmartCardTokenDriverDelegate, TKTokenDelegate, TKTokenSessionDelegate>
- (void)tokenDriver:(TKTokenDriver *)driver terminateToken:(TKToken *)token;
- (nullable TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
                   createTokenForSmartCard:(TKSmartCard *)smartCard
                                       AID:(nullable NSData *)AID
                                     error:(NSError *_Nullable *_Nullable)error;
- (nullable TKTokenSession *)token:(TKToken *)token
            createSessionWithError:(NSError *_Nullable *_Nullable)error;
- (void)token:(TKToken *)token terminateSession:(TKTokenSession *)session;
- (nullable TKTokenAuthOperation *)tokenSession:(TKTokenSession *)session
                          beginAuthForOperation:(TKTokenOperation)operation
                                     constraint:(TKTokenOperationConstraint)constraint
                                          error:(NSError *_Nullable *_Nullable)error;
- (BOOL)tokenSession:(TKTokenSession *)session
    supportsOperation:(TKTokenOperation)operation
             usingKey:(TKTokenObjectID)keyObjectID
            algorithm:(TKTokenKeyAlgorithm *)algorithm;
- (nullable NSData *)tokenSession:(TKTokenSession *)session
                         signData:(NSData *)dataToSign
                         usingKey:(TKTokenObjectID)keyObjectID
                        algorithm:(TKTokenKeyAlgorithm *)algorithm
                            error:(NSError *_Nullable *_Nullable)error;
- (nullable NSData *)tokenSession:(TKTokenSession *)session
                      decryptData:(NSData *)ciphertext
                         usingKey:(TKTokenObjectID)keyObjectID
                        algorithm:(TKTokenKeyAlgorithm *)algorithm
                            error:(NSError *_Nullable *_Nullable)error;
- (nullable NSData *)tokenSession:(TKTokenSession *)session
    performKeyExchangeWithPublicKey:(NSData *)otherPartyPublicKeyData
                           usingKey:(TKTokenObjectID)objectID
                          algorithm:(TKTokenKeyAlgorithm *)algorithm
                         parameters:(TKTokenKeyExchangeParameters *)parameters
                              error:(NSError *_Nullable *_Nullable)error;
@end

@interface CheckedTable : NSObject <NSTableViewDataSource, NSTableViewDelegate, NSWindowDelegate>
- (NSInteger)numberOfRowsInTableView:(NSTableView *)table;
- (nullable id)tableView:(NSTableView *)table
    objectValueForTableColumn:(nullable NSTableColumn *)column
                          row:(NSInteger)row;
- (void)tableViewSelectionDidChange:(NSNotification *)notification;
- (void)windowWillClose:(NSNotification *)notification;
@end

// Where nil may be given: elsewhere the compiler warns.
void GiveNil(CheckedDelegate *delegate, TKSmartCardTokenDriver *driver, TKSmartCard *card,
             TKTokenKeychainKey *key, NSBundle *bundle) {
  [(id<TKSmartCardTokenDriverDelegate>)delegate tokenDriver:driver
                                    createTokenForSmartCard:card
                                                        AID:nil
                                                      error:nullptr];
  (void)[[TKSmartCardToken alloc] initWithSmartCard:card AID:nil instanceID:@"" tokenDriver:driver];
  (void)[key initWithCertificate:nil objectID:@""];
  (void)[bundle localizedStringForKey:@"" value:nil table:nil];
  (void)[bundle pathForResource:nil ofType:nil];
  (void)[NSError errorWithDomain:@"" code:0 userInfo:nil];
  [NSWorkspace.sharedWorkspace selectFile:nil inFileViewerRootedAtPath:@""];
  (void)SecCertificateCreateWithData(nil, (CFDataRef)key);
}

#pragma clang assume_nonnull end

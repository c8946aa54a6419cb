// As declarations.mm, for what the application alone asks of Apple's frameworks.
#import <CommonCrypto/CommonDigest.h>
#import <CryptoTokenKit/CryptoTokenKit.h>

#import "tests/macos/declarations.h"

SAME(CFArrayRef, const struct __CFArray *);
SAME(CFDictionaryRef, const struct __CFDictionary *);
SAME(OSStatus, int);
SAME(CFIndex, long);
SAME(CC_LONG, uint32_t);
SAME(__underlying_type(TKSmartCardSlotState), NSInteger);
SAME(__underlying_type(SecKeyOperationType), CFIndex);

static_assert(TKSmartCardSlotStateMissing == 0 && TKSmartCardSlotStateEmpty == 1 &&
              TKSmartCardSlotStateProbing == 2 && TKSmartCardSlotStateMuteCard == 3 &&
              TKSmartCardSlotStateValidCard == 4);
static_assert(kSecKeyOperationTypeSign == 0 && kSecKeyOperationTypeVerify == 1 &&
              kSecKeyOperationTypeEncrypt == 2 && kSecKeyOperationTypeDecrypt == 3 &&
              kSecKeyOperationTypeKeyExchange == 4);
static_assert(CC_SHA256_DIGEST_LENGTH == 32);

HAS_TYPE(OSStatus(CFDictionaryRef, CFTypeRef *), SecItemCopyMatching);
HAS_TYPE(CFStringRef(SecCertificateRef), SecCertificateCopySubjectSummary);
HAS_TYPE(CFDataRef(SecCertificateRef, CFErrorRef *), SecCertificateCopySerialNumberData);
HAS_TYPE(CFDictionaryRef(SecCertificateRef, CFArrayRef, CFErrorRef *), SecCertificateCopyValues);
HAS_TYPE(CFDictionaryRef(SecKeyRef), SecKeyCopyAttributes);
HAS_TYPE(CFDataRef(SecKeyRef, CFErrorRef *), SecKeyCopyExternalRepresentation);
HAS_TYPE(Boolean(SecKeyRef, SecKeyOperationType, SecKeyAlgorithm), SecKeyIsAlgorithmSupported);
HAS_TYPE(CFDataRef(SecKeyRef, SecKeyAlgorithm, CFDataRef, CFErrorRef *), SecKeyCreateSignature);
HAS_TYPE(CFDataRef(SecKeyRef, SecKeyAlgorithm, CFDataRef, CFErrorRef *), SecKeyCreateEncryptedData);
HAS_TYPE(CFDataRef(SecKeyRef, SecKeyAlgorithm, CFDataRef, CFErrorRef *), SecKeyCreateDecryptedData);
HAS_TYPE(unsigned char *(const void *, CC_LONG, unsigned char *), CC_SHA256);
HAS_TYPE(TKSmartCardSlotManager *, TKSmartCardSlotManager.defaultManager);

// Compiles only when all of them are of one type.
[[maybe_unused]] const CFStringRef *const kStrings[] = {&kSecClass,
                                                        &kSecClassCertificate,
                                                        &kSecClassKey,
                                                        &kSecAttrAccessGroup,
                                                        &kSecAttrAccessGroupToken,
                                                        &kSecAttrTokenID,
                                                        &kSecAttrLabel,
                                                        &kSecAttrApplicationLabel,
                                                        &kSecAttrPublicKeyHash,
                                                        &kSecAttrKeyType,
                                                        &kSecAttrKeyTypeRSA,
                                                        &kSecAttrKeyTypeECSECPrimeRandom,
                                                        &kSecAttrKeySizeInBits,
                                                        &kSecAttrCanSign,
                                                        &kSecAttrCanDecrypt,
                                                        &kSecAttrKeyClass,
                                                        &kSecAttrKeyClassPrivate,
                                                        &kSecMatchLimit,
                                                        &kSecMatchLimitAll,
                                                        &kSecReturnRef,
                                                        &kSecReturnAttributes,
                                                        &kSecValueRef,
                                                        &kSecOIDX509V1ValidityNotBefore,
                                                        &kSecOIDX509V1ValidityNotAfter,
                                                        &kSecOIDX509V1IssuerName,
                                                        &kSecOIDCommonName,
                                                        &kSecOIDOrganizationName,
                                                        &kSecPropertyKeyLabel,
                                                        &kSecPropertyKeyValue};

#pragma clang assume_nonnull begin

@interface CheckedWatcher : TKTokenWatcher
- (instancetype)init;
@property (readonly) NSArray<NSString *> *tokenIDs;
- (nullable TKTokenWatcherTokenInfo *)tokenInfoForTokenID:(NSString *)tokenID;
@end

@interface CheckedTokenInfo : TKTokenWatcherTokenInfo
@property (readonly) NSString *tokenID;
@property (readonly, nullable) NSString *slotName;
@end

@interface CheckedSlots : TKSmartCardSlotManager
@property (class, readonly, nullable) TKSmartCardSlotManager *defaultManager;
@property (readonly) NSArray<NSString *> *slotNames;
- (nullable TKSmartCardSlot *)slotNamed:(NSString *)name;
@end

@interface CheckedSlot : TKSmartCardSlot
@property (readonly) TKSmartCardSlotState state;
@property (readonly) NSString *name;
@end

// Where nil may be given: elsewhere the compiler warns.
void GiveNil(SecCertificateRef certificate, SecKeyRef key, CFDataRef data, CFDictionaryRef query) {
  (void)SecItemCopyMatching(query, nullptr);
  (void)SecCertificateCopyValues(certificate, nullptr, nullptr);
  (void)SecCertificateCopySerialNumberData(certificate, nullptr);
  (void)SecKeyCopyExternalRepresentation(key, nullptr);
  (void)SecKeyCreateSignature(key, kSecKeyAlgorithmRSASignatureRaw, data, nullptr);
  (void)SecKeyCreateEncryptedData(key, kSecKeyAlgorithmRSAEncryptionRaw, data, nullptr);
  (void)SecKeyCreateDecryptedData(key, kSecKeyAlgorithmRSAEncryptionRaw, data, nullptr);
}

#pragma clang assume_nonnull end

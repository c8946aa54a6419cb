// The keychain items that a token publishes, and the token's list of them.
#import <CryptoTokenKit/TKTokenKeychain.h>

#include <atomic>
#include <optional>

#import "platform/linux/ctk/TKHostInterface.h"
#include "platform/linux/ctk/certificate_details.h"

static std::atomic<bool> labelsFromSubject = true;

// A certificate's encoding, owned by the pool.
static NSData *Encoding(SecCertificateRef certificate) {
  return [(NSData *)SecCertificateCopyData(certificate) autorelease];
}

static const uint8_t *BytesOf(NSData *data) { return static_cast<const uint8_t *>([data bytes]); }

static NSData *Data(const certificate::Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

// The label that an item starts with.
static NSString *InitialLabel(SecCertificateRef certificate) {
  if (!labelsFromSubject) return nil;
  return [(NSString *)SecCertificateCopySubjectSummary(certificate) autorelease];
}

@implementation TKTokenKeychainItem

@synthesize objectID = _objectID;
@synthesize label = _label;
@synthesize constraints = _constraints;

- (instancetype)initWithObjectID:(TKTokenObjectID)objectID {
  self = [super init];
  if (self != nil) _objectID = [objectID copy];
  return self;
}

- (void)dealloc {
  [_objectID release];
  [_label release];
  [_constraints release];
  [super dealloc];
}

@end

@implementation TKTokenKeychainItem (Host)

+ (void)setLabelsFromSubject:(BOOL)enabled {
  labelsFromSubject = enabled != NO;
}

@end

@implementation TKTokenKeychainCertificate

@synthesize data = _data;

// Reading is always allowed, everything else never.
- (instancetype)initWithCertificate:(SecCertificateRef)certificate
                           objectID:(TKTokenObjectID)objectID {
  self = [super initWithObjectID:objectID];
  if (self != nil) {
    _data = [Encoding(certificate) copy];
    [self setLabel:InitialLabel(certificate)];
    [self setConstraints:@{@(TKTokenOperationReadData) : [NSNumber numberWithBool:YES]}];
  }
  return self;
}

- (void)dealloc {
  [_data release];
  [super dealloc];
}

@end

@implementation TKTokenKeychainKey

@synthesize keyType = _keyType;
@synthesize applicationTag = _applicationTag;
@synthesize keySizeInBits = _keySizeInBits;
@synthesize publicKeyData = _publicKeyData;
@synthesize publicKeyHash = _publicKeyHash;
@synthesize canDecrypt = _canDecrypt;
@synthesize canSign = _canSign;
@synthesize canPerformKeyExchange = _canPerformKeyExchange;
@synthesize suitableForLogin = _suitableForLogin;

// Without a certificate every property is left to the caller. Nil when the certificate's key is
// neither RSA nor on an elliptic curve: such a key has no type to publish.
- (instancetype)initWithCertificate:(SecCertificateRef)certificate
                           objectID:(TKTokenObjectID)objectID {
  self = [super initWithObjectID:objectID];
  if (self == nil || certificate == nullptr) return self;
  NSData *der = Encoding(certificate);
  const std::optional<certificate::PublicKey> key =
      certificate::PublicKeyOf(BytesOf(der), [der length]);
  if (!key) {
    [self release];
    return nil;
  }
  [self setKeyType:(NSString *)(key->type == certificate::KeyType::kRsa
                                    ? kSecAttrKeyTypeRSA
                                    : kSecAttrKeyTypeECSECPrimeRandom)];
  [self setKeySizeInBits:key->bits];
  [self setPublicKeyData:Data(key->data)];
  [self setPublicKeyHash:Data(key->hash)];
  [self setLabel:InitialLabel(certificate)];
  return self;
}

- (void)dealloc {
  [_keyType release];
  [_applicationTag release];
  [_publicKeyData release];
  [_publicKeyHash release];
  [super dealloc];
}

@end

@implementation TKTokenKeychainContents

- (void)fillWithItems:(NSArray<TKTokenKeychainItem *> *)items {
  NSArray *copy = [items copy];
  @synchronized(self) {
    [_items release];
    _items = copy;
  }
}

- (NSArray<TKTokenKeychainItem *> *)items {
  @synchronized(self) {
    return [[_items retain] autorelease];
  }
}

// The first item of the class that has the ID; nil with an error when there is none.
- (id)itemOfClass:(Class)itemClass objectID:(TKTokenObjectID)objectID error:(NSError **)error {
  for (TKTokenKeychainItem *item in [self items]) {
    if ([item isKindOfClass:itemClass] && [[item objectID] isEqual:objectID]) return item;
  }
  if (error != nullptr) {
    *error = [NSError errorWithDomain:TKErrorDomain code:TKErrorCodeObjectNotFound userInfo:nil];
  }
  return nil;
}

- (TKTokenKeychainKey *)keyForObjectID:(TKTokenObjectID)objectID error:(NSError **)error {
  return [self itemOfClass:[TKTokenKeychainKey class] objectID:objectID error:error];
}

- (TKTokenKeychainCertificate *)certificateForObjectID:(TKTokenObjectID)objectID
                                                 error:(NSError **)error {
  return [self itemOfClass:[TKTokenKeychainCertificate class] objectID:objectID error:error];
}

- (void)dealloc {
  [_items release];
  [super dealloc];
}

@end

@implementation TKTokenKeychainContents (Host)

- (instancetype)initForToken {
  self = [super init];
  if (self != nil) _items = [[NSArray alloc] init];
  return self;
}

@end

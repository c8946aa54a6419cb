// The private key of a token: everything is asked of the token's service, for as long as there is
// a token.
#import "platform/linux/ctk/SecKeys.h"

// Whether it is one for the private half of a key.
static bool IsPrivate(SecKeyOperationType operation) {
  return operation != kSecKeyOperationTypeVerify && operation != kSecKeyOperationTypeEncrypt;
}

@implementation TKTokenKey

- (instancetype)initWithItem:(TKTokenKeychainKey *)item ofToken:(TKSystemToken *)token {
  self = [super init];
  if (self != nil) {
    _item = [item retain];
    _token = [token retain];
  }
  return self;
}

// What the item does not say is left out.
+ (NSDictionary *)attributesOfItem:(TKTokenKeychainKey *)item ofToken:(TKSystemToken *)token {
  NSMutableDictionary *attributes = [NSMutableDictionary dictionary];
  const struct {
    CFStringRef name;
    id value;
  } rows[] = {
      {kSecAttrTokenID, [token tokenID]},
      {kSecAttrKeyClass, (id)kSecAttrKeyClassPrivate},
      {kSecAttrKeyType, [item keyType]},
      {kSecAttrKeySizeInBits, [NSNumber numberWithInteger:[item keySizeInBits]]},
      {kSecAttrCanSign, [NSNumber numberWithBool:[item canSign]]},
      {kSecAttrCanDecrypt, [NSNumber numberWithBool:[item canDecrypt]]},
      {kSecAttrApplicationLabel, [item publicKeyHash]},
  };
  for (const auto &row : rows) [attributes setValue:row.value forKey:(NSString *)row.name];
  return attributes;
}

- (NSDictionary *)attributes {
  if ([_token service] == nil) return nil;
  return [TKTokenKey attributesOfItem:_item ofToken:_token];
}

- (NSData *)externalRepresentationWithError:(NSError **)error {
  TKSetStatus(error, kSecUnimplementedStatus, @"a token's private key cannot be exported");
  return nil;
}

- (BOOL)supportsOperation:(SecKeyOperationType)operation algorithm:(NSString *)algorithm {
  return IsPrivate(operation) && [[_token service] supportsOperation:operation
                                                            usingKey:_item
                                                           algorithm:algorithm];
}

- (NSData *)performOperation:(SecKeyOperationType)operation
                   algorithm:(NSString *)algorithm
                        data:(NSData *)data
                       error:(NSError **)error {
  if (!IsPrivate(operation)) {
    TKSetStatus(error, kSecParameterStatus, @"a private key does not encrypt");
    return nil;
  }
  id<TKKeyService> service = [_token service];
  if (service == nil) {
    if (error != nullptr) {
      *error = [NSError errorWithDomain:TKErrorDomain code:TKErrorCodeTokenNotFound userInfo:nil];
    }
    return nil;
  }
  return [service performOperation:operation
                              data:data
                          usingKey:_item
                         algorithm:algorithm
                             error:error];
}

- (BOOL)verifySignature:(NSData *)signature
                 ofData:(NSData *)data
              algorithm:(NSString *)algorithm
                  error:(NSError **)error {
  (void)signature, (void)data, (void)algorithm;
  TKSetStatus(error, kSecParameterStatus, @"a private key does not verify");
  return NO;
}

- (void)dealloc {
  [_item release];
  [_token release];
  [super dealloc];
}

@end

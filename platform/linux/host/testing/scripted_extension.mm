#import "platform/linux/host/testing/scripted_extension.h"

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/host/foundation.h"

#pragma clang diagnostic ignored "-Wunused-parameter"

@interface ScriptedDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
@end

@interface ScriptedToken : TKSmartCardToken <TKTokenDelegate>
@end

@interface ScriptedSession : TKSmartCardTokenSession <TKTokenSessionDelegate>
@end

@interface ScriptedAuthentication : TKTokenSmartCardPINAuthOperation
@end

namespace host::testing {
namespace {

Script *current = nullptr;

NSString *TextOf(NSData *data) {
  return [[[NSString alloc] initWithData:data encoding:NSUTF8StringEncoding] autorelease];
}

// Fills in an error of TKErrorDomain.
void SetError(NSError **error, NSInteger code, NSString *description) {
  if (error == nullptr) return;
  *error = [NSError errorWithDomain:TKErrorDomain
                               code:code
                           userInfo:@{NSLocalizedDescriptionKey : description}];
}

}  // namespace

Script::Script() { current = this; }

Script::~Script() { current = nullptr; }

void Script::Note(const std::string &call) {
  const std::lock_guard lock(mutex_);
  calls_.push_back(call);
}

std::vector<std::string> Script::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

TKTokenKeychainKey *KeyItem(const Bytes &objectID, NSString *label, id constraint) {
  TKTokenKeychainKey *key =
      [[[TKTokenKeychainKey alloc] initWithCertificate:nullptr
                                              objectID:ToData(objectID)] autorelease];
  [key setLabel:label];
  [key setKeyType:@"42"];
  [key setKeySizeInBits:2048];
  [key setCanSign:YES];
  [key setCanDecrypt:YES];
  [key setCanPerformKeyExchange:YES];
  NSMutableDictionary *constraints = [NSMutableDictionary dictionary];
  for (const int operation : {2, 3, 4}) {
    [constraints setObject:constraint forKey:[NSNumber numberWithInt:operation]];
  }
  [key setConstraints:constraints];
  return key;
}

HostedExtension ScriptedExtension() {
  return HostedExtension(Retained([[[ScriptedDriver alloc] init] autorelease]));
}

PinSource PinOf(const std::string &pin) {
  return [pin]() -> Result<Secret> {
    Secret secret;
    secret.Assign(pin);
    return secret;
  };
}

}  // namespace host::testing

using host::ToText;
using host::testing::current;
using host::testing::Script;
using host::testing::SetError;

@implementation ScriptedDriver

- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  current->Note("createToken");
  switch (current->token) {
    case Script::Token::kNil:
      return nil;
    case Script::Token::kNilWithError:
      SetError(error, TKErrorCodeCorruptedData, @"the card is broken");
      return nil;
    case Script::Token::kUninitialised:
      return [[ScriptedToken alloc] autorelease];
    case Script::Token::kGood:
      break;
  }
  static int count = 0;
  ScriptedToken *token =
      [[ScriptedToken alloc] initWithSmartCard:smartCard
                                           AID:AID
                                    instanceID:[NSString stringWithFormat:@"card %d", ++count]
                                   tokenDriver:self];
  NSMutableArray *items = [NSMutableArray array];
  for (const host::Object &item : current->items) [items addObject:(id)item.get()];
  [[token keychainContents] fillWithItems:items];
  return [token autorelease];
}

- (void)tokenDriver:(TKTokenDriver *)driver terminateToken:(TKToken *)token {
  current->Note("terminateToken");
}

@end

@implementation ScriptedToken

- (TKTokenSession *)token:(TKToken *)token createSessionWithError:(NSError **)error {
  current->Note("createSession");
  switch (current->session) {
    case Script::Session::kNil:
      return nil;
    case Script::Session::kNilWithError:
      SetError(error, TKErrorCodeNotImplemented, @"no sessions today");
      return nil;
    case Script::Session::kMute:
      return [[[TKSmartCardTokenSession alloc] initWithToken:token] autorelease];
    case Script::Session::kGood:
      break;
  }
  return [[[ScriptedSession alloc] initWithToken:token] autorelease];
}

- (void)token:(TKToken *)token terminateSession:(TKTokenSession *)session {
  current->Note("terminateSession");
}

- (void)dealloc {
  current->Note("dealloc token");
  [super dealloc];
}

@end

@implementation ScriptedSession

- (BOOL)tokenSession:(TKTokenSession *)session
    supportsOperation:(TKTokenOperation)operation
             usingKey:(TKTokenObjectID)keyObjectID
            algorithm:(TKTokenKeyAlgorithm *)algorithm {
  if (current->during_call) current->during_call(ToText([[session token] instanceID]));
  const std::string target = ToText([[algorithm algorithms] lastObject]);
  current->Note("supports " + target);
  for (const std::string &supported : current->supported) {
    if (supported == target) return YES;
  }
  return NO;
}

- (NSData *)run:(const char *)name data:(NSData *)data error:(NSError **)error {
  if (current->during_call) current->during_call(ToText([[self token] instanceID]));
  current->Note(std::string(name) + " " + ToText(host::testing::TextOf(data)));
  int count = 0;
  for (const std::string &call : current->calls()) count += call.starts_with(name) ? 1 : 0;
  return current->operation ? current->operation(count, error) : data;
}

- (NSData *)tokenSession:(TKTokenSession *)session
                signData:(NSData *)dataToSign
                usingKey:(TKTokenObjectID)keyObjectID
               algorithm:(TKTokenKeyAlgorithm *)algorithm
                   error:(NSError **)error {
  return [self run:"sign" data:dataToSign error:error];
}

- (NSData *)tokenSession:(TKTokenSession *)session
             decryptData:(NSData *)ciphertext
                usingKey:(TKTokenObjectID)keyObjectID
               algorithm:(TKTokenKeyAlgorithm *)algorithm
                   error:(NSError **)error {
  return [self run:"decrypt" data:ciphertext error:error];
}

- (NSData *)tokenSession:(TKTokenSession *)session
    performKeyExchangeWithPublicKey:(NSData *)otherPartyPublicKeyData
                           usingKey:(TKTokenObjectID)objectID
                          algorithm:(TKTokenKeyAlgorithm *)algorithm
                         parameters:(TKTokenKeyExchangeParameters *)parameters
                              error:(NSError **)error {
  current->Note("requested size " + std::to_string([parameters requestedSize]));
  return [self run:"exchange" data:otherPartyPublicKeyData error:error];
}

- (TKTokenAuthOperation *)tokenSession:(TKTokenSession *)session
                 beginAuthForOperation:(TKTokenOperation)operation
                            constraint:(TKTokenOperationConstraint)constraint
                                 error:(NSError **)error {
  current->Note("beginAuth " + std::to_string(operation) + " " + ToText([constraint description]));
  switch (current->begin) {
    case Script::Begin::kNil:
      return nil;
    case Script::Begin::kNilWithError:
      SetError(error, TKErrorCodeBadParameter, @"another constraint, please");
      return nil;
    case Script::Begin::kPlain:
      return [[[TKTokenAuthOperation alloc] init] autorelease];
    case Script::Begin::kPin:
    case Script::Begin::kTemplate:
      break;
  }
  ScriptedAuthentication *authentication = [[[ScriptedAuthentication alloc] init] autorelease];
  if (current->begin == Script::Begin::kTemplate) {
    [authentication setAPDUTemplate:[NSData dataWithBytes:"\0\x20" length:2]];
  }
  return authentication;
}

@end

@implementation ScriptedAuthentication

- (BOOL)finishWithError:(NSError **)error {
  current->Note("finish " + ([self PIN] == nil ? "without PIN" : ToText([self PIN])));
  if (current->finish == Script::Finish::kNoWithError) {
    SetError(error, TKErrorCodeAuthenticationFailed, @"wrong");
  }
  return current->finish == Script::Finish::kYes;
}

- (void)dealloc {
  if ([self PIN] != nil) current->Note("a PIN outlived its operation");
  [super dealloc];
}

@end

#include "platform/linux/host/client.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <optional>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/host/foundation.h"

namespace host {
namespace {

TKTokenKeyAlgorithm *ToKeyAlgorithm(const AlgorithmList &algorithms) {
  NSMutableArray *values = [NSMutableArray array];
  for (const std::string &algorithm : algorithms) [values addObject:ToString(algorithm)];
  return [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:values] autorelease];
}

// The delegate's method for an operation; null where there is none.
SEL SelectorOf(Operation operation) {
  switch (operation) {
    case Operation::kSign:
      return @selector(tokenSession:signData:usingKey:algorithm:error:);
    case Operation::kDecrypt:
      return @selector(tokenSession:decryptData:usingKey:algorithm:error:);
    case Operation::kKeyExchange:
      return @selector(tokenSession:
          performKeyExchangeWithPublicKey:usingKey:algorithm:parameters:error:);
    case Operation::kReadData:
      break;
  }
  return nullptr;
}

Error NotImplemented(Operation operation) {
  return {ToText(TKErrorDomain), TKErrorCodeNotImplemented,
          std::string("the token's session does not implement the operation ") +
              OperationName(operation)};
}

bool WantsAuthentication(const Error &error) {
  return error.domain == ToText(TKErrorDomain) && error.code == TKErrorCodeAuthenticationNeeded;
}

// One key of a token, reached through a session. Lives no longer than what it refers to.
class TokenKey : public Backend {
 public:
  TokenKey(objc_object *session, std::mutex *token_lock, const Item &key, const PinSource &pin)
      : session_((TKTokenSession *)session), token_lock_(*token_lock), key_(key), pin_(pin) {}

  bool Supports(Operation operation, const AlgorithmList &algorithms) override;
  // Authenticates and tries once more when the token asks for it.
  Result<Bytes> Perform(Operation operation, const AlgorithmList &algorithms,
                        const Bytes &data) override;

 private:
  id<TKTokenSessionDelegate> delegate() const { return [session_ delegate]; }
  TKTokenKeychainItem *item() const { return (TKTokenKeychainItem *)key_.object.get(); }
  NSData *Send(Operation operation, const AlgorithmList &algorithms, const Bytes &data,
               NSError **error);
  Result<Bytes> Call(Operation operation, const AlgorithmList &algorithms, const Bytes &data);
  // Each returns the error, if any.
  std::optional<Error> Authenticate(Operation operation, const Error &reason);
  Result<Object> BeginAuthentication(Operation operation);
  std::optional<Error> FinishAuthentication(TKTokenAuthOperation *authentication);

  TKTokenSession *session_;
  std::mutex &token_lock_;
  const Item &key_;
  const PinSource &pin_;
};

bool TokenKey::Supports(Operation operation, const AlgorithmList &algorithms) {
  @autoreleasepool {
    const std::lock_guard lock(token_lock_);
    SEL question = @selector(tokenSession:supportsOperation:usingKey:algorithm:);
    if (![delegate() respondsToSelector:question]) return false;
    return [delegate() tokenSession:session_
                  supportsOperation:static_cast<TKTokenOperation>(operation)
                           usingKey:[item() objectID]
                          algorithm:ToKeyAlgorithm(algorithms)] != NO;
  }
}

Result<Bytes> TokenKey::Perform(Operation operation, const AlgorithmList &algorithms,
                                const Bytes &data) {
  const auto constraint = key_.constraints.find(operation);
  if (constraint == key_.constraints.end() || constraint->second.kind == Constraint::Kind::kNever) {
    return Error{
        kOsStatusDomain, kAuthFailedStatus,
        std::string("the key's constraints never allow the operation ") + OperationName(operation)};
  }
  Result<Bytes> result = Call(operation, algorithms, data);
  if (result || !WantsAuthentication(result.error())) return result;
  if (auto error = Authenticate(operation, result.error())) return *error;
  return Call(operation, algorithms, data);
}

// What the delegate's method for the operation returns; it has one.
NSData *TokenKey::Send(Operation operation, const AlgorithmList &algorithms, const Bytes &data,
                       NSError **error) {
  id key = [item() objectID];
  TKTokenKeyAlgorithm *algorithm = ToKeyAlgorithm(algorithms);
  if (operation == Operation::kSign) {
    return [delegate() tokenSession:session_
                           signData:ToData(data)
                           usingKey:key
                          algorithm:algorithm
                              error:error];
  }
  if (operation == Operation::kDecrypt) {
    return [delegate() tokenSession:session_
                        decryptData:ToData(data)
                           usingKey:key
                          algorithm:algorithm
                              error:error];
  }
  // The bare coordinate: nothing is derived from it.
  TKTokenKeyExchangeParameters *parameters =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:0 sharedInfo:nil] autorelease];
  return [delegate() tokenSession:session_
      performKeyExchangeWithPublicKey:ToData(data)
                             usingKey:key
                            algorithm:algorithm
                           parameters:parameters
                                error:error];
}

Result<Bytes> TokenKey::Call(Operation operation, const AlgorithmList &algorithms,
                             const Bytes &data) {
  @autoreleasepool {
    const std::lock_guard lock(token_lock_);
    if (![delegate() respondsToSelector:SelectorOf(operation)]) return NotImplemented(operation);
    NSError *error = nil;
    NSData *result = Send(operation, algorithms, data, &error);
    if (result != nil) return ToBytes(result);
    return ErrorOrDefault(error, std::string("the token failed to ") + OperationName(operation) +
                                     " and gave no error");
  }
}

std::optional<Error> TokenKey::Authenticate(Operation operation, const Error &reason) {
  // Without anything to hand back there is no authentication to begin.
  if (key_.constraints.at(operation).kind != Constraint::Kind::kAuthentication) return reason;
  const Result<Object> begun = BeginAuthentication(operation);
  if (!begun) return begun.error();
  auto *authentication = (TKTokenSmartCardPINAuthOperation *)begun->get();
  // With a template the system would talk to the card itself; there is no card to talk to.
  if (![authentication isKindOfClass:[TKTokenSmartCardPINAuthOperation class]] ||
      [authentication APDUTemplate] != nil) {
    return FinishAuthentication(authentication);
  }
  const Result<Secret> pin = pin_();
  if (!pin) return pin.error();
  @autoreleasepool {
    NSString *text = [[NSString alloc] initWithBytes:pin->bytes().data()
                                              length:pin->bytes().size()
                                            encoding:NSUTF8StringEncoding];
    if (text == nil) return ParameterError("the PIN is not valid UTF-8");
    [authentication setPIN:text];
    [text release];
    auto error = FinishAuthentication(authentication);
    [authentication setPIN:nil];
    return error;
  }
}

Result<Object> TokenKey::BeginAuthentication(Operation operation) {
  @autoreleasepool {
    const std::lock_guard lock(token_lock_);
    SEL begin = @selector(tokenSession:beginAuthForOperation:constraint:error:);
    if (![delegate() respondsToSelector:begin]) return NotImplemented(operation);
    NSNumber *number = [NSNumber numberWithInteger:static_cast<NSInteger>(operation)];
    NSError *error = nil;
    TKTokenAuthOperation *authentication =
        [delegate() tokenSession:session_
            beginAuthForOperation:static_cast<TKTokenOperation>(operation)
                       constraint:[[item() constraints] objectForKey:number]
                            error:&error];
    if (authentication != nil) return Retained(authentication);
    return ErrorOrDefault(error,
                          "the token began no authentication with the PIN and gave no error");
  }
}

std::optional<Error> TokenKey::FinishAuthentication(TKTokenAuthOperation *authentication) {
  @autoreleasepool {
    const std::lock_guard lock(token_lock_);
    NSError *error = nil;
    if ([authentication finishWithError:&error] != NO) return std::nullopt;
    return ErrorOrDefault(error, "the token did not accept the PIN and gave no error");
  }
}

}  // namespace

Client::~Client() {
  if (session_ == nullptr) return;  // moved from
  @autoreleasepool {
    TKTokenSession *session = (TKTokenSession *)session_.get();
    const std::lock_guard lock(*token_lock_);
    TKToken *token = [session token];
    if ([[token delegate] respondsToSelector:@selector(token:terminateSession:)]) {
      [[token delegate] token:token terminateSession:session];
    }
  }
  session_.reset();
}

Result<Bytes> Client::Perform(Operation operation, const Item &key, std::string_view algorithm,
                              const Bytes &data, const PinSource &pin) const {
  const Algorithm *known = FindAlgorithm(algorithm);
  if (known == nullptr) {
    return HostError("there is no key algorithm '" + std::string(algorithm) + "'");
  }
  TokenKey backend(session_.get(), token_lock_.get(), key, pin);
  return Resolve(&backend, key.facts, operation, std::string(known->value), data);
}

Result<Road> Client::FindRoad(const Item &key, const Algorithm &algorithm) const {
  const PinSource no_pin;
  TokenKey backend(session_.get(), token_lock_.get(), key, no_pin);
  return host::FindRoad(&backend, key.facts, algorithm.operation(), std::string(algorithm.value));
}

}  // namespace host

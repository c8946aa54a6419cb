#include "platform/linux/host/session_backend.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/host/foundation.h"

namespace host {
namespace {

TKTokenKeyAlgorithm *to_key_algorithm(const AlgorithmList &algorithms) {
  NSMutableArray *values = [NSMutableArray array];
  for (const std::string &algorithm : algorithms) [values addObject:to_string(algorithm)];
  return [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:values] autorelease];
}

TKTokenKeyExchangeParameters *to_parameters(const Request &request) {
  NSData *sharedInfo = request.shared_info.empty() ? nil : to_data(request.shared_info);
  return [[[TKTokenKeyExchangeParameters alloc]
      initWithRequestedSize:static_cast<NSInteger>(request.requested_size)
                 sharedInfo:sharedInfo] autorelease];
}

SEL selector_of(Operation operation) {
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

// What the delegate's method for the operation returns; it has one.
NSData *send(TKTokenSession *session, Operation operation, id key, const AlgorithmList &algorithms,
             const Request &request, NSError **error) {
  id<TKTokenSessionDelegate> delegate = [session delegate];
  TKTokenKeyAlgorithm *algorithm = to_key_algorithm(algorithms);
  NSData *data = to_data(request.data);
  switch (operation) {
    case Operation::kSign:
      return [delegate tokenSession:session
                           signData:data
                           usingKey:key
                          algorithm:algorithm
                              error:error];
    case Operation::kDecrypt:
      return [delegate tokenSession:session
                        decryptData:data
                           usingKey:key
                          algorithm:algorithm
                              error:error];
    case Operation::kKeyExchange:
      return [delegate tokenSession:session
          performKeyExchangeWithPublicKey:data
                                 usingKey:key
                                algorithm:algorithm
                               parameters:to_parameters(request)
                                    error:error];
    case Operation::kReadData:
      break;
  }
  return nil;
}

Error not_implemented(Operation operation) {
  return {to_text(TKErrorDomain), TKErrorCodeNotImplemented,
          std::string("the token's session does not implement the operation ") +
              operation_name(operation)};
}

bool wants_authentication(const Error &error) {
  return error.domain == to_text(TKErrorDomain) && error.code == TKErrorCodeAuthenticationNeeded;
}

id object_id(const Item &key) { return [(TKTokenKeychainItem *)key.object.get() objectID]; }

}  // namespace

bool SessionBackend::supports(Operation operation, const AlgorithmList &algorithms) {
  @autoreleasepool {
    TKTokenSession *session = (TKTokenSession *)session_;
    const std::lock_guard lock(token_lock_);
    id<TKTokenSessionDelegate> delegate = [session delegate];
    SEL question = @selector(tokenSession:supportsOperation:usingKey:algorithm:);
    if (![delegate respondsToSelector:question]) return false;
    return [delegate tokenSession:session
                supportsOperation:static_cast<TKTokenOperation>(operation)
                         usingKey:object_id(key_)
                        algorithm:to_key_algorithm(algorithms)] != NO;
  }
}

Result<Bytes> SessionBackend::perform(Operation operation, const AlgorithmList &algorithms,
                                      const Request &request) {
  const auto constraint = key_.constraints.find(operation);
  if (constraint == key_.constraints.end() || constraint->second.kind == Constraint::Kind::kNever) {
    return Error{kOsStatusDomain, kAuthFailedStatus,
                 std::string("the key's constraints never allow the operation ") +
                     operation_name(operation)};
  }
  Result<Bytes> result = call(operation, algorithms, request);
  if (result || !wants_authentication(result.error())) return result;
  if (auto error = authenticate(operation, result.error())) return *error;
  return call(operation, algorithms, request);
}

Result<Bytes> SessionBackend::call(Operation operation, const AlgorithmList &algorithms,
                                   const Request &request) {
  @autoreleasepool {
    TKTokenSession *session = (TKTokenSession *)session_;
    const std::lock_guard lock(token_lock_);
    if (![[session delegate] respondsToSelector:selector_of(operation)]) {
      return not_implemented(operation);
    }
    NSError *error = nil;
    NSData *result = send(session, operation, object_id(key_), algorithms, request, &error);
    if (result == nil) {
      return error_or_default(error, std::string("the token failed to ") +
                                         operation_name(operation) + " and gave no error");
    }
    return to_bytes(result);
  }
}

std::optional<Error> SessionBackend::authenticate(Operation operation, const Error &reason) {
  // Without anything to hand back there is no authentication to begin.
  if (key_.constraints.at(operation).kind != Constraint::Kind::kAuthentication) return reason;
  Result<Object> authentication = begin_authentication(operation);
  if (!authentication) return authentication.error();
  auto *pinOperation = (TKTokenSmartCardPINAuthOperation *)authentication->get();
  // With a template the system would talk to the card itself; there is no card to talk to.
  if (![pinOperation isKindOfClass:[TKTokenSmartCardPINAuthOperation class]] ||
      [pinOperation APDUTemplate] != nil) {
    return finish_authentication(authentication->get());
  }
  const Result<Secret> pin = pin_();
  if (!pin) return pin.error();
  @autoreleasepool {
    NSString *text = [[NSString alloc] initWithBytes:pin->data()
                                              length:pin->size()
                                            encoding:NSUTF8StringEncoding];
    if (text == nil) return parameter_error("the PIN is not valid UTF-8");
    [pinOperation setPIN:text];
    [text release];
    auto error = finish_authentication(authentication->get());
    [pinOperation setPIN:nil];
    return error;
  }
}

Result<Object> SessionBackend::begin_authentication(Operation operation) {
  @autoreleasepool {
    TKTokenSession *session = (TKTokenSession *)session_;
    const std::lock_guard lock(token_lock_);
    SEL begin = @selector(tokenSession:beginAuthForOperation:constraint:error:);
    if (![[session delegate] respondsToSelector:begin]) return not_implemented(operation);
    NSNumber *number = [NSNumber numberWithInteger:static_cast<NSInteger>(operation)];
    NSDictionary *constraints = [(TKTokenKeychainItem *)key_.object.get() constraints];
    NSError *error = nil;
    TKTokenAuthOperation *authentication =
        [[session delegate] tokenSession:session
                   beginAuthForOperation:static_cast<TKTokenOperation>(operation)
                              constraint:[constraints objectForKey:number]
                                   error:&error];
    if (authentication == nil) {
      return error_or_default(error,
                              "the token began no authentication with the PIN and gave no error");
    }
    return retained(authentication);
  }
}

std::optional<Error> SessionBackend::finish_authentication(objc_object *authentication) {
  @autoreleasepool {
    const std::lock_guard lock(token_lock_);
    NSError *error = nil;
    if ([(TKTokenAuthOperation *)authentication finishWithError:&error] != NO) return std::nullopt;
    return error_or_default(error, "the token did not accept the PIN and gave no error");
  }
}

}  // namespace host

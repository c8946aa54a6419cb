#include "platform/linux/host/client.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

#include "platform/linux/host/session_backend.h"

namespace host {

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

Result<Bytes> Client::sign(const Item &key, std::string_view algorithm, const Bytes &data,
                           const PinSource &pin) const {
  return perform(Operation::kSign, key, algorithm, {.data = data}, pin);
}

Result<Bytes> Client::decrypt(const Item &key, std::string_view algorithm, const Bytes &data,
                              const PinSource &pin) const {
  return perform(Operation::kDecrypt, key, algorithm, {.data = data}, pin);
}

Result<Bytes> Client::exchange(const Item &key, std::string_view algorithm, const Request &request,
                               const PinSource &pin) const {
  return perform(Operation::kKeyExchange, key, algorithm, request, pin);
}

Result<Bytes> Client::perform(Operation operation, const Item &key, std::string_view algorithm,
                              const Request &request, const PinSource &pin) const {
  const Algorithm *known = find_algorithm(algorithm);
  if (known == nullptr) {
    return host_error("there is no key algorithm '" + std::string(algorithm) + "'");
  }
  SessionBackend backend(session_.get(), token_lock_.get(), key, pin);
  return run(&backend, key.facts, operation, known->value, request);
}

Result<Road> Client::find_road(Operation operation, const Item &key,
                               const Algorithm &algorithm) const {
  const PinSource no_pin;
  SessionBackend backend(session_.get(), token_lock_.get(), key, no_pin);
  return host::find_road(&backend, key.facts, operation, algorithm.value);
}

}  // namespace host

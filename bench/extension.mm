#import "bench/extension.h"

#include <stdexcept>

#import "platform/linux/ctk/MainBundle.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace kelvrin::bench {
Extension::Extension(const std::filesystem::path &bundle) {
  @autoreleasepool {
    if (TKSetMainBundle(host::ToString(bundle)) == nil) {
      throw std::runtime_error("there is no bundle " + bundle.string());
    }
    token_ = [endtoend::MakeToken() retain];
  }
  if (token_ != nil) session_ = endtoend::MakeSession(token_);
  if (session_ != nil) return;
  [token_ release];
  throw std::runtime_error("the card of " + bundle.string() + " cannot be used");
}

Extension::~Extension() {
  @autoreleasepool {
    [session_ release];
    [token_ release];
  }
}

void Extension::LogIn(const std::string &pin) {
  @autoreleasepool {
    if (!endtoend::Login(session_, pin)) throw std::runtime_error("the card refuses the PIN");
  }
}

SigningRequest MakeRequest(const host::Bytes &data, NSData *key, SecKeyAlgorithm algorithm) {
  @autoreleasepool {
    return {[host::ToData(data) retain], key, [endtoend::Algorithm(algorithm) retain]};
  }
}

NSData *Sign(TokenSession *session, const SigningRequest &request) {
  NSError *error = nil;
  return [session tokenSession:session
                      signData:request.data
                      usingKey:request.key
                     algorithm:request.algorithm
                         error:&error];
}

}  // namespace kelvrin::bench

#import "bench/extension.h"

#include <stdexcept>

#import "token/TokenSession.h"

namespace kelvrin::bench {

void LogIn(const endtoend::Inserted &card, const std::string &pin) {
  @autoreleasepool {
    if (!endtoend::Login(card.session(), pin)) throw std::runtime_error("the card cannot be used");
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

// Requests to the extension's classes on an inserted card.
#pragma once

#import "tests/endtoend/real_card.h"

namespace kelvrin::bench {

// Throws std::runtime_error where the card cannot be used or refuses the PIN.
void LogIn(const endtoend::Inserted &card, const std::string &pin);

// A request for a signature, made once and asked many times.
struct SigningRequest {
  NSData *data;
  NSData *key;
  TKTokenKeyAlgorithm *algorithm;
};

// The object IDs of the keys are endtoend::RsaKey() and EcKey(). What it returns is never released.
SigningRequest MakeRequest(const host::Bytes &data, NSData *key, SecKeyAlgorithm algorithm);

// Asks the session for a signature; nil on failure. Autoreleased.
NSData *Sign(TokenSession *session, const SigningRequest &request);

}  // namespace kelvrin::bench

// The extension's classes on an inserted card.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <filesystem>
#include <string>

#include "platform/linux/host/result.h"

@class Token, TokenSession;

namespace kelvrin::bench {

// A token and a session on it, as the system holds them. Whoever is inserted last decides about the
// flag `initialized`.
class Extension {
 public:
  // Makes the bundle the main bundle and inserts its card. Throws std::runtime_error.
  explicit Extension(const std::filesystem::path &bundle);
  ~Extension();
  Extension(const Extension &) = delete;
  Extension &operator=(const Extension &) = delete;

  // Throws std::runtime_error.
  void LogIn(const std::string &pin);

  Token *token() const { return token_; }
  TokenSession *session() const { return session_; }

 private:
  Token *token_ = nil;
  TokenSession *session_ = nil;
};

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

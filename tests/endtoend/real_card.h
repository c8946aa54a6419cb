// A real card in a real bundle: SoftHSM2 behind the adapter, and the extension's own classes.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <filesystem>
#include <string>

#include "platform/linux/host/foundation.h"
#include "platform/linux/host/testing/openssl_key.h"
#include "platform/linux/log/log_recorder.h"
#include "tests/card/softhsm_card.h"

@class Token, TokenSession;

namespace endtoend {

using host::Bytes;
using host::ToBytes;
using host::ToData;
using host::testing::OpensslKey;

// Object IDs of the card's keys.
NSData *RsaKey();
NSData *EcKey();

// A target algorithm, autoreleased.
TKTokenKeyAlgorithm *Algorithm(SecKeyAlgorithm algorithm);

// Has the driver make the token of the main bundle's card; autoreleased.
Token *MakeToken();

// Makes the card, and a copy of the built bundle with these lines added to the adapter's
// configuration.
class RealCard {
 public:
  explicit RealCard(const kelvrin::CardOptions &options = {},
                    const std::string &adapter_lines = "");
  ~RealCard();
  RealCard(const RealCard &) = delete;
  RealCard &operator=(const RealCard &) = delete;

  const kelvrin::SoftHsmCard &card() const { return card_; }
  const std::filesystem::path &bundle() const { return bundle_; }
  oslog::Recorder &recorder() { return recorder_; }
  // The public key in a certificate of the card's: "rsa" or "ec".
  OpensslKey PublicKey(const std::string &name) const {
    return OpensslKey::OfCertificate(card_.Read(name + ".der"));
  }

 private:
  kelvrin::SoftHsmCard card_;
  const std::filesystem::path bundle_;
  oslog::Recorder recorder_;
};

// An inserted card: a token and a session on it, as the system holds them; nil where there is none.
// Whoever is inserted last decides about the flag `initialized`.
class Inserted {
 public:
  // Makes the bundle the main bundle and inserts its card.
  explicit Inserted(const std::filesystem::path &bundle);
  // Ends the session before it removes the card.
  ~Inserted();
  Inserted(const Inserted &) = delete;
  Inserted &operator=(const Inserted &) = delete;

  Token *token() const { return token_; }
  TokenSession *session() const { return session_; }
  // Lets go of the token before the session ends.
  void Remove();

 private:
  Token *token_ = nil;
  TokenSession *session_ = nil;
};

// What the platform asks of a session; nil or NO after a failure.
BOOL Supports(TokenSession *session, TKTokenOperation operation, NSData *key,
              SecKeyAlgorithm algorithm);
BOOL Login(TokenSession *session, const std::string &pin);
NSData *Sign(TokenSession *session, const Bytes &data, NSData *key, SecKeyAlgorithm algorithm,
             NSError **error);
NSData *Decrypt(TokenSession *session, const Bytes &data, NSData *key, SecKeyAlgorithm algorithm,
                NSError **error);

// Signs a message's SHA-256 digest with the EC key and has OpenSSL verify the signature.
bool SignsWithEcKey(const RealCard &real, TokenSession *session, const std::string &message);

}  // namespace endtoend

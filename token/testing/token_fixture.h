// What the tests of token/ start from: a bundle with scripted modules, a card, and the road from
// the driver to a session. Knows no test framework: a base class or a member, one at a time.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#include <string>
#include <vector>

#include "platform/linux/log/log_recorder.h"
#include "tests/module/captured_output.h"
#include "tests/module/module_control.h"
#include "tests/module/wrapped_calls.h"
#include "token/testing/leaks.h"
#include "token/testing/test_bundle.h"

@class Token, TokenDriver, TokenSession;

namespace token_testing {

// Lines of the log that a failed bring-up ends with.
inline constexpr char kInitFailed[] = "error: Fehler beim Initialisieren.";
inline constexpr char kFinalized[] = "default: (end) C_Finalize aufgerufen.";
inline constexpr char kUnloaded[] = "default: (end) C_UnloadModule aufgerufen.";

// The default card, in both modules' shape as the constants say; a test changes it through card()
// before it makes the token:
//   one slot, described by the reader's name, with the token label "4711 0815";
//   a certificate with an RSA key under CKA_ID 01: signs and decrypts;
//   a certificate with an EC key under CKA_ID 02: signs and agrees keys.
constexpr CK_SLOT_ID kSlot = 5;
constexpr CK_SESSION_HANDLE kSession = 7;  // the first session; the next one is 8
constexpr CK_OBJECT_HANDLE kRsaCertificate = 11;
constexpr CK_OBJECT_HANDLE kRsaPublicKey = 12;
constexpr CK_OBJECT_HANDLE kRsaPrivateKey = 13;
constexpr CK_OBJECT_HANDLE kEcCertificate = 14;
constexpr CK_OBJECT_HANDLE kEcPublicKey = 15;
constexpr CK_OBJECT_HANDLE kEcPrivateKey = 16;
inline const scripted::Bytes kRsaId = {0x01};
inline const scripted::Bytes kEcId = {0x02};

// Fills an empty card model with the default card.
void AddDefaultCard(scripted::CardModel *card);
// The card with its slot, but no certificate and no key.
void AddEmptyCard(scripted::CardModel *card);

// Data of these bytes, autoreleased.
NSData *Data(const scripted::Bytes &bytes);
scripted::Bytes BytesOf(NSData *data);
// The object ID of the key under a CKA_ID, autoreleased.
NSData *KeyObjectID(const scripted::Bytes &cka_id);

// The text as UTF-8; "(nil)" for nil.
std::string Text(NSString *string);

// Runs a function and returns what the process wrote to standard output meanwhile.
template <typename Function>
std::string StandardOutputOf(Function function) {
  scripted::CapturedOutput output(1);
  function();
  return output.Text();
}

// Holds an autorelease pool from its construction to its end: for one thread.
class TokenFixture {
 public:
  // Both modules carry the default card; `initialized` is 0.
  TokenFixture();
  // Releases sessions, then tokens, then the modules.
  ~TokenFixture();
  TokenFixture(const TokenFixture &) = delete;
  TokenFixture &operator=(const TokenFixture &) = delete;

  TestBundle &bundle() { return bundle_; }
  // The modules: the one that a token's set-up loads, and the one of the re-initialisation.
  scripted::ScriptedModule &lindel() { return lindel_.module(); }
  scripted::ScriptedModule &vumo() { return vumo_.module(); }
  // The set-up's card.
  scripted::CardModel &card() { return lindel().card(); }

  oslog::Recorder &recorder() { return recorder_; }
  // The log so far, each line after its type, private arguments shown.
  std::vector<std::string> Log() const { return recorder_.typed_texts(); }
  // What the set-ups so far wrote to standard output.
  const std::string &standard_output() const { return standard_output_; }

  TokenDriver *driver() { return driver_; }
  TKSmartCard *smart_card() { return smart_card_; }
  NSData *AID() { return AID_; }

  // Inserts the card: has the driver make a token. Returns what the driver returned, held by the
  // fixture alone until Release or the end.
  Token *MakeToken();
  // Has the token make a session, held by the fixture (and holding the token) until Release or the
  // end.
  TokenSession *MakeSession(Token *token);
  // Gives up the fixture's hold of a token or a session it made: the object goes at once unless
  // somebody else holds it.
  void Release(id object);
  // Takes the four bring-up values from a token, so that its teardown leaves the module alone. To
  // be called after a re-initialisation that failed: the handle behind the token is then gone.
  static void Disarm(Token *token);

 private:
  TestBundle bundle_;
  scripted::ModuleControl lindel_;
  scripted::ModuleControl vumo_;
  oslog::Recorder recorder_;
  std::string standard_output_;
  Pool pool_;  // drained while the modules are still there
  TokenDriver *driver_;
  TKSmartCard *smart_card_;
  NSData *AID_;
  std::vector<id> tokens_;
  std::vector<id> sessions_;
};

}  // namespace token_testing

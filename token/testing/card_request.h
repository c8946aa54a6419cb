// The three requests that end at a private key, made alike.
#pragma once

#include "token/testing/replaced_p11.h"
#include "token/testing/session_fixture.h"

namespace token_testing {

// What differs between them.
struct CardRequest {
  const char *name;
  scripted::Function init;    // the first call with the key
  scripted::Function result;  // the call that yields the result
  const char *p11;            // the function of p11/, as the log names it
  const char *length;         // the line of the data's length, up to the number
  const char *failed;         // the descriptions of a card failure,
  const char *no_data;        // and of a result that becomes no data
};

inline void PrintTo(const CardRequest &request, std::ostream *stream) { *stream << request.name; }

constexpr CardRequest kSign = {"Sign",
                               scripted::Function::C_SignInit,
                               scripted::Function::C_Sign,
                               "sign",
                               "dataToSign len",
                               "Fehler beim Signieren.",
                               "Fehler bei der Konvertierung der Signatur."};
constexpr CardRequest kDecrypt = {"Decrypt",
                                  scripted::Function::C_DecryptInit,
                                  scripted::Function::C_Decrypt,
                                  "decrypt",
                                  "ciphertext len",
                                  "Fehler beim Entschlüsseln.",
                                  "Fehler bei der Konvertierung der entschlüsselten Daten."};
constexpr CardRequest kExchange = {"Exchange",
                                   scripted::Function::C_DeriveKey,
                                   scripted::Function::C_GetAttributeValue,
                                   "derive_key",
                                   "otherPartyPublicKeyData len",
                                   "Fehler beim DeriveKey.",
                                   "Fehler bei der Konvertierung der abgeleiteten Daten."};
constexpr CardRequest kCardRequests[] = {kSign, kDecrypt, kExchange};

// Makes a request of a session.
NSData *Make(const CardRequest &request, TokenSession *session, TKTokenSession *argument,
             NSData *data, NSData *key, TKTokenKeyAlgorithm *algorithm,
             TKTokenKeyExchangeParameters *parameters, NSError **error);
// The key and the algorithm that a request is made with where nothing else is said: the RSA key for
// signing and decrypting, the EC key for the exchange.
NSData *KeyOf(const CardRequest &request);
TKTokenKeyAlgorithm *AlgorithmOf(const CardRequest &request);

// Makes one request of a logged-in session; the fields say of what.
class CardRequestTest : public SessionTest {
 protected:
  explicit CardRequestTest(const CardRequest &request);

  // Makes the request with the error pointer.
  NSData *RunWith(NSError **error);
  // Makes the request; error_ is untouched_ before.
  NSData *Run();
  // Has the card answer these bytes from now on.
  void Answer(const scripted::Bytes &bytes);
  // What the card got as the request's data: its address, its length, its bytes.
  scripted::Argument SentData();
  // The error of a card failure.
  std::string CardFailure() const;
  // The log's lines of error type.
  std::vector<std::string> Errors();
  // The template of the search for the private key.
  std::string FindPrivate() const;

  CardRequest request_;
  TKTokenSession *argument_;  // handed over as the calling session
  NSData *data_;
  NSData *key_;
  TKTokenKeyAlgorithm *algorithm_;
  TKTokenKeyExchangeParameters *parameters_ = nil;
  NSError *untouched_;
  NSError *error_ = nil;
};

}  // namespace token_testing

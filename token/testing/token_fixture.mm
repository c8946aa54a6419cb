#include "token/testing/token_fixture.h"

#include <algorithm>

#import "token/ObjectId.h"
#import "token/Token.h"
#import "token/TokenDriver.h"
#import "token/TokenSession.h"
#include "token/testing/test_certificates.h"

namespace token_testing {
namespace {

// The usage flags and mechanisms of both halves of a key.
void AddUsage(scripted::Object &key, bool decrypts, bool derives,
              const std::vector<CK_MECHANISM_TYPE> &mechanisms) {
  key.SetFlag(CKA_VERIFY, true)
      .SetFlag(CKA_ENCRYPT, decrypts)
      .SetFlag(CKA_WRAP, decrypts)
      .SetFlag(CKA_DERIVE, derives)
      .SetMechanisms(mechanisms);
}

void AddRsa(scripted::CardModel *card) {
  const std::vector<CK_MECHANISM_TYPE> mechanisms = {
      CKM_RSA_PKCS,        CKM_RSA_X_509,         CKM_SHA1_RSA_PKCS,
      CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS,   CKM_SHA512_RSA_PKCS,
      CKM_RSA_PKCS_PSS,    CKM_SHA1_RSA_PKCS_PSS, CKM_SHA256_RSA_PKCS_PSS};
  card->AddCertificate(kRsaId, "RSA certificate", CertificateDer(KeyKind::kRsa, "Rita Rsa"));
  AddUsage(card->AddPublicKey(kRsaId).SetText(CKA_LABEL, "RSA key"), true, false, mechanisms);
  AddUsage(card->AddPrivateKey(kRsaId).SetText(CKA_LABEL, "RSA private"), true, false, mechanisms);
}

void AddEc(scripted::CardModel *card) {
  const std::vector<CK_MECHANISM_TYPE> mechanisms = {CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE};
  card->AddCertificate(kEcId, "EC certificate", CertificateDer(KeyKind::kEllipticCurve, "Elli Ec"));
  AddUsage(card->AddPublicKey(kEcId).SetText(CKA_LABEL, "EC key"), false, true, mechanisms);
  AddUsage(card->AddPrivateKey(kEcId).SetText(CKA_LABEL, "EC private"), false, true, mechanisms);
}

}  // namespace

void AddEmptyCard(scripted::CardModel *card) {
  card->next_session = kSession;
  card->next_object = kRsaCertificate;
  card->AddSlot(kSlot, kReaderName, "4711 0815");
}

void AddDefaultCard(scripted::CardModel *card) {
  AddEmptyCard(card);
  AddRsa(card);
  AddEc(card);
}

NSData *Data(const scripted::Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

scripted::Bytes BytesOf(NSData *data) {
  const auto *bytes = static_cast<const CK_BYTE *>([data bytes]);
  return bytes == nullptr ? scripted::Bytes() : scripted::Bytes(bytes, bytes + [data length]);
}

NSData *KeyObjectID(const scripted::Bytes &cka_id) {
  return idToData(kObjectKindKey, cka_id.data(), cka_id.size());
}

std::string Text(NSString *string) { return string == nil ? "(nil)" : [string UTF8String]; }

TokenFixture::TokenFixture()
    : lindel_(bundle_.ModulePath(kLindelModule)),
      vumo_(bundle_.ModulePath(kVumoModule)),
      driver_([[TokenDriver alloc] init]),
      smart_card_([[TKSmartCard alloc] init]),
      AID_([Data({0xA0, 0x00, 0x00, 0x01}) retain]) {
  AddDefaultCard(&lindel().card());
  AddDefaultCard(&vumo().card());
  initialized = 0;
  wrapped::Reset();
}

TokenFixture::~TokenFixture() {
  // What a test's observers captured is gone by now.
  lindel().Observe({});
  vumo().Observe({});
  oslog::SetSink({});
  for (id session : sessions_) [session release];
  for (id token : tokens_) [token release];
  [AID_ release];
  [smart_card_ release];
  [driver_ release];
  wrapped::Reset();
}

Token *TokenFixture::MakeToken() {
  Token *token = nil;
  standard_output_ += StandardOutputOf([&] {
    @autoreleasepool {
      NSError *error = nil;
      token = (Token *)[[driver_ tokenDriver:driver_
                     createTokenForSmartCard:smart_card_
                                         AID:AID_
                                       error:&error] retain];
    }
  });
  if (token != nil) tokens_.push_back(token);
  return token;
}

TokenSession *TokenFixture::MakeSession(Token *token) {
  TokenSession *session = nil;
  @autoreleasepool {
    NSError *error = nil;
    session = (TokenSession *)[[token token:token createSessionWithError:&error] retain];
  }
  if (session != nil) sessions_.push_back(session);
  return session;
}

void TokenFixture::Release(id object) {
  for (std::vector<id> *held : {&tokens_, &sessions_}) {
    const auto found = std::find(held->begin(), held->end(), object);
    if (found == held->end()) continue;
    held->erase(found);
    @autoreleasepool {
      [object release];
    }
    return;
  }
}

void TokenFixture::Disarm(Token *token) {
  [token setModule:nullptr];
  [token setP11:nullptr];
  [token setSlotID:0];
  [token setSession:0];
}

}  // namespace token_testing

// Signatures by the module itself, through the extension and through other libraries.
#include <stdexcept>

#import "bench/extension.h"
#include "bench/library_keys.h"
#include "bench/sections.h"
#include "p11/bringup.h"
#include "p11/lookup.h"
#include "p11/operations.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"

namespace kelvrin::bench {
namespace {

// A kind of key with what the extension signs with it: the block of a padded digest, or a digest.
struct Kind {
  std::string title;
  std::string name;
  CK_BYTE id;
  CK_MECHANISM_TYPE mechanism;
  SecKeyAlgorithm algorithm;
  double least_ratio;
};

constexpr std::size_t kModulusSize = 256;

std::vector<Kind> Kinds() {
  return {{"RSA-2048", "rsa", 1, CKM_RSA_X_509, kSecKeyAlgorithmRSASignatureRaw, 0.97},
          {"P-256", "ec", 2, CKM_ECDSA, kSecKeyAlgorithmECDSASignatureDigestX962, 0.90}};
}

constexpr const char *kRaw = "module alone: C_SignInit, C_Sign";
constexpr const char *kFiveCalls = "extension: the five calls";
constexpr const char *kDelegate = "extension: the delegate call";
constexpr const char *kGnutls = "GnuTLS";
constexpr const char *kEngine = "OpenSSL's PKCS#11 engine";

// The module's own key on a session of its own.
struct RawKey {
  CK_FUNCTION_LIST *functions;
  CK_SESSION_HANDLE session;
  CK_OBJECT_HANDLE key;
};

Bytes SignRaw(const RawKey &key, CK_MECHANISM_TYPE type, const Bytes &data) {
  CK_MECHANISM mechanism = {type, nullptr, 0};
  Bytes signature(kResultSize);
  CK_ULONG size = signature.size();
  CK_RV rv = key.functions->C_SignInit(key.session, &mechanism, key.key);
  if (rv == CKR_OK) {
    rv = key.functions->C_Sign(key.session, const_cast<CK_BYTE *>(data.data()), data.size(),
                               signature.data(), &size);
  }
  signature.resize(rv == CKR_OK ? size : 0);
  return signature;
}

// What the extension asks of the module for one signature.
Bytes SignWithFiveCalls(Token *token, CK_BYTE id, CK_MECHANISM_TYPE mechanism, const Bytes &data) {
  CK_FUNCTION_LIST *p11 = [token p11];
  CK_BBOOL login = CK_TRUE;
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  Bytes signature(kResultSize);
  CK_ULONG size = signature.size();
  CK_RV rv = login_required(p11, [token session], &login);
  if (rv == CKR_OK) rv = get_priv_key(p11, [token session], &id, 1, &key);
  if (rv == CKR_OK) {
    rv = sign(p11, [token session], key, mechanism, data.data(), data.size(), signature.data(),
              &size);
  }
  signature.resize(rv == CKR_OK && login == CK_FALSE ? size : 0);
  return signature;
}

// One card with everybody who signs on it.
class SigningCard {
 public:
  SigningCard(const Cards &cards, const RawModule &raw, KeyLibrary &gnutls, KeyLibrary &engine,
              Rounds &rounds, int certificates)
      : cards_(cards),
        certificates_(certificates),
        gnutls_(gnutls),
        engine_(engine),
        rounds_(rounds),
        extension_(cards.Bundle(certificates)),
        functions_(raw.functions()),
        session_(raw.OpenSession(Cards::Label(certificates))) {
    extension_.LogIn(cards.pin());
    objects_ = FindObjects(functions_, session_, {}).size();
  }

  std::string Title(const Kind &kind) const {
    return "Signatures with " + kind.title + ", " + std::to_string(objects_) +
           " objects on the token";
  }

  // Adds everybody to the rounds, each after a signature that is checked.
  void AddAll(const Kind &kind);
  Section Results(const Kind &kind, std::map<std::string, Samples> &samples) const;

 private:
  using Signer = std::function<Bytes()>;

  std::string Name(const Kind &kind, const char *who) const {
    return kind.name + " " + std::to_string(certificates_) + " " + who;
  }
  // Checks the signature that `sign` makes, and adds `call`, which is `sign` where it is
  // empty.
  void Add(const Kind &kind, const char *who, const Bytes &digest, const Signer &sign,
           std::function<bool()> call = {}) const;

  const Cards &cards_;
  int certificates_;
  KeyLibrary &gnutls_;
  KeyLibrary &engine_;
  Rounds &rounds_;
  Extension extension_;
  CK_FUNCTION_LIST *functions_;
  CK_SESSION_HANDLE session_;
  std::size_t objects_ = 0;
};

void SigningCard::Add(const Kind &kind, const char *who, const Bytes &digest, const Signer &sign,
                      std::function<bool()> call) const {
  // The module's own ECDSA signatures are no DER.
  const bool is_der = kind.mechanism != CKM_ECDSA || who != kRaw;
  if (is_der && !endtoend::Verifies(cards_.PublicKey(certificates_, kind.name), digest, sign())) {
    throw std::runtime_error(Name(kind, who) + ": the signature does not verify");
  }
  if (!call) call = [sign] { return !sign().empty(); };
  rounds_.Add(Name(kind, who), call);
}

void SigningCard::AddAll(const Kind &kind) {
  const Bytes digest = endtoend::Sha256("A message to sign.");
  const Bytes input =
      kind.mechanism == CKM_ECDSA ? digest : endtoend::Pkcs1Block(digest, kModulusSize);
  const RawKey raw = {functions_, session_, FindPrivateKey(functions_, session_, kind.id)};
  Token *token = extension_.token();
  TokenSession *session = extension_.session();
  const SigningRequest request =
      MakeRequest(input, kind.id == 1 ? endtoend::RsaKey() : endtoend::EcKey(), kind.algorithm);
  Add(kind, kRaw, digest, [=] { return SignRaw(raw, kind.mechanism, input); });
  Add(kind, kFiveCalls, digest,
      [=] { return SignWithFiveCalls(token, kind.id, kind.mechanism, input); });
  Add(
      kind, kDelegate, digest,
      [=] {
        @autoreleasepool {
          return endtoend::BytesOf(Sign(session, request));
        }
      },
      [=] {
        @autoreleasepool {
          return Sign(session, request) != nil;
        }
      });
  const std::shared_ptr<LibraryKey> gnutls = gnutls_.Key(Cards::Label(certificates_), kind.id);
  Add(kind, kGnutls, digest, [=] { return gnutls->Sign(digest); });
  const std::shared_ptr<LibraryKey> engine = engine_.Key(Cards::Label(certificates_), kind.id);
  Add(kind, kEngine, digest, [=] { return engine->Sign(digest); });
}

Section SigningCard::Results(const Kind &kind, std::map<std::string, Samples> &samples) const {
  Section section = {Title(kind), {}};
  const Samples &raw = samples[Name(kind, kRaw)];
  section.rows.push_back(TimeRow(kRaw, raw));
  for (const char *who : {kFiveCalls, kDelegate, kGnutls, kEngine}) {
    Row row = TimeRow(who, samples[Name(kind, who)], raw);
    if (who == kFiveCalls || who == kDelegate) {
      row.target = {Target::Bound::kAtLeast, kind.least_ratio};
    }
    section.rows.push_back(row);
  }
  return section;
}

}  // namespace

Report MeasureSignatures(const Cards &cards, const RawModule &raw, Rounds &rounds) {
  const std::unique_ptr<KeyLibrary> gnutls = OpenGnutls(SoftHsmCard::Module());
  const std::unique_ptr<KeyLibrary> engine = OpenOpensslEngine(SoftHsmCard::Module());
  SigningCard few(cards, raw, *gnutls, *engine, rounds, kFewCertificates);
  SigningCard many(cards, raw, *gnutls, *engine, rounds, kManyCertificates);
  Report report;
  for (const Kind &kind : Kinds()) {
    for (SigningCard *card : {&few, &many}) card->AddAll(kind);
    std::map<std::string, Samples> samples = rounds.Run();
    for (const SigningCard *card : {&few, &many}) report.push_back(card->Results(kind, samples));
  }
  return report;
}

}  // namespace kelvrin::bench

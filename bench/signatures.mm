// Signatures by the module itself, through the extension and through other libraries.
#include <stdexcept>

#include "bench/benchmarks.h"
#include "bench/cards.h"
#import "bench/extension.h"
#include "bench/peer_signers.h"
#include "p11/bringup.h"
#include "p11/lookup.h"
#include "p11/operations.h"
#include "platform/linux/host/padding.h"
#import "token/Token.h"

namespace kelvrin::bench {
namespace {

using host::Hash;
using host::testing::OpensslKey;

// A kind of key with what the extension signs with it: the block of a padded digest, or a digest.
struct Kind {
  std::string name;
  CK_BYTE id;
  CK_MECHANISM_TYPE mechanism;
  SecKeyAlgorithm algorithm;
  NSData *key;
};

// Certificates on the small card and on the large one, and objects: three for each certificate and,
// on the large one, a data object.
constexpr int kFew = 2;
constexpr int kMany = 33;
constexpr std::size_t kFewObjects = 6;
constexpr std::size_t kManyObjects = 100;
constexpr std::size_t kModulusSize = 256;
const Bytes kMessage = {'s', 'i', 'g', 'n', ' ', 't', 'h', 'i', 's'};

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
  SigningCard(const Cards &cards, const RawModule &raw, int certificates)
      : cards_(cards),
        certificates_(certificates),
        extension_(cards.Bundle(certificates)),
        functions_(raw.functions()),
        session_(raw.OpenSession(Cards::Label(certificates))) {
    LogIn(extension_, cards.pin());
  }

  std::size_t Objects() const { return FindObjects(functions_, session_, {}).size(); }
  void RegisterAll(const Kind &kind) const;

 private:
  // Registers `call`, which is `sign` where it is empty, after a signature of the message that is
  // verified.
  void RegisterOne(const Kind &kind, const std::string &who, const std::function<Bytes()> &sign,
                   std::function<bool()> call = {}) const;

  const Cards &cards_;
  int certificates_;
  endtoend::Inserted extension_;
  CK_FUNCTION_LIST *functions_;
  CK_SESSION_HANDLE session_;
};

void SigningCard::RegisterOne(const Kind &kind, const std::string &who,
                              const std::function<Bytes()> &sign,
                              std::function<bool()> call) const {
  const std::string name = kind.name + "/" + std::to_string(Objects()) + "/" + who;
  // The module's own ECDSA signatures are no DER.
  const bool is_der = kind.mechanism != CKM_ECDSA || who != "module";
  const OpensslKey key = cards_.PublicKey(certificates_, kind.name);
  if (is_der && !key.Verifies(Hash::kSha256, kMessage, sign())) {
    throw std::runtime_error(name + ": the signature does not verify");
  }
  if (!call) call = [sign] { return !sign().empty(); };
  Register(name, call);
}

void SigningCard::RegisterAll(const Kind &kind) const {
  const Bytes digest = host::Digest(Hash::kSha256, kMessage);
  const Bytes input = kind.mechanism == CKM_ECDSA
                          ? digest
                          : *host::PadPkcs1(host::DigestInfo(Hash::kSha256, digest), kModulusSize);
  const RawKey raw = {functions_, session_, FindPrivateKey(functions_, session_, kind.id)};
  Token *token = extension_.token();
  TokenSession *session = extension_.session();
  const SigningRequest request = MakeRequest(input, kind.key, kind.algorithm);
  RegisterOne(kind, "module", [=] { return SignRaw(raw, kind.mechanism, input); });
  RegisterOne(kind, "five_calls",
              [=] { return SignWithFiveCalls(token, kind.id, kind.mechanism, input); });
  RegisterOne(
      kind, "delegate",
      [=] {
        @autoreleasepool {
          return host::ToBytes(Sign(session, request));
        }
      },
      [=] {
        @autoreleasepool {
          return Sign(session, request) != nil;
        }
      });
  const std::string uri = PrivateKeyUri(Cards::Label(certificates_), kind.id);
  const Signer gnutls = GnutlsSigner(uri);
  RegisterOne(kind, "gnutls", [=] { return gnutls(digest); });
  const Signer engine = EngineSigner(uri);
  RegisterOne(kind, "openssl_engine", [=] { return engine(digest); });
}

struct Signatures {
  Signatures() {
    raw.AddDataObject(Cards::Label(kMany));
    if (few.Objects() != kFewObjects || many.Objects() != kManyObjects) {
      throw std::runtime_error("the cards do not have the objects that they should");
    }
  }

  const Cards cards{{kFew, kMany}};
  const RawModule raw;
  const SigningCard few{cards, raw, kFew};
  const SigningCard many{cards, raw, kMany};
};

Fixture RegisterSignatures(const Kind &kind) {
  auto fixture = std::make_shared<Signatures>();
  fixture->few.RegisterAll(kind);
  fixture->many.RegisterAll(kind);
  return fixture;
}

}  // namespace

Fixture RegisterRsaSignatures() {
  return RegisterSignatures(
      {"rsa", 1, CKM_RSA_X_509, kSecKeyAlgorithmRSASignatureRaw, endtoend::RsaKey()});
}

Fixture RegisterEcSignatures() {
  return RegisterSignatures(
      {"ec", 2, CKM_ECDSA, kSecKeyAlgorithmECDSASignatureDigestX962, endtoend::EcKey()});
}

}  // namespace kelvrin::bench

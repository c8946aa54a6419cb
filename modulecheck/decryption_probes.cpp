// RSA decryption, of messages that the probes encrypt themselves, and key agreement.
#include <algorithm>
#include <array>

#include "encoding/elliptic_curve.h"
#include "modulecheck/probes.h"
#include "modulecheck/verify.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMessage = 32;

// Whether a block has the message behind padding, whichever: a module that removes the padding
// leaves nobody the one that was there.
bool Holds(const Bytes& block, std::size_t size, ByteView message) {
  if (block.size() != size || block[0] != 0 || block[1] != 2) return false;
  const auto padding = std::find(block.begin() + 2, block.end(), CK_BYTE{0});
  return padding != block.end() &&
         std::equal(padding + 1, block.end(), message.begin(), message.end());
}

// Judges what each RSA key decrypts a message to.
template <typename IsRight>
Judgement ForDecryption(ProbeContext& context, CK_MECHANISM_TYPE mechanism, IsRight is_right) {
  const std::vector<Key> keys = context.contents().OrdinaryKeys(CKK_RSA, CKA_DECRYPT);
  if (!keys.empty() && !Encrypt(keys.front().certificate, ProbeData(kMessage))) {
    return NotTried("nothing can be encrypted for the key on this system");
  }
  return JudgeEach(context, keys, "no RSA key of a certificate can decrypt", [&](const Key& key) {
    const Session own(context.module);
    const Bytes ciphertext = Encrypt(key.certificate, ProbeData(kMessage)).value_or(Bytes());
    const OperationResult made = Decrypt(own, key, mechanism, ciphertext);
    const std::string with = "with " + MechanismText(mechanism) + " and the key " + NameOf(key);
    if (made.result != CKR_OK) return made.Failed(with);
    return is_right(key, made.output) ? Met() : made.Failed("the plaintext is wrong " + with);
  });
}

// Derives a secret as the extension does, from an empty template, and destroys it.
Judgement Derive(const Session& session, const Key& key, const Peer& peer) {
  CK_ECDH1_DERIVE_PARAMS parameters = {CKD_NULL, 0, nullptr, peer.point.size(),
                                       const_cast<CK_BYTE*>(peer.point.data())};
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
  CK_RV result =
      session.p11()->C_DeriveKey(session.handle(), &mechanism, key.handle, nullptr, 0, &derived);
  if (result != CKR_OK) return Unmet("C_DeriveKey", result, "with the key " + NameOf(key));
  std::array<CK_BYTE, kRoom> secret = {};
  CK_ATTRIBUTE value = {CKA_VALUE, secret.data(), secret.size()};
  result = session.p11()->C_GetAttributeValue(session.handle(), derived, &value, 1);
  session.p11()->C_DestroyObject(session.handle(), derived);
  if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, "of the secret's CKA_VALUE");
  const auto made = std::span(secret).first(std::min<std::size_t>(value.ulValueLen, kRoom));
  const std::size_t size = encoding::CurveSize(key.facts.ec_parameters);
  const bool is_right =
      peer.secret.empty() ? made.size() == size : std::ranges::equal(made, peer.secret);
  return is_right ? Met() : Unmet("the secret is wrong with the key " + NameOf(key));
}

}  // namespace

Judgement ProbeDecryptPkcs(ProbeContext& context) {
  return ForDecryption(context, CKM_RSA_PKCS, [](const Key& /*key*/, const Bytes& plaintext) {
    return std::ranges::equal(plaintext, ProbeData(kMessage));
  });
}

Judgement ProbeDecryptRaw(ProbeContext& context) {
  return ForDecryption(context, CKM_RSA_X_509, [](const Key& key, const Bytes& plaintext) {
    return Holds(plaintext, key.facts.modulus.size(), ProbeData(kMessage));
  });
}

Judgement ProbeDerivation(ProbeContext& context) {
  if (!Offers(context.module, CKM_ECDH1_DERIVE)) {
    return NotConcerned("the slot does not offer CKM_ECDH1_DERIVE");
  }
  const Session session(context.module);
  const std::vector<Key> keys = context.contents().OrdinaryKeys(CKK_EC, CKA_DERIVE);
  return JudgeEach(context, keys, "no EC key of a certificate can derive", [&](const Key& key) {
    const auto peer = MakePeer(key.certificate);
    if (!peer) return NotConcerned("nobody to agree with");
    // Twice, since the first secret may stand in the way of the second.
    Judgement first = Derive(session, key, *peer);
    return first.outcome == Outcome::kMet ? Derive(session, key, *peer) : first;
  });
}

}  // namespace kelvrin::modulecheck

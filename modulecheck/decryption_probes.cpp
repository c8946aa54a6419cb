// RSA decryption, of messages that the probes encrypt themselves.
#include <algorithm>

#include "modulecheck/private_keys.h"
#include "modulecheck/probes.h"
#include "modulecheck/rsa_public.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMessage = 32;
constexpr std::size_t kLeastBlock = 64;

struct Encrypted {
  Key key;
  Bytes block;
  Bytes ciphertext;
};

std::optional<Encrypted> Encrypt(const Module& module, CK_SESSION_HANDLE session) {
  const std::optional<Key> key = FindPrivateKey(module, session, CKK_RSA, CKA_DECRYPT);
  if (!key) return std::nullopt;
  const RsaPublicKey pair = {key->modulus, key->exponent};
  const std::size_t size = ModulusSize(pair);
  if (size < kLeastBlock) return std::nullopt;
  const Bytes block = EncryptionBlock(ProbeData(kMessage), size);
  const std::optional<Bytes> ciphertext = ApplyPublicKey(pair, block);
  if (!ciphertext) return std::nullopt;
  return Encrypted{*key, block, *ciphertext};
}

Judgement NoKey() { return NotConcerned("no RSA key of a certificate can decrypt"); }

// Whether a block has the message behind padding, whichever: a module that removes the padding
// leaves nobody the one that was there.
bool Holds(const Bytes& block, std::size_t size, std::span<const CK_BYTE> message) {
  if (block.size() != size || block[0] != 0 || block[1] != 2) return false;
  const auto padding = std::find(block.begin() + 2, block.end(), CK_BYTE{0});
  return padding != block.end() &&
         std::equal(padding + 1, block.end(), message.begin(), message.end());
}

}  // namespace

Judgement ProbeDecryptPkcs(Module& module) {
  const ProbeSession session(module);
  const std::optional<Encrypted> encrypted = Encrypt(module, session.handle());
  if (!encrypted) return NoKey();
  const OperationResult made =
      Decrypt(module, session.handle(), encrypted->key, CKM_RSA_PKCS, encrypted->ciphertext);
  if (made.result != CKR_OK) return made.Failed("with CKM_RSA_PKCS");
  const auto message = ProbeData(kMessage);
  const bool is_right = std::ranges::equal(made.output, message);
  return is_right ? Met() : made.Failed("the plaintext is wrong");
}

Judgement ProbeDecryptRaw(Module& module) {
  const ProbeSession session(module);
  const std::optional<Encrypted> encrypted = Encrypt(module, session.handle());
  if (!encrypted) return NoKey();
  const OperationResult made =
      Decrypt(module, session.handle(), encrypted->key, CKM_RSA_X_509, encrypted->ciphertext);
  if (made.result != CKR_OK) return made.Failed("with CKM_RSA_X_509");
  if (Holds(made.output, encrypted->block.size(), ProbeData(kMessage))) return Met();
  return made.Failed("the plaintext is wrong");
}

}  // namespace kelvrin::modulecheck

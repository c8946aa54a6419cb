// Raw RSA signatures.
#include <algorithm>

#include "modulecheck/private_keys.h"
#include "modulecheck/probes.h"
#include "modulecheck/rsa_public.h"

namespace kelvrin::modulecheck {
namespace {

// A DigestInfo of SHA-256 has as many.
constexpr std::size_t kShort = 51;
constexpr std::size_t kSha256Size = 32;
constexpr std::size_t kLeastBlock = 64;

struct Signer {
  Key key;
  RsaPublicKey pair;
  std::size_t size;  // of the modulus, in bytes
};

std::optional<Signer> FindSigner(const Module& module, CK_SESSION_HANDLE session) {
  const std::optional<Key> key = FindPrivateKey(module, session, CKK_RSA, CKA_SIGN);
  if (!key) return std::nullopt;
  const RsaPublicKey pair = {key->modulus, key->exponent};
  const std::size_t size = ModulusSize(pair);
  if (size < kLeastBlock) return std::nullopt;
  return Signer{*key, pair, size};
}

Judgement NoKey() { return NotConcerned("no RSA key of a certificate can sign"); }

// Whether the signature gives the block back.
Judgement Check(const Signer& signer, const OperationResult& made, const Bytes& block) {
  const std::optional<Bytes> opened = ApplyPublicKey(signer.pair, made.output);
  if (made.output.size() == signer.size && opened == block) return Met();
  return made.Failed("the signature is wrong");
}

}  // namespace

Judgement ProbeRawRsaBlock(Module& module) {
  const ProbeSession session(module);
  const std::optional<Signer> signer = FindSigner(module, session.handle());
  if (!signer) return NoKey();
  const Bytes block = SignatureBlock(ProbeData(kSha256Size), signer->size);
  const OperationResult made = Sign(module, session.handle(), signer->key, CKM_RSA_X_509, block);
  if (made.result != CKR_OK) return made.Failed("with CKM_RSA_X_509");
  return Check(*signer, made, block);
}

Judgement ProbeRawRsaShort(Module& module) {
  const ProbeSession session(module);
  const std::optional<Signer> signer = FindSigner(module, session.handle());
  if (!signer) return NoKey();
  if (!Offers(module, CKM_RSA_X_509)) {
    return NotConcerned("without CKM_RSA_X_509 only blocks of PKCS#1 v1.5 can be signed");
  }
  const auto data = ProbeData(kShort);
  const OperationResult made = Sign(module, session.handle(), signer->key, CKM_RSA_X_509, data);
  if (made.result != CKR_OK) return made.Failed("of 51 bytes");
  Bytes block(signer->size - data.size(), 0);
  block.insert(block.end(), data.begin(), data.end());
  return Check(*signer, made, block);
}

Judgement ProbeRawRsaTooLong(Module& module) {
  const ProbeSession session(module);
  const std::optional<Signer> signer = FindSigner(module, session.handle());
  if (!signer) return NoKey();
  const Bytes data(signer->size + 1, 0x5a);
  const OperationResult made = Sign(module, session.handle(), signer->key, CKM_RSA_X_509, data);
  if (made.result != CKR_OK) return Met();
  return made.Failed("more bytes than the modulus has are signed, which means nothing");
}

}  // namespace kelvrin::modulecheck

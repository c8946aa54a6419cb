// ECDSA signatures.
#include "modulecheck/curves.h"
#include "modulecheck/der.h"
#include "modulecheck/private_keys.h"
#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kSha1Size = 20;
constexpr std::size_t kSha256Size = 32;
// Numbers of a signature on the largest curve there is.
constexpr std::size_t kLargestSize = 66;

Judgement NoKey() { return NotConcerned("no EC key of a certificate can sign"); }

std::optional<Key> FindSigner(const Module& module, CK_SESSION_HANDLE session) {
  return FindPrivateKey(module, session, CKK_EC, CKA_SIGN);
}

std::size_t NumberSize(const Key& key) {
  const Curve* const curve = FindCurve(key.ec_params);
  return curve == nullptr ? kLargestSize : curve->size;
}

// Whether the module itself takes the signature for one of this digest; nothing when it cannot
// tell.
std::optional<bool> Verify(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                           std::span<const CK_BYTE> digest, Bytes signature) {
  const Handles found = FindId(module, session, CKO_PUBLIC_KEY, key.id);
  CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
  if (found.empty() || module.p11()->C_VerifyInit(session, &mechanism, found.front()) != CKR_OK) {
    return std::nullopt;
  }
  // Modules verify what the standard says: the two numbers, raw.
  if (auto raw = RawEcdsaSignature(signature, NumberSize(key))) signature = *raw;
  const CK_RV result = module.p11()->C_Verify(session, const_cast<CK_BYTE*>(digest.data()),
                                              digest.size(), signature.data(), signature.size());
  if (result == CKR_OK) return true;
  if (result == CKR_SIGNATURE_INVALID || result == CKR_SIGNATURE_LEN_RANGE) return false;
  return std::nullopt;
}

}  // namespace

Judgement ProbeEcdsaDer(Module& module) {
  const ProbeSession session(module);
  const std::optional<Key> key = FindSigner(module, session.handle());
  if (!key) return NoKey();
  const auto digest = ProbeData(kSha256Size);
  const OperationResult made = Sign(module, session.handle(), *key, CKM_ECDSA, digest);
  if (made.result != CKR_OK) return made.Failed("of a digest with CKM_ECDSA");
  if (!RawEcdsaSignature(made.output, NumberSize(*key))) {
    return made.Failed("the signature (" + Counted(made.output.size(), "byte") +
                       ") is raw, not DER: macOS would refuse it");
  }
  if (Verify(module, session.handle(), *key, digest, made.output).value_or(true)) return Met();
  return made.Failed("the signature is wrong");
}

Judgement ProbeEcdsaLongDigests(Module& module) {
  for (const std::size_t size : {std::size_t{48}, std::size_t{64}}) {
    const ProbeSession session(module);
    const std::optional<Key> key = FindSigner(module, session.handle());
    if (!key) return NoKey();
    const OperationResult made = Sign(module, session.handle(), *key, CKM_ECDSA, ProbeData(size));
    if (made.result == CKR_OK) continue;
    return made.Failed("of a digest of " + std::to_string(size) + " bytes");
  }
  return Met();
}

Judgement ProbeEcdsaSha1(Module& module) {
  const ProbeSession session(module);
  const std::optional<Key> key = FindSigner(module, session.handle());
  if (!key) return NoKey();
  const auto digest = ProbeData(kSha1Size);
  const OperationResult made = Sign(module, session.handle(), *key, CKM_ECDSA_SHA1, digest);
  if (made.result != CKR_OK) return made.Failed("with CKM_ECDSA_SHA1");
  if (Verify(module, session.handle(), *key, digest, made.output).value_or(true)) return Met();
  return made.Failed("CKM_ECDSA_SHA1 hashes what is a digest already");
}

}  // namespace kelvrin::modulecheck

// Signing.
#include "encoding/ecdsa_signature.h"
#include "encoding/elliptic_curve.h"
#include "modulecheck/probes.h"
#include "modulecheck/verify.h"
#include "p11/bringup.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kSha1Size = 20;
constexpr std::size_t kSha256Size = 32;
// A DigestInfo of SHA-256 has as many bytes.
constexpr std::size_t kShort = 51;

std::string With(const Key& key) { return ", key " + NameOf(key); }

// A SHA-256 digest as PKCS#1 v1.5 lays it out for a signature.
Bytes SignatureBlock(std::size_t size) {
  constexpr CK_BYTE kDigestInfo[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                     0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  const ByteView digest = ProbeData(kSha256Size);
  Bytes block = {0, 1};
  block.resize(size - 1 - sizeof(kDigestInfo) - digest.size(), 0xff);
  block.push_back(0);
  block.insert(block.end(), std::begin(kDigestInfo), std::end(kDigestInfo));
  block.insert(block.end(), digest.begin(), digest.end());
  return block;
}

// The RSA keys that can sign, of a size that anybody uses.
std::vector<Key> RsaSigners(const Contents& contents) {
  constexpr std::size_t kLeastModulus = 64;
  std::vector<Key> keys = contents.OrdinaryKeys(CKK_RSA, CKA_SIGN);
  std::erase_if(keys, [](const Key& key) { return key.facts.modulus.size() < kLeastModulus; });
  return keys;
}

std::vector<Key> EcSigners(const Contents& contents) {
  return contents.OrdinaryKeys(CKK_EC, CKA_SIGN);
}

std::vector<Key> Signers(const Contents& contents) {
  std::vector<Key> keys = EcSigners(contents);
  return keys.empty() ? RsaSigners(contents) : keys;
}

// What the key would sign for the extension at its simplest: a digest, or a block that holds one.
OperationResult SignPlainly(const Module& module, const Session& session, const Key& key,
                            CK_ULONG room = kRoom) {
  const ByteView digest = ProbeData(kSha256Size);
  if (key.type != CKK_RSA) return Sign(session, key, CKM_ECDSA, digest, room);
  if (!Offers(module, CKM_RSA_X_509)) return Sign(session, key, CKM_RSA_PKCS, digest, room);
  return Sign(session, key, CKM_RSA_X_509, SignatureBlock(key.facts.modulus.size()), room);
}

// Judges each key with a session of its own.
template <typename JudgeOne>
Judgement ForKeys(ProbeContext& context, const std::vector<Key>& keys, const char* none,
                  JudgeOne judge_one) {
  return JudgeEach(context, keys, none, [&](const Key& key) {
    const Session own(context.module);
    return judge_one(own, key);
  });
}

template <typename JudgeOne>
Judgement ForSigners(ProbeContext& context, std::vector<Key> (*find)(const Contents&),
                     JudgeOne judge_one) {
  return ForKeys(context, find(context.contents()), "no such key of a certificate can sign",
                 judge_one);
}

}  // namespace

Judgement ProbeLoginState(ProbeContext& context) {
  CK_BBOOL required = CK_TRUE;
  const CK_RV result = login_required(context.module.p11(), context.module.session(), &required);
  if (result != CKR_OK) return Unmet("C_GetSessionInfo", result);
  if (required == CK_FALSE) return Met();
  return Unmet("C_GetSessionInfo", result, "the session does not say that it is logged in");
}

Judgement ProbeSignDuringSearch(ProbeContext& context) {
  return ForSigners(context, Signers, [&](const Session& session, const Key& key) {
    // The search stays open.
    Key found = key;
    const CK_RV result =
        get_priv_key(session.p11(), session.handle(), key.id.data(), key.id.size(), &found.handle);
    if (result != CKR_OK) return Unmet("C_FindObjectsInit", result);
    const OperationResult made = SignPlainly(context.module, session, found);
    return made.result == CKR_OK ? Met() : made.Failed("while a search is open" + With(key));
  });
}

Judgement ProbeSignAfterFailure(ProbeContext& context) {
  return ForSigners(context, Signers, [&](const Session& session, const Key& key) {
    SignPlainly(context.module, session, key, 1);  // no signature fits
    const OperationResult made = SignPlainly(context.module, session, key);
    return made.result == CKR_OK ? Met()
                                 : made.Failed("after a signature that found no room" + With(key));
  });
}

Judgement ProbeContextLogin(ProbeContext& context) {
  const Contents& contents = context.contents();
  std::vector<Key> keys = contents.CertifiedKeys(CKK_RSA, CKA_SIGN);
  for (Key& key : contents.CertifiedKeys(CKK_EC, CKA_SIGN)) keys.push_back(std::move(key));
  std::erase_if(keys, [&](const Key& key) {
    return !ReadFlag(contents.session, key.handle, CKA_ALWAYS_AUTHENTICATE);
  });
  return ForKeys(context, keys, "no key wants a login for each operation",
                 [&](const Session& session, const Key& key) {
                   const OperationResult made = SignPlainly(context.module, session, key);
                   return made.result == CKR_OK ? Met()
                                                : made.Failed("of a plain signature" + With(key));
                 });
}

Judgement ProbeRawRsaBlock(ProbeContext& context) {
  return ForSigners(context, RsaSigners, [](const Session& session, const Key& key) {
    const Bytes block = SignatureBlock(key.facts.modulus.size());
    const OperationResult made = Sign(session, key, CKM_RSA_X_509, block);
    if (made.result != CKR_OK) return made.Failed("with CKM_RSA_X_509" + With(key));
    if (IsRsaSignature(key.certificate, block, made.output)) return Met();
    return made.Failed("the signature is wrong" + With(key));
  });
}

Judgement ProbeRawRsaShort(ProbeContext& context) {
  if (!Offers(context.module, CKM_RSA_X_509)) {
    return NotConcerned("without CKM_RSA_X_509 only blocks of PKCS#1 v1.5 can be signed");
  }
  return ForSigners(context, RsaSigners, [](const Session& session, const Key& key) {
    const ByteView data = ProbeData(kShort);
    const OperationResult made = Sign(session, key, CKM_RSA_X_509, data);
    if (made.result != CKR_OK) return made.Failed("of 51 bytes" + With(key));
    Bytes block(key.facts.modulus.size() - data.size(), 0);
    block.insert(block.end(), data.begin(), data.end());
    if (IsRsaSignature(key.certificate, block, made.output)) return Met();
    return made.Failed("the signature is wrong" + With(key));
  });
}

Judgement ProbeRawRsaTooLong(ProbeContext& context) {
  return ForSigners(context, RsaSigners, [](const Session& session, const Key& key) {
    const Bytes data(key.facts.modulus.size() + 1, 0x5a);
    const OperationResult made = Sign(session, key, CKM_RSA_X_509, data);
    if (made.result != CKR_OK) return Met();
    return made.Failed("more bytes than the modulus has are signed, which means nothing" +
                       With(key));
  });
}

Judgement ProbeEcdsaDer(ProbeContext& context) {
  return ForSigners(context, EcSigners, [](const Session& session, const Key& key) {
    const ByteView digest = ProbeData(kSha256Size);
    const OperationResult made = Sign(session, key, CKM_ECDSA, digest);
    if (made.result != CKR_OK) return made.Failed("of a digest with CKM_ECDSA" + With(key));
    const std::size_t size = encoding::CurveSize(key.facts.ec_parameters);
    if (!encoding::EcdsaSignatureToRaw(made.output, size)) {
      return made.Failed("the signature (" + Counted(made.output.size(), "byte") +
                         ") is raw, not DER: macOS would refuse it");
    }
    if (IsEcdsaSignature(key.certificate, digest, made.output)) return Met();
    return made.Failed("the signature is wrong" + With(key));
  });
}

Judgement ProbeEcdsaLongDigests(ProbeContext& context) {
  return ForSigners(context, EcSigners, [](const Session& session, const Key& key) {
    for (const std::size_t size : {std::size_t{48}, std::size_t{64}}) {
      const OperationResult made = Sign(session, key, CKM_ECDSA, ProbeData(size));
      if (made.result == CKR_OK) continue;
      return made.Failed("of a digest of " + std::to_string(size) + " bytes" + With(key));
    }
    return Met();
  });
}

Judgement ProbeEcdsaSha1(ProbeContext& context) {
  return ForSigners(context, EcSigners, [](const Session& session, const Key& key) {
    const ByteView digest = ProbeData(kSha1Size);
    const OperationResult made = Sign(session, key, CKM_ECDSA_SHA1, digest);
    if (made.result != CKR_OK) return made.Failed("with CKM_ECDSA_SHA1" + With(key));
    // Raw or DER is an expectation of its own.
    Bytes signature = made.output;
    const std::size_t size = encoding::CurveSize(key.facts.ec_parameters);
    if (signature.size() == 2 * size) signature = encoding::EcdsaSignatureToDer(signature);
    if (IsEcdsaSignature(key.certificate, digest, signature)) return Met();
    return made.Failed("CKM_ECDSA_SHA1 hashes what is a digest already" + With(key));
  });
}

}  // namespace kelvrin::modulecheck

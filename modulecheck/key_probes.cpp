// What public keys say of themselves.
#include <algorithm>

#include "modulecheck/probes.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

// The most allowed mechanisms that the extension reads.
constexpr CK_ULONG kMaxMechanisms = 20;

constexpr char kNone[] = "no public key belongs to a certificate";

std::string Of(const Key& key) { return "of the key " + NameOf(key); }

// Whether each of the flags can be read: a read that succeeds with the length -1 tells nothing.
Judgement JudgeFlags(const Session& session, const Key& key) {
  for (const Usage& usage : kPublicUsages) {
    CK_BBOOL flag = CK_FALSE;
    CK_ATTRIBUTE attribute = {usage.type, &flag, sizeof(flag)};
    const CK_RV result =
        session.p11()->C_GetAttributeValue(session.handle(), key.handle, &attribute, 1);
    if (result == CKR_OK && attribute.ulValueLen == sizeof(flag)) continue;
    const bool is_minus_one = attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION;
    const std::string length = is_minus_one ? "-1" : std::to_string(attribute.ulValueLen);
    return Unmet("C_GetAttributeValue", result,
                 "CKA_" + std::string(usage.name) + " " + Of(key) +
                     (result == CKR_OK ? " has the length " + length : ""));
  }
  return Met();
}

Judgement JudgeMechanisms(const Session& session, const Key& key) {
  std::vector<CK_MECHANISM_TYPE> list(kMaxMechanisms);
  CK_ULONG count = list.size();
  const CK_RV result =
      get_mechanism_list(session.p11(), session.handle(), key.handle, list.data(), &count);
  if (result == CKR_DEVICE_MEMORY) {
    return Unmet("C_GetAttributeValue", result, "the list " + Of(key) + " is too long");
  }
  if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, Of(key));
  if (count == 0) return Unmet("C_GetAttributeValue", result, "the list " + Of(key) + " is empty");
  list.resize(std::min(count, kMaxMechanisms));
  // Without it the key is of no use to the extension.
  const CK_MECHANISM_TYPE needed = key.type == CKK_RSA ? CKM_RSA_X_509 : CKM_ECDSA;
  if (std::ranges::find(list, needed) != list.end()) return Met();
  return Unmet("C_GetAttributeValue", result,
               "the list " + Of(key) + " lacks " + MechanismText(needed));
}

}  // namespace

Judgement ProbeUsageFlags(ProbeContext& context) {
  const Contents& contents = context.contents();
  return JudgeEach(context, contents.CertifiedPublicKeys({CKK_RSA, CKK_EC}), kNone,
                   [&](const Key& key) { return JudgeFlags(contents.session, key); });
}

Judgement ProbeEcUsage(ProbeContext& context) {
  const Contents& contents = context.contents();
  const auto judge = [&](const Key& key) {
    for (const Usage& usage : kPublicUsages) {
      const bool decrypts = usage.type == CKA_ENCRYPT || usage.type == CKA_WRAP;
      if (!decrypts || !ReadFlag(contents.session, key.handle, usage.type)) continue;
      return Unmet("CKA_" + std::string(usage.name) + " " + Of(key) +
                   " is true: the token would offer to decrypt with it");
    }
    return Met();
  };
  return JudgeEach(context, contents.CertifiedPublicKeys({CKK_EC}),
                   "no EC key belongs to a certificate", judge);
}

Judgement ProbeAllowedMechanisms(ProbeContext& context) {
  const Contents& contents = context.contents();
  return JudgeEach(context, contents.CertifiedPublicKeys({CKK_RSA, CKK_EC}), kNone,
                   [&](const Key& key) { return JudgeMechanisms(contents.session, key); });
}

Judgement ProbeRawRsaOffered(ProbeContext& context) {
  const Contents& contents = context.contents();
  const std::vector<Key> keys = contents.CertifiedPublicKeys({CKK_RSA});
  if (keys.empty()) return NotConcerned("no RSA key belongs to a certificate");
  const bool is_listed = std::ranges::any_of(keys, [&](const Key& key) {
    return JudgeMechanisms(contents.session, key).outcome == Outcome::kMet;
  });
  if (is_listed || Offers(context.module, CKM_RSA_X_509)) return Met();
  return Unmet("the slot does not offer CKM_RSA_X_509");
}

}  // namespace kelvrin::modulecheck

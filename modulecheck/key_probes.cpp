// What public keys say of themselves.
#include <algorithm>

#include "p11/lookup.h"
#include "modulecheck/objects.h"
#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {
namespace {

// The most allowed mechanisms that the extension reads.
constexpr CK_ULONG kMaxMechanisms = 20;

struct Usage {
  CK_ATTRIBUTE_TYPE type;
  const char* name;
};
constexpr Usage kUsages[] = {{CKA_VERIFY, "CKA_VERIFY"},
                             {CKA_ENCRYPT, "CKA_ENCRYPT"},
                             {CKA_WRAP, "CKA_WRAP"},
                             {CKA_DERIVE, "CKA_DERIVE"}};

// The public keys that belong to a certificate: the others do not matter to the extension.
std::vector<Key> PublicKeys(const Module& module, CK_SESSION_HANDLE session) {
  std::vector<Key> keys = ReadKeys(module, session, CKO_PUBLIC_KEY);
  const std::vector<Certificate> certificates = ReadCertificates(module, session);
  std::erase_if(keys, [&](const Key& key) {
    return std::none_of(certificates.begin(), certificates.end(),
                        [&](const Certificate& candidate) { return candidate.id == key.id; });
  });
  // Keys that the module does not list but finds by their CKA_ID.
  for (const Certificate& certificate : certificates) {
    if (std::any_of(keys.begin(), keys.end(),
                    [&](const Key& key) { return key.id == certificate.id; })) {
      continue;
    }
    for (const Key& key : ReadKeysById(module, session, CKO_PUBLIC_KEY, certificate.id)) {
      keys.push_back(key);
    }
  }
  return keys;
}

Judgement NoKeys() { return NotConcerned("no public key belongs to a certificate"); }

std::string Of(const Key& key) { return "of the key " + NameOf(key.label, key.id); }

bool Has(const std::vector<CK_MECHANISM_TYPE>& list, CK_MECHANISM_TYPE mechanism) {
  return std::find(list.begin(), list.end(), mechanism) != list.end();
}

// The mechanism without which a key is of no use to the extension.
CK_MECHANISM_TYPE Indispensable(const Key& key) {
  return key.type == CKK_RSA ? CKM_RSA_X_509 : CKM_ECDSA;
}

Judgement JudgeMechanisms(const Module& module, CK_SESSION_HANDLE session, const Key& key) {
  std::vector<CK_MECHANISM_TYPE> list(kMaxMechanisms);
  CK_ULONG count = list.size();
  const CK_RV result = get_mechanism_list(module.p11(), session, key.handle, list.data(), &count);
  if (result == CKR_DEVICE_MEMORY) {
    return Unmet("C_GetAttributeValue", result, "the list " + Of(key) + " is too long");
  }
  if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, Of(key));
  if (count == 0) return Unmet("C_GetAttributeValue", result, "the list " + Of(key) + " is empty");
  list.resize(std::min(count, kMaxMechanisms));
  const CK_MECHANISM_TYPE needed = Indispensable(key);
  if (Has(list, needed)) return Met();
  return Unmet("C_GetAttributeValue", result,
               "the list " + Of(key) + " lacks " + MechanismText(needed));
}

}  // namespace

Judgement ProbeUsageFlags(Module& module) {
  const ProbeSession session(module);
  const std::vector<Key> keys = PublicKeys(module, session.handle());
  if (keys.empty()) return NoKeys();
  for (const Key& key : keys) {
    for (const Usage& usage : kUsages) {
      CK_BBOOL flag = CK_FALSE;
      const CK_RV result =
          is_attr_supported(module.p11(), session.handle(), key.handle, usage.type, &flag);
      if (result == CKR_OK) continue;
      return Unmet("C_GetAttributeValue", result, std::string(usage.name) + " " + Of(key));
    }
  }
  return Met();
}

Judgement ProbeEcUsage(Module& module) {
  const ProbeSession session(module);
  bool has_any = false;
  for (const Key& key : PublicKeys(module, session.handle())) {
    if (key.type != CKK_EC) continue;
    has_any = true;
    for (const CK_ATTRIBUTE_TYPE type : {CKA_ENCRYPT, CKA_WRAP}) {
      if (!ReadFlag(module, session.handle(), key.handle, type)) continue;
      return Unmet(std::string(type == CKA_WRAP ? "CKA_WRAP" : "CKA_ENCRYPT") + " " + Of(key) +
                   " is true: the token would offer to decrypt with it");
    }
  }
  return has_any ? Met() : NotConcerned("no EC key belongs to a certificate");
}

Judgement ProbeAllowedMechanisms(Module& module) {
  const ProbeSession session(module);
  const std::vector<Key> keys = PublicKeys(module, session.handle());
  if (keys.empty()) return NoKeys();
  for (const Key& key : keys) {
    if (key.type != CKK_RSA && key.type != CKK_EC) continue;
    Judgement judgement = JudgeMechanisms(module, session.handle(), key);
    if (judgement.outcome != Outcome::kMet) return judgement;
  }
  return Met();
}

Judgement ProbeRawRsaOffered(Module& module) {
  const ProbeSession session(module);
  bool has_any = false;
  for (const Key& key : PublicKeys(module, session.handle())) {
    if (key.type != CKK_RSA) continue;
    has_any = true;
    if (JudgeMechanisms(module, session.handle(), key).outcome == Outcome::kMet) return Met();
  }
  if (!has_any) return NotConcerned("no RSA key belongs to a certificate");
  if (Offers(module, CKM_RSA_X_509)) return Met();
  return Unmet("the slot does not offer CKM_RSA_X_509");
}

}  // namespace kelvrin::modulecheck

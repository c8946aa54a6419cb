#include "adapter/certificate_choice.h"

#include <algorithm>
#include <optional>

#include "encoding/certificate.h"
#include "adapter/object_reading.h"

namespace kelvrin::adapter {
namespace {

// CKA_CERTIFICATE_CATEGORY, which the header does not name.
constexpr CK_ATTRIBUTE_TYPE kCategory = 0x87;
constexpr CK_ULONG kAuthority = 2;
constexpr CK_ULONG kOtherEntity = 3;

enum class KeyState { kSeen, kPossible, kNone };

struct Certificate {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  bool is_oversize = false;
  KeyState key = KeyState::kPossible;
  std::optional<CertificateFacts> facts;  // read where nothing simpler decides
};

Certificate Look(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, const KeysSeen& keys,
                 CK_OBJECT_HANDLE handle) {
  Certificate certificate;
  certificate.handle = handle;
  certificate.is_oversize =
      ReadLength(inner, session, handle, CKA_VALUE).value_or(0) > kMaxCertificate;
  const Bytes id = ReadAttribute(inner, session, handle, CKA_ID, kMaxId).value_or(Bytes());
  if (keys.ids.contains(id)) {
    certificate.key = KeyState::kSeen;
    return certificate;
  }
  const CK_ULONG category = ReadNumber(inner, session, handle, kCategory).value_or(0);
  if (keys.all || id.empty() || category == kAuthority || category == kOtherEntity) {
    certificate.key = KeyState::kNone;
    return certificate;
  }
  const auto der = ReadAttribute(inner, session, handle, CKA_VALUE, kMaxCertificateRead);
  if (der) certificate.facts = ReadCertificate(*der);
  return certificate;
}

// Whether another certificate than `authority`, whose facts these are, names it as its issuer.
// Those whose key was seen were not read yet.
bool HasIssued(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
               const Certificate& authority, const CertificateFacts& facts,
               std::vector<Certificate>* all) {
  for (Certificate& other : *all) {
    if (&other == &authority) continue;
    if (!other.facts) {
      const auto der = ReadAttribute(inner, session, other.handle, CKA_VALUE, kMaxCertificateRead);
      if (der) other.facts = ReadCertificate(*der);
    }
    if (other.facts && other.facts->issuer == facts.subject &&
        other.facts->subject != facts.subject) {
      return true;
    }
  }
  return false;
}

}  // namespace

Handles ArrangeCertificates(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                            const Rules& rules, const KeysSeen& keys, const Handles& found) {
  std::vector<Certificate> all;
  all.reserve(found.size());
  for (const CK_OBJECT_HANDLE handle : found) {
    all.push_back(Look(inner, session, keys, handle));
  }
  for (Certificate& one : all) {
    if (one.key != KeyState::kPossible || !one.facts || !one.facts->is_ca) continue;
    if (one.facts->signs_certificates_only || HasIssued(inner, session, one, *one.facts, &all)) {
      one.key = KeyState::kNone;
    }
  }
  if (rules.Has(Rule::kOversizeCertificates)) {
    std::erase_if(all, [](const Certificate& one) { return one.is_oversize; });
  }
  if (rules.Has(Rule::kKeylessCertificates)) {
    std::erase_if(all, [](const Certificate& one) { return one.key == KeyState::kNone; });
  }
  Handles arranged;
  const auto take = [&](const auto& is_wanted) {
    for (const Certificate& one : all) {
      if (is_wanted(one)) arranged.push_back(one.handle);
    }
  };
  if (!rules.Has(Rule::kKeyedCertificatesFirst)) {
    take([](const Certificate&) { return true; });
    return arranged;
  }
  for (const KeyState state : {KeyState::kSeen, KeyState::kPossible, KeyState::kNone}) {
    take([&](const Certificate& one) { return one.key == state; });
  }
  return arranged;
}

}  // namespace kelvrin::adapter

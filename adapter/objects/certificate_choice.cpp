#include "adapter/objects/certificate_choice.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "adapter/inner/object_reading.h"
#include "encoding/certificate.h"

namespace kelvrin::adapter {
namespace {

using encoding::CertificateFacts;

// CKA_CERTIFICATE_CATEGORY, which the header does not name.
constexpr CK_ATTRIBUTE_TYPE kCategory = 0x87;
constexpr CK_ULONG kAuthority = 2;

std::optional<CertificateFacts> ReadFacts(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                          CK_OBJECT_HANDLE certificate) {
  const auto der = ReadAttribute(inner, session, certificate, CKA_VALUE, kMaxCertificateRead);
  return der ? encoding::ReadCertificate(*der) : std::nullopt;
}

// Whether another certificate names the authority as its issuer.
bool HasIssued(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
               const CertificateFacts& authority, const Handles& all) {
  return std::any_of(all.begin(), all.end(), [&](CK_OBJECT_HANDLE other) {
    const auto facts = ReadFacts(inner, session, other);
    return facts && facts->issuer == authority.subject && facts->subject != authority.subject;
  });
}

}  // namespace

bool IsAuthority(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                 CK_OBJECT_HANDLE certificate, const Handles& all) {
  if (ReadNumber(inner, session, certificate, kCategory) == kAuthority) return true;
  const auto facts = ReadFacts(inner, session, certificate);
  return facts && facts->is_ca &&
         (facts->signs_certificates_only || HasIssued(inner, session, *facts, all));
}

Handles ArrangeCertificates(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                            const Rules& rules, const std::set<Bytes>& keys, const Handles& found) {
  Handles with_key;
  Handles others;
  for (const CK_OBJECT_HANDLE certificate : found) {
    if (rules.Has(Rule::kOversizeCertificates) &&
        ReadLength(inner, session, certificate, CKA_VALUE).value_or(0) > kMaxCertificate) {
      continue;
    }
    const Bytes id = ReadAttribute(inner, session, certificate, CKA_ID, kMaxId).value_or(Bytes());
    const bool is_seen = keys.contains(id);
    if (!is_seen && rules.Has(Rule::kKeylessCertificates) &&
        IsAuthority(inner, session, certificate, found)) {
      continue;
    }
    const bool comes_first = is_seen || !rules.Has(Rule::kKeyedCertificatesFirst);
    (comes_first ? with_key : others).push_back(certificate);
  }
  if (!rules.Has(Rule::kKeyedCertificatesFirst)) return with_key;
  with_key.insert(with_key.end(), others.begin(), others.end());
  return with_key;
}

}  // namespace kelvrin::adapter

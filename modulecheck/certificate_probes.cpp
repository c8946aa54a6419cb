// Certificates.
#include <algorithm>
#include <set>

#include "modulecheck/objects.h"
#include "modulecheck/probes.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMaxCertificates = 20;
// The longest CKA_ID that the extension has room for.
constexpr std::size_t kMaxId = 255;

// Judges each certificate; `is_met` says whether one does what is expected, `otherwise` what is
// wrong with one that does not.
template <typename Predicate>
Judgement ForCertificates(ProbeContext& context, Predicate is_met, const std::string& otherwise) {
  const Session session(context.module);
  const std::vector<Certificate> certificates = ReadCertificates(session);
  if (certificates.empty()) return NotConcerned("there is no certificate");
  return JudgeEach(context, certificates, [&](const Certificate& certificate) {
    return is_met(certificate) ? Met() : Unmet(NameOf(certificate) + otherwise);
  });
}

// The CKA_IDs of all keys that show, listed or found by a certificate's.
std::set<Bytes> KeyIds(const Session& session, const std::vector<Certificate>& certificates) {
  std::set<Bytes> ids;
  for (const CK_OBJECT_CLASS object_class : {CKO_PUBLIC_KEY, CKO_PRIVATE_KEY}) {
    for (const CK_OBJECT_HANDLE key : FindClass(session, object_class)) {
      if (auto id = ReadBytes(session, key, CKA_ID)) ids.insert(*id);
    }
  }
  for (const Certificate& certificate : certificates) {
    if (!FindId(session, CKO_PUBLIC_KEY, certificate.id).empty()) ids.insert(certificate.id);
  }
  return ids;
}

}  // namespace

Judgement ProbeCertificates(ProbeContext& context) {
  const Session session(context.module);
  const std::vector<Certificate> certificates = ReadCertificates(session);
  if (certificates.empty()) return Unmet("there is no certificate: nothing would be published");
  Judgement judgement = JudgeEach(context, certificates, [&](const Certificate& certificate) {
    if (certificate.der.size() > kCertValueSize) return Met();  // an expectation of its own
    CertInfo info;
    const CK_RV result = get_cert_info(session.p11(), session.handle(), certificate.handle, &info);
    if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, "of " + NameOf(certificate));
    const std::size_t size = std::min(info.value_len, kCertValueSize);
    if (encoding::ReadCertificate({info.value, size})) return Met();
    return Unmet("the value of " + NameOf(certificate) + " is no certificate");
  });
  if (judgement.outcome == Outcome::kMet) {
    judgement.detail = Counted(certificates.size(), "certificate");
  }
  return judgement;
}

Judgement ProbeCertificateLabels(ProbeContext& context) {
  return ForCertificates(
      context, [](const Certificate& certificate) { return IsAscii(certificate.label); },
      ": the label is not ASCII, so it would be left out without a word");
}

Judgement ProbeCertificateSizes(ProbeContext& context) {
  return ForCertificates(
      context,
      [](const Certificate& certificate) { return certificate.der.size() <= kCertValueSize; },
      " has more than 4096 bytes: the whole set-up would end there");
}

Judgement ProbeCertificateIds(ProbeContext& context) {
  return ForCertificates(
      context, [](const Certificate& certificate) { return certificate.id.size() <= kMaxId; },
      ": the CKA_ID has more than 255 bytes, for which the extension has no room");
}

Judgement ProbeCertificateOrder(ProbeContext& context) {
  const Session session(context.module);
  const std::vector<Certificate> certificates = ReadCertificates(session);
  if (certificates.empty()) return NotConcerned("there is no certificate");
  const std::set<Bytes> ids = KeyIds(session, certificates);
  for (std::size_t i = kMaxCertificates; i < certificates.size(); ++i) {
    if (!ids.contains(certificates[i].id)) continue;
    return Unmet(NameOf(certificates[i]) + " has a key and is number " + std::to_string(i + 1) +
                 ": it would not be read");
  }
  return Met();
}

Judgement ProbeCertificateKeys(ProbeContext& context) {
  const Session session(context.module);
  const std::set<Bytes> ids = KeyIds(session, ReadCertificates(session));
  return ForCertificates(
      context, [&](const Certificate& certificate) { return ids.contains(certificate.id); },
      " has no key that shows: a key that is not there would be published");
}

}  // namespace kelvrin::modulecheck

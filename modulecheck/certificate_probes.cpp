// Certificates.
#include <algorithm>

#include "modulecheck/probes.h"
#include "p11/lookup.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMaxCertificates = 20;
// The longest CKA_ID that the extension has room for.
constexpr std::size_t kMaxId = 255;

constexpr char kNone[] = "there is no certificate";

// Judges each certificate; `is_met` says whether one does what is expected, `otherwise` what is
// wrong with one that does not.
template <typename Predicate>
Judgement ForCertificates(ProbeContext& context, Predicate is_met, const std::string& otherwise) {
  const auto judge = [&](const Certificate& certificate) {
    return is_met(certificate) ? Met() : Unmet(NameOf(certificate) + otherwise);
  };
  return JudgeEach(context, context.contents().certificates, kNone, judge);
}

// Whether a key shows that has the certificate's CKA_ID, listed or found by it.
bool HasKey(const Contents& contents, const Certificate& certificate) {
  const auto has = [&](const std::vector<Key>& keys) {
    return !certificate.id.empty() &&
           std::ranges::find(keys, certificate.id, &Key::id) != keys.end();
  };
  return !certificate.public_keys.empty() || has(contents.public_keys) ||
         has(contents.private_keys);
}

}  // namespace

Judgement ProbeCertificates(ProbeContext& context) {
  const Contents& contents = context.contents();
  const std::size_t count = contents.certificates.size();
  if (count == 0) return Unmet("there is no certificate: nothing would be published");
  const auto judge = [&](const Certificate& certificate) {
    if (certificate.der.size() > kCertValueSize) return Met();  // an expectation of its own
    CertInfo info;
    const CK_RV result =
        get_cert_info(contents.session.p11(), contents.session.handle(), certificate.handle, &info);
    if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, "of " + NameOf(certificate));
    if (encoding::ReadCertificate({info.value, std::min(info.value_len, kCertValueSize)})) {
      return Met();
    }
    return Unmet("the value of " + NameOf(certificate) + " is no certificate");
  };
  Judgement judgement = JudgeEach(context, contents.certificates, kNone, judge);
  if (judgement.outcome == Outcome::kMet) judgement.detail = Counted(count, "certificate");
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
  const Contents& contents = context.contents();
  const std::vector<Certificate>& certificates = contents.certificates;
  if (certificates.empty()) return NotConcerned(kNone);
  for (std::size_t i = kMaxCertificates; i < certificates.size(); ++i) {
    if (!HasKey(contents, certificates[i])) continue;
    return Unmet(NameOf(certificates[i]) + " has a key and is number " + std::to_string(i + 1) +
                 ": it would not be read");
  }
  return Met();
}

Judgement ProbeCertificateKeys(ProbeContext& context) {
  return ForCertificates(
      context,
      [&](const Certificate& certificate) { return HasKey(context.contents(), certificate); },
      " has no key that shows: a key that is not there would be published");
}

}  // namespace kelvrin::modulecheck

// Certificates, and the token's whole set-up.
#include <algorithm>
#include <set>

#include "p11/lookup.h"
#include "modulecheck/der.h"
#include "modulecheck/objects.h"
#include "modulecheck/probes.h"
#include "modulecheck/rehearsal.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMaxCertificates = 20;

Judgement NoCertificate() { return NotConcerned("there is no certificate"); }

std::string NameOf(const Certificate& certificate) {
  return modulecheck::NameOf(certificate.label, certificate.id);
}

// The CKA_IDs of all keys that show.
std::set<Bytes> KeyIds(const Module& module, CK_SESSION_HANDLE session) {
  std::set<Bytes> ids;
  for (const CK_OBJECT_CLASS object_class : {CKO_PUBLIC_KEY, CKO_PRIVATE_KEY}) {
    for (const CK_OBJECT_HANDLE key : FindClass(module, session, object_class)) {
      if (auto id = ReadBytes(module, session, key, CKA_ID)) ids.insert(*id);
    }
  }
  return ids;
}

bool HasKey(const Module& module, CK_SESSION_HANDLE session, const std::set<Bytes>& ids,
            const Certificate& certificate) {
  return ids.contains(certificate.id) ||
         !FindId(module, session, CKO_PUBLIC_KEY, certificate.id).empty();
}

}  // namespace

Judgement ProbeCertificates(Module& module) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  if (certificates.empty()) return Unmet("there is no certificate: nothing would be published");
  for (const Certificate& certificate : certificates) {
    if (certificate.der.size() > kCertValueSize) continue;  // an expectation of its own
    CertInfo info;
    const CK_RV result = get_cert_info(module.p11(), session.handle(), certificate.handle, &info);
    if (result != CKR_OK) return Unmet("C_GetAttributeValue", result, "of " + NameOf(certificate));
    if (!IsSequence({info.value, info.value_len})) {
      return Unmet("the value of " + NameOf(certificate) + " is no certificate");
    }
  }
  return Met(Counted(certificates.size(), "certificate"));
}

Judgement ProbeCertificateLabels(Module& module) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  if (certificates.empty()) return NoCertificate();
  for (const Certificate& certificate : certificates) {
    if (IsAscii(certificate.label)) continue;
    return Unmet("the label of " + NameOf(certificate) +
                 " is not ASCII: it would be left out without a word");
  }
  return Met();
}

Judgement ProbeCertificateSizes(Module& module) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  if (certificates.empty()) return NoCertificate();
  for (const Certificate& certificate : certificates) {
    if (certificate.der.size() <= kCertValueSize) continue;
    return Unmet(NameOf(certificate) + " has " + std::to_string(certificate.der.size()) +
                 " bytes: the whole set-up would end there");
  }
  return Met();
}

Judgement ProbeCertificateOrder(Module& module) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  if (certificates.empty()) return NoCertificate();
  const std::set<Bytes> ids = KeyIds(module, session.handle());
  for (std::size_t i = kMaxCertificates; i < certificates.size(); ++i) {
    if (!HasKey(module, session.handle(), ids, certificates[i])) continue;
    return Unmet(NameOf(certificates[i]) + " has a key and is number " + std::to_string(i + 1) +
                 ": it would not be read");
  }
  return Met();
}

Judgement ProbeCertificateKeys(Module& module) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  if (certificates.empty()) return NoCertificate();
  const std::set<Bytes> ids = KeyIds(module, session.handle());
  for (const Certificate& certificate : certificates) {
    if (HasKey(module, session.handle(), ids, certificate)) continue;
    return Unmet("no key of " + NameOf(certificate) +
                 " shows: a key that is not there would be published");
  }
  return Met();
}

Judgement ProbeSetUp(Module& module) {
  const Rehearsal rehearsal = RehearseSetUp(module);
  if (!rehearsal.failed_call.empty()) {
    return Unmet(rehearsal.failed_call, rehearsal.result, rehearsal.publication.ended);
  }
  if (!rehearsal.publication.ended.empty()) return Unmet(rehearsal.publication.ended);
  std::size_t keys = 0;
  for (const ItemListing& item : rehearsal.publication.items) keys += item.kind == "key" ? 1 : 0;
  if (keys == 0) return Unmet("no key would be published");
  return Met(Counted(rehearsal.publication.items.size() - keys, "certificate") + " and " +
             Counted(keys, "key") + " would be published");
}

}  // namespace kelvrin::modulecheck

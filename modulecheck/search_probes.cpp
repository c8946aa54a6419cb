// Searches, and reads that fail.
#include <array>

#include "p11/lookup.h"
#include "modulecheck/objects.h"
#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {
namespace {

// Room that the extension offers for every attribute.
constexpr CK_ULONG kRoom = 1024;

// How far a search is read before the next one begins.
struct Reading {
  CK_ULONG room;
  const char* text;
};
constexpr Reading kReadings[] = {
    {0, "before the first one is read"},
    {1, "when one object of the first is read"},
    {20, "when the first one is read to its end"},
};

CK_RV BeginSearch(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class) {
  CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
  return module.p11()->C_FindObjectsInit(session, &wanted, 1);
}

Judgement TrySecondSearch(const Module& module, const Reading& reading) {
  const ProbeSession session(module);
  CK_RV result = BeginSearch(module, session.handle(), CKO_CERTIFICATE);
  if (result != CKR_OK) return Unmet("C_FindObjectsInit", result, "of the first search");
  if (reading.room != 0) {
    CK_OBJECT_HANDLE found[20] = {};
    CK_ULONG count = 0;
    result = module.p11()->C_FindObjects(session.handle(), found, reading.room, &count);
    if (result != CKR_OK) return Unmet("C_FindObjects", result, "of the first search");
  }
  result = BeginSearch(module, session.handle(), CKO_PUBLIC_KEY);
  const std::string detail = std::string("of a second search, ") + reading.text;
  if (result != CKR_OK) return Unmet("C_FindObjectsInit", result, detail);
  CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
  CK_ULONG count = 0;
  result = module.p11()->C_FindObjects(session.handle(), &key, 1, &count);
  return result == CKR_OK ? Met() : Unmet("C_FindObjects", result, detail);
}

// Reads with this room an attribute that cannot be read so; whether the length that is left behind
// is one that the caller's buffer has.
Judgement TryFailedRead(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE_TYPE type, CK_ULONG room) {
  std::array<CK_BYTE, kRoom> buffer = {};
  CK_ATTRIBUTE attribute = {type, buffer.data(), room};
  const CK_RV result = module.p11()->C_GetAttributeValue(session, object, &attribute, 1);
  if (result == CKR_OK || attribute.ulValueLen <= kRoom) return Met();
  const bool is_minus_one = attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION;
  return Unmet("C_GetAttributeValue", result,
               is_minus_one ? "the length left behind is -1"
                            : "the length left behind is " + std::to_string(attribute.ulValueLen));
}

// The certificates whose CKA_ID no key of the class has.
Judgement JudgeKeys(Module& module, CK_OBJECT_CLASS object_class, const char* kind) {
  const ProbeSession session(module);
  const std::vector<Certificate> certificates = ReadCertificates(module, session.handle());
  if (certificates.empty()) return NotConcerned("there is no certificate");
  std::vector<std::string> missing;
  for (const Certificate& certificate : certificates) {
    if (FindId(module, session.handle(), object_class, certificate.id).empty()) {
      missing.push_back(NameOf(certificate.label, certificate.id));
    }
  }
  if (missing.empty()) return Met();
  return Unmet("there is no " + std::string(kind) + " key for " + Join(missing, ", "));
}

}  // namespace

Judgement ProbeSecondSearch(Module& module) {
  for (const Reading& reading : kReadings) {
    Judgement judgement = TrySecondSearch(module, reading);
    if (judgement.outcome != Outcome::kMet) return judgement;
  }
  return Met();
}

Judgement ProbePublicKeys(Module& module) { return JudgeKeys(module, CKO_PUBLIC_KEY, "public"); }

Judgement ProbePrivateKeys(Module& module) { return JudgeKeys(module, CKO_PRIVATE_KEY, "private"); }

Judgement ProbeFailedLengths(Module& module) {
  const ProbeSession session(module);
  const Handles certificates = FindClass(module, session.handle(), CKO_CERTIFICATE);
  if (certificates.empty()) return NotConcerned("there is no certificate to read");
  // An attribute that no certificate has, and too little room for one that each has.
  Judgement judgement =
      TryFailedRead(module, session.handle(), certificates[0], CKA_MODULUS, kRoom);
  if (judgement.outcome != Outcome::kMet) return judgement;
  return TryFailedRead(module, session.handle(), certificates[0], CKA_VALUE, 1);
}

Judgement ProbeInvalidHandle(Module& module) {
  const ProbeSession session(module);
  std::array<CK_BYTE, kRoom> buffer = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, buffer.data(), kRoom};
  const CK_RV result =
      module.p11()->C_GetAttributeValue(session.handle(), CK_INVALID_HANDLE, &attribute, 1);
  if (result == CKR_OK) return Unmet("C_GetAttributeValue", result, "for the handle 0");
  if (attribute.ulValueLen <= kRoom) return Met();
  return Unmet("C_GetAttributeValue", result, "the length left behind is beyond the room");
}

}  // namespace kelvrin::modulecheck

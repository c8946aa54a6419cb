// Searches, and reads that fail.
#include <algorithm>
#include <array>

#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {
namespace {

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

CK_RV BeginSearch(const Session& session, CK_OBJECT_CLASS object_class) {
  CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
  return session.p11()->C_FindObjectsInit(session.handle(), &wanted, 1);
}

// Whether a second search may begin, and be read, when the first one was read so far.
Judgement TrySecondSearch(const Module& module, const Reading& reading) {
  const Session session(module);
  CK_OBJECT_HANDLE found[20] = {};
  CK_ULONG count = 0;
  CK_RV result = BeginSearch(session, CKO_CERTIFICATE);
  if (result != CKR_OK) return Unmet("C_FindObjectsInit", result, "of the first search");
  if (reading.room != 0) {
    result = session.p11()->C_FindObjects(session.handle(), found, reading.room, &count);
    if (result != CKR_OK) return Unmet("C_FindObjects", result, "of the first search");
  }
  result = BeginSearch(session, CKO_PUBLIC_KEY);
  const std::string detail = std::string("of a second search, ") + reading.text;
  if (result != CKR_OK) return Unmet("C_FindObjectsInit", result, detail);
  result = session.p11()->C_FindObjects(session.handle(), found, 1, &count);
  return result == CKR_OK ? Met() : Unmet("C_FindObjects", result, detail);
}

// Reads with this room an attribute that cannot be read so; whether the length that is left behind
// is one that the caller's buffer has.
Judgement TryFailedRead(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                        CK_ULONG room) {
  std::array<CK_BYTE, kRoom> buffer = {};
  CK_ATTRIBUTE attribute = {type, buffer.data(), room};
  const CK_RV result = session.p11()->C_GetAttributeValue(session.handle(), object, &attribute, 1);
  if (result == CKR_OK || attribute.ulValueLen <= kRoom) return Met();
  const bool is_minus_one = attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION;
  return Unmet(
      "C_GetAttributeValue", result,
      "the length left behind is " + (is_minus_one ? "-1" : std::to_string(attribute.ulValueLen)));
}

// Whether each certificate has one of these keys.
Judgement JudgeKeys(ProbeContext& context, Handles Certificate::* keys, const char* kind) {
  const auto judge = [&](const Certificate& certificate) {
    if (!(certificate.*keys).empty()) return Met();
    return Unmet("there is no " + std::string(kind) + " key for the certificate " +
                 NameOf(certificate));
  };
  return JudgeEach(context, context.contents().certificates, "there is no certificate", judge);
}

}  // namespace

Judgement ProbeSecondSearch(ProbeContext& context) {
  for (const Reading& reading : kReadings) {
    Judgement judgement = TrySecondSearch(context.module, reading);
    if (judgement.outcome != Outcome::kMet) return judgement;
  }
  return Met();
}

Judgement ProbePublicKeys(ProbeContext& context) {
  return JudgeKeys(context, &Certificate::public_keys, "public");
}

Judgement ProbePrivateKeys(ProbeContext& context) {
  return JudgeKeys(context, &Certificate::private_keys, "private");
}

Judgement ProbeFailedLengths(ProbeContext& context) {
  const Contents& contents = context.contents();
  if (contents.certificates.empty()) return NotConcerned("there is no certificate to read");
  const CK_OBJECT_HANDLE certificate = contents.certificates[0].handle;
  // An attribute that no certificate has, and too little room for one that each has.
  Judgement judgement = TryFailedRead(contents.session, certificate, CKA_MODULUS, kRoom);
  if (judgement.outcome != Outcome::kMet) return judgement;
  return TryFailedRead(contents.session, certificate, CKA_VALUE, 1);
}

// Some modules number their objects from 0: there the handle is a good one.
Judgement ProbeInvalidHandle(ProbeContext& context) {
  const Session session(context.module);
  const Handles all = FindAll(session, {});
  if (std::ranges::find(all, CK_INVALID_HANDLE) != all.end()) {
    return NotConcerned("the handle 0 is an object's");
  }
  std::array<CK_BYTE, kRoom> buffer = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, buffer.data(), kRoom};
  const CK_RV result =
      session.p11()->C_GetAttributeValue(session.handle(), CK_INVALID_HANDLE, &attribute, 1);
  if (result == CKR_OK) return Unmet("C_GetAttributeValue", result, "for the handle 0");
  if (attribute.ulValueLen <= kRoom) return Met();
  return Unmet("C_GetAttributeValue", result, "the length left behind is beyond the room");
}

}  // namespace kelvrin::modulecheck

// Objects on the token, read the way the standard says, and operations with the private ones on
// fixed data that means nothing to anybody.
#pragma once

#include <p11-kit/pkcs11.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "encoding/certificate.h"
#include "modulecheck/judgement.h"
#include "modulecheck/module.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

using Handles = std::vector<CK_OBJECT_HANDLE>;

// All objects that match, at most 1000; a handle may be 0. The search is finished. Throws
// CallFailed.
Handles FindAll(const Session& session, std::span<CK_ATTRIBUTE> wanted);
Handles FindClass(const Session& session, CK_OBJECT_CLASS object_class);
// Those of a class with a CKA_ID.
Handles FindId(const Session& session, CK_OBJECT_CLASS object_class, const Bytes& id);

// An attribute's value; nothing when it cannot be read or has more than 64 KiB.
std::optional<Bytes> ReadBytes(const Session& session, CK_OBJECT_HANDLE object,
                               CK_ATTRIBUTE_TYPE type);
// The same, empty.
Bytes ReadOrEmpty(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);
// Whether the attribute says yes; false too when it cannot be read.
bool ReadFlag(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  Bytes id;
  Bytes label;
};

// How an object is called in a sentence: its label and CKA_ID.
std::string NameOf(const Object& object);

struct Certificate : Object {
  Bytes der;
};

struct Key : Object {
  CK_KEY_TYPE type = CK_UNAVAILABLE_INFORMATION;
  std::string type_text;  // "RSA-2048", "EC P-256"
  Bytes certificate;      // DER, of a certified key
  encoding::CertificateFacts facts;
};

// In the module's order. Throw CallFailed.
std::vector<Certificate> ReadCertificates(const Session& session);
std::vector<Key> ReadKeys(const Session& session, const Handles& handles);

// The public RSA and EC keys that belong to a certificate, listed or found by their CKA_ID alone:
// the others do not matter to the extension.
std::vector<Key> PublicKeys(const Session& session);
// The private keys of this type, CKK_RSA or CKK_EC, that have the usage flag and a certificate, in
// the certificates' order: the extension uses no other.
std::vector<Key> CertifiedKeys(const Session& session, CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage);
// The same without those that want a login for each operation, as long as there are others.
std::vector<Key> OrdinaryKeys(const Session& session, CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage);

// The mechanisms of the slot that is judged.
std::vector<CK_MECHANISM_TYPE> SlotMechanisms(const Module& module);
bool Offers(const Module& module, CK_MECHANISM_TYPE mechanism);

// The first `size` bytes, at most 64, of the data that probes sign.
ByteView ProbeData(std::size_t size);

// Room that the extension offers for every attribute and every result.
inline constexpr CK_ULONG kRoom = 1024;

struct OperationResult {
  std::string call;  // the last one that was made
  CK_RV result = CKR_OK;
  Bytes output = {};  // never more than the room

  Judgement Failed(std::string detail) const { return Unmet(call, result, std::move(detail)); }
};

// One Init and one call, as the extension makes them; no mechanism gets a parameter.
OperationResult Sign(const Session& session, const Key& key, CK_MECHANISM_TYPE mechanism,
                     ByteView data, CK_ULONG room = kRoom);
OperationResult Decrypt(const Session& session, const Key& key, CK_MECHANISM_TYPE mechanism,
                        ByteView data);

}  // namespace kelvrin::modulecheck

// Objects on the token, read the way the standard says, and operations with the private ones on
// fixed data that means nothing to anybody.
#pragma once

#include <p11-kit/pkcs11.h>

#include <initializer_list>
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

// Whether the attribute says yes; false too when it cannot be read.
bool ReadFlag(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

// A flag that says what a key may be used for.
struct Usage {
  CK_ATTRIBUTE_TYPE type;
  const char* name;  // without CKA_
};
// Those of public keys that the extension reads.
inline constexpr Usage kPublicUsages[] = {
    {CKA_VERIFY, "VERIFY"}, {CKA_ENCRYPT, "ENCRYPT"}, {CKA_WRAP, "WRAP"}, {CKA_DERIVE, "DERIVE"}};

struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  Bytes id;
  Bytes label;
};

// How an object is called in a sentence: its label and CKA_ID.
std::string NameOf(const Object& object);

struct Certificate : Object {
  Bytes der;
  std::optional<encoding::CertificateFacts> facts;
  Handles public_keys;  // with its CKA_ID
  Handles private_keys;
};

struct Key : Object {
  CK_KEY_TYPE type = CK_UNAVAILABLE_INFORMATION;
  std::string type_text;      // "RSA-2048", "EC of 256 bits"
  bool is_certified = false;  // a certificate has its CKA_ID: the extension uses no other
  // Of a private key that CertifiedKeys gives.
  Bytes certificate = {};
  encoding::CertificateFacts facts = {};
};

// What the card shows to a session that stays open, in the module's order.
struct Contents {
  explicit Contents(const Module& module);  // throws CallFailed

  // The certified public keys of a type, CKK_RSA or CKK_EC.
  std::vector<Key> CertifiedPublicKeys(std::initializer_list<CK_KEY_TYPE> types) const;
  // The private keys of this type that have the usage flag and a certificate.
  std::vector<Key> CertifiedKeys(CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage) const;
  // The same without those that want a login for each operation, as long as there are others.
  std::vector<Key> OrdinaryKeys(CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage) const;

  Session session;
  std::vector<Certificate> certificates;
  std::vector<Key> public_keys;  // those that are listed, and those found by a CKA_ID alone
  std::vector<Key> private_keys;
};

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

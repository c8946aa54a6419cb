// Objects on the token, read the way the standard says.
#pragma once

#include <p11-kit/pkcs11.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "modulecheck/module.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

using Handles = std::vector<CK_OBJECT_HANDLE>;

// All objects that match, at most 1000. The search is finished. Throws CallFailed.
Handles FindAll(const Module& module, CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> wanted);
Handles FindClass(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class);
// Those of a class with a CKA_ID.
Handles FindId(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class,
               const Bytes& id);

// A call that a probe needs and that the module refused.
struct CallFailed {
  std::string call;
  CK_RV result;
};

// An attribute's value; nothing when it cannot be read or has more than 64 KiB.
std::optional<Bytes> ReadBytes(const Module& module, CK_SESSION_HANDLE session,
                               CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);
std::optional<CK_ULONG> ReadNumber(const Module& module, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);
// False too when it cannot be read.
bool ReadFlag(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
              CK_ATTRIBUTE_TYPE type);

struct Certificate {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  Bytes id;
  Bytes label;
  Bytes der;
};

struct Key {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  CK_OBJECT_CLASS object_class = CKO_PUBLIC_KEY;
  CK_KEY_TYPE type = CK_UNAVAILABLE_INFORMATION;
  Bytes id;
  Bytes label;
  Bytes modulus;  // of an RSA key
  Bytes exponent;
  Bytes ec_params;  // of an EC key
  Bytes ec_point;
};

// In the module's order.
std::vector<Certificate> ReadCertificates(const Module& module, CK_SESSION_HANDLE session);
std::vector<Key> ReadKeys(const Module& module, CK_SESSION_HANDLE session,
                          CK_OBJECT_CLASS object_class);
std::vector<Key> ReadKeysById(const Module& module, CK_SESSION_HANDLE session,
                              CK_OBJECT_CLASS object_class, const Bytes& id);

// "RSA-2048", "EC P-256".
std::string TypeText(const Key& key);

// How a certificate or a key is called in a sentence: its label and CKA_ID.
std::string NameOf(const Bytes& label, const Bytes& id);

std::vector<CK_MECHANISM_TYPE> SlotMechanisms(const Module& module);
bool Offers(const Module& module, CK_MECHANISM_TYPE mechanism);

}  // namespace kelvrin::modulecheck

// The card's private keys, and operations with them on fixed data that means nothing to anybody.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "modulecheck/judgement.h"
#include "modulecheck/module.h"
#include "modulecheck/objects.h"

namespace kelvrin::modulecheck {

// The first private key of this type whose CKA_ID a certificate has and that has the usage flag:
// the extension uses no other. One that wants no login of its own is preferred. What the module
// tells of the public key alone is filled in.
std::optional<Key> FindPrivateKey(const Module& module, CK_SESSION_HANDLE session, CK_KEY_TYPE type,
                                  CK_ATTRIBUTE_TYPE usage);
// The private keys of a certificate that want a login for each operation.
std::vector<Key> FindContextLoginKeys(const Module& module, CK_SESSION_HANDLE session);

// The first `size` bytes, at most 64, of the data that probes sign.
std::span<const CK_BYTE> ProbeData(std::size_t size);

struct OperationResult {
  std::string call;  // the last one that was made
  CK_RV result = CKR_OK;
  Bytes output = {};  // never more than the room

  Judgement Failed(std::string detail) const { return Unmet(call, result, std::move(detail)); }
};

// Room that the extension offers for every result.
inline constexpr CK_ULONG kOperationRoom = 1024;

// One Init and one call, as the extension makes them; no mechanism gets a parameter.
OperationResult Sign(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                     CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data,
                     CK_ULONG room = kOperationRoom);
OperationResult Decrypt(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                        CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> data);

// What the key would sign for the extension at its simplest: a digest, or a block that holds one.
OperationResult SignPlainly(const Module& module, CK_SESSION_HANDLE session, const Key& key,
                            CK_ULONG room = kOperationRoom);

}  // namespace kelvrin::modulecheck
